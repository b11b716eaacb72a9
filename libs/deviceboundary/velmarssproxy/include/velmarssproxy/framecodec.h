#ifndef VELMARSSPROXY_FRAMECODEC_H
#define VELMARSSPROXY_FRAMECODEC_H

#include "velmarssproxy_export.h"

#include <QByteArray>
#include <QCborMap>
#include <QString>

/*!
    Frames and datagrams of the device link, for both of its ends.

    A message is one CBOR map with text keys at every level, none of them twice in a map, definite
    lengths and no tags. What
    comes in is checked byte by byte before anything is made of it, so that a hostile message costs
    no more than its own size and MaxMessageItems values.
*/
namespace Velmar::SSProxy {

constexpr quint16 DefaultDevicePort = 9720; //!< TCP port of a device's link
constexpr quint16 DefaultProbePort = 9721; //!< UDP port on which devices answer the probe

constexpr int MaxMessageSize = 1048576; //!< bytes of one message, without the length before it
constexpr int MaxMessageDepth = 16; //!< maps and arrays in one another, the message itself counted
constexpr int MaxMessageItems = 65536; //!< keys and values in all of a message, itself counted

/*! Reads the one message that \a bytes holds. False, with \a errorText set and \a message left as
    it was, if they hold anything else. */
VELMARSSPROXY_EXPORT bool decodeMessage(const QByteArray &bytes, QCborMap &message,
                                        QString &errorText);

/*! \a message as a frame, length and body; null if it is none that decodeMessage() takes: too
    long, nested too deep, with too many items, with a key that is no text or with a tag. */
VELMARSSPROXY_EXPORT QByteArray encodeFrame(const QCborMap &message);

/*! Cuts the bytes of one connection into messages. */
class VELMARSSPROXY_EXPORT FrameReader
{
public:
    enum class Status {
        Message, //!< a message was taken out
        Incomplete, //!< more bytes are needed first
        Broken, //!< the connection is out of step for good; errorText() says why
    };

    void append(const QByteArray &bytes);

    /*! Takes the next message out. Call it until the answer is another than Status::Message. */
    Status next(QCborMap &message);

    QString errorText() const; //!< why the connection is broken; empty otherwise

private:
    QByteArray m_bytes;
    int m_offset = 0; // bytes of m_bytes that are done with
    QString m_errorText;
};

} // namespace Velmar::SSProxy

#endif // VELMARSSPROXY_FRAMECODEC_H
