#ifndef VELMARSSPROXY_DEVICECHANNEL_H
#define VELMARSSPROXY_DEVICECHANNEL_H

#include "velmarssproxy_export.h"

#include <memory>

namespace Velmar::BizModel {
class DeviceLink;
}

namespace Velmar::SSProxy {

class DeviceRequestCommand;
class DeviceResponseCommand;

/*! The raw channel to a device: commands and register writes. Any thread may use it. */
class VELMARSSPROXY_EXPORT DeviceChannel
{
public:
    explicit DeviceChannel(std::shared_ptr<BizModel::DeviceLink> link);
    ~DeviceChannel();

    /*! Sends \a request, stores its label in it, and blocks until the answer or the time-out. Null
        if no valid answer came. Nothing is ever sent twice. */
    std::shared_ptr<DeviceResponseCommand>
    sendSyncRequest(std::shared_ptr<DeviceRequestCommand> request);

    /*! False if the channel is in no state to send. */
    bool isHardwareReadFinished();

    /*! Stops the keep-alive for at most \a milliseconds. */
    void pauseHeartbeat(const int &milliseconds);

    /*! Starts the keep-alive again. */
    void restartHeartbeat();

private:
    std::shared_ptr<BizModel::DeviceLink> m_link;
};

} // namespace Velmar::SSProxy

#endif // VELMARSSPROXY_DEVICECHANNEL_H
