#ifndef VELMARFIRMWARE_JSON_READER_H
#define VELMARFIRMWARE_JSON_READER_H

#include "characters.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

namespace ajson {

enum class TokenType : std::uint32_t {
    Str = 0, //!< a quoted string, or any bare word
    Int = 1, //!< a number that began with '-', without fraction or exponent
    Uint = 2, //!< a number that began with a digit, without fraction or exponent
    Real = 3, //!< a number with a fraction or an exponent
    Symbol = 4, //!< one of , : [ ] { }
    Eof = 5, //!< the end of the input
};

/*!
    Splits a text into tokens and turns single tokens into values.

    The grammar is wider than JSON's and in places narrower: devices in the field were built against
    exactly this one. docs/json-binding.md tells all of it.

    A reader holds pointers into the text, which has to outlive it. Before the first next() there is
    no token: it reads as the end of the input that begins with nothing. Every failure is an
    ajson::exception. A reader belongs to one thread.
*/
class Reader
{
public:
    /*! No limit: the text ends at its first NUL. */
    static constexpr std::uint64_t NoLimit = std::numeric_limits<std::uint64_t>::max();

    /*!
        Reads \a input up to its first NUL, but at most \a limit bytes of it.

        Nothing is read behind that end; a null \a input is an empty text.
    */
    explicit Reader(const char *input, std::uint64_t limit = NoLimit) noexcept;

    /*! Skips blanks and comments and makes the next token current. */
    void next();

    /*!
        Throws \a message with the place that the reader has reached, behind the token at fault.

        Line and column count from 0 the characters moved onto: never the very first one, never a
        CR, but the NUL at the end. On an LF the column is 0 and the line that of the text behind.
    */
    [[noreturn]] void error(const char *message) const;

    /*! \name Leaf readers
        Each converts the current token and makes the next one current. Integers are cut to the
        target's width without a word, \c true in any mix of cases is 1, and of a fraction the
        whole part counts. Numbers as text, infinite values and values beyond 64 bits are told in
        docs/json-binding.md.
    @{ */
    void read(std::uint8_t &target);
    void read(std::uint16_t &target);
    void read(std::uint32_t &target);
    void read(std::int32_t &target);
    void read(std::string &target); //!< resolves the escapes of a quoted string or a bare word
    /*! @} */

    /*!
        Skips the value that begins with the current token and makes the token behind it current.

        Never returns if an array in the value breaks off, or holds a ':' or '}' where a value
        should stand. Takes no more stack for deep nesting than for none.
    */
    void skipValue();

    TokenType tokenType() const { return m_tokenType; }
    /*! Whether the token is a number that began with a '-'. */
    bool negative() const { return m_negative; }
    /*! The text in the input, without quotes, escapes not resolved. One NUL at the end. */
    std::string_view token() const { return { m_tokenText, m_tokenLength }; }
    /*! Whether the token's first byte is \a symbol, whatever the token's type: quoted text passes
        for a symbol, and the first byte of an empty quoted string is its closing quote. */
    bool startsWith(char symbol) const { return *m_tokenText == symbol; }

    /*! Whether all characters have been taken; the current token may still be one of them. */
    bool atEnd() const { return m_cursor == m_end; }
    /*! Whether the text ends with a NUL, and not at the limit. */
    bool isTerminated() const { return m_endText == m_end; }

private:
    friend class LookAhead;

    char current() const { return m_cursor != m_end ? *m_cursor : '\0'; }
    void take() { m_cursor += m_cursor != m_end ? 1 : 0; }
    void setSymbol(const char *place);
    std::size_t guessIndentation(char before) const;
    const char *skipBlanks(const char *place, std::size_t indentation);
    const char *findNonBlank(const char *place);

    void nextOtherThanSymbol();
    bool skipComment();
    void scanQuotedString();
    void scanBareWord();
    void scanNumber();
    void scanFraction();
    void scanExponent();
    void convertToReal();

    bool tokenIsTrue() const;
    std::uint64_t unsignedValue() const;
    std::uint32_t signedValue() const;
    std::uint64_t textAsUnsigned() const;
    std::uint64_t textAsSigned() const;
    bool resolveEscapes(std::string &target) const;
    void skipKeyAndColon();

    // The current token. The magnitude of an Int, Uint or Real; the sign is kept beside it.
    const char *m_tokenText;
    std::uint64_t m_tokenLength = 0;
    TokenType m_tokenType = TokenType::Eof;
    bool m_negative = false;
    bool m_escaped = false; // a Str with a backslash in it
    union {
        std::uint64_t integer = 0;
        double real;
    } m_tokenValue;

    const char *m_input;
    const char *m_cursor; // the current character
    const char *m_end; // the NUL or the limit
    const char *m_endText; // the NUL, or another one if the text ends at its limit

    // How far the last line was indented, and by how much more a line behind a bracket was.
    std::size_t m_indentation = 0;
    std::size_t m_indentationStep = 4;
};

inline void Reader::setSymbol(const char *place)
{
    m_tokenText = place;
    m_tokenLength = 1;
    m_tokenType = TokenType::Symbol;
    m_negative = false;
    m_cursor = place + 1;
}

// Lines are mostly indented as the one before, one step more behind an opening bracket, and one
// less before a closing one.
inline std::size_t Reader::guessIndentation(char before) const
{
    if (before == '{' || before == '[')
        return m_indentation + m_indentationStep;
    return before == ',' ? m_indentation : m_indentation - m_indentationStep;
}

// Skips the blanks at place: a line feed with that indentation and no more, or all of them. The
// guess is only compared; a search would make each token wait for the result of the one before it.
// Always inlined: an indented text has nothing that is looked at more often.
[[gnu::always_inline]] inline const char *Reader::skipBlanks(const char *place,
                                                             std::size_t indentation)
{
    const char *const line = place + 1;
    if (*place == '\n' && indentation <= static_cast<std::size_t>(m_end - line)
        && Internal::areSpaces(m_input, line + indentation, indentation)) {
        m_indentation = indentation;
        return line + indentation;
    }
    return findNonBlank(place);
}

inline void Reader::next()
{
    if (m_cursor != m_end && Internal::mayBeBlank(*m_cursor))
        m_cursor = skipBlanks(m_cursor, guessIndentation(*m_tokenText));
    if (m_cursor != m_end
        && Internal::characterClass(*m_cursor) == Internal::CharacterClass::Symbol)
        setSymbol(m_cursor); // what most calls find
    else
        nextOtherThanSymbol();
}

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_READER_H
