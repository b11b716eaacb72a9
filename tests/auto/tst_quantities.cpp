#include "show/quantities.h"
#include "show/textcolumns.h"

#include <QtTest>

#include <clocale>

using namespace Velmar::Host;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Times, amounts and widths as people see them.
class tst_Quantities : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8")); }

    void clock_data()
    {
        QTest::addColumn<int>("ms");
        QTest::addColumn<QString>("text");

        QTest::newRow("nothing") << 0 << "0:00";
        QTest::newRow("parts of a second") << 999 << "0:00";
        QTest::newRow("a minute") << 60'000 << "1:00";
        QTest::newRow("just below an hour") << 3'599'999 << "59:59";
        QTest::newRow("more than an hour") << 3'723'000 << "1:02:03";
    }
    void clock()
    {
        QFETCH(int, ms);
        QTEST(clockText(milliseconds(ms)), "text");
    }

    void limit_data()
    {
        QTest::addColumn<int>("s");
        QTest::addColumn<QString>("text");

        QTest::newRow("seconds") << 59 << "59 s";
        QTest::newRow("a minute") << 60 << "1 min";
        QTest::newRow("begun minute") << 61 << "2 min";
        QTest::newRow("more than an hour") << 5400 << "90 min";
    }
    void limit()
    {
        QFETCH(int, s);
        QTEST(limitText(seconds(s)), "text");
    }

    void amount_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<QString>("text");

        QTest::newRow("bytes") << qint64(1) << qint64(10'239) << "1 of 10239 B";
        QTest::newRow("KiB") << qint64(2047) << qint64(10'240) << "1 of 10 KiB";
        QTest::newRow("last KiB") << qint64(0) << qint64(10'485'759) << "0 of 10239 KiB";
        QTest::newRow("MiB") << qint64(113'246'208) << qint64(268'435'456) << "108 of 256 MiB";
        QTest::newRow("never more than there is")
            << qint64(268'435'455) << qint64(268'435'456) << "255 of 256 MiB";
    }
    void amount()
    {
        QFETCH(qint64, bytes);
        QFETCH(qint64, total);
        QTEST(amountText(bytes, total), "text");
    }

    void wholeAmount()
    {
        QCOMPARE(amountText(0), QStringLiteral("0 B"));
        QCOMPARE(amountText(268'435'456), QStringLiteral("256 MiB"));
    }

    void columns_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("columns");
        QTest::addColumn<QString>("cutToThree");

        QTest::newRow("nothing") << QString() << 0 << QString();
        QTest::newRow("Latin") << QStringLiteral("W\u00e4nde") << 5 << QStringLiteral("W\u00e4n");
        QTest::newRow("wide") << QStringLiteral("\u4e2d\u592e") << 4 << QStringLiteral("\u4e2d");
        QTest::newRow("accent of its own")
            << QStringLiteral("e\u0301abc") << 4 << QStringLiteral("e\u0301ab");
        QTest::newRow("beyond 16 bits") << QString::fromUtf8("\xf0\xa0\x80\x80z") << 3
                                        << QString::fromUtf8("\xf0\xa0\x80\x80z");
    }
    void columns()
    {
        QFETCH(QString, text);
        QTEST(columnsOf(text), "columns");
        QTEST(cutToColumns(text, 3), "cutToThree");
    }

    void coloursTakeNoColumns() { QCOMPARE(columnsOf(QStringLiteral("[\x1b[32m##\x1b[0m..]")), 6); }

    void filled()
    {
        QCOMPARE(filledToColumns(QStringLiteral("\u4e2d"), 4), QStringLiteral("\u4e2d  "));
        QCOMPARE(filledToColumns(QStringLiteral("long"), 2), QStringLiteral("long"));
    }

    void noRoomAtAll() { QCOMPARE(cutToColumns(QStringLiteral("a"), -1), QString()); }
};

QTEST_APPLESS_MAIN(tst_Quantities)
#include "tst_quantities.moc"
