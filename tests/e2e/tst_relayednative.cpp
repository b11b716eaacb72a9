#include "programs.h"
#include "scenariorows.h"
#include "trial.h"

#include <QtTest>

#include <memory>
#include <vector>

namespace {

/*! A fault on the way to a device, and what a native upgrade makes of it. */
struct Scenario {
    const char *name;
    QStringList relay;
    bool isGood;
    bool isInstalled;
};

// The example's image has about 2.9 million bytes. On the first connection the host reads what the
// device is; the second is that of its worker.
const std::vector<Scenario> Scenarios {
    { "nothing", { "--at", "0" }, true, true },
    { "reset before the first byte", { "--fault", "reset" }, false, false },
    { "closed before the first byte", { "--fault", "close" }, false, false },
    { "reset within the image",
      { "--fault", "reset", "--at", "1000000", "--connection", "2" },
      false,
      false },
    { "closed within the image",
      { "--fault", "close", "--at", "1000000", "--connection", "2" },
      false,
      false },
    { "reset within the answer to a read, which is repeated",
      { "--answers", "--fault", "reset", "--at", "1000", "--connection", "1" },
      true,
      true },
    { "answers trickle", { "--answers", "--fault", "trickle", "--pace", "200000" }, true, true },
};

/*! The processes of a scenario. */
struct Cast {
    Cast(const Scenario &scenario, int place)
        : trial(Trial::Road::Native, { {}, scenario.relay, {} }, 92, place)
    {
    }

    Trial trial;
    ExamplePackage package;
    std::unique_ptr<UpgradeProgram> upgrade;
};

} // namespace

/*! Native upgrades through a relay that does something wrong between bytes. */
class tst_RelayedNative : public QObject
{
    Q_OBJECT

    std::vector<std::unique_ptr<Cast>> m_casts; // of the scenarios, which run side by side

private Q_SLOTS:
    void initTestCase()
    {
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            m_casts.push_back(std::make_unique<Cast>(Scenarios.at(i), int(i) + 1));
            auto &cast = *m_casts.back();
            QVERIFY2(cast.trial.isReady(), Scenarios.at(i).name);
            cast.upgrade =
                std::make_unique<UpgradeProgram>(cast.trial.runArguments(cast.package.path()));
        }
    }

    void scenario_data() { addScenarioRows(Scenarios); }
    void scenario()
    {
        QFETCH(int, index);
        const Scenario &told = Scenarios.at(std::size_t(index));
        Cast &cast = *m_casts.at(std::size_t(index));
        const ProgramRun run = cast.upgrade->finish();
        QVERIFY2((run.exitCode == 0) == told.isGood, qPrintable(run.out + run.err));
        const DeviceAftermath left = cast.trial.aftermath();
        QVERIFY(left.isRunning && !left.isInstalling && !left.wasRestartedEarly);
        QCOMPARE(left.installedFiles.size(), told.isInstalled ? 14 : 0);

        if (told.isGood)
            return;
        QVERIFY(cast.trial.recover());
        const ProgramRun again = UpgradeProgram::run(cast.trial.runArguments(cast.package.path()));
        QVERIFY2(again.exitCode == 0, qPrintable(again.err));
        QCOMPARE(cast.trial.aftermath().installedFiles.size(), 14);
    }

    void cleanupTestCase() { m_casts.clear(); }
};

QTEST_GUILESS_MAIN(tst_RelayedNative)
#include "tst_relayednative.moc"
