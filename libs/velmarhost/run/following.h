#ifndef VELMARHOST_FOLLOWING_H
#define VELMARHOST_FOLLOWING_H

#include "device/closablelinks.h"
#include "device/deviceaddress.h"
#include "run/backgroundtask.h"

#include <QDeadlineTimer>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>

namespace Velmar::Host {

/*!
    Looks for a device that was lost while it may have been installing.

    All functions and signals are for one thread, which runs an event loop. An object works once; it
    stops when it is destroyed, which waits for a question that is under way.
*/
class Following : public QObject
{
    Q_OBJECT

public:
    enum class Found {
        AtWork, //!< it installs
        AtEnd, //!< it shows the end of an installation, and waits for its restart
        Idle, //!< it knows of no installation: it has restarted
        Nothing, //!< it did not answer in time, or could not be asked
    };

    explicit Following(DeviceAddress device, LinkFactory makeLink = makeSocketLink);
    ~Following() override;

    void start(std::chrono::milliseconds limit);

    /*! Time between two questions; 500 ms unless set. */
    void setInterval(std::chrono::milliseconds interval);

Q_SIGNALS:
    /*! Emitted once. */
    void signalFound(Velmar::Host::Following::Found found);

private:
    Q_DISABLE_COPY_MOVE(Following)

    void ask();
    void slotAnswered();

    const DeviceAddress m_device;
    ClosableLinks m_links;
    QDeadlineTimer m_deadline;
    QTimer m_pause;
    Found m_answer = Found::Nothing; // written by the task, read behind its end
    std::unique_ptr<BackgroundTask> m_task;
};

} // namespace Velmar::Host

#endif // VELMARHOST_FOLLOWING_H
