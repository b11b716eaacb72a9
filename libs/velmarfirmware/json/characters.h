#ifndef VELMARFIRMWARE_JSON_CHARACTERS_H
#define VELMARFIRMWARE_JSON_CHARACTERS_H

#include <array>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__) && !defined(AJSON_BYTE_BY_BYTE)
#define AJSON_SIXTEEN_BYTES
#include <emmintrin.h>
#endif

/*!
    What the bytes of a text mean to the reader and the writer, and the searches among them.

    The searches look at 16 bytes at a time where the processor can and as long as 16 are left; the
    byte by byte loop behind each one does the rest, and all of it on other processors or with
    AJSON_BYTE_BY_BYTE defined. None reads at \a end or behind it.

    What the short cuts of reading need is always inlined: a call would cost as much as the work.
*/
namespace ajson::Internal {

enum class CharacterClass : std::uint8_t {
    Word, //!< everything else: part of a bare word, also bytes from 0x80
    Blank, //!< TAB, LF, CR, space
    Symbol, //!< , : [ ] { }
    Digit,
    Minus,
    Quote,
    Slash,
    Nul,
};

constexpr std::array<CharacterClass, 256> characterClasses()
{
    std::array<CharacterClass, 256> classes {};
    for (const unsigned char blank : { '\t', '\n', '\r', ' ' })
        classes[blank] = CharacterClass::Blank;
    for (const unsigned char symbol : { ',', ':', '[', ']', '{', '}' })
        classes[symbol] = CharacterClass::Symbol;
    for (unsigned char digit = '0'; digit <= '9'; ++digit)
        classes[digit] = CharacterClass::Digit;
    classes['-'] = CharacterClass::Minus;
    classes['"'] = CharacterClass::Quote;
    classes['/'] = CharacterClass::Slash;
    classes[0] = CharacterClass::Nul;
    return classes;
}

inline constexpr std::array<CharacterClass, 256> CharacterClasses = characterClasses();

constexpr CharacterClass characterClass(char character)
{
    return CharacterClasses[static_cast<unsigned char>(character)]; // char may be signed
}

constexpr bool isBlank(char character)
{
    return characterClass(character) == CharacterClass::Blank;
}

/*! False for all that stands in a text without blanks. */
constexpr bool mayBeBlank(char character)
{
    return static_cast<unsigned char>(character) <= ' ';
}

constexpr bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

/*! A character that the writer copies as it is; all others become an escape or nothing. */
constexpr bool isPlain(char character)
{
    return character >= 0x20 && character < 0x7F && character != '"' && character != '\\';
}

#ifdef AJSON_SIXTEEN_BYTES
inline __m128i sixteenBytes(const char *text)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(text));
}

inline __m128i areEqual(__m128i bytes, char character)
{
    return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(character));
}

/*! One bit for each of the 16 bytes that compared true, the first byte's the lowest. */
inline unsigned bitsOf(__m128i comparison)
{
    return static_cast<unsigned>(_mm_movemask_epi8(comparison));
}
#endif

/*! The first quote, backslash or LF of a quoted string's text, or \a end. */
[[gnu::always_inline]] inline const char *findStringStop(const char *text, const char *end)
{
#ifdef AJSON_SIXTEEN_BYTES
    for (; end - text >= 16; text += 16) {
        const __m128i bytes = sixteenBytes(text);
        const unsigned stops = bitsOf(_mm_or_si128(
            areEqual(bytes, '"'), _mm_or_si128(areEqual(bytes, '\\'), areEqual(bytes, '\n'))));
        if (stops != 0)
            return text + __builtin_ctz(stops);
    }
#endif
    while (text != end && *text != '"' && *text != '\\' && *text != '\n')
        ++text;
    return text;
}

/*! The first character that is no blank, or \a end. */
inline const char *findNonBlank(const char *text, const char *end)
{
    for (;;) {
#ifdef AJSON_SIXTEEN_BYTES
        // An indentation: mostly one or two looks, whatever its width.
        while (end - text >= 16) {
            const unsigned others = bitsOf(areEqual(sixteenBytes(text), ' ')) ^ 0xFFFFU;
            if (others != 0) {
                text += __builtin_ctz(others);
                break;
            }
            text += 16;
        }
#endif
        if (text == end || !isBlank(*text))
            return text;
        ++text;
    }
}

/*! Whether the \a count bytes before \a end, none of them before \a begin, are spaces. */
[[gnu::always_inline]] inline bool areSpaces(const char *begin, const char *end, std::size_t count)
{
#ifdef AJSON_SIXTEEN_BYTES
    if (end - begin >= 16 && count <= 32) {
        const unsigned others = bitsOf(areEqual(sixteenBytes(end - 16), ' ')) ^ 0xFFFFU;
        if (count <= 16)
            return (others & 0xFFFF0000U >> count & 0xFFFFU) == 0; // the last count of them
        return others == 0 && bitsOf(areEqual(sixteenBytes(end - count), ' ')) == 0xFFFFU;
    }
#else
    static_cast<void>(begin);
#endif
    const char *place = end - count;
    while (place != end && *place == ' ')
        ++place;
    return place == end;
}

/*! The first character that the writer does not copy as it is, or \a end. */
inline const char *findUnplain(const char *text, const char *end)
{
#ifdef AJSON_SIXTEEN_BYTES
    for (; end - text >= 16; text += 16) {
        const __m128i bytes = sixteenBytes(text);
        // Compared as signed, so that bytes from 0x80 count as below the space.
        const __m128i plain = _mm_andnot_si128(
            _mm_or_si128(areEqual(bytes, 0x7F),
                         _mm_or_si128(areEqual(bytes, '"'), areEqual(bytes, '\\'))),
            _mm_cmpgt_epi8(bytes, _mm_set1_epi8(0x1F)));
        const unsigned others = bitsOf(plain) ^ 0xFFFFU;
        if (others != 0)
            return text + __builtin_ctz(others);
    }
#endif
    while (text != end && isPlain(*text))
        ++text;
    return text;
}

} // namespace ajson::Internal

#endif // VELMARFIRMWARE_JSON_CHARACTERS_H
