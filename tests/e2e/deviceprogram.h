#ifndef TESTS_E2E_DEVICEPROGRAM_H
#define TESTS_E2E_DEVICEPROGRAM_H

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

/*! The simulated device as a process, on a port of its own and with a state folder of its own. */
class DeviceProgram
{
public:
    /*! Begins to start it with \a arguments besides those for address, state and pace. */
    explicit DeviceProgram(const QStringList &arguments = {});
    ~DeviceProgram();

    /*! Waits until hosts can connect to it for the \a count th time. */
    bool waitForReady(int count = 1);

    /*! Waits until the process has ended by itself. */
    bool waitForEnd();

    /*! Starts it again, after its end, on its port and with its state, but without the arguments
        of the constructor. */
    bool startAgain();

    QString address() const; //!< HOST:PORT of its link
    QString probeAddress() const; //!< HOST:PORT at which it answers probes

    /*! What it has installed: destination path to contents. */
    QMap<QString, QByteArray> installedFiles() const;

    /*! The firmware that it took register by register: contents of each file. */
    QVector<QByteArray> registerFirmware() const;

    /*! The version that the section \a code of the device itself runs; empty if none was ever
        installed in it. */
    QString runningVersion(int code) const;

    /*! The operations that it was asked for, in order; one row of the same counts once. */
    QStringList operations() const;

private:
    Q_DISABLE_COPY_MOVE(DeviceProgram)

    void start(const QStringList &arguments);
    QString endpoint(const char *port) const;

    QTemporaryDir m_folder;
    QProcess m_process;
    QVector<QJsonObject> m_events; // as far as they were waited for
    QByteArray m_unread; // the beginning of the next event
};

#endif // TESTS_E2E_DEVICEPROGRAM_H
