#ifndef VELMARHOST_BACKGROUNDTASK_H
#define VELMARHOST_BACKGROUNDTASK_H

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <thread>

namespace Velmar::Host {

/*!
    A blocking piece of work on a thread of its own, whose end comes to the event loop.

    All functions and the signal are for one thread, which runs an event loop. An object works once.
*/
class BackgroundTask : public QObject
{
    Q_OBJECT

public:
    /*! \a work looks at its argument from time to time and returns soon once that is true. */
    explicit BackgroundTask(std::function<void(const std::atomic<bool> &isCancelled)> work);

    /*! Cancels the work and waits for it. No signal comes any more. */
    ~BackgroundTask() override;

    void start();
    void cancel();

    /*! Behind signalEnded(): why the work was not done, a sentence without its full stop; empty if it
        was. The system may have no room for a thread. */
    const QString &fault() const;

Q_SIGNALS:
    /*! The work has returned, and what it wrote can be read now; or it could not begin. */
    void signalEnded();

private:
    Q_DISABLE_COPY_MOVE(BackgroundTask)

    const std::function<void(const std::atomic<bool> &)> m_work;
    std::atomic<bool> m_isCancelled { false };
    QString m_fault;
    std::thread m_thread;
};

} // namespace Velmar::Host

#endif // VELMARHOST_BACKGROUNDTASK_H
