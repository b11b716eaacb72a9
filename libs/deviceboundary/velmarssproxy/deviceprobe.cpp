#include "deviceprobe.h"

#include "cborfields.h"

#include <velmarssproxy/framecodec.h>

#include <QCborMap>
#include <QCborValue>
#include <QDebug>
#include <QNetworkDatagram>
#include <QNetworkProxy>

namespace Velmar::SSProxy::Internal {

namespace {

constexpr int ProbeProtocol = 1;

// Longer than any answer with a sensible name; what is longer is not one.
constexpr qint64 MaxAnswerSize = 2048;

// So many answers are read before the thread looks after its timer and its callers again.
constexpr int AnswersPerTurn = 256;

} // namespace

ProbeRounds::ProbeRounds(DeviceManager *owner)
    : q(owner)
    , m_timer(this)
{
    connect(&m_timer, &QTimer::timeout, this, &ProbeRounds::ask);
}

void ProbeRounds::start(const ProbeTarget &target)
{
    stop();
    if (!m_address.setAddress(target.address)) {
        qWarning().noquote() << "Cannot look for devices: no numeric address:" << target.address;
        return;
    }
    m_port = target.probePort;

    // An answer from outside has no business on a loopback probe.
    const bool isIPv6 = m_address.protocol() == QAbstractSocket::IPv6Protocol;
    const QHostAddress local = m_address.isLoopback()
        ? QHostAddress(isIPv6 ? QHostAddress::LocalHostIPv6 : QHostAddress::LocalHost)
        : QHostAddress(isIPv6 ? QHostAddress::AnyIPv6 : QHostAddress::AnyIPv4);
    m_socket = std::make_unique<QUdpSocket>();
    m_socket->setProxy(QNetworkProxy::NoProxy);
    if (!m_socket->bind(local, target.localPort)) {
        qWarning().noquote() << "Cannot look for devices from UDP port" << target.localPort << ":"
                             << m_socket->errorString();
        m_socket.reset();
        return;
    }
    connect(m_socket.get(), &QUdpSocket::readyRead, this, &ProbeRounds::readAnswers);
    m_timer.start(target.interval);
    ask();
}

void ProbeRounds::stop()
{
    m_timer.stop();
    m_socket.reset();
}

void ProbeRounds::ask()
{
    QCborMap probe;
    probe.insert(QLatin1String("op"), QLatin1String("probe"));
    probe.insert(QLatin1String("protocol"), ProbeProtocol);
    // A network that is down now may be up in the next round.
    if (m_socket->writeDatagram(probe.toCborValue().toCbor(), m_address, m_port) < 0)
        qDebug().noquote() << "Cannot ask for devices:" << m_socket->errorString();
}

void ProbeRounds::readAnswers()
{
    for (int i = 0; i < AnswersPerTurn; ++i) {
        // This may be a queued turn, and the probe stopped in between.
        if (!m_socket || !m_socket->hasPendingDatagrams())
            return;
        const qint64 size = m_socket->pendingDatagramSize();
        const QNetworkDatagram datagram = m_socket->receiveDatagram(MaxAnswerSize);
        if (size <= MaxAnswerSize)
            readAnswer(datagram.data(), datagram.senderAddress());
    }
    QMetaObject::invokeMethod(this, &ProbeRounds::readAnswers, Qt::QueuedConnection);
}

void ProbeRounds::readAnswer(const QByteArray &bytes, const QHostAddress &sender)
{
    QCborMap answer;
    QString ignoredReason;
    if (!decodeMessage(bytes, answer, ignoredReason))
        return;
    const QCborValue serial = answer.value(QLatin1String("serial"));
    const QCborValue name = answer.value(QLatin1String("name"));
    DiscoveredDevice device;
    if (answer.value(QLatin1String("op")).toString() != QLatin1String("device")
        || answer.value(QLatin1String("protocol")).toInteger() != ProbeProtocol
        || !readNumber(answer, QLatin1String("modelId"), device.modelId)
        || !readNumber(answer, QLatin1String("port"), device.port) || device.port == 0
        || !serial.isString() || !name.isString())
        return;
    device.address = sender.toString();
    device.serial = serial.toString();
    device.name = name.toString();
    Q_EMIT q->signalDeviceFound(device);
}

DeviceProbe::DeviceProbe(DeviceManager *owner)
    : q(owner)
{
}

DeviceProbe::~DeviceProbe()
{
    endThread();
}

void DeviceProbe::setDefaults(const ProbeTarget &target)
{
    const QMutexLocker locker(&m_mutex);
    m_defaults = target;
}

bool DeviceProbe::start(const ProbeTarget &wanted)
{
    const QMutexLocker locker(&m_mutex);
    ProbeTarget target = wanted;
    if (target.address.isEmpty())
        target.address = m_defaults.address;
    if (target.probePort == 0)
        target.probePort = m_defaults.probePort;
    if (target.localPort == 0)
        target.localPort = m_defaults.localPort;
    if (target.interval == 0)
        target.interval = m_defaults.interval;

    const bool isNewThread = !m_thread;
    if (isNewThread) {
        m_thread = std::make_unique<QThread>();
        m_thread->setObjectName(QStringLiteral("device probe"));
        m_rounds = new ProbeRounds(q);
        m_rounds->moveToThread(m_thread.get());
        QObject::connect(m_thread.get(), &QThread::finished, m_rounds, &QObject::deleteLater);
        m_thread->start();
    }
    QMetaObject::invokeMethod(
        m_rounds, [rounds = m_rounds, target] { rounds->start(target); }, Qt::QueuedConnection);
    return isNewThread;
}

void DeviceProbe::stop()
{
    const QMutexLocker locker(&m_mutex);
    if (m_thread)
        QMetaObject::invokeMethod(m_rounds, &ProbeRounds::stop, Qt::QueuedConnection);
}

void DeviceProbe::endThread()
{
    std::unique_ptr<QThread> thread;
    {
        const QMutexLocker locker(&m_mutex);
        thread = std::move(m_thread);
        m_rounds = nullptr;
    }
    if (!thread)
        return;
    // Not under the mutex: a slot that runs on the thread may want to stop the probe just now.
    thread->quit();
    thread->wait();
}

} // namespace Velmar::SSProxy::Internal
