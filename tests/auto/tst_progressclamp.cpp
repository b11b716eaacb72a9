#include "run/progressclamp.h"

#include <QtTest>

using namespace Velmar::Host;

class tst_ProgressClamp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void percentages_data()
    {
        QTest::addColumn<QVector<int>>("told");
        QTest::addColumn<QVector<int>>("shown");

        QTest::newRow("rising") << QVector<int> { 0, 1, 50, 99 } << QVector<int> { 0, 1, 50, 99 };
        QTest::newRow("end told too early") << QVector<int> { 100, 100 } << QVector<int> { 99, 99 };
        QTest::newRow("backwards") << QVector<int> { 60, 10, 61 } << QVector<int> { 60, 60, 61 };
        QTest::newRow("out of range") << QVector<int> { -7, 255 } << QVector<int> { 0, 99 };
    }
    void percentages()
    {
        QFETCH(QVector<int>, told);
        QFETCH(QVector<int>, shown);
        ProgressClamp clamp;
        QCOMPARE(clamp.percent(), 0);
        for (int i = 0; i < told.size(); ++i) {
            QCOMPARE(clamp.take(told.at(i)), shown.at(i));
            QCOMPARE(clamp.percent(), shown.at(i));
        }
    }

    void nextPhaseBeginsAnew()
    {
        ProgressClamp clamp;
        clamp.take(80);
        clamp.reset();
        QCOMPARE(clamp.percent(), 0);
        QCOMPARE(clamp.take(3), 3);
    }
};

QTEST_GUILESS_MAIN(tst_ProgressClamp)
#include "tst_progressclamp.moc"
