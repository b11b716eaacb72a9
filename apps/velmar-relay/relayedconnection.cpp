#include "relayedconnection.h"

#include <QTcpSocket>

#include <algorithm>
#include <utility>

#include <sys/socket.h>

namespace Velmar::Relay {

namespace {

constexpr qint64 BufferSize = 65536;
constexpr int PaceMs = 10;

void resetSocket(QTcpSocket &socket)
{
    const linger atOnce { 1, 0 };
    ::setsockopt(int(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    socket.abort();
}

} // namespace

RelayedConnection::RelayedConnection(std::unique_ptr<QTcpSocket> host, const QHostAddress &address,
                                     quint16 port, const Plan &plan)
    : m_plan(plan)
    , m_host(std::move(host))
    , m_device(std::make_unique<QTcpSocket>())
    , m_requests { m_host.get(), m_device.get() }
    , m_answers { m_device.get(), m_host.get() }
{
    const bool hasPlan = plan.action != Plan::Action::None;
    m_requests.hasPlan = hasPlan && !plan.isAnswer;
    m_answers.hasPlan = hasPlan && plan.isAnswer;
    m_pace.setInterval(PaceMs);
    for (Flow *flow : { &m_requests, &m_answers }) {
        // What the relay holds is bounded, so that a slow end slows the other one.
        flow->from->setReadBufferSize(BufferSize);
        connect(flow->from, &QTcpSocket::readyRead, this, [this, flow] { pump(*flow); });
        connect(flow->to, &QTcpSocket::bytesWritten, this, [this, flow] { pump(*flow); });
        connect(flow->to, &QTcpSocket::connected, this, [this, flow] { pump(*flow); });
        connect(flow->from, &QTcpSocket::disconnected, this, [this, flow] {
            flow->isClosing = true;
            pump(*flow);
            endIfClosed();
        });
        connect(flow->from, &QTcpSocket::errorOccurred, this,
                [this, flow](QAbstractSocket::SocketError error) {
                    // A device that refuses or resets does so to the host, and the other way round.
                    if (error != QAbstractSocket::RemoteHostClosedError)
                        resetSocket(*flow->to);
                    endIfClosed();
                });
        if (flow->hasPlan && m_plan.action == Plan::Action::Trickle)
            connect(&m_pace, &QTimer::timeout, this, [this, flow] { pump(*flow); });
    }
    m_device->connectToHost(address, port);
    pump(m_requests);
}

RelayedConnection::~RelayedConnection()
{
    for (QTcpSocket *socket : { m_host.get(), m_device.get() })
        socket->disconnect(this);
}

void RelayedConnection::pump(Flow &flow)
{
    const bool isPaced = m_pace.isActive() && flow.hasPlan;
    if (flow.isStalled || (isPaced && sender() != &m_pace))
        return;
    while (!m_isOver && flow.to->state() == QAbstractSocket::ConnectedState
           && flow.to->bytesToWrite() < BufferSize && flow.from->bytesAvailable() > 0) {
        if (flow.hasPlan && !m_hasStruck && flow.passed == m_plan.at) {
            strike(flow);
            return;
        }
        const QByteArray bytes = flow.from->read(allowance(flow));
        flow.to->write(bytes);
        flow.passed += bytes.size();
        if (isPaced)
            break;
    }
    if (flow.isClosing && flow.from->bytesAvailable() == 0)
        flow.to->disconnectFromHost();
}

qint64 RelayedConnection::allowance(const Flow &flow) const
{
    if (!flow.hasPlan)
        return BufferSize;
    if (!m_hasStruck)
        return std::min(BufferSize, m_plan.at - flow.passed);
    return std::max(qint64(1), m_plan.bytesPerSecond * PaceMs / 1000);
}

void RelayedConnection::strike(Flow &flow)
{
    m_hasStruck = true;
    // First of all: flushing asks for more.
    if (m_plan.action == Plan::Action::Trickle)
        m_pace.start();
    else
        flow.isStalled = true;
    flow.to->flush();
    switch (m_plan.action) {
    case Plan::Action::Reset:
        resetSocket(*m_host);
        resetSocket(*m_device);
        endIfClosed();
        break;
    case Plan::Action::Close:
        m_host->disconnectFromHost();
        m_device->disconnectFromHost();
        endIfClosed();
        break;
    case Plan::Action::None:
    case Plan::Action::Stall:
    case Plan::Action::Trickle:
        break;
    }
}

void RelayedConnection::endIfClosed()
{
    for (const QTcpSocket *socket : { m_host.get(), m_device.get() }) {
        if (socket->state() != QAbstractSocket::UnconnectedState)
            return;
    }
    if (std::exchange(m_isOver, true))
        return;
    m_pace.stop();
    Q_EMIT ended();
}

} // namespace Velmar::Relay
