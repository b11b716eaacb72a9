#ifndef VELMARFIRMWARE_JSON_RECORDWRITER_H
#define VELMARFIRMWARE_JSON_RECORDWRITER_H

#include "fieldtable.h"
#include "writer.h"

#include <cstring>
#include <utility>
#include <vector>

/*!
    The walk that writes records and lists of records: every field, in the order of the names, with
    no white space. Room for the whole of a value is made before it is written.
*/
namespace ajson::Internal {

template<class Record, std::size_t... Index>
std::size_t roomOfRecord(const Record &record, std::index_sequence<Index...>);
template<class Record, std::size_t... Index>
char *writeRecord(char *place, const Record &record, std::index_sequence<Index...>);

/*! The most bytes that writeValue() takes for \a value. */
template<class Type> std::size_t roomOfValue(const Type &value)
{
    if constexpr (IsRecord<Type>::value)
        return roomOfRecord(value, std::make_index_sequence<FieldTable<Type>.size()>());
    else
        return roomOfLeaf(value);
}

template<class Element> std::size_t roomOfValue(const std::vector<Element> &list)
{
    std::size_t room = 2;
    for (const Element &element : list)
        room += roomOfValue(element) + 1;
    return room;
}

template<class Record, std::size_t... Index>
std::size_t roomOfRecord(const Record &record, std::index_sequence<Index...>)
{
    return (
        (1 + KeyText<Record, Index>.size() + roomOfValue(record.*std::get<Index>(Record::Members)))
        + ... + 1);
}

/*! Writes \a value at \a place and answers the place behind it. */
template<class Type> char *writeValue(char *place, const Type &value)
{
    if constexpr (IsRecord<Type>::value)
        return writeRecord(place, value, std::make_index_sequence<FieldTable<Type>.size()>());
    else
        return writeLeaf(place, value);
}

template<class Element> char *writeValue(char *place, const std::vector<Element> &list)
{
    *place++ = '[';
    for (const Element &element : list) {
        if (&element != list.data())
            *place++ = ',';
        place = writeValue(place, element);
    }
    *place++ = ']';
    return place;
}

template<std::size_t Index, class Record> char *writeField(char *place, const Record &record)
{
    constexpr auto &Key = KeyText<Record, Index>;

    *place++ = Index == 0 ? '{' : ',';
    std::memcpy(place, Key.data(), Key.size());
    return writeValue(place + Key.size(), record.*std::get<Index>(Record::Members));
}

template<class Record, std::size_t... Index>
char *writeRecord(char *place, const Record &record, std::index_sequence<Index...>)
{
    checkBinding<Record>();
    ((place = writeField<Index>(place, record)), ...);
    *place++ = '}';
    return place;
}

} // namespace ajson::Internal

#endif // VELMARFIRMWARE_JSON_RECORDWRITER_H
