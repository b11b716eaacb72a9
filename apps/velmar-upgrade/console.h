#ifndef VELMARUPGRADE_CONSOLE_H
#define VELMARUPGRADE_CONSOLE_H

#include "process/hostexitcode.h"
#include "show/runevent.h"

#include <QString>

// What the program says. Sentences and lines of the log are made printable in here, and what is
// printed as it is by the caller.

/*! Writes \a text to standard output as it is, at once. */
void print(const QString &text);

/*! Writes \a text to standard output as a line. */
void printLine(const QString &text = QString());

/*! Writes \a text to standard error as it is, at once. */
void printError(const QString &text);

/*! Writes \a sentence to standard error as a warning. */
void printWarning(const QString &sentence);

/*! The id of what this process does. */
QString runId();

/*! Has tellJson() write from now on: a program has asked for JSON. */
void writeJson();

/*! Writes \a event to standard output as a line of the run runId(), if JSON is asked for. Nothing is
    written behind a verdict. */
void tellJson(const Velmar::Host::RunEvent &event);

/*! Ends what the program does with \a sentence: as a failure on standard error and as the verdict for
    a program. Returns the exit code of \a code. */
Velmar::Host::HostExitCode complain(Velmar::Host::VerdictCode code, const QString &sentence);

/*! Writes the sentence of \a summary to standard error behind the program's name, and its causes. */
void printFailure(const Velmar::Host::RunSummary &summary);

/*! Writes a line of the log to standard error. */
void printLogLine(const QString &line);

/*! True if somebody can answer a question. */
bool isInteractive();

/*!
    Ends the process at once, with what was written so far.

    For runs that were given up: their worker threads still use what a normal end would destroy.
*/
[[noreturn]] void leaveProcess(Velmar::Host::HostExitCode code);

#endif // VELMARUPGRADE_CONSOLE_H
