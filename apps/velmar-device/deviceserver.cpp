#include "deviceserver.h"

#include <QHostAddress>
#include <QTcpSocket>

#include <algorithm>
#include <utility>

namespace Velmar::Simulator {

DeviceServer::DeviceServer(const OperationTable &operations, Trace &trace, const LinkPolicy &policy)
    : m_operations(operations)
    , m_trace(trace)
    , m_policy(policy)
{
    connect(&m_server, &QTcpServer::newConnection, this, &DeviceServer::takeConnections);
}

DeviceServer::~DeviceServer()
{
    close();
}

bool DeviceServer::listen(const QHostAddress &address, quint16 port, QString &errorText)
{
    if (m_server.listen(address, port))
        return true;
    errorText = QString::fromLatin1("The device cannot listen on %1:%2: %3.")
                    .arg(address.toString())
                    .arg(port)
                    .arg(m_server.errorString());
    return false;
}

void DeviceServer::close()
{
    m_server.close();
    for (Connection *connection : std::exchange(m_connections, {}))
        connection->end();
}

void DeviceServer::takeConnections()
{
    while (m_server.hasPendingConnections()) {
        std::unique_ptr<QTcpSocket> socket(m_server.nextPendingConnection());
        auto *connection = new Connection(std::move(socket), m_operations, m_trace, m_policy);
        connection->setParent(this);
        m_connections.push_back(connection);
        connect(connection, &Connection::ended, this, [this, connection] { forget(connection); });
    }
}

void DeviceServer::forget(Connection *connection)
{
    m_connections.erase(std::remove(m_connections.begin(), m_connections.end(), connection),
                        m_connections.end());
    connection->deleteLater(); // it may be in the middle of something
}

} // namespace Velmar::Simulator
