#include "deviceprogram.h"
#include "programs.h"
#include "scenariorows.h"

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

/*! An upgrade of a simulated device, and how it has to end. */
struct Scenario {
    const char *name;
    QStringList deviceArguments;
    QStringList arguments;
    QString end; //!< exit code and the verdict's word
    Names installed;
    int readyCount; //!< how many times hosts could connect to the device
};

const QString Confirmed = "0 confirmed";
const QString NotSent = "1 send-failed";

Scenario withFault(const char *name, const QString &fault, const QString &end,
                   const Names &installed, int readyCount)
{
    return { name, { "--fault", fault }, {}, end, installed, readyCount };
}

// A device is restarted if it has told the end of an installation, and never else.
const std::vector<Scenario> Scenarios {
    { "everything", {}, {}, Confirmed, Everything, 2 },
    { "section by name, on a card by slot, with its data files",
      {},
      { "--section", "MCU", "--card", "main" },
      Confirmed,
      MainMcu + DataFiles,
      2 },
    { "section by name", {}, { "--section", "EDID" }, Confirmed, Edid, 2 },
    { "card by slot", {}, { "--card", "3" }, Confirmed, SdiCardBoard2, 2 },
    { "device without cards",
      { "--no-cards" },
      {},
      Confirmed,
      MainMcu + DataFiles + RestOfMain,
      2 },
    withFault("announcement refused", "refuse-announce", NotSent, {}, 1),
    withFault("connection cut before the first byte", "cut-transfer=0", NotSent, {}, 1),
    withFault("connection cut at half", "cut-transfer=50", NotSent, {}, 1),
    withFault("connection cut behind the last byte", "cut-transfer=100", NotSent, {}, 1),
    withFault("configuration refused", "refuse-configure", NotSent, {}, 1),
    withFault("first look at the progress lost", "drop-progress=1", Confirmed, Everything, 2),
    withFault("second look refused", "refuse-progress=2", Confirmed, Everything, 2),
    withFault("installation fails", "install-fails=50", "1 install-failed", {}, 2),
    withFault("power cut before the device is bound to complete", "power-cut=3", "1 install-failed",
              {}, 2),
    withFault("power cut when the device is bound to complete", "power-cut=5", Confirmed,
              Everything, 2),
    withFault("restart refused", "refuse-restart", "5 not-restarted", Everything, 1),
    withFault("no return from the restart", "no-return", "5 not-returned", Everything, 1),
    withFault("slow link", "slow-link=4000000", Confirmed, Everything, 2),
};

/*! The processes of a scenario. */
struct Cast {
    explicit Cast(const QStringList &deviceArguments)
        : device(deviceArguments)
        , packageBefore(package.files())
    {
    }

    DeviceProgram device;
    ExamplePackage package;
    QStringList packageBefore;
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
                              "--yes", "--json", "--return-timeout", "10" }
                + Scenarios.at(i).arguments);
        }
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            if (Scenarios.at(i).deviceArguments.value(1).startsWith("power-cut")) {
                QVERIFY2(m_casts.at(i)->device.waitForEnd(), Scenarios.at(i).name);
                QVERIFY2(m_casts.at(i)->device.startAgain(), Scenarios.at(i).name);
            }
        }
    }

    void scenario_data() { addScenarioRows(Scenarios); }
    void scenario()
    {
        QFETCH(int, index);
        const auto &told = Scenarios.at(std::size_t(index));
        auto &cast = *m_casts.at(std::size_t(index));
        const auto run = cast.upgrade->finishTold();
        QCOMPARE(run.end(), told.end);
        QCOMPARE(cast.package.files(), cast.packageBefore);

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

        QCOMPARE(UpgradeProgram::told(arguments).end(), QStringLiteral("3 package-refused"));
        QCOMPARE(device.operations(), QStringList());

        QCOMPARE(
            UpgradeProgram::told(arguments + QStringList { "--key-file", key.fileName() }).end(),
            Confirmed);
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
        QCOMPARE(UpgradeProgram::told(arguments).end(), NotSent);
        QCOMPARE(UpgradeProgram::told(arguments).end(), Confirmed);
        QCOMPARE(package.files(), before);
        QCOMPARE(device.installedFiles().value("/boot/kernel.bin"),
                 exampleFile("controller/kernel.bin"));
    }
};

QTEST_GUILESS_MAIN(tst_NativeRoad)
#include "tst_nativeroad.moc"
