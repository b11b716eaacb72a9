#include <velmarssproxy/socketlink.h>

#include "linksocket.h"
#include "socketlink_p.h"

#include <QDebug>

#include <algorithm>

namespace Velmar::SSProxy {

using BizModel::LinkAnswer;
using BizModel::LinkRequest;

namespace Internal {

namespace {

QString closedText()
{
    return QStringLiteral("the link was closed");
}

} // namespace

SocketLinkPrivate::SocketLinkPrivate(const QString &hostName, quint16 portNumber,
                                     const SocketLinkOptions &linkOptions)
    : host(hostName)
    , port(portNumber)
    , options(linkOptions)
{
}

SocketLinkPrivate::~SocketLinkPrivate()
{
    m_thread.quit();
    m_thread.wait();
}

bool SocketLinkPrivate::open(int timeout, QString &errorText)
{
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout);
    std::unique_lock<std::mutex> lock(m_mutex);
    // Whoever finds the link closed connects. The others wait for the outcome of that, and try for
    // themselves if it is not what they wished for.
    quint32 ownConnection = 0;
    while (m_phase != Phase::Open) {
        if (m_phase == Phase::Closed) {
            if (ownConnection != 0) {
                errorText =
                    noConnectionText(m_connection == ownConnection ? m_endReason : closedText());
                return false;
            }
            m_phase = Phase::Connecting;
            ownConnection = ++m_connection;
            startSocket();
            QMetaObject::invokeMethod(
                m_socket,
                [socket = m_socket, ownConnection] { socket->connectToDevice(ownConnection); },
                Qt::QueuedConnection);
        }
        if (m_phaseChanged.wait_until(lock, deadline) == std::cv_status::timeout
            && m_phase == Phase::Connecting) {
            if (m_connection == ownConnection)
                setClosed();
            errorText = noConnectionText(QStringLiteral("no answer within %1 ms").arg(timeout));
            return false;
        }
    }
    return true;
}

void SocketLinkPrivate::close()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_phase == Phase::Closed)
        return;
    // Whether proven or not: a caller must not think of sending anew what its host has called off.
    for (const auto &entry : m_calls)
        finish(*entry.second, LinkAnswer::Outcome::Lost, closedText());
    setClosed();
}

bool SocketLinkPrivate::isOpen() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_phase == Phase::Open;
}

LinkAnswer SocketLinkPrivate::send(const LinkRequest &request)
{
    const int timeout = request.timeout > 0 ? request.timeout : options.requestTimeout;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout);
    Call call;
    const quint32 label = enter(call);
    if (label == 0)
        return call.answer;
    const RequestMessage message { label, request.operation, request.arguments };
    const QByteArray frame = encodeFrame(message.toCbor());

    std::unique_lock<std::mutex> lock(m_mutex);
    if (frame.isNull() && !call.isDone) {
        m_calls.erase(label);
        finish(call, LinkAnswer::Outcome::Unsendable,
               QStringLiteral("the request is longer than a frame may be"));
    } else if (!call.isDone) {
        post(label, frame);
    }
    while (!call.isDone) {
        if (call.done.wait_until(lock, deadline) == std::cv_status::timeout && !call.isDone)
            giveUp(call, label);
    }
    return call.answer;
}

void SocketLinkPrivate::pauseHeartbeat(int milliseconds)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_phase != Phase::Open || milliseconds <= 0)
            return;
        QMetaObject::invokeMethod(
            m_socket, [socket = m_socket, milliseconds] { socket->pauseHeartbeat(milliseconds); },
            Qt::QueuedConnection);
    }
    QCborMap arguments;
    arguments.insert(QLatin1String("milliseconds"), milliseconds);
    const LinkAnswer answer = send({ QStringLiteral("heartbeat.pause"), arguments, 0 });
    if (!answer.isAccepted())
        qWarning().noquote() << "The device did not pause its heartbeat:" << answer.errorText;
}

void SocketLinkPrivate::restartHeartbeat()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_phase != Phase::Open)
            return;
        QMetaObject::invokeMethod(m_socket, &LinkSocket::resumeHeartbeat, Qt::QueuedConnection);
    }
    const LinkAnswer answer = send({ QStringLiteral("heartbeat.resume"), {}, 0 });
    if (!answer.isAccepted())
        qWarning().noquote() << "The device did not resume its heartbeat:" << answer.errorText;
}

void SocketLinkPrivate::handleConnected(quint32 connection)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_connection != connection || m_phase != Phase::Connecting)
        return;
    m_phase = Phase::Open;
    m_phaseChanged.notify_all();
}

void SocketLinkPrivate::handleEnd(quint32 connection, const QString &reason, qint64 bytesHanded)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_connection != connection || m_phase == Phase::Closed)
        return;
    for (const auto &entry : m_calls) {
        Call &call = *entry.second;
        // What the system took may have arrived; what it never had in whole cannot have.
        const bool wasWhole = call.serial != 0 && call.frameEnd <= bytesHanded;
        finish(call, wasWhole ? LinkAnswer::Outcome::Lost : LinkAnswer::Outcome::NotDelivered,
               reason);
    }
    m_calls.clear();
    m_frames.clear();
    m_isSocketAwake = false;
    m_endReason = reason;
    m_phase = Phase::Closed;
    m_phaseChanged.notify_all();
}

void SocketLinkPrivate::handleAnswer(quint32 connection, const AnswerMessage &answer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto entry = m_calls.find(answer.label);
    // Late or doubled, or to a ping. A device can answer only what it has been sent.
    if (m_connection != connection || entry == m_calls.end() || entry->second->serial == 0)
        return;
    Call &call = *entry->second;
    m_calls.erase(entry);
    call.answer.ack = answer.ack;
    call.answer.values = answer.values;
    finish(call, LinkAnswer::Outcome::Answered, answer.errorText);
}

bool SocketLinkPrivate::takeFrame(quint32 connection, qint64 position, QByteArray &frame)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_connection != connection || m_phase != Phase::Open)
        return false;
    if (m_frames.empty()) {
        m_isSocketAwake = false;
        return false;
    }
    Call &call = *m_calls.at(m_frames.front().label);
    frame = std::move(m_frames.front().bytes);
    m_frames.pop_front();
    call.serial = ++m_lastSerial;
    call.frameEnd = position + frame.size();
    call.receivedBefore = m_receivedCount;
    return true;
}

quint32 SocketLinkPrivate::newLabel()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_labels.next([this](quint32 label) { return m_calls.count(label) != 0; });
}

quint64 SocketLinkPrivate::lastSerial() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastSerial;
}

bool SocketLinkPrivate::isWaitingSince(quint64 serial) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_calls.begin(), m_calls.end(), [serial](const auto &entry) {
        return entry.second->serial != 0 && entry.second->serial <= serial;
    });
}

QString SocketLinkPrivate::noConnectionText(const QString &reason) const
{
    return QStringLiteral("no connection to %1 port %2: %3").arg(host).arg(port).arg(reason);
}

void SocketLinkPrivate::startSocket()
{
    if (m_socket != nullptr)
        return;
    m_socket = new LinkSocket(this);
    m_socket->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_socket, &QObject::deleteLater);
    m_thread.setObjectName(QStringLiteral("device link"));
    m_thread.start();
}

// With the mutex locked. Ends what the socket is at; the number makes its last words count for
// nothing.
void SocketLinkPrivate::setClosed()
{
    m_calls.clear();
    m_frames.clear();
    m_isSocketAwake = false;
    m_phase = Phase::Closed;
    ++m_connection;
    m_phaseChanged.notify_all();
    QMetaObject::invokeMethod(m_socket, &LinkSocket::disconnectFromDevice, Qt::QueuedConnection);
}

void SocketLinkPrivate::finish(Call &call, LinkAnswer::Outcome outcome, const QString &errorText)
{
    call.answer.outcome = outcome;
    call.answer.errorText = errorText;
    call.isDone = true;
    call.done.notify_one();
}

// Answers 0, and finishes the call, if the link is closed.
quint32 SocketLinkPrivate::enter(Call &call)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_phase != Phase::Open) {
        finish(call, LinkAnswer::Outcome::NotDelivered, QStringLiteral("the link is not open"));
        return 0;
    }
    call.answer.label = m_labels.next([this](quint32 label) { return m_calls.count(label) != 0; });
    m_calls.emplace(call.answer.label, &call);
    return call.answer.label;
}

// With the mutex locked. One wake-up does for all frames until the socket has found no more of
// them.
void SocketLinkPrivate::post(quint32 label, const QByteArray &frame)
{
    m_frames.push_back({ label, frame });
    if (!m_isSocketAwake)
        QMetaObject::invokeMethod(m_socket, &LinkSocket::sendFrames, Qt::QueuedConnection);
    m_isSocketAwake = true;
}

// With the mutex locked: the time of the call is over.
void SocketLinkPrivate::giveUp(Call &call, quint32 label)
{
    m_calls.erase(label);
    if (call.serial == 0) {
        m_frames.erase(std::remove_if(m_frames.begin(), m_frames.end(),
                                      [label](const Frame &frame) { return frame.label == label; }),
                       m_frames.end());
        finish(call, LinkAnswer::Outcome::NotDelivered,
               QStringLiteral("the connection took nothing in time"));
        return;
    }
    if (call.receivedBefore == m_receivedCount) {
        QMetaObject::invokeMethod(
            m_socket,
            [socket = m_socket, connection = m_connection] { socket->checkLife(connection); },
            Qt::QueuedConnection);
    }
    finish(call, LinkAnswer::Outcome::TimedOut, QStringLiteral("the time is over"));
}

} // namespace Internal

SocketLink::SocketLink(const QString &host, quint16 port, const SocketLinkOptions &options)
    : d(std::make_unique<Internal::SocketLinkPrivate>(host, port, options))
{
}

SocketLink::~SocketLink() = default;

QString SocketLink::host() const
{
    return d->host;
}

quint16 SocketLink::port() const
{
    return d->port;
}

bool SocketLink::open(int timeout, QString &errorText)
{
    return d->open(timeout, errorText);
}

void SocketLink::close()
{
    d->close();
}

bool SocketLink::isOpen() const
{
    return d->isOpen();
}

LinkAnswer SocketLink::send(const LinkRequest &request)
{
    return d->send(request);
}

void SocketLink::pauseHeartbeat(int milliseconds)
{
    d->pauseHeartbeat(milliseconds);
}

void SocketLink::restartHeartbeat()
{
    d->restartHeartbeat();
}

} // namespace Velmar::SSProxy
