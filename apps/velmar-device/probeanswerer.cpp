#include "probeanswerer.h"

#include "trace.h"

#include <velmarssproxy/framecodec.h>

#include <QCborValue>

namespace Velmar::Simulator {

namespace {

constexpr qint64 MaxProbeSize = 512; // bytes; a probe has about 25

bool isProbe(const QCborMap &message)
{
    return message.value(QLatin1String("op")).toString() == QLatin1String("probe")
        && message.value(QLatin1String("protocol")).toInteger() == 1;
}

} // namespace

ProbeAnswerer::ProbeAnswerer(Trace &trace)
    : m_trace(trace)
{
    connect(&m_own, &QUdpSocket::readyRead, this, [this] { answerAll(m_own); });
    connect(&m_broadcast, &QUdpSocket::readyRead, this, [this] { answerAll(m_broadcast); });
}

bool ProbeAnswerer::start(const QHostAddress &address, quint16 port, const QCborMap &description,
                          QString &errorText)
{
    m_description = description;
    if (!m_own.bind(address, port, QUdpSocket::DontShareAddress)) {
        errorText = QString::fromLatin1("The device cannot answer probes on %1:%2: %3.")
                        .arg(address.toString())
                        .arg(port)
                        .arg(m_own.errorString());
        return false;
    }
    const QHostAddress everybody(QStringLiteral("127.255.255.255"));
    if (!m_broadcast.bind(everybody, m_own.localPort(),
                          QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)) {
        errorText = QString::fromLatin1("The device cannot answer probes on %1:%2: %3.")
                        .arg(everybody.toString())
                        .arg(m_own.localPort())
                        .arg(m_broadcast.errorString());
        m_own.close();
        return false;
    }
    return true;
}

void ProbeAnswerer::stop()
{
    m_own.close();
    m_broadcast.close();
}

void ProbeAnswerer::answerAll(QUdpSocket &socket)
{
    while (socket.hasPendingDatagrams()) {
        QHostAddress sender;
        quint16 senderPort = 0;
        QByteArray datagram(int(MaxProbeSize), Qt::Uninitialized);
        const bool isWhole = socket.pendingDatagramSize() <= MaxProbeSize;
        const qint64 size =
            socket.readDatagram(datagram.data(), datagram.size(), &sender, &senderPort);
        QCborMap message;
        QString fault;
        if (!isWhole || size <= 0
            || !SSProxy::decodeMessage(datagram.left(int(size)), message, fault)
            || !isProbe(message))
            continue;
        const QString peer = QString::fromLatin1("%1:%2").arg(sender.toString()).arg(senderPort);
        m_trace.probe(peer, QStringLiteral("in"), message);
        m_trace.probe(peer, QStringLiteral("out"), m_description);
        m_own.writeDatagram(m_description.toCborValue().toCbor(), sender, senderPort);
    }
}

} // namespace Velmar::Simulator
