#ifndef VELMARSSPROXY_DEVICEMANAGER_H
#define VELMARSSPROXY_DEVICEMANAGER_H

#include "velmarssproxy_export.h"

#include <QMetaType>
#include <QObject>
#include <QString>

#include <memory>

namespace Velmar::SSProxy {

namespace Internal {
class DeviceProbe;
}

/*! A device that answered the probe. */
struct DiscoveredDevice {
    QString address; //!< numeric address that the answer came from
    quint16 port = 0; //!< TCP port of the device's link
    quint16 modelId = 0;
    QString serial;
    QString name;
};

/*! Where and how often devices are looked for. */
struct ProbeTarget {
    QString address = QStringLiteral("255.255.255.255"); //!< numeric; of one device or a broadcast
    quint16 probePort = 9721; //!< UDP port on which devices answer
    quint16 localPort = 0; //!< UDP port to ask from; 0: any
    quint16 interval = 2000; //!< milliseconds between two rounds
};

/*!
    Looks for devices over UDP and tells of each that answers.

    One object for the process. Any thread may use it, whether it has an event loop or not: the
    looking is done on a thread of the manager's own, which is there from the first start to the end
    of the application, and with it the socket.
*/
class VELMARSSPROXY_EXPORT DeviceManager : public QObject
{
    Q_OBJECT

public:
    static DeviceManager *instance();

    /*! Sets what empty and 0 mean in startDeviceProbe(). A probe that is on goes on as it was. */
    void setProbeTarget(const ProbeTarget &target);

    /*! Stops looking for devices. Nothing happens if nobody is looking. */
    void stopDeviceUDPProbe();

    /*!
        Starts looking for devices, or starts anew; the first round goes out at once.

        An empty \a address and zeros stand for the defaults of ProbeTarget, or what was set in
        their place with setProbeTarget(). \a probePort is the devices' probe port, \a localPort the
        port to ask from, \a interval the time between two rounds in milliseconds.

        If \a address is not numeric or the local port is not free, nobody is looking afterwards and
        the log says why.
    */
    void startDeviceProbe(const QString &address, const unsigned short &probePort,
                          const unsigned short &localPort, const unsigned short &interval);

Q_SIGNALS:
    /*! A device answered. Comes once for each answer, so each round again, from the manager's own
        thread; one may still come that was on its way when the probe was stopped. */
    void signalDeviceFound(const Velmar::SSProxy::DiscoveredDevice &device);

private:
    DeviceManager();
    ~DeviceManager() override; // nobody calls it: workers may use the object to the very end
    static void endProbe();

    const std::unique_ptr<Internal::DeviceProbe> d;
};

} // namespace Velmar::SSProxy

Q_DECLARE_METATYPE(Velmar::SSProxy::DiscoveredDevice)

#endif // VELMARSSPROXY_DEVICEMANAGER_H
