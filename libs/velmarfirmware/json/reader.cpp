#include "reader.h"

#include "exception.h"

#include <cmath>

namespace ajson {

using Internal::CharacterClass;
using Internal::characterClass;
using Internal::isDigit;

namespace {

// The low 64 bits of a number's whole part, as if it were an integer of any width: the same cut
// that an integer too wide for its field gets. An infinite value has no bits and reads as 0.
std::uint64_t wholePart(double value)
{
    constexpr double TwoTo64 = 18446744073709551616.0;

    double magnitude = std::trunc(std::fabs(value));
    if (std::isinf(magnitude))
        return 0;
    if (magnitude >= TwoTo64)
        magnitude = std::fmod(magnitude, TwoTo64);
    const auto bits = static_cast<std::uint64_t>(magnitude);
    return value < 0 ? 0 - bits : bits;
}

// The number that a text begins with, read as strtoull() and strtoll() read it in base 10: white
// space, a sign, digits.
struct LeadingNumber {
    std::uint64_t magnitude = 0; // the largest value if the digits name a larger one
    bool negative = false;
    bool overflow = false;

    LeadingNumber(const char *text, const char *end)
    {
        while (text != end && (*text == ' ' || (*text >= '\t' && *text <= '\r')))
            ++text;
        if (text != end && (*text == '-' || *text == '+'))
            negative = *text++ == '-';
        for (; text != end && isDigit(*text); ++text)
            append(static_cast<unsigned>(*text - '0'));
    }

private:
    void append(unsigned digit)
    {
        constexpr std::uint64_t Largest = std::numeric_limits<std::uint64_t>::max();
        overflow = overflow || magnitude > (Largest - digit) / 10;
        magnitude = overflow ? Largest : magnitude * 10 + digit;
    }
};

// The value of a hexadecimal digit, or 16.
constexpr std::uint32_t hexDigit(char digit)
{
    if (digit >= '0' && digit <= '9')
        return static_cast<std::uint32_t>(digit - '0');
    if (digit >= 'a' && digit <= 'f')
        return static_cast<std::uint32_t>(digit - 'a' + 10);
    if (digit >= 'A' && digit <= 'F')
        return static_cast<std::uint32_t>(digit - 'A' + 10);
    return 16;
}

// Each half of a surrogate pair becomes three bytes of its own.
void appendUtf8(std::string &target, std::uint32_t codePoint)
{
    const auto append = [&target](std::uint32_t byte) {
        target.push_back(static_cast<char>(static_cast<unsigned char>(byte)));
    };
    if (codePoint < 0x80) {
        append(codePoint);
    } else if (codePoint < 0x800) {
        append(0xC0 | (codePoint >> 6));
        append(0x80 | (codePoint & 0x3F));
    } else {
        append(0xE0 | (codePoint >> 12));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
}

} // namespace

Reader::Reader(const char *input, std::uint64_t limit) noexcept
    : m_input(input != nullptr ? input : "")
    , m_cursor(m_input)
{
    const std::size_t length = strnlen(m_input, limit);
    m_end = m_input + length;
    m_endText = length < limit ? m_end : "";
    m_tokenText = m_endText;
}

void Reader::error(const char *message) const
{
    // Counted only now: few texts fail, and those that do are read once more up to here.
    std::uint64_t line = 0;
    std::uint64_t column = 0;
    for (const char *place = m_input; place != m_cursor;) {
        ++place;
        const char character = place != m_end ? *place : '\0';
        if (character != '\r')
            ++column;
        if (character == '\n') {
            ++line;
            column = 0;
        }
    }
    throw exception("error at line :" + std::to_string(line) + " col :" + std::to_string(column)
                    + " msg:" + message);
}

// The first character from place on that is no blank, or m_end.
const char *Reader::findNonBlank(const char *place)
{
    const char *const text = Internal::findNonBlank(place, m_end);
    if (place != text && place != m_input && *place == '\n') {
        const auto indentation = static_cast<std::size_t>(text - place - 1);
        if (place[-1] == '{' || place[-1] == '[')
            m_indentationStep = indentation - m_indentation;
        m_indentation = indentation;
    }
    return text;
}

void Reader::nextOtherThanSymbol()
{
    m_negative = false;
    for (;;) {
        m_cursor = findNonBlank(m_cursor);
        switch (characterClass(current())) {
        case CharacterClass::Nul:
            m_tokenText = m_endText;
            m_tokenLength = 1;
            m_tokenType = TokenType::Eof;
            return;
        case CharacterClass::Symbol:
            setSymbol(m_cursor);
            return;
        case CharacterClass::Quote:
            scanQuotedString();
            return;
        case CharacterClass::Digit:
        case CharacterClass::Minus:
            scanNumber();
            return;
        case CharacterClass::Slash:
            if (!skipComment())
                return;
            break;
        case CharacterClass::Word:
        case CharacterClass::Blank: // skipped above
            scanBareWord();
            return;
        }
    }
}

// False if the comment swallows the rest of the text: the token before it stays the current one.
bool Reader::skipComment()
{
    take();
    if (current() == '/') {
        const void *const lineEnd =
            std::memchr(m_cursor, '\n', static_cast<std::size_t>(m_end - m_cursor));
        m_cursor = lineEnd != nullptr ? static_cast<const char *>(lineEnd) : m_end;
        return true;
    }
    if (current() != '*')
        error("not a comment!");
    take();
    for (; !atEnd(); take()) {
        if (current() == '*' && m_end - m_cursor >= 2 && m_cursor[1] == '/') {
            // Devices send no block comments; a closed one is an error behind its end.
            m_cursor += 2;
            error("not a comment!");
        }
    }
    return false;
}

void Reader::scanQuotedString()
{
    take();
    m_tokenText = m_cursor;
    m_escaped = false;
    for (;;) {
        m_cursor = Internal::findStringStop(m_cursor, m_end);
        if (current() == '"')
            break;
        if (current() != '\\')
            error("not a valid quote string!");
        // The character behind a backslash is not looked at here, be it a quote or an LF.
        m_escaped = true;
        take();
        take();
    }
    m_tokenLength = static_cast<std::uint64_t>(m_cursor - m_tokenText);
    m_tokenType = TokenType::Str;
    take();
}

void Reader::scanBareWord()
{
    m_tokenText = m_cursor;
    m_escaped = false;
    for (;; take()) {
        const CharacterClass kind = characterClass(current());
        if (kind == CharacterClass::Blank || kind == CharacterClass::Symbol)
            break;
        if (kind == CharacterClass::Nul)
            error("not a valid string!");
        m_escaped = m_escaped || *m_cursor == '\\';
    }
    m_tokenLength = static_cast<std::uint64_t>(m_cursor - m_tokenText);
    m_tokenType = TokenType::Str;
}

void Reader::scanNumber()
{
    m_tokenText = m_cursor;
    m_tokenType = TokenType::Uint;
    m_tokenValue.integer = 0;
    if (current() == '-') {
        m_tokenType = TokenType::Int;
        m_negative = true;
        take();
    }
    for (; isDigit(current()); take()) // wraps at 64 bits
        m_tokenValue.integer =
            m_tokenValue.integer * 10 + static_cast<std::uint64_t>(current() - '0');
    if (current() == '.')
        scanFraction();
    if (current() == 'e' || current() == 'E')
        scanExponent();
    m_tokenLength = static_cast<std::uint64_t>(m_cursor - m_tokenText);
}

// Digits are added one by one with a weight that is itself multiplied down, so 2.01e2 ends up below
// 201 and reads as 200. Compiled without fused multiply-add, which would round differently.
void Reader::scanFraction()
{
    convertToReal();
    take();
    double decimal = 0.1;
    for (; isDigit(current()); take()) {
        m_tokenValue.real += (current() - '0') * decimal;
        decimal *= 0.1;
    }
    if (current() == '.')
        error("not a valid number!");
}

// Without a digit or a '-' behind it, the 'e' is part of the number and means nothing: 1e+5 is the
// number 1 with the bare word +5 behind it.
void Reader::scanExponent()
{
    if (m_tokenType != TokenType::Real)
        convertToReal();
    take();
    double factor = 10.0;
    if (current() == '-') {
        factor = 0.1;
        take();
    }
    std::uint32_t exponent = 0;
    for (; isDigit(current()); take()) // wraps at 32 bits
        exponent = exponent * 10 + static_cast<std::uint32_t>(current() - '0');
    for (; exponent > 0; --exponent) {
        const double scaled = m_tokenValue.real * factor;
        if (scaled == m_tokenValue.real) // 0 or infinite: no further step changes it
            break;
        m_tokenValue.real = scaled;
    }
}

void Reader::convertToReal()
{
    const std::uint64_t magnitude = m_tokenValue.integer;
    // A number that began with '-' is taken for signed: from 2^63 on it comes out below 0.
    m_tokenValue.real = m_tokenType == TokenType::Int
        ? static_cast<double>(static_cast<std::int64_t>(magnitude))
        : static_cast<double>(magnitude);
    m_tokenType = TokenType::Real;
}

void Reader::read(std::uint8_t &target)
{
    target = static_cast<std::uint8_t>(unsignedValue());
    next();
}

void Reader::read(std::uint16_t &target)
{
    target = static_cast<std::uint16_t>(unsignedValue());
    next();
}

void Reader::read(std::uint32_t &target)
{
    target = static_cast<std::uint32_t>(unsignedValue());
    next();
}

void Reader::read(std::int32_t &target)
{
    target = static_cast<std::int32_t>(signedValue());
    next();
}

void Reader::read(std::string &target)
{
    if (m_tokenType != TokenType::Str)
        error("not a valid string.");
    if (!m_escaped)
        target.assign(m_tokenText, m_tokenLength);
    else if (!resolveEscapes(target))
        error("not a valid string.");
    next();
}

bool Reader::tokenIsTrue() const
{
    constexpr std::string_view Lower = "true";
    constexpr std::string_view Upper = "TRUE";

    if (m_tokenLength != Lower.size())
        return false;
    for (std::size_t i = 0; i < Lower.size(); ++i) {
        if (m_tokenText[i] != Lower[i] && m_tokenText[i] != Upper[i])
            return false;
    }
    return true;
}

std::uint64_t Reader::unsignedValue() const
{
    switch (m_tokenType) {
    case TokenType::Str:
        return tokenIsTrue() ? 1 : textAsUnsigned();
    case TokenType::Int:
        // An unterminated comment takes the sign of the token before it, so this one may have none.
        if (m_negative)
            error("assign a negative signed integral to unsigned integral number.");
        return m_tokenValue.integer;
    case TokenType::Uint:
        return m_tokenValue.integer;
    case TokenType::Real:
        if (m_negative)
            error("assign a negative float point to unsigned integral number.");
        return wholePart(m_tokenValue.real);
    case TokenType::Symbol:
    case TokenType::Eof:
        break;
    }
    error("not a valid unsigned integral like number.");
}

std::uint32_t Reader::signedValue() const
{
    std::uint32_t bits = 0;
    switch (m_tokenType) {
    case TokenType::Str:
        return tokenIsTrue() ? 1 : static_cast<std::uint32_t>(textAsSigned());
    case TokenType::Int:
    case TokenType::Uint:
        bits = static_cast<std::uint32_t>(m_tokenValue.integer);
        break;
    case TokenType::Real:
        bits = static_cast<std::uint32_t>(wholePart(m_tokenValue.real));
        break;
    case TokenType::Symbol:
    case TokenType::Eof:
        error("not a valid signed integral like number.");
    }
    return m_negative ? 0 - bits : bits;
}

// The text is not cut at the token's end. The quote or stop character there ends the digits; but VT
// and FF are white space before a number and yet part of a bare word, so that a word of these alone
// takes the number behind its blanks, "\v 12" reading 12.
std::uint64_t Reader::textAsUnsigned() const
{
    const LeadingNumber number(m_tokenText, m_end);
    return number.negative && !number.overflow ? 0 - number.magnitude : number.magnitude;
}

std::uint64_t Reader::textAsSigned() const
{
    constexpr std::uint64_t Largest = std::numeric_limits<std::int64_t>::max();

    const LeadingNumber number(m_tokenText, m_end);
    const std::uint64_t bound = number.negative ? Largest + 1 : Largest;
    const std::uint64_t magnitude = number.magnitude < bound ? number.magnitude : bound;
    return number.negative ? 0 - magnitude : magnitude;
}

bool Reader::resolveEscapes(std::string &target) const
{
    target.clear();
    target.reserve(m_tokenLength);
    const char *text = m_tokenText;
    const char *const end = m_tokenText + m_tokenLength;
    while (text != end) {
        if (*text != '\\') {
            target.push_back(*text++);
            continue;
        }
        if (++text == end)
            return false;
        switch (*text++) {
        case '"':
            target.push_back('"');
            break;
        case '/':
            target.push_back('/');
            break;
        case '\\':
            target.push_back('\\');
            break;
        case 'b':
            target.push_back('\b');
            break;
        case 'f':
            target.push_back('\f');
            break;
        case 'n':
            target.push_back('\n');
            break;
        case 'r':
            target.push_back('\r');
            break;
        case 't':
            target.push_back('\t');
            break;
        case 'u': {
            if (end - text < 4)
                return false;
            std::uint32_t codePoint = 0;
            for (const char *const last = text + 4; text != last; ++text) {
                const std::uint32_t digit = hexDigit(*text);
                if (digit > 15)
                    return false;
                codePoint = codePoint << 4 | digit;
            }
            if (codePoint == 0)
                return false;
            appendUtf8(target, codePoint);
            break;
        }
        default:
            return false;
        }
    }
    return true;
}

} // namespace ajson
