#ifndef TESTS_E2E_PROGRAMS_H
#define TESTS_E2E_PROGRAMS_H

#include "support/programrun.h"

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

/*! The contents of a plain file of the example package. */
QByteArray exampleFile(const QString &name);

/*! The example as a package by velmar-package, in a folder of its own: an upgrade writes its image
    into the package. */
class ExamplePackage
{
public:
    explicit ExamplePackage(const QStringList &arguments = {});

    QString path() const;
    QStringList files() const; //!< all that is in it now, relative and sorted

private:
    QTemporaryDir m_folder;
};

/*! The folder \a name of those that velmar-upgrade has in place of its user's: "home", "config",
    "cache", "state" and "runtime". They are this test program's alone, and go with it. */
QString hostFolder(const QString &name);

/*! The environment of velmar-upgrade: those folders, and no settings. */
QProcessEnvironment hostEnvironment();

/*! How velmar-upgrade ended with --json, and what it told. */
struct ToldRun {
    int exitCode = -1;
    QString err;
    QVector<QJsonObject> events;
    QByteArray faults; //!< of the events, by their schema and as one run

    QJsonObject verdict() const; //!< "data" of the last event; empty if that is no verdict
    QString code() const; //!< the verdict's word

    /*! Exit code, code word and faults in one text: "0 confirmed" of a run as it should be. */
    QString end() const;

    /*! "data" of the first event of that kind; empty if there is none, or it is no object. */
    QJsonObject answer(const QString &event) const;

    QStringList texts(const QString &event) const; //!< of the events of that kind
    QStringList phases() const; //!< that were entered, in order
};

/*! velmar-upgrade as a process, with nothing to read on its standard input. */
class UpgradeProgram
{
public:
    explicit UpgradeProgram(const QStringList &arguments,
                            const QProcessEnvironment &environment = hostEnvironment());

    /*! Waits until \a text has been written to standard output. */
    bool waitForOutput(const QByteArray &text);

    /*! Waits until an event has told that the phase \a word has begun; with --json. */
    bool waitForPhase(const QByteArray &word);

    void interrupt(int signalNumber);

    ProgramRun finish();
    ToldRun finishTold(); //!< of a program with --json

    static ProgramRun run(const QStringList &arguments,
                          const QProcessEnvironment &environment = hostEnvironment());

    /*! Runs it with --json besides. */
    static ToldRun told(const QStringList &arguments,
                        const QProcessEnvironment &environment = hostEnvironment());

private:
    QProcess m_process;
};

#endif // TESTS_E2E_PROGRAMS_H
