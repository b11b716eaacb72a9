#include "run/upgraderun.h"

#include "support/mcuupgrade.h"

#include <velmarbizmodel/devicelist.h>

#include <QCborArray>
#include <QSemaphore>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;
using Firmware::Enum::UpgradeProcessType;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

constexpr std::chrono::seconds Ample { 30 };

QCborMap progress(int result, int rate)
{
    return { { QStringLiteral("run"), 1 },
             { QStringLiteral("result"), result },
             { QStringLiteral("rate"), rate },
             { QStringLiteral("subSections"), QCborMap { { QStringLiteral("rate"), rate } } },
             { QStringLiteral("parts"), QCborArray() } };
}

/*! A device that takes everything and has installed it by the first look. */
void makeWilling(ScriptedLink &link)
{
    const auto accepted = ScriptedLink::accepted();
    link.answer(QStringLiteral("file.announce"), accepted);
    link.answer(QStringLiteral("file.open"), accepted);
    link.handle(QStringLiteral("file.data"), [](const BizModel::LinkRequest &request) {
        const auto end = request.arguments.value(QLatin1String("offset")).toInteger()
            + request.arguments.value(QLatin1String("bytes")).toByteArray().size();
        return ScriptedLink::accepted({ { QStringLiteral("received"), end } });
    });
    link.answer(QStringLiteral("file.close"), accepted);
    link.answer(QStringLiteral("upgrade.configure"),
                ScriptedLink::accepted({ { QStringLiteral("run"), 1 } }));
    link.answer(QStringLiteral("upgrade.progress"), ScriptedLink::accepted(progress(2, 100)));
    link.answer(QStringLiteral("device.shutdown"), accepted);
}

/*! What a host hears of a run, in order. */
class Listener : public QObject
{
public:
    explicit Listener(UpgradeRun &run)
    {
        connect(&run, &UpgradeRun::signalStageChanged, this, [this](UpgradeRun::Stage stage) {
            heard.append(QVariant::fromValue(stage).toString());
        });
        connect(&run, &UpgradeRun::signalStatusText, this,
                [this](const QString &text) { heard.append(text); });
        connect(&run, &UpgradeRun::signalSending, this, [this](int percent, const QString &text) {
            heard.append(QStringLiteral("%1: %2").arg(percent).arg(text));
        });
        connect(&run, &UpgradeRun::signalInstalling, this, [this](const s_UpgradePercent &record) {
            heard.append(QStringLiteral("result %1, rate %2").arg(record.result).arg(record.rate));
        });
        connect(&run, &UpgradeRun::signalEnded, this,
                [this](UpgradeRun::Outcome outcome, const QString &text) {
                    outcomes.append(QVariant::fromValue(outcome).toString());
                    heard.append(text);
                });
    }

    QStringList heard;
    QStringList outcomes;
};

} // namespace

class tst_UpgradeRun : public QObject
{
    Q_OBJECT

    std::unique_ptr<McuUpgrade> m_upgrade;

private Q_SLOTS:
    void init()
    {
        m_upgrade = std::make_unique<McuUpgrade>();
        QVERIFY(m_upgrade->isReady());
        makeWilling(m_upgrade->link());
    }
    void cleanup() { m_upgrade.reset(); }

    void wholeUpgrade()
    {
        UpgradeRun run(m_upgrade->order());
        const Listener listener(run);
        QCOMPARE(run.stage(), UpgradeRun::Stage::Idle);
        run.start(UpgradeProcessType::FullUpgrade, Ample);
        QCOMPARE(run.stage(), UpgradeRun::Stage::Preparing);
        QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
        QCOMPARE(run.stage(), UpgradeRun::Stage::Ended);
        QVERIFY(!run.isWorkerLeftBehind());

        auto heard = listener.heard;
        QCOMPARE(heard.takeFirst(), QStringLiteral("Preparing"));
        QCOMPARE(heard.takeFirst(), QStringLiteral("Upgrading file processing"));
        QCOMPARE(heard.takeFirst(), QStringLiteral("Sending"));
        QVERIFY(heard.contains("100: Sending upgrade files,current progress is 100%"));
        while (heard.constFirst().endsWith('%'))
            heard.removeFirst();
        QCOMPARE(heard,
                 QStringList({ "Installing", "result 2, rate 100", "Ended",
                               "Upgrade successful,device is restarting." }));
    }

    void watchOnly()
    {
        UpgradeRun run({ m_upgrade->handle(), {}, {}, {}, {} });
        const Listener listener(run);
        run.start(UpgradeProcessType::ReadProgressOnly, Ample);
        QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
        QCOMPARE(listener.heard,
                 QStringList({ "Preparing", "Installing", "result 2, rate 100", "Ended",
                               "Upgrade successful,device is restarting." }));
        QCOMPARE(m_upgrade->link().operations(),
                 QStringList({ "upgrade.progress", "device.shutdown" }));
    }

    void failure_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("text");

        const auto restarted = QStringLiteral(",device is restarting.");
        QTest::newRow("version") << "version.read"
                                 << "Failed to recombine upgrade file";
        QTest::newRow("announcement") << "file.announce"
                                      << "Failed to import upgrade file" + restarted;
        QTest::newRow("configuration") << "upgrade.configure"
                                       << "Failed to set upgrade config" + restarted;
        QTest::newRow("progress") << "upgrade.progress"
                                  << "Failed to get upgrade progress" + restarted;
    }
    void failure()
    {
        QFETCH(QString, operation);
        m_upgrade->link().answer(operation, ScriptedLink::refused(1, QStringLiteral("no")));
        UpgradeRun run(m_upgrade->order());
        const Listener listener(run);
        run.start(UpgradeProcessType::FullUpgrade, Ample);
        QTRY_COMPARE(listener.outcomes, QStringList("Failed"));
        QTEST(listener.heard.constLast(), "text");
        QVERIFY(!run.isWorkerLeftBehind());
    }

    void successWithoutRestart()
    {
        m_upgrade->link().answer(QStringLiteral("device.shutdown"),
                                 ScriptedLink::refused(1, QStringLiteral("no")));
        UpgradeRun run(m_upgrade->order());
        const Listener listener(run);
        run.start(UpgradeProcessType::FullUpgrade, Ample);
        QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
        QCOMPARE(listener.heard.constLast(),
                 QStringLiteral("Upgrade successful,please restart the device manually."));
    }

    void emptyStatusTextsAreLeftOut()
    {
        UpgradeRun run(m_upgrade->order());
        const Listener listener(run);
        run.start(UpgradeProcessType::FullUpgrade, Ample);
        QTRY_COMPARE(listener.outcomes.size(), 1);
        QVERIFY(!listener.heard.contains(QString()));
    }

    void timeLimit()
    {
        QSemaphore release;
        m_upgrade->link().handle(QStringLiteral("upgrade.progress"),
                                 [&](const BizModel::LinkRequest &) {
                                     release.acquire();
                                     return ScriptedLink::accepted(progress(2, 100));
                                 });
        UpgradeRun run({ m_upgrade->handle(), {}, {}, {}, {} });
        const Listener listener(run);
        run.start(UpgradeProcessType::ReadProgressOnly, std::chrono::milliseconds(50));
        QTRY_COMPARE(listener.outcomes, QStringList("TimedOut"));
        QCOMPARE(listener.heard.mid(listener.heard.size() - 2),
                 QStringList({ "Ended", QString() }));
        QVERIFY(run.isWorkerLeftBehind());
        QCOMPARE(run.stage(), UpgradeRun::Stage::Ended);

        release.release();
        QTRY_VERIFY(!m_upgrade->link().isOpen()); // the worker's last step but its signal
        QCoreApplication::processEvents();
        QCOMPARE(listener.outcomes.size(), 1);
    }

    void textsOutsideOfARunAreNotPassedOn()
    {
        UpgradeRun run(m_upgrade->order());
        const Listener listener(run);
        Q_EMIT BizModel::DeviceList::instance()->signalShowStatusBarMsg(
            BizModel::Enum::StatusBarMsgType::Information, QStringLiteral("before"), 1000);
        run.start(UpgradeProcessType::FullUpgrade, Ample);
        QTRY_COMPARE(listener.outcomes.size(), 1);
        Q_EMIT BizModel::DeviceList::instance()->signalShowStatusBarMsg(
            BizModel::Enum::StatusBarMsgType::Information, QStringLiteral("after"), 1000);
        QCoreApplication::processEvents();
        QVERIFY(!listener.heard.contains("before"));
        QVERIFY(!listener.heard.contains("after"));
    }

    void unchangedProgressIsReportedOnce()
    {
        // The library looks again after 2 s only; until then there is nothing new to report.
        const QString told = "result 1, rate 40";
        m_upgrade->link().answer(QStringLiteral("upgrade.progress"),
                                 ScriptedLink::accepted(progress(1, 40)));
        UpgradeRun run({ m_upgrade->handle(), {}, {}, {}, {} });
        run.setProgressInterval(std::chrono::milliseconds(1));
        const Listener listener(run);
        run.start(UpgradeProcessType::ReadProgressOnly, Ample);
        QTRY_VERIFY(listener.heard.contains(told));
        int ticks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, &timer, [&ticks] { ++ticks; });
        timer.start(1);
        QTRY_VERIFY(ticks > 20);
        QCOMPARE(listener.heard.count(told), 1);
    }
};

QTEST_GUILESS_MAIN(tst_UpgradeRun)
#include "tst_upgraderun.moc"
