#ifndef TESTS_SUPPORT_PROGRAMRUN_H
#define TESTS_SUPPORT_PROGRAMRUN_H

#include <QProcess>
#include <QString>
#include <QStringList>

/*! How a program ended, and what it wrote. */
struct ProgramRun {
    int exitCode = -1; //!< −1 if it crashed, did not start or did not end in time
    QString out;
    QString err;
};

/*! Waits for \a program, which was started, to end. */
inline ProgramRun finishProgram(QProcess &program, int timeoutMs = 50000)
{
    // A program that has ended already cannot be waited for.
    const bool isOver =
        program.state() == QProcess::NotRunning || program.waitForFinished(timeoutMs);
    if (!isOver)
        program.kill();
    ProgramRun run;
    if (isOver && program.exitStatus() == QProcess::NormalExit
        && program.error() != QProcess::FailedToStart)
        run.exitCode = program.exitCode();
    run.out = QString::fromUtf8(program.readAllStandardOutput());
    run.err = QString::fromUtf8(program.readAllStandardError());
    return run;
}

/*! Runs the program at \a path, without anything to read on its standard input. */
inline ProgramRun runProgram(const QString &path, const QStringList &arguments)
{
    QProcess program;
    program.setStandardInputFile(QProcess::nullDevice());
    program.start(path, arguments);
    return finishProgram(program);
}

#endif // TESTS_SUPPORT_PROGRAMRUN_H
