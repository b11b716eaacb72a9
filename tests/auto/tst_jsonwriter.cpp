#include "json/json.h"

#include <QByteArray>
#include <QTest>

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Numbers {
    std::uint8_t u8 = 0;
    std::uint16_t u16 = 0;
    std::uint32_t u32 = 0;
    std::int32_t i32 = 0;

    static constexpr char Keys[] = "u8, u16, u32, i32";
    static constexpr auto Members =
        std::make_tuple(&Numbers::u8, &Numbers::u16, &Numbers::u32, &Numbers::i32);
};

struct Nested {
    std::string text;
    Numbers numbers;
    std::vector<std::string> list;

    static constexpr char Keys[] = "text, numbers, list";
    static constexpr auto Members = std::make_tuple(&Nested::text, &Nested::numbers, &Nested::list);
};

template<class Document> QByteArray encoded(const Document &document)
{
    std::string text = "replaced";
    ajson::encodeJson(text, document);
    return QByteArray(text.data(), static_cast<int>(text.size()));
}

// The text between the brackets of a list of one string.
QByteArray encodedText(const QByteArray &text)
{
    const std::vector<std::string> list = { std::string(text.constData(),
                                                        static_cast<std::size_t>(text.size())) };
    const QByteArray json = encoded(list);
    return json.startsWith('[') && json.endsWith(']') ? json.mid(1, json.size() - 2) : json;
}

} // namespace

class tst_JsonWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void numbers_data()
    {
        QTest::addColumn<quint32>("u8");
        QTest::addColumn<quint32>("u16");
        QTest::addColumn<quint32>("u32");
        QTest::addColumn<qint32>("i32");
        QTest::addColumn<QByteArray>("json");

        QTest::newRow("zero") << 0U << 0U << 0U << 0
                              << QByteArray(R"({"u8":0,"u16":0,"u32":0,"i32":0})");
        QTest::newRow("one digit")
            << 9U << 9U << 9U << 9 << QByteArray(R"({"u8":9,"u16":9,"u32":9,"i32":9})");
        QTest::newRow("two digits")
            << 10U << 99U << 42U << -10 << QByteArray(R"({"u8":10,"u16":99,"u32":42,"i32":-10})");
        QTest::newRow("three digits") << 100U << 999U << 709U << -999
                                      << QByteArray(R"({"u8":100,"u16":999,"u32":709,"i32":-999})");
        QTest::newRow("four digits") << 65U << 1000U << 1001U << 9999
                                     << QByteArray(R"({"u8":65,"u16":1000,"u32":1001,"i32":9999})");
        QTest::newRow("an 8-bit member is a number, not a character")
            << 65U << 66U << 67U << 68 << QByteArray(R"({"u8":65,"u16":66,"u32":67,"i32":68})");
        QTest::newRow("largest")
            << 255U << 65535U << 4294967295U << 2147483647
            << QByteArray(R"({"u8":255,"u16":65535,"u32":4294967295,"i32":2147483647})");
        QTest::newRow("smallest") << 0U << 0U << 0U << std::numeric_limits<qint32>::min()
                                  << QByteArray(R"({"u8":0,"u16":0,"u32":0,"i32":-2147483648})");
    }
    void numbers()
    {
        QFETCH(quint32, u8);
        QFETCH(quint32, u16);
        QFETCH(quint32, u32);
        QFETCH(qint32, i32);
        const Numbers record = { static_cast<std::uint8_t>(u8), static_cast<std::uint16_t>(u16),
                                 u32, i32 };
        QTEST(encoded(record), "json");
    }

    // Every number of the widths that are written most, against Qt's digits.
    void everySixteenBitNumber()
    {
        for (int value = 0; value <= 65535; ++value) {
            char text[8];
            const char *const end = ajson::writeLeaf(text, static_cast<std::uint16_t>(value));
            QCOMPARE(QByteArray(text, static_cast<int>(end - text)), QByteArray::number(value));
        }
    }

    void forms()
    {
        QCOMPARE(encoded(Nested()),
                 QByteArray(R"({"text":"","numbers":{"u8":0,"u16":0,"u32":0,"i32":0},"list":[]})"));
        Nested record;
        record.text = "a";
        record.list = { "b", "", "c" };
        QCOMPARE(encoded(record),
                 QByteArray(R"({"text":"a","numbers":{"u8":0,"u16":0,"u32":0,"i32":0},)"
                            R"("list":["b","","c"]})"));
        QCOMPARE(encoded(std::vector<Nested>()), QByteArray("[]"));
        QCOMPARE(encoded(std::vector<int> { 1, -2 }), QByteArray("[1,-2]"));
        QCOMPARE(encoded(std::vector<std::vector<int>> { {}, { 1 }, {} }),
                 QByteArray("[[],[1],[]]"));
    }

    void texts_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("json");
        const auto row = [](const char *name, const QByteArray &text, const QByteArray &json) {
            QTest::newRow(name) << text << json;
        };

        row("empty", "", "\"\"");
        row("plain", "abc", "\"abc\"");
        row("slash is not escaped", "a/b", "\"a/b\"");
        row("quote and backslash", "\"\\", "\"\\\"\\\\\"");
        row("short escapes", "\b\t\n\f\r", "\"\\b\\t\\n\\f\\r\"");
        row("other control characters", "\x01\x07\x0B\x0E\x1F",
            "\"\\u0001\\u0007\\u000B\\u000E\\u001F\"");
        row("space and tilde", " ~", "\" ~\"");
        row("DEL", "\x7F", "\"\\u007F\"");
        row("two bytes", "\xC2\x80\xC3\xA9\xDF\xBF", "\"\\u0080\\u00E9\\u07FF\"");
        row("three bytes", "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF", "\"\\u0800\\u20AC\\uFFFF\"");
        row("byte order mark", "\xEF\xBB\xBF", "\"\\uFEFF\"");
        row("first behind the surrogates", "\xEE\x80\x80", "\"\\uE000\"");
        row("last before the surrogates", "\xED\x9F\xBF", "\"\\uD7FF\"");
        row("four bytes are two groups, not a surrogate pair", "\xF0\x9F\x98\x80",
            "\"\\u0001\\uF600\"");
        row("lowest of four bytes", "\xF0\x90\x80\x80", "\"\\u0001\\u0000\"");
        row("highest code point", "\xF4\x8F\xBF\xBF", "\"\\u0010\\uFFFF\"");
        row("plain before and behind",
            "ab\xC3\xA9"
            "cd",
            "\"ab\\u00E9cd\"");
        row("more than 16 plain",
            "0123456789abcdef0123456789\x7F"
            "ABCDEFGHIJKLMNOPQRSTU",
            "\"0123456789abcdef0123456789\\u007FABCDEFGHIJKLMNOPQRSTU\"");
        row("exactly 16 plain", "0123456789abcdef", "\"0123456789abcdef\"");

        row("NUL ends the text", QByteArray("A\0B", 3), "\"A\"");
        row("NUL at the beginning", QByteArray("\0B", 2), "\"\"");
        row("NUL inside of a sequence", QByteArray("A\xC3\0\xA9", 4), "\"A\"");
        row("Latin-1 drops the rest",
            "\xE9"
            "abc",
            "\"\"");
        row("Latin-1 behind text",
            "x\xE9"
            "abc",
            "\"x\"");
        row("continuation alone", "a\x80z", "\"a\"");
        row("lead byte before a lead byte", "a\xC3\xC3\xA9z", "\"a\"");
        row("overlong, two bytes", "a\xC0\xAFz", "\"a\"");
        row("overlong, three bytes", "a\xE0\x9F\xBFz", "\"a\"");
        row("overlong, four bytes", "a\xF0\x8F\xBF\xBFz", "\"a\"");
        row("surrogate", "a\xED\xA0\x80z", "\"a\"");
        row("beyond U+10FFFF", "a\xF4\x90\x80\x80z", "\"a\"");
        row("F5", "a\xF5\x80\x80\x80z", "\"a\"");
        row("FF", "a\xFFz", "\"a\"");
        row("breaks off behind the lead byte", "a\xC3", "\"a\"");
        row("breaks off in three bytes", "a\xE2\x82", "\"a\"");
        row("breaks off in four bytes", "a\xF0\x9F\x98", "\"a\"");
        row("what stood before it stays", "\xC3\xA9\n\xC3(abc", "\"\\u00E9\\n\"");
    }
    void texts()
    {
        QFETCH(QByteArray, text);
        QTEST(encodedText(text), "json");
    }

    // Each byte alone: plain, escaped, or nothing.
    void everyByte()
    {
        for (int byte = 1; byte < 256; ++byte) {
            const QByteArray json = encodedText(QByteArray(1, static_cast<char>(byte)));
            if (byte >= 0x80)
                QCOMPARE(json, QByteArray("\"\""));
            else if (byte == '"' || byte == '\\' || byte < 0x20 || byte == 0x7F)
                QVERIFY2(json.startsWith("\"\\"), json.constData());
            else
                QCOMPARE(json, '"' + QByteArray(1, static_cast<char>(byte)) + '"');
        }
    }

    // Every code point that UTF-8 has, with its escape worked out from the number.
    void everyCodePoint()
    {
        for (uint point = 0x80; point <= 0x10FFFF; point += point < 0x10000 ? 1 : 37) {
            if (point >= 0xD800 && point <= 0xDFFF)
                continue;
            if (point == 0xFEFF)
                continue; // Qt takes it for a byte order mark; it is among the texts above
            const QByteArray utf8 = QString::fromUcs4(&point, 1).toUtf8();
            const QByteArray low =
                "\\u" + QByteArray::number(point & 0xFFFF, 16).rightJustified(4, '0').toUpper();
            const QByteArray high = point < 0x10000
                ? QByteArray()
                : "\\u" + QByteArray::number(point >> 16, 16).rightJustified(4, '0').toUpper();
            QCOMPARE(encodedText(utf8), '"' + high + low + '"');
        }
    }

    // The first 1024 bytes are the buffer's own; what was written moves along.
    void bufferGrowth()
    {
        ajson::WriteBuffer buffer;
        QCOMPARE(buffer.capacity(), std::size_t(1024));
        char *place = buffer.makeRoom(1024);
        std::memset(place, 'a', 1024);
        buffer.setEnd(place + 1024);
        QCOMPARE(buffer.capacity(), std::size_t(1024));

        place = buffer.makeRoom(1);
        QCOMPARE(buffer.capacity(), std::size_t(2048));
        *place = 'b';
        buffer.setEnd(place + 1);
        QCOMPARE(buffer.text().size(), std::size_t(1025));
        QVERIFY(std::string(buffer.text()) == std::string(1024, 'a') + "b");

        place = buffer.makeRoom(5000);
        QCOMPARE(buffer.capacity(), std::size_t(6144));
        buffer.setEnd(place);
        QVERIFY(std::string(buffer.text()) == std::string(1024, 'a') + "b");
        buffer.makeRoom(6144 - 1025);
        QCOMPARE(buffer.capacity(), std::size_t(6144));
    }

    void longTexts_data()
    {
        QTest::addColumn<int>("length");
        for (const int length : { 1021, 1022, 1023, 1024, 5000, 1000000 })
            QTest::newRow(QByteArray::number(length).constData()) << length;
    }
    void longTexts()
    {
        QFETCH(int, length);
        QByteArray text(length, 'a');
        for (int i = 0; i < length; ++i)
            text[i] = static_cast<char>('a' + i % 26);
        QCOMPARE(encodedText(text), '"' + text + '"');
        QCOMPARE(encodedText(QByteArray(length, '\x01')),
                 '"' + QByteArray("\\u0001").repeated(length) + '"');
    }

    void theResultMayBeAMemberOfTheRecord()
    {
        Nested record;
        record.text = "path";
        ajson::encodeJson(record.text, record);
        QCOMPARE(QByteArray(record.text.c_str()),
                 QByteArray(R"({"text":"path","numbers":{"u8":0,"u16":0,"u32":0,"i32":0},)"
                            R"("list":[]})"));
    }
};

QTEST_APPLESS_MAIN(tst_JsonWriter)
#include "tst_jsonwriter.moc"
