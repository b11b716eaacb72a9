#ifndef TESTS_SUPPORT_POLLTIMERFINDER_H
#define TESTS_SUPPORT_POLLTIMERFINDER_H

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QTimer>

/*! Catches the poll timer of the HTTP client when it fires: it has no parent to be found by. */
class PollTimerFinder : public QObject
{
public:
    PollTimerFinder() { QCoreApplication::instance()->installEventFilter(this); }

    QTimer *found = nullptr;

    bool eventFilter(QObject *receiver, QEvent *event) override
    {
        auto *const timer = qobject_cast<QTimer *>(receiver);
        if (event->type() == QEvent::Timer && timer && timer->isSingleShot()
            && timer->interval() == 1000)
            found = timer;
        return false;
    }
};

#endif // TESTS_SUPPORT_POLLTIMERFINDER_H
