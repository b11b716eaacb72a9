#include "support/programrun.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

namespace {

/*! A device that answers the first bytes of each connection with 500 bytes, and closes. */
class Answerer : public QTcpServer
{
public:
    Answerer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                received += socket->readAll();
                if (received.size() < 5)
                    return;
                received.clear();
                socket->write(QByteArray(500, 'x'));
                socket->disconnectFromHost();
            });
        });
    }

    QByteArray received; // of the connection that is not answered yet
};

} // namespace

/*! The relay between a host and a device. */
class tst_Relay : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void faults_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QVector<int>>("answers"); // bytes that the connections get
        QTest::addColumn<int>("atLeastMs"); // for the last

        const QStringList answers { "--answers", "--at", "200" };
        QTest::newRow("none") << QStringList {} << QVector<int> { 500, 500 } << 0;
        QTest::newRow("answer closed")
            << answers + QStringList { "--fault", "close" } << QVector<int> { 200, 200 } << 0;
        QTest::newRow("answer closed once")
            << answers + QStringList { "--fault", "close", "--connection", "2" }
            << QVector<int> { 500, 200, 500 } << 0;
        QTest::newRow("answer trickles")
            << answers + QStringList { "--fault", "trickle", "--pace", "3000" }
            << QVector<int> { 500 } << 90;
        QTest::newRow("request closed")
            << QStringList { "--fault", "close", "--at", "3" } << QVector<int> { 0 } << 0;
        QTest::newRow("request reset")
            << QStringList { "--fault", "reset", "--at", "3" } << QVector<int> { 0 } << 0;
        QTest::newRow("before the first byte")
            << QStringList { "--fault", "close" } << QVector<int> { 0 } << 0;
        QTest::newRow("far behind the end")
            << QStringList { "--fault", "reset", "--at", "5000000000" } << QVector<int> { 500 }
            << 0;
    }
    void faults()
    {
        QFETCH(QStringList, options);
        QFETCH(QVector<int>, answers);
        QFETCH(int, atLeastMs);
        Answerer device;
        QVERIFY(device.listen(QHostAddress::LocalHost));
        QProcess relay;
        const quint16 port = start(relay, device.serverPort(), options);
        QVERIFY(port != 0);
        for (const int expected : answers) {
            device.received.clear();
            QElapsedTimer elapsed;
            elapsed.start();
            QTcpSocket host;
            // By signal: the connection may be over before anybody looks at the state.
            bool wasConnected = false;
            connect(&host, &QTcpSocket::connected, this, [&] { wasConnected = true; });
            host.connectToHost(QHostAddress::LocalHost, port);
            host.write("hello");
            QTRY_VERIFY(wasConnected && host.state() == QAbstractSocket::UnconnectedState);
            QCOMPARE(host.readAll().size(), expected);
            QVERIFY2(elapsed.elapsed() >= atLeastMs,
                     qPrintable(QString::number(elapsed.elapsed())));
        }
        relay.kill();
        relay.waitForFinished();
    }

    void stall()
    {
        Answerer device;
        QVERIFY(device.listen(QHostAddress::LocalHost));
        QProcess relay;
        const quint16 port = start(relay, device.serverPort(), { "--fault", "stall", "--at", "3" });
        QTcpSocket host;
        host.connectToHost(QHostAddress::LocalHost, port);
        host.write("hello");
        QTRY_COMPARE(device.received, QByteArray("hel"));
        host.write("more");
        QTest::qWait(50);
        QCOMPARE(device.received, QByteArray("hel"));
        QCOMPARE(host.state(), QAbstractSocket::ConnectedState);
        relay.kill();
        relay.waitForFinished();
    }

    void noDevice()
    {
        QTcpServer nobody;
        QVERIFY(nobody.listen(QHostAddress::LocalHost));
        const quint16 devicePort = nobody.serverPort();
        nobody.close();
        QProcess relay;
        const quint16 port = start(relay, devicePort, {});
        QTcpSocket host;
        host.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(host.waitForConnected());
        QTRY_COMPARE(host.state(), QAbstractSocket::UnconnectedState);
        relay.kill();
        relay.waitForFinished();
    }

    void wrongOptions_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("sentence");

        const QStringList to { "--to", "127.0.0.1:1" };
        QTest::newRow("no device") << QStringList {} << "--to is missing.";
        QTest::newRow("device beyond loopback")
            << QStringList { "--to", "10.0.0.1:80" }
            << "--to: \"10.0.0.1:80\" is not an IPv4 loopback address (127.0.0.0/8) with a port.";
        QTest::newRow("unknown fault")
            << to + QStringList { "--fault", "melt" }
            << "--fault: \"melt\" is none of reset, close, stall, trickle.";
        QTest::newRow("negative byte")
            << to + QStringList { "--at", "-1" }
            << "--at: \"-1\" is no number from 0 to 9223372036854775807.";
        QTest::newRow("stray word") << to + QStringList { "x" } << "Unexpected argument \"x\".";
    }
    void wrongOptions()
    {
        QFETCH(QStringList, options);
        const ProgramRun run = runProgram(QStringLiteral(VELMAR_RELAY), options);
        QCOMPARE(run.exitCode, 64);
        QFETCH(QString, sentence);
        QCOMPARE(run.err, "velmar-relay: " + sentence + " See velmar-relay --help\n");
    }

    void help()
    {
        const ProgramRun run = runProgram(QStringLiteral(VELMAR_RELAY), { "--help" });
        QCOMPARE(run.exitCode, 0);
        QVERIFY(run.out.startsWith("Usage: velmar-relay --to ADDR:PORT [options]\n"));
    }

private:
    /*! Starts \a relay in front of \a devicePort; its own port, 0 if it did not get ready. */
    static quint16 start(QProcess &relay, quint16 devicePort, const QStringList &options)
    {
        relay.start(QStringLiteral(VELMAR_RELAY),
                    QStringList { "--to", QStringLiteral("127.0.0.1:%1").arg(devicePort) }
                        + options);
        if (!relay.waitForReadyRead())
            return 0;
        const auto ready = QJsonDocument::fromJson(relay.readLine()).object();
        return quint16(ready.value("port").toInt());
    }
};

QTEST_GUILESS_MAIN(tst_Relay)

#include "tst_relay.moc"
