#ifndef VELMARRELAY_RELAY_H
#define VELMARRELAY_RELAY_H

#include "relayedconnection.h"

#include <QHostAddress>
#include <QTcpServer>

namespace Velmar::Relay {

/*! Where a relay stands and what it does. */
struct Settings {
    QHostAddress address { QHostAddress::LocalHost };
    quint16 port = 0; //!< 0: any
    QHostAddress deviceAddress { QHostAddress::LocalHost };
    quint16 devicePort = 0;
    Plan plan;
    int connection = 0; //!< number of the one connection that the plan is for; 0: each
};

/*! Passes the connections of hosts on to a device, byte by byte. */
class Relay : public QObject
{
    Q_OBJECT

public:
    explicit Relay(const Settings &settings);

    /*! Listens. False, with \a errorText set, if it cannot. */
    bool start(QString &errorText);

    quint16 port() const { return m_server.serverPort(); } //!< once started

private:
    void takeConnections();

    const Settings m_settings;
    QTcpServer m_server;
    int m_count = 0; // connections so far
};

} // namespace Velmar::Relay

#endif // VELMARRELAY_RELAY_H
