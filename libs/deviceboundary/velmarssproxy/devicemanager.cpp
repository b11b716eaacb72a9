#include <velmarssproxy/devicemanager.h>

#include "deviceprobe.h"

#include <QCoreApplication>

namespace Velmar::SSProxy {

DeviceManager::DeviceManager()
    : d(std::make_unique<Internal::DeviceProbe>(this))
{
    qRegisterMetaType<DiscoveredDevice>();
}

DeviceManager::~DeviceManager() = default;

DeviceManager *DeviceManager::instance()
{
    // Never destroyed: a worker thread may still stop the probe while the process ends.
    static DeviceManager *const manager = new DeviceManager;
    return manager;
}

void DeviceManager::setProbeTarget(const ProbeTarget &target)
{
    d->setDefaults(target);
}

void DeviceManager::stopDeviceUDPProbe()
{
    d->stop();
}

void DeviceManager::startDeviceProbe(const QString &address, const unsigned short &probePort,
                                     const unsigned short &localPort,
                                     const unsigned short &interval)
{
    if (d->start({ address, probePort, localPort, interval }))
        qAddPostRoutine(&DeviceManager::endProbe);
}

// Called as the application object goes: what Qt's threads and sockets need is still whole then.
void DeviceManager::endProbe()
{
    instance()->d->endThread();
}

} // namespace Velmar::SSProxy
