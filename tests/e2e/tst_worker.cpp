#include "deviceprogram.h"
#include "programs.h"

#include "device/deviceaddress.h"
#include "worker/upgradeworker.h"

#include <QFile>
#include <QTemporaryFile>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <optional>

#include <sys/file.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

constexpr int PatienceMs = 20000;

WorkerLaunch launch()
{
    WorkerLaunch launch;
    launch.program = QStringLiteral(VELMAR_UPGRADE);
    return launch;
}

WorkerOrder orderFor(const QString &address, const QString &package)
{
    WorkerOrder order;
    order.mode = WorkerMode::Upgrade;
    QString errorText;
    order.device = *DeviceAddress::parse(address, 0, errorText);
    order.packagePath = package;
    return order;
}

/*! A worker process and what it told. It is told to go on as soon as it has a plan. */
class Worker : public QObject
{
public:
    explicit Worker(const WorkerOrder &order, const WorkerLaunch &how = launch(),
                    std::vector<int> descriptors = {})
        : worker(how)
    {
        connect(&worker, &UpgradeWorker::signalPhase, this,
                [this](Phase phase) { phases.append(phaseWord(phase)); });
        connect(&worker, &UpgradeWorker::signalPlan, this, [this](const Plan &told) {
            plan = told;
            if (goesOn)
                worker.go();
        });
        connect(&worker, &UpgradeWorker::signalStopAnswered, this,
                [this](bool isTaken) { stops.append(isTaken); });
        connect(&worker, &UpgradeWorker::signalLog, this,
                [this](QtMsgType, const QString &text) { log.append(text); });
        connect(&worker, &UpgradeWorker::signalTraffic, this, [this](const LinkTraffic &told) {
            if (told.isOrdered && !ordered)
                ordered = told;
        });
        connect(&worker, &UpgradeWorker::signalEnded, this,
                [this](bool result, const QString &text) {
                    end = (result ? "good: " : "bad: ") + text;
                });
        connect(&worker, &UpgradeWorker::signalRefused, this,
                [this](VerdictCode code, const QString &text) {
                    end = verdictWord(code) + ": " + text;
                });
        connect(&worker, &UpgradeWorker::signalDied, this,
                [this](const QString &why) { end = "died: " + why; });
        worker.start(order, std::move(descriptors));
    }

    bool hasEnded() const { return !end.isEmpty(); }

    UpgradeWorker worker;
    bool goesOn = true;
    std::optional<Plan> plan;
    QStringList phases;
    QVector<bool> stops;
    QStringList log;
    std::optional<LinkTraffic> ordered; // as it was when the order was told
    QString end;
};

bool isWaitedFor(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, PatienceMs);
}

} // namespace

/*! The worker process of velmar-upgrade against the simulated device. */
class tst_Worker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nativeRoad()
    {
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const Worker run(orderFor(device.address(), package.path()));
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end, QStringLiteral("good: Upgrade successful,device is restarting."));
        QCOMPARE(run.phases, QStringList({ "plan", "prepare", "send", "install", "restart" }));
        const auto &traffic = run.worker.traffic();
        QVERIFY(traffic.isOrdered);
        QVERIFY(traffic.isEndTold);
        QVERIFY(traffic.isRestartOrdered);
        QVERIFY(traffic.sentBytes > 0);
        QCOMPARE(traffic.sentBytes, traffic.totalBytes);
        QCOMPARE(traffic.result, 2);
        QVERIFY(device.waitForReady(2));
        QCOMPARE(run.plan->device.address.toString(), device.address());
        QVERIFY(!run.plan->files.empty());
    }

    void registerRoad()
    {
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.road = Road::Registers;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end,
                 QStringLiteral("good: The firmware is written, and the device restarts with it"));
        QCOMPARE(run.phases, QStringList({ "plan", "prepare", "send" }));
        QVERIFY(run.worker.traffic().isOrdered);
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.registerFirmware().size(), 1);
    }

    void httpRoad()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--listen", "127.94.1.1:0", "--generation", "newer" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.road = Road::Http;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end, QStringLiteral("good: Upgrade successed!"));
        QCOMPARE(run.phases, QStringList({ "plan", "prepare", "send", "install" }));
        const auto &traffic = run.worker.traffic();
        QVERIFY(traffic.isOrdered);
        QVERIFY(traffic.isEndTold);
        QVERIFY(traffic.sentBytes > 0);
        QCOMPARE(traffic.sentBytes, traffic.totalBytes);
        QVERIFY(run.ordered);
        QVERIFY(run.ordered->sentBytes < traffic.sentBytes); // told before all was sent
        QVERIFY(device.waitForReady(2));
    }

    void olderService()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--listen", "127.94.1.3:0", "--generation", "older" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.road = Road::Http;
        order.upload.isCompatible = true;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end, QStringLiteral("good: Upgrade successed!"));
        QStringList sections;
        for (const auto &section : run.plan->sections)
            sections.append(section.name);
        QCOMPARE(sections, QStringList({ "MCU", "MCU_Back" }));
        QVERIFY(device.waitForReady(2));
    }

    void noService()
    {
        const ExamplePackage package;
        DeviceProgram device(
            { "--listen", "127.94.1.4:0", "--generation", "newer", "--fault", "version-refused" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.road = Road::Http;
        order.upload.isCompatible = true;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(
            run.end,
            QStringLiteral("nothing-fits: By its version, the device takes no upgrades over HTTP"));
    }

    void httpFault()
    {
        const ExamplePackage package;
        DeviceProgram device(
            { "--listen", "127.94.1.2:0", "--generation", "newer", "--fault", "http-status=500" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.road = Road::Http;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QVERIFY2(run.end.startsWith("bad-answer: ") || run.end.startsWith("send-failed: "),
                 qPrintable(run.end));
    }

    void planAlone()
    {
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.mode = WorkerMode::Plan;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end, QStringLiteral("good: "));
        QVERIFY(run.plan);
        QCOMPARE(device.operations(), QStringList({ "hello", "version.read" }));
    }

    void planForAModel()
    {
        const ExamplePackage package;
        WorkerOrder order;
        order.packagePath = package.path();
        order.modelId = 0x7701;
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end, QStringLiteral("good: "));
        QVERIFY(run.plan);
        QCOMPARE(run.plan->device.address.host, QString());
        QVERIFY(!run.plan->files.empty());
    }

    void refusals_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QString>("code");
        QTest::newRow("nobody there") << "address"
                                      << "unreachable";
        QTest::newRow("no package") << "package"
                                    << "nothing-fits";
        QTest::newRow("no such section") << "section"
                                         << "not-planned";
        QTest::newRow("nothing for the model") << "model"
                                               << "nothing-fits";
        QTest::newRow("no catalogue") << "catalogue"
                                      << "internal";
        QTest::newRow("no key") << "key"
                                << "internal";
    }
    void refusals()
    {
        QFETCH(QString, what);
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        if (what == "address")
            order.device.port = 1; // nobody listens there
        else if (what == "package")
            order.packagePath += "/nothing";
        else if (what == "section")
            order.wish.sections = QStringList("Sundial");
        else if (what == "model") {
            order.mode = WorkerMode::Plan;
            order.device = {};
            order.modelId = 0x1234;
        } else if (what == "catalogue")
            order.cataloguePath = "/nonexistent.json";
        else
            order.keyFilePath = "/nonexistent.key";
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QTEST(run.end.section(':', 0, 0), "code");
        QVERIFY2(run.end.size() > 30, qPrintable(run.end)); // it has a sentence
    }

    // The package has changed behind the plan.
    void imageIsNotThePlan()
    {
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        Worker run(orderFor(device.address(), package.path()));
        run.goesOn = false;
        QVERIFY(isWaitedFor([&] { return run.plan.has_value(); }));
        const auto plainFile = std::find_if(
            run.plan->files.begin(), run.plan->files.end(),
            [](const PlannedFile &file) { return !file.file.endsWith(QLatin1String(".dat")); });
        QVERIFY(plainFile != run.plan->files.end());
        QFile file(package.path() + '/' + plainFile->file);
        QVERIFY(file.open(QIODevice::Append));
        file.write("more");
        file.close();
        run.worker.go();
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QVERIFY2(run.end.startsWith("plan-mismatch: "), qPrintable(run.end));
        QCOMPARE(device.operations(), QStringList({ "hello", "version.read" }));
    }

    // The library takes a failed look for a failed upgrade and would restart the device at work.
    void noRestartAtWork_data()
    {
        QTest::addColumn<QStringList>("faults");
        QTest::newRow("a look is refused") << QStringList { "refuse-progress=1" };
        QTest::newRow("the order is refused") << QStringList { "refuse-configure" };
        QTest::newRow("the announcement is refused") << QStringList { "refuse-announce" };
    }
    void noRestartAtWork()
    {
        QFETCH(QStringList, faults);
        const ExamplePackage package;
        QStringList arguments { "--fault", "brick", "--install-ms", "500" };
        for (const auto &fault : faults)
            arguments << "--fault" << fault;
        DeviceProgram device(arguments);
        QVERIFY(device.waitForReady());
        const Worker run(orderFor(device.address(), package.path()));
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QVERIFY2(run.end.startsWith("bad: ")
                     && run.end.endsWith("please restart the device manually."),
                 qPrintable(run.end));
        QVERIFY(!run.worker.traffic().isRestartOrdered);
        QVERIFY(!device.operations().contains("device.shutdown"));
        QVERIFY(isWaitedFor([&] { return !device.aftermath().isInstalling; }));
        QVERIFY(!device.aftermath().isBricked);
    }

    void oldResult()
    {
        const ExamplePackage package;
        DeviceProgram device(
            { "--fault", "brick", "--fault", "old-result=2:1", "--install-ms", "3000" });
        QVERIFY(device.waitForReady());
        const Worker run(orderFor(device.address(), package.path()));
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end, QStringLiteral("good: Upgrade successful,device is restarting."));
        QVERIFY(device.waitForReady(2));
        QVERIFY(!device.aftermath().isBricked);
    }

    void watch()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--install-ms", "1500" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        {
            Worker run(order);
            QVERIFY(isWaitedFor([&] { return run.worker.traffic().result == 1; }));
            run.worker.kill();
            QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
            QCOMPARE(run.end, QStringLiteral("died: The worker process was ended by its host"));
            QVERIFY(run.worker.traffic().isOrdered);
        }
        order.mode = WorkerMode::Watch;
        order.mayRestart = true; // it may have ended by now
        const Worker watch(order);
        QVERIFY(isWaitedFor([&] { return watch.hasEnded(); }));
        QCOMPARE(watch.end, QStringLiteral("good: Upgrade successful,device is restarting."));
        QCOMPARE(watch.phases, QStringList({ "install", "restart" }));
        QVERIFY(device.waitForReady(2));

        const Worker again(order);
        QVERIFY(isWaitedFor([&] { return again.hasEnded(); }));
        QCOMPARE(again.end, QStringLiteral("nothing-to-do: The device is installing nothing"));
    }

    void watchAnEnd()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--fault", "refuse-restart" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QVERIFY(!run.worker.traffic().isRestartOrdered);
        order.mode = WorkerMode::Watch;
        const Worker watch(order);
        QVERIFY(isWaitedFor([&] { return watch.hasEnded(); }));
        QCOMPARE(watch.end,
                 QStringLiteral("nothing-to-do: The device has installed everything. It is not "
                                "restarted; add --restart for that"));
        QCOMPARE(device.operations().count("device.shutdown"), 1);
        order.mayRestart = true;
        const Worker restart(order);
        QVERIFY(isWaitedFor([&] { return restart.hasEnded(); }));
        QCOMPARE(restart.end,
                 QStringLiteral("good: Upgrade successful,please restart the device manually."));
        QCOMPARE(device.operations().count("device.shutdown"), 2);
    }

    void limits_data()
    {
        QTest::addColumn<bool>("isHttp");
        QTest::addColumn<int>("limitMs"); // of the whole, or of silence over HTTP
        QTest::addColumn<QStringList>("device");
        QTest::addColumn<QString>("end");
        const auto tooLong = QStringLiteral("The upgrade took longer than it may take");
        QTest::newRow("sending for too long")
            << false << 1500 << QStringList { "--fault", "slow-link=200000" }
            << "out-of-time: " + tooLong;
        QTest::newRow("installing for too long")
            << false << 8000 << QStringList { "--fault", "never-ends" } << "time-limit: " + tooLong;
        // The first poll follows a second behind the upload.
        QTest::newRow("silence over HTTP")
            << true << 300 << QStringList { "--listen", "127.94.1.5:0", "--generation", "newer" }
            << "device-lost: Nothing was heard of the device's HTTP service for 0 s";
    }
    void limits()
    {
        QFETCH(bool, isHttp);
        QFETCH(int, limitMs);
        QFETCH(QStringList, device);
        const ExamplePackage package;
        DeviceProgram program(device);
        QVERIFY(program.waitForReady());
        auto order = orderFor(program.address(), package.path());
        if (isHttp) {
            order.road = Road::Http;
            order.silenceLimit = std::chrono::milliseconds(limitMs);
        } else {
            order.timeLimit = std::chrono::milliseconds(limitMs);
        }
        const Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QTEST(run.end, "end");
        QVERIFY(!program.operations().contains("device.shutdown"));
    }

    void stopWhileItWaits()
    {
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        Worker run(orderFor(device.address(), package.path()));
        run.goesOn = false;
        QVERIFY(isWaitedFor([&] { return run.plan.has_value(); }));
        run.worker.requestStop();
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.stops, QVector<bool> { true });
        QCOMPARE(run.end,
                 QStringLiteral("bad: The upgrade was stopped before the device had begun to "
                                "install"));
        QCOMPARE(device.operations(), QStringList({ "hello", "version.read" }));
    }

    void stopWhileItSends()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--fault", "slow-link=300000" });
        QVERIFY(device.waitForReady());
        Worker run(orderFor(device.address(), package.path()));
        QVERIFY(isWaitedFor([&] { return run.phases.contains("send"); }));
        run.worker.requestStop();
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.stops, QVector<bool> { true });
        QVERIFY(!run.worker.traffic().isOrdered);
        QVERIFY(!device.operations().contains("upgrade.configure"));
    }

    void noStopWhileItInstalls()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--install-ms", "300" });
        QVERIFY(device.waitForReady());
        Worker run(orderFor(device.address(), package.path()));
        QVERIFY(isWaitedFor([&] { return run.phases.contains("install"); }));
        run.worker.requestStop();
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.stops, QVector<bool> { false });
        QCOMPARE(run.end, QStringLiteral("good: Upgrade successful,device is restarting."));
    }

    void noStopBetweenTwoWrites()
    {
        const ExamplePackage package;
        DeviceProgram device({ "--fault", "register-slow=100" });
        QVERIFY(device.waitForReady());
        auto order = orderFor(device.address(), package.path());
        order.road = Road::Registers;
        Worker run(order);
        QVERIFY(isWaitedFor([&] { return run.phases.contains("send"); }));
        run.worker.requestStop();
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.stops, QVector<bool> { false });
        QVERIFY2(run.end.startsWith(QLatin1String("good: ")), qPrintable(run.end));
        QCOMPARE(device.registerFirmware().size(), 1);
    }

    void hostIsGone_data()
    {
        QTest::addColumn<bool>("goesOn"); // past the plan
        QTest::addColumn<QByteArray>("last"); // word of the host
        QTest::addColumn<bool>("isInstalled");
        QTest::newRow("before it agreed") << false << QByteArray() << false;
        QTest::newRow("while it installs") << true << QByteArray() << true;
        QTest::newRow("nonsense before it agreed")
            << false << QByteArray("{\"do\":\"dance\"}\n") << false;
        QTest::newRow("nonsense while it installs") << true << QByteArray("nonsense\n") << true;
        QTest::newRow("an endless line") << false << QByteArray(1100000, 'x') << false;
    }
    void hostIsGone()
    {
        QFETCH(bool, goesOn);
        QFETCH(QByteArray, last);
        QFETCH(bool, isInstalled);
        const ExamplePackage package;
        DeviceProgram device({ "--install-ms", "300" });
        QVERIFY(device.waitForReady());
        QProcess worker;
        worker.start(QStringLiteral(VELMAR_UPGRADE), { "worker" });
        worker.write(orderFor(device.address(), package.path()).toLine());
        QByteArray told;
        const auto isTold = [&](const QByteArray &text) {
            return isWaitedFor([&] {
                told += worker.readAllStandardOutput();
                return told.contains(text);
            });
        };
        QVERIFY(isTold("\"tell\":\"plan\""));
        if (goesOn) {
            worker.write(commandLine(WorkerCommand::Go));
            QVERIFY(isTold("\"phase\":\"install\""));
        }
        if (last.isEmpty())
            worker.closeWriteChannel();
        else
            worker.write(last);
        QVERIFY(isWaitedFor([&] { return worker.state() == QProcess::NotRunning; }));
        QCOMPARE(worker.exitStatus(), QProcess::NormalExit);
        QCOMPARE(worker.exitCode(), 0);
        QCOMPARE(device.operations().contains("upgrade.configure"), isInstalled);
        QCOMPARE(device.operations().contains("device.shutdown"), isInstalled);
    }

    void badOrder_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("none") << QByteArray();
        QTest::newRow("no JSON") << QByteArray("upgrade it\n");
        QTest::newRow("another protocol") << QByteArray("{\"protocol\":2}\n");
        QTest::newRow("endless") << QByteArray(1100000, 'x');
    }
    void badOrder()
    {
        QFETCH(QByteArray, line);
        QProcess worker;
        worker.start(QStringLiteral(VELMAR_UPGRADE), { "worker" });
        worker.write(line);
        if (line.isEmpty())
            worker.closeWriteChannel();
        QVERIFY(isWaitedFor([&] { return worker.state() == QProcess::NotRunning; }));
        QCOMPARE(worker.exitStatus(), QProcess::NormalExit);
        QCOMPARE(worker.exitCode(), 64);
    }

    // A lock that the host has taken lives as long as whoever may still write to the device.
    void keepsItsLocks()
    {
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        QTemporaryFile file;
        QVERIFY(file.open());
        const auto name = file.fileName().toLocal8Bit();
        int lock = ::open(name.constData(), O_RDWR | O_CLOEXEC);
        QCOMPARE(flock(lock, LOCK_EX | LOCK_NB), 0);
        Worker run(orderFor(device.address(), package.path()), launch(), { lock });
        run.goesOn = false;
        QVERIFY(isWaitedFor([&] { return run.plan.has_value(); }));
        ::close(lock);
        lock = ::open(name.constData(), O_RDWR | O_CLOEXEC);
        QCOMPARE(flock(lock, LOCK_EX | LOCK_NB), -1);
        run.worker.kill();
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(flock(lock, LOCK_EX | LOCK_NB), 0);
        ::close(lock);
    }

    void memoryIsShort_data()
    {
        QTest::addColumn<qint64>("indexSize"); // bytes
        QTest::addColumn<int>("limit"); // MiB
        QTest::newRow("a file that is too large") << 512LL * 1024 * 1024 << 192;
        QTest::newRow("no room for a thread") << 100LL << 16;
    }
    void memoryIsShort()
    {
        QFETCH(qint64, indexSize);
        QFETCH(int, limit);
#ifdef __SANITIZE_ADDRESS__
        QSKIP("The sanitizer needs more memory than any limit");
#endif
        const ExamplePackage package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        // Without a byte more on the disk.
        QVERIFY(QFile::resize(package.path() + "/PackageCfg.xml", indexSize));
        auto how = launch();
        how.memoryLimit = qint64(limit) * 1024 * 1024;
        const Worker run(orderFor(device.address(), package.path()), how);
        QVERIFY(isWaitedFor([&] { return run.hasEnded(); }));
        QCOMPARE(run.end,
                 QStringLiteral("died: The worker process needed more memory than it may have (%1 "
                                "MiB)")
                     .arg(limit));
    }
};

QTEST_GUILESS_MAIN(tst_Worker)
#include "tst_worker.moc"
