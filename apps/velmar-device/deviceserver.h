#ifndef VELMARDEVICE_DEVICESERVER_H
#define VELMARDEVICE_DEVICESERVER_H

#include "connection.h"

#include <QTcpServer>

#include <memory>
#include <vector>

namespace Velmar::Simulator {

/*! Listens for hosts and keeps their connections. */
class DeviceServer : public QObject
{
    Q_OBJECT

public:
    /*! \a operations and \a trace have to outlive this object. */
    DeviceServer(const OperationTable &operations, Trace &trace, const LinkPolicy &policy);
    ~DeviceServer() override;

    /*! Listens on \a address and \a port, 0 for any. False, with \a errorText set, if it cannot. */
    bool listen(const QHostAddress &address, quint16 port, QString &errorText);

    /*! The port that is listened on. */
    quint16 port() const { return m_server.serverPort(); }

    /*! Listens no more and ends all connections. */
    void close();

private:
    void takeConnections();
    void forget(Connection *connection);

    const OperationTable &m_operations;
    Trace &m_trace;
    const LinkPolicy m_policy;
    QTcpServer m_server;
    std::vector<Connection *> m_connections; // children of this object
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DEVICESERVER_H
