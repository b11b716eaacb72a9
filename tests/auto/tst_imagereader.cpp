#include <upgradeimage/imagereader.h>

#include <QtTest>

#include <QBuffer>
#include <QtEndian>

using namespace Velmar::UpgradeImage;

namespace {

struct Body {
    QByteArray targetPath;
    QByteArray bytes;
};

// A sound image for model 0x7701 and version 1.2.3.4.
QByteArray image(const QVector<Body> &bodies)
{
    const auto number = [](quint32 value, int size) {
        QByteArray bytes(4, '\0');
        qToLittleEndian(value, bytes.data());
        return bytes.left(size);
    };
    QByteArray table;
    QByteArray contents;
    for (const Body &body : bodies) {
        table += body.targetPath + QByteArray(256 - body.targetPath.size(), '\0')
            + number(quint32(264 * bodies.size() + contents.size()), 4)
            + number(quint32(body.bytes.size()), 4);
        contents += body.bytes;
    }
    const QByteArray data = table + contents;
    quint16 sum = 0x5555;
    for (const char byte : data)
        sum = quint16(sum + quint8(byte));
    return number(quint32(data.size()), 4) + QByteArray::fromHex("04030201a8")
        + number(quint32(bodies.size()), 2) + QByteArray::fromHex("0177") + QByteArray(243, '\0')
        + data + number(sum, 2);
}

// One body of ten bytes for "a"; the sum is 0x5555 + 525 + 97 + 9 + 10.
QByteArray tenBytes()
{
    return QByteArray::fromHex("1201000004030201a801000177") + QByteArray(243, '\0') + 'a'
        + QByteArray(255, '\0') + QByteArray::fromHex("080100000a000000") + "0123456789"
        + QByteArray::fromHex("d657");
}

QByteArray replaced(QByteArray bytes, int position, const char *hex)
{
    const QByteArray by = QByteArray::fromHex(hex);
    return bytes.replace(position, by.size(), by);
}

/*! A file of which the end is gone by the time it is read. */
class ShrunkFile : public QBuffer
{
public:
    qint64 size() const override { return QBuffer::size() + 100; }
};

} // namespace

class tst_ImageReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sound_data()
    {
        QTest::addColumn<QByteArray>("bytes");

        QTest::newRow("one body of ten bytes") << tenBytes();
        QTest::newRow("the smallest body") << image({ { "a", "x" } });
        QTest::newRow("no bodies") << image({});
        QTest::newRow("an empty path") << image({ { "", "x" } });
        QTest::newRow("a path that fills its field") << image({ { QByteArray(256, 'p'), "x" } });
        QTest::newRow("a path with its last character cut off")
            << image({ { "fond/caf\xc3", "x" } });
        QTest::newRow("bytes above 127") << image({ { "a", QByteArray(1000, '\xff') } });
        QTest::newRow("table and bodies over several buffers")
            << image(QVector<Body>(600, { "same/path", QByteArray(300, 'b') }));
        QTest::newRow("a table of exactly one buffer")
            << image(QVector<Body>(248, { "same/path", "b" }));
        QTest::newRow("the most records") << image(QVector<Body>(65535, { "p", "b" }));
    }
    void sound()
    {
        QFETCH(QByteArray, bytes);
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString errorText;

        const bool ok = ImageReader(file).check(errorText);

        QCOMPARE(errorText, QString());
        QVERIFY(ok);
    }

    void unsound_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("error");

        const QByteArray one = tenBytes();
        const QByteArray two = image({ { "a", "first" }, { "b", "second" } });
        const auto row = [](const char *name, const QByteArray &bytes, const char *error) {
            QTest::newRow(name) << bytes << QString::fromLatin1(error);
        };
        row("empty file", QByteArray(), "the file has 0 bytes, an image at least 258");
        row("a byte below the header and sum", one.left(257),
            "the file has 257 bytes, an image at least 258");
        row("mark", replaced(one, 8, "a7"), "byte 8 of the header is 0xa7 instead of 0xa8");
        row("a byte behind the header's fields", replaced(one, 13, "01"),
            "the header has other bytes than zeros behind its fields");
        row("the last byte of the header", replaced(one, 255, "01"),
            "the header has other bytes than zeros behind its fields");
        row("data length too small", replaced(one, 0, "11010000"),
            "the data length is 273, but the file has room for 274");
        row("data length far too large", replaced(one, 0, "ffffffff"),
            "the data length is 4294967295, but the file has room for 274");
        row("last byte missing", one.left(531),
            "the data length is 274, but the file has room for 273");
        row("a byte behind the sum", one + '\0',
            "the data length is 274, but the file has room for 275");
        row("table longer than the data", replaced(one, 9, "0200"),
            "a table of 2 records does not fit into the data length 274");
        row("more records than any file has", replaced(one, 9, "ffff"),
            "a table of 65535 records does not fit into the data length 274");
        row("fewer records than bodies", replaced(two, 9, "0100"),
            "record 0: its body is at offset 528 instead of 264");
        row("no records but bodies", replaced(one, 9, "0000"),
            "the bodies end at offset 0, but the data at 274");
        row("offset counted from the start of the file", replaced(one, 256 + 256, "08020000"),
            "record 0: its body is at offset 520 instead of 264");
        row("gap before the second body", replaced(two, 520 + 256, "16020000"),
            "record 1: its body is at offset 534 instead of 533");
        row("bodies that overlap", replaced(two, 520 + 256, "10020000"),
            "record 1: its body is at offset 528 instead of 533");
        row("body without bytes", replaced(one, 256 + 260, "00000000"),
            "record 0: its body is empty");
        row("body beyond the data", replaced(one, 256 + 260, "0b000000"),
            "record 0: its body ends at offset 275, but the data at 274");
        row("length that wraps at 32 bits", replaced(one, 256 + 260, "ffffffff"),
            "record 0: its body ends at offset 4294967559, but the data at 274");
        row("body that ends before the data", replaced(one, 256 + 260, "09000000"),
            "the bodies end at offset 273, but the data at 274");
        row("bytes behind the end of a path", replaced(one, 256 + 255, "62"),
            "record 0: there are bytes behind the end of its path");
        row("body changed", replaced(one, 525, "30"), "the sum is 0x57d6 instead of 0x57d1");
        row("table changed", replaced(one, 256, "62"), "the sum is 0x57d6 instead of 0x57d7");
        row("sum changed", replaced(one, 530, "d757"), "the sum is 0x57d7 instead of 0x57d6");
        row("sum in the other byte order", replaced(one, 530, "57d6"),
            "the sum is 0xd657 instead of 0x57d6");
        row("sum of signed bytes", image({ { "a", "\x80" } }).chopped(1) + 'U',
            "the sum is 0x5540 instead of 0x5640");
    }
    void unsound()
    {
        QFETCH(QByteArray, bytes);
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QString errorText;

        QVERIFY(!ImageReader(file).check(errorText));

        QTEST(errorText, "error");
    }

    // All but what the sum cannot see: the version and the model, and two changes that cancel out.
    void everyBitButVersionAndModelCounts()
    {
        for (int bit = 0; bit < 8 * 532; ++bit) {
            const int byte = bit / 8;
            const bool isFree = (byte >= 4 && byte < 8) || byte == 11 || byte == 12;
            QByteArray bytes = tenBytes();
            bytes[byte] = char(bytes[byte] ^ (1 << bit % 8));
            QBuffer file(&bytes);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QString errorText;

            QVERIFY2(ImageReader(file).check(errorText) == isFree,
                     qPrintable(QString::number(bit)));
        }
    }

    void header()
    {
        QByteArray bytes = tenBytes();
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        ImageReader reader(file);
        QString errorText;

        QVERIFY(reader.readHeader(errorText));

        QCOMPARE(reader.header().dataLength, 274U);
        QCOMPARE(reader.header().version, 0x01020304U);
        QCOMPARE(reader.header().mark, quint8(0xA8));
        QCOMPARE(reader.header().recordCount, quint16(1));
        QCOMPARE(reader.header().modelId, quint16(0x7701));
        QCOMPARE(reader.headerFault(), QString());
    }

    void records()
    {
        QByteArray bytes = image({ { "fw/a.bin", "first" }, { "fw/b.bin", "second!" } });
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        ImageReader reader(file);
        QString errorText;
        QVERIFY(reader.readHeader(errorText));
        QVector<ImageRecord> records;

        QVERIFY(reader.readRecords(
            [&records](const ImageRecord &record) {
                records.append(record);
                return true;
            },
            errorText));

        QCOMPARE(records.size(), 2);
        QCOMPARE(records[0].index, 0);
        QCOMPARE(records[0].targetPath, QByteArray("fw/a.bin"));
        QCOMPARE(records[0].offset, 528U);
        QCOMPARE(records[0].length, 5U);
        QCOMPARE(records[0].bodyPosition(), qint64(784));
        QCOMPARE(records[0].fault, QString());
        QCOMPARE(records[1].index, 1);
        QCOMPARE(records[1].targetPath, QByteArray("fw/b.bin"));
        QCOMPARE(records[1].offset, 533U);
        QCOMPARE(records[1].length, 7U);
        QCOMPARE(bytes.mid(int(records[1].bodyPosition()), 7), QByteArray("second!"));
    }

    void recordsOfAnUnsoundImage()
    {
        QByteArray bytes = image({ { "a", "first" }, { "b", "second" }, { "c", "third" } });
        bytes = replaced(bytes, 256 + 264 + 256, "00000000").left(256 + 2 * 264 + 2);
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        ImageReader reader(file);
        QString errorText;
        QVERIFY(reader.readHeader(errorText));
        QStringList faults;

        QVERIFY(!reader.readRecords(
            [&faults](const ImageRecord &record) {
                faults.append(record.fault);
                return true;
            },
            errorText));

        QCOMPARE(reader.headerFault(),
                 QStringLiteral("the data length is 808, but the file has room for 528"));
        QCOMPARE(faults,
                 QStringList({ QStringLiteral("its body ends at offset 797, but the data at 528"),
                               QStringLiteral("its body is at offset 0 instead of 797") }));
        QCOMPARE(errorText,
                 QStringLiteral("record 0: its body ends at offset 797, but the data at 528"));
    }

    void visitorEndsTheReading()
    {
        QByteArray bytes = image({ { "a", "first" }, { "b", "second" } });
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        ImageReader reader(file);
        QString errorText = QStringLiteral("former");
        QVERIFY(reader.readHeader(errorText));
        int visits = 0;

        QVERIFY(!reader.readRecords(
            [&visits](const ImageRecord &) {
                ++visits;
                return false;
            },
            errorText));

        QCOMPARE(visits, 1);
        QCOMPARE(errorText, QStringLiteral("former"));
    }

    // The visitor may move the file's position, to read the body that it was told of.
    void bodiesAreReadOnTheWay()
    {
        QByteArray bytes = image(QVector<Body>(300, { "p", "body" }));
        QBuffer file(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        ImageReader reader(file);
        QString errorText;
        QVERIFY(reader.readHeader(errorText));
        int bodies = 0;

        QVERIFY(reader.readRecords(
            [&](const ImageRecord &record) {
                bodies += file.seek(record.bodyPosition()) && file.read(record.length) == "body";
                return true;
            },
            errorText));

        QCOMPARE(bodies, 300);
    }

    void fileBecomesShorter()
    {
        QByteArray bytes = image({ { "a", "first" } }).left(300);
        ShrunkFile file;
        file.setBuffer(&bytes);
        QVERIFY(file.open(QIODevice::ReadOnly));
        ImageReader reader(file);
        QString errorText;
        ImageSums sums;
        QVERIFY(reader.readHeader(errorText));

        QVERIFY(!reader.readSums(sums, errorText));

        QCOMPARE(errorText, QStringLiteral("the file became shorter while it was read"));
    }
};

QTEST_GUILESS_MAIN(tst_ImageReader)

#include "tst_imagereader.moc"
