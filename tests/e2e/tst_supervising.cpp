#include "deviceprogram.h"
#include "programs.h"

#include <QSocketNotifier>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <memory>

#include <csignal>
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

namespace {

/*! velmar-upgrade on a terminal of 80 columns, without its being the controlling one. */
class UpgradeOnTerminal
{
public:
    explicit UpgradeOnTerminal(const QStringList &arguments)
    {
        const winsize size { 24, 80, 0, 0 };
        char name[256] = {};
        if (openpty(&m_master, &m_slave, name, nullptr, &size) != 0)
            qFatal("There is no terminal to test with");
        fcntl(m_master, F_SETFL, O_NONBLOCK);
        m_notifier = std::make_unique<QSocketNotifier>(m_master, QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { readAll(); });
        auto environment = hostEnvironment();
        environment.insert(QStringLiteral("TERM"), QStringLiteral("xterm"));
        environment.insert(QStringLiteral("NO_COLOR"), QStringLiteral("1"));
        m_process.setProcessEnvironment(environment);
        m_process.setStandardInputFile(QString::fromLocal8Bit(name));
        m_process.setStandardOutputFile(QString::fromLocal8Bit(name));
        m_process.start(QStringLiteral(VELMAR_UPGRADE), arguments);
    }
    ~UpgradeOnTerminal()
    {
        m_notifier.reset();
        ::close(m_slave);
        ::close(m_master);
    }

    void type(const QByteArray &text)
    {
        QCOMPARE(::write(m_master, text.constData(), static_cast<std::size_t>(text.size())),
                 ssize_t(text.size()));
    }

    const QByteArray &shown() const { return m_shown; }
    QProcess &process() { return m_process; }

private:
    void readAll()
    {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::read(m_master, buffer, sizeof buffer)) > 0)
            m_shown.append(buffer, static_cast<int>(count));
    }

    int m_master = -1;
    int m_slave = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QProcess m_process;
    QByteArray m_shown;
};

/*! A way to \a device on which everything from the first question for its progress on is lost. */
class MutedDevice
{
public:
    explicit MutedDevice(const DeviceProgram &device)
    {
        const auto port = quint16(device.address().section(':', -1).toUInt());
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this, port] {
            QTcpSocket *const host = m_server.nextPendingConnection();
            auto *const there = new QTcpSocket(host);
            there->connectToHost(QHostAddress::LocalHost, port);
            QObject::connect(there, &QTcpSocket::readyRead, host,
                             [host, there] { host->write(there->readAll()); });
            QObject::connect(host, &QTcpSocket::readyRead, there, [this, host, there] {
                const QByteArray bytes = host->readAll();
                m_isMuted = m_isMuted || bytes.contains("upgrade.progress");
                if (!m_isMuted)
                    there->write(bytes);
            });
        });
        if (!m_server.listen(QHostAddress::LocalHost))
            qFatal("There is no port to listen on");
    }

    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(m_server.serverPort()); }

private:
    QTcpServer m_server;
    bool m_isMuted = false;
};

QStringList runArguments(const ExamplePackage &package, const DeviceProgram &device)
{
    return { "run", package.path(), "--device", device.address(), "--yes", "--json" };
}

} // namespace

/*! What an operator does during an upgrade: answering, interrupting, watching. */
class tst_Supervising : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void interruptWhileInstalling()
    {
        DeviceProgram device({ "--install-ms", "15000" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade(runArguments(package, device));
        // The phase begins before the order goes out, and until then both interrupts stop it.
        QVERIFY(upgrade.waitForOutput("\"state\":\"installing\""));
        upgrade.interrupt(SIGINT);
        QVERIFY(upgrade.waitForOutput("The upgrade goes on: the device is installing"));
        upgrade.interrupt(SIGINT);
        const auto left = upgrade.finishTold();
        QCOMPARE(left.end(), QStringLiteral("130 left"));
        QCOMPARE(left.verdict().value("sentence").toString(),
                 QStringLiteral("The device goes on by itself. See it with: "
                                "velmar-upgrade watch --device %1")
                     .arg(device.address()));

        const auto watched = UpgradeProgram::told({ "watch", "--device", device.address() });
        QCOMPARE(watched.phases().constFirst(), QStringLiteral("plan"));
        // The record of the run that was left has the plan.
        QCOMPARE(watched.end(), QStringLiteral("0 confirmed"));
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.installedFiles().size(), 14);
    }

    void interruptWhileSending_data()
    {
        QTest::addColumn<int>("signalNumber");

        QTest::newRow("interrupt") << SIGINT;
        QTest::newRow("termination") << SIGTERM;
    }
    void interruptWhileSending()
    {
        QFETCH(int, signalNumber);
        DeviceProgram device({ "--fault", "slow-link=400000" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade(runArguments(package, device));
        QVERIFY(upgrade.waitForPhase("send"));
        upgrade.interrupt(signalNumber);
        QCOMPARE(upgrade.finishTold().end(), QStringLiteral("130 interrupted"));
        QVERIFY(device.installedFiles().isEmpty());
        QVERIFY(!device.operations().contains("upgrade.configure"));
        QVERIFY(!device.operations().contains("device.shutdown"));
    }

    void interruptWhileWritingRegisters()
    {
        DeviceProgram device({ "--fault", "register-slow=100" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade(runArguments(package, device)
                               + QStringList { "--road", "registers" });
        QVERIFY(upgrade.waitForPhase("send"));
        upgrade.interrupt(SIGINT);
        QVERIFY(upgrade.waitForOutput("The upgrade goes on: "));
        upgrade.interrupt(SIGINT);
        QCOMPARE(upgrade.finishTold().end(), QStringLiteral("130 left"));
        // By the process that was left behind.
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.registerFirmware(),
                 QVector<QByteArray>({ exampleFile("controller/MCU.dat") }));
    }

    void twoHosts()
    {
        DeviceProgram device({ "--fault", "slow-link=1000000" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram first(runArguments(package, device));
        QVERIFY(first.waitForPhase("send"));
        QCOMPARE(UpgradeProgram(runArguments(package, device)).finishTold().end(),
                 QStringLiteral("75 device-busy"));
        QCOMPARE(first.finishTold().end(), QStringLiteral("0 confirmed"));
        QCOMPARE(device.operations().count("upgrade.configure"), 1);
    }

    void endOfTheOutputDoesNotStopAnUpgrade()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QProcess reader; // goes away after the first character
        QProcess upgrade;
        upgrade.setProcessEnvironment(hostEnvironment());
        upgrade.setStandardOutputProcess(&reader);
        upgrade.start(
            QStringLiteral(VELMAR_UPGRADE),
            { "run", package.path(), "--device", device.address(), "--yes", "--section", "EDID" });
        reader.start(QStringLiteral("head"), { "-c", "1" });
        QCOMPARE(finishProgram(reader).out, QStringLiteral("["));
        QCOMPARE(finishProgram(upgrade).exitCode, 0);
        QCOMPARE(device.installedFiles().keys(), QStringList("/firmware/cards/7801/edid.bin"));
    }

    void timeLimit()
    {
        DeviceProgram device({ "--fault", "never-ends" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade(runArguments(package, device));
        QVERIFY(upgrade.waitForOutput("\"percent\":99,\"phase\":\"install\""));
        upgrade.interrupt(SIGTERM);
        QCOMPARE(upgrade.finishTold().end(), QStringLiteral("130 left"));

        QCOMPARE(
            UpgradeProgram::told({ "watch", "--device", device.address(), "--timeout", "1" }).end(),
            QStringLiteral("5 time-limit"));
        QVERIFY(!device.operations().contains("device.shutdown"));
    }

    void timeLimitOfADeviceThatDoesNotAnswer()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const MutedDevice muted(device);
        QProcess watch;
        watch.setProcessEnvironment(hostEnvironment());
        watch.start(QStringLiteral(VELMAR_UPGRADE),
                    { "watch", "--device", muted.address(), "--timeout", "2" });
        QElapsedTimer waited;
        waited.start();
        QTRY_COMPARE_WITH_TIMEOUT(watch.state(), QProcess::NotRunning, 30000);
        QVERIFY(waited.elapsed() >= 2000);
        const auto run = finishProgram(watch);
        QVERIFY2(run.err.contains("\n  verdict: unconfirmed (time-limit)\n"), qPrintable(run.err));
        QCOMPARE(run.exitCode, 5);
    }

    void watchAfterTheEnd_data()
    {
        QTest::addColumn<QStringList>("faults");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("restartEnd");

        QTest::newRow("installed") << QStringList {} << "0 nothing-to-do"
                                   << "5 not-restarted";
        QTest::newRow("failed") << QStringList { "--fault", "install-fails" } << "1 install-failed"
                                << "1 install-failed";
    }
    void watchAfterTheEnd()
    {
        QFETCH(QStringList, faults);
        // As long as the restart is refused, the device goes on reporting its last installation.
        DeviceProgram device(QStringList { "--fault", "refuse-restart" } + faults);
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram(runArguments(package, device) + QStringList { "--return-timeout", "2" })
            .finish();
        const auto restarts = device.operations().count("device.shutdown");

        const QStringList watch { "watch", "--device", device.address(), "--return-timeout", "2" };
        QTEST(UpgradeProgram::told(watch).end(), "end");
        QCOMPARE(device.operations().count("device.shutdown"), restarts);

        QTEST(UpgradeProgram::told(watch + QStringList("--restart")).end(), "restartEnd");
        QCOMPARE(device.operations().count("device.shutdown"), restarts + 1);
    }

    void questionOnATerminal()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const QStringList arguments { "run",       package.path(), "--device", device.address(),
                                      "--section", "Kernel" };
        const QByteArray question("Upgrade and restart the device? [y/N] ");

        UpgradeOnTerminal declined(arguments);
        QTRY_VERIFY_WITH_TIMEOUT(declined.shown().endsWith(question), 50000);
        QVERIFY(declined.shown().contains("  main control: Kernel (1.0.0.0 -> 1.1.0.0)\r\n"));
        declined.type("\n");
        const auto refusal = finishProgram(declined.process());
        QVERIFY2(refusal.err.startsWith("velmar-upgrade: The device stays as it was\n"),
                 qPrintable(refusal.err));
        QCOMPARE(refusal.exitCode, 130);

        UpgradeOnTerminal interrupted(arguments);
        QTRY_VERIFY_WITH_TIMEOUT(interrupted.shown().endsWith(question), 50000);
        QCOMPARE(::kill(pid_t(interrupted.process().processId()), SIGINT), 0);
        QCOMPARE(finishProgram(interrupted.process()).exitCode, 130);

        UpgradeOnTerminal agreed(arguments);
        QTRY_VERIFY_WITH_TIMEOUT(agreed.shown().endsWith(question), 50000);
        QVERIFY(device.installedFiles().isEmpty());
        agreed.type("y\n");
        QTRY_VERIFY_WITH_TIMEOUT(agreed.shown().contains("  verdict: confirmed\r\n"), 50000);
        QCOMPARE(finishProgram(agreed.process()).exitCode, 0);
        QVERIFY(agreed.shown().contains("\x1b[K")); // redrawn in place
        QVERIFY(!agreed.shown().contains("\x1b[3")); // NO_COLOR
        QCOMPARE(device.installedFiles().keys(),
                 QStringList({ "/boot/kernel-recovery.bin", "/boot/kernel.bin" }));
    }
};

QTEST_GUILESS_MAIN(tst_Supervising)
#include "tst_supervising.moc"
