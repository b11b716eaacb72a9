#ifndef VELMARDEVICE_CONNECTION_H
#define VELMARDEVICE_CONNECTION_H

#include "operationtable.h"

#include <velmarssproxy/framecodec.h>

#include <QDeadlineTimer>
#include <QObject>
#include <QTimer>

#include <memory>

class QTcpSocket;

namespace Velmar::Simulator {

class Trace;

/*! How connections are treated. */
struct LinkPolicy {
    int silenceLimitMs = 15000; //!< a host that is silent for longer is dropped
    qint64 bytesPerSecond = 0; //!< of requests and answers together; 0: as fast as it goes
};

/*!
    One host's connection: takes its requests one after the other and answers them in that order.

    A host that sends faster than it reads is not read from until it has caught up.
*/
class Connection : public QObject, private LinkSession
{
    Q_OBJECT

public:
    /*! Takes \a socket over; \a operations and \a trace have to outlive this object. */
    Connection(std::unique_ptr<QTcpSocket> socket, const OperationTable &operations, Trace &trace,
               const LinkPolicy &policy);
    ~Connection() override;

    /*! Ends the connection. */
    void end();

Q_SIGNALS:
    /*! The connection has ended, by whomever. Emitted once. */
    void ended();

private:
    void pauseSilenceLimit(qint64 milliseconds) override;
    void resumeSilenceLimit() override;
    void endConnection() override;

    void work();
    bool readMore();
    void carryOut(const QCborMap &message);
    void send(const QString &operation, const SSProxy::AnswerMessage &answer);
    void sendDelayed(int milliseconds, const QString &operation,
                     const SSProxy::AnswerMessage &answer);
    void followUp();
    void holdBack(qint64 bytes);
    void watchSilence();
    void endSilence();
    void drop(const QString &reason);

    const std::unique_ptr<QTcpSocket> m_socket;
    const OperationTable &m_operations;
    Trace &m_trace;
    const LinkPolicy m_policy;
    const QString m_peer;
    SSProxy::FrameReader m_frames;
    std::function<void()> m_afterwards; // due when the answer has left
    QTimer m_silence;
    QDeadlineTimer m_pause { 0 }; // the host may be silent until then
    QTimer m_pace; // active while the slow link is busy
    QTimer m_delay; // active while an answer is held back
    bool m_isOver = false;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_CONNECTION_H
