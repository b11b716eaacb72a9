#ifndef VELMARFIRMWARE_JSON_RECORDREADER_H
#define VELMARFIRMWARE_JSON_RECORDREADER_H

#include "fieldtable.h"
#include "lookahead.h"
#include "reader.h"

#include <utility>
#include <vector>

/*!
    The walk that reads a text into records and lists of records.

    Nested values make the token behind them current. The top-level value does not: what stands
    behind a document is not looked at.
*/
namespace ajson::Internal {

enum class Level : bool { Top, Nested };

template<Level level, class Record> void readRecord(Reader &reader, Record &record);
template<Level level, class Element> void readList(Reader &reader, std::vector<Element> &list);

/*! Reads the value that begins with the current token. */
template<Level level, class Type> void readValue(Reader &reader, Type &target)
{
    if constexpr (IsRecord<Type>::value)
        readRecord<level>(reader, target);
    else
        reader.read(target);
}

template<Level level, class Element> void readValue(Reader &reader, std::vector<Element> &target)
{
    readList<level>(reader, target);
}

/*! Behind a value in a record: true if another key is due, false at the record's end. */
inline bool recordGoesOn(Reader &reader)
{
    if (reader.startsWith(','))
        return true;
    if (!reader.startsWith('}'))
        reader.error("invalid json document!");
    return false;
}

/*! Short cut: if the text goes on with the key of the field at \a Index, reads that field. False at
    the end of the record. */
template<std::size_t Index, class Record>
[[gnu::always_inline]] inline bool readGuessedField(Reader &reader, LookAhead &ahead,
                                                    Record &record)
{
    auto &member = record.*std::get<Index>(Record::Members);

    if (!ahead.skipKey(KeyText<Record, Index>))
        return true;
    if constexpr (IsLeaf<std::decay_t<decltype(member)>>) {
        if (const char separator = ahead.readValue(member); separator != '\0')
            return separator == ',';
    }
    ahead.moveReader();
    reader.next();
    readValue<Level::Nested>(reader, member);
    ahead = LookAhead(reader);
    return recordGoesOn(reader);
}

template<class Record, std::size_t... Index>
void readFieldAt(Reader &reader, Record &record, std::size_t index, std::index_sequence<Index...>)
{
    static_cast<void>(
        ((index == Index
          && (readValue<Level::Nested>(reader, record.*std::get<Index>(Record::Members)), true))
         || ...));
}

/*! Reads the field whose key is the current token, or skips it. False at the end of the record. */
template<class Record> bool readField(Reader &reader, Record &record)
{
    constexpr auto &Table = FieldTable<Record>;

    if (reader.tokenType() != TokenType::Str)
        reader.error("object key must be string");
    const std::string_view key = reader.token();
    reader.next();
    if (!reader.startsWith(':'))
        reader.error("invalid json document!");
    reader.next();
    const std::size_t index = findField(Table, key);
    if (index < Table.size())
        readFieldAt(reader, record, index, std::make_index_sequence<Table.size()>());
    else
        reader.skipValue();
    return recordGoesOn(reader);
}

/*! False if the record is empty: then its '}' stays the current token, and the record around it
    takes it for its own end. */
template<class Record, std::size_t... Index>
bool readFields(Reader &reader, Record &record, std::index_sequence<Index...>)
{
    for (;;) {
        if (reader.isTerminated()) {
            // Devices send their keys in the order of the table, and mostly all of them.
            LookAhead ahead(reader);
            const bool goesOn = (readGuessedField<Index>(reader, ahead, record) && ...);
            ahead.moveReader();
            if (!goesOn)
                return true;
        }
        const bool atFirst = reader.startsWith('{');
        reader.next();
        if (atFirst && reader.startsWith('}'))
            return false;
        if (!readField(reader, record))
            return true;
    }
}

/*! Keys may come in any order and more than once, unknown ones are skipped, and what belongs to an
    absent one stays as it is. */
template<Level level, class Record> void readRecord(Reader &reader, Record &record)
{
    checkBinding<Record>();
    if (!reader.startsWith('{'))
        reader.error("read object must start with {!");
    constexpr auto Indices = std::make_index_sequence<FieldTable<Record>.size()>();
    if (readFields(reader, record, Indices) && level == Level::Nested)
        reader.next();
}

/*! Adds to what \a list holds. A comma may trail. */
template<Level level, class Element> void readList(Reader &reader, std::vector<Element> &list)
{
    constexpr std::size_t FirstCapacity = 4;

    if (!reader.startsWith('['))
        reader.error("array must start with [.");
    reader.next();
    if (!reader.startsWith(']') && list.capacity() == 0)
        list.reserve(FirstCapacity);
    while (!reader.startsWith(']')) {
        readValue<Level::Nested>(reader, list.emplace_back());
        if (reader.startsWith(','))
            reader.next();
        else if (!reader.startsWith(']'))
            reader.error("no valid array!");
    }
    if (level == Level::Nested)
        reader.next();
}

} // namespace ajson::Internal

#endif // VELMARFIRMWARE_JSON_RECORDREADER_H
