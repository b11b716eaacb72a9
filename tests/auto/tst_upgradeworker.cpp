#include "worker/upgradeworker.h"

#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

WorkerLaunch launch(const QString &what, const QString &more = {})
{
    WorkerLaunch launch;
    launch.program = QStringLiteral(VELMAR_TEST_WORKER);
    launch.arguments = QStringList { what };
    if (!more.isEmpty())
        launch.arguments.append(more);
    return launch;
}

WorkerOrder order()
{
    WorkerOrder order;
    order.packagePath = QStringLiteral("/package");
    order.device = { QStringLiteral("192.0.2.7"), 9720 };
    return order;
}

/*! What a host hears of a worker, in order. */
class Listener : public QObject
{
public:
    explicit Listener(UpgradeWorker &worker)
    {
        using Worker = UpgradeWorker;
        connect(&worker, &Worker::signalPhase, this,
                [this](Phase phase) { heard.append("phase " + phaseWord(phase)); });
        connect(&worker, &Worker::signalPlan, this, [this](const Plan &plan) {
            heard.append("plan " + plan.device.address.toString());
        });
        connect(&worker, &Worker::signalStatus, this,
                [this](const QString &text) { heard.append(text); });
        connect(
            &worker, &Worker::signalSending, this, [this](int percent, qint64 sent, qint64 total) {
                heard.append(QStringLiteral("sending %1 %2 %3").arg(percent).arg(sent).arg(total));
            });
        connect(&worker, &Worker::signalInstalling, this, [this](const auto &progress) {
            heard.append(QStringLiteral("installing %1").arg(progress.rate));
        });
        connect(&worker, &Worker::signalTraffic, this, [this](const LinkTraffic &traffic) {
            heard.append(QStringLiteral("traffic %1").arg(traffic.requests));
        });
        connect(&worker, &Worker::signalLog, this, [this](QtMsgType level, const QString &text) {
            heard.append(QStringLiteral("log %1 %2").arg(level).arg(text));
        });
        connect(&worker, &Worker::signalStopAnswered, this,
                [this](bool isTaken) { heard.append(isTaken ? "stops" : "goes on"); });
        connect(&worker, &Worker::signalEnded, this, [this](bool result, const QString &text) {
            ends.append((result ? "good: " : "bad: ") + text);
        });
        connect(&worker, &Worker::signalRefused, this,
                [this](VerdictCode code, const QString &text) {
                    ends.append(verdictWord(code) + ": " + text);
                });
        connect(&worker, &Worker::signalDied, this,
                [this](const QString &why) { ends.append("died: " + why); });
    }

    QStringList heard;
    QStringList ends;
};

} // namespace

class tst_UpgradeWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everything()
    {
        UpgradeWorker worker(launch("everything"));
        const Listener listener(worker);
        int signs = 0;
        connect(&worker, &UpgradeWorker::signalAlive, &worker, [&signs] { ++signs; });
        QVERIFY(!worker.isRunning());
        worker.start(order());
        QVERIFY(worker.isRunning());
        QTRY_COMPARE(listener.ends, QStringList("good: done"));
        QVERIFY(!worker.isRunning());
        QCOMPARE(listener.heard,
                 QStringList({ "phase plan", "plan 192.0.2.7:9720", "status", "phase send",
                               "sending 7 70 1000", "traffic 9", "installing 55", "log 1 log",
                               "stops" }));
        QCOMPARE(signs, 11);
        QVERIFY(worker.traffic().isOrdered);
        QVERIFY(worker.phase() == Phase::Sending);
    }

    void getsItsOrder()
    {
        UpgradeWorker worker(launch("order"));
        const Listener listener(worker);
        worker.start(order());
        QTRY_COMPARE(listener.ends.size(), 1);
        QCOMPARE(listener.heard.size(), 1);
        QString errorText;
        QVERIFY(WorkerOrder::fromLine(listener.heard.constFirst().toUtf8(), errorText));
    }

    void getsCommands()
    {
        UpgradeWorker worker(launch("commands"));
        const Listener listener(worker);
        worker.requestStop(); // nobody hears it
        worker.start(order());
        worker.go();
        worker.requestStop();
        QTRY_COMPARE(listener.heard, QStringList({ R"({"do":"go"})", R"({"do":"stop"})" }));
        QTRY_COMPARE(listener.ends.size(), 1);
        worker.go(); // no more
        worker.kill();
        QCOMPARE(listener.ends.size(), 1);
    }

    void surroundings()
    {
        const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        QVERIFY(descriptor > 2);
        auto how = launch("surroundings", QString::number(descriptor));
        how.memoryLimit = 200LL * 1024 * 1024;
        for (const bool isHandedOn : { true, false }) {
            UpgradeWorker worker(how);
            const Listener listener(worker);
            worker.start(order(),
                         isHandedOn ? std::vector<int> { descriptor } : std::vector<int>());
            QTRY_COMPARE(listener.ends, QStringList("good: "));
            QCOMPARE(listener.heard.mid(1),
                     QStringList(
                         { "core 0", "own session", isHandedOn ? "descriptor" : "no descriptor" }));
#ifndef __SANITIZE_ADDRESS__
            QCOMPARE(listener.heard.constFirst(), QStringLiteral("data 209715200"));
#endif
        }
        ::close(descriptor);
    }

    void ends_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QString>("end");
        const auto row = [](const char *what, const char *end) {
            QTest::newRow(what) << what << end;
        };
        row("refuses", "nothing-fits: no");
        row("exits at once",
            "died: The worker process ended with exit code 3 before it told an end");
        row("order", "died: The worker process ended with exit code 0 before it told an end");
        row("is killed", "died: The worker process was ended by signal 9 (Killed)");
        row("aborts", "died: The worker process was ended by signal 6 (Aborted)");
        row("has no memory",
            "died: The worker process needed more memory than it may have (512 MiB)");
        row("garbage",
            "died: The worker process told something that is no message: it is no JSON: illegal "
            "value");
        row("half a line", "died: The worker process ended with exit code 0 before it told an end");
        row("huge line", "died: The worker process told a line of more than 67108864 bytes");
        row("no hello", "died: The worker process is of another version than its host");
        row("two hellos", "died: The worker process is of another version than its host");
        row("other protocol", "died: The worker process is of another version than its host");
        row("goes on", "bad: done");
    }
    void ends()
    {
        QFETCH(QString, what);
        UpgradeWorker worker(launch(what));
        const Listener listener(worker);
        worker.start(order());
        QTRY_COMPARE(listener.ends.size(), 1);
        QTEST(listener.ends.constFirst(), "end");
        QVERIFY(!worker.isRunning());
        QTest::qWait(0);
        QCOMPARE(listener.ends.size(), 1);
    }

    void cannotStart()
    {
        auto how = launch("order");
        how.program = QStringLiteral("/nonexistent/program");
        UpgradeWorker worker(how);
        const Listener listener(worker);
        worker.start(order());
        QVERIFY(listener.ends.isEmpty()); // the caller may still connect to it
        QTRY_COMPARE(listener.ends.size(), 1);
        QVERIFY2(
            listener.ends.constFirst().startsWith("died: The worker process cannot be started: "),
            qPrintable(listener.ends.constFirst()));
    }

    void silentUntilKilled()
    {
        UpgradeWorker worker(launch("silent"));
        const Listener listener(worker);
        worker.start(order());
        QTRY_COMPARE(listener.heard.size(), 1);
        QVERIFY(listener.ends.isEmpty());
        worker.kill();
        QTRY_COMPARE(listener.ends, QStringList("died: The worker process was ended by its host"));
    }

    // What it had to tell is told; only its own end is missing.
    void staysBehindItsEnd()
    {
        auto how = launch("stays");
        how.endLimit = std::chrono::milliseconds(20);
        UpgradeWorker worker(how);
        const Listener listener(worker);
        worker.start(order());
        QTRY_COMPARE(listener.ends, QStringList("good: done"));
    }

    void standardError()
    {
        UpgradeWorker worker(launch("standard error"));
        const Listener listener(worker);
        worker.start(order());
        QTRY_COMPARE(listener.ends, QStringList("good: "));
        QCOMPARE(listener.heard,
                 QStringList({ "log 1 one", "log 1 " + QString(4096, 'x'),
                               "log 1 " + QString(904, 'x'), "log 1 end" }));
    }

    void endsWithItsObject()
    {
        pid_t process = 0;
        {
            UpgradeWorker worker(launch("silent"));
            const Listener listener(worker);
            worker.start(order());
            QTRY_COMPARE(listener.heard.size(), 1);
            process = listener.heard.constFirst().toInt();
            QCOMPARE(::kill(process, 0), 0);
        }
        QCOMPARE(::kill(process, 0), -1);
    }

    // A slot may end everything.
    void endsInASlot()
    {
        auto worker = std::make_unique<UpgradeWorker>(launch("everything"));
        connect(worker.get(), &UpgradeWorker::signalStatus, this, [&worker] { worker.reset(); });
        worker->start(order());
        QTRY_VERIFY(!worker);
    }

    void killedInASlot()
    {
        UpgradeWorker worker(launch("everything"));
        const Listener listener(worker);
        connect(&worker, &UpgradeWorker::signalStatus, &worker, &UpgradeWorker::kill);
        worker.start(order());
        QTRY_COMPARE(listener.ends, QStringList("died: The worker process was ended by its host"));
        QCOMPARE(listener.heard, QStringList({ "phase plan", "plan 192.0.2.7:9720", "status" }));
    }
};

QTEST_GUILESS_MAIN(tst_UpgradeWorker)
#include "tst_upgradeworker.moc"
