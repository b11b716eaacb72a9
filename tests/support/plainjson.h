#ifndef VELMAR_TESTS_PLAINJSON_H
#define VELMAR_TESTS_PLAINJSON_H

#include "json/fieldtable.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <strings.h>
#include <tuple>
#include <type_traits>
#include <vector>

/*!
    The rules of the JSON reader once more, one character and one token at a time and without a
    single short cut: what the reader is compared with.

    Nothing of the reader is used here. Nested values recurse, so this is for small texts. A walk
    that the reader never returns from ends here, and says so.
*/
namespace PlainJson {

struct Outcome {
    enum Kind { Read, Failed, NeverEnds } kind = Read;
    std::string error; // of a failure
};

struct Failure {
    std::string message;
};

struct Endless {
};

class Reader
{
public:
    enum TokenType { Str, Int, Uint, Real, Symbol, Eof };

    // Of a text that ends with a NUL.
    explicit Reader(const char *text)
        : atEnd(*text == '\0')
        , input(text)
    {
    }

    // The current token. None yet reads as the end of the input.
    std::string_view tokenText = std::string_view("", 0);
    TokenType tokenType = Eof;
    std::uint64_t tokenValue = 0;
    double realValue = 0;
    bool negative = false;

    std::uint64_t column = 0;
    std::uint64_t line = 0;
    std::uint64_t cursor = 0;
    bool atEnd;
    const char *input;

    std::uint64_t tokensRead = 0;

    [[noreturn]] void error(const char *message) const
    {
        throw Failure { "error at line :" + std::to_string(line) + " col :" + std::to_string(column)
                        + " msg:" + message };
    }

    bool startsWith(char symbol) const { return tokenType != Eof && tokenText.data()[0] == symbol; }

    void next()
    {
        ++tokensRead;
        for (;;) {
            negative = false;
            while (current() == '\t' || current() == '\n' || current() == '\r' || current() == ' ')
                take();
            const char c = current();
            if (c == '\0') {
                tokenType = Eof;
                tokenText = std::string_view("\0", 1);
                return;
            }
            if (c == '"')
                return quotedString();
            if (isSymbol(c)) {
                tokenType = Symbol;
                tokenText = { input + cursor, 1 };
                take();
                return;
            }
            if (c == '-' || isDigit(c))
                return number();
            if (c != '/')
                return bareWord();
            take();
            if (current() == '/') {
                while (!atEnd && current() != '\n')
                    take();
                continue;
            }
            if (current() != '*')
                error("not a comment!");
            take();
            for (char last = '\0'; !atEnd; take()) {
                if (last == '*' && current() == '/') {
                    take();
                    error("not a comment!");
                }
                last = current();
            }
            return;
        }
    }

    template<class Integer> void read(Integer &target)
    {
        target = std::is_signed_v<Integer> ? static_cast<Integer>(signedBits())
                                           : static_cast<Integer>(unsignedBits());
        next();
    }

    void read(std::string &target)
    {
        if (tokenType != Str)
            error("not a valid string.");
        target.clear();
        for (std::size_t i = 0; i < tokenText.size(); ++i) {
            if (tokenText[i] != '\\') {
                target += tokenText[i];
                continue;
            }
            ++i;
            if (i == tokenText.size())
                error("not a valid string.");
            static const std::string Letters = "\"/\\bfnrt";
            static const std::string Meanings = "\"/\\\b\f\n\r\t";
            const std::size_t letter = Letters.find(tokenText[i]);
            if (letter != std::string::npos) {
                target += Meanings[letter];
                continue;
            }
            const std::string digits(tokenText.substr(i + 1, 4));
            if (tokenText[i] != 'u' || digits.size() != 4
                || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                error("not a valid string.");
            const unsigned long codePoint = std::strtoul(digits.c_str(), nullptr, 16);
            if (codePoint == 0)
                error("not a valid string.");
            if (codePoint < 0x80) {
                target += static_cast<char>(codePoint);
            } else if (codePoint < 0x800) {
                target += static_cast<char>(0xC0 + codePoint / 64);
                target += static_cast<char>(0x80 + codePoint % 64);
            } else {
                target += static_cast<char>(0xE0 + codePoint / 4096);
                target += static_cast<char>(0x80 + codePoint / 64 % 64);
                target += static_cast<char>(0x80 + codePoint % 64);
            }
            i += 4;
        }
        next();
    }

    void skip()
    {
        if (tokenType < Symbol) {
            next();
        } else if (tokenType == Symbol && startsWith('[')) {
            next();
            while (!startsWith(']')) {
                const std::uint64_t before = tokensRead;
                skip();
                if (startsWith(','))
                    next();
                if (tokensRead == before)
                    throw Endless();
            }
            next();
        } else if (tokenType == Symbol && startsWith('{')) {
            next();
            while (!startsWith('}')) {
                if (tokenType > Real)
                    error("invalid json document!");
                next();
                if (!startsWith(':'))
                    error("invalid json document!");
                next();
                skip();
                if (startsWith(','))
                    next();
            }
            next();
        }
    }

private:
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    static bool isSymbol(char c)
    {
        return c == ',' || c == ':' || c == '[' || c == ']' || c == '{' || c == '}';
    }

    char current() const { return atEnd ? '\0' : input[cursor]; }

    void take()
    {
        if (atEnd)
            return;
        ++cursor;
        const char c = input[cursor];
        if (c != '\r')
            ++column;
        if (c == '\0') {
            atEnd = true;
            return;
        }
        if (c == '\n') {
            ++line;
            column = 0;
        }
    }

    void quotedString()
    {
        take();
        const std::uint64_t begin = cursor;
        while (current() != '"') {
            if (current() == '\0' || current() == '\n')
                error("not a valid quote string!");
            if (current() == '\\')
                take();
            take();
        }
        tokenType = Str;
        tokenText = { input + begin, cursor - begin };
        take();
    }

    void bareWord()
    {
        const std::uint64_t begin = cursor;
        while (!isSymbol(current()) && current() != '\t' && current() != '\n' && current() != '\r'
               && current() != ' ') {
            if (current() == '\0')
                error("not a valid string!");
            take();
        }
        tokenType = Str;
        tokenText = { input + begin, cursor - begin };
    }

    void number()
    {
        const std::uint64_t begin = cursor;
        tokenType = Uint;
        tokenValue = 0;
        if (current() == '-') {
            tokenType = Int;
            negative = true;
            take();
        }
        double decimal = 0.1;
        for (;;) {
            const char c = current();
            if (c == '.') {
                if (tokenType == Real)
                    error("not a valid number!");
                becomeReal();
            } else if (isDigit(c) && tokenType == Real) {
                const double digit = (c - '0') * decimal;
                realValue = realValue + digit;
                decimal = decimal * 0.1;
            } else if (isDigit(c)) {
                tokenValue = tokenValue * 10 + static_cast<std::uint64_t>(c - '0');
            } else {
                if (c == 'e' || c == 'E')
                    exponent();
                break;
            }
            take();
        }
        tokenText = { input + begin, cursor - begin };
    }

    void exponent()
    {
        if (tokenType != Real)
            becomeReal();
        take();
        const bool isDown = current() == '-';
        if (isDown)
            take();
        std::uint32_t steps = 0;
        for (; isDigit(current()); take())
            steps = steps * 10 + static_cast<std::uint32_t>(current() - '0');
        // After that many nothing is left of any number, or it is infinite.
        for (std::uint32_t step = 0; step < steps && step < 10000; ++step)
            realValue = realValue * (isDown ? 0.1 : 10.0);
    }

    void becomeReal()
    {
        realValue = tokenType == Int ? static_cast<double>(static_cast<std::int64_t>(tokenValue))
                                     : static_cast<double>(tokenValue);
        tokenType = Real;
    }

    bool isTrue() const
    {
        return tokenText.size() == 4 && strncasecmp(tokenText.data(), "true", 4) == 0;
    }

    std::uint32_t realBits() const
    {
        if (std::isinf(realValue))
            return 0;
        double rest = std::fmod(std::trunc(realValue), 4294967296.0);
        if (rest < 0)
            rest += 4294967296.0;
        return static_cast<std::uint32_t>(rest);
    }

    std::uint32_t unsignedBits() const
    {
        switch (tokenType) {
        case Str:
            if (isTrue())
                return 1;
            return static_cast<std::uint32_t>(std::strtoull(tokenText.data(), nullptr, 10));
        case Int:
            if (negative)
                error("assign a negative signed integral to unsigned integral number.");
            return static_cast<std::uint32_t>(tokenValue);
        case Uint:
            return static_cast<std::uint32_t>(tokenValue);
        case Real:
            if (negative)
                error("assign a negative float point to unsigned integral number.");
            return realBits();
        default:
            error("not a valid unsigned integral like number.");
        }
    }

    std::uint32_t signedBits() const
    {
        std::uint32_t bits = 0;
        switch (tokenType) {
        case Str:
            if (isTrue())
                return 1;
            return static_cast<std::uint32_t>(std::strtoll(tokenText.data(), nullptr, 10));
        case Int:
        case Uint:
            bits = static_cast<std::uint32_t>(tokenValue);
            break;
        case Real:
            bits = realBits();
            break;
        default:
            error("not a valid signed integral like number.");
        }
        return negative ? 0U - bits : bits;
    }
};

template<class Record> void readRecord(Reader &reader, Record &record, bool isTop);

template<class Type> void readValue(Reader &reader, Type &target, bool isTop)
{
    if constexpr (std::is_integral_v<Type> || std::is_same_v<Type, std::string>)
        reader.read(target);
    else
        readRecord(reader, target, isTop);
}

template<class Element> void readValue(Reader &reader, std::vector<Element> &list, bool isTop)
{
    if (!reader.startsWith('['))
        reader.error("array must start with [.");
    reader.next();
    while (!reader.startsWith(']')) {
        list.emplace_back();
        readValue(reader, list.back(), false);
        if (reader.startsWith(','))
            reader.next();
        else if (!reader.startsWith(']'))
            reader.error("no valid array!");
    }
    if (!isTop)
        reader.next();
}

template<class Record, std::size_t... Index>
void readMember(Reader &reader, Record &record, std::size_t index, std::index_sequence<Index...>)
{
    static_cast<void>(
        ((index == Index
          && (readValue(reader, record.*std::get<Index>(Record::Members), false), true))
         || ...));
}

template<class Record> void readRecord(Reader &reader, Record &record, bool isTop)
{
    constexpr std::size_t Count = std::tuple_size_v<decltype(Record::Members)>;

    if (!reader.startsWith('{'))
        reader.error("read object must start with {!");
    reader.next();
    if (reader.startsWith('}'))
        return;
    for (;;) {
        if (reader.tokenType != Reader::Str)
            reader.error("object key must be string");
        const std::string_view key = reader.tokenText;
        reader.next();
        if (!reader.startsWith(':'))
            reader.error("invalid json document!");
        reader.next();
        std::size_t index = 0;
        while (index < Count && ajson::FieldTable<Record>[index] != key)
            ++index;
        if (index < Count)
            readMember(reader, record, index, std::make_index_sequence<Count>());
        else
            reader.skip();
        if (reader.startsWith('}'))
            break;
        if (!reader.startsWith(','))
            reader.error("invalid json document!");
        reader.next();
    }
    if (!isTop)
        reader.next();
}

template<class Document> Outcome decode(const std::string &text, Document &document)
{
    try {
        Reader reader(text.c_str());
        reader.next();
        readValue(reader, document, true);
        return { Outcome::Read, {} };
    } catch (const Failure &failure) {
        return { Outcome::Failed, failure.message };
    } catch (const Endless &) {
        return { Outcome::NeverEnds, {} };
    }
}

} // namespace PlainJson

#endif // VELMAR_TESTS_PLAINJSON_H
