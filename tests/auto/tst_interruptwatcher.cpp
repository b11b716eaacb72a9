#include "process/interruptwatcher.h"

#include <QSignalSpy>
#include <QtTest>

#include <csignal>

using namespace Velmar::Host;

class tst_InterruptWatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsArriveInOrder()
    {
        InterruptWatcher watcher;
        QSignalSpy interrupted(&watcher, &InterruptWatcher::signalInterrupted);
        QCOMPARE(std::raise(SIGINT), 0);
        QCOMPARE(std::raise(SIGTERM), 0);
        QCOMPARE(interrupted.size(), 0); // not from within the signal handler
        QTRY_COMPARE(interrupted.size(), 2);
        QCOMPARE(interrupted.at(0).at(0).toInt(), SIGINT);
        QCOMPARE(interrupted.at(1).at(0).toInt(), SIGTERM);
    }

    void endOfTheTerminalIsIgnored()
    {
        const InterruptWatcher watcher;
        QCOMPARE(std::raise(SIGHUP), 0); // ends the process if it is not
    }

    void formerActionsComeBack()
    {
        static volatile std::sig_atomic_t calls = 0;
        const auto former = std::signal(SIGTERM, [](int) { calls = calls + 1; });
        {
            const InterruptWatcher watcher;
        }
        QCOMPARE(std::raise(SIGTERM), 0);
        std::signal(SIGTERM, former);
        QCOMPARE(int(calls), 1);
    }

    void ignoredInterruptsStayIgnored()
    {
        // As in a shell's background job, which a Ctrl-C at the terminal does not mean.
        const auto former = std::signal(SIGINT, SIG_IGN);
        {
            InterruptWatcher watcher;
            QSignalSpy interrupted(&watcher, &InterruptWatcher::signalInterrupted);
            QCOMPARE(std::raise(SIGINT), 0);
            QCOMPARE(std::raise(SIGTERM), 0);
            QTRY_COMPARE(interrupted.size(), 1);
            QCOMPARE(interrupted.at(0).at(0).toInt(), SIGTERM);
        }
        std::signal(SIGINT, former);
    }
};

QTEST_GUILESS_MAIN(tst_InterruptWatcher)
#include "tst_interruptwatcher.moc"
