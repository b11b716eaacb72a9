#include "support/guardedtext.h"
#include "support/threadtime.h"
#include "json/json.h"

#include <QByteArray>
#include <QTest>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <pthread.h>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct Inner {
    std::uint8_t rate = 7;
    std::string name = "none";

    static constexpr char Keys[] = "rate, name";
    static constexpr auto Members = std::make_tuple(&Inner::rate, &Inner::name);
};

struct Outer {
    int number = -1;
    std::string text = "unset";
    Inner inner;
    std::vector<Inner> list;
    std::vector<int> numbers;
    std::vector<std::string> texts;
    std::uint16_t last = 65535;

    static constexpr char Keys[] = "number, text, inner, list, numbers, texts, last";
    static constexpr auto Members =
        std::make_tuple(&Outer::number, &Outer::text, &Outer::inner, &Outer::list, &Outer::numbers,
                        &Outer::texts, &Outer::last);
};

// Its names in an order that memory has not.
struct Swapped {
    std::uint8_t first = 1;
    std::uint8_t second = 2;

    static constexpr char Keys[] = "second,first";
    static constexpr auto Members = std::make_tuple(&Swapped::second, &Swapped::first);
};

QByteArray asBytes(const std::string &text)
{
    return QByteArray(text.data(), static_cast<int>(text.size()));
}

template<class Document> QByteArray encoded(const Document &document)
{
    std::string text = "replaced";
    ajson::encodeJson(text, document);
    return asBytes(text);
}

// What has been read, written out again, or the error.
template<class Document> QByteArray decoded(const QByteArray &text)
{
    Document document {};
    std::string error = "untouched";
    const std::string input(text.constData(), static_cast<std::size_t>(text.size()));
    if (!ajson::decodeJson(input, document, error))
        return asBytes(error);
    return error == "untouched" ? encoded(document) : "error changed to " + asBytes(error);
}

// What a record becomes that is read by a reader of its own, or the error.
QByteArray readBy(ajson::Reader reader, Outer &record)
{
    try {
        reader.next();
        ajson::Internal::readValue<ajson::Internal::Level::Top>(reader, record);
    } catch (const ajson::exception &failure) {
        return failure.what();
    }
    return encoded(record);
}

// Every kind of value, in the plain forms that are recognised ahead and in others.
const char *const RecordText =
    "{\n    \"number\": -12,\n    \"text\": \"0123456789abcdef012345\",\n    \"inner\": {\n"
    "        \"rate\": 42,\n        \"name\": \"\\u0041\"\n    },\n    \"list\": [\n        {\n"
    "            \"rate\": 1.5e1,\n            \"name\": \"b\"\n        },\n        {\n"
    "            \"name\": word ,\"rate\":true }\n    ],\n    \"numbers\": [ 1, \"2\" ],\n"
    "    \"unknown\": { \"a\": 1 },// x\n    \"texts\":[\"c\"],\"last\":65535}";

std::size_t allocations = 0;
std::size_t allocationsLeft = std::numeric_limits<std::size_t>::max(); // then memory is short

} // namespace

// Every allocation of this program counts, those of the C++ library included.
void *operator new(std::size_t size)
{
    ++allocations;
    if (allocationsLeft == 0)
        throw std::bad_alloc();
    --allocationsLeft;
    if (void *const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

class tst_JsonBinding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameLists_data()
    {
        QTest::addColumn<QByteArray>("list");
        QTest::addColumn<QByteArray>("names");

        QTest::newRow("blank behind the comma") << QByteArray("a, b") << QByteArray("a|b");
        QTest::newRow("blank before the comma") << QByteArray("a ,b") << QByteArray("a|b");
        QTest::newRow("no blanks") << QByteArray("a,b") << QByteArray("a|b");
        QTest::newRow("one name") << QByteArray("rate") << QByteArray("rate");
        QTest::newRow("none") << QByteArray("") << QByteArray("");
        QTest::newRow("blanks and commas alone") << QByteArray(" , ,") << QByteArray("");
        QTest::newRow("empty names") << QByteArray(",a,,b,") << QByteArray("a|b");
        QTest::newRow("every kind of blank")
            << QByteArray("\t\n\f\r a\t\n\f\r ,\t\n\f\r b\t") << QByteArray("a|b");
        QTest::newRow("a blank ends a name") << QByteArray("a b") << QByteArray("a|b");
        QTest::newRow("VT is part of a name") << QByteArray("a\vb") << QByteArray("a\vb");
        QTest::newRow("as records have them")
            << QByteArray("deviceId, result") << QByteArray("deviceId|result");
    }
    void nameLists()
    {
        QFETCH(QByteArray, list);
        const std::string_view view(list.constData(), static_cast<std::size_t>(list.size()));
        const auto names = ajson::splitNames<4>(view);
        QByteArrayList found;
        for (std::size_t i = 0; i < ajson::countNames(view); ++i)
            found += asBytes(std::string(names[i]));
        QTEST(found.join('|'), "names");
    }

    void keysAreComparedByteForByte()
    {
        constexpr auto Table = ajson::splitNames<2>("deviceId, result");
        QCOMPARE(ajson::findField(Table, "deviceId"), std::size_t(0));
        QCOMPARE(ajson::findField(Table, "result"), std::size_t(1));
        QCOMPARE(ajson::findField(Table, "DeviceId"), std::size_t(2));
        QCOMPARE(ajson::findField(Table, "device"), std::size_t(2));
        QCOMPARE(ajson::findField(Table, "results"), std::size_t(2));
        QCOMPARE(ajson::findField(Table, ""), std::size_t(2));
    }

    void records_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("result");
        const auto row = [](const char *name, const char *text, const char *result) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(result);
        };

        row("both", R"({"rate":1,"name":"a"})", R"({"rate":1,"name":"a"})");
        row("other order", R"({"name":"a","rate":1})", R"({"rate":1,"name":"a"})");
        row("empty", "{}", R"({"rate":7,"name":"none"})");
        row("empty with blanks", " { \n} ", R"({"rate":7,"name":"none"})");
        row("one absent", R"({"name":"a"})", R"({"rate":7,"name":"a"})");
        row("repeated, the later one counts", R"({"rate":1,"rate":2})",
            R"({"rate":2,"name":"none"})");
        row("repeated in another order", R"({"name":"a","rate":1,"name":"b"})",
            R"({"rate":1,"name":"b"})");
        row("indented", "{\n    \"rate\": 1,\n    \"name\": \"a\"\n}\n",
            R"({"rate":1,"name":"a"})");
        row("indented, CRLF", "{\r\n\t\"rate\" : 1 ,\r\n\t\"name\"\t:\t\"a\"\r\n}\r\n",
            R"({"rate":1,"name":"a"})");
        row("indented unevenly", "{\n\n      \"rate\":   1\n   ,\n \"name\":\n\"a\"\n    }",
            R"({"rate":1,"name":"a"})");
        row("indented by more than 32",
            "{\n                                        \"rate\": 1,\n"
            "                                        \"name\": \"a\"\n"
            "                                        }",
            R"({"rate":1,"name":"a"})");
        row("comments", "// a\n{// b\n\"rate\"// c\n:// d\n1// e\n,// f\n\"name\":\"a\"// g\n}",
            R"({"rate":1,"name":"a"})");
        row("bare words as key and value", "{rate:1,name:abc}", R"({"rate":1,"name":"abc"})");
        row("case counts", R"({"Rate":1,"NAME":"a"})", R"({"rate":7,"name":"none"})");
        row("escapes in a key are not resolved", R"({"\u0072ate":1})",
            R"({"rate":7,"name":"none"})");
        row("bad escape in a key", R"({"\q":1,"rate":2})", R"({"rate":2,"name":"none"})");
        row("empty key", R"({"":1,"rate":2})", R"({"rate":2,"name":"none"})");
        row("key that begins a name", R"({"ra":1,"rates":2})", R"({"rate":7,"name":"none"})");

        row("unknown values of every kind",
            R"({"a":1,"b":-2,"c":3.5,"d":"\q","e":null,"f":[1,[2]],"g":{"h":{}},"rate":3})",
            R"({"rate":3,"name":"none"})");
        row("unknown key without a value", R"({"unknown":,"rate":1})",
            R"({"rate":1,"name":"none"})");
        row("unknown key without a value at the end", R"({"unknown":})",
            R"({"rate":7,"name":"none"})");
        row("unknown value of blanks and commas", R"({"a":[,,],"rate":1})",
            R"({"rate":1,"name":"none"})");

        row("text behind the end", R"({"rate":1} trailing)", R"({"rate":1,"name":"none"})");
        row("what is no token behind the end", "{\"rate\":1}\"open", R"({"rate":1,"name":"none"})");
        row("closed comment behind the end", "{\"rate\":1}/* */", R"({"rate":1,"name":"none"})");
        row("open comment behind the end", "{\"rate\":1} /* x", R"({"rate":1,"name":"none"})");
        row("the same behind an empty record", "{}/* */", R"({"rate":7,"name":"none"})");

        row("quoted text passes for symbols", R"("{" "rate" ":" 1 "," name ":x" y "}")",
            R"({"rate":1,"name":"y"})");
        row("quoted text ends an empty record", "{\"}\"", R"({"rate":7,"name":"none"})");
        row("text read as a value is a comma by its first byte",
            "{\"name\":\",x\" /* the text is current again",
            "error at line :0 col :41 msg:object key must be string");
        row("text read as a value ends the record by its first byte",
            "{\"name\":\"}x\" /* the text is current again", "{\"rate\":7,\"name\":\"}x\"}");

        row("nothing", "", "error at line :0 col :0 msg:read object must start with {!");
        row("blanks", "  ", "error at line :0 col :2 msg:read object must start with {!");
        row("open comment alone", "/* x",
            "error at line :0 col :4 msg:read object must start with {!");
        row("closed comment before it", "/* x */ {}", "error at line :0 col :7 msg:not a comment!");
        row("line comment before it", "// x\n{}", R"({"rate":7,"name":"none"})");
        row("open comment behind it", "{} /* x", R"({"rate":7,"name":"none"})");
        row("array", "[]", "error at line :0 col :1 msg:read object must start with {!");
        row("number", "5", "error at line :0 col :1 msg:read object must start with {!");
        row("breaks off", "{", "error at line :0 col :1 msg:object key must be string");
        row("open comment behind the brace", "{/*",
            "error at line :0 col :3 msg:object key must be string");
        row("trailing comma", R"({"rate":1,})",
            "error at line :0 col :11 msg:object key must be string");
        row("comma at the beginning", "{,}",
            "error at line :0 col :2 msg:object key must be string");
        row("number as a key", "{5:1}", "error at line :0 col :2 msg:object key must be string");
        row("no colon", R"({"rate" 1})", "error at line :0 col :9 msg:invalid json document!");
        row("no colon and no more", R"({"rate")",
            "error at line :0 col :7 msg:invalid json document!");
        row("no comma", R"({"rate":1 "name":"a"})",
            "error at line :0 col :16 msg:invalid json document!");
        row("no closing brace", R"({"rate":1)",
            "error at line :0 col :9 msg:invalid json document!");
        row("closing bracket", R"({"rate":1])",
            "error at line :0 col :10 msg:invalid json document!");
        row("no value", R"({"rate":})",
            "error at line :0 col :9 msg:not a valid unsigned integral like number.");
        row("no value at the end", R"({"rate":)",
            "error at line :0 col :8 msg:not a valid unsigned integral like number.");
        row("open comment for a value", "{\"rate\":/*",
            "error at line :0 col :10 msg:not a valid unsigned integral like number.");
        row("array for a number", R"({"rate":[]})",
            "error at line :0 col :9 msg:not a valid unsigned integral like number.");
        row("number for text", R"({"name":5})", "error at line :0 col :9 msg:not a valid string.");
        row("unknown value breaks off", R"({"unknown":)",
            "error at line :0 col :11 msg:invalid json document!");
        row("unknown object breaks off", R"({"unknown":{"a":1)",
            "error at line :0 col :17 msg:invalid json document!");
        row("colon behind a known value", R"({"rate":1:2})",
            "error at line :0 col :10 msg:invalid json document!");
        row("value runs into a word", "{\"rate\":12abc}",
            "error at line :0 col :13 msg:invalid json document!");
        row("second line", "{\n  \"rate\": x1y\n  \"name\": 5 }",
            "error at line :2 col :9 msg:invalid json document!");
        row("CRLF gives the same place", "{\r\n  \"rate\": x1y\r\n  \"name\": 5 }",
            "error at line :2 col :9 msg:invalid json document!");
    }
    void records()
    {
        QFETCH(QByteArray, text);
        QTEST(decoded<Inner>(text), "result");
    }

    void nestedValues_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("result"); // of Outer, without what stands at its default
        const auto row = [](const char *name, const char *text, const char *result) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(result);
        };

        row("all of it",
            R"({"number":-5,"text":"a","inner":{"rate":1,"name":"b"},"list":[{"rate":2},)"
            R"({"name":"c"}],"numbers":[1,-2],"texts":["d","\n"],"last":9})",
            R"({"number":-5,"text":"a","inner":{"rate":1,"name":"b"},"list":[{"rate":2,)"
            R"("name":"none"},{"rate":7,"name":"c"}],"numbers":[1,-2],"texts":["d","\n"],)"
            R"("last":9})");
        row("repeated lists grow", R"({"numbers":[1],"numbers":[2,3]})",
            R"({"number":-1,"text":"unset","inner":{"rate":7,"name":"none"},"list":[],)"
            R"("numbers":[1,2,3],"texts":[],"last":65535})");
        row("repeated records are not reset", R"({"inner":{"rate":1},"inner":{"name":"x"}})",
            R"({"number":-1,"text":"unset","inner":{"rate":1,"name":"x"},"list":[],)"
            R"("numbers":[],"texts":[],"last":65535})");
        row("empty lists", R"({"list":[],"numbers":[ ],"texts":[]})",
            R"({"number":-1,"text":"unset","inner":{"rate":7,"name":"none"},"list":[],)"
            R"("numbers":[],"texts":[],"last":65535})");
        row("trailing commas in lists", R"({"list":[{"rate":1},],"numbers":[1,],"texts":["a",]})",
            R"({"number":-1,"text":"unset","inner":{"rate":7,"name":"none"},)"
            R"("list":[{"rate":1,"name":"none"}],"numbers":[1],"texts":["a"],"last":65535})");
        row("empty record as a value ends the record around it",
            R"({"number":1,"inner":{},"last":2})",
            R"({"number":1,"text":"unset","inner":{"rate":7,"name":"none"},"list":[],)"
            R"("numbers":[],"texts":[],"last":65535})");
        row("and then the rest is not looked at", "{\"inner\":{} ] \"open",
            R"({"number":-1,"text":"unset","inner":{"rate":7,"name":"none"},"list":[],)"
            R"("numbers":[],"texts":[],"last":65535})");
        row("quoted text passes for brackets", R"({"numbers":"[" 1 "," 2 "]" })",
            R"({"number":-1,"text":"unset","inner":{"rate":7,"name":"none"},"list":[],)"
            R"("numbers":[1,2],"texts":[],"last":65535})");

        row("number for a record", R"({"inner":5})",
            "error at line :0 col :10 msg:read object must start with {!");
        row("record for a list", R"({"list":{}})",
            "error at line :0 col :9 msg:array must start with [.");
        row("number for a list", R"({"numbers":1})",
            "error at line :0 col :12 msg:array must start with [.");
        row("empty record in a list", R"({"list":[{},{"rate":1}]})",
            "error at line :0 col :11 msg:no valid array!");
        row("list breaks off", R"({"numbers":[1)", "error at line :0 col :13 msg:no valid array!");
        row("list without a comma", R"({"numbers":[1 2]})",
            "error at line :0 col :15 msg:no valid array!");
        row("list of commas", R"({"numbers":[,]})",
            "error at line :0 col :13 msg:not a valid signed integral like number.");
        row("brace ends a list", R"({"numbers":[1}})",
            "error at line :0 col :14 msg:no valid array!");
        row("comma behind the last", R"({"numbers":[1],})",
            "error at line :0 col :16 msg:object key must be string");
        row("closed comment behind a nested value", "{\"inner\":{\"rate\":1}/**/}",
            "error at line :0 col :23 msg:not a comment!");
        row("bad text behind a nested value", "{\"numbers\":[1]\"open}",
            "error at line :0 col :20 msg:not a valid quote string!");
    }
    void nestedValues()
    {
        QFETCH(QByteArray, text);
        QTEST(decoded<Outer>(text), "result");
    }

    void topLevelLists_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("result");
        const auto row = [](const char *name, const char *text, const char *result) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(result);
        };

        row("empty", "[]", "[]");
        row("one", R"([{"rate":1}])", R"([{"rate":1,"name":"none"}])");
        row("trailing comma", R"([{"rate":1},])", R"([{"rate":1,"name":"none"}])");
        row("text behind the end", "[{\"rate\":1}]\"open", R"([{"rate":1,"name":"none"}])");
        row("open comment behind the last element", "[{\"rate\":1}]/* x",
            R"([{"rate":1,"name":"none"}])");
        row("empty record", R"([{},{"a":1}])", "error at line :0 col :3 msg:no valid array!");
        row("empty record alone", "[{}]", "error at line :0 col :3 msg:no valid array!");
        row("object", "{}", "error at line :0 col :1 msg:array must start with [.");
        row("nothing", "", "error at line :0 col :0 msg:array must start with [.");
        row("open comment alone", "/*", "error at line :0 col :2 msg:array must start with [.");
        row("breaks off", "[", "error at line :0 col :1 msg:read object must start with {!");
        row("breaks off behind a comma", R"([{"rate":1},)",
            "error at line :0 col :12 msg:read object must start with {!");
        row("number in it", "[5]", "error at line :0 col :2 msg:read object must start with {!");
    }
    void topLevelLists()
    {
        QFETCH(QByteArray, text);
        QTEST(decoded<std::vector<Inner>>(text), "result");
    }

    void listsOfValuesAsDocuments()
    {
        QCOMPARE(decoded<std::vector<int>>("[1, 2.5, \"3\", true ]"), QByteArray("[1,2,3,1]"));
        QCOMPARE(decoded<std::vector<std::string>>("[\"a\", b ]"), QByteArray("[\"a\",\"b\"]"));
        QCOMPARE(decoded<std::vector<std::vector<int>>>("[[1],[],[2,3]]"),
                 QByteArray("[[1],[],[2,3]]"));
    }

    void namesInAnotherOrderThanMemory()
    {
        QCOMPARE(encoded(Swapped()), QByteArray(R"({"second":2,"first":1})"));
        QCOMPARE(decoded<Swapped>(R"({"first":3,"second":4})"),
                 QByteArray(R"({"second":4,"first":3})"));
    }

    void listsAreNotCleared()
    {
        std::vector<int> numbers = { 1, 2 };
        std::string error;
        QVERIFY(ajson::decodeJson(std::string("[3]"), numbers, error));
        QCOMPARE(numbers, std::vector<int>({ 1, 2, 3 }));
    }

    void theTextEndsAtItsFirstNul()
    {
        QCOMPARE(decoded<Inner>(QByteArray("{\"rate\":1}\0{", 12)),
                 QByteArray(R"({"rate":1,"name":"none"})"));
        QCOMPARE(decoded<Inner>(QByteArray("{\"rate\":1\0}", 11)),
                 QByteArray("error at line :0 col :9 msg:invalid json document!"));
    }

    void aNulAtTheBeginning()
    {
        QCOMPARE(decoded<Inner>(QByteArray("\0{}", 3)),
                 QByteArray("error at line :0 col :0 msg:read object must start with {!"));
        QCOMPARE(decoded<std::vector<Inner>>(QByteArray("\0[]", 3)),
                 QByteArray("error at line :0 col :0 msg:array must start with [."));
    }

    // With a limit in the place of a NUL: the walk goes without its looks ahead, and nothing else
    // is different.
    void limitedReader()
    {
        const std::string text = RecordText;
        for (std::size_t length = 0; length <= text.size(); ++length) {
            const GuardedText guarded(text.substr(0, length), GuardedText::End::Limit);
            Outer limited;
            Outer whole;
            QCOMPARE(readBy(ajson::Reader(guarded.begin(), length), limited),
                     readBy(ajson::Reader(text.substr(0, length).c_str()), whole));
            QCOMPARE(encoded(limited), encoded(whole));
        }
        Outer record;
        const std::string longer = "{\"number\":1234}";
        QCOMPARE(readBy(ajson::Reader(longer.c_str(), 13), record),
                 QByteArray("error at line :0 col :13 msg:invalid json document!"));
        QCOMPARE(record.number, 123);
    }

    // Every beginning of a record's text, directly before memory that may not be read.
    void nothingBehindTheNulIsRead()
    {
        const std::string text = RecordText;
        for (std::size_t length = 0; length < text.size(); ++length) {
            const std::string beginning = text.substr(0, length);
            const GuardedText guarded(beginning);
            Outer record;
            const QByteArray message = readBy(ajson::Reader(guarded.begin()), record);
            QVERIFY2(message.startsWith("error at line :"), beginning.c_str());
            QCOMPARE(message, decoded<Outer>(asBytes(beginning)));
        }
        const GuardedText guarded(text);
        Outer record;
        QCOMPARE(readBy(ajson::Reader(guarded.begin()), record),
                 QByteArray(R"({"number":-12,"text":"0123456789abcdef012345","inner":{"rate":42,)"
                            R"("name":"A"},"list":[{"rate":15,"name":"b"},{"rate":1,)"
                            R"("name":"word"}],"numbers":[1,2],"texts":["c"],"last":65535})"));
    }

    // Each of the allocations that a text takes fails in turn.
    void shortOfMemory()
    {
        const std::string input = "{\"numbers\":[1,2,3,4,5],\"text\":\"" + std::string(100, 'x')
            + "\",\"unknown\":" + std::string(2000, '[') + std::string(2000, ']') + "}";
        std::size_t needed = 0;
        {
            Outer record;
            std::string error;
            ::allocations = 0;
            const bool isRead = ajson::decodeJson(input, record, error);
            needed = ::allocations;
            QVERIFY2(isRead, error.c_str());
        }
        QVERIFY(needed >= 4);
        for (std::size_t some = 0; some < needed; ++some) {
            Outer record;
            std::string error = "replaced";
            ::allocationsLeft = some;
            const bool isRead = ajson::decodeJson(input, record, error);
            ::allocationsLeft = std::numeric_limits<std::size_t>::max();
            QVERIFY(!isRead);
            QCOMPARE(asBytes(error), QByteArray("std::bad_alloc"));
        }
    }

    void aFailureLeavesWhatWasRead()
    {
        Inner record;
        std::string error = "replaced";
        QVERIFY(!ajson::decodeJson(std::string(R"({"rate":1,"name":5})"), record, error));
        QCOMPARE(asBytes(error), QByteArray("error at line :0 col :18 msg:not a valid string."));
        QCOMPARE(int(record.rate), 1);
        QCOMPARE(asBytes(record.name), QByteArray("none"));
    }

    // Short texts live in the string itself, so what counts is lists and long texts.
    void allocations_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("count");

        const QByteArray longText(100, 'x');
        QTest::newRow("numbers and short texts")
            << QByteArray(R"({"number":-5,"text":"a\nb","inner":{"rate":true,"name":"b"}})") << 0;
        QTest::newRow("unknown values")
            << QByteArray("{\"a\":[{\"b\":[1,{\"c\":[]}]}],\"number\":1.5e300,\"d\":\"") + longText
                + "\"}"
            << 0;
        QTest::newRow("long text") << "{\"text\":\"" + longText + "\"}" << 1;
        QTest::newRow("long text with escapes") << "{\"text\":\"" + longText + "\\n\"}" << 1;
        QTest::newRow("list of up to four") << QByteArray(R"({"numbers":[1,2,3,4]})") << 1;
        QTest::newRow("list that grows once")
            << QByteArray(R"({"numbers":[1,2,3,4,5,6,7,8]})") << 2;
        QTest::newRow("indented") << QByteArray("{\n    \"list\": [\n        {\n            "
                                                "\"rate\": 1\n        }\n    ]\n}")
                                  << 1;
    }
    void allocations()
    {
        QFETCH(QByteArray, text);
        const std::string input = text.toStdString();
        Outer record;
        std::string error;
        ::allocations = 0;
        const bool isRead = ajson::decodeJson(input, record, error);
        const std::size_t count = ::allocations;
        QVERIFY2(isRead, error.c_str());
        QTEST(int(count), "count");
    }

    void writingAShortTextAllocatesNothing()
    {
        std::string text;
        text.reserve(1024);
        const Outer record;
        ::allocations = 0;
        ajson::encodeJson(text, record);
        const std::size_t count = ::allocations;
        QCOMPARE(count, std::size_t(0));
    }

    // Lists that grow by doubling, and nothing that is looked at again for each element.
    void timeIsLinear()
    {
        // The processor time of this thread, the best of some: other programs do not count.
        const auto timeFor = [](int count) {
            std::string text = "{\"unknown\":[";
            for (int i = 0; i < count; ++i)
                text += "[{\"a\":\"b\\\\\"}],\n   12.5e3,";
            text += "],\"list\":[";
            for (int i = 0; i < count; ++i)
                text += "{\"name\":\"\\u0041b\", \"x\":1 , \"rate\":\"12\"},\n";
            text += "]} ";
            std::int64_t best = std::numeric_limits<std::int64_t>::max();
            for (int i = 0; i < 5; ++i) {
                Outer record;
                std::string error;
                const std::int64_t start = threadTime();
                const bool isRead = ajson::decodeJson(text, record, error);
                best = std::min(best, threadTime() - start);
                if (!isRead || record.list.size() != static_cast<std::size_t>(count))
                    return std::int64_t(-1);
            }
            return best;
        };
        const std::int64_t few = timeFor(2000);
        const std::int64_t many = timeFor(20000);
        QVERIFY(few > 0 && many > 0);
        // Ten times the text; what is quadratic would take a hundred times as long.
        QVERIFY2(many < 40 * few, QByteArray::number(double(many) / double(few)).constData());
    }

    // The same through the whole binding: a million brackets on a small stack.
    void deepNestingTakesNoStack()
    {
        static std::string text;
        text = "{\"unknown\":" + std::string(1000000, '[') + std::string(1000000, ']')
            + ",\"rate\":3}";
        static Inner record;
        record = Inner();
        static bool isRead;
        isRead = false;

        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        QCOMPARE(pthread_attr_setstacksize(&attributes, 512 * 1024), 0);
        pthread_t thread {};
        const auto read = [](void *) -> void * {
            std::string error;
            isRead = ajson::decodeJson(text, record, error);
            return nullptr;
        };
        QCOMPARE(pthread_create(&thread, &attributes, read, nullptr), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
        QVERIFY(isRead);
        QCOMPARE(int(record.rate), 3);
    }
};

QTEST_APPLESS_MAIN(tst_JsonBinding)
#include "tst_jsonbinding.moc"
