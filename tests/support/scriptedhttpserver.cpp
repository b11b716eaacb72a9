#include "scriptedhttpserver.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

#include <sys/socket.h>

namespace {

constexpr quint16 ServicePort = 8080;

QByteArray pathOf(const QByteArray &head)
{
    return head.split(' ').value(1);
}

int contentLength(const QByteArray &head)
{
    for (const QByteArray &line : head.split('\n')) {
        if (line.toLower().startsWith("content-length:"))
            return line.mid(15).trimmed().toInt();
    }
    return 0;
}

} // namespace

ScriptedHttpServer::Reaction ScriptedHttpServer::answer(const QByteArray &body,
                                                        const QByteArray &status,
                                                        const QByteArray &headers)
{
    return { Reaction::Kind::Answer,
             "HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size())
                 + "\r\n" + headers + "\r\n" + body };
}

ScriptedHttpServer::Reaction ScriptedHttpServer::truncatedAnswer(const QByteArray &body)
{
    Reaction reaction = answer(body);
    reaction.kind = Reaction::Kind::AnswerAndClose;
    reaction.bytes.chop(body.size() - body.size() / 2);
    return reaction;
}

ScriptedHttpServer::Reaction ScriptedHttpServer::reset()
{
    return { Reaction::Kind::Reset, {} };
}

ScriptedHttpServer::Reaction ScriptedHttpServer::closeWithoutAnswer()
{
    return { Reaction::Kind::AnswerAndClose, {} };
}

ScriptedHttpServer::Reaction ScriptedHttpServer::silence()
{
    return { Reaction::Kind::Silence, {} };
}

ScriptedHttpServer::Reaction ScriptedHttpServer::endless(const QByteArray &bytes,
                                                         const QByteArray &more, int paceMs)
{
    return { Reaction::Kind::Endless, bytes, more, paceMs };
}

ScriptedHttpServer::~ScriptedHttpServer()
{
    close();
}

bool ScriptedHttpServer::listen(const QString &address)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ScriptedHttpServer::accept,
            Qt::UniqueConnection);
    return m_server.listen(QHostAddress(address), ServicePort);
}

void ScriptedHttpServer::close()
{
    m_server.close();
    const auto sockets = m_buffers.keys();
    m_buffers.clear();
    m_silent.clear();
    for (QTcpSocket *socket : sockets) {
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
}

void ScriptedHttpServer::queue(const QByteArray &path, const Reaction &reaction)
{
    m_queued[path].enqueue(reaction);
}

void ScriptedHttpServer::always(const QByteArray &path, const Reaction &reaction)
{
    m_standing[path] = reaction;
}

void ScriptedHttpServer::setReading(bool isReading)
{
    m_isReading = isReading;
    const auto sockets = m_buffers.keys();
    for (QTcpSocket *socket : sockets) {
        // What Qt has read ahead counts as on its way, too.
        socket->setReadBufferSize(isReading ? 0 : 1024);
        if (isReading)
            read(socket);
    }
}

bool ScriptedHttpServer::answerSilent(const Reaction &reaction)
{
    if (m_silent.isEmpty())
        return false;
    react(m_silent.dequeue(), reaction);
    return true;
}

int ScriptedHttpServer::count(const QByteArray &path) const
{
    return int(std::count_if(m_requests.begin(), m_requests.end(), [&path](const Request &request) {
        return pathOf(request.head) == path;
    }));
}

void ScriptedHttpServer::accept()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        ++m_connectionCount;
        socket->setReadBufferSize(m_isReading ? 0 : 1024);
        m_buffers.insert(socket, {});
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            m_silent.removeAll(socket);
            socket->deleteLater();
        });
    }
}

void ScriptedHttpServer::read(QTcpSocket *socket)
{
    if (!m_isReading || !m_buffers.contains(socket))
        return;
    m_buffers[socket] += socket->readAll();
    while (m_buffers.contains(socket)) {
        QByteArray &buffer = m_buffers[socket];
        const int headEnd = buffer.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return;
        const QByteArray head = buffer.left(headEnd + 2);
        const int bodyStart = headEnd + 4;
        const int length = contentLength(head);
        if (buffer.size() < bodyStart + length)
            return;
        m_requests.append({ head, buffer.mid(bodyStart, length) });
        buffer.remove(0, bodyStart + length);
        react(socket, reactionFor(pathOf(head)));
    }
}

void ScriptedHttpServer::react(QTcpSocket *socket, const Reaction &reaction)
{
    switch (reaction.kind) {
    case Reaction::Kind::Answer:
        socket->write(reaction.bytes);
        break;
    case Reaction::Kind::AnswerAndClose:
        socket->write(reaction.bytes);
        m_buffers.remove(socket);
        socket->disconnectFromHost();
        break;
    case Reaction::Kind::Reset: {
        const linger atOnce { 1, 0 };
        ::setsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce,
                     sizeof(atOnce));
        m_buffers.remove(socket);
        socket->abort();
        break;
    }
    case Reaction::Kind::Silence:
        m_silent.enqueue(socket);
        break;
    case Reaction::Kind::Endless:
        socket->write(reaction.bytes);
        sendOn(socket, reaction.more, reaction.paceMs);
        break;
    }
}

void ScriptedHttpServer::sendOn(QTcpSocket *socket, const QByteArray &more, int paceMs)
{
    constexpr qint64 MostOnItsWay = 1048576;

    auto *timer = new QTimer(socket);
    connect(timer, &QTimer::timeout, socket, [socket, more] {
        if (socket->bytesToWrite() < MostOnItsWay)
            socket->write(more);
    });
    timer->start(paceMs);
}

ScriptedHttpServer::Reaction ScriptedHttpServer::reactionFor(const QByteArray &path)
{
    QQueue<Reaction> &queued = m_queued[path];
    if (!queued.isEmpty())
        return queued.dequeue();
    return m_standing.value(path, answer(QByteArray(), "404 Not Found"));
}
