#ifndef VELMARHOST_WORKERWATCH_H
#define VELMARHOST_WORKERWATCH_H

#include <QObject>
#include <QThread>

#include <atomic>
#include <chrono>
#include <memory>

namespace Velmar::Host {

/*!
    Knows the worker thread of one run of the upgrade library.

    The library's last signal comes while its worker is still ending, and whoever lets go of the
    run's data then would take it from under the worker.
*/
class WorkerWatch
{
public:
    /*! Called on the worker, from a slot that is connected directly. */
    void noteWorker() { m_worker = QThread::currentThread(); }

    /*! Waits at most \a limit for the noted worker to have ended. True also if none was noted. */
    bool waitForEnd(std::chrono::milliseconds limit) const
    {
        QThread *worker = m_worker;
        return !worker || worker->wait(static_cast<unsigned long>(limit.count()));
    }

private:
    std::atomic<QThread *> m_worker { nullptr }; // the library never deletes its worker threads
};

/*! Keeps \a object, from which a worker that was given up still emits, until the process ends. */
void keepForWorker(std::unique_ptr<QObject> object);

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERWATCH_H
