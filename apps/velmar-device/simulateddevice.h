#ifndef VELMARDEVICE_SIMULATEDDEVICE_H
#define VELMARDEVICE_SIMULATEDDEVICE_H

#include "deviceserver.h"
#include "faults.h"
#include "filereceiver.h"
#include "firmwarestore.h"
#include "fitting.h"
#include "generation.h"
#include "installer.h"
#include "mishaps.h"
#include "operationtable.h"
#include "probeanswerer.h"
#include "registerbank.h"
#include "trace.h"

#include <QHostAddress>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

namespace Velmar::Simulator {

class DeviceState;
class HttpService;
class HttpUpgrade;
class StateFolder;

/*! How a device behaves, beside what it is. */
struct DeviceSettings {
    QHostAddress address { QHostAddress::LocalHost };
    quint16 port = SSProxy::DefaultDevicePort; //!< 0: any
    std::optional<quint16> probePort =
        SSProxy::DefaultProbePort; //!< none: answers no probes; 0: any
    QString statePath; //!< folder for all that outlives the device
    QString tracePath; //!< empty: no trace
    QString serial; //!< empty: the one that the state has
    QString name; //!< empty: the name of the model
    QString fileVersion; //!< empty: the one that the state has
    int installMs = 10000; //!< that an installation takes at least
    int restartMs = 5000; //!< that the device is away for a restart
    Generation generation = Generation::None; //!< of the HTTP service
    int heartbeatMs = 15000; //!< that a host may be silent
    Faults faults;
};

/*! A whole device: switched on with start(), switched off by the end of the object. */
class SimulatedDevice : public QObject
{
    Q_OBJECT

public:
    /*! Characters of a serial number or name, so that the answer to a probe fits its datagram. */
    static constexpr int MaxTextLength = 200;

    /*! Version that a new device's section "fileVersion" has, which is not that of its other
        sections: so an upgrade from such a device's own answers is seen. */
    static constexpr char FirstFileVersion[] = "1.1.0.0";

    SimulatedDevice(const Fitting &fitting, const DeviceSettings &settings);
    ~SimulatedDevice() override;

    /*! Takes the state folder, brings it in order, and answers hosts from then on, unless it is
        bricked. False, with \a errorText set, if that cannot be done. */
    bool start(QString &errorText);

    quint16 port() const { return m_port; } //!< once started
    std::optional<quint16> probePort() const { return m_probePort; } //!< none: answers no probes
    Generation generation() const { return m_settings.generation; }
    const Fitting &fitting() const { return m_fitting; }
    const DeviceState &state() const { return *m_state; } //!< once started

Q_SIGNALS:
    void ready(); //!< hosts can connect, for the first time or again
    void away(); //!< restarts, or goes for good
    void bricked(); //!< will never answer again

private:
    bool applySettings(QString &errorText);
    bool listen(QString &errorText);
    bool listenForHttp(QString &errorText);
    void stopListening();
    void restartAsOrdered();
    void restart();
    void goAway();
    bool brickIfCut();
    void restartWithNewFirmware();
    void comeBack();
    QCborMap probeAnswer() const;

    const Fitting m_fitting;
    const DeviceSettings m_settings;
    const QString m_name;
    Trace m_trace;
    std::unique_ptr<StateFolder> m_folder;
    std::unique_ptr<DeviceState> m_state;
    Mishaps m_mishaps;
    std::unique_ptr<FileReceiver> m_receiver;
    std::unique_ptr<Installer> m_installer;
    std::unique_ptr<FirmwareStore> m_firmware;
    std::unique_ptr<RegisterBank> m_bank;
    std::unique_ptr<HttpUpgrade> m_httpUpgrade; // null without the HTTP service
    std::unique_ptr<HttpService> m_http; // null while it does not listen
    OperationTable m_operations;
    std::unique_ptr<DeviceServer> m_server;
    ProbeAnswerer m_probe;
    quint16 m_port = 0;
    std::optional<quint16> m_probePort;
    bool m_isAway = false;
    QTimer m_return;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_SIMULATEDDEVICE_H
