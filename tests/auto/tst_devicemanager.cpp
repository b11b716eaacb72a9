#include "support/logrecorder.h"
#include "support/waituntil.h"

#include <velmarssproxy/devicemanager.h>

#include <QCborMap>
#include <QCborValue>
#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

using namespace Velmar::SSProxy;

namespace {

// {"op": "probe", "protocol": 1}
const QByteArray ProbeBytes = QByteArray::fromHex("a2626f706570726f62656870726f746f636f6c01");

QCborMap answerMap()
{
    return { { "op", "device" },  { "protocol", 1 },       { "modelId", 30465 },
             { "serial", "S-1" }, { "name", "Wall left" }, { "port", 9720 } };
}

QByteArray bytesOf(const QCborMap &map)
{
    return map.toCborValue().toCbor();
}

// The probe port of a device.
class Beacon : public QObject
{
    Q_OBJECT

public:
    explicit Beacon(const QHostAddress &address = QHostAddress(QHostAddress::LocalHost),
                    quint16 port = 0)
    {
        if (!m_socket.bind(address, port, QUdpSocket::ShareAddress))
            qFatal("No port to listen on");
        connect(&m_socket, &QUdpSocket::readyRead, this, &Beacon::takeProbes);
    }

    // Takes all that have arrived by now.
    void takeProbes()
    {
        while (m_socket.hasPendingDatagrams()) {
            probes.append(m_socket.receiveDatagram());
            const QNetworkDatagram &probe = probes.last();
            for (const QByteArray &answer : qAsConst(answers))
                m_socket.writeDatagram(answer, probe.senderAddress(), quint16(probe.senderPort()));
        }
    }

    quint16 port() const { return m_socket.localPort(); }

    QVector<QNetworkDatagram> probes;
    QVector<QByteArray> answers; // to each probe

private:
    QUdpSocket m_socket;
};

} // namespace

class tst_DeviceManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void defaults();
    void stopBeforeAnyStart();
    void probeAndAnswer();
    void roundsGoOn();
    void stops();
    void startsAnew();
    void emptyAndZerosAreTheDefaults();
    void asksFromTheLocalPort();
    void localPortInUse();
    void addressNotNumeric();
    void devicesShareABroadcastAddress();
    void wrongDatagramIsDropped_data();
    void wrongDatagramIsDropped();
    void threadsWithoutEventLoop();
    void stopsFromASlotOnTheProbesThread();
    void cleanupTestCase();

private:
    DeviceManager *const m_manager = DeviceManager::instance();
    std::unique_ptr<QObject> m_receiver;
    QVector<DiscoveredDevice> m_found;
};

void tst_DeviceManager::init()
{
    m_found.clear();
    m_receiver = std::make_unique<QObject>();
    connect(m_manager, &DeviceManager::signalDeviceFound, m_receiver.get(),
            [this](const DiscoveredDevice &device) { m_found.append(device); });
}

void tst_DeviceManager::cleanup()
{
    m_manager->stopDeviceUDPProbe();
    m_manager->setProbeTarget(ProbeTarget());
    m_receiver.reset();
}

void tst_DeviceManager::defaults()
{
    const ProbeTarget target;
    QCOMPARE(target.address, QString("255.255.255.255"));
    QCOMPARE(target.probePort, quint16(9721));
    QCOMPARE(target.localPort, quint16(0));
    QCOMPARE(target.interval, quint16(2000));
    QCOMPARE(DeviceManager::instance(), m_manager);
}

void tst_DeviceManager::stopBeforeAnyStart()
{
    m_manager->stopDeviceUDPProbe();
    m_manager->stopDeviceUDPProbe();
}

void tst_DeviceManager::probeAndAnswer()
{
    Beacon device(QHostAddress("127.0.0.3"));
    device.answers = { bytesOf(answerMap()) };
    m_manager->startDeviceProbe("127.0.0.3", device.port(), 0, 60000);

    QVERIFY(waitUntil([&] { return !m_found.isEmpty(); }));
    QCOMPARE(device.probes.first().data(), ProbeBytes);
    QCOMPARE(m_found.first().address, QString("127.0.0.3"));
    QCOMPARE(m_found.first().port, quint16(9720));
    QCOMPARE(m_found.first().modelId, quint16(30465));
    QCOMPARE(m_found.first().serial, QString("S-1"));
    QCOMPARE(m_found.first().name, QString("Wall left"));
}

void tst_DeviceManager::roundsGoOn()
{
    Beacon device;
    device.answers = { bytesOf(answerMap()) };
    m_manager->startDeviceProbe("127.0.0.1", device.port(), 0, 5);
    QVERIFY(waitUntil([&] { return device.probes.size() >= 4 && m_found.size() >= 3; }));
}

void tst_DeviceManager::stops()
{
    Beacon first;
    Beacon second;
    m_manager->startDeviceProbe("127.0.0.1", first.port(), 0, 1);
    QVERIFY(waitUntil([&] { return first.probes.size() >= 2; }));
    m_manager->stopDeviceUDPProbe();
    m_manager->stopDeviceUDPProbe();

    // What comes from the probe that starts behind the stop shows that the first one has ended.
    m_manager->startDeviceProbe("127.0.0.1", second.port(), 0, 1);
    QVERIFY(waitUntil([&] { return !second.probes.isEmpty(); }));
    first.takeProbes();
    const int probes = first.probes.size();
    QVERIFY(waitUntil([&] { return second.probes.size() >= 10; }));
    first.takeProbes();
    QCOMPARE(first.probes.size(), probes);
}

void tst_DeviceManager::startsAnew()
{
    Beacon first;
    Beacon second;
    m_manager->startDeviceProbe("127.0.0.1", first.port(), 0, 1);
    m_manager->startDeviceProbe("127.0.0.1", second.port(), 0, 1);
    QVERIFY(waitUntil([&] { return !second.probes.isEmpty(); }));
    first.takeProbes();
    const int probes = first.probes.size();
    QVERIFY(waitUntil([&] { return second.probes.size() >= 10; }));
    first.takeProbes();
    QCOMPARE(first.probes.size(), probes);
}

void tst_DeviceManager::emptyAndZerosAreTheDefaults()
{
    Beacon device;
    device.answers = { bytesOf(answerMap()) };
    ProbeTarget target;
    target.address = "127.0.0.1";
    target.probePort = device.port();
    target.interval = 5;
    m_manager->setProbeTarget(target);
    m_manager->startDeviceProbe(QString(), 0, 0, 0);
    QVERIFY(waitUntil([&] { return m_found.size() >= 2; }));
}

void tst_DeviceManager::asksFromTheLocalPort()
{
    // Below the ports that the system gives out, so that nobody else gets it meanwhile.
    const auto localPort = quint16(20000 + QCoreApplication::applicationPid() % 10000);
    Beacon device;
    m_manager->startDeviceProbe("127.0.0.1", device.port(), localPort, 60000);
    QVERIFY(waitUntil([&] { return !device.probes.isEmpty(); }));
    QCOMPARE(device.probes.first().senderPort(), int(localPort));
}

void tst_DeviceManager::localPortInUse()
{
    QUdpSocket other;
    QVERIFY(other.bind(QHostAddress(QHostAddress::LocalHost), 0, QUdpSocket::DontShareAddress));
    Beacon device;
    LogRecorder log;
    m_manager->startDeviceProbe("127.0.0.1", device.port(), other.localPort(), 1);
    QVERIFY(waitUntil([&] { return !log.lines().isEmpty(); }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList(QString("Cannot look for devices from UDP port %1 : "
                                 "The bound address is already in use")
                             .arg(other.localPort())));
    QVERIFY(device.probes.isEmpty());
}

void tst_DeviceManager::addressNotNumeric()
{
    Beacon device;
    LogRecorder log;
    m_manager->startDeviceProbe("127.0.0.1", device.port(), 0, 1);
    QVERIFY(waitUntil([&] { return !device.probes.isEmpty(); }));
    m_manager->startDeviceProbe("no address", device.port(), 0, 1);
    QVERIFY(waitUntil([&] { return !log.lines().isEmpty(); }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList("Cannot look for devices: no numeric address: no address"));
}

void tst_DeviceManager::devicesShareABroadcastAddress()
{
    const QHostAddress shared("127.255.255.255");
    Beacon left(shared);
    Beacon right(shared, left.port());
    QCborMap answer = answerMap();
    left.answers = { bytesOf(answer) };
    answer[QLatin1String("serial")] = "S-2";
    right.answers = { bytesOf(answer) };
    m_manager->startDeviceProbe("127.255.255.255", left.port(), 0, 60000);
    QVERIFY(waitUntil([&] { return m_found.size() == 2; }));
    QStringList serials { m_found.at(0).serial, m_found.at(1).serial };
    serials.sort();
    QCOMPARE(serials, QStringList({ "S-1", "S-2" }));
}

void tst_DeviceManager::wrongDatagramIsDropped_data()
{
    QTest::addColumn<QByteArray>("datagram");

    const auto changed = [](const char *key, const QCborValue &value) {
        QCborMap map = answerMap();
        map[QLatin1String(key)] = value;
        return bytesOf(map);
    };
    const auto without = [](const char *key) {
        QCborMap map = answerMap();
        map.remove(QLatin1String(key));
        return bytesOf(map);
    };
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("garbage") << QByteArray("\xff\x00garbage", 9);
    QTest::newRow("map of 2^63 entries") << QByteArray::fromHex("bb8000000000000000");
    QTest::newRow("cut off") << bytesOf(answerMap()).chopped(1);
    QTest::newRow("with bytes behind it") << bytesOf(answerMap()) + '\0';
    QTest::newRow("array") << QByteArray::fromHex("80");
    QTest::newRow("another probe") << ProbeBytes;
    QTest::newRow("another protocol") << changed("protocol", 2);
    QTest::newRow("protocol as text") << changed("protocol", "1");
    QTest::newRow("without protocol") << without("protocol");
    QTest::newRow("another operation") << changed("op", "hello");
    QTest::newRow("without operation") << without("op");
    QTest::newRow("model too large") << changed("modelId", 65536);
    QTest::newRow("negative model") << changed("modelId", -1);
    QTest::newRow("without model") << without("modelId");
    QTest::newRow("port 0") << changed("port", 0);
    QTest::newRow("port too large") << changed("port", 65536);
    QTest::newRow("port as text") << changed("port", "9720");
    QTest::newRow("without port") << without("port");
    QTest::newRow("serial a number") << changed("serial", 1);
    QTest::newRow("without serial") << without("serial");
    QTest::newRow("name as bytes") << changed("name", QByteArray("Wall"));
    QTest::newRow("without name") << without("name");
    QTest::newRow("longer than an answer may be") << changed("name", QString(2048, 'x'));
}

void tst_DeviceManager::wrongDatagramIsDropped()
{
    QFETCH(QByteArray, datagram);
    Beacon device;
    device.answers = { datagram, bytesOf(answerMap()) };
    m_manager->startDeviceProbe("127.0.0.1", device.port(), 0, 60000);
    // Datagrams keep their order here, so the wrong one was read before.
    QVERIFY(waitUntil([&] { return !m_found.isEmpty(); }));
    QCOMPARE(m_found.size(), 1);
    QCOMPARE(m_found.first().serial, QString("S-1"));
}

void tst_DeviceManager::threadsWithoutEventLoop()
{
    Beacon device;
    device.answers = { bytesOf(answerMap()) };
    std::thread([&] {
        m_manager->stopDeviceUDPProbe();
        m_manager->startDeviceProbe("127.0.0.1", device.port(), 0, 5);
    }).join();
    QVERIFY(waitUntil([&] { return m_found.size() >= 2; }));
    std::thread([&] { m_manager->stopDeviceUDPProbe(); }).join();
}

void tst_DeviceManager::stopsFromASlotOnTheProbesThread()
{
    Beacon device;
    device.answers = { bytesOf(answerMap()) };
    // What the slot touches outlives this function: the slot runs on a thread that is not waited
    // for.
    struct Visit {
        std::atomic<QThread *> thread { nullptr };
        std::atomic<bool> isOver { false };
    };
    const auto visit = std::make_shared<Visit>();
    const QMetaObject::Connection connection = connect(
        m_manager, &DeviceManager::signalDeviceFound, m_manager,
        [visit, manager = m_manager](const DiscoveredDevice &) {
            visit->thread = QThread::currentThread();
            manager->stopDeviceUDPProbe();
            visit->isOver = true;
        },
        Qt::DirectConnection);
    m_manager->startDeviceProbe("127.0.0.1", device.port(), 0, 60000);
    const bool isOver = waitUntil([&] { return visit->isOver.load(); });
    disconnect(connection);
    QVERIFY(isOver);
    QVERIFY(visit->thread.load() != QThread::currentThread());
}

// The process ends with the probe on, which must neither hang nor crash nor leak.
void tst_DeviceManager::cleanupTestCase()
{
    m_manager->startDeviceProbe("127.0.0.1", 9, 0, 1);
}

QTEST_GUILESS_MAIN(tst_DeviceManager)
#include "tst_devicemanager.moc"
