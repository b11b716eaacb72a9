#ifndef TINY_VELMARSSPROXY_DEVICECHANNEL_H
#define TINY_VELMARSSPROXY_DEVICECHANNEL_H

#include <memory>

namespace Velmar::SSProxy {

class DeviceRequestCommand;
class DeviceResponseCommand;

class DeviceChannel
{
public:
    std::shared_ptr<DeviceResponseCommand>
    sendSyncRequest(std::shared_ptr<DeviceRequestCommand> request);
    bool isHardwareReadFinished();
    void pauseHeartbeat(const int &milliseconds);
    void restartHeartbeat();
};

} // namespace Velmar::SSProxy

#endif // TINY_VELMARSSPROXY_DEVICECHANNEL_H
