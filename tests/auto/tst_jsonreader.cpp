#include "support/guardedtext.h"
#include "support/threadtime.h"
#include "json/exception.h"
#include "json/reader.h"

#include <QByteArray>
#include <QString>
#include <QTest>

#include <cstdint>
#include <pthread.h>
#include <random>
#include <string>
#include <string_view>

using ajson::Reader;
using ajson::TokenType;

namespace {

QByteArray asBytes(const std::string &text)
{
    return QByteArray(text.data(), static_cast<int>(text.size()));
}

QByteArray asBytes(std::string_view text)
{
    return asBytes(std::string(text));
}

std::string_view asView(const QByteArray &text)
{
    return { text.constData(), static_cast<std::size_t>(text.size()) };
}

// What a call throws, or "" if it returns.
template<class Call> QByteArray messageOf(Call call)
{
    try {
        call();
    } catch (const ajson::exception &failure) {
        return failure.what();
    }
    return "";
}

// All tokens up to the end, as "type:text" with a blank between; the last is what is thrown, if so.
QByteArray tokensOf(const QByteArray &text, std::uint64_t limit = Reader::NoLimit)
{
    static const char *const TypeNames[] = { "str", "int", "uint", "real", "symbol" };
    QByteArray tokens;
    const QByteArray message = messageOf([&] {
        Reader reader(text.constData(), limit);
        for (reader.next(); reader.tokenType() != TokenType::Eof; reader.next())
            tokens += TypeNames[static_cast<int>(reader.tokenType())] + QByteArray(":")
                + asBytes(reader.token()) + ' ';
    });
    return tokens.trimmed() + (message.isEmpty() || tokens.isEmpty() ? "" : " ") + message;
}

// The first token read as a value, as decimal text, or what is thrown.
template<class Integer> QByteArray integerOf(const QByteArray &text)
{
    Integer target = 77;
    const QByteArray message = messageOf([&] {
        Reader reader(text.constData());
        reader.next();
        reader.read(target);
    });
    return message.isEmpty() ? QByteArray::number(static_cast<qlonglong>(target)) : message;
}

QByteArray stringOf(const QByteArray &text)
{
    std::string target = "left from before";
    const QByteArray message = messageOf([&] {
        Reader reader(text.constData());
        reader.next();
        reader.read(target);
    });
    return message.isEmpty() ? asBytes(target) : message;
}

} // namespace

class tst_JsonReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tokenTypesHaveTheirNumbers()
    {
        QCOMPARE(static_cast<int>(TokenType::Str), 0);
        QCOMPARE(static_cast<int>(TokenType::Int), 1);
        QCOMPARE(static_cast<int>(TokenType::Uint), 2);
        QCOMPARE(static_cast<int>(TokenType::Real), 3);
        QCOMPARE(static_cast<int>(TokenType::Symbol), 4);
        QCOMPARE(static_cast<int>(TokenType::Eof), 5);
        QCOMPARE(sizeof(TokenType), std::size_t(4));
    }

    void tokens_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("tokens");

        QTest::newRow("nothing") << QByteArray("") << QByteArray("");
        QTest::newRow("blanks only") << QByteArray(" \t\r\n ") << QByteArray("");
        QTest::newRow("NUL at the beginning") << QByteArray("\0 1", 3) << QByteArray("");
        QTest::newRow("NUL ends the text") << QByteArray("1 \0 2", 5) << QByteArray("uint:1");
        QTest::newRow("symbols") << QByteArray(",:[]{}")
                                 << QByteArray("symbol:, symbol:: symbol:[ symbol:] symbol:{ "
                                               "symbol:}");
        QTest::newRow("quoted") << QByteArray("\"a b\"") << QByteArray("str:a b");
        QTest::newRow("quoted and empty") << QByteArray("\"\" 1") << QByteArray("str: uint:1");
        QTest::newRow("quote behind a backslash")
            << QByteArray(R"("a\"b" 1)") << QByteArray(R"(str:a\"b uint:1)");
        QTest::newRow("backslash behind a backslash")
            << QByteArray(R"("a\\" 1)") << QByteArray(R"(str:a\\ uint:1)");
        QTest::newRow("unknown escape") << QByteArray(R"("\q")") << QByteArray(R"(str:\q)");
        QTest::newRow("LF behind a backslash")
            << QByteArray("\"a\\\nb\"") << QByteArray("str:a\\\nb");
        QTest::newRow("raw CR and TAB in a string")
            << QByteArray("\"a\r\tb\"") << QByteArray("str:a\r\tb");
        QTest::newRow("quoted, longer than 16")
            << QByteArray("\"0123456789abcdef0123456789abcdef!\" ")
            << QByteArray("str:0123456789abcdef0123456789abcdef!");
        QTest::newRow("words") << QByteArray("true false null abc +5 .5 ")
                               << QByteArray("str:true str:false str:null str:abc str:+5 str:.5");
        QTest::newRow("quote and slash inside of a word")
            << QByteArray("a\"b a/*b a//b ") << QByteArray("str:a\"b str:a/*b str:a//b");
        QTest::newRow("VT, FF and control characters are words")
            << QByteArray("\v\f\x01\x7F ") << QByteArray("str:\v\f\x01\x7F");
        QTest::newRow("bytes from 0x80 are words")
            << QByteArray("\xC3\xA9\xFF ") << QByteArray("str:\xC3\xA9\xFF");
        QTest::newRow("a backslash in a word does not hold a stop character")
            << QByteArray("a\\,b ") << QByteArray("str:a\\ symbol:, str:b");
        QTest::newRow("words end at each stop character")
            << QByteArray("a\tb\nc\rd e,f:g[h]i{j}")
            << QByteArray("str:a str:b str:c str:d str:e symbol:, str:f symbol:: str:g symbol:[ "
                          "str:h symbol:] str:i symbol:{ str:j symbol:}");

        QTest::newRow("numbers") << QByteArray("0 12 -3 1.5 -1.5 1e3 1E3 1e-3")
                                 << QByteArray("uint:0 uint:12 int:-3 real:1.5 real:-1.5 real:1e3 "
                                               "real:1E3 real:1e-3");
        QTest::newRow("leading zeros") << QByteArray("007") << QByteArray("uint:007");
        QTest::newRow("point at the end") << QByteArray("12.") << QByteArray("real:12.");
        QTest::newRow("minus alone") << QByteArray("-") << QByteArray("int:-");
        QTest::newRow("minus before a word") << QByteArray("-abc ") << QByteArray("int:- str:abc");
        QTest::newRow("minus before minus") << QByteArray("--1") << QByteArray("int:- int:-1");
        QTest::newRow("minus and point") << QByteArray("-.5") << QByteArray("real:-.5");
        QTest::newRow("minus and exponent") << QByteArray("-e2") << QByteArray("real:-e2");
        QTest::newRow("number before a word")
            << QByteArray("12abc ") << QByteArray("uint:12 str:abc");
        QTest::newRow("number before a quote")
            << QByteArray("12\"a\"") << QByteArray("uint:12 str:a");
        QTest::newRow("number before a byte from 0x80")
            << QByteArray("12\xC3\xA9 ") << QByteArray("uint:12 str:\xC3\xA9");
        QTest::newRow("fraction before a byte from 0x80")
            << QByteArray("1.2\xFF ") << QByteArray("real:1.2 str:\xFF");
        QTest::newRow("number before plus, minus and slash")
            << QByteArray("1+2 1-2 1//2") << QByteArray("uint:1 str:+2 uint:1 int:-2 uint:1");
        QTest::newRow("exponent with plus") << QByteArray("1e+5 ") << QByteArray("real:1e str:+5");
        QTest::newRow("exponent without digits") << QByteArray("1e, 1e-, 1ex ")
                                                 << QByteArray("real:1e symbol:, real:1e- "
                                                               "symbol:, real:1e str:x");
        QTest::newRow("point behind an exponent")
            << QByteArray("1e5.3 ") << QByteArray("real:1e5 str:.3");
        QTest::newRow("second exponent") << QByteArray("1e5e3 ") << QByteArray("real:1e5 str:e3");
        QTest::newRow("exponent behind a point") << QByteArray("1.e2") << QByteArray("real:1.e2");

        QTest::newRow("line comment") << QByteArray("1 // 2\n3") << QByteArray("uint:1 uint:3");
        QTest::newRow("line comment at the end") << QByteArray("1 // 2") << QByteArray("uint:1");
        QTest::newRow("line comments one behind the other")
            << QByteArray("//\n// a\n//b\r\n1") << QByteArray("uint:1");
    }
    void tokens()
    {
        QFETCH(QByteArray, text);
        QTEST(tokensOf(text), "tokens");
    }

    void failures_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("tokens");

        QTest::newRow("word at the end")
            << QByteArray("true") << QByteArray("error at line :0 col :4 msg:not a valid string!");
        QTest::newRow("word of one byte at the end")
            << QByteArray("\xFF") << QByteArray("error at line :0 col :1 msg:not a valid string!");
        QTest::newRow("open quote at the end")
            << QByteArray("\"")
            << QByteArray("error at line :0 col :1 msg:not a valid quote string!");
        QTest::newRow("open string")
            << QByteArray("\"abc")
            << QByteArray("error at line :0 col :4 msg:not a valid quote string!");
        QTest::newRow("open string, longer than 16")
            << QByteArray("\"0123456789abcdef01234567")
            << QByteArray("error at line :0 col :25 msg:not a valid quote string!");
        QTest::newRow("NUL in a string")
            << QByteArray("\"a\0b\"", 5)
            << QByteArray("error at line :0 col :2 msg:not a valid quote string!");
        QTest::newRow("LF in a string")
            << QByteArray("\"a\nb\"")
            << QByteArray("error at line :1 col :0 msg:not a valid quote string!");
        QTest::newRow("backslash at the end")
            << QByteArray("\"a\\")
            << QByteArray("error at line :0 col :3 msg:not a valid quote string!");
        QTest::newRow("escaped quote at the end")
            << QByteArray("\"a\\\"")
            << QByteArray("error at line :0 col :4 msg:not a valid quote string!");
        QTest::newRow("two points")
            << QByteArray("1.2.3") << QByteArray("error at line :0 col :3 msg:not a valid number!");
        QTest::newRow("two points without digits")
            << QByteArray("1..") << QByteArray("error at line :0 col :2 msg:not a valid number!");
        QTest::newRow("slash at the end")
            << QByteArray("/") << QByteArray("error at line :0 col :1 msg:not a comment!");
        QTest::newRow("slash before something else")
            << QByteArray("1 /x")
            << QByteArray("uint:1 error at line :0 col :3 msg:not a comment!");
        QTest::newRow("closed comment")
            << QByteArray("/* x */ {}") << QByteArray("error at line :0 col :7 msg:not a comment!");
        QTest::newRow("empty comment")
            << QByteArray("/**/") << QByteArray("error at line :0 col :4 msg:not a comment!");
        QTest::newRow("comment of a star")
            << QByteArray("/***/") << QByteArray("error at line :0 col :5 msg:not a comment!");
        QTest::newRow("comment over lines")
            << QByteArray("/*\n\n x*/ ")
            << QByteArray("error at line :2 col :5 msg:not a comment!");
    }
    void failures()
    {
        QFETCH(QByteArray, text);
        QTEST(tokensOf(text), "tokens");
    }

    void positions_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("message");

        QTest::newRow("nothing read") << QByteArray("") << QByteArray("line :0 col :0");
        QTest::newRow("the first character is not counted")
            << QByteArray("[") << QByteArray("line :0 col :1");
        QTest::newRow("the NUL is counted") << QByteArray("  ") << QByteArray("line :0 col :2");
        QTest::newRow("behind the token") << QByteArray("12 ,") << QByteArray("line :0 col :2");
        QTest::newRow("behind the closing quote")
            << QByteArray("\"ab\" ,") << QByteArray("line :0 col :4");
        QTest::newRow("on an LF") << QByteArray("12\n") << QByteArray("line :1 col :0");
        QTest::newRow("behind an LF") << QByteArray("\n 12 ") << QByteArray("line :0 col :4");
        QTest::newRow("an LF that is the first character is not counted")
            << QByteArray("\n[") << QByteArray("line :0 col :2");
        QTest::newRow("the second LF is") << QByteArray("\n\n[ ") << QByteArray("line :1 col :2");
        QTest::newRow("CR is not counted") << QByteArray(" \r\r[ ") << QByteArray("line :0 col :2");
        QTest::newRow("CR behind the token is not counted")
            << QByteArray("12\r") << QByteArray("line :0 col :1");
        QTest::newRow("CRLF counts as LF")
            << QByteArray(" \r\n [ ") << QByteArray("line :1 col :3");
        QTest::newRow("LF counts as CRLF") << QByteArray(" \n [ ") << QByteArray("line :1 col :3");
        QTest::newRow("bytes are counted, not characters")
            << QByteArray("\"\xC3\xA9\" ") << QByteArray("line :0 col :4");
    }
    void positions()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, message);
        Reader reader(text.constData());
        reader.next();
        QCOMPARE(messageOf([&] { reader.error("why"); }), "error at " + message + " msg:why");
    }

    void positionBeforeTheFirstToken()
    {
        Reader reader("abc");
        QCOMPARE(messageOf([&] { reader.error("why"); }),
                 QByteArray("error at line :0 col :0 msg:why"));
    }

    void noTokenBeforeTheFirst()
    {
        Reader reader("{}");
        QCOMPARE(reader.tokenType(), TokenType::Eof);
        QVERIFY(!reader.startsWith('{'));
        QVERIFY(reader.startsWith('\0'));
    }

    // An unterminated block comment swallows the rest; what was current is current again, without
    // its sign.
    void unterminatedComment()
    {
        Reader reader("-5 /* 6");
        reader.next();
        qint32 value = 0;
        reader.read(value);
        QCOMPARE(value, -5);
        QCOMPARE(reader.tokenType(), TokenType::Int);
        QCOMPARE(asBytes(reader.token()), QByteArray("-5"));
        QVERIFY(!reader.negative());
        QVERIFY(reader.atEnd());
        reader.read(value);
        QCOMPARE(value, 5);
        QCOMPARE(reader.tokenType(), TokenType::Eof);
    }

    // Without its sign the number is good for an unsigned field too.
    void unterminatedCommentBehindANegativeNumber()
    {
        Reader reader("-5 /*");
        qint32 first = 0;
        reader.next();
        reader.read(first);
        QCOMPARE(first, -5);
        quint8 second = 0;
        reader.read(second);
        QCOMPARE(int(second), 5);

        Reader fraction("-2.5 /*");
        fraction.next();
        fraction.read(first);
        QCOMPARE(first, -2);
        fraction.read(second);
        QCOMPARE(int(second), 2);
    }

    void unterminatedCommentBehindAStringAndASymbol()
    {
        Reader text("\"ab\"/*");
        text.next();
        text.next();
        QCOMPARE(text.tokenType(), TokenType::Str);
        QCOMPARE(asBytes(text.token()), QByteArray("ab"));
        text.next();
        QCOMPARE(text.tokenType(), TokenType::Eof);

        Reader symbol("[/* * /");
        symbol.next();
        symbol.next();
        QCOMPARE(symbol.tokenType(), TokenType::Symbol);
        QVERIFY(symbol.startsWith('['));
    }

    void unterminatedCommentBeforeTheFirstToken_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("message");
        const auto row = [](const char *name, const char *text, int column) {
            QTest::newRow(name) << QByteArray(text)
                                << "error at line :0 col :" + QByteArray::number(column)
                    + " msg:not a valid unsigned integral like number.";
        };

        row("nothing in it", "/*", 2);
        row("text in it", "/* x", 4);
        row("its own star does not close it", "/*/", 3);
        row("star at the end", "/* *", 4);
        row("star and slash apart, behind a blank", " /* * /", 7);
        QTest::newRow("over lines")
            << QByteArray("/*\n\r\n x")
            << QByteArray("error at line :2 col :3 msg:not a valid unsigned integral like number.");
    }
    void unterminatedCommentBeforeTheFirstToken()
    {
        QFETCH(QByteArray, text);
        Reader reader(text.constData());
        reader.next();
        QCOMPARE(reader.tokenType(), TokenType::Eof);
        QVERIFY(!reader.startsWith('/'));
        quint8 number = 0;
        QTEST(messageOf([&] { reader.read(number); }), "message");
    }

    void symbolTestsLookAtTheFirstByte()
    {
        Reader reader("\"{a\" \"\" ] ");
        reader.next();
        QVERIFY(reader.startsWith('{'));
        reader.next();
        QVERIFY(reader.startsWith('"')); // the closing quote of nothing
        reader.next();
        QVERIFY(reader.startsWith(']'));
        reader.next();
        QVERIFY(reader.startsWith('\0'));
    }

    void integers_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("u8");
        QTest::addColumn<QByteArray>("u16");
        QTest::addColumn<QByteArray>("u32");
        QTest::addColumn<QByteArray>("i32");
        const auto row = [](const char *name, const char *text, const char *u8, const char *u16,
                            const char *u32, const char *i32) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(u8) << QByteArray(u16)
                                << QByteArray(u32) << QByteArray(i32);
        };
        // The place is the same for all four.
        const auto badRow = [](const char *name, const char *text, const char *place,
                               const char *forUnsigned, const char *forSigned) {
            const QByteArray unsignedMessage =
                QByteArray("error at ") + place + " msg:" + forUnsigned;
            QTest::newRow(name) << QByteArray(text) << unsignedMessage << unsignedMessage
                                << unsignedMessage
                                << (*forSigned == 'n'
                                        ? QByteArray("error at ") + place + " msg:" + forSigned
                                        : QByteArray(forSigned));
        };
        const char *const NegativeInt =
            "assign a negative signed integral to unsigned integral number.";
        const char *const NegativeReal =
            "assign a negative float point to unsigned integral number.";
        const char *const NoUnsigned = "not a valid unsigned integral like number.";
        const char *const NoSigned = "not a valid signed integral like number.";

        row("0", "0", "0", "0", "0", "0");
        row("255", "255", "255", "255", "255", "255");
        row("300", "300", "44", "300", "300", "300");
        row("65536", "65536", "0", "0", "65536", "65536");
        row("70000", "70000", "112", "4464", "70000", "70000");
        row("2^31", "2147483648", "0", "0", "2147483648", "-2147483648");
        row("2^32 - 1", "4294967295", "255", "65535", "4294967295", "-1");
        row("2^32", "4294967296", "0", "0", "0", "0");
        row("2^64 - 1", "18446744073709551615", "255", "65535", "4294967295", "-1");
        row("2^64 wraps", "18446744073709551616", "0", "0", "0", "0");
        row("2^64 + 7 wraps", "18446744073709551623", "7", "7", "7", "7");
        row("leading zeros", "007", "7", "7", "7", "7");

        badRow("-5", "-5", "line :0 col :2", NegativeInt, "-5");
        badRow("-0", "-0", "line :0 col :2", NegativeInt, "0");
        badRow("-", "-", "line :0 col :1", NegativeInt, "0");
        badRow("-abc", "-abc ", "line :0 col :1", NegativeInt, "0");
        badRow("-2^31", "-2147483648", "line :0 col :11", NegativeInt, "-2147483648");
        badRow("-2^31 - 1", "-2147483649", "line :0 col :11", NegativeInt, "2147483647");
        badRow("-2^64", "-18446744073709551616", "line :0 col :21", NegativeInt, "0");

        row("1.9", "1.9", "1", "1", "1", "1");
        row("12.", "12.", "12", "12", "12", "12");
        row("0.999", "0.999", "0", "0", "0", "0");
        row("1e3", "1e3", "232", "1000", "1000", "1000");
        row("1E3", "1E3", "232", "1000", "1000", "1000");
        row("1E-2", "1E-2", "0", "0", "0", "0");
        row("1500e-2", "1500e-2", "15", "15", "15", "15");
        row("1e+5 is 1", "1e+5 ", "1", "1", "1", "1");
        row("1e is 1", "1e,", "1", "1", "1", "1");
        row("e without digits before it is a word", "e5,", "0", "0", "0", "0");
        row("2.01e2 is below 201", "2.01e2", "200", "200", "200", "200");
        row("2.03e2 is below 203", "2.03e2", "202", "202", "202", "202");
        row("0.972e3 without fused multiply-add", "0.972e3", "203", "971", "971", "971");
        row("0.59e3 is 590 all the same", "0.59e3", "78", "590", "590", "590");
        row("0.3e1 is 3", "0.3e1", "3", "3", "3", "3");
        row("4294967296.0 is cut", "4294967296.0", "0", "0", "0", "0");
        row("4294967295.5", "4294967295.5", "255", "65535", "4294967295", "-1");
        row("2147483648.0", "2147483648.0", "0", "0", "2147483648", "-2147483648");
        row("3e9", "3e9", "0", "24064", "3000000000", "-1294967296");
        row("1e19 is beyond a signed 64", "1e19", "0", "0", "2313682944", "-1981284352");
        row("1e20 is beyond 64 bits", "1e20", "0", "0", "1661992960", "1661992960");
        row("1e308", "1e308", "0", "0", "0", "0");
        row("infinite", "1e309", "0", "0", "0", "0");
        row("exponent beyond all", "1e2147483647", "0", "0", "0", "0");
        row("0 with an exponent", "0e2147483647", "0", "0", "0", "0");
        row("exponent of 2^32 wraps to 0", "7e4294967296", "7", "7", "7", "7");
        row("exponent of 2^32 + 1", "7e4294967297", "70", "70", "70", "70");
        row("tiny", "1e-2147483647", "0", "0", "0", "0");
        row("2^64 - 1 as a fraction", "18446744073709551615.0", "0", "0", "0", "0");
        row("wrapped, then a fraction", "18446744073709551623.5", "7", "7", "7", "7");
        badRow("-1.9", "-1.9", "line :0 col :4", NegativeReal, "-1");
        badRow("-0.0", "-0.0", "line :0 col :4", NegativeReal, "0");
        badRow("-.5", "-.5", "line :0 col :3", NegativeReal, "0");
        badRow("-1e3", "-1e3", "line :0 col :4", NegativeReal, "-1000");
        badRow("-1e20", "-1e20", "line :0 col :5", NegativeReal, "-1661992960");
        badRow("-1e999", "-1e999", "line :0 col :6", NegativeReal, "0");
        // The magnitude is taken for signed before it becomes a fraction: 2^63 + 2048 turns into
        // -(2^63 - 2048), of which the low 32 bits are 2048.
        badRow("-(2^63 + 2048).0", "-9223372036854777856.0", "line :0 col :22", NegativeReal,
               "-2048");

        row("true", "true ", "1", "1", "1", "1");
        row("TrUe", "TrUe ", "1", "1", "1", "1");
        row("true in quotes", "\"true\"", "1", "1", "1", "1");
        row("TRUE in quotes", "\"TRUE\"", "1", "1", "1", "1");
        row("false", "false ", "0", "0", "0", "0");
        row("null", "null ", "0", "0", "0", "0");
        row("yes", "yes ", "0", "0", "0", "0");
        row("true with more behind it", "trueX ", "0", "0", "0", "0");
        row("tru", "tru ", "0", "0", "0", "0");
        row("nothing in quotes", "\"\"", "0", "0", "0", "0");
        row("12 in quotes", "\"12\"", "12", "12", "12", "12");
        row("12 in quotes with more", "\"12ab\"", "12", "12", "12", "12");
        row("1e3 in quotes is 1", "\"1e3\"", "1", "1", "1", "1");
        row("0x10 in quotes is 0", "\"0x10\"", "0", "0", "0", "0");
        row("blanks before it in quotes", "\" \t\v\f\r12\"", "12", "12", "12", "12");
        row("blanks alone in quotes", "\"  \"", "0", "0", "0", "0");
        row("an escape is no number", "\"\\u0031\"", "0", "0", "0", "0");
        row("+5", "+5 ", "5", "5", "5", "5");
        row("+5 in quotes", "\"+5\"", "5", "5", "5", "5");
        row("+-5 in quotes", "\"+-5\"", "0", "0", "0", "0");
        row("VT alone takes the number behind the blank", "\v 12", "12", "12", "12", "12");
        row("and its sign", "\v -12", "244", "65524", "4294967284", "-12");
        row("FF too, over a line", "\f\n12", "12", "12", "12", "12");
        row("-5 in quotes", "\"-5\"", "251", "65531", "4294967291", "-5");
        row("- in quotes", "\"-\"", "0", "0", "0", "0");
        row("300 in quotes", "\"300\"", "44", "300", "300", "300");
        row("2^63 in quotes", "\"9223372036854775808\"", "0", "0", "0", "-1");
        row("-2^63 in quotes", "\"-9223372036854775808\"", "0", "0", "0", "0");
        row("-2^63 - 1 in quotes", "\"-9223372036854775809\"", "255", "65535", "4294967295", "0");
        row("2^64 - 1 in quotes", "\"18446744073709551615\"", "255", "65535", "4294967295", "-1");
        row("2^64 in quotes", "\"18446744073709551616\"", "255", "65535", "4294967295", "-1");
        row("-2^64 in quotes", "\"-18446744073709551616\"", "255", "65535", "4294967295", "0");
        row("many digits in quotes", "\"999999999999999999999999999999\"", "255", "65535",
            "4294967295", "-1");

        badRow("symbol", "[", "line :0 col :1", NoUnsigned, NoSigned);
        badRow("closing symbol", "}", "line :0 col :1", NoUnsigned, NoSigned);
        badRow("the end", "", "line :0 col :0", NoUnsigned, NoSigned);
    }
    void integers()
    {
        QFETCH(QByteArray, text);
        QTEST(integerOf<std::uint8_t>(text), "u8");
        QTEST(integerOf<std::uint16_t>(text), "u16");
        QTEST(integerOf<std::uint32_t>(text), "u32");
        QTEST(integerOf<std::int32_t>(text), "i32");
    }

    void leafReadersMoveOn()
    {
        Reader reader("1 -2 \"3\" abc ] ");
        std::uint8_t first = 0;
        std::int32_t second = 0;
        std::uint16_t third = 0;
        std::string fourth;
        reader.next();
        reader.read(first);
        reader.read(second);
        reader.read(third);
        reader.read(fourth);
        QCOMPARE(int(first), 1);
        QCOMPARE(second, -2);
        QCOMPARE(int(third), 3);
        QCOMPARE(asBytes(fourth), QByteArray("abc"));
        QVERIFY(reader.startsWith(']'));
    }

    // The value has arrived, and the token behind it is at fault.
    void theTargetIsSetBeforeTheNextTokenFails()
    {
        Reader reader("5 \"abc");
        std::uint8_t target = 0;
        reader.next();
        QCOMPARE(messageOf([&] { reader.read(target); }),
                 QByteArray("error at line :0 col :6 msg:not a valid quote string!"));
        QCOMPARE(int(target), 5);
    }

    void strings_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("value");
        const auto row = [](const char *name, const QByteArray &text, const QByteArray &value) {
            QTest::newRow(name) << text << value;
        };
        const auto badRow = [](const char *name, const QByteArray &text, int column) {
            QTest::newRow(name) << text
                                << "error at line :0 col :" + QByteArray::number(column)
                    + " msg:not a valid string.";
        };

        row("empty", R"("")", "");
        row("plain", R"("abc")", "abc");
        row("other bytes pass", "\"\xE9\xFF\x01\x7F\"", "\xE9\xFF\x01\x7F");
        row("raw TAB and CR", "\"\t\r\"", "\t\r");
        row("every short escape", "\"\\\"\\/\\\\\\b\\f\\n\\r\\t\"", "\"/\\\b\f\n\r\t");
        row("u, one byte", R"("\u0041\u007f\u0001")", "A\x7F\x01");
        row("u, two bytes", R"("\u0080\u00E9\u07fF")", "\xC2\x80\xC3\xA9\xDF\xBF");
        row("u, three bytes", R"("\u0800\u20AC\uFFFF")", "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF");
        row("surrogates are three bytes each", R"("\uD83D\uDE00")", "\xED\xA0\xBD\xED\xB8\x80");
        row("digits of either case", R"("\uabCD")", "\xEA\xAF\x8D");
        row("word", "N/A ", "N/A");
        row("word with escapes", R"(a\u0041\n )", "aA\n");
        row("word with an escaped quote", R"(a\"b )", "a\"b");
        row("true", "true,", "true");
        row("null", "null,", "null");
        row("escape behind more than 16", R"("0123456789abcdef01234\n")",
            "0123456789abcdef01234\n");

        badRow("unknown escape", R"("\q")", 4);
        badRow("upper-case U", R"("\U0041")", 8);
        badRow("LF behind a backslash is no escape", "\"\\\r\"", 3);
        badRow("NUL by escape", R"("\u0000")", 8);
        badRow("three digits", R"("\u041")", 7);
        badRow("no digits", R"("\u")", 4);
        badRow("digit g", R"("\u00g1")", 8);
        badRow("digit from 0x80",
               "\"\\u00\xE9"
               "1\"",
               8);
        badRow("digit with a sign", R"("\u+041")", 8);
        badRow("backslash ends a word", R"(a\ )", 2);
        badRow("digits end with the word", R"(\u00 41)", 4);
        badRow("number", "5", 1);
        badRow("negative number", "-5", 2);
        badRow("fraction", "5.5", 3);
        badRow("symbol", "[", 1);
        badRow("the end", "", 0);
    }
    void strings()
    {
        QFETCH(QByteArray, text);
        QTEST(stringOf(text), "value");
    }

    void everyEscapedCodePoint()
    {
        for (std::uint32_t point = 1; point <= 0xFFFF; ++point) {
            const QByteArray digits = QByteArray::number(point, 16).rightJustified(4, '0');
            // A half of a surrogate pair stands for no character; its three bytes are like the
            // rest.
            const QByteArray utf8 = point >= 0xD800 && point <= 0xDFFF
                ? QByteArray::fromRawData("\xED", 1) + char(0x80 | (point >> 6 & 0x3F))
                    + char(0x80 | (point & 0x3F))
                : QString(QChar(point)).toUtf8();
            QCOMPARE(stringOf("\"\\u" + digits + '"'), utf8);
            QCOMPARE(stringOf("\"\\u" + digits.toUpper() + '"'), utf8);
        }
    }

    void escapeOverALine()
    {
        QCOMPARE(stringOf("\"a\\\nb\""),
                 QByteArray("error at line :1 col :3 msg:not a valid string."));
    }

    void limits_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("limit");
        QTest::addColumn<QByteArray>("tokens");

        QTest::newRow("none") << QByteArray("12") << 0 << QByteArray("");
        QTest::newRow("in a number") << QByteArray("123") << 2 << QByteArray("uint:12");
        QTest::newRow("behind the text") << QByteArray("12") << 9 << QByteArray("uint:12");
        QTest::newRow("at the text's end") << QByteArray("12") << 2 << QByteArray("uint:12");
        QTest::newRow("in a string")
            << QByteArray("\"abc\"") << 4
            << QByteArray("error at line :0 col :4 msg:not a valid quote string!");
        QTest::newRow("behind a backslash")
            << QByteArray("\"a\\\"\"") << 3
            << QByteArray("error at line :0 col :3 msg:not a valid quote string!");
        QTest::newRow("in a word") << QByteArray("true,") << 4
                                   << QByteArray("error at line :0 col :4 msg:not a valid string!");
        QTest::newRow("behind a symbol") << QByteArray("[]") << 1 << QByteArray("symbol:[");
        QTest::newRow("in blanks") << QByteArray("1    2") << 3 << QByteArray("uint:1");
        QTest::newRow("in a line comment") << QByteArray("1//\n2") << 3 << QByteArray("uint:1");
        QTest::newRow("in a closing comment, which is no token twice")
            << QByteArray("/* */") << 4 << QByteArray("");
        QTest::newRow("behind a slash")
            << QByteArray("//") << 1 << QByteArray("error at line :0 col :1 msg:not a comment!");
        QTest::newRow("an LF at the limit is not counted")
            << QByteArray("true\n") << 4
            << QByteArray("error at line :0 col :4 msg:not a valid string!");
    }
    void limits()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, limit);
        QTEST(tokensOf(text, static_cast<std::uint64_t>(limit)), "tokens");
        // The same in memory that ends at the limit.
        if (limit <= text.size()) {
            const GuardedText guarded(asView(text.left(limit)), GuardedText::End::Limit);
            QTEST(tokensOf(QByteArray::fromRawData(guarded.begin(), limit),
                           static_cast<std::uint64_t>(limit)),
                  "tokens");
        }
    }

    // Text read as a number looks behind its token, but never behind the limit.
    void limitOfTextAsNumber()
    {
        const GuardedText guarded("\v ", GuardedText::End::Limit);
        Reader reader(guarded.begin(), 2);
        reader.next();
        std::uint8_t target = 7;
        reader.read(target);
        QCOMPARE(int(target), 0);

        Reader whole("\v 12");
        whole.next();
        whole.read(target);
        QCOMPARE(int(target), 12);
    }

    void noInput()
    {
        Reader reader(nullptr);
        QVERIFY(reader.atEnd());
        reader.next();
        QCOMPARE(reader.tokenType(), TokenType::Eof);
        QCOMPARE(messageOf([&] { reader.error("why"); }),
                 QByteArray("error at line :0 col :0 msg:why"));
    }

    // Every text, cut at each of its bytes, directly before memory that may not be read.
    void nothingBehindTheNulIsRead()
    {
        const QByteArray text = "{ \"a\\u0041\" :[1.5e-3, -12,true ,\"0123456789abcdef012345\"],\n"
                                "                                        // x\n"
                                "\t\"12\":\"\\n\",/";
        for (int length = 0; length <= text.size(); ++length) {
            const GuardedText guarded(asView(text.left(length)));
            Reader reader(guarded.begin());
            messageOf([&] {
                for (reader.next(); reader.tokenType() != TokenType::Eof; reader.next()) {
                    std::string string;
                    std::uint8_t number = 0;
                    Reader copy = reader;
                    messageOf([&] { copy.read(string); });
                    copy = reader;
                    messageOf([&] { copy.read(number); });
                }
            });
        }
    }

    void skippedValues_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("token"); // the one that is current then

        QTest::newRow("number") << QByteArray("1 2") << QByteArray("2");
        QTest::newRow("string with a bad escape") << QByteArray("\"\\q\" 2") << QByteArray("2");
        QTest::newRow("word") << QByteArray("null 2") << QByteArray("2");
        QTest::newRow("comma, not consumed") << QByteArray(", 2") << QByteArray(",");
        QTest::newRow("colon, not consumed") << QByteArray(": 2") << QByteArray(":");
        QTest::newRow("closing bracket, not consumed") << QByteArray("] 2") << QByteArray("]");
        QTest::newRow("closing brace, not consumed") << QByteArray("} 2") << QByteArray("}");
        QTest::newRow("empty array") << QByteArray("[] 2") << QByteArray("2");
        QTest::newRow("array") << QByteArray("[1,\"a\",b] 2") << QByteArray("2");
        QTest::newRow("array without commas") << QByteArray("[1 2 3] 2") << QByteArray("2");
        QTest::newRow("array of commas") << QByteArray("[,,1,,] 2") << QByteArray("2");
        QTest::newRow("trailing comma") << QByteArray("[1,] 2") << QByteArray("2");
        QTest::newRow("quoted text that ends an array")
            << QByteArray("[\"]\" 2") << QByteArray("2");
        QTest::newRow("quoted text that is a comma")
            << QByteArray("[1 \",\" ] 2") << QByteArray("2");
        QTest::newRow("quoted text that opens nothing")
            << QByteArray("[\"[\"] 2") << QByteArray("2");
        QTest::newRow("empty object") << QByteArray("{} 2") << QByteArray("2");
        QTest::newRow("object") << QByteArray("{\"a\":1,b:2} 2") << QByteArray("2");
        QTest::newRow("object without commas") << QByteArray("{a:1 b:2} 2") << QByteArray("2");
        QTest::newRow("object with trailing comma") << QByteArray("{a:1,} 2") << QByteArray("2");
        QTest::newRow("numbers as keys") << QByteArray("{1:1,-2:2,3.5:3} 2") << QByteArray("2");
        QTest::newRow("object without a value") << QByteArray("{a:} 2") << QByteArray("2");
        QTest::newRow("object without values") << QByteArray("{a:,b:} 2") << QByteArray("2");
        QTest::newRow("quoted text that ends an object")
            << QByteArray("{\"}\" 2") << QByteArray("2");
        QTest::newRow("quoted text that is a colon")
            << QByteArray("{a \":\" 1} 2") << QByteArray("2");
        QTest::newRow("nested") << QByteArray("[[],{},[{a:[{}]}],{b:{c:[]}}] 2") << QByteArray("2");
    }
    void skippedValues()
    {
        QFETCH(QByteArray, text);
        Reader reader(text.constData());
        reader.next();
        reader.skipValue();
        QTEST(asBytes(reader.token()), "token");
    }

    void skippingFails_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("place");

        QTest::newRow("object breaks off") << QByteArray("{") << QByteArray("line :0 col :1");
        QTest::newRow("object breaks off behind a key")
            << QByteArray("{\"a\"") << QByteArray("line :0 col :4");
        QTest::newRow("object breaks off behind a colon")
            << QByteArray("{\"a\":") << QByteArray("line :0 col :5");
        QTest::newRow("object breaks off behind a value")
            << QByteArray("{\"a\":1") << QByteArray("line :0 col :6");
        QTest::newRow("comma for a key") << QByteArray("{,}") << QByteArray("line :0 col :2");
        QTest::newRow("array for a key") << QByteArray("{[]:1}") << QByteArray("line :0 col :2");
        QTest::newRow("no colon") << QByteArray("{\"a\" 1}") << QByteArray("line :0 col :6");
        QTest::newRow("stray colon in an object")
            << QByteArray("{a::1}") << QByteArray("line :0 col :4");
        QTest::newRow("stray bracket in an object")
            << QByteArray("{a:]}") << QByteArray("line :0 col :4");
        QTest::newRow("in an array") << QByteArray("[1,{a:]}]") << QByteArray("line :0 col :7");
    }
    void skippingFails()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, place);
        Reader reader(text.constData());
        reader.next();
        QCOMPARE(messageOf([&] { reader.skipValue(); }),
                 "error at " + place + " msg:invalid json document!");
    }

    // Arrays in objects in arrays, deeper than any stack of calls would bear.
    void deepNestingTakesNoStack()
    {
        static std::string text;
        text.clear();
        for (int i = 0; i < 500000; ++i)
            text += "[{\"a\":";
        text += '1';
        for (int i = 0; i < 500000; ++i)
            text += "}]";
        text += " 2";
        static std::string behind;
        behind.clear();

        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        QCOMPARE(pthread_attr_setstacksize(&attributes, 512 * 1024), 0);
        pthread_t thread {};
        const auto skip = [](void *) -> void * {
            Reader reader(text.c_str());
            reader.next();
            reader.skipValue();
            behind = std::string(reader.token());
            return nullptr;
        };
        QCOMPARE(pthread_create(&thread, &attributes, skip, nullptr), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
        QCOMPARE(asBytes(behind), QByteArray("2"));
    }

    // A pattern of brackets that never repeats, over several words of the bits that remember them.
    void deepNestingOfAnyPattern()
    {
        for (const std::size_t depth : { 1023U, 1024U, 1025U, 1088U, 5000U }) {
            for (std::uint32_t seed = 1; seed <= 20; ++seed) {
                std::mt19937 random(seed);
                std::string text;
                std::string closing;
                for (std::size_t level = 0; level < depth; ++level) {
                    const bool isObject = random() % 2 != 0;
                    text += isObject ? "{\"a\":" : "[";
                    closing += isObject ? '}' : ']';
                }
                text += '1';
                text.append(closing.rbegin(), closing.rend());
                text += " 2";
                Reader reader(text.c_str());
                reader.next();
                reader.skipValue();
                QCOMPARE(asBytes(reader.token()), QByteArray("2"));

                // A bracket in place of the innermost brace is noticed.
                const std::size_t innermost = text.find('1') + 1;
                if (text[innermost] != '}')
                    continue;
                text[innermost] = ']';
                Reader mistaken(text.c_str());
                mistaken.next();
                QCOMPARE(messageOf([&] { mistaken.skipValue(); }),
                         "error at line :0 col :" + QByteArray::number(qulonglong(innermost + 1))
                             + " msg:invalid json document!");
            }
        }
    }

    // An exponent is one multiplication for each unit, but none that changes nothing.
    void largeExponentsDoNotStall()
    {
        QByteArray text;
        for (int i = 0; i < 1000; ++i)
            text += "1.5e2147483647 2e-2147483647 ";
        const std::int64_t start = threadTime();
        Reader reader(text.constData());
        int count = 0;
        for (reader.next(); reader.tokenType() != TokenType::Eof; reader.next())
            ++count;
        QCOMPARE(count, 2000);
        const auto milliseconds = qlonglong((threadTime() - start) / 1000000);
        QVERIFY2(milliseconds < 500, QByteArray::number(milliseconds).constData());
    }
};

QTEST_APPLESS_MAIN(tst_JsonReader)
#include "tst_jsonreader.moc"
