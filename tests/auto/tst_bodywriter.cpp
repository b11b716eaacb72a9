#include "bodywriter.h"

#include <QTemporaryDir>
#include <QtTest>

using Velmar::Firmware::BodyWriter;

class tst_BodyWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void appendsBackToBack();
    void wholePieces_data();
    void wholePieces();
    void fileChangesBehindItsSize_data();
    void fileChangesBehindItsSize();
    void lengthIsCutTo32Bits();
    void fullDiskGoesUnnoticed();
    void destructorHandsOverTheRest();

private:
    QString path(const QString &name) const { return m_folder->filePath(name); }
    bool store(const QString &name, const QByteArray &bytes) const;
    QByteArray stored(const QString &name) const;

    QScopedPointer<QTemporaryDir> m_folder;
};

void tst_BodyWriter::init()
{
    m_folder.reset(new QTemporaryDir);
    QVERIFY(m_folder->isValid());
}

bool tst_BodyWriter::store(const QString &name, const QByteArray &bytes) const
{
    QFile file(path(name));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray tst_BodyWriter::stored(const QString &name) const
{
    QFile file(path(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void tst_BodyWriter::appendsBackToBack()
{
    QVERIFY(store("one", "abc"));
    QVERIFY(store("two", "\xFF"));
    QFile one(path("one"));
    QFile two(path("two"));
    QFile image(path("image"));
    QVERIFY(one.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(two.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Unbuffered));

    BodyWriter writer(image, 5);
    QCOMPARE(writer.position(), Q_INT64_C(5));
    QVERIFY(writer.append(one, 3));
    QVERIFY(writer.append(two, 1));
    QCOMPARE(writer.position(), Q_INT64_C(9));
    QCOMPARE(writer.sum(), 549u); // 97 + 98 + 99 + 255
    writer.flush();

    QCOMPARE(writer.position(), Q_INT64_C(9));
    QCOMPARE(stored("image"), QByteArray("\0\0\0\0\0abc\xFF", 9));
}

void tst_BodyWriter::wholePieces_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("length");

    QTest::newRow("fills the first piece exactly") << 520 << 261624;
    QTest::newRow("one byte over the first piece") << 520 << 261625;
    QTest::newRow("starts at the end of a piece") << 262143 << 2;
    QTest::newRow("starts at a piece") << 262144 << 262144;
    QTest::newRow("several pieces and a rest") << 2368 << 1000000;
}

void tst_BodyWriter::wholePieces()
{
    QFETCH(int, position);
    QFETCH(int, length);
    QByteArray body(length, '\x01');
    body[0] = '\x02';
    body[length - 1] = '\x03';
    QVERIFY(store("body", body));
    QFile source(path("body"));
    QFile image(path("image"));
    QVERIFY(source.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Unbuffered));

    BodyWriter writer(image, position);
    QVERIFY(writer.append(source, length));
    writer.flush();

    QCOMPARE(writer.position(), qint64(position) + length);
    QCOMPARE(writer.sum(), quint32(length) + 3);
    const QByteArray written = stored("image");
    QCOMPARE(written.size(), position + length);
    QVERIFY(written.left(position) == QByteArray(position, '\0'));
    QVERIFY(written.mid(position) == body);
}

void tst_BodyWriter::fileChangesBehindItsSize_data()
{
    QTest::addColumn<QByteArray>("found");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QByteArray>("written");

    QTest::newRow("shrank") << QByteArray("abc") << 5 << QByteArray("abc");
    QTest::newRow("shrank to nothing") << QByteArray() << 5 << QByteArray();
    QTest::newRow("grew") << QByteArray("abcdef") << 5 << QByteArray("abcde");
    QTest::newRow("length is negative") << QByteArray("abc") << -3 << QByteArray();
}

void tst_BodyWriter::fileChangesBehindItsSize()
{
    QFETCH(QByteArray, found);
    QFETCH(int, expected);
    QVERIFY(store("body", found));
    QFile source(path("body"));
    QFile image(path("image"));
    QVERIFY(source.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Unbuffered));

    BodyWriter writer(image, 0);
    QVERIFY(!writer.append(source, expected));
    writer.flush();

    QTEST(stored("image"), "written");
}

void tst_BodyWriter::lengthIsCutTo32Bits()
{
    QVERIFY(store("body", "abcdefghij"));
    QVERIFY(QFile::resize(path("body"), Q_INT64_C(4294967306))); // 4 GiB and 10 bytes, sparse
    QFile source(path("body"));
    QFile image(path("image"));
    QVERIFY(source.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Unbuffered));

    BodyWriter writer(image, 0);
    QVERIFY(writer.append(source, 10));
    writer.flush();

    QCOMPARE(stored("image"), QByteArray("abcdefghij"));
}

void tst_BodyWriter::fullDiskGoesUnnoticed()
{
    QVERIFY(store("body", "abc"));
    QFile source(path("body"));
    QFile image(QStringLiteral("/dev/full"));
    QVERIFY(source.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Unbuffered));

    BodyWriter writer(image, 0);
    QVERIFY(writer.append(source, 3));
    writer.flush();

    QCOMPARE(image.error(), QFileDevice::ResourceError);
    QCOMPARE(writer.position(), Q_INT64_C(3));
    QCOMPARE(writer.sum(), 294u);
}

void tst_BodyWriter::destructorHandsOverTheRest()
{
    QVERIFY(store("body", "abc"));
    QFile source(path("body"));
    QFile image(path("image"));
    QVERIFY(source.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    {
        BodyWriter writer(image, 0);
        QVERIFY(writer.append(source, 3));
        QCOMPARE(stored("image"), QByteArray());
    }

    QCOMPARE(stored("image"), QByteArray("abc"));
}

QTEST_APPLESS_MAIN(tst_BodyWriter)
#include "tst_bodywriter.moc"
