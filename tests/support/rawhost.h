#ifndef TESTS_SUPPORT_RAWHOST_H
#define TESTS_SUPPORT_RAWHOST_H

#include <velmarssproxy/framecodec.h>
#include <velmarssproxy/linkmessages.h>

#include <QHostAddress>
#include <QTcpSocket>

#include <optional>

/*! A host's end of the device link with nothing between the test and the wire. Blocks, for at most
    five seconds at a time. */
class RawHost {
public:
    using Answer = Velmar::SSProxy::AnswerMessage;

    bool connectTo(quint16 port, const QHostAddress &address = QHostAddress::LocalHost);

    /*! Sends a request and returns its answer; no value if the connection ended first. */
    std::optional<Answer> ask(const QString &operation, const QCborMap &arguments = {});

    /*! Sends a request and returns its label. */
    quint32 send(const QString &operation, const QCborMap &arguments = {});

    /*! The next answer; no value if the connection ended first. */
    std::optional<Answer> receive();

    /*! Sends \a bytes as they are. */
    void write(const QByteArray &bytes);

    /*! Announces and sends \a image in chunks of \a chunkSize bytes. Returns the first answer that
        refuses something, or the last; no value if the connection ended. */
    std::optional<Answer> sendImage(const QByteArray &image, int chunkSize = 65536);

    /*! True once the device has ended the connection. */
    bool waitForEnd();

private:
    QTcpSocket m_socket;
    Velmar::SSProxy::FrameReader m_frames;
    quint32 m_label = 0;
};

#endif // TESTS_SUPPORT_RAWHOST_H
