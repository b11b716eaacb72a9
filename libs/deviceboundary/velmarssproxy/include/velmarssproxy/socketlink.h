#ifndef VELMARSSPROXY_SOCKETLINK_H
#define VELMARSSPROXY_SOCKETLINK_H

#include "velmarssproxy_export.h"
#include <velmarbizmodel/devicelink.h>
#include <velmarssproxy/framecodec.h>

#include <QString>

#include <memory>

namespace Velmar::SSProxy {

namespace Internal {
class SocketLinkPrivate;
}

/*! How long a SocketLink waits, in milliseconds. */
struct SocketLinkOptions {
    int requestTimeout = 5000; //!< for the answer to a request that names no time of its own
    int heartbeatInterval = 5000; //!< after so long without a request the link sends a ping
    int pingTimeout = 5000; //!< for a sign of life behind a ping
};

/*!
    A link to a device over TCP.

    The socket lives on a thread of the link's own, which starts with the first open(); callers only
    wait. Each caller gets the answer with the label of its request, whatever the order of the
    answers; late and doubled ones are dropped. The end of the connection wakes all callers at once.

    A connection on which nothing at all has come back for some time is dead, whatever the network
    says: a ping goes out after heartbeatInterval without a request, and as soon as a request has
    timed out in silence. If pingTimeout passes without a single byte, the link closes, unless an
    earlier request is still waiting, over which the device may be busy. A link that has closed is
    opened again by its user alone.

    A pause of the heartbeat ends with the connection. No proxy is used. No thread may be inside of
    a call when the object is destroyed.
*/
class VELMARSSPROXY_EXPORT SocketLink final : public BizModel::DeviceLink
{
public:
    /*! \a host is a numeric address or a name. Does not connect yet. */
    explicit SocketLink(const QString &host, quint16 port = DefaultDevicePort,
                        const SocketLinkOptions &options = {});
    ~SocketLink() override;

    QString host() const;
    quint16 port() const;

    bool open(int timeout, QString &errorText) override;
    void close() override;
    bool isOpen() const override;
    BizModel::LinkAnswer send(const BizModel::LinkRequest &request) override;
    void pauseHeartbeat(int milliseconds) override;
    void restartHeartbeat() override;

private:
    const std::unique_ptr<Internal::SocketLinkPrivate> d;
};

} // namespace Velmar::SSProxy

#endif // VELMARSSPROXY_SOCKETLINK_H
