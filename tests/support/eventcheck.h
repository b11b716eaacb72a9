#ifndef VELMAR_TESTS_EVENTCHECK_H
#define VELMAR_TESTS_EVENTCHECK_H

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

/*! What is wrong with the JSON \a lines of a run by the schema of the events, or an empty text; the
    run may be one without a verdict if it \a isUnfinished. */
inline QByteArray eventFaults(const QByteArray &lines, bool isUnfinished = false)
{
    QProcess check;
    check.start(QStringLiteral(VELMAR_TEST_DATA "/../docs/check-events"),
                isUnfinished ? QStringList(QStringLiteral("--unfinished")) : QStringList());
    check.write(lines);
    check.closeWriteChannel();
    if (!check.waitForFinished())
        return "check-events: " + check.errorString().toUtf8();
    const QByteArray faults = check.readAllStandardError();
    return check.exitCode() != 0 && faults.isEmpty() ? QByteArray("check-events failed") : faults;
}

#endif // VELMAR_TESTS_EVENTCHECK_H
