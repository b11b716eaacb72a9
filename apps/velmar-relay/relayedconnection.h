#ifndef VELMARRELAY_RELAYEDCONNECTION_H
#define VELMARRELAY_RELAYEDCONNECTION_H

#include <QHostAddress>
#include <QObject>
#include <QTimer>

#include <memory>

class QTcpSocket;

namespace Velmar::Relay {

/*! What happens to a connection, and when. */
struct Plan {
    enum class Action {
        None,
        Reset, //!< both ends get a reset
        Close, //!< both ends are closed behind what has passed
        Stall, //!< nothing more passes in this direction; the connections stay
        Trickle, //!< the rest of this direction passes at a pace
    };

    Action action = Action::None;
    bool isAnswer = false; //!< counts what the device sends; what the host sends otherwise
    qint64 at = 0; //!< bytes that pass before
    qint64 bytesPerSecond = 0; //!< of Action::Trickle
};

/*! One connection of a host and the one to the device that belongs to it. */
class RelayedConnection : public QObject
{
    Q_OBJECT

public:
    /*! Connects \a host, which is connected, with \a address and \a port. */
    RelayedConnection(std::unique_ptr<QTcpSocket> host, const QHostAddress &address, quint16 port,
                      const Plan &plan);
    ~RelayedConnection() override;

Q_SIGNALS:
    void ended();

private:
    /*! One direction. */
    struct Flow {
        QTcpSocket *from;
        QTcpSocket *to;
        bool hasPlan = false;
        bool isStalled = false;
        bool isClosing = false; // closes the other end once all has passed
        qint64 passed = 0;
    };

    void pump(Flow &flow);
    qint64 allowance(const Flow &flow) const;
    void strike(Flow &flow);
    void endIfClosed();

    const Plan m_plan;
    const std::unique_ptr<QTcpSocket> m_host;
    const std::unique_ptr<QTcpSocket> m_device;
    Flow m_requests;
    Flow m_answers;
    QTimer m_pace;
    bool m_hasStruck = false;
    bool m_isOver = false;
};

} // namespace Velmar::Relay

#endif // VELMARRELAY_RELAYEDCONNECTION_H
