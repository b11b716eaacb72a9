#ifndef VELMAR_TESTS_EXPECTEDTEXT_H
#define VELMAR_TESTS_EXPECTEDTEXT_H

#include <cstdint>
#include <string>

/*!
    What comes back of a \a text of any bytes once it has been written and read: its longest valid
    beginning, with two code points for each one above U+FFFF. False if it cannot be read, because
    the second of such a pair is U+0000.

    Decodes UTF-8 by its definition: the shortest form only, and no surrogates.
*/
inline bool readsBackAs(const std::string &text, std::string &back)
{
    const auto append = [&back](std::uint32_t point) {
        if (point < 0x80) {
            back += static_cast<char>(point);
        } else if (point < 0x800) {
            back += static_cast<char>(0xC0 | point >> 6);
            back += static_cast<char>(0x80 | (point & 0x3F));
        } else {
            back += static_cast<char>(0xE0 | point >> 12);
            back += static_cast<char>(0x80 | (point >> 6 & 0x3F));
            back += static_cast<char>(0x80 | (point & 0x3F));
        }
    };
    back.clear();
    bool isReadable = true;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        if (lead == 0 || (lead >= 0x80 && lead < 0xC0) || lead > 0xF7 || i + length > text.size())
            break;
        std::uint32_t point = length == 1 ? lead : lead & (0x7FU >> length);
        bool isWhole = true;
        for (std::size_t j = 1; j < length; ++j) {
            const auto byte = static_cast<unsigned char>(text[i + j]);
            isWhole = isWhole && byte >= 0x80 && byte < 0xC0;
            point = point << 6 | (byte & 0x3FU);
        }
        static constexpr std::uint32_t Smallest[] = { 0, 0, 0x80, 0x800, 0x10000 };
        if (!isWhole || point < Smallest[length] || point > 0x10FFFF
            || (point >= 0xD800 && point <= 0xDFFF))
            break;
        if (point > 0xFFFF) {
            append(point >> 16);
            isReadable = isReadable && (point & 0xFFFF) != 0;
        }
        append(point & 0xFFFF);
        i += length;
    }
    return isReadable;
}

#endif // VELMAR_TESTS_EXPECTEDTEXT_H
