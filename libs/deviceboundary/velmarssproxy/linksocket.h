#ifndef VELMARSSPROXY_LINKSOCKET_H
#define VELMARSSPROXY_LINKSOCKET_H

#include <velmarssproxy/framecodec.h>

#include <QElapsedTimer>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>

namespace Velmar::SSProxy::Internal {

class SocketLinkPrivate;

/*! The socket of a link with its heartbeat. Lives on the link's thread; all functions are called
    there. */
class LinkSocket : public QObject
{
    Q_OBJECT

public:
    explicit LinkSocket(SocketLinkPrivate *link);
    ~LinkSocket() override;

    void connectToDevice(quint32 connection);
    void disconnectFromDevice();
    void sendFrames();
    void checkLife(quint32 connection);
    void pauseHeartbeat(int milliseconds);
    void resumeHeartbeat();

private:
    void handleConnected();
    void handleBytes();
    void handleWrittenBytes(qint64 count);
    void handleHeartbeat();
    void handleSilence();
    void takeFrames();
    void write(const QByteArray &frame);
    void sendPing();
    void endConnection(const QString &reason);
    void breakOff(const QString &reason);

    SocketLinkPrivate *const m_link;
    QTcpSocket m_socket;
    quint32 m_connection = 0; // 0: the socket belongs to nobody
    FrameReader m_reader;
    qint64 m_bytesTaken = 0; // into the socket, of this connection
    qint64 m_bytesHanded = 0; // of them, by the socket to the system
    QElapsedTimer m_sinceFrame; // since the last frame was sent
    QTimer m_heartbeat;
    QTimer m_pause; // runs while the heartbeat is paused
    QTimer m_signOfLife; // runs from a ping to the next byte that comes in
    quint64 m_pingSerial = 0; // of the last frame before that ping
};

} // namespace Velmar::SSProxy::Internal

#endif // VELMARSSPROXY_LINKSOCKET_H
