#include "process/logcapture.h"

#include <QtTest>

#include <thread>

using namespace Velmar::Host;

class tst_LogCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keepsTheLastFiveLinesOfAllLevels()
    {
        LogCapture log;
        QVERIFY(log.lastLines().isEmpty());
        qWarning("one");
        qDebug("two");
        qInfo("three");
        qCritical("four");
        qWarning("five");
        qDebug("six");
        QCOMPARE(log.lastLines(), QStringList({ "two", "three", "four", "five", "six" }));
        log.clear();
        QVERIFY(log.lastLines().isEmpty());
    }

    void linesOfOtherThreads()
    {
        LogCapture log;
        std::thread([] { qWarning("from a worker"); }).join();
        QCOMPARE(log.lastLines(), QStringList("from a worker"));
    }

    void echoesEachLine()
    {
        QStringList echoed;
        const LogCapture log([&echoed](const QString &line) { echoed.append(line); });
        qDebug("quiet");
        qWarning("loud");
        QCOMPARE(echoed, QStringList({ "quiet", "loud" }));
    }

    void givesTheLogBack()
    {
        {
            const LogCapture log;
        }
        QTest::ignoreMessage(QtWarningMsg, "for the handler from before");
        qWarning("for the handler from before");
    }
};

QTEST_GUILESS_MAIN(tst_LogCapture)
#include "tst_logcapture.moc"
