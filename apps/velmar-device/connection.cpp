#include "connection.h"

#include "trace.h"

#include <QHostAddress>
#include <QTcpSocket>

#include <algorithm>
#include <limits>
#include <utility>

namespace Velmar::Simulator {

namespace {

constexpr qint64 MaxUnread = 262144; // bytes that wait in this process until they are looked at
constexpr qint64 MaxUnsent = 1048576; // bytes of answers that a host may leave unread
constexpr qint64 ReadSize = 65536;
constexpr int PacesPerSecond = 20; // of a slow link

QString peerName(const QTcpSocket &socket)
{
    return QString::fromLatin1("%1:%2").arg(socket.peerAddress().toString()).arg(socket.peerPort());
}

} // namespace

Connection::Connection(std::unique_ptr<QTcpSocket> socket, const OperationTable &operations,
                       Trace &trace, const LinkPolicy &policy)
    : m_socket(std::move(socket))
    , m_operations(operations)
    , m_trace(trace)
    , m_policy(policy)
    , m_peer(peerName(*m_socket))
{
    m_socket->setParent(nullptr); // its server would free it a second time
    m_socket->setReadBufferSize(MaxUnread);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_silence.setSingleShot(true);
    m_pace.setSingleShot(true);
    m_pace.setTimerType(Qt::PreciseTimer);
    m_delay.setSingleShot(true);
    m_delay.setTimerType(Qt::PreciseTimer);
    connect(m_socket.get(), &QTcpSocket::readyRead, this, [this] {
        watchSilence();
        work();
    });
    connect(m_socket.get(), &QTcpSocket::bytesWritten, this, [this] {
        followUp();
        work();
    });
    connect(m_socket.get(), &QTcpSocket::disconnected, this, &Connection::end);
    connect(&m_pace, &QTimer::timeout, this, &Connection::work);
    connect(&m_silence, &QTimer::timeout, this, &Connection::endSilence);
    watchSilence();
}

Connection::~Connection()
{
    m_socket->disconnect(this);
}

void Connection::end()
{
    if (m_isOver)
        return;
    m_isOver = true;
    m_silence.stop();
    m_pace.stop();
    m_delay.stop();
    m_socket->abort();
    followUp();
    Q_EMIT ended();
}

void Connection::pauseSilenceLimit(qint64 milliseconds)
{
    m_pause.setRemainingTime(milliseconds);
    watchSilence();
}

void Connection::resumeSilenceLimit()
{
    m_pause.setRemainingTime(0);
    watchSilence();
}

void Connection::endConnection()
{
    drop(QString::fromLatin1("a fault ends it"));
}

void Connection::work()
{
    // A request is looked at when nothing is left to do for the one before.
    while (!m_isOver && !m_pace.isActive() && !m_delay.isActive() && !m_afterwards
           && m_socket->bytesToWrite() < MaxUnsent) {
        QCborMap message;
        switch (m_frames.next(message)) {
        case SSProxy::FrameReader::Status::Message:
            carryOut(message);
            break;
        case SSProxy::FrameReader::Status::Incomplete:
            if (!readMore())
                return;
            break;
        case SSProxy::FrameReader::Status::Broken:
            drop(m_frames.errorText());
            break;
        }
    }
}

bool Connection::readMore()
{
    const qint64 limit = m_policy.bytesPerSecond == 0
        ? ReadSize
        : std::clamp(m_policy.bytesPerSecond / PacesPerSecond, qint64(1), ReadSize);
    const QByteArray bytes = m_socket->read(limit);
    m_frames.append(bytes);
    holdBack(bytes.size());
    return !bytes.isEmpty();
}

void Connection::carryOut(const QCborMap &message)
{
    SSProxy::RequestMessage request;
    QString fault;
    if (!request.fromCbor(message, fault)) {
        drop(fault);
        return;
    }
    m_trace.request(m_peer, request);
    const Reply reply = m_operations.perform(request.operation, request.arguments, *this);
    if (reply.dropsConnection) {
        drop(QString::fromLatin1("a fault drops the connection at %1").arg(request.operation));
        return;
    }
    if (reply.isUnanswered)
        return;
    SSProxy::AnswerMessage answer;
    answer.label = request.label;
    answer.ack = quint16(reply.outcome.ack);
    answer.errorText = reply.outcome.errorText;
    answer.values = reply.values;
    m_afterwards = reply.afterwards;
    if (reply.delayMs > 0)
        sendDelayed(reply.delayMs, request.operation, answer);
    else
        send(request.operation, answer);
}

void Connection::sendDelayed(int milliseconds, const QString &operation,
                             const SSProxy::AnswerMessage &answer)
{
    m_delay.disconnect(this);
    connect(&m_delay, &QTimer::timeout, this, [this, operation, answer] {
        send(operation, answer);
        work();
    });
    m_delay.start(milliseconds);
    watchSilence();
}

void Connection::send(const QString &operation, const SSProxy::AnswerMessage &answer)
{
    const QByteArray frame = SSProxy::encodeFrame(answer.toCbor());
    if (frame.isNull()) {
        drop(QString::fromLatin1("the answer to %1 fits no frame").arg(operation));
        return;
    }
    m_trace.answer(m_peer, operation, answer);
    m_socket->write(frame);
    m_socket->flush();
    holdBack(frame.size());
    followUp();
}

/*! Does what was to follow the answer, as soon as that has left or cannot leave any more. */
void Connection::followUp()
{
    const bool hasLeft = !m_delay.isActive() && m_socket->bytesToWrite() == 0;
    if (m_afterwards && (m_isOver || hasLeft))
        std::exchange(m_afterwards, nullptr)();
}

void Connection::holdBack(qint64 bytes)
{
    if (m_policy.bytesPerSecond == 0)
        return;
    const qint64 busy = std::max(m_pace.remainingTime(), 0);
    m_pace.start(int(std::min<qint64>(busy + bytes * 1000 / m_policy.bytesPerSecond,
                                      std::numeric_limits<int>::max())));
    watchSilence(); // a host cannot be heard while the link is busy with what it has sent
}

/*! Counts the silence from now on. */
void Connection::watchSilence()
{
    if (m_isOver)
        return;
    const qint64 held = m_pause.remainingTime() + qint64(std::max(m_pace.remainingTime(), 0))
        + qint64(std::max(m_delay.remainingTime(), 0));
    m_silence.start(
        int(std::min<qint64>(held + m_policy.silenceLimitMs, std::numeric_limits<int>::max())));
}

void Connection::endSilence()
{
    // What has arrived but was not yet looked at is no silence, however busy this process was.
    if (!m_socket->waitForReadyRead(0) && !m_isOver)
        drop(QString::fromLatin1("the host is silent"));
}

void Connection::drop(const QString &reason)
{
    if (m_isOver)
        return;
    qInfo("The connection of %s is dropped: %s.", qUtf8Printable(m_peer), qUtf8Printable(reason));
    end();
}

} // namespace Velmar::Simulator
