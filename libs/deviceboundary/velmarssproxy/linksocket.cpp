#include "linksocket.h"

#include "socketlink_p.h"

#include <velmarssproxy/linkmessages.h>

#include <QDebug>
#include <QNetworkProxy>

namespace Velmar::SSProxy::Internal {

namespace {

// Frames beyond this many bytes in the socket wait outside of it, where a caller that runs out of
// time can still call them back.
constexpr qint64 SocketBacklog = 131072;

} // namespace

LinkSocket::LinkSocket(SocketLinkPrivate *link)
    : m_link(link)
    , m_socket(this)
    , m_heartbeat(this)
    , m_pause(this)
    , m_signOfLife(this)
{
    m_socket.setProxy(QNetworkProxy::NoProxy);
    connect(&m_socket, &QTcpSocket::connected, this, &LinkSocket::handleConnected);
    connect(&m_socket, &QTcpSocket::readyRead, this, &LinkSocket::handleBytes);
    connect(&m_socket, &QTcpSocket::bytesWritten, this, &LinkSocket::handleWrittenBytes);
    connect(&m_socket, &QTcpSocket::errorOccurred, this,
            [this] { endConnection(m_socket.errorString()); });
    connect(&m_socket, &QTcpSocket::disconnected, this,
            [this] { endConnection(QStringLiteral("the connection has ended")); });

    m_heartbeat.setSingleShot(true);
    m_pause.setSingleShot(true);
    m_signOfLife.setSingleShot(true);
    connect(&m_heartbeat, &QTimer::timeout, this, &LinkSocket::handleHeartbeat);
    connect(&m_pause, &QTimer::timeout, this, &LinkSocket::resumeHeartbeat);
    connect(&m_signOfLife, &QTimer::timeout, this, &LinkSocket::handleSilence);
}

LinkSocket::~LinkSocket()
{
    // While all members are there that the socket's signals reach.
    disconnectFromDevice();
}

void LinkSocket::connectToDevice(quint32 connection)
{
    disconnectFromDevice();
    m_connection = connection;
    m_reader = FrameReader();
    m_bytesTaken = 0;
    m_bytesHanded = 0;
    m_socket.connectToHost(m_link->host, m_link->port);
}

void LinkSocket::disconnectFromDevice()
{
    m_connection = 0;
    m_heartbeat.stop();
    m_pause.stop();
    m_signOfLife.stop();
    m_socket.abort();
}

void LinkSocket::sendFrames()
{
    takeFrames();
    // Now, and not only when the event loop finds that the socket can be written to.
    m_socket.flush();
}

void LinkSocket::checkLife(quint32 connection)
{
    if (connection == m_connection && !m_pause.isActive() && !m_signOfLife.isActive())
        sendPing();
}

void LinkSocket::pauseHeartbeat(int milliseconds)
{
    if (m_connection == 0)
        return;
    m_heartbeat.stop();
    m_signOfLife.stop();
    m_pause.start(milliseconds);
}

void LinkSocket::resumeHeartbeat()
{
    if (m_connection == 0)
        return;
    m_pause.stop();
    m_heartbeat.start(m_link->options.heartbeatInterval);
}

void LinkSocket::handleConnected()
{
    // Requests are small and each waits for its answer; none of them may wait for the next one.
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_sinceFrame.start();
    m_heartbeat.start(m_link->options.heartbeatInterval);
    m_link->handleConnected(m_connection);
}

void LinkSocket::handleBytes()
{
    m_signOfLife.stop();
    m_link->handleReceivedBytes();
    m_reader.append(m_socket.readAll());
    while (m_connection != 0) {
        QCborMap message;
        AnswerMessage answer;
        QString reason;
        switch (m_reader.next(message)) {
        case FrameReader::Status::Incomplete:
            return;
        case FrameReader::Status::Broken:
            breakOff(m_reader.errorText());
            return;
        case FrameReader::Status::Message:
            if (answer.fromCbor(message, reason))
                m_link->handleAnswer(m_connection, answer);
            else
                breakOff(reason);
        }
    }
}

// Comes from inside of a flush, too: what is added here is flushed with the rest, or as soon as the
// socket can be written to. A second flush from here would hide bytes from this very signal.
void LinkSocket::handleWrittenBytes(qint64 count)
{
    m_bytesHanded += count;
    takeFrames();
}

void LinkSocket::handleHeartbeat()
{
    const qint64 rest = m_link->options.heartbeatInterval - m_sinceFrame.elapsed();
    if (rest <= 0)
        sendPing();
    m_heartbeat.start(rest > 0 ? int(rest) : m_link->options.heartbeatInterval);
}

void LinkSocket::handleSilence()
{
    if (m_link->isWaitingSince(m_pingSerial))
        m_signOfLife.start(m_link->options.pingTimeout);
    else
        breakOff(QStringLiteral("no sign of life for %1 ms").arg(m_link->options.pingTimeout));
}

void LinkSocket::takeFrames()
{
    QByteArray frame;
    while (m_socket.bytesToWrite() < SocketBacklog
           && m_link->takeFrame(m_connection, m_bytesTaken, frame))
        write(frame);
}

void LinkSocket::write(const QByteArray &frame)
{
    m_bytesTaken += frame.size();
    m_sinceFrame.restart();
    m_socket.write(frame);
}

void LinkSocket::sendPing()
{
    // Its answer is dropped like any other that nobody waits for: every byte is a sign of life.
    if (!m_signOfLife.isActive()) {
        m_pingSerial = m_link->lastSerial();
        m_signOfLife.start(m_link->options.pingTimeout);
    }
    const RequestMessage ping { m_link->newLabel(), QStringLiteral("ping"), {} };
    write(encodeFrame(ping.toCbor()));
    m_socket.flush();
}

void LinkSocket::endConnection(const QString &reason)
{
    // Answers may have come together with the end.
    if (m_connection != 0 && m_socket.bytesAvailable() > 0)
        handleBytes();
    if (m_connection == 0)
        return;
    const quint32 connection = m_connection;
    m_connection = 0;
    // Later, as the socket may be in the middle of telling about its end.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_connection == 0)
                disconnectFromDevice();
        },
        Qt::QueuedConnection);
    m_link->handleEnd(connection, reason, m_bytesHanded);
}

void LinkSocket::breakOff(const QString &reason)
{
    qWarning().noquote() << "Closed the connection to" << m_link->host << "port" << m_link->port
                         << ":" << reason;
    endConnection(reason);
}

} // namespace Velmar::SSProxy::Internal
