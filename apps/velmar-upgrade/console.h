#ifndef VELMARUPGRADE_CONSOLE_H
#define VELMARUPGRADE_CONSOLE_H

#include "process/hostexitcode.h"

#include <QString>
#include <QStringList>

// What the program says. Texts from devices and packages are made printable by the caller.

/*! Writes \a text to standard output as it is, at once. */
void print(const QString &text);

/*! Writes \a text to standard output as a line. */
void printLine(const QString &text = QString());

/*! Writes \a text to standard error as it is, at once. */
void printError(const QString &text);

/*! Writes \a sentence to standard error as a warning. */
void printWarning(const QString &sentence);

/*! Has complain() tell the end of the program on standard output, too, as the one line of a run that
    never began: what a program that asked for JSON waits for. */
void complainAsJson();

/*! Writes \a sentence to standard error behind the program's name, and returns \a code. */
Velmar::Host::HostExitCode complain(Velmar::Host::HostExitCode code, const QString &sentence);

/*! Writes the log \a lines to standard error as the cause of a failure. */
void printCause(const QStringList &lines);

/*! Writes to standard error what to do about a failure. */
void printAdvice(const QString &advice);

/*! Writes a line of the log to standard error. Any thread. */
void printLogLine(const QString &line);

/*! Asks \a question on the terminal; true if the answer begins with "y". */
bool isConfirmed(const QString &question);

/*! True if somebody can answer a question. */
bool isInteractive();

/*!
    Ends the process at once, with what was written so far.

    For runs that were given up: their worker threads still use what a normal end would destroy.
*/
[[noreturn]] void leaveProcess(Velmar::Host::HostExitCode code);

#endif // VELMARUPGRADE_CONSOLE_H
