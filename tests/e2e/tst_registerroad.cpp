#include "deviceprogram.h"
#include "programs.h"
#include "scenariorows.h"

#include <QtTest>

#include <memory>
#include <vector>

namespace {

constexpr int McuCode = 0x0101;

// The example's file is written in 25 pieces, behind 7 writes.
constexpr int FirstDataWrite = 8;
constexpr int LastDataWrite = 32;

const QString Confirmed = "0 confirmed";
const QString NotRestarted = "5 not-restarted";

/*! An upgrade of a simulated device that is told to do something wrong, and how it has to end. */
struct Scenario {
    const char *name;
    QStringList faults;
    QString end; //!< exit code and the verdict's word; ends stand between bars
    QStringList causes; //!< one of them is in the log
    int readyCount; //!< how many times hosts could connect to the device
    bool hasNewFirmware;
    QByteArray before = {}; //!< of the description of the controller, replaced by
    QByteArray after = {}; //!< this
    QStringList device = {}; //!< further arguments of the device
};

Scenario refused(const char *name, const QString &fault, const QStringList &causes)
{
    return { name, { fault }, "1 send-failed", causes, 1, false };
}

QString refusal(int ack)
{
    return QStringLiteral("Fail to send command: send to hardware failed, ack is %1").arg(ack);
}

const QString NoAnswer = "Fail to send command: invalid response cmd";
const QString NotReady = "Fail to send command: channel is abnormal";

// The device may have had the last write: its versions are asked for, and those from before say nothing.
Scenario lost(const char *name, const QString &fault, const QStringList &causes)
{
    return { name, { fault }, NotRestarted, causes, 1, false };
}

Scenario notReady(const char *name, const QString &fault)
{
    return { name, { fault }, "1 send-failed|" + NotRestarted, { NotReady, NoAnswer }, 1, false };
}

const std::vector<Scenario> Scenarios {
    { "good device", {}, Confirmed, {}, 2, true },
    { "slow answers", { "register-slow=20" }, Confirmed, {}, 2, true },
    { "slow link", { "slow-link=400000" }, Confirmed, {}, 2, true },
    { "no return from the restart", { "no-return" }, "5 not-returned", {}, 1, true },
    refused("card refused", "register-ack=1:104", { refusal(104) }),
    refused("file type refused", "register-ack=2:105", { refusal(105) }),
    refused("second length refused", "register-ack=4:107", { refusal(107) }),
    refused("count refused", "register-ack=7:108", { refusal(108) }),
    refused("first data refused", QStringLiteral("register-ack=%1").arg(FirstDataWrite),
            { refusal(1) }),
    refused("last data refused", QStringLiteral("register-ack=%1:65535").arg(LastDataWrite),
            { refusal(65535) }),
    lost("no answer", "register-silent=3", { NoAnswer }),
    lost("connection lost at the first write", "register-cut=1", { NoAnswer }),
    lost("connection lost at the lengths", "register-cut=5", { NoAnswer }),
    lost("connection lost at the data", "register-cut=20", { NoAnswer }),
    lost("connection lost at the last write", QStringLiteral("register-cut=%1").arg(LastDataWrite),
         { NoAnswer }),
    // The host may be writing already when it hears of the end: it then waits for an answer.
    notReady("not ready behind the count", "register-not-ready=7"),
    notReady("not ready within the data", "register-not-ready=15"),
    { "not ready behind the last write",
      { QStringLiteral("register-not-ready=%1").arg(LastDataWrite) },
      Confirmed,
      {},
      2,
      true },
    { "answer later than its time-out",
      { "register-slow=1000" },
      NotRestarted,
      { "Fail to send command: SendCardIndex" },
      1,
      false,
      "TimeOut=\"1000\"",
      "TimeOut=\"200\"" },
    // Its registers are elsewhere, and so are those of the commands.
    { "package for another device",
      {},
      "1 send-failed",
      { refusal(101) },
      1,
      false,
      "ModuleID=\"0x7701\"",
      "ModuleID=\"0x7702\"",
      { "--model", "0x7702" } },
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
    return { "run",   package.path(),     "--device", device.address(), "--road", "registers",
             "--yes", "--return-timeout", "3" };
}

/*! The processes of a scenario. */
struct Cast {
    explicit Cast(const Scenario &scenario)
        : device(faultArguments(scenario.faults) + scenario.device)
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
            m_casts.push_back(std::make_unique<Cast>(scenario));
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            auto &cast = *m_casts.at(i);
            const auto &scenario = Scenarios.at(i);
            QVERIFY2(cast.device.waitForReady(), scenario.name);
            if (!scenario.before.isEmpty())
                QVERIFY2(edit(cast.package, scenario.before, scenario.after), scenario.name);
            cast.upgrade =
                std::make_unique<UpgradeProgram>(upgradeArguments(cast.package, cast.device)
                                                 + QStringList { "--json", "--verbose" });
        }
    }

    void scenario_data() { addScenarioRows(Scenarios); }
    void scenario()
    {
        QFETCH(int, index);
        const auto &told = Scenarios.at(std::size_t(index));
        auto &cast = *m_casts.at(std::size_t(index));
        const auto run = cast.upgrade->finishTold();
        QVERIFY2(told.end.split('|').contains(run.end()), qPrintable(run.end()));
        const auto log = run.texts("log");
        const bool isCauseTold =
            std::any_of(told.causes.cbegin(), told.causes.cend(),
                        [&log](const QString &cause) { return log.contains(cause); });
        QVERIFY2(isCauseTold == !told.causes.isEmpty(), qPrintable(log.join('\n')));
        QCOMPARE(cast.package.files(), cast.packageBefore);

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
        QVERIFY(lines.contains("  main control: MCU (1.0.0.0 -> 3.2.1.0)"));
        QCOMPARE(lines.filter(" Sending ").constFirst(),
                 QStringLiteral("[4/6] Sending 4%, 4121 B, 0:00"));
        QVERIFY(lines.contains("    main control  MCU  1.0.0.0 -> 3.2.1.0"));
        QCOMPARE(run.err, QString());
        QCOMPARE(device.operations().count("register.write"), 1); // one row of writes
    }

    void againAfterAFailure()
    {
        const auto lostOnce =
            std::find_if(Scenarios.begin(), Scenarios.end(), [](const auto &each) {
                return each.name == QByteArray("connection lost at the data");
            });
        QVERIFY(lostOnce != Scenarios.end());
        auto &cast = *m_casts.at(std::size_t(lostOnce - Scenarios.begin()));
        QCOMPARE(UpgradeProgram::told(upgradeArguments(cast.package, cast.device)).end(),
                 Confirmed);
        QVERIFY(cast.device.waitForReady(2));
        QCOMPARE(cast.device.registerFirmware(),
                 QVector<QByteArray>({ exampleFile("controller/MCU.dat") }));
    }

    void packagesThatCannotBeWritten_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::addColumn<QString>("end");

        QTest::newRow("too old") << QByteArray("Version=\"3.2.1.0\" ModuleID")
                                 << QByteArray("Version=\"2.9.9\" ModuleID") << "3 package-refused";
        QTest::newRow("without commands")
            << QByteArray("SendFileData") << QByteArray("SendNothing") << "3 package-refused";
    }
    void packagesThatCannotBeWritten()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QVERIFY(edit(package, before, after));
        QTEST(UpgradeProgram::told(upgradeArguments(package, device)).end(), "end");
        QVERIFY(!device.operations().contains("register.write"));
    }

    void timeLimit()
    {
        DeviceProgram device({ "--fault", "register-slow=200" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        const auto run = UpgradeProgram::told(upgradeArguments(package, device)
                                              + QStringList { "--timeout", "1" });
        // Between two writes it is not given up, and behind the last one its versions tell.
        QCOMPARE(run.end(), Confirmed);
        QCOMPARE(package.files(), before);
        QCOMPARE(device.registerFirmware().size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_RegisterRoad)
#include "tst_registerroad.moc"
