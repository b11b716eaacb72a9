#ifndef VELMARDEVICE_DEVICECALLS_H
#define VELMARDEVICE_DEVICECALLS_H

#include <QObject>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace Velmar::Simulator {

/*!
    The way from the threads of a server to the thread of the device, in which all its state lives.

    Made, stopped and destroyed in the device's thread; call() and wait() are for the others.
*/
class DeviceCalls : public QObject
{
    Q_OBJECT

public:
    DeviceCalls();
    ~DeviceCalls() override;

    /*! Carries \a work out in the device's thread and waits for its end. False if stop() came
        first; \a work is not carried out then. */
    bool call(const std::function<void()> &work);

    /*! Waits for \a milliseconds. False if stop() came first. */
    bool wait(int milliseconds);

    /*! Lets nobody wait any more, now and from now on. */
    void stop();

private:
    struct Ticket {
        std::function<void()> work;
        bool isOver = false;
    };

    void carryOutNext();

    std::mutex m_mutex; // guards all below
    std::condition_variable m_changed;
    std::deque<std::shared_ptr<Ticket>> m_waiting;
    bool m_isStopped = false;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DEVICECALLS_H
