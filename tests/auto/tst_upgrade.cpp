#include "run/upgrade.h"

#include "support/packagebuilder.h"
#include "support/scriptedlink.h"
#include "support/threadshortage.h"
#include "support/wallgreeting.h"

#include <QCborArray>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <optional>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr int LimitMs = 30000; // of a wait that is hopeless

/*! What an upgrade tells, in short. */
class Recorder final : public RunEventSink
{
public:
    void take(const RunEvent &event) override
    {
        if (event.kind == RunEvent::Kind::Phase)
            phases.append(phaseWord(event.phase));
        else if (event.kind == RunEvent::Kind::Message && event.code == QLatin1String("warning")
                 && !event.text.contains(QLatin1String("DataFilPathCfg.xml"))) // of the package
            warnings.append(event.text);
        else if (event.kind == RunEvent::Kind::Message)
            messages.append(event.text);
        else if (event.kind == RunEvent::Kind::Log)
            log.append(event.text);
        else if (event.kind == RunEvent::Kind::Verdict) {
            ends.append(verdictWord(event.summary->verdict.code));
            advice = event.summary->verdict.advice;
        }
        isEndLast = event.kind == RunEvent::Kind::Verdict;
    }

    QString lastPhase() const { return phases.value(phases.size() - 1); }
    QString lastWarning() const { return warnings.value(warnings.size() - 1); }

    QStringList phases;
    QStringList warnings;
    QStringList messages; // that are none
    QStringList log;
    QStringList ends;
    QString advice;
    bool isEndLast = false;
};

std::shared_ptr<ScriptedLink> makeDevice(int result)
{
    auto link = std::make_shared<ScriptedLink>();
    link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting()));
    link->answer(QStringLiteral("version.read"),
                 ScriptedLink::accepted({ { QStringLiteral("version"), QStringLiteral("1.0.0.0") },
                                          { QStringLiteral("parts"), QCborArray() } }));
    link->answer(QStringLiteral("upgrade.progress"),
                 ScriptedLink::accepted(
                     { { QStringLiteral("result"), result }, { QStringLiteral("rate"), 40 } }));
    return link;
}

UpgradeWish wishFor(Goal goal, Road road, const PackageBuilder &package)
{
    UpgradeWish wish;
    wish.goal = goal;
    wish.road = road;
    wish.device = { QStringLiteral("wall"), 9720 };
    if (goal != Goal::Watch)
        wish.packagePath = package.path();
    return wish;
}

UpgradeSettings settingsIn(const QTemporaryDir &folder)
{
    UpgradeSettings settings;
    settings.workFolder = folder.filePath(QStringLiteral("packages"));
    return settings;
}

UpgradeSurroundings surroundings(const QStringList &steps,
                                 const std::shared_ptr<ScriptedLink> &device)
{
    UpgradeSurroundings surroundings;
    surroundings.worker.program = QStringLiteral(VELMAR_TEST_WORKER);
    surroundings.worker.arguments = QStringList(QStringLiteral("plays")) + steps;
    surroundings.makeLink = [device](const DeviceAddress &) {
        return device;
    };
    return surroundings;
}

/*! How long a host waits for a device whose versions say nothing new. */
enum class Patience { Usual, Short };

/*! Whether the worker answers an order to stop; one that does may take its time for it. */
enum class Answer { Some, None };

/*! An upgrade of a device that is none, by a worker that plays \a steps. */
class Run
{
public:
    Run(const QStringList &steps, int installation, Goal goal = Goal::Upgrade,
        Road road = Road::Native, Patience patience = Patience::Usual, Answer answer = Answer::Some,
        std::optional<std::chrono::milliseconds> silenceLimit = std::nullopt,
        const QString &worker = QStringLiteral("plays"))
        : device(makeDevice(installation))
    {
        isPackaged = package.index({});
        auto settings = settingsIn(folder);
        settings.silenceLimit = silenceLimit;
        auto around = surroundings(steps, device);
        around.clock = [this] {
            ++ticks;
            return now;
        };
        around.worker.arguments.first() = worker;
        around.deadlines.check = std::chrono::milliseconds(5);
        if (answer == Answer::None)
            around.stopAnswer = std::chrono::milliseconds(50);
        if (patience == Patience::Short) {
            settings.returnLimit = std::chrono::milliseconds(50);
            around.confirmation = { std::chrono::milliseconds(1), std::chrono::seconds(5),
                                    std::chrono::milliseconds(1), std::chrono::milliseconds(1),
                                    std::chrono::milliseconds(20) };
        }
        upgrade = std::make_unique<Upgrade>(wishFor(goal, road, package), settings, events, around);
        QObject::connect(upgrade.get(), &Upgrade::signalCopied, upgrade.get(),
                         [this](const QString &path) { copyPath = path; });
        QObject::connect(upgrade.get(), &Upgrade::signalPlanned, upgrade.get(),
                         [this] { upgrade->agree(); });
    }

    bool hasEnded() const { return !events.ends.isEmpty(); }

    PackageBuilder package;
    QTemporaryDir folder;
    Recorder events;
    std::shared_ptr<ScriptedLink> device;
    QString copyPath;
    std::chrono::milliseconds now { 0 }; // of the deadlines
    int ticks = 0; // looks at it
    bool isPackaged = false;
    std::unique_ptr<Upgrade> upgrade; // the last member: it uses the others
};

const QStringList Ordered { "plan", "hear", "send", "install", "ordered" };

} // namespace

Q_DECLARE_METATYPE(Velmar::Host::Road)

/*! The order of events that only a worker could bring about, which is played here. */
class tst_Upgrade : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_cache; // for the locks

private Q_SLOTS:
    // A worker that is left keeps its lock until it has ended.
    void init()
    {
        m_cache = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CACHE_HOME", m_cache->path().toUtf8());
    }

    void end_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<int>("goal");
        QTest::addColumn<QString>("end");

        const int upgrade = int(Goal::Upgrade);
        const int watch = int(Goal::Watch);
        QTest::newRow("dies while it plans")
            << QStringList { "die" } << upgrade << QStringLiteral("worker-died");
        QTest::newRow("dies while it sends") << QStringList { "plan", "hear", "send", "die" }
                                             << upgrade << QStringLiteral("worker-died");
        QTest::newRow("is bad while it prepares")
            << QStringList { "plan", "hear", "bad" } << upgrade << QStringLiteral("prepare-failed");
        QTest::newRow("is bad while it sends") << QStringList { "plan", "hear", "send", "bad" }
                                               << upgrade << QStringLiteral("send-failed");
        QTest::newRow("is good without a byte")
            << QStringList { "plan", "hear", "good" } << upgrade << QStringLiteral("nothing-sent");
        QTest::newRow("watches a failed installation") << QStringList { "watch", "refuse failed" }
                                                       << watch << QStringLiteral("install-failed");
        QTest::newRow("is lost, and watches a failed one")
            << QStringList { "watch", "install", "running", "refuse failed" } << watch
            << QStringLiteral("install-failed");
    }
    void end()
    {
        QFETCH(QStringList, steps);
        QFETCH(int, goal);
        Run run(steps, 1, Goal(goal));
        QVERIFY(run.isPackaged);
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.hasEnded(), LimitMs);
        QTEST(run.events.ends.constFirst(), "end");
        QVERIFY(run.events.isEndLast);
    }

    void noRoomForAThread()
    {
        Run run({}, 1);
        {
            const ThreadShortage shortage;
            run.upgrade->start();
        }
        QTRY_COMPARE_WITH_TIMEOUT(run.events.ends, QStringList("internal"), LimitMs);
    }

    void everyLostWorkerIsFollowed()
    {
        Run run(Ordered + QStringList { "running", "die", "watch", "install", "running", "die" },
                1);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.ends, QStringList("worker-lost"), LimitMs);
        // What goes on is no new phase, and none comes again.
        QCOMPARE(run.events.phases, QStringList({ "copy", "check", "plan", "send", "install" }));
    }

    void orderBehindTheFault()
    {
        // The last that a worker tells before it is killed is that the device is at work.
        Run run({ "plan", "hear", "send", "garbage, ordered", "watch", "wait" }, 1);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.warnings.size(), 2, LimitMs);
        QCOMPARE(run.events.lastWarning(),
                 QStringLiteral("The device was lost while it may have been installing"));
        QVERIFY(!run.hasEnded());
    }

    void noRestartAtAnOldEnd()
    {
        // The device has taken the order and shows the end of an older installation: a worker that
        // watches would restart it.
        Run run(Ordered + QStringList { "die", "watch", "refuse failed" }, 2);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.lastPhase(), QStringLiteral("restart"), LimitMs);
        QVERIFY(!run.hasEnded());
        QVERIFY(!run.device->operations().contains("device.shutdown"));
    }

    void oldVersionsOfALostDevice_data()
    {
        QTest::addColumn<Road>("road");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("end");

        // It may still be installing.
        const auto lost = QStringLiteral("not-restarted");
        // It has restarted by itself: there is nothing that its versions could be compared with.
        const auto ended = QStringLiteral("not-comparable");
        QTest::newRow("over HTTP, lost") << Road::Http << (Ordered + QStringList("die")) << lost;
        QTest::newRow("over HTTP, not lost")
            << Road::Http << (Ordered + QStringList("good")) << ended;
        const QStringList written { "plan", "hear", "send", "ordered" };
        QTest::newRow("by registers, lost")
            << Road::Registers << (written + QStringList("die")) << lost;
        QTest::newRow("by registers, not lost")
            << Road::Registers << (written + QStringList("good")) << ended;
    }
    void oldVersionsOfALostDevice()
    {
        QFETCH(Road, road);
        QFETCH(QStringList, steps);
        Run run(steps, 0, Goal::Upgrade, road, Patience::Short);
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.hasEnded(), LimitMs);
        QTEST(run.events.ends.constFirst(), "end");
    }

    void interruptWhileWatching()
    {
        Run run({ "watch", "install", "running", "hear", "bad" }, 1, Goal::Watch);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.lastPhase(), QStringLiteral("install"), LimitMs);
        run.upgrade->interrupt();
        QCOMPARE(run.events.ends, QStringList("left"));
        QCoreApplication::processEvents();
        QVERIFY(run.events.isEndLast);
        QVERIFY(run.events.warnings.isEmpty());
    }

    void interruptWhileALostDeviceIsWatched()
    {
        Run run(Ordered + QStringList { "running", "die", "watch", "install", "log", "wait" }, 1);
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.events.log.contains("the worker's log"), LimitMs);
        QCOMPARE(run.events.warnings.size(), 2);
        run.upgrade->interrupt();
        QVERIFY(!run.hasEnded());
        QVERIFY(
            run.events.lastWarning().startsWith("The upgrade goes on: the device is installing"));
        run.upgrade->leave();
        QCOMPARE(run.events.ends, QStringList("left"));
    }

    void interruptBehindTheLastStep()
    {
        QDir locks(m_cache->filePath(QStringLiteral("velmar-upgrade/locks")));
        QVERIFY(locks.removeRecursively());
        Run run({}, 1);
        connect(run.upgrade.get(), &Upgrade::signalCopied, this, [] { QFAIL("goes on"); });
        run.upgrade->start();
        // The lock is the last that the preparation does in its thread; nobody has heard of it yet.
        QElapsedTimer passed;
        passed.start();
        while (locks.entryList(QDir::Files).isEmpty() && !passed.hasExpired(5000))
            QThread::yieldCurrentThread();
        QVERIFY(!locks.entryList(QDir::Files).isEmpty());
        run.upgrade->interrupt();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.ends, QStringList("interrupted"), LimitMs);
    }

    void failureIsToldWhoeverEndsTheWait()
    {
        Run run(Ordered + QStringList { "failed", "bad" }, 3);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.lastPhase(), QStringLiteral("restart"), LimitMs);
        QVERIFY(!run.hasEnded());
        run.upgrade->interrupt();
        QCOMPARE(run.events.ends, QStringList("install-failed"));
    }

    void adviceBehindARefusedWrite_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("advice");

        QTest::newRow("the first")
            << QStringList { "send" }
            << "Upgrade again once the cause is removed; the device has installed nothing.";
        QTest::newRow("a later one")
            << QStringList { "send", "ordered" }
            << "Upgrade again once the cause is removed; part of the firmware may be written.";
    }
    void adviceBehindARefusedWrite()
    {
        QFETCH(QStringList, steps);
        Run run(QStringList { "plan", "hear" } + steps + QStringList("bad"), 0, Goal::Upgrade,
                Road::Registers);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.ends, QStringList("send-failed"), LimitMs);
        QTEST(run.events.advice, "advice");
    }

    // The user's word came too late, and the end tells what the device has.
    void refusedWriteBehindAnInterrupt()
    {
        Run run({ "plan", "hear", "hear", "send", "ordered", "bad" }, 0, Goal::Upgrade,
                Road::Registers);
        connect(run.upgrade.get(), &Upgrade::signalPlanned, this,
                [&run] { run.upgrade->interrupt(); });
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.ends, QStringList("send-failed"), LimitMs);
        QVERIFY(run.events.advice.endsWith("part of the firmware may be written."));
    }

    // A device that checks a file for so long before it answers is not lost.
    void timeForAnAnswerOverHttp()
    {
        Run run({}, 0, Goal::Upgrade, Road::Http, Patience::Usual, Answer::Some, std::nullopt,
                QStringLiteral("order"));
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.hasEnded(), LimitMs);
        QVERIFY2(run.events.messages.join('\n').contains("\"silenceMs\":120000"),
                 qPrintable(run.events.messages.join('\n')));
    }

    // The worker keeps the time that a user has set for a service to be silent.
    void silentService_data()
    {
        QTest::addColumn<int>("minutes");
        QTest::addColumn<QStringList>("ends");

        QTest::newRow("within its time") << 10 << QStringList();
        QTest::newRow("the worker does not end") << 11 << QStringList("device-lost");
    }
    void silentService()
    {
        QFETCH(int, minutes);
        Run run({ "plan", "hear", "send", "ordered", "log", "wait" }, 0, Goal::Upgrade, Road::Http,
                Patience::Usual, Answer::Some, std::chrono::minutes(10));
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.events.log.contains("the worker's log"), LimitMs);
        run.now += std::chrono::minutes(minutes);
        run.ticks = 0;
        QTRY_VERIFY_WITH_TIMEOUT(run.ticks > 20 || run.hasEnded(), LimitMs);
        QTEST(run.events.ends, "ends");
    }

    // The first write goes out before the host hears of it: the worker alone knows.
    void leavingBeforeAWriteIsHeardOf_data()
    {
        QTest::addColumn<QStringList>("answer");
        QTest::addColumn<QString>("end");
        QTest::addColumn<bool>("isWorkerLeft");

        QTest::newRow("stops") << QStringList { "stops", "bad" } << QStringLiteral("interrupted")
                               << false;
        QTest::newRow("is writing")
            << QStringList { "go on", "hear" } << QStringLiteral("left") << true;
        QTest::newRow("does not answer")
            << QStringList { "hear", "hear" } << QStringLiteral("left") << true;
        QTest::newRow("dies") << QStringList { "die" } << QStringLiteral("interrupted") << false;
    }
    void leavingBeforeAWriteIsHeardOf()
    {
        QFETCH(QStringList, answer);
        QFETCH(bool, isWorkerLeft);
        const bool answers = answer.constFirst() != QLatin1String("hear");
        Run run(QStringList { "plan", "hear", "hear" } + answer, 0, Goal::Upgrade, Road::Registers,
                Patience::Short, answers ? Answer::Some : Answer::None);
        connect(run.upgrade.get(), &Upgrade::signalPlanned, this, [&run] {
            run.upgrade->interrupt();
            run.upgrade->leave();
            run.upgrade->leave(); // once more makes no difference
        });
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.hasEnded(), LimitMs);
        QTEST(run.events.ends.constFirst(), "end");
        QCOMPARE(run.upgrade->isWorkerLeft(), isWorkerLeft);
    }

    void timePassesBeforeAWriteIsHeardOf_data()
    {
        QTest::addColumn<QStringList>("answer");
        QTest::addColumn<QString>("end");

        QTest::newRow("stops") << QStringList { "stops", "bad" } << QStringLiteral("out-of-time");
        QTest::newRow("does not answer") << QStringList { "wait" } << QStringLiteral("out-of-time");
        // What the device has then is looked at, whatever the time.
        QTest::newRow("is writing") << QStringList { "go on", "send", "ordered", "good" }
                                    << QStringLiteral("not-comparable");
    }
    void timePassesBeforeAWriteIsHeardOf()
    {
        QFETCH(QStringList, answer);
        const bool answers = answer.constFirst() != QLatin1String("wait");
        Run run(QStringList { "plan", "hear", "hear" } + answer, 0, Goal::Upgrade, Road::Registers,
                Patience::Short, answers ? Answer::Some : Answer::None);
        connect(run.upgrade.get(), &Upgrade::signalPlanned, this,
                [&run] { run.now += std::chrono::hours(2); });
        run.upgrade->start();
        QTRY_VERIFY_WITH_TIMEOUT(run.hasEnded(), LimitMs);
        QTEST(run.events.ends.constFirst(), "end");
    }

    void registersAreWrittenToTheEnd()
    {
        Run run({ "plan", "hear", "send", "ordered", "hear" }, 0, Goal::Upgrade, Road::Registers);
        run.upgrade->start();
        QTRY_COMPARE_WITH_TIMEOUT(run.events.lastPhase(), QStringLiteral("send"), LimitMs);
        QTRY_VERIFY_WITH_TIMEOUT(
            (run.upgrade->interrupt(), !run.events.warnings.isEmpty()) || run.hasEnded(), LimitMs);
        QVERIFY(run.events.lastWarning().startsWith(
            "The upgrade goes on: between two register writes"));
        run.upgrade->leave();
        QCOMPARE(run.events.ends, QStringList("left"));
        QVERIFY(run.upgrade->isWorkerLeft());
        // What the process needs that goes on stays, also without this object.
        run.upgrade.reset();
        QVERIFY(QFileInfo::exists(run.copyPath));
    }
};

QTEST_GUILESS_MAIN(tst_Upgrade)
#include "tst_upgrade.moc"
