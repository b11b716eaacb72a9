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
        auto environment = QProcessEnvironment::systemEnvironment();
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

} // namespace

/*! What an operator does during an upgrade: answering, interrupting, watching. */
class tst_Supervising : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void interruptWhileInstalling()
    {
        DeviceProgram device({ "--install-ms", "2000" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade({ "run", package.path(), "--device", device.address(), "--yes" });
        QVERIFY(upgrade.waitForOutput("Installing, current progress is "));
        upgrade.interrupt(SIGINT);
        QVERIFY(upgrade.waitForOutput("The upgrade goes on: the device is not to be interrupted. "
                                      "Press Ctrl-C again to leave it to itself.\n"));
        upgrade.interrupt(SIGINT);
        const auto left = upgrade.finish();
        QCOMPARE(left.err,
                 QStringLiteral("velmar-upgrade: The device goes on by itself. See it with: "
                                "velmar-upgrade watch --device %1\n")
                     .arg(device.address()));
        QCOMPARE(left.exitCode, 130);

        const auto watched = UpgradeProgram::run({ "watch", "--device", device.address() });
        QVERIFY2(watched.out.endsWith("Upgrade successful,device is restarting.\n"),
                 qPrintable(watched.out + watched.err));
        QCOMPARE(watched.exitCode, 0);
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.installedFiles().size(), 14);
    }

    void terminationWhileSending()
    {
        DeviceProgram device({ "--fault", "slow-link=400000" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade({ "run", package.path(), "--device", device.address(), "--yes" });
        QVERIFY(upgrade.waitForOutput("Sending upgrade files,current progress is "));
        upgrade.interrupt(SIGTERM);
        const auto left = upgrade.finish();
        QCOMPARE(
            left.err,
            QStringLiteral("velmar-upgrade: The image was being sent: a device does not install "
                           "an image that is not complete. If it was, see the installation "
                           "with: velmar-upgrade watch --device %1\n")
                .arg(device.address()));
        QCOMPARE(left.exitCode, 130);
        QVERIFY(device.installedFiles().isEmpty());
    }

    void endOfTheOutputDoesNotStopAnUpgrade()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QProcess reader; // goes away after the first character
        QProcess upgrade;
        upgrade.setStandardOutputProcess(&reader);
        upgrade.start(
            QStringLiteral(VELMAR_UPGRADE),
            { "run", package.path(), "--device", device.address(), "--yes", "--section", "EDID" });
        reader.start(QStringLiteral("head"), { "-c", "1" });
        QCOMPARE(finishProgram(reader).out, QStringLiteral("S"));
        QCOMPARE(finishProgram(upgrade).exitCode, 0);
        QCOMPARE(device.installedFiles().keys(), QStringList("/firmware/cards/7801/edid.bin"));
    }

    void timeLimit()
    {
        DeviceProgram device({ "--fault", "never-ends" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram upgrade({ "run", package.path(), "--device", device.address(), "--yes" });
        QVERIFY(upgrade.waitForOutput("Installing, current progress is "));
        upgrade.interrupt(SIGTERM);
        QCOMPARE(upgrade.finish().exitCode, 130);

        const auto run =
            UpgradeProgram::run({ "watch", "--device", device.address(), "--timeout", "1" });
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The time limit has passed. The device goes on by "
                                "itself. See it with: velmar-upgrade watch --device %1\n")
                     .arg(device.address()));
        QCOMPARE(run.exitCode, 5);
        QVERIFY(!device.operations().contains("device.shutdown"));
    }

    void timeLimitOfADeviceThatDoesNotAnswer()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const MutedDevice muted(device);
        QProcess watch;
        watch.start(QStringLiteral(VELMAR_UPGRADE),
                    { "watch", "--device", muted.address(), "--timeout", "1" });
        QElapsedTimer waited;
        waited.start();
        QTRY_COMPARE_WITH_TIMEOUT(watch.state(), QProcess::NotRunning, 30000);
        QVERIFY(waited.elapsed() >= 1000);
        const auto run = finishProgram(watch);
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The time limit has passed. The device goes on by "
                                "itself. See it with: velmar-upgrade watch --device %1\n")
                     .arg(muted.address()));
        QCOMPARE(run.exitCode, 5);
    }

    void watchAfterTheEnd_data()
    {
        QTest::addColumn<QStringList>("faults");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("restartText");

        QTest::newRow("installed")
            << QStringList {} << 0
            << "The device has installed everything. It is not restarted; add --restart for that\n"
            << "Upgrade successful,please restart the device manually.\n";
        QTest::newRow("failed")
            << QStringList { "--fault", "install-fails" } << 1
            << "velmar-upgrade: The installation has failed. It is not restarted; add --restart "
               "for "
               "that\n"
            << "velmar-upgrade: Failed to get upgrade progress,please restart the device "
               "manually.\n";
    }
    void watchAfterTheEnd()
    {
        QFETCH(QStringList, faults);
        QFETCH(QString, restartText);
        // As long as the restart is refused, the device goes on reporting its last installation.
        DeviceProgram device(QStringList { "--fault", "refuse-restart" } + faults);
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        UpgradeProgram::run({ "run", package.path(), "--device", device.address(), "--yes" });
        const auto restarts = device.operations().count("device.shutdown");

        const auto watched = UpgradeProgram::run({ "watch", "--device", device.address() });
        QTEST(watched.out + watched.err, "text");
        QTEST(watched.exitCode, "exitCode");
        QCOMPARE(device.operations().count("device.shutdown"), restarts);

        const auto restarted =
            UpgradeProgram::run({ "watch", "--device", device.address(), "--restart" });
        QVERIFY2((restarted.out + restarted.err).contains(restartText),
                 qPrintable(restarted.out + restarted.err));
        QTEST(restarted.exitCode, "exitCode");
        QCOMPARE(device.operations().count("device.shutdown"), restarts + 1);
    }

    void questionOnATerminal()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const QStringList arguments { "run",       package.path(), "--device", device.address(),
                                      "--section", "Kernel" };

        UpgradeOnTerminal declined(arguments);
        QTRY_VERIFY_WITH_TIMEOUT(
            declined.shown().endsWith("Upgrade and restart the device? [y/N] "), 50000);
        QVERIFY(declined.shown().contains("  main control: Kernel\r\n"));
        declined.type("\n");
        const auto refusal = finishProgram(declined.process());
        QCOMPARE(refusal.err, QStringLiteral("velmar-upgrade: The device stays as it was\n"));
        QCOMPARE(refusal.exitCode, 130);
        QCOMPARE(device.operations(), QStringList("hello"));

        UpgradeOnTerminal agreed(arguments);
        QTRY_VERIFY_WITH_TIMEOUT(agreed.shown().endsWith("Upgrade and restart the device? [y/N] "),
                                 50000);
        agreed.type("y\n");
        QTRY_VERIFY_WITH_TIMEOUT(
            agreed.shown().endsWith("Upgrade successful,device is restarting.\r\n"), 50000);
        QCOMPARE(finishProgram(agreed.process()).exitCode, 0);
        QVERIFY(agreed.shown().contains("\rSending upgrade files,current progress is 100% "
                                        "[##############################]\x1b[K\r\n"));
        QVERIFY(agreed.shown().contains("\rInstalling, current progress is 100% "
                                        "[########################################]\x1b[K\r\n"));
    }
};

QTEST_GUILESS_MAIN(tst_Supervising)
#include "tst_supervising.moc"
