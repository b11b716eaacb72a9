#include "upgradefile.h"
#include "upgradeprocess_p.h"

#include "support/fakedevice.h"
#include "support/logtext.h"
#include "support/statusbarrecorder.h"
#include "support/storefile.h"
#include "support/translationrecorder.h"

#include <velmarssproxy/devicemanager.h>

#include <QCborArray>
#include <QNetworkDatagram>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <atomic>
#include <functional>
#include <limits>
#include <mutex>

using namespace Velmar::Firmware;
using Internal::UpgradeProcessPrivate;
using Velmar::BizModel::LinkRequest;
using Velmar::ProtoModel::Auxiliary::s_CardInfoParts;
using Velmar::ProtoModel::Auxiliary::s_UpgradePercent;
using Velmar::SSProxy::DeviceManager;

using Step = std::function<bool(UpgradeProcessPrivate &)>;
using Translations = QVector<QPair<QString, QString>>;
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Enum::UpgradeProcessType)

namespace {

constexpr unsigned short OwnModel = 1024;
constexpr quint16 FpgaCode = 12;
constexpr char Context[] = "Velmar::Firmware::Internal::UpgradeProcessPrivate";
constexpr auto FullUpgrade = Enum::UpgradeProcessType::FullUpgrade;
constexpr auto ReadProgressOnly = Enum::UpgradeProcessType::ReadProgressOnly;

// What happened, in order, told by any thread.
class Journal
{
public:
    void add(const QString &entry)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.append(entry);
    }

    QStringList entries() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_entries;
    }

private:
    mutable std::mutex m_mutex; // guards m_entries
    QStringList m_entries;
};

Velmar::BizModel::s_DeviceConfig deviceModel()
{
    Velmar::BizModel::s_DeviceConfig config;
    config.modelId = OwnModel;
    config.upgradeCfgs = { { QStringLiteral("FPGA"), 1, FpgaCode, 0, 0 } };
    return config;
}

std::vector<s_CardInfoParts> chosenParts()
{
    s_CardInfoParts card;
    card.type = 1;
    card.slotId = 7;
    card.modelId = OwnModel;
    card.boardId = 3;
    card.section = { { FpgaCode }, { 500 } };
    return { card };
}

QCborMap progress(int result, int rate = 0)
{
    return { { QLatin1String("result"), result }, { QLatin1String("rate"), rate } };
}

// A package with one firmware file for the device's own FPGA.
class Package
{
public:
    bool isValid() const { return storeFile(m_folder.filePath("fpga.bin"), "firmware"); }
    QString path() const { return m_folder.path(); }
    QString imagePath() const { return m_folder.filePath(QStringLiteral("upgrade")); }
    QVector<UpgradeCfg> upgradeCfgs() const
    {
        UpgradeFileItem item;
        item.sectionName = QStringLiteral("FPGA");
        item.filePath = m_folder.filePath(QStringLiteral("fpga.bin"));
        item.targetPath = QStringLiteral("/fpga");
        UpgradeCfg cfg;
        cfg.modelId = OwnModel;
        cfg.files = { item };
        return { cfg };
    }

private:
    QTemporaryDir m_folder;
};

bool isPortFree(quint16 port)
{
    QUdpSocket socket;
    return socket.bind(QHostAddress(QHostAddress::LocalHost), port);
}

// A UDP port that nobody has at the moment.
quint16 freePort()
{
    QUdpSocket socket;
    return socket.bind(QHostAddress(QHostAddress::LocalHost), 0) ? socket.localPort() : 0;
}

// Starts no probe behind a run: it would come in the middle of a later test.
class QuietProcess : public UpgradeProcess
{
public:
    QuietProcess(const std::weak_ptr<Velmar::BizModel::Device> &device,
                 const std::vector<s_CardInfoParts> &upgradeParts,
                 const QVector<UpgradeCfg> &upgradeCfgs, const QString &packagePath)
        : UpgradeProcess(device, upgradeParts, upgradeCfgs, {}, packagePath)
    {
        UpgradeProcessPrivate::get(this)->probeRestartMs = std::numeric_limits<int>::max();
    }

    /*! Of one that only watches. */
    explicit QuietProcess(const std::weak_ptr<Velmar::BizModel::Device> &device)
        : QuietProcess(device, {}, {}, QString())
    {
    }
};

// Where the rounds of the device probe arrive.
class ProbeTarget
{
public:
    ProbeTarget()
    {
        if (m_socket.bind(QHostAddress(QHostAddress::LocalHost), 0))
            DeviceManager::instance()->setProbeTarget(
                { QStringLiteral("127.0.0.1"), m_socket.localPort(), 0, 60000 });
    }
    ~ProbeTarget() { DeviceManager::instance()->stopDeviceUDPProbe(); }

    bool isBound() const { return m_socket.state() == QAbstractSocket::BoundState; }
    bool isAsked() const { return m_socket.hasPendingDatagrams(); }
    bool isAskedFrom(quint16 port)
    {
        while (m_socket.hasPendingDatagrams()) {
            if (m_socket.receiveDatagram().senderPort() == port)
                return true;
        }
        return false;
    }
    quint16 port() const { return m_socket.localPort(); }
    QUdpSocket &socket() { return m_socket; }

private:
    QUdpSocket m_socket;
};

// Starts a probe that asks the target from a port of its own, which tells whether it is on. Returns
// that port, 0 without success.
quint16 startProbe(ProbeTarget &target, quint16 interval)
{
    for (int attempt = 0; attempt < 10; ++attempt) {
        const quint16 port = freePort();
        DeviceManager::instance()->startDeviceProbe(QStringLiteral("127.0.0.1"), target.port(),
                                                    port, interval);
        // Nobody asks if the port has been taken meanwhile.
        if (QTest::qWaitFor([&] { return target.isAskedFrom(port); }, 2000))
            return port;
    }
    return 0;
}

} // namespace

class tst_UpgradeProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // The public class
    void shape();
    void parametersAreReplaced();

    // A run
    void fullUpgrade();
    void watchOnly_data();
    void watchOnly();
    void outcomes_data();
    void outcomes();
    void expiredDevice_data();
    void expiredDevice();
    void failedImportLeavesImage();
    void noPartsBehindTheImage();
    void imageIsGoneAlready();
    void imageCannotBeRemoved();
    void startWhileRunning();
    void startAgain();
    void objectIsDestroyedBehindItsRun();

    // Sending
    void announcement();
    void announcementRefused();
    void transferRefused_data();
    void transferRefused();
    void unsoundImage();
    void sizeIsCutTo32Bits();
    void transferProgress_data();
    void transferProgress();

    // Installing
    void upgradeConfiguration();
    void upgradeConfigurationRefused();
    void noParts();
    void firstPollSucceeds();
    void lastRecordStays();
    void recordIsPublishedBeforeItIsJudged_data();
    void recordIsPublishedBeforeItIsJudged();
    void runningResults_data();
    void runningResults();
    void readingStopped();
    void deviceGoesAwayDuringPolling();
    void recordsAreReadWhole();
    void deviceIsHeldThroughTheSleep();

    // Restarting
    void restart_data();
    void restart();
    void probeIsArmedBeforeTheDeviceIsAsked();
    void probeStartsAgainIfTheRestartIsRefused();
    void restartOfExpiredDeviceLeavesProbeAlone();
    void probeStartsOnTheCreatorsThread();
    void probeWaitsForTheCreatorsEventLoop();

    void expiredDeviceInSteps_data();
    void expiredDeviceInSteps();

private:
    void answerAll();
    static bool isEnded(UpgradeProcess &process);

    QScopedPointer<FakeDevice> m_device;
};

void tst_UpgradeProcess::init()
{
    m_device.reset(); // the next one is active only if this one is gone
    m_device.reset(new FakeDevice(deviceModel()));
    // No round of the probe leaves this machine, whatever a test does.
    DeviceManager::instance()->setProbeTarget({ QStringLiteral("127.0.0.1"), 9, 0, 60000 });
}

// A device that accepts everything and has installed at the first look.
void tst_UpgradeProcess::answerAll()
{
    ScriptedLink &link = m_device->link();
    link.answer("version.read", ScriptedLink::accepted());
    link.answer("file.announce", ScriptedLink::accepted());
    link.answer("file.open", ScriptedLink::accepted());
    link.handle("file.data", [](const LinkRequest &request) {
        const qint64 received = request.arguments.value(QLatin1String("offset")).toInteger()
            + request.arguments.value(QLatin1String("bytes")).toByteArray().size();
        return ScriptedLink::accepted({ { QLatin1String("received"), received } });
    });
    link.answer("file.close", ScriptedLink::accepted());
    link.answer("upgrade.configure", ScriptedLink::accepted());
    link.answer("upgrade.progress", ScriptedLink::accepted(progress(2, 100)));
    link.answer("device.shutdown", ScriptedLink::accepted());
}

// Waits for the end of the run, and lets all of its signals arrive on this thread.
bool tst_UpgradeProcess::isEnded(UpgradeProcess &process)
{
    const bool isEnded = UpgradeProcessPrivate::get(&process)->wait(10000);
    QCoreApplication::processEvents();
    return isEnded;
}

void tst_UpgradeProcess::shape()
{
    UpgradeProcess process(m_device->handle(), {}, {}, {}, QString());
    const QMetaObject *const meta = process.metaObject();

    QCOMPARE(meta->className(), "Velmar::Firmware::UpgradeProcess");
    QCOMPARE(meta->superClass()->className(), "QObject");
    QCOMPARE(process.parent(), nullptr);
    QStringList methods;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i)
        methods.append(QString::fromLatin1(meta->method(i).methodSignature()));
    QCOMPARE(
        methods,
        QStringList({ "signalStartReadUpgradeProgress()", "signalUpgradeFinished(bool,QString)" }));
    QCOMPARE(meta->propertyCount(), meta->propertyOffset());

    const UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    QCOMPARE(worker->q, &process);
    QCOMPARE(worker->keepReading, true);
    QCOMPARE(worker->processType, FullUpgrade);
    QCOMPARE(worker->pollIntervalMs, 2000UL);
    QCOMPARE(worker->probeRestartMs, 10000);
    QVERIFY(!worker->isRunning());

    s_UpgradePercent percent;
    percent.rate = 7;
    percent.result = 8;
    percent.subSections.rate = 9;
    percent.parts.resize(1);
    process.upgradeProgressDetails(percent);
    QCOMPARE(int(percent.rate), 0);
    QCOMPARE(percent.result, 0);
    QCOMPARE(int(percent.subSections.rate), 0);
    QVERIFY(percent.parts.empty());
}

void tst_UpgradeProcess::parametersAreReplaced()
{
    UpgradeProcess process({}, {}, {}, {}, QStringLiteral("/old"));
    UpgradeCfg cfg;
    cfg.modelId = 5;

    process.initUpgradeParam(m_device->handle(), chosenParts(), { cfg }, { { "a", "b" } },
                             QStringLiteral("/new"));

    const UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    QCOMPARE(worker->activedDevice.lock(), m_device->handle().lock());
    QCOMPARE(worker->upgradeParts.size(), std::size_t(1));
    QCOMPARE(int(worker->upgradeParts[0].slotId), 7);
    QCOMPARE(worker->upgradeCfgs.size(), 1);
    QCOMPARE(worker->upgradeCfgs[0].modelId, 5);
    QCOMPARE(worker->dataFilePaths.size(), 1);
    QCOMPARE(worker->dataFilePaths[0].targetPath, QString("b"));
    QCOMPARE(worker->packagePath, QString("/new"));
}

void tst_UpgradeProcess::fullUpgrade()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    Journal journal;
    ScriptedLink &link = m_device->link();
    link.handle("version.read", [&journal](const LinkRequest &) {
        journal.add("version.read");
        return ScriptedLink::accepted();
    });
    link.handle("file.announce", [&](const LinkRequest &) {
        journal.add(QFile::exists(package.imagePath()) ? "file.announce" : "no image");
        return ScriptedLink::accepted();
    });
    link.handle("upgrade.configure", [&](const LinkRequest &) {
        journal.add(QFile::exists(package.imagePath()) ? "image stays" : "upgrade.configure");
        return ScriptedLink::accepted();
    });
    int polls = 0;
    link.handle("upgrade.progress", [&](const LinkRequest &) {
        journal.add("upgrade.progress");
        ++polls;
        return ScriptedLink::accepted(progress(polls == 3 ? 2 : 1, polls));
    });
    link.handle("device.shutdown", [&](const LinkRequest &request) {
        journal.add(QStringLiteral("device.shutdown mode %1")
                        .arg(request.arguments.value(QLatin1String("mode")).toInteger(-1)));
        return ScriptedLink::accepted();
    });
    const TranslationRecorder translator;
    QObject receiver; // connected directly, to see the order and the thread
    connect(
        Velmar::BizModel::DeviceList::instance(),
        &Velmar::BizModel::DeviceList::signalShowStatusBarMsg, &receiver,
        [&journal](Velmar::BizModel::Enum::StatusBarMsgType, const QString &text,
                   int milliseconds) {
            journal.add(QStringLiteral("status %1 %2").arg(milliseconds).arg(text));
        },
        Qt::DirectConnection);
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    worker->pollIntervalMs = 1;
    connect(
        &process, &UpgradeProcess::signalStartReadUpgradeProgress, &receiver,
        [&] { journal.add(QThread::currentThread() == worker ? "signalStart" : "wrong thread"); },
        Qt::DirectConnection);
    connect(
        &process, &UpgradeProcess::signalUpgradeFinished, &receiver,
        [&](bool result, const QString &text) {
            journal.add(QThread::currentThread() == worker ? "signalFinished" : "wrong thread");
            journal.add(QStringLiteral("%1 %2").arg(result).arg(text));
            journal.add(link.isOpen() ? "connected" : "disconnected");
        },
        Qt::DirectConnection);
    const LogRecorder log;

    process.start(FullUpgrade);
    QVERIFY(worker->wait(10000));

    const QString mark(QChar(0xAB)); // of a translated text
    QCOMPARE(journal.entries(),
             QStringList({
                 "version.read",
                 "status 30000 " + mark + "Upgrading file processing",
                 "status 1 ",
                 "file.announce",
                 "status 5000 " + mark + "Sending upgrade files,current progress is 100%",
                 "upgrade.configure",
                 "signalStart",
                 "upgrade.progress",
                 "upgrade.progress",
                 "upgrade.progress",
                 "device.shutdown mode 0",
                 "signalFinished",
                 "1 " + mark + "Upgrade successful," + mark + "device is restarting.",
                 "disconnected",
             }));
    QCOMPARE(translator.asked(),
             Translations({ { Context, "Upgrading file processing" },
                            { Context, "Sending upgrade files,current progress is %1%" },
                            { Context, "device is restarting." },
                            { Context, "Upgrade successful," } }));
    QCOMPARE(link.operations(),
             QStringList({ "version.read", "file.announce", "file.open", "file.data", "file.close",
                           "upgrade.configure", "upgrade.progress", "upgrade.progress",
                           "upgrade.progress", "device.shutdown" }));
    QCOMPARE(logText(log), QByteArray("debug: upgrade progress status:2\n"));
    QVERIFY(!QFile::exists(package.imagePath()));
}

void tst_UpgradeProcess::watchOnly_data()
{
    QTest::addColumn<int>("type");

    QTest::newRow("1") << 1;
    QTest::newRow("7") << 7;
    QTest::newRow("255") << 255;
    QTest::newRow("-1") << -1;
}

void tst_UpgradeProcess::watchOnly()
{
    QFETCH(int, type);
    const Package package;
    QVERIFY(package.isValid());
    QVERIFY(storeFile(package.imagePath(), "old"));
    answerAll();
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    int starts = 0;
    QStringList ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalStartReadUpgradeProgress, &receiver,
            [&starts] { ++starts; });
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool, const QString &text) { ends.append(text); });
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    process.start(static_cast<Enum::UpgradeProcessType>(type));

    QVERIFY(isEnded(process));
    QCOMPARE(ends, QStringList("Upgrade successful,device is restarting."));
    QCOMPARE(starts, 1);
    QCOMPARE(m_device->link().operations(), QStringList({ "upgrade.progress", "device.shutdown" }));
    QCOMPARE(statusBar.shown(), QStringList());
    QVERIFY(QFile::exists(package.imagePath()));
}

void tst_UpgradeProcess::outcomes_data()
{
    QTest::addColumn<QString>("refused");
    QTest::addColumn<bool>("acceptsRestart");
    QTest::addColumn<int>("deviceResult");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("starts");
    QTest::addColumn<QString>("lastOperation");

    QTest::newRow("installed") << "" << true << 2 << true
                               << "Upgrade successful,device is restarting." << 1
                               << "device.shutdown";
    QTest::newRow("installed, restart refused")
        << "" << false << 2 << true << "Upgrade successful,please restart the device manually." << 1
        << "device.shutdown";
    QTest::newRow("no image") << "version.read" << true << 2 << false
                              << "Failed to recombine upgrade file" << 0 << "version.read";
    QTest::newRow("announcement refused")
        << "file.announce" << true << 2 << false
        << "Failed to import upgrade file,device is restarting." << 0 << "device.shutdown";
    QTest::newRow("announcement and restart refused")
        << "file.announce" << false << 2 << false
        << "Failed to import upgrade file,please restart the device manually." << 0
        << "device.shutdown";
    QTest::newRow("transfer refused")
        << "file.close" << true << 2 << false
        << "Failed to import upgrade file,device is restarting." << 0 << "device.shutdown";
    QTest::newRow("configuration refused")
        << "upgrade.configure" << true << 2 << false
        << "Failed to set upgrade config,device is restarting." << 0 << "device.shutdown";
    QTest::newRow("configuration and restart refused")
        << "upgrade.configure" << false << 2 << false
        << "Failed to set upgrade config,please restart the device manually." << 0
        << "device.shutdown";
    QTest::newRow("progress refused")
        << "upgrade.progress" << true << 2 << false
        << "Failed to get upgrade progress,device is restarting." << 1 << "device.shutdown";
    QTest::newRow("progress and restart refused")
        << "upgrade.progress" << false << 2 << false
        << "Failed to get upgrade progress,please restart the device manually." << 1
        << "device.shutdown";
    QTest::newRow("device reports failure")
        << "" << true << 3 << false << "Failed to get upgrade progress,device is restarting." << 1
        << "device.shutdown";
    QTest::newRow("device reports failure, restart refused")
        << "" << false << 3 << false
        << "Failed to get upgrade progress,please restart the device manually." << 1
        << "device.shutdown";
}

void tst_UpgradeProcess::outcomes()
{
    QFETCH(QString, refused);
    QFETCH(bool, acceptsRestart);
    QFETCH(int, deviceResult);
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    ScriptedLink &link = m_device->link();
    link.answer("upgrade.progress", ScriptedLink::accepted(progress(deviceResult)));
    if (!refused.isEmpty())
        link.answer(refused, ScriptedLink::refused(1, "no"));
    if (!acceptsRestart)
        link.answer("device.shutdown", ScriptedLink::refused(1, "no"));
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    int starts = 0;
    QVector<QPair<bool, QString>> ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalStartReadUpgradeProgress, &receiver,
            [&starts] { ++starts; });
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool result, const QString &text) { ends.append(qMakePair(result, text)); });
    const TranslationRecorder translator;
    const LogRecorder log;

    process.start(FullUpgrade);

    QVERIFY(isEnded(process));
    QCOMPARE(ends.size(), 1);
    QTEST(ends.first().first, "succeeds");
    // Each of its pieces is translated by itself.
    const QChar mark(0xAB);
    const QString text = ends.first().second;
    QTEST(QString(text).remove(mark), "text");
    QVERIFY(text.startsWith(mark));
    const QStringList pieces = text.split(mark, Qt::SkipEmptyParts);
    for (const QString &piece : pieces)
        QVERIFY2(translator.asked().contains({ Context, piece }), qPrintable(piece));
    QTEST(starts, "starts");
    QTEST(link.operations().last(), "lastOperation");
    QCOMPARE(link.operations().count("device.shutdown"), refused == "version.read" ? 0 : 1);
}

void tst_UpgradeProcess::expiredDevice_data()
{
    QTest::addColumn<Enum::UpgradeProcessType>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("starts");
    QTest::addColumn<QByteArray>("logged");

    QTest::newRow("full upgrade") << FullUpgrade << "Failed to recombine upgrade file" << 0
                                  << QByteArray("warning: Device is nullptr\n");
    QTest::newRow("watch only")
        << ReadProgressOnly << "Failed to get upgrade progress,please restart the device manually."
        << 1 << QByteArray("warning: Device is nullptr\nwarning: activedDevice is nullptr\n");
}

void tst_UpgradeProcess::expiredDevice()
{
    QFETCH(Enum::UpgradeProcessType, type);
    QFETCH(QString, text);
    const Package package;
    QVERIFY(package.isValid());
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    m_device->expire();
    int starts = 0;
    QStringList ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalStartReadUpgradeProgress, &receiver,
            [&starts] { ++starts; });
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool result, const QString &resultInfo) {
                ends.append(result ? QStringLiteral("true") : resultInfo);
            });
    const LogRecorder log;

    process.start(type);

    QVERIFY(isEnded(process));
    QCOMPARE(ends, QStringList(text));
    QTEST(starts, "starts");
    QTEST(logText(log), "logged");
    QCOMPARE(m_device->link().operations(), QStringList());
    QVERIFY(!QFile::exists(package.imagePath()));
}

void tst_UpgradeProcess::failedImportLeavesImage()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    m_device->link().queue("file.announce", ScriptedLink::refused(1, "no"));
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    const LogRecorder log;

    process.start(FullUpgrade);
    QVERIFY(worker->wait(10000));
    QCOMPARE(QFileInfo(package.imagePath()).size(), Q_INT64_C(530)); // 256 + 264 + 8 + 2

    // The next run begins with another image, and that one goes.
    QVERIFY(storeFile(package.path() + "/fpga.bin", "firmware of a later day"));
    process.start(FullUpgrade);
    QVERIFY(worker->wait(10000));
    const auto announced = m_device->link().arguments("file.announce");
    QCOMPARE(announced.size(), 2);
    QCOMPARE(announced.last()
                 .value(QLatin1String("files"))
                 .toArray()
                 .first()
                 .toMap()
                 .value(QLatin1String("fileSize"))
                 .toInteger(),
             Q_INT64_C(545));
    QVERIFY(!QFile::exists(package.imagePath()));
}

void tst_UpgradeProcess::noPartsBehindTheImage()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    m_device->link().handle("file.close", [worker](const LinkRequest &) {
        worker->upgradeParts.clear(); // on the worker itself
        return ScriptedLink::accepted();
    });
    QStringList ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool, const QString &text) { ends.append(text); });
    const LogRecorder log;

    process.start(FullUpgrade);

    QVERIFY(isEnded(process));
    QCOMPARE(ends, QStringList("Failed to set upgrade config,device is restarting."));
    QCOMPARE(logText(log), QByteArray("warning: upgradeDetails parts is empty \n"));
    QVERIFY(!QFile::exists(package.imagePath()));
    QCOMPARE(m_device->link().operations().last(), QString("device.shutdown"));
    QVERIFY(!m_device->link().operations().contains("upgrade.configure"));
}

void tst_UpgradeProcess::imageIsGoneAlready()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    m_device->link().handle("file.close", [&package](const LinkRequest &) {
        QFile::remove(package.imagePath());
        return ScriptedLink::accepted();
    });
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    QStringList ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool, const QString &text) { ends.append(text); });
    const LogRecorder log;

    process.start(FullUpgrade);

    QVERIFY(isEnded(process));
    QCOMPARE(ends, QStringList("Upgrade successful,device is restarting."));
    QCOMPARE(logText(log), QByteArray("debug: upgrade progress status:2\n"));
}

void tst_UpgradeProcess::imageCannotBeRemoved()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    // A folder that is not empty is no file that could be removed, not even by root.
    const QString inTheWay = package.imagePath() + QStringLiteral("/full");
    m_device->link().handle("file.close", [&](const LinkRequest &) {
        QFile::remove(package.imagePath());
        QDir().mkpath(inTheWay);
        return ScriptedLink::accepted();
    });
    QuietProcess process(m_device->handle(), chosenParts(), package.upgradeCfgs(), package.path());
    QStringList ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool, const QString &text) { ends.append(text); });
    const LogRecorder log;

    process.start(FullUpgrade);

    QVERIFY(isEnded(process));
    QCOMPARE(ends, QStringList("Upgrade successful,device is restarting."));
    QCOMPARE(logText(log), QByteArray("debug: upgrade progress status:2\n"));
    QVERIFY(QFileInfo(inTheWay).isDir());
}

void tst_UpgradeProcess::startWhileRunning()
{
    answerAll();
    QSemaphore goOn;
    m_device->link().handle("upgrade.progress", [&goOn](const LinkRequest &) {
        goOn.acquire();
        return ScriptedLink::accepted(progress(2));
    });
    QuietProcess process(m_device->handle());
    int ends = 0;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver, [&ends] { ++ends; });
    const LogRecorder log;

    process.start(ReadProgressOnly);
    QTRY_COMPARE(m_device->link().operations(), QStringList("upgrade.progress"));
    QCOMPARE(UpgradeProcessPrivate::get(&process)->priority(), QThread::InheritPriority);
    process.start(ReadProgressOnly);
    goOn.release(2);

    QVERIFY(isEnded(process));
    QCOMPARE(ends, 1);
    QCOMPARE(m_device->link().operations(), QStringList({ "upgrade.progress", "device.shutdown" }));
}

void tst_UpgradeProcess::startAgain()
{
    answerAll();
    QuietProcess process(m_device->handle());
    std::atomic<QThread *> worker { nullptr };
    int ends = 0;
    QObject receiver;
    connect(
        &process, &UpgradeProcess::signalUpgradeFinished, &receiver,
        [&worker] { worker = QThread::currentThread(); }, Qt::DirectConnection);
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver, [&ends] { ++ends; });
    const LogRecorder log;

    process.start(ReadProgressOnly);
    QTRY_COMPARE(ends, 1);
    QVERIFY(worker.load()->wait(10000)); // as the header tells hosts to
    QString ignoredErrorText;
    QVERIFY(m_device->link().open(0, ignoredErrorText));
    process.start(ReadProgressOnly);

    QVERIFY(isEnded(process));
    QCOMPARE(ends, 2);
}

void tst_UpgradeProcess::objectIsDestroyedBehindItsRun()
{
    ProbeTarget target;
    QVERIFY(target.isBound());
    answerAll();
    auto process = std::make_unique<QuietProcess>(m_device->handle());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(process.get());
    worker->probeRestartMs = 1;
    const LogRecorder log;

    process->start(ReadProgressOnly);
    QVERIFY(worker->wait(10000));
    process.reset();

    QTRY_VERIFY(target.isAsked()); // by the timer whose context is still there
}

void tst_UpgradeProcess::announcement()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    UpgradeFile upgradeFile(nullptr);
    const QString image = upgradeFile.makeUpgradeFile({ { package.path() + "/fpga.bin", "/fpga" } },
                                                      package.path(), OwnModel, QString());
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    const LogRecorder log;

    QVERIFY(steps.importUpgradeFile(image));

    // Further fields would be told if they were not zero.
    const QCborMap info { { QLatin1String("fileId"), 0 },
                          { QLatin1String("fileType"), 13 },
                          { QLatin1String("fileName"), QString("") },
                          { QLatin1String("fileSize"), 530 } };
    QCOMPARE(m_device->link().arguments("file.announce"),
             QVector<QCborMap>({ { { QLatin1String("files"), QCborArray { info } } } }));
    const QCborMap opened = m_device->link().arguments("file.open").value(0);
    QCOMPARE(opened.value(QLatin1String("fileId")).toInteger(-1), Q_INT64_C(0));
    QCOMPARE(opened.value(QLatin1String("fileType")).toInteger(), Q_INT64_C(13));
    QCOMPARE(m_device->link().operations(),
             QStringList({ "file.announce", "file.open", "file.data", "file.close" }));
    QCOMPARE(logText(log), QByteArray());
    QVERIFY(QFile::exists(image));
}

void tst_UpgradeProcess::announcementRefused()
{
    const Package package;
    QVERIFY(package.isValid());
    QVERIFY(storeFile(package.imagePath(), "image"));
    m_device->link().answer("file.announce", ScriptedLink::refused(1, "no room"));
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    const LogRecorder log;

    QVERIFY(!steps.importUpgradeFile(package.imagePath()));

    QCOMPARE(m_device->link().operations(), QStringList("file.announce"));
    QCOMPARE(logText(log),
             QByteArray("warning: Fail to send upgrade file:"
                        "the device refused file.announce with 1: no room\n"));
    QVERIFY(QFile::exists(package.imagePath()));
}

void tst_UpgradeProcess::transferRefused_data()
{
    QTest::addColumn<QString>("refused");
    QTest::addColumn<QStringList>("operations");

    QTest::newRow("before the first byte")
        << "file.open" << QStringList({ "file.announce", "file.open" });
    QTest::newRow("with the first bytes")
        << "file.data" << QStringList({ "file.announce", "file.open", "file.data" });
}

void tst_UpgradeProcess::transferRefused()
{
    QFETCH(QString, refused);
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    m_device->link().answer(refused, ScriptedLink::refused(1, "no"));
    UpgradeFile upgradeFile(nullptr);
    const QString image = upgradeFile.makeUpgradeFile({ { package.path() + "/fpga.bin", "/fpga" } },
                                                      package.path(), OwnModel, QString());
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    QVERIFY(!steps.importUpgradeFile(image));

    QTEST(m_device->link().operations(), "operations");
    // Behind what the file layer has to say; the announcement has left no text.
    QVERIFY2(logText(log).endsWith("\nwarning: Fail to send upgrade file binary data:\n"),
             logText(log).constData());
    QCOMPARE(statusBar.shown(), QStringList()); // nothing was called back
    QVERIFY(QFile::exists(image));
}

void tst_UpgradeProcess::unsoundImage()
{
    const Package package;
    QVERIFY(package.isValid());
    answerAll();
    UpgradeFile upgradeFile(nullptr);
    const QString image = upgradeFile.makeUpgradeFile({ { package.path() + "/fpga.bin", "/fpga" } },
                                                      package.path(), OwnModel, QString());
    QFile file(image);
    QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(520) && file.putChar('F'));
    file.close();
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    const LogRecorder log;

    QVERIFY(!steps.importUpgradeFile(image));

    // The file layer is asked to look at the image, and does so between announcement and opening.
    QCOMPARE(m_device->link().operations(), QStringList("file.announce"));
    QVERIFY2(logText(log).endsWith("\nwarning: Fail to send upgrade file binary data:\n"),
             logText(log).constData());
}

void tst_UpgradeProcess::sizeIsCutTo32Bits()
{
    const Package package;
    QVERIFY(package.isValid());
    QVERIFY(storeFile(package.imagePath(), "image"));
    QVERIFY(QFile::resize(package.imagePath(), Q_INT64_C(4294967828))); // 4 GiB and 532, sparse
    m_device->link().answer("file.announce", ScriptedLink::refused(1, "no room"));
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    const LogRecorder log;

    QVERIFY(!steps.importUpgradeFile(package.imagePath()));

    const QCborArray files = m_device->link()
                                 .arguments("file.announce")
                                 .value(0)
                                 .value(QLatin1String("files"))
                                 .toArray();
    QCOMPARE(files.at(0).toMap().value(QLatin1String("fileSize")).toInteger(), Q_INT64_C(532));
}

void tst_UpgradeProcess::transferProgress_data()
{
    QTest::addColumn<bool>("isSending");
    QTest::addColumn<int>("percentage");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("start") << true << 0
                           << QStringList(
                                  "0 \"Sending upgrade files,current progress is 0%\" 5000 ms");
    QTest::newRow("end") << true << 100
                         << QStringList(
                                "0 \"Sending upgrade files,current progress is 100%\" 5000 ms");
    QTest::newRow("not sending") << false << 50 << QStringList();
}

void tst_UpgradeProcess::transferProgress()
{
    QFETCH(bool, isSending);
    QFETCH(int, percentage);
    const StatusBarRecorder statusBar;

    UpgradeProcessPrivate::showTransferProgress(isSending, percentage, QStringLiteral("unused"));

    QTEST(statusBar.shown(), "shown");
}

void tst_UpgradeProcess::upgradeConfiguration()
{
    answerAll();
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    steps.upgradeParts = chosenParts();
    const LogRecorder log;

    QVERIFY(steps.setUpgradeConfigData());

    const QCborArray sections { QCborMap { { QLatin1String("code"), 12 } },
                                QCborMap { { QLatin1String("code"), 500 } } };
    const QCborMap part { { QLatin1String("type"), 1 },
                          { QLatin1String("slotId"), 7 },
                          { QLatin1String("boardId"), 3 },
                          { QLatin1String("section"), sections } };
    const QCborMap detail { { QLatin1String("upgradeType"), 1 },
                            { QLatin1String("filePath"), QString("N/A") },
                            { QLatin1String("reboot"), 1 },
                            { QLatin1String("deleteUpgradeFile"), 1 },
                            { QLatin1String("parts"), QCborArray { part } } };
    QCOMPARE(m_device->link().arguments("upgrade.configure"), QVector<QCborMap> { detail });
    QCOMPARE(m_device->link().operations(), QStringList("upgrade.configure"));
    QCOMPARE(steps.upgradeParts.size(), std::size_t(1));
    QCOMPARE(logText(log), QByteArray());
}

void tst_UpgradeProcess::upgradeConfigurationRefused()
{
    m_device->link().answer("upgrade.configure", ScriptedLink::refused(4, "busy"));
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    steps.upgradeParts = chosenParts();
    const LogRecorder log;

    QVERIFY(!steps.setUpgradeConfigData());

    QVERIFY2(logText(log).endsWith("\nwarning: set upgrade config failed\n"),
             logText(log).constData());
}

void tst_UpgradeProcess::noParts()
{
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    const LogRecorder log;

    QVERIFY(!steps.setUpgradeConfigData());

    QCOMPARE(logText(log), QByteArray("warning: upgradeDetails parts is empty \n"));
    QCOMPARE(m_device->link().operations(), QStringList());
}

void tst_UpgradeProcess::firstPollSucceeds()
{
    answerAll();
    QuietProcess process(m_device->handle());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    worker->pollIntervalMs = 3600000; // a sleep would not end
    const LogRecorder log;

    QVERIFY(worker->readUpgradeProgress());

    s_UpgradePercent percent;
    process.upgradeProgressDetails(percent);
    QCOMPARE(percent.result, 2);
    QCOMPARE(int(percent.rate), 100);
    QCOMPARE(logText(log), QByteArray("debug: upgrade progress status:2\n"));
}

void tst_UpgradeProcess::lastRecordStays()
{
    answerAll();
    const QCborMap section { { QLatin1String("code"), 12 },
                             { QLatin1String("rate"), 55 },
                             { QLatin1String("result"), 3 } };
    const QCborMap part { { QLatin1String("type"), 4 },
                          { QLatin1String("slotId"), 2 },
                          { QLatin1String("rate"), 56 },
                          { QLatin1String("result"), 5 },
                          { QLatin1String("section"), QCborArray { section } } };
    QCborMap values = progress(3, 57);
    values.insert(QLatin1String("subSections"), QCborMap { { QLatin1String("rate"), 58 } });
    values.insert(QLatin1String("parts"), QCborArray { part });
    m_device->link().answer("upgrade.progress", ScriptedLink::accepted(values));
    QuietProcess process(m_device->handle());
    const LogRecorder log;

    process.start(ReadProgressOnly);
    QVERIFY(UpgradeProcessPrivate::get(&process)->wait(10000));

    s_UpgradePercent percent;
    process.upgradeProgressDetails(percent);
    QCOMPARE(percent.result, 3);
    QCOMPARE(int(percent.rate), 57);
    QCOMPARE(int(percent.subSections.rate), 58);
    QCOMPARE(percent.parts.size(), std::size_t(1));
    QCOMPARE(percent.parts[0].type, 4);
    QCOMPARE(int(percent.parts[0].slotId), 2);
    QCOMPARE(int(percent.parts[0].rate), 56);
    QCOMPARE(int(percent.parts[0].result), 5);
    QCOMPARE(percent.parts[0].section.size(), std::size_t(1));
    QCOMPARE(int(percent.parts[0].section[0].rate), 55);
    QCOMPARE(logText(log), QByteArray("debug: upgrade progress status:3\n"));
}

namespace {

// The record that a host would have seen as the outcome of a look was logged.
UpgradeProcess *observedProcess = nullptr;
QStringList recordsAtLogging;

void observeRecord(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    s_UpgradePercent percent;
    observedProcess->upgradeProgressDetails(percent);
    recordsAtLogging.append(QStringLiteral("%1 %2 %3 %4")
                                .arg(QString::number(int(type)), text,
                                     QString::number(percent.result),
                                     QString::number(percent.rate)));
}

} // namespace

void tst_UpgradeProcess::recordIsPublishedBeforeItIsJudged_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("record");

    QTest::newRow("success") << 2 << "0 upgrade progress status:2 2 90";
    QTest::newRow("failure") << 3 << "0 upgrade progress status:3 3 90";
    QTest::newRow("failed look") << -1
                                 << "0  read upgrade progress failed:"
                                    "the device refused upgrade.progress with 1: no 0 0";
}

void tst_UpgradeProcess::recordIsPublishedBeforeItIsJudged()
{
    QFETCH(int, result);
    ScriptedLink &link = m_device->link();
    link.queue("upgrade.progress", ScriptedLink::accepted(progress(1, 40)));
    link.answer("upgrade.progress",
                result < 0 ? ScriptedLink::refused(1, "no")
                           : ScriptedLink::accepted(progress(result, 90)));
    QuietProcess process(m_device->handle());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    worker->pollIntervalMs = 1;
    observedProcess = &process;
    recordsAtLogging.clear();

    const QtMessageHandler before = qInstallMessageHandler(observeRecord);
    const bool isInstalled = worker->readUpgradeProgress();
    qInstallMessageHandler(before);

    QCOMPARE(isInstalled, result == 2);
    QTEST(recordsAtLogging.join('\n'), "record");
}

void tst_UpgradeProcess::runningResults_data()
{
    QTest::addColumn<int>("result");

    QTest::newRow("0") << 0;
    QTest::newRow("1") << 1;
    QTest::newRow("4") << 4;
    QTest::newRow("-2") << -2;
    QTest::newRow("258") << 258; // 2 in its low 8 bits
}

void tst_UpgradeProcess::runningResults()
{
    QFETCH(int, result);
    answerAll();
    std::atomic_int polls { 0 };
    std::atomic_bool isInstalled { false };
    m_device->link().handle("upgrade.progress", [&](const LinkRequest &) {
        ++polls;
        return ScriptedLink::accepted(progress(isInstalled ? 2 : result));
    });
    QuietProcess process(m_device->handle());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    worker->pollIntervalMs = 0;
    const LogRecorder log;

    process.start(ReadProgressOnly);
    QTRY_VERIFY(polls > 100);
    QVERIFY(worker->isRunning());
    isInstalled = true;

    QVERIFY(worker->wait(10000));
    QCOMPARE(logText(log), QByteArray("debug: upgrade progress status:2\n"));
}

void tst_UpgradeProcess::readingStopped()
{
    answerAll();
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    steps.pollIntervalMs = 1;
    const LogRecorder log;

    steps.keepReading = false;
    QVERIFY(!steps.readUpgradeProgress());
    QCOMPARE(m_device->link().operations(), QStringList());

    steps.keepReading = true;
    m_device->link().handle("upgrade.progress", [&steps](const LinkRequest &) {
        steps.keepReading = false;
        return ScriptedLink::accepted(progress(1));
    });
    QVERIFY(!steps.readUpgradeProgress());
    QCOMPARE(m_device->link().operations(), QStringList("upgrade.progress"));
    QCOMPARE(logText(log), QByteArray());
}

void tst_UpgradeProcess::deviceGoesAwayDuringPolling()
{
    answerAll();
    int polls = 0;
    m_device->link().handle("upgrade.progress", [&](const LinkRequest &) {
        if (++polls == 3)
            m_device->expire();
        return ScriptedLink::accepted(progress(1, polls));
    });
    QuietProcess process(m_device->handle());
    UpgradeProcessPrivate::get(&process)->pollIntervalMs = 1;
    QStringList ends;
    QObject receiver;
    connect(&process, &UpgradeProcess::signalUpgradeFinished, &receiver,
            [&ends](bool, const QString &text) { ends.append(text); });
    const LogRecorder log;

    process.start(ReadProgressOnly);

    QVERIFY(isEnded(process));
    QCOMPARE(ends,
             QStringList("Failed to get upgrade progress,please restart the device manually."));
    QCOMPARE(logText(log),
             QByteArray("warning: Device is nullptr\nwarning: activedDevice is nullptr\n"));
    QCOMPARE(m_device->link().operations(),
             QStringList({ "upgrade.progress", "upgrade.progress", "upgrade.progress" }));
    s_UpgradePercent percent;
    process.upgradeProgressDetails(percent);
    QCOMPARE(int(percent.rate), 3);
}

void tst_UpgradeProcess::recordsAreReadWhole()
{
    answerAll();
    QuietProcess process(m_device->handle());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    worker->pollIntervalMs = 0;
    std::atomic_bool isInstalled { false };
    std::atomic_int polls { 0 };
    m_device->link().handle("upgrade.progress", [&](const LinkRequest &) {
        // No lock is held while the device is asked: this would wait for ever.
        s_UpgradePercent before;
        process.upgradeProgressDetails(before);
        QCborMap values = progress(isInstalled ? 2 : 1, polls % 50);
        QCborArray parts;
        for (int i = 0; i < polls % 50; ++i)
            parts.append(QCborMap());
        values.insert(QLatin1String("parts"), parts);
        ++polls;
        return ScriptedLink::accepted(values);
    });
    const LogRecorder log;

    process.start(ReadProgressOnly);
    bool isWhole = true;
    s_UpgradePercent percent;
    while (polls < 500) {
        process.upgradeProgressDetails(percent);
        isWhole = isWhole && percent.parts.size() == percent.rate;
    }
    isInstalled = true;
    QVERIFY(worker->wait(10000));

    QVERIFY(isWhole);
}

void tst_UpgradeProcess::deviceIsHeldThroughTheSleep()
{
    m_device->link().answer("upgrade.progress", ScriptedLink::accepted(progress(1, 42)));
    const std::weak_ptr<Velmar::BizModel::Device> handle = m_device->handle();
    // Neither this object nor its sleep ends: the process ends first.
    auto *const process = new QuietProcess(handle);
    UpgradeProcessPrivate::get(process)->pollIntervalMs = 3600000;

    process->start(ReadProgressOnly);
    const auto rate = [process] {
        s_UpgradePercent percent;
        process->upgradeProgressDetails(percent);
        return int(percent.rate);
    };
    QTRY_COMPARE(rate(), 42);
    m_device->expire();

    QVERIFY(!handle.expired());
}

void tst_UpgradeProcess::restart_data()
{
    QTest::addColumn<bool>("isAccepted");

    QTest::newRow("accepted") << true;
    QTest::newRow("refused") << false;
}

void tst_UpgradeProcess::restart()
{
    QFETCH(bool, isAccepted);
    ProbeTarget target;
    QVERIFY(target.isBound());
    const quint16 localPort = startProbe(target, 60000);
    QVERIFY(localPort != 0);
    QVERIFY(!isPortFree(localPort));
    m_device->link().answer("device.shutdown",
                            isAccepted ? ScriptedLink::accepted()
                                       : ScriptedLink::refused(4, "busy"));
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    steps.probeRestartMs = std::numeric_limits<int>::max();
    const LogRecorder log;

    QCOMPARE(steps.restartDevice(), isAccepted);

    QTRY_VERIFY(isPortFree(localPort));
    QCOMPARE(m_device->link().operations(), QStringList("device.shutdown"));
    QCOMPARE(m_device->link().arguments("device.shutdown").value(0),
             QCborMap({ { QLatin1String("mode"), 0 } }));
    QCOMPARE(m_device->link().isOpen(), !isAccepted);
    // Behind what the control layer has to say.
    QCOMPARE(logText(log).isEmpty(), isAccepted);
    QCOMPARE(logText(log).endsWith("\nwarning: Failed to restart!\n"), !isAccepted);
}

void tst_UpgradeProcess::probeIsArmedBeforeTheDeviceIsAsked()
{
    ProbeTarget target;
    QVERIFY(target.isBound());
    answerAll();
    bool isProbing = false;
    m_device->link().handle("device.shutdown", [&](const LinkRequest &) {
        QCoreApplication::processEvents(); // the creator's thread is this one here
        isProbing = target.isAsked() || target.socket().waitForReadyRead(10000);
        return ScriptedLink::accepted();
    });
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    steps.probeRestartMs = 0;

    QVERIFY(steps.restartDevice());

    QVERIFY(isProbing);
}

void tst_UpgradeProcess::probeStartsAgainIfTheRestartIsRefused()
{
    ProbeTarget target;
    QVERIFY(target.isBound());
    m_device->link().answer("device.shutdown", ScriptedLink::refused(4, "busy"));
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    steps.probeRestartMs = 1;
    const LogRecorder log;

    QVERIFY(!steps.restartDevice());

    QTRY_VERIFY(target.isAsked());
}

void tst_UpgradeProcess::restartOfExpiredDeviceLeavesProbeAlone()
{
    ProbeTarget target;
    QVERIFY(target.isBound());
    const quint16 localPort = startProbe(target, 1);
    QVERIFY(localPort != 0);
    UpgradeProcessPrivate steps(nullptr);
    steps.probeRestartMs = 0;
    const LogRecorder log;

    QVERIFY(!steps.restartDevice());

    // Rounds go on, and from the port that they came from before.
    QCOMPARE(logText(log), QByteArray("warning: activedDevice is nullptr\n"));
    for (int round = 0; round < 20; ++round) {
        QTRY_VERIFY(target.isAsked());
        QCOMPARE(target.socket().receiveDatagram().senderPort(), int(localPort));
    }
}

void tst_UpgradeProcess::probeStartsOnTheCreatorsThread()
{
    ProbeTarget target;
    QVERIFY(target.isBound());
    m_device->link().answer("upgrade.progress", ScriptedLink::accepted(progress(2)));
    m_device->link().answer("device.shutdown", ScriptedLink::refused(1, "no"));
    const LogRecorder log;
    QThread creator;
    QObject onCreator;
    onCreator.moveToThread(&creator);
    creator.start();
    UpgradeProcessPrivate *worker = nullptr;
    QMetaObject::invokeMethod(
        &onCreator,
        [&] {
            auto *const process = new QuietProcess(m_device->handle());
            worker = UpgradeProcessPrivate::get(process);
            worker->probeRestartMs = 1;
            process->start(ReadProgressOnly);
            connect(worker, &QThread::finished, process, &QObject::deleteLater);
        },
        Qt::BlockingQueuedConnection);

    QVERIFY(worker->wait(10000));
    // This thread runs no events meanwhile, the creator's does.
    QVERIFY(target.isAsked() || target.socket().waitForReadyRead(10000));

    creator.quit();
    QVERIFY(creator.wait(10000));
}

void tst_UpgradeProcess::probeWaitsForTheCreatorsEventLoop()
{
    ProbeTarget target;
    QVERIFY(target.isBound());
    answerAll();
    QuietProcess process(m_device->handle());
    UpgradeProcessPrivate *const worker = UpgradeProcessPrivate::get(&process);
    worker->probeRestartMs = 0;
    const LogRecorder log;

    process.start(ReadProgressOnly);
    QVERIFY(worker->wait(10000));
    QVERIFY(!target.isAsked());

    QTRY_VERIFY(target.isAsked());
}

void tst_UpgradeProcess::expiredDeviceInSteps_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QByteArray>("logged");

    QTest::newRow("sending") << Step([](UpgradeProcessPrivate &steps) {
        return steps.importUpgradeFile(QStringLiteral("/nowhere"));
    }) << QByteArray("warning: Device is nullptr\n");
    QTest::newRow("configuration, though there are no parts")
        << Step([](UpgradeProcessPrivate &steps) { return steps.setUpgradeConfigData(); })
        << QByteArray("warning: activedDevice is nullptr\n");
    QTest::newRow("progress") << Step([](UpgradeProcessPrivate &steps) {
        return steps.readUpgradeProgress();
    }) << QByteArray("warning: Device is nullptr\n");
    QTest::newRow("restart") << Step([](UpgradeProcessPrivate &steps) {
        return steps.restartDevice();
    }) << QByteArray("warning: activedDevice is nullptr\n");
}

void tst_UpgradeProcess::expiredDeviceInSteps()
{
    QFETCH(Step, step);
    UpgradeProcessPrivate steps(nullptr);
    steps.activedDevice = m_device->handle();
    m_device->expire();
    const LogRecorder log;

    QVERIFY(!step(steps));

    QTEST(logText(log), "logged");
    QCOMPARE(m_device->link().operations(), QStringList());
}

QTEST_GUILESS_MAIN(tst_UpgradeProcess)
#include "tst_upgradeprocess.moc"
