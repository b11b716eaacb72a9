#ifndef TESTS_SUPPORT_WAITUNTIL_H
#define TESTS_SUPPORT_WAITUNTIL_H

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

/*!
    Runs the event loop of the calling thread until \a condition is true; false after five seconds.

    As QTRY_VERIFY, but it looks every millisecond, for tests that go back and forth with other
    threads many times.
*/
template<typename Condition> bool waitUntil(Condition condition)
{
    const QDeadlineTimer deadline(5000);
    QTimer tick;
    tick.start(1);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

#endif // TESTS_SUPPORT_WAITUNTIL_H
