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

const QString Restarting = "Upgrade successful,device is restarting.";

/*! An upgrade of a simulated device, and how it has to end. */
struct Scenario {
    const char *name;
    QStringList deviceArguments;
    QStringList arguments;
    int exitCode;
    QString out; //!< last line of the output
    QString err; //!< first line of the errors
    Names installed;
    int readyCount; //!< how many times hosts could connect to the device
};

const std::vector<Scenario> Scenarios {
    { "everything", {}, {}, 0, Restarting, "", Everything, 2 },
    { "one section with its data files, by card",
      {},
      { "--section", "MCU", "--card", "main" },
      0,
      Restarting,
      "",
      MainMcu + DataFiles,
      2 },
    { "one section, by name", {}, { "--section", "EDID" }, 0, Restarting, "", Edid, 2 },
    { "one card", {}, { "--card", "3" }, 0, Restarting, "", SdiCardBoard2, 2 },
    { "device without cards",
      { "--no-cards" },
      {},
      0,
      Restarting,
      "",
      MainMcu + DataFiles + RestOfMain,
      2 },
    { "announcement refused",
      { "--fault", "refuse-announce" },
      {},
      1,
      "  card 3: FPGA, SDI",
      "velmar-upgrade: Failed to import upgrade file,device is restarting.",
      {},
      2 },
    { "connection cut before the first byte",
      { "--fault", "cut-transfer=0" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to import upgrade file,device is restarting.",
      {},
      2 },
    { "connection cut at half",
      { "--fault", "cut-transfer=50" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to import upgrade file,device is restarting.",
      {},
      2 },
    { "connection cut behind the last byte",
      { "--fault", "cut-transfer=100" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to import upgrade file,device is restarting.",
      {},
      2 },
    { "configuration refused",
      { "--fault", "refuse-configure" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to set upgrade config,device is restarting.",
      {},
      2 },
    { "first look at the progress lost",
      { "--fault", "drop-progress=1" },
      {},
      0,
      Restarting,
      "",
      Everything,
      2 },
    { "second look at the progress refused",
      { "--fault", "refuse-progress=2" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to get upgrade progress,device is restarting.",
      Everything,
      2 },
    { "installation fails",
      { "--fault", "install-fails=50" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to get upgrade progress,device is restarting.",
      {},
      2 },
    { "power cut before the device is bound to complete",
      { "--fault", "power-cut=3" },
      {},
      1,
      "",
      "velmar-upgrade: Failed to get upgrade progress,device is restarting.",
      {},
      3 },
    { "power cut when the device is bound to complete",
      { "--fault", "power-cut=5" },
      {},
      0,
      Restarting,
      "",
      Everything,
      3 },
    { "restart refused",
      { "--fault", "refuse-restart" },
      {},
      0,
      "Upgrade successful,please restart the device manually.",
      "",
      Everything,
      1 },
    { "no return after the restart",
      { "--fault", "no-return" },
      {},
      0,
      Restarting,
      "",
      Everything,
      1 },
    { "slow link", { "--fault", "slow-link=4000000" }, {}, 0, Restarting, "", Everything, 2 },
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
class tst_NativeRoad : public QObject {
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

        if (told.exitCode == 0)
            QCOMPARE(run.out.trimmed().section('\n', -1), told.out);
        QCOMPARE(run.err.section('\n', 0, 0), told.err);
        QCOMPARE(run.exitCode, told.exitCode);

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
