#ifndef VELMARHOST_DEVICERUN_H
#define VELMARHOST_DEVICERUN_H

#include "records/devicerecords.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>

namespace Velmar::Host {

class WorkerWatch;

/*!
    One upgrade of a device by whatever road, with an overall time limit, which the library lacks.

    An object runs once. All functions and signals are for one thread, which runs an event loop.
*/
class DeviceRun : public QObject
{
    Q_OBJECT

public:
    enum class Stage {
        Idle,
        Preparing, //!< the device may be asked, but is not changed
        Sending,
        Installing,
        Ended,
    };
    Q_ENUM(Stage)

    enum class Outcome {
        Succeeded,
        Failed,
        TimedOut, //!< the device may still be at work, and the worker, too
    };
    Q_ENUM(Outcome)

    ~DeviceRun() override;

    Stage stage() const;

    /*! Ends the run without a signal but that of the stage, as the time limit does. */
    void giveUp();

    /*! True if the worker did not end with the run; the process should end without waiting for its
        threads. */
    bool isWorkerLeftBehind() const;

    /*! Time for a worker to end that has nothing left to do; 5 s unless set. */
    void setWorkerEndLimit(std::chrono::milliseconds limit);

Q_SIGNALS:
    void signalStageChanged(Velmar::Host::DeviceRun::Stage stage);

    /*! A text for the status bar, but for those of signalSending(); never empty. */
    void signalStatusText(const QString &text);

    /*! \a percent of what the device gets has been sent. */
    void signalSending(int percent, const QString &text);

    /*! The device's report on the installation has changed. */
    void signalInstalling(const Velmar::ProtoModel::Auxiliary::s_UpgradePercent &progress);

    /*! The run has ended and its worker has nothing left to do, or the time limit has passed;
        emitted once. \a text is the last word for the user; for TimedOut it is empty. */
    void signalEnded(Velmar::Host::DeviceRun::Outcome outcome, const QString &text);

protected:
    DeviceRun();

    /*! Enters Stage::Preparing; \a timeLimit counts from now on. */
    void begin(std::chrono::milliseconds timeLimit);

    void enter(Stage stage);

    /*! Ends the run with \a result, unless its time limit has passed before. */
    void finish(bool result, const QString &text);

    /*! Ends the run with Outcome::TimedOut. */
    void slotTimeLimit();

    /*! Whether a worker may still use what this object has; a destructor keeps it then. */
    bool isWorkerAlive() const;

    /*! Makes the worker of a run that is given up end, on a road that has a way to. True once it
        has ended, in \a limit at most; false, at once, unless overridden. */
    virtual bool endWorker(std::chrono::milliseconds limit);

    const std::shared_ptr<WorkerWatch> m_worker;

private:
    Q_DISABLE_COPY_MOVE(DeviceRun)

    QTimer m_timeLimit;
    std::chrono::milliseconds m_workerEndLimit { 5000 };
    Stage m_stage = Stage::Idle;
    bool m_isWorkerLeftBehind = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICERUN_H
