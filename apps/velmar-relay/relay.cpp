#include "relay.h"

#include <QTcpSocket>

#include <memory>

namespace Velmar::Relay {

Relay::Relay(const Settings &settings)
    : m_settings(settings)
{
    connect(&m_server, &QTcpServer::newConnection, this, &Relay::takeConnections);
}

bool Relay::start(QString &errorText)
{
    if (m_server.listen(m_settings.address, m_settings.port))
        return true;
    errorText = QString::fromLatin1("The relay cannot listen on %1:%2: %3.")
                    .arg(m_settings.address.toString())
                    .arg(m_settings.port)
                    .arg(m_server.errorString());
    return false;
}

void Relay::takeConnections()
{
    while (m_server.hasPendingConnections()) {
        std::unique_ptr<QTcpSocket> host(m_server.nextPendingConnection());
        host->setParent(nullptr);
        ++m_count;
        const bool isStruck = m_settings.connection == 0 || m_settings.connection == m_count;
        auto *const connection =
            new RelayedConnection(std::move(host), m_settings.deviceAddress, m_settings.devicePort,
                                  isStruck ? m_settings.plan : Plan());
        connection->setParent(this);
        connect(connection, &RelayedConnection::ended, connection, &QObject::deleteLater);
    }
}

} // namespace Velmar::Relay
