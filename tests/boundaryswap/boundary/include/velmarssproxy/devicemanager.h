#ifndef TINY_VELMARSSPROXY_DEVICEMANAGER_H
#define TINY_VELMARSSPROXY_DEVICEMANAGER_H

#include <QString>

namespace Velmar::SSProxy {

class DeviceManager
{
public:
    static DeviceManager *instance();

    void stopDeviceUDPProbe();
    void startDeviceProbe(const QString &address, const unsigned short &probePort,
                          const unsigned short &localPort, const unsigned short &interval);
};

} // namespace Velmar::SSProxy

#endif // TINY_VELMARSSPROXY_DEVICEMANAGER_H
