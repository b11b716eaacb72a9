#ifndef VELMARSSPROXY_DEVICEMANAGER_H
#define VELMARSSPROXY_DEVICEMANAGER_H

#include "velmarssproxy_export.h"

#include <QObject>

namespace Velmar::SSProxy {

/*!
    Looks for devices over UDP and tells of each that answers.

    One object for the process. Starting and stopping is safe from any thread; the signal comes from
    the thread that made the object, which runs an event loop.
*/
class VELMARSSPROXY_EXPORT DeviceManager : public QObject
{
    Q_OBJECT

public:
    static DeviceManager *instance();

    /*! Stops looking for devices. */
    void stopDeviceUDPProbe();

    /*!
        Starts looking for devices, or starts anew.

        An empty \a address and zeros stand for the defaults that were set with setProbeTarget().
        \a probePort is the devices' probe port, \a localPort the port to ask from, \a interval the
        time between two rounds in milliseconds.
    */
    void startDeviceProbe(const QString &address, const unsigned short &probePort,
                          const unsigned short &localPort, const unsigned short &interval);

private:
    DeviceManager();
};

} // namespace Velmar::SSProxy

#endif // VELMARSSPROXY_DEVICEMANAGER_H
