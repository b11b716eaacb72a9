#ifndef VELMAR_TESTS_RANDOMRECORD_H
#define VELMAR_TESTS_RANDOMRECORD_H

#include "json/fieldtable.h"

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

/*! Fills records with values from the whole range of each member: the same ones for a seed. */
class RandomRecord
{
public:
    explicit RandomRecord(std::uint32_t seed)
        : m_engine(seed)
    {
    }

    std::uint32_t upTo(std::uint32_t largest)
    {
        return std::uniform_int_distribution<std::uint32_t>(0, largest)(m_engine);
    }

    /*! Anything that a text in UTF-8 can hold up to U+FFFF, but no NUL. */
    std::string text()
    {
        std::string utf8;
        for (std::uint32_t length = upTo(40); length > 0; --length)
            append(utf8, codePoint());
        return utf8;
    }

    template<class Element> void fill(std::vector<Element> &list)
    {
        list.resize(upTo(4));
        for (Element &element : list)
            fill(element);
    }

    template<class Type> void fill(Type &value)
    {
        if constexpr (ajson::Internal::IsRecord<Type>::value) {
            std::apply([&](auto... member) { (fill(value.*member), ...); }, Type::Members);
        } else if constexpr (std::is_integral_v<Type>) {
            // Mostly small numbers, as devices have them, and the ends of the range.
            static constexpr Type Ends[] = { 0, std::numeric_limits<Type>::min(),
                                             std::numeric_limits<Type>::max() };
            const std::uint32_t bits = upTo(std::numeric_limits<std::uint32_t>::max());
            const std::uint32_t shift = upTo(31);
            value = upTo(9) == 0 ? Ends[upTo(2)] : static_cast<Type>(bits >> shift);
        } else {
            value = text();
        }
    }

private:
    std::uint32_t codePoint()
    {
        for (;;) {
            static constexpr std::uint32_t Largest[] = { 0x7F, 0x7F, 0x7F, 0x7FF, 0xFFFF };
            const std::uint32_t point = upTo(Largest[upTo(4)]);
            if (point != 0 && (point < 0xD800 || point > 0xDFFF))
                return point;
        }
    }

    static void append(std::string &utf8, std::uint32_t point)
    {
        if (point < 0x80) {
            utf8 += static_cast<char>(point);
        } else if (point < 0x800) {
            utf8 += static_cast<char>(0xC0 | point >> 6);
            utf8 += static_cast<char>(0x80 | (point & 0x3F));
        } else {
            utf8 += static_cast<char>(0xE0 | point >> 12);
            utf8 += static_cast<char>(0x80 | (point >> 6 & 0x3F));
            utf8 += static_cast<char>(0x80 | (point & 0x3F));
        }
    }

    std::mt19937 m_engine;
};

#endif // VELMAR_TESTS_RANDOMRECORD_H
