#ifndef TESTS_SUPPORT_DEVICEPROCESS_H
#define TESTS_SUPPORT_DEVICEPROCESS_H

#include <QJsonObject>
#include <QProcess>
#include <QStringList>

/*! A simulated device in a process of its own, killed with the object. */
class DeviceProcess
{
public:
    ~DeviceProcess();

    /*! Starts \a program with \a options, on any free ports. False if it did not get ready. */
    bool start(const QString &program, const QStringList &options);

    /*! Waits for the next event that the device prints; empty if none comes in twenty seconds. */
    QJsonObject nextEvent();

    quint16 port() const { return m_port; }
    quint16 probePort() const { return m_probePort; }
    const QJsonObject &ready() const { return m_ready; } //!< the event that start() waited for
    QProcess &process() { return m_process; }

    void kill(); //!< as kill -9

    /*! True once the process has ended, by whatever. */
    bool waitForEnd();

private:
    QProcess m_process;
    QJsonObject m_ready;
    quint16 m_port = 0;
    quint16 m_probePort = 0;
};

#endif // TESTS_SUPPORT_DEVICEPROCESS_H
