#ifndef VELMARFIRMWARE_JSON_FIELDTABLE_H
#define VELMARFIRMWARE_JSON_FIELDTABLE_H

#include "characters.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/*!
    From a record's list of names to its field table.

    A record is a structure with a string \c Keys of names joined by commas, and a tuple \c Members
    of pointers to the members that these names stand for, in the same order.
*/
namespace ajson {

namespace Internal {

constexpr bool isNameBlank(char character)
{
    return character == ' ' || character == '\t' || character == '\n' || character == '\f'
        || character == '\r';
}

/*! Cuts the next name off \a list. Without any left, the answer is empty. */
constexpr std::string_view takeName(std::string_view &list)
{
    while (!list.empty() && (isNameBlank(list.front()) || list.front() == ','))
        list.remove_prefix(1);
    std::size_t length = 0;
    while (length < list.size() && !isNameBlank(list[length]) && list[length] != ',')
        ++length;
    const std::string_view name = list.substr(0, length);
    list.remove_prefix(length);
    return name;
}

} // namespace Internal

/*! How many names \a list holds; an empty one between two commas does not count. */
constexpr std::size_t countNames(std::string_view list)
{
    std::size_t count = 0;
    while (!Internal::takeName(list).empty())
        ++count;
    return count;
}

/*! The names in \a list, which is no longer than \a Count, as views into it. */
template<std::size_t Count>
constexpr std::array<std::string_view, Count> splitNames(std::string_view list)
{
    std::array<std::string_view, Count> names {};
    for (std::string_view &name : names)
        name = Internal::takeName(list);
    return names;
}

/*! The names of \a Record in the order of its list: parsed while compiling, read by any thread. */
template<class Record>
inline constexpr auto FieldTable = splitNames<countNames(Record::Keys)>(Record::Keys);

/*! The first position of \a key in \a table, byte for byte, or the size of the table. */
template<std::size_t Count>
constexpr std::size_t findField(const std::array<std::string_view, Count> &table,
                                std::string_view key)
{
    std::size_t index = 0;
    while (index < Count && table[index] != key)
        ++index;
    return index;
}

namespace Internal {

template<class Type, class = void> struct IsRecord : std::false_type {
};

template<class Type>
struct IsRecord<Type, std::void_t<decltype(Type::Keys), decltype(Type::Members)>> : std::true_type {
};

template<class Type, class... Other>
inline constexpr bool IsOneOf = (std::is_same_v<Type, Other> || ...);

/*! The single values that the reader and the writer know. */
template<class Type>
inline constexpr bool IsLeaf =
    IsOneOf<Type, std::uint8_t, std::uint16_t, std::uint32_t, std::int32_t, std::string>;

/*! What a member or a list's element may be. */
template<class Type> inline constexpr bool IsBindable = IsLeaf<Type> || IsRecord<Type>::value;
template<class Element>
inline constexpr bool IsBindable<std::vector<Element>> = IsBindable<Element>;

/*! What a whole text may stand for. */
template<class Type> inline constexpr bool IsDocument = IsBindable<Type> && !IsLeaf<Type>;

template<class... Type, class... Owner>
constexpr bool areMembersBindable(const std::tuple<Type Owner::*...> &)
{
    return (IsBindable<Type> && ...);
}

template<class Left, class Right> constexpr bool isSameMember(Left left, Right right)
{
    if constexpr (std::is_same_v<Left, Right>)
        return left == right;
    else
        return false;
}

template<class... Member> constexpr bool areMembersDistinct(const std::tuple<Member...> &members)
{
    const auto areListedOnce = [&members](auto... member) {
        const auto timesListed = [&members](auto one) {
            return std::apply(
                [one](auto... other) { return (0 + ... + (isSameMember(one, other) ? 1 : 0)); },
                members);
        };
        return ((timesListed(member) == 1) && ...);
    };
    return std::apply(areListedOnce, members);
}

/*! Names that are distinct and need no escape, so that a key is one fixed run of bytes. */
template<std::size_t Count>
constexpr bool areNamesSound(const std::array<std::string_view, Count> &table)
{
    for (std::size_t i = 0; i < Count; ++i) {
        if (findField(table, table[i]) != i)
            return false;
        for (const char character : table[i]) {
            if (!isPlain(character))
                return false;
        }
    }
    return true;
}

/*! Refuses to compile for a record that is not declared soundly. */
template<class Record> constexpr void checkBinding()
{
    constexpr auto &Table = FieldTable<Record>;
    static_assert(Table.size() == std::tuple_size_v<decltype(Record::Members)>,
                  "A record has as many names in Keys as Members");
    static_assert(Table.size() > 0, "A record has at least one member");
    static_assert(areNamesSound(Table),
                  "The names of a record are distinct, printable ASCII without quote or backslash");
    static_assert(areMembersBindable(Record::Members),
                  "The members of a record are unsigned integers of 8, 16 or 32 bits, signed ones "
                  "of 32, std::string, records and vectors of these");
    static_assert(areMembersDistinct(Record::Members), "A record lists each of its members once");
}

/*! The field's key as it stands in a text: in quotes, with the colon. */
template<class Record, std::size_t Index> constexpr auto makeKeyText()
{
    constexpr std::string_view Name = FieldTable<Record>[Index];
    std::array<char, Name.size() + 3> text {};
    text[0] = '"';
    for (std::size_t i = 0; i < Name.size(); ++i)
        text[i + 1] = Name[i];
    text[Name.size() + 1] = '"';
    text[Name.size() + 2] = ':';
    return text;
}

template<class Record, std::size_t Index>
inline constexpr auto KeyText = makeKeyText<Record, Index>();

} // namespace Internal

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_FIELDTABLE_H
