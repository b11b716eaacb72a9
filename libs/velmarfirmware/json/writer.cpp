#include "writer.h"

#include "characters.h"

#include <cstring>

namespace ajson {

namespace {

// The UTF-8 decoder of Bjoern Hoehrmann, published under the MIT licence; copyright (c) 2008-2009
// Bjoern Hoehrmann <bjoern@hoehrmann.de>, see http://bjoern.hoehrmann.de/utf-8/decoder/dfa/
class Utf8Decoder
{
public:
    void feed(unsigned char byte)
    {
        const std::uint32_t kind = Classes[byte];
        m_codePoint =
            m_state != Accept ? (byte & 0x3FU) | (m_codePoint << 6) : (0xFFU >> kind) & byte;
        m_state = Transitions[m_state * 16 + kind];
    }

    bool hasCodePoint() const { return m_state == Accept; }
    bool isRejected() const { return m_state == Reject; }
    std::uint32_t codePoint() const { return m_codePoint; }

private:
    static constexpr std::uint32_t Accept = 0;
    static constexpr std::uint32_t Reject = 1;

    // clang-format off
    static constexpr std::array<std::uint8_t, 256> Classes = {
        0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0, // 00..1f
        0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0, // 20..3f
        0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0, // 40..5f
        0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0, // 60..7f
        1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,9,9,9,9,9,9,9,9,9,9,9,9,9,9,9,9, // 80..9f
        7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7,7, // a0..bf
        8,8,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2,2, // c0..df
        10,3,3,3,3,3,3,3,3,3,3,3,3,4,3,3, // e0..ef
        11,6,6,6,5,8,8,8,8,8,8,8,8,8,8,8, // f0..ff
    };
    static constexpr std::array<std::uint8_t, 9 * 16> Transitions = {
        0,1,2,3,5,8,7,1,1,1,4,6,1,1,1,1, // accept
        1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1, // reject: never left
        1,0,1,1,1,1,1,0,1,0,1,1,1,1,1,1, // one byte to come
        1,2,1,1,1,1,1,2,1,2,1,1,1,1,1,1, // two
        1,1,1,1,1,1,1,2,1,1,1,1,1,1,1,1, // behind e0
        1,2,1,1,1,1,1,1,1,2,1,1,1,1,1,1, // behind ed
        1,1,1,1,1,1,1,3,1,3,1,1,1,1,1,1, // behind f0
        1,3,1,1,1,1,1,3,1,3,1,1,1,1,1,1, // three
        1,3,1,1,1,1,1,1,1,1,1,1,1,1,1,1, // behind f4
    };
    // clang-format on

    std::uint32_t m_state = Accept;
    std::uint32_t m_codePoint = 0;
};

char *writeEscape(char *place, char character)
{
    *place++ = '\\';
    *place++ = character;
    return place;
}

char *writeHexEscape(char *place, std::uint32_t unit)
{
    constexpr char Digits[] = "0123456789ABCDEF";

    place = writeEscape(place, 'u');
    for (int shift = 12; shift >= 0; shift -= 4)
        *place++ = Digits[unit >> shift & 0xF];
    return place;
}

// A code point that does not stand for itself.
char *writeEscaped(char *place, std::uint32_t codePoint)
{
    switch (codePoint) {
    case '\b':
        return writeEscape(place, 'b');
    case '\t':
        return writeEscape(place, 't');
    case '\n':
        return writeEscape(place, 'n');
    case '\f':
        return writeEscape(place, 'f');
    case '\r':
        return writeEscape(place, 'r');
    case '"':
    case '\\':
        return writeEscape(place, static_cast<char>(codePoint));
    default:
        if (codePoint > 0xFFFF)
            place = writeHexEscape(place, codePoint >> 16);
        return writeHexEscape(place, codePoint & 0xFFFF);
    }
}

} // namespace

char *writeLeaf(char *place, const std::string &text)
{
    *place++ = '"';
    Utf8Decoder decoder;
    const char *next = text.data();
    const char *const end = next + text.size();
    while (next != end && *next != '\0' && !decoder.isRejected()) {
        if (decoder.hasCodePoint() && Internal::isPlain(*next)) {
            const char *const run = next;
            next = Internal::findUnplain(next, end);
            std::memcpy(place, run, static_cast<std::size_t>(next - run));
            place += next - run;
            continue;
        }
        decoder.feed(static_cast<unsigned char>(*next++));
        if (decoder.hasCodePoint())
            place = writeEscaped(place, decoder.codePoint());
    }
    *place++ = '"';
    return place;
}

} // namespace ajson
