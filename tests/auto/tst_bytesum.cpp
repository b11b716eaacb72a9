#include "bytesum.h"

#include <QtTest>

using Velmar::Firmware::byteSum;

class tst_ByteSum : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sums_data();
    void sums();
    void startsAnywhere_data();
    void startsAnywhere();
};

void tst_ByteSum::sums_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint32>("sum");

    QTest::newRow("nothing") << QByteArray() << 0u;
    QTest::newRow("one byte") << QByteArray("\x07", 1) << 7u;
    QTest::newRow("bytes are unsigned") << QByteArray("\xFF\x80", 2) << 383u;
    QTest::newRow("less than a lane") << QByteArray(15, '\x01') << 15u;
    QTest::newRow("one lane") << QByteArray(16, '\x02') << 32u;
    QTest::newRow("a lane and a byte") << QByteArray(17, '\x02') << 34u;
    QTest::newRow("two lanes") << QByteArray(32, '\xFF') << 8160u;
    QTest::newRow("two lanes and the longest rest") << QByteArray(63, '\xFF') << 16065u;
    QTest::newRow("over 16 bits") << QByteArray(300, '\xFF') << 76500u;
    QTest::newRow("over 31 bits") << QByteArray(10000000, '\xFF') << 2550000000u;
    QTest::newRow("wraps at 32 bits") << QByteArray(16843010, '\xFF') << 254u;
}

void tst_ByteSum::sums()
{
    QFETCH(QByteArray, bytes);

    const auto *data = reinterpret_cast<const unsigned char *>(bytes.constData());

    QTEST(byteSum(data, static_cast<std::size_t>(bytes.size())), "sum");
}

void tst_ByteSum::startsAnywhere_data()
{
    QTest::addColumn<int>("first");

    for (int first = 0; first < 17; ++first)
        QTest::newRow(qPrintable(QStringLiteral("from byte %1 on").arg(first))) << first;
}

void tst_ByteSum::startsAnywhere()
{
    QFETCH(int, first);
    // 100 bytes of 3 between bytes that must not be counted.
    QByteArray bytes(200, '\x64');
    bytes.replace(first, 100, QByteArray(100, '\x03'));

    const auto *data = reinterpret_cast<const unsigned char *>(bytes.constData());

    QCOMPARE(byteSum(data + first, 100), 300u);
}

QTEST_APPLESS_MAIN(tst_ByteSum)
#include "tst_bytesum.moc"
