#ifndef TESTS_SUPPORT_RAWHOST_H
#define TESTS_SUPPORT_RAWHOST_H

#include <velmarssproxy/framecodec.h>
#include <velmarssproxy/linkmessages.h>

#include <QHostAddress>
#include <QTcpSocket>
#include <QVector>

#include <optional>

/*! A host's end of the device link with nothing between the test and the wire. Blocks, for at most
    twenty seconds at a time. */
class RawHost
{
public:
    using Answer = Velmar::SSProxy::AnswerMessage;

    /*! One card of an order to install. */
    struct OrderedPart {
        int type = 1;
        int slotId = 0;
        int boardId = 0;
        QVector<int> codes;
    };

    bool connectTo(quint16 port, const QHostAddress &address = QHostAddress::LocalHost);

    /*! Sends a request and returns its answer; no value if the connection ended first. */
    std::optional<Answer> ask(const QString &operation, const QCborMap &arguments = {});

    /*! Sends a request and returns its label. */
    quint32 send(const QString &operation, const QCborMap &arguments = {});

    /*! The next answer; no value if the connection ended first. */
    std::optional<Answer> receive();

    /*! Sends \a bytes as they are. */
    void write(const QByteArray &bytes);

    /*! Announces \a image as file 0 and opens its transfer. */
    std::optional<Answer> announceAndOpen(const QByteArray &image);

    /*! Sends \a length bytes of \a image from \a offset on. */
    std::optional<Answer> sendChunk(const QByteArray &image, int offset, int length);

    /*! Does all of this, with chunks of \a chunkSize bytes, and closes the transfer. Returns the
        first answer that refuses something, or the last; no value if the connection ended. */
    std::optional<Answer> sendImage(const QByteArray &image, int chunkSize = 65536);

    /*! Arguments of upgrade.configure. */
    static QCborMap configuration(const QVector<OrderedPart> &parts, bool deletesImage = true);

    /*! Asks for the progress until its result is not 1 any more, or for twenty seconds. */
    std::optional<Answer> waitForInstallation();

    /*! True while the connection is there and nothing has come that was not received; what has come
        is dropped. */
    bool hearsNothing();

    /*! True once the device has ended the connection. */
    bool waitForEnd();

private:
    QTcpSocket m_socket;
    Velmar::SSProxy::FrameReader m_frames;
    quint32 m_label = 0;
};

#endif // TESTS_SUPPORT_RAWHOST_H
