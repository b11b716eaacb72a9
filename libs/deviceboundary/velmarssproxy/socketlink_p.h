#ifndef VELMARSSPROXY_SOCKETLINK_P_H
#define VELMARSSPROXY_SOCKETLINK_P_H

#include "labels.h"

#include <velmarssproxy/linkmessages.h>
#include <velmarssproxy/socketlink.h>

#include <QThread>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <unordered_map>

namespace Velmar::SSProxy::Internal {

class LinkSocket;

/*!
    What the callers of a link and its socket share: who waits for which answer, and which frames
    are still to be sent.

    Connections are numbered, so that what comes late from an old one cannot touch its successor.
    The socket's thread calls the functions of the second group, callers those of the first.
*/
class SocketLinkPrivate
{
public:
    SocketLinkPrivate(const QString &hostName, quint16 portNumber,
                      const SocketLinkOptions &linkOptions);
    ~SocketLinkPrivate();

    bool open(int timeout, QString &errorText);
    void close();
    bool isOpen() const;
    BizModel::LinkAnswer send(const BizModel::LinkRequest &request);
    void pauseHeartbeat(int milliseconds);
    void restartHeartbeat();

    void handleConnected(quint32 connection);

    /*! \a bytesHanded of the connection's bytes went to the network: a frame that ends behind them
        was never whole on its way. */
    void handleEnd(quint32 connection, const QString &reason, qint64 bytesHanded);

    void handleAnswer(quint32 connection, const AnswerMessage &answer);
    void handleReceivedBytes() { ++m_receivedCount; }

    /*! Takes the next frame to send, which goes to place \a position of the connection's bytes. */
    bool takeFrame(quint32 connection, qint64 position, QByteArray &frame);

    quint32 newLabel();
    quint64 lastSerial() const; //!< of the frames that were taken so far
    bool isWaitingSince(quint64 serial) const; //!< for an answer to a frame up to that one

    const QString host;
    const quint16 port;
    const SocketLinkOptions options;

private:
    using Clock = std::chrono::steady_clock;

    enum class Phase { Closed, Connecting, Open };

    // A caller that waits; on its stack.
    struct Call {
        quint64 serial = 0; // of its frame among all that were taken; 0: not taken yet
        qint64 frameEnd = 0; // place behind the frame's last byte in the bytes of the connection
        quint64 receivedBefore = 0; // m_receivedCount when the frame was taken
        bool isDone = false;
        BizModel::LinkAnswer answer;
        std::condition_variable done;
    };

    struct Frame {
        quint32 label;
        QByteArray bytes;
    };

    QString noConnectionText(const QString &reason) const;
    void startSocket();
    void setClosed();
    void finish(Call &call, BizModel::LinkAnswer::Outcome outcome, const QString &errorText);
    quint32 enter(Call &call);
    void post(quint32 label, const QByteArray &frame);
    void giveUp(Call &call, quint32 label);

    QThread m_thread;
    LinkSocket *m_socket =
        nullptr; // lives on m_thread and ends with it; null before the first open
    std::atomic<quint64> m_receivedCount { 0 }; // times that bytes came in, over all connections

    mutable std::mutex m_mutex; // guards what follows, and the creation of m_socket
    std::condition_variable m_phaseChanged;
    Phase m_phase = Phase::Closed;
    quint32 m_connection = 0; // number of the connection that is being made or used
    QString m_endReason; // of the last connection
    Labels m_labels;
    quint64 m_lastSerial = 0;
    std::unordered_map<quint32, Call *> m_calls; // by label
    std::deque<Frame> m_frames;
    bool m_isSocketAwake = false; // it will look for frames without being told
};

} // namespace Velmar::SSProxy::Internal

#endif // VELMARSSPROXY_SOCKETLINK_P_H
