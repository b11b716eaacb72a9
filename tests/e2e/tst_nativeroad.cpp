#include "deviceprogram.h"
#include "programs.h"

#include <QtTest>

#include <memory>
#include <vector>

namespace {

using Files = QMap<QString, QByteArray>;
using Names = QVector<QPair<QString, QString>>; // destination path, plain file of the example

const Names DataFiles {
    { "/config/osd.json", "controller/osd.json" },
    { "/config/font12.dat", "controller/font12.dat" },
};
const Names MainMcu {
    { "/firmware/controller/mcu.bin", "controller/MCU.dat" },
};
const Names RestOfMain {
    { "/firmware/controller/fpga.bin", "controller/FPGA.dat" },
    { "/boot/kernel.bin", "controller/kernel.bin" },
    { "/boot/kernel-recovery.bin", "controller/kernel.bin" },
    { "/firmware/backplane/mcu.bin", "controller/MCU_Back.dat" },
};
const Names Edid {
    { "/firmware/cards/7801/edid.bin", "hdmi-input/edid.bin" },
};
const Names RestOfHdmiCard {
    { "/firmware/cards/7801/mcu.bin", "hdmi-input/MCU.dat" },
    { "/firmware/cards/7801/fpga.bin", "hdmi-input/FPGA.dat" },
};
const Names SdiCardBoard1 {
    { "/firmware/cards/7802/board1-mcu.bin", "dp-sdi-input/MCU.dat" },
    { "/firmware/cards/7802/board1-fpga.bin", "dp-sdi-input/FPGA-board1.dat" },
};
const Names SdiCardBoard2 {
    { "/firmware/cards/7802/board2-fpga.bin", "dp-sdi-input/FPGA-board2.dat" },
    { "/firmware/cards/7802/board2-sdi.bin", "dp-sdi-input/SDI.dat" },
};
const Names Everything =
    DataFiles + MainMcu + RestOfMain + Edid + RestOfHdmiCard + SdiCardBoard1 + SdiCardBoard2;

/*! How velmar-upgrade ends. */
struct End {
    int exitCode;
    QString out; //!< last line of the output; of a success alone
    QString err; //!< first line of the errors
    QString advice; //!< last line of the errors
};

const QString NotInstalledAdvice =
    "  advice: the device has installed nothing; upgrade again once the cause is removed";
const QString AgainAdvice = "  advice: upgrade again when the device is back";

const End Upgraded { 0, "Upgrade successful,device is restarting.", "", "" };
const End NotRestarted { 0, "Upgrade successful,please restart the device manually.", "", "" };
const End NotAnnounced { 1, "",
                         "velmar-upgrade: Failed to import upgrade file,device is restarting.",
                         NotInstalledAdvice };
const End NotSent { 1, "", "velmar-upgrade: Failed to import upgrade file,device is restarting.",
                    AgainAdvice };
const End NotConfigured { 1, "",
                          "velmar-upgrade: Failed to set upgrade config,device is restarting.",
                          AgainAdvice };
const End NotInstalled { 1, "",
                         "velmar-upgrade: Failed to get upgrade progress,device is restarting.",
                         AgainAdvice };

/*! An upgrade of a simulated device, and how it has to end. */
struct Scenario {
    const char *name;
    QStringList deviceArguments;
    QStringList arguments;
    const End &end;
    Names installed;
    int readyCount; //!< how many times hosts could connect to the device
};

Scenario withFault(const char *name, const QString &fault, const End &end, const Names &installed,
                   int readyCount)
{
    return { name, { "--fault", fault }, {}, end, installed, readyCount };
}

const std::vector<Scenario> Scenarios {
    { "everything", {}, {}, Upgraded, Everything, 2 },
    { "section by name, on a card by slot, with its data files",
      {},
      { "--section", "MCU", "--card", "main" },
      Upgraded,
      MainMcu + DataFiles,
      2 },
    { "section by name", {}, { "--section", "EDID" }, Upgraded, Edid, 2 },
    { "card by slot", {}, { "--card", "3" }, Upgraded, SdiCardBoard2, 2 },
    { "device without cards", { "--no-cards" }, {}, Upgraded, MainMcu + DataFiles + RestOfMain, 2 },
    withFault("announcement refused", "refuse-announce", NotAnnounced, {}, 2),
    withFault("connection cut before the first byte", "cut-transfer=0", NotAnnounced, {}, 2),
    withFault("connection cut at half", "cut-transfer=50", NotSent, {}, 2),
    withFault("connection cut behind the last byte", "cut-transfer=100", NotSent, {}, 2),
    withFault("configuration refused", "refuse-configure", NotConfigured, {}, 2),
    withFault("first look at the progress lost", "drop-progress=1", Upgraded, Everything, 2),
    withFault("second look refused", "refuse-progress=2", NotInstalled, Everything, 2),
    withFault("installation fails", "install-fails=50", NotInstalled, {}, 2),
    withFault("power cut before the device is bound to complete", "power-cut=3", NotInstalled, {},
              3),
    withFault("power cut when the device is bound to complete", "power-cut=5", Upgraded, Everything,
              3),
    withFault("restart refused", "refuse-restart", NotRestarted, Everything, 1),
    withFault("no return from the restart", "no-return", Upgraded, Everything, 1),
    withFault("slow link", "slow-link=4000000", Upgraded, Everything, 2),
};

/*! The processes of a scenario. */
struct Cast {
    explicit Cast(const QStringList &deviceArguments)
        : device(deviceArguments)
    {
    }

    DeviceProgram device;
    ExamplePackage package;
    std::unique_ptr<UpgradeProgram> upgrade;
};

} // namespace

/*! Upgrades over the native road, from the package folder to the restarted device. */
class tst_NativeRoad : public QObject
{
    Q_OBJECT

    // The library looks at the progress every 2 s: the scenarios run side by side.
    std::vector<std::unique_ptr<Cast>> m_casts;

private Q_SLOTS:
    void initTestCase()
    {
        for (const auto &scenario : Scenarios)
            m_casts.push_back(std::make_unique<Cast>(scenario.deviceArguments));
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            auto &cast = *m_casts.at(i);
            QVERIFY2(cast.device.waitForReady(), Scenarios.at(i).name);
            cast.upgrade = std::make_unique<UpgradeProgram>(
                QStringList { "run", cast.package.path(), "--device", cast.device.address(),
                              "--yes" }
                + Scenarios.at(i).arguments);
        }
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            if (Scenarios.at(i).deviceArguments.value(1).startsWith("power-cut")) {
                QVERIFY2(m_casts.at(i)->device.waitForEnd(), Scenarios.at(i).name);
                QVERIFY2(m_casts.at(i)->device.startAgain(), Scenarios.at(i).name);
            }
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

        if (told.end.exitCode == 0)
            QCOMPARE(run.out.trimmed().section('\n', -1), told.end.out);
        QCOMPARE(run.err.section('\n', 0, 0), told.end.err);
        QCOMPARE(run.err.trimmed().section('\n', -1), told.end.advice);
        QCOMPARE(run.exitCode, told.end.exitCode);

        QVERIFY(cast.device.waitForReady(told.readyCount));
        Files installed;
        for (const auto &[target, source] : told.installed)
            installed.insert(target, exampleFile(source));
        const auto files = cast.device.installedFiles();
        QCOMPARE(files.keys(), installed.keys());
        for (auto file = installed.cbegin(); file != installed.cend(); ++file)
            QVERIFY2(files.value(file.key()) == *file, qPrintable(file.key()));
    }

    void cleanupTestCase() { m_casts.clear(); }

    void keyOfThePackage()
    {
        QTemporaryDir folder;
        QFile key(folder.filePath("key"));
        QVERIFY(key.open(QIODevice::WriteOnly));
        key.write("key = 0102030405060708090a0b0c0d0e0f10\n");
        key.close();
        const ExamplePackage package({ "--key-file", key.fileName() });
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const QStringList arguments { "run",   package.path(), "--device", device.address(),
                                      "--yes", "--section",    "SDI" };

        const auto without = UpgradeProgram::run(arguments);
        QCOMPARE(without.err.section('\n', 0, 0),
                 QStringLiteral("velmar-upgrade: Failed to recombine upgrade file"));
        QVERIFY2(without.err.contains("\n  cause: Decrypt file failed.\n"),
                 qPrintable(without.err));
        QVERIFY(without.err.endsWith("  advice: the device has installed nothing; upgrade again "
                                     "once the cause is removed\n"));
        QCOMPARE(without.exitCode, 1);
        QVERIFY(device.installedFiles().isEmpty());

        const auto with =
            UpgradeProgram::run(arguments + QStringList { "--key-file", key.fileName() });
        QCOMPARE(with.err, QString());
        QCOMPARE(with.exitCode, 0);
        QCOMPARE(device.installedFiles().value("/firmware/cards/7802/board2-sdi.bin"),
                 exampleFile("dp-sdi-input/SDI.dat"));
    }

    void cleanRunAfterAFailure()
    {
        DeviceProgram device({ "--fault", "cut-transfer" }); // happens once
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        const QStringList arguments { "run",   package.path(), "--device", device.address(),
                                      "--yes", "--section",    "Kernel" };
        QCOMPARE(UpgradeProgram::run(arguments).exitCode, 1);
        QVERIFY(package.files().contains("upgrade")); // stays behind a failed transfer
        QVERIFY(device.waitForReady(2));

        const auto again = UpgradeProgram::run(arguments);
        QCOMPARE(again.err, QString());
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(package.files(), before);
        QCOMPARE(device.installedFiles().value("/boot/kernel.bin"),
                 exampleFile("controller/kernel.bin"));
    }
};

QTEST_GUILESS_MAIN(tst_NativeRoad)
#include "tst_nativeroad.moc"
