#include "deviceprogram.h"
#include "programs.h"
#include "scenariorows.h"

#include "support/imagebuilder.h"

#include <QFile>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

using Files = QMap<QString, QByteArray>;

/*! An upgrade of a simulated device over HTTP, and how it has to end. */
struct Scenario {
    const char *name;
    QStringList deviceArguments;
    QStringList relayArguments; //!< in front of the HTTP service; empty: no relay
    QStringList arguments;
    QString end; //!< exit code and the verdict's word; ends stand between bars
    bool isInstalled;
    int readyCount; //!< how many times hosts could connect to the device
};

const QStringList Newer { "--generation", "newer" };
const QStringList Older { "--generation", "older" };
const QStringList Decide { "--compatibility" };
const QString Confirmed = "0 confirmed";
const QString NotSent = "1 send-failed";
// How much was sent by then depends on the buffers in between.
const QString CutOff = "1 send-failed|5 not-restarted";

QStringList with(QStringList arguments, const QString &fault)
{
    return arguments << "--fault" << fault;
}

const std::vector<Scenario> Scenarios {
    { "newer generation", Newer, {}, {}, Confirmed, true, 2 },
    { "newer generation, asked for", Newer, {}, Decide, Confirmed, true, 2 },
    { "older generation", Older, {}, Decide, Confirmed, true, 2 },
    { "older generation taken for the newer", Older, {}, {}, NotSent, false, 1 },
    { "allowed hardware", with(Newer, "version-allowed"), {}, Decide, Confirmed, true, 2 },
    { "refused hardware", with(Newer, "version-refused"), {}, Decide, "3 nothing-fits", false, 1 },
    { "version broken", with(Newer, "version-broken"), {}, Decide, NotSent, false, 1 },
    { "version not told", with(Newer, "version-silent"), {}, Decide, NotSent, false, 1 },
    { "no service", {}, {}, {}, "4 unreachable", false, 1 },
    { "upload reset", with(Newer, "http-reset=50"), {}, {}, CutOff, false, 1 },
    { "upload refused by the host's fault",
      with(Newer, "http-status=404"),
      {},
      {},
      NotSent,
      false,
      1 },
    { "upload refused by the device's fault",
      with(Newer, "http-status=500"),
      {},
      {},
      NotSent,
      false,
      1 },
    { "truncated answers", with(Newer, "http-truncate"), {}, {}, Confirmed, true, 2 },
    { "stalled answers",
      with(with(Newer, "http-stall"), "never-ends=20"),
      {},
      { "--stall-timeout", "10" },
      "5 no-progress",
      false,
      1 },
    { "stalled answers and a restart", with(Newer, "http-stall"), {}, {}, Confirmed, true, 2 },
    { "broken progress", with(Newer, "http-broken"), {}, {}, Confirmed, true, 2 },
    { "empty progress", with(Newer, "http-empty"), {}, {}, Confirmed, true, 2 },
    { "huge progress", with(Newer, "http-huge=1000000"), {}, {}, Confirmed, true, 2 },
    { "huge progress of the older generation",
      with(Older, "http-huge=1000000"),
      {},
      Decide,
      Confirmed,
      true,
      2 },
    { "progress of the older generation",
      with(Newer, "http-switch=1"),
      {},
      {},
      Confirmed,
      true,
      2 },
    { "progress of the newer generation",
      with(Older, "http-switch=1"),
      {},
      Decide,
      Confirmed,
      true,
      2 },
    { "installation fails", with(Newer, "install-fails=50"), {}, {}, "1 install-failed", false, 2 },
    { "failure behind success",
      with(with(Newer, "http-fails-after-done"), "http-slow=1300"),
      {},
      {},
      Confirmed,
      true,
      2 },
    { "slow answers", with(Newer, "http-slow=2500"), {}, {}, Confirmed, true, 2 },
    { "no end", with(Newer, "never-ends=20"), {}, { "--timeout", "20" }, "5 time-limit", false, 1 },
    { "connection reset at a byte",
      Newer,
      { "--fault", "reset", "--at", "1000000" },
      {},
      CutOff,
      false,
      1 },
    { "upload stalls",
      Newer,
      { "--fault", "stall", "--at", "1000000" },
      { "--stall-timeout", "10" },
      CutOff,
      false,
      1 },
    { "answers trickle",
      Newer,
      { "--answers", "--fault", "trickle", "--pace", "20000" },
      {},
      Confirmed,
      true,
      2 },
    { "answer to a poll cut in its body",
      Newer,
      { "--answers", "--connection", "2", "--fault", "close", "--at", "200" },
      {},
      Confirmed,
      true,
      2 },
};

/*! The processes of a scenario. */
struct Cast {
    Cast(int number, const Scenario &scenario)
        : device(QStringList { "--listen", deviceAddress(number) + ":0" }
                 + scenario.deviceArguments)
    {
        if (scenario.relayArguments.isEmpty())
            return;
        relay.start(QStringLiteral(VELMAR_RELAY),
                    QStringList { "--listen", relayAddress(number) + ":8080", "--to",
                                  deviceAddress(number) + ":8080" }
                        + scenario.relayArguments);
    }
    ~Cast()
    {
        relay.kill();
        relay.waitForFinished();
    }

    // The port of the service is fixed: each device has an address of its own.
    static QString deviceAddress(int number) { return QStringLiteral("127.0.90.%1").arg(number); }
    static QString relayAddress(int number) { return QStringLiteral("127.0.91.%1").arg(number); }

    DeviceProgram device;
    QProcess relay;
    std::unique_ptr<UpgradeProgram> upgrade;
};

} // namespace

/*! Upgrades over the HTTP road, with every fault of the device and of the network. */
class tst_HttpRoad : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;
    const Files m_files { { "/firmware/controller/mcu.bin", QByteArray(4000000, 'm') },
                          { "/firmware/backplane/mcu.bin", QByteArray(1234, 'b') } };
    ExamplePackage m_package;
    // The library polls once a second: the scenarios run side by side.
    std::vector<std::unique_ptr<Cast>> m_casts;

private Q_SLOTS:
    void initTestCase()
    {
        ImageBuilder image;
        for (auto file = m_files.cbegin(); file != m_files.cend(); ++file)
            image.files.append({ file.key().toUtf8(), *file });
        QFile file(m_folder.filePath("image"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write(image.build()) > 4000000);
        file.close();
        for (std::size_t i = 0; i < Scenarios.size(); ++i)
            m_casts.push_back(std::make_unique<Cast>(int(i) + 1, Scenarios.at(i)));
        for (std::size_t i = 0; i < Scenarios.size(); ++i) {
            auto &cast = *m_casts.at(i);
            QVERIFY2(cast.device.waitForReady(), Scenarios.at(i).name);
            QStringList arguments { "run",
                                    m_package.path(),
                                    "--device",
                                    cast.device.address(),
                                    "--yes",
                                    "--road",
                                    "http",
                                    "--card",
                                    "main",
                                    "--file",
                                    file.fileName(),
                                    "--json",
                                    "--return-timeout",
                                    "20" };
            if (!Scenarios.at(i).relayArguments.isEmpty()) {
                QVERIFY2(cast.relay.waitForReadyRead(), Scenarios.at(i).name);
                arguments << "--http-host" << Cast::relayAddress(int(i) + 1);
            }
            cast.upgrade = std::make_unique<UpgradeProgram>(arguments + Scenarios.at(i).arguments);
        }
    }

    void scenario_data() { addScenarioRows(Scenarios); }
    void scenario()
    {
        QFETCH(int, index);
        const auto &told = Scenarios.at(std::size_t(index));
        auto &cast = *m_casts.at(std::size_t(index));
        const auto end = cast.upgrade->finishTold().end();
        QVERIFY2(told.end.split('|').contains(end), qPrintable(end));
        QVERIFY(cast.device.waitForReady(told.readyCount));
        const auto files = cast.device.installedFiles();
        QVERIFY(files == (told.isInstalled ? m_files : Files()));
    }

    void phasesOfAnUpload()
    {
        DeviceProgram device(QStringList { "--listen", "127.0.90.200:0", "--install-ms", "1500" }
                             + Newer);
        QVERIFY(device.waitForReady());
        const auto run = UpgradeProgram::told(
            { "run", m_package.path(), "--device", device.address(), "--yes", "--road", "http",
              "--card", "main", "--file", m_folder.filePath("image") });
        QCOMPARE(run.end(), Confirmed);
        QCOMPARE(run.phases(),
                 QStringList({ "copy", "check", "plan", "send", "install", "restart", "confirm" }));
        QVERIFY(run.verdict().value("bytesSent").toInt() > 4000000);
        QVERIFY(device.operations().contains("POST /uploadUpgrade"));
        QVERIFY(device.waitForReady(2));
    }

    void cleanupTestCase() { m_casts.clear(); }
};

QTEST_GUILESS_MAIN(tst_HttpRoad)

#include "tst_httproad.moc"
