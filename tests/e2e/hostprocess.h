#ifndef TESTS_E2E_HOSTPROCESS_H
#define TESTS_E2E_HOSTPROCESS_H

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

#include <sys/types.h>

/*! Folders that hosts have for themselves, in place of those of whoever runs the test. */
class HostFolders
{
public:
    HostFolders();

    QProcessEnvironment environment() const;
    QString cache() const; //!< for private copies and locks

    /*! Private copies and temporary files that are there now, relative and sorted; a locked lock is
        seen by the next host alone. */
    QStringList left() const;

private:
    QTemporaryDir m_folder;
};

/*! velmar-upgrade with --json as a process. For one thread, which needs no event loop. */
class HostProcess
{
public:
    /*! Starts it; \a before are the words of a program that becomes it. */
    HostProcess(const QStringList &arguments, const HostFolders &folders,
                const QStringList &before = {});

    pid_t id() const;
    pid_t workerId() const; //!< 0 without one

    /*! Waits until the host has told \a percent or more of the phase \a word; 0: its beginning. False
        if it ends before. */
    bool waitForPhase(const QString &word, int percent);

    /*! Waits for its end, and kills it behind \a patienceMs. */
    void finish(int patienceMs = 100000);

    int exitCode() const; //!< -1: killed
    QString verdict() const; //!< code word of the last line; empty if that is no verdict
    QString output() const; //!< for people: all texts, and standard error

private:
    void readEvents();

    QProcess m_process;
    QByteArray m_unread;
    QVector<QJsonObject> m_events;
    QByteArray m_errors; // standard error
    int m_exitCode = -1;
};

/*! Waits until the process \a id, which need not be a child, has ended. */
bool waitForEndOf(pid_t id);

#endif // TESTS_E2E_HOSTPROCESS_H
