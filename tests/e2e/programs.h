#ifndef TESTS_E2E_PROGRAMS_H
#define TESTS_E2E_PROGRAMS_H

#include "support/programrun.h"

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

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

/*! velmar-upgrade as a process, with nothing to read on its standard input. */
class UpgradeProgram
{
public:
    explicit UpgradeProgram(const QStringList &arguments);

    /*! Waits until \a text has been written to standard output. */
    bool waitForOutput(const QByteArray &text);

    void interrupt(int signalNumber);

    ProgramRun finish();

    static ProgramRun run(const QStringList &arguments);

private:
    QProcess m_process;
};

#endif // TESTS_E2E_PROGRAMS_H
