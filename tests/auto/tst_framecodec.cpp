#include <velmarssproxy/framecodec.h>
#include <velmarssproxy/linkmessages.h>

#include <QCborArray>
#include <QCborValue>
#include <QtTest>

using namespace Velmar::SSProxy;

namespace {

// {"op": "ping"}
const QByteArray PingBytes = QByteArray::fromHex("a1626f706470696e67");

QCborMap pingMap()
{
    QCborMap map;
    map.insert(QLatin1String("op"), QLatin1String("ping"));
    return map;
}

// Maps in one another, the innermost one empty: {"a": {"a": ... {}}}.
QByteArray nestedMaps(int depth)
{
    QByteArray bytes;
    for (int i = 1; i < depth; ++i)
        bytes.append("\xa1\x61\x61", 3);
    return bytes.append('\xa0');
}

// {"a": [0, 0, ...]}: the map, the key, the array and its elements count as items.
QByteArray mapOfItems(int items)
{
    const int elements = items - 3;
    QByteArray bytes("\xa1\x61\x61\x9a", 4);
    bytes.append(char(elements >> 24)).append(char(elements >> 16));
    bytes.append(char(elements >> 8)).append(char(elements));
    return bytes.append(elements, '\0');
}

} // namespace

class tst_FrameCodec : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frameIsLengthAndMap();
    void longestFrame();
    void frameThatNobodyTakes_data();
    void frameThatNobodyTakes();
    void messageIsRead_data();
    void messageIsRead();
    void hostileMessageIsRefused_data();
    void hostileMessageIsRefused();
    void everyCutOffMessageIsRefused();
    void everyFlippedBitIsSurvived();
    void reader_data();
    void reader();
    void readerStaysBroken_data();
    void readerStaysBroken();
    void requestShape_data();
    void requestShape();
    void answerShape_data();
    void answerShape();
    void messagesComeBackAsTheyWent();
};

void tst_FrameCodec::frameIsLengthAndMap()
{
    QCOMPARE(encodeFrame(pingMap()).toHex(), QByteArray("00000009a1626f706470696e67"));
}

void tst_FrameCodec::longestFrame()
{
    // {"b": bytes}: one byte for the map, two for the key, five for the length of the bytes.
    QCborMap map;
    map.insert(QLatin1String("b"), QByteArray(MaxMessageSize - 8, 'x'));
    const QByteArray frame = encodeFrame(map);
    QCOMPARE(frame.size(), 4 + 1048576);

    FrameReader reader;
    reader.append(frame);
    QCborMap message;
    QCOMPARE(reader.next(message), FrameReader::Status::Message);
    QCOMPARE(message, map);

    map.insert(QLatin1String("b"), QByteArray(MaxMessageSize - 7, 'x'));
    QVERIFY(encodeFrame(map).isNull());
}

void tst_FrameCodec::frameThatNobodyTakes_data()
{
    QTest::addColumn<QCborMap>("message");
    QTest::addColumn<bool>("isTaken");

    // The map, its key and the array are three items.
    const auto items = [](int count) {
        QCborArray array;
        for (int i = 3; i < count; ++i)
            array.append(0);
        return QCborMap { { "a", array } };
    };
    QTest::newRow("65,536 items") << items(65536) << true;
    QTest::newRow("65,537 items") << items(65537) << false;
    const auto nested = [](int depth) {
        QCborMap message;
        for (int i = 1; i < depth; ++i)
            message = QCborMap { { "a", message } };
        return message;
    };
    QTest::newRow("nested 16 deep") << nested(16) << true;
    QTest::newRow("nested 17 deep") << nested(17) << false;
    QTest::newRow("number as key") << QCborMap { { 1, 1 } } << false;
    QTest::newRow("tag") << QCborMap { { "a", QCborValue(QCborTag(1000), 1) } } << false;
}

void tst_FrameCodec::frameThatNobodyTakes()
{
    QFETCH(QCborMap, message);
    QTEST(!encodeFrame(message).isNull(), "isTaken");
}

void tst_FrameCodec::messageIsRead_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("diagnostic");

    QTest::newRow("text") << PingBytes << "{\"op\": \"ping\"}";
    QTest::newRow("empty map") << QByteArray::fromHex("a0") << "{}";
    QTest::newRow("numbers of each width")
        << QByteArray::fromHex("a16161860017"
                               "18ff"
                               "19ffff"
                               "1affffffff"
                               "1b7fffffffffffffff")
        << "{\"a\": [0, 23, 255, 65535, 4294967295, 9223372036854775807]}";
    QTest::newRow("negative number") << QByteArray::fromHex("a1616120") << "{\"a\": -1}";
    QTest::newRow("bytes") << QByteArray::fromHex("a161614201ff") << "{\"a\": h'01ff'}";
    QTest::newRow("simple values")
        << QByteArray::fromHex("a1616183f4f5f6") << "{\"a\": [false, true, null]}";
    QTest::newRow("floating point")
        << QByteArray::fromHex("a16161fb3ff8000000000000") << "{\"a\": 1.5}";
    QTest::newRow("empty containers") << QByteArray::fromHex("a2616180"
                                                             "6162a0")
                                      << "{\"a\": [], \"b\": {}}";
    QTest::newRow("map behind an array in an array") << QByteArray::fromHex("a1616182"
                                                                            "818101"
                                                                            "a1616202")
                                                     << "{\"a\": [[[1]], {\"b\": 2}]}";
    QTest::newRow("one key in maps around and beside one another")
        << QByteArray::fromHex("a2616182a1616101a1616102616203")
        << "{\"a\": [{\"a\": 1}, {\"a\": 2}], \"b\": 3}";
    QTest::newRow("length wider than needed") << QByteArray::fromHex("bb0000000000000001"
                                                                     "6161"
                                                                     "01")
                                              << "{\"a\": 1}";
}

void tst_FrameCodec::messageIsRead()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, diagnostic);
    QCborMap message;
    QString errorText;

    QVERIFY2(decodeMessage(bytes, message, errorText), qPrintable(errorText));
    QCOMPARE(message.toCborValue().toDiagnosticNotation(), diagnostic);
}

void tst_FrameCodec::hostileMessageIsRefused_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");

    const QString cutOff = "the message is cut off";
    const QString unknown = "the message has an item of indefinite length or of an unknown kind";
    QTest::newRow("nothing") << QByteArray() << cutOff;
    QTest::newRow("number") << QByteArray::fromHex("01") << "the message is no map";
    QTest::newRow("array") << QByteArray::fromHex("80") << "the message is no map";
    QTest::newRow("text for machines")
        << QByteArray("{\"op\":\"ping\"}") << "the message is no map";
    QTest::newRow("number as key")
        << QByteArray::fromHex("a10101") << "the message has a key that is no text";
    QTest::newRow("number as key further in")
        << QByteArray::fromHex("a16161a10101") << "the message has a key that is no text";
    QTest::newRow("number as second key")
        << QByteArray::fromHex("a26161010101") << "the message has a key that is no text";
    QTest::newRow("map as key") << QByteArray::fromHex("a1a001")
                                << "the message has a key that is no text";
    const QString twice = "the message has a map with a key twice";
    QTest::newRow("key twice") << QByteArray::fromHex("a2616101616102") << twice;
    QTest::newRow("key twice, not side by side")
        << QByteArray::fromHex("a3616101616202616103") << twice;
    QTest::newRow("key twice, its length in two ways")
        << QByteArray::fromHex("a261610178016102") << twice;
    QTest::newRow("empty key twice") << QByteArray::fromHex("a260016002") << twice;
    QTest::newRow("key twice further in") << QByteArray::fromHex("a1616181a2616201616202") << twice;
    QTest::newRow("key again behind a map") << QByteArray::fromHex("a26161a1616201616102") << twice;
    QTest::newRow("bytes behind it") << PingBytes + '\0' << "there are bytes behind the message";
    QTest::newRow("two messages") << PingBytes + PingBytes << "there are bytes behind the message";
    QTest::newRow("tag") << QByteArray::fromHex("a16161c001") << "the message has a tag";
    QTest::newRow("tagged map") << QByteArray::fromHex("d9d9f7a0") << "the message is no map";
    QTest::newRow("map of indefinite length") << QByteArray::fromHex("bf616101ff") << unknown;
    QTest::newRow("text of indefinite length") << QByteArray::fromHex("a161617f6161ff") << unknown;
    QTest::newRow("break without a beginning") << QByteArray::fromHex("a16161ff") << unknown;
    QTest::newRow("reserved width") << QByteArray::fromHex("a161611c") << unknown;
    QTest::newRow("text no UTF-8")
        << QByteArray::fromHex("a1616161ff") << "Invalid CBOR stream: invalid UTF-8 text string";

    QTest::newRow("map of 2^64 - 1") << QByteArray::fromHex("bbffffffffffffffff") << cutOff;
    QTest::newRow("map of 2^63") << QByteArray::fromHex("bb8000000000000000") << cutOff;
    QTest::newRow("array of 2^64 - 1") << QByteArray::fromHex("a161619bffffffffffffffff") << cutOff;
    QTest::newRow("array of 2^31 - 1") << QByteArray::fromHex("a161619a7fffffff") << cutOff;
    QTest::newRow("text of 2^64 - 1") << QByteArray::fromHex("a161617bffffffffffffffff") << cutOff;
    QTest::newRow("bytes of 2^63 - 1") << QByteArray::fromHex("a161615b7fffffffffffffff") << cutOff;
    QTest::newRow("bytes of 2^31") << QByteArray::fromHex("a161615a80000000") << cutOff;
    QTest::newRow("key of 2^32 - 1") << QByteArray::fromHex("a17affffffff6101") << cutOff;

    QTest::newRow("nested 17 deep") << nestedMaps(17) << "the message is nested too deep";
    QTest::newRow("nested 300,000 deep") << nestedMaps(300000) << "the message is nested too deep";
    QTest::newRow("65,537 items") << mapOfItems(65537) << "the message has too many items";
    QTest::newRow("a million items") << mapOfItems(1000000) << "the message has too many items";
}

void tst_FrameCodec::hostileMessageIsRefused()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    QCborMap message = pingMap();
    QString errorText;

    QVERIFY(!decodeMessage(bytes, message, errorText));
    QCOMPARE(errorText, reason);
    QCOMPARE(message, pingMap());
}

void tst_FrameCodec::everyCutOffMessageIsRefused()
{
    QVERIFY(nestedMaps(16).size() == 46);
    const QList<QByteArray> messages { PingBytes, nestedMaps(16), mapOfItems(300) };
    for (const QByteArray &whole : messages) {
        QCborMap message;
        QString errorText;
        QVERIFY2(decodeMessage(whole, message, errorText), qPrintable(errorText));
        for (int size = 0; size < whole.size(); ++size)
            QVERIFY(!decodeMessage(whole.left(size), message, errorText));
    }
    QCborMap message;
    QString errorText;
    QVERIFY(decodeMessage(mapOfItems(65536), message, errorText));
}

void tst_FrameCodec::everyFlippedBitIsSurvived()
{
    const QByteArray whole = QByteArray::fromHex(
        "a4656c6162656c1a00010203626f706c76657273696f6e2e726561646461726773a2616182f5fb3ff80000"
        "0000000061624301020362737083a1616120a06178");
    QCborMap message;
    QString errorText;
    QVERIFY2(decodeMessage(whole, message, errorText), qPrintable(errorText));

    int read = 0;
    for (int bit = 0; bit < whole.size() * 8; ++bit) {
        QByteArray bytes = whole;
        bytes[bit / 8] = char(bytes.at(bit / 8) ^ (1 << bit % 8));
        // Whatever was let through is a whole map, which goes out again.
        if (decodeMessage(bytes, message, errorText)) {
            QVERIFY(!encodeFrame(message).isNull());
            ++read;
        }
    }
    QVERIFY(read > 0 && read < whole.size() * 8);
}

void tst_FrameCodec::reader_data()
{
    QTest::addColumn<int>("pieceSize");

    QTest::newRow("byte for byte") << 1;
    QTest::newRow("pieces that end in lengths") << 3;
    QTest::newRow("pieces that end in bodies") << 10;
    QTest::newRow("a frame at a time") << 13;
    QTest::newRow("all at once") << 1000;
}

void tst_FrameCodec::reader()
{
    QFETCH(int, pieceSize);
    const QByteArray frame = QByteArray::fromHex("00000009") + PingBytes;
    const QByteArray stream = frame + QByteArray::fromHex("00000001a0") + frame + frame;

    FrameReader reader;
    QVector<QCborMap> messages;
    for (int offset = 0; offset < stream.size(); offset += pieceSize) {
        reader.append(stream.mid(offset, pieceSize));
        QCborMap message;
        FrameReader::Status status = reader.next(message);
        for (; status == FrameReader::Status::Message; status = reader.next(message))
            messages.append(message);
        QCOMPARE(status, FrameReader::Status::Incomplete);
    }

    QCOMPARE(messages, (QVector<QCborMap> { pingMap(), QCborMap(), pingMap(), pingMap() }));
    QVERIFY(reader.errorText().isEmpty());
}

void tst_FrameCodec::readerStaysBroken_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty frame") << QByteArray::fromHex("00000000") << "a frame of 0 bytes";
    QTest::newRow("frame too long")
        << QByteArray::fromHex("00100001") << "a frame of 1048577 bytes";
    QTest::newRow("another protocol")
        << QByteArray("GET / HTTP/1.1\r\n") << "a frame of 1195725856 bytes";
    QTest::newRow("no map") << QByteArray::fromHex("0000000101") << "the message is no map";
}

void tst_FrameCodec::readerStaysBroken()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    FrameReader reader;
    QCborMap message;
    reader.append(encodeFrame(pingMap()) + bytes);

    QCOMPARE(reader.next(message), FrameReader::Status::Message);
    QCOMPARE(reader.next(message), FrameReader::Status::Broken);
    QCOMPARE(reader.errorText(), reason);
    reader.append(encodeFrame(pingMap()));
    QCOMPARE(reader.next(message), FrameReader::Status::Broken);
}

void tst_FrameCodec::requestShape_data()
{
    QTest::addColumn<QCborMap>("message");
    QTest::addColumn<bool>("isRequest");

    const QCborMap whole { { "label", 7 }, { "op", "ping" }, { "args", QCborMap() } };
    QTest::newRow("whole") << whole << true;
    QTest::newRow("with a key that nobody knows")
        << QCborMap { { "label", 7 }, { "op", "ping" }, { "args", QCborMap() }, { "x", 1 } }
        << true;
    QTest::newRow("largest label")
        << QCborMap { { "label", 4294967295LL }, { "op", "ping" }, { "args", QCborMap() } } << true;
    QTest::newRow("empty") << QCborMap() << false;
    QTest::newRow("without label")
        << QCborMap { { "op", "ping" }, { "args", QCborMap() } } << false;
    QTest::newRow("label too large")
        << QCborMap { { "label", 4294967296LL }, { "op", "ping" }, { "args", QCborMap() } }
        << false;
    QTest::newRow("negative label")
        << QCborMap { { "label", -1 }, { "op", "ping" }, { "args", QCborMap() } } << false;
    QTest::newRow("label no integer")
        << QCborMap { { "label", 7.5 }, { "op", "ping" }, { "args", QCborMap() } } << false;
    QTest::newRow("without operation")
        << QCborMap { { "label", 7 }, { "args", QCborMap() } } << false;
    QTest::newRow("operation a number")
        << QCborMap { { "label", 7 }, { "op", 1 }, { "args", QCborMap() } } << false;
    QTest::newRow("without arguments") << QCborMap { { "label", 7 }, { "op", "ping" } } << false;
    QTest::newRow("arguments an array")
        << QCborMap { { "label", 7 }, { "op", "ping" }, { "args", QCborArray() } } << false;
}

void tst_FrameCodec::requestShape()
{
    QFETCH(QCborMap, message);
    QFETCH(bool, isRequest);
    RequestMessage request;
    QString errorText;

    QCOMPARE(request.fromCbor(message, errorText), isRequest);
    QCOMPARE(errorText, isRequest ? QString() : QString("the message is no request"));
    QCOMPARE(request.operation, isRequest ? QString("ping") : QString());
}

void tst_FrameCodec::answerShape_data()
{
    QTest::addColumn<QCborMap>("message");
    QTest::addColumn<bool>("isAnswer");

    QTest::newRow("accepted") << QCborMap { { "label", 7 }, { "ack", 0 }, { "values", QCborMap() } }
                              << true;
    QTest::newRow("refused") << QCborMap {
        { "label", 7 }, { "ack", 1 }, { "values", QCborMap() }, { "error", "no" }
    } << true;
    QTest::newRow("refused without a word")
        << QCborMap { { "label", 7 }, { "ack", 65535 }, { "values", QCborMap() } } << true;
    QTest::newRow("ack too large")
        << QCborMap { { "label", 7 }, { "ack", 65536 }, { "values", QCborMap() } } << false;
    QTest::newRow("negative ack") << QCborMap {
        { "label", 7 }, { "ack", -1 }, { "values", QCborMap() }
    } << false;
    QTest::newRow("without ack") << QCborMap { { "label", 7 }, { "values", QCborMap() } } << false;
    QTest::newRow("without label") << QCborMap { { "ack", 0 }, { "values", QCborMap() } } << false;
    QTest::newRow("without values") << QCborMap { { "label", 7 }, { "ack", 0 } } << false;
    QTest::newRow("values a text")
        << QCborMap { { "label", 7 }, { "ack", 0 }, { "values", "" } } << false;
    QTest::newRow("error a number")
        << QCborMap { { "label", 7 }, { "ack", 1 }, { "values", QCborMap() }, { "error", 5 } }
        << false;
}

void tst_FrameCodec::answerShape()
{
    QFETCH(QCborMap, message);
    QFETCH(bool, isAnswer);
    AnswerMessage answer;
    QString reason;

    QCOMPARE(answer.fromCbor(message, reason), isAnswer);
    QCOMPARE(reason, isAnswer ? QString() : QString("the message is no answer"));
    QCOMPARE(answer.label, isAnswer ? 7u : 0u);
}

void tst_FrameCodec::messagesComeBackAsTheyWent()
{
    QString reason;
    // As in the worked example of docs/device-link.md.
    QCOMPARE(
        encodeFrame(RequestMessage { 1, "device.shutdown", { { "mode", 0 } } }.toCbor()).toHex(),
        QByteArray("00000027a3656c6162656c01626f706f6465766963652e73687574646f776e"
                   "6461726773a1646d6f646500"));
    QCOMPARE(encodeFrame(AnswerMessage { 1, 0, {}, {} }.toCbor()).toHex(),
             QByteArray("00000015a3656c6162656c016361636b006676616c756573a0"));

    const RequestMessage request { 4294967295, "file.close", QCborMap { { "fileId", 3 } } };
    QCOMPARE(request.toCbor().toCborValue().toDiagnosticNotation(),
             QString("{\"label\": 4294967295, \"op\": \"file.close\", \"args\": {\"fileId\": 3}}"));
    RequestMessage readRequest;
    QVERIFY(readRequest.fromCbor(request.toCbor(), reason));
    QCOMPARE(readRequest.label, 4294967295u);
    QCOMPARE(readRequest.operation, QString("file.close"));
    QCOMPARE(readRequest.arguments, request.arguments);

    const AnswerMessage accepted { 1, 0, QCborMap { { "run", 2 } }, QString() };
    QCOMPARE(accepted.toCbor().toCborValue().toDiagnosticNotation(),
             QString("{\"label\": 1, \"ack\": 0, \"values\": {\"run\": 2}}"));
    const AnswerMessage refused { 1, 5, QCborMap(), "wrong sum" };
    QCOMPARE(refused.toCbor().toCborValue().toDiagnosticNotation(),
             QString("{\"label\": 1, \"ack\": 5, \"values\": {}, \"error\": \"wrong sum\"}"));
    AnswerMessage readAnswer;
    QVERIFY(readAnswer.fromCbor(refused.toCbor(), reason));
    QCOMPARE(readAnswer.ack, quint16(5));
    QCOMPARE(readAnswer.errorText, QString("wrong sum"));
}

QTEST_GUILESS_MAIN(tst_FrameCodec)
#include "tst_framecodec.moc"
