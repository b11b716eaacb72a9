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

/*! What an upgrade has left of a device, as its state folder and its trace tell. */
struct DeviceAftermath {
    bool isBricked = false;
    bool isRunning = false; //!< its process
    int installations = 0; //!< that ever began
    int result = 0; //!< of the last one since the last restart: 1 to 3, 0 without one
    bool isInstalling = false; //!< or has still to complete or take back what was broken off
    int restarts = 0; //!< carried out
    QMap<QString, QByteArray> installedFiles; //!< destination path to contents
    QVector<QByteArray> registerFirmware; //!< contents of each file
    QStringList leftOver; //!< files in "images", "incoming" and "staging", sorted
    QStringList operations; //!< that it was asked for, as DeviceProgram::operations() has them
    bool hasToldEnd = false; //!< of an installation, over the device link
    bool wasRestartedEarly = false; //!< ordered to, before it had told the end of an installation
};

/*! The simulated device as a process, on a port of its own and with a state folder of its own. */
class DeviceProgram
{
public:
    /*! Begins to start it with \a arguments besides those for address, state and pace. */
    explicit DeviceProgram(const QStringList &arguments = {});
    ~DeviceProgram();

    /*! Waits until hosts can connect to it for the \a count th time; false at once if it tells that
        it never will any more. */
    bool waitForReady(int count = 1);

    /*! Waits until the process has ended by itself. */
    bool waitForEnd();

    void terminate(); //!< and waits for its end
    void kill(); //!< as a cut of the power, and waits for its end

    /*! Starts it again, after its end, on its port and with its state, with \a arguments in place of
        those of the constructor. */
    bool startAgain(const QStringList &arguments = {});

    QString address() const; //!< HOST:PORT of its link
    QString probeAddress() const; //!< HOST:PORT at which it answers probes

    /*! What it has installed: destination path to contents. */
    QMap<QString, QByteArray> installedFiles() const;

    /*! The firmware that it took register by register: contents of each file. */
    QVector<QByteArray> registerFirmware() const;

    /*! The version that the section \a code of the device itself runs; empty if none was ever
        installed in it. */
    QString runningVersion(int code) const;

    /*! The operations that it was asked for, in order; one row of the same counts once. A request
        over HTTP that was answered is its method and its path. */
    QStringList operations() const;

    /*! All that is left of it now. */
    DeviceAftermath aftermath() const;

private:
    Q_DISABLE_COPY_MOVE(DeviceProgram)

    void start(const QStringList &arguments);
    QString endpoint(const char *port) const;
    QJsonObject record() const;
    QVector<QJsonObject> trace() const;
    void noteCourse(DeviceAftermath &aftermath) const;

    QTemporaryDir m_folder;
    QProcess m_process;
    QVector<QJsonObject> m_events; // as far as they were waited for
    QByteArray m_unread; // the beginning of the next event
};

#endif // TESTS_E2E_DEVICEPROGRAM_H
