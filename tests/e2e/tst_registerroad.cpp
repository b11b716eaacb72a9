#include "deviceprogram.h"
#include "programs.h"

#include <QtTest>

#include <csignal>
#include <memory>
#include <vector>

namespace {

constexpr int McuCode = 0x0101;

// The example's file is written in 25 pieces, behind 7 writes.
constexpr int FirstDataWrite = 8;
constexpr int LastDataWrite = 32;

const QString NotWritten = "velmar-upgrade: The firmware could not be written";
const QString KeptAdvice = "  advice: a device keeps its former firmware until the new one is "
                           "complete; upgrade again once the cause is removed";
const QString Written = "The firmware is written, and the device restarts with it";

/*! An upgrade of a simulated device that is told to do something wrong, and how it has to end. */
struct Scenario {
    const char *name;
    QStringList faults;
    bool isGood;
    QStringList causes; //!< one of them is among the causes that are told
    int readyCount; //!< how many times hosts could connect to the device
    bool hasNewFirmware;
};

Scenario failing(const char *name, const QString &fault, const QStringList &causes)
{
    return { name, { fault }, false, causes, 1, false };
}

QString refusal(int ack)
{
    return QStringLiteral("Fail to send command: send to hardware failed, ack is %1").arg(ack);
}

const QString NoAnswer = "Fail to send command: invalid response cmd";
const QString NotReady = "Fail to send command: channel is abnormal";

const std::vector<Scenario> Scenarios {
    { "good device", {}, true, {}, 2, true },
    { "slow answers", { "register-slow=20" }, true, {}, 2, true },
    { "slow link", { "slow-link=400000" }, true, {}, 2, true },
    { "no return from the restart", { "no-return" }, true, {}, 1, true },
    failing("card refused", "register-ack=1:104", { refusal(104) }),
    failing("file type refused", "register-ack=2:105", { refusal(105) }),
    failing("second length refused", "register-ack=4:107", { refusal(107) }),
    failing("count refused", "register-ack=7:108", { refusal(108) }),
    failing("first data refused", QStringLiteral("register-ack=%1").arg(FirstDataWrite),
            { refusal(1) }),
    failing("last data refused", QStringLiteral("register-ack=%1:65535").arg(LastDataWrite),
            { refusal(65535) }),
    failing("no answer", "register-silent=3", { NoAnswer }),
    failing("connection lost at the first write", "register-cut=1", { NoAnswer }),
    failing("connection lost at the lengths", "register-cut=5", { NoAnswer }),
    failing("connection lost at the data", "register-cut=20", { NoAnswer }),
    failing("connection lost at the last write",
            QStringLiteral("register-cut=%1").arg(LastDataWrite), { NoAnswer }),
    // The host may be writing already when it hears of the end.
    failing("not ready behind the count", "register-not-ready=7", { NotReady, NoAnswer }),
    failing("not ready within the data", "register-not-ready=15", { NotReady, NoAnswer }),
    { "not ready behind the last write",
      { QStringLiteral("register-not-ready=%1").arg(LastDataWrite) },
      true,
      {},
      2,
      true },
};

QStringList faultArguments(const QStringList &faults)
{
    QStringList arguments;
    for (const auto &fault : faults)
        arguments += { "--fault", fault };
    return arguments;
}

QStringList upgradeArguments(const ExamplePackage &package, const DeviceProgram &device)
{
    return { "run", package.path(), "--device", device.address(), "--road", "registers", "--yes" };
}

/*! The processes of a scenario. */
struct Cast {
    explicit Cast(const QStringList &faults)
        : device(faultArguments(faults))
        , packageBefore(package.files())
    {
    }

    DeviceProgram device;
    ExamplePackage package;
    QStringList packageBefore;
    std::unique_ptr<UpgradeProgram> upgrade;
};

/*! Replaces \a before in the description of the controller by \a after. */
bool edit(const ExamplePackage &package, const QByteArray &before, const QByteArray &after)
{
    const QDir unit(package.path() + "/controller");
    QFile file(unit.filePath(unit.entryList({ "*.xml" }).value(0)));
    if (!file.open(QIODevice::ReadWrite))
        return false;
    QByteArray text = file.readAll();
    if (!text.contains(before))
        return false;
    text.replace(before, after);
    return file.resize(0) && file.seek(0) && file.write(text) == text.size();
}

} // namespace

/*! Upgrades over the register road, from the package folder to the restarted device. */
class tst_RegisterRoad : public QObject
{
    Q_OBJECT

    std::vector<std::unique_ptr<Cast>> m_casts; // of the scenarios, which run side by side

private Q_SLOTS:
    void initTestCase()
    {
        for (const auto &scenario : Scenarios)
            m_casts.push_back(std::make_unique<Cast>(scenario.faults));
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            auto &cast = *m_casts.at(i);
            QVERIFY2(cast.device.waitForReady(), Scenarios.at(i).name);
            cast.upgrade =
                std::make_unique<UpgradeProgram>(upgradeArguments(cast.package, cast.device));
        }
    }

    void scenario_data()
    {
        QTest::addColumn<int>("index");
        for (std::size_t i = 0; i < Scenarios.size(); ++i)
            QTest::newRow(Scenarios.at(i).name) << int(i);
    }
    void scenario()
    {
        QFETCH(int, index);
        const auto &told = Scenarios.at(std::size_t(index));
        auto &cast = *m_casts.at(std::size_t(index));
        const auto run = cast.upgrade->finish();

        if (told.isGood) {
            QCOMPARE(run.err, QString());
            QCOMPARE(run.out.trimmed().section('\n', -1), Written);
            QCOMPARE(run.exitCode, 0);
        } else {
            QCOMPARE(run.err.section('\n', 0, 0), NotWritten);
            bool isCauseTold = false;
            for (const auto &cause : told.causes)
                isCauseTold = isCauseTold || run.err.contains("\n  cause: " + cause + '\n');
            QVERIFY2(isCauseTold, qPrintable(run.err));
            QCOMPARE(run.err.trimmed().section('\n', -1), KeptAdvice);
            QCOMPARE(run.exitCode, 1);
        }
        QCOMPARE(cast.package.files(), cast.packageBefore); // no plain copy stays

        QVERIFY(cast.device.waitForReady(told.readyCount));
        const QVector<QByteArray> firmware { exampleFile("controller/MCU.dat") };
        QCOMPARE(cast.device.registerFirmware(),
                 told.hasNewFirmware ? firmware : QVector<QByteArray>());
        if (told.hasNewFirmware && told.readyCount == 2)
            QCOMPARE(cast.device.runningVersion(McuCode), QStringLiteral("3.2.1.0"));
        else if (!told.hasNewFirmware)
            QCOMPARE(cast.device.runningVersion(McuCode), QString());
        QVERIFY(cast.device.installedFiles().isEmpty());
    }

    void cleanupTestCase() { m_casts.clear(); }

    void whatIsShown()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto run = UpgradeProgram::run(upgradeArguments(package, device));
        QCOMPARE(run.exitCode, 0);
        const auto lines = run.out.trimmed().split('\n');
        QVERIFY(lines.at(0).startsWith("Strata S8 (0x7701) \"Strata S8\", serial SIM-"));
        QCOMPARE(lines.at(1), QStringLiteral("  main control: MCU"));
        QCOMPARE(lines.at(2), QStringLiteral("Writing firmware, current progress is 4%"));
        QCOMPARE(lines.at(12), QStringLiteral("Writing firmware, current progress is 100%"));
        QCOMPARE(lines.size(), 14);
        QCOMPARE(device.operations(),
                 QStringList({ "hello", "heartbeat.pause", "register.write", "heartbeat.resume" }));
    }

    void againAfterAFailure()
    {
        DeviceProgram device({ "--fault", "register-cut=20" }); // happens once
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QCOMPARE(UpgradeProgram::run(upgradeArguments(package, device)).exitCode, 1);
        QVERIFY(device.registerFirmware().isEmpty());

        QCOMPARE(UpgradeProgram::run(upgradeArguments(package, device)).exitCode, 0);
        QVERIFY(device.waitForReady(2));
        QCOMPARE(UpgradeProgram::run(upgradeArguments(package, device)).exitCode, 0);
        QVERIFY(device.waitForReady(3));
        QCOMPARE(device.registerFirmware(),
                 QVector<QByteArray>({ exampleFile("controller/MCU.dat") }));
    }

    void packageThatIsTooOld()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QVERIFY(edit(package, "Version=\"3.2.1.0\" ModuleID", "Version=\"2.9.9\" ModuleID"));
        const auto run = UpgradeProgram::run(upgradeArguments(package, device));
        QCOMPARE(run.err.section('\n', 0, 0),
                 QStringLiteral("velmar-upgrade: Failed to upgrade:The upgrade file version is too "
                                "low, please check!"));
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(device.operations(),
                 QStringList({ "hello", "heartbeat.pause", "heartbeat.resume" }));
    }

    void packageWithoutCommands()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QVERIFY(edit(package, "SendFileData", "SendNothing"));
        const auto run = UpgradeProgram::run(upgradeArguments(package, device));
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The package has no commands by which the \"MCU\" "
                                "of model 0x7701 could be written register by register\n"));
        QCOMPARE(run.exitCode, 3);
        QCOMPARE(device.operations(), QStringList({ "hello" }));
    }

    void packageForAnotherDevice()
    {
        // Its registers are elsewhere, and so are those of the commands.
        DeviceProgram device({ "--model", "0x7702" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QVERIFY(edit(package, "ModuleID=\"0x7701\"", "ModuleID=\"0x7702\""));
        const auto run = UpgradeProgram::run(upgradeArguments(package, device));
        QVERIFY2(run.err.contains("\n  cause: " + refusal(101) + '\n'), qPrintable(run.err));
        QCOMPARE(run.exitCode, 1);
    }

    void answerLaterThanItsTimeOut()
    {
        DeviceProgram device({ "--fault", "register-slow=1000" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QVERIFY(edit(package, "TimeOut=\"1000\"", "TimeOut=\"200\""));
        const auto before = package.files();
        const auto run = UpgradeProgram::run(upgradeArguments(package, device));
        QCOMPARE(run.err.section('\n', 0, 0), NotWritten);
        QVERIFY2(run.err.contains("\n  cause: " + NoAnswer
                                  + "\n  cause: Fail to send command: SendCardIndex\n"),
                 qPrintable(run.err));
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(package.files(), before);
        QVERIFY(device.registerFirmware().isEmpty());
    }

    void timeLimit()
    {
        DeviceProgram device({ "--fault", "register-slow=200" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        const auto run = UpgradeProgram::run(upgradeArguments(package, device)
                                             + QStringList { "--timeout", "1" });
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The time limit has passed. A device keeps its "
                                "former firmware until the new one is complete. An upgrade begins "
                                "from the start\n"));
        QCOMPARE(run.exitCode, 5);
        QCOMPARE(package.files(), before);
        QVERIFY(device.registerFirmware().isEmpty());
    }

    void interrupt()
    {
        DeviceProgram device({ "--fault", "register-slow=100" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        UpgradeProgram upgrade(upgradeArguments(package, device));
        QVERIFY(upgrade.waitForOutput("Writing firmware"));
        QVERIFY(package.files() != before); // the plain copy is there
        upgrade.interrupt(SIGTERM);
        const auto run = upgrade.finish();
        QCOMPARE(run.err.section('\n', 0, 0),
                 QStringLiteral("velmar-upgrade: A device keeps its former firmware until the new "
                                "one is complete. An upgrade begins from the start"));
        QCOMPARE(run.exitCode, 130);
        QCOMPARE(package.files(), before);
        QVERIFY(device.registerFirmware().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_RegisterRoad)
#include "tst_registerroad.moc"
