#ifndef VELMARSSPROXY_DEVICEPROBE_H
#define VELMARSSPROXY_DEVICEPROBE_H

#include <velmarssproxy/devicemanager.h>

#include <QHostAddress>
#include <QMutex>
#include <QThread>
#include <QTimer>
#include <QUdpSocket>

#include <memory>

namespace Velmar::SSProxy::Internal {

/*! Asks for devices, round for round, and reads their answers. Lives on the probe's thread. */
class ProbeRounds : public QObject
{
    Q_OBJECT

public:
    explicit ProbeRounds(DeviceManager *owner);

    void start(const ProbeTarget &target);
    void stop();

private:
    void ask();
    void readAnswers();
    void readAnswer(const QByteArray &bytes, const QHostAddress &sender);

    DeviceManager *const q;
    std::unique_ptr<QUdpSocket> m_socket; // null while nobody is looking
    QTimer m_timer;
    QHostAddress m_address;
    quint16 m_port = 0;
};

/*! The probe's thread and what any thread may ask of it. */
class DeviceProbe
{
public:
    explicit DeviceProbe(DeviceManager *owner);
    ~DeviceProbe();

    void setDefaults(const ProbeTarget &target);

    /*! Empty and 0 in \a wanted stand for the defaults. True if the thread had to be started. */
    bool start(const ProbeTarget &wanted);

    void stop();

    /*! Ends the thread, and with it the looking. The next start begins a new one. */
    void endThread();

private:
    DeviceManager *const q;
    QMutex m_mutex; // guards what follows
    ProbeTarget m_defaults;
    std::unique_ptr<QThread> m_thread; // null while there is none
    ProbeRounds *m_rounds = nullptr; // lives on m_thread and ends with it
};

} // namespace Velmar::SSProxy::Internal

#endif // VELMARSSPROXY_DEVICEPROBE_H
