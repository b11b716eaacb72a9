#ifndef VELMARFIRMWARE_JSON_LOOKAHEAD_H
#define VELMARFIRMWARE_JSON_LOOKAHEAD_H

#include "reader.h"

#include <array>
#include <cstring>
#include <string>

namespace ajson {

/*!
    Short cuts through the plainest form of a record, from the place that a reader has reached.

    What a function recognises it moves over. What it does not, it leaves untouched for the reader's
    next() and read(), which give the same result for all that is recognised here. The reader does
    not move before moveReader().

    Inlined always, so that the place stays in a register through a whole record.
*/
class LookAhead
{
public:
    /*! \a reader is one whose text is terminated. */
    [[gnu::always_inline]] explicit LookAhead(Reader &reader)
        : m_reader(&reader)
        , m_place(reader.m_cursor)
    {
        skipBlanks(*reader.m_tokenText);
    }

    /*! Brings the reader here and makes the symbol current that was moved over last, if any was. */
    [[gnu::always_inline]] void moveReader() const
    {
        if (m_symbol == nullptr)
            return;
        m_reader->setSymbol(m_symbol);
        m_reader->m_cursor = m_place;
    }

    /*! Moves over a key with its colon. \a keyText is the key in quotes and the colon. */
    template<std::size_t Length>
    [[gnu::always_inline]] bool skipKey(const std::array<char, Length> &keyText)
    {
        if (static_cast<std::size_t>(m_reader->m_end - m_place) < Length
            || std::memcmp(m_place, keyText.data(), Length) != 0)
            return false;
        m_place += Length;
        m_symbol = m_place - 1;
        if (*m_place == ' ')
            ++m_place;
        return true;
    }

    /*! Reads digits and moves over the ',' or '}' behind them, which is the answer; else NUL. */
    template<class Integer> [[gnu::always_inline]] char readValue(Integer &target)
    {
        std::uint64_t number = 0;
        const char *place = m_place;
        for (; Internal::isDigit(*place); ++place) // wraps at 64 bits
            number = number * 10 + static_cast<std::uint64_t>(*place - '0');
        if (place == m_place)
            return '\0';
        const char separator = skipSeparator(place);
        if (separator != '\0')
            target = static_cast<Integer>(number);
        return separator;
    }

    /*! The same with quoted text that has no escapes. */
    [[gnu::always_inline]] char readValue(std::string &target)
    {
        if (*m_place != '"')
            return '\0';
        const char *const text = m_place + 1;
        const char *const stop = Internal::findStringStop(text, m_reader->m_end);
        if (*stop != '"')
            return '\0';
        const char separator = skipSeparator(stop + 1);
        if (separator != '\0')
            target.assign(text, static_cast<std::size_t>(stop - text));
        return separator;
    }

private:
    [[gnu::always_inline]] char skipSeparator(const char *place)
    {
        if (Internal::mayBeBlank(*place))
            place = m_reader->skipBlanks(place, m_reader->guessIndentation(*place));
        const char separator = *place;
        if (separator != ',' && separator != '}')
            return '\0';
        m_symbol = place;
        m_place = place + 1;
        if (separator == ',')
            skipBlanks(separator);
        return separator;
    }

    // A guess may fall short of all blanks. Then nothing more is recognised.
    [[gnu::always_inline]] void skipBlanks(char before)
    {
        if (Internal::mayBeBlank(*m_place))
            m_place = m_reader->skipBlanks(m_place, m_reader->guessIndentation(before));
    }

    Reader *m_reader;
    const char *m_place;
    const char *m_symbol = nullptr;
};

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_LOOKAHEAD_H
