#ifndef VELMARFIRMWARE_JSON_WRITER_H
#define VELMARFIRMWARE_JSON_WRITER_H

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

/*!
    Writing of single values: each writeLeaf() puts its value at \a place and answers the place
    behind it. There has to be room for roomOfLeaf() the value.
*/
namespace ajson {

namespace Internal {

// "00" to "99", one behind the other.
constexpr std::array<char, 200> digitPairs()
{
    std::array<char, 200> pairs {};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}

inline constexpr std::array<char, 200> DigitPairs = digitPairs();

} // namespace Internal

/*! The most bytes that writeLeaf() takes for an integer of this type. */
template<class Integer> constexpr std::size_t roomOfLeaf(Integer)
{
    return std::numeric_limits<Integer>::digits10 + (std::is_signed_v<Integer> ? 2 : 1);
}

/*! The most bytes that writeLeaf() takes for \a text. */
inline std::size_t roomOfLeaf(const std::string &text)
{
    return text.size() * 6 + 2;
}

/*! Decimal digits, with a '-' before a negative number. */
template<class Integer> char *writeLeaf(char *place, Integer value)
{
    if (value >= 0 && value < 1000) { // most codes, slots and percentages
        const auto number = static_cast<unsigned>(value);
        if (number >= 100)
            *place++ = static_cast<char>('0' + number / 100);
        if (number >= 10) {
            std::memcpy(place, &Internal::DigitPairs[2 * (number % 100)], 2);
            return place + 2;
        }
        *place++ = static_cast<char>('0' + number);
        return place;
    }
    return std::to_chars(place, place + roomOfLeaf(value), value).ptr;
}

/*!
    \a text in quotes, as pure ASCII.

    A NUL, or the first byte that is no valid UTF-8, ends the text without a word. A code point
    above 0xFFFF is written as two groups of four digits, one for its high and one for its low 16
    bits, which are no surrogate pair.
*/
char *writeLeaf(char *place, const std::string &text);

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_WRITER_H
