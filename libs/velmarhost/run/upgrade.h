#ifndef VELMARHOST_UPGRADE_H
#define VELMARHOST_UPGRADE_H

#include "device/confirmationjudge.h"
#include "package/plan.h"
#include "records/devicerecords.h"
#include "run/deadlines.h"
#include "run/following.h"
#include "run/progressclamp.h"
#include "run/upgradewish.h"
#include "run/verdict.h"
#include "show/runevent.h"
#include "worker/upgradeworker.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace Velmar::Host {

class Confirmation;
class Preparation;

/*! What an upgrade goes out to. */
struct UpgradeSurroundings {
    WorkerLaunch worker; //!< its memory limit is that of the settings
    LinkFactory makeLink = makeSocketLink; //!< for the host's own questions to the device
    ConfirmationTimes confirmation;
    std::chrono::milliseconds stopAnswer { 10000 }; //!< for a worker to answer an order to stop
    DeadlineLimits deadlines {}; //!< where the settings have none
    Deadlines::Clock clock {}; //!< of the deadlines; empty: the system's
};

/*!
    One upgrade from the package folder to the verdict.

    Prepares (Preparation), has a worker process plan and upgrade (UpgradeWorker), follows a device
    that the worker lost (Following), and asks the device for its versions (Confirmation). It ends
    with a verdict in every case: the first end counts, and what comes behind it is logged.

    Events go to a sink, the verdict last. All functions and signals are for one thread, which runs
    an event loop. An object runs once.
*/
class Upgrade : public QObject
{
    Q_OBJECT

public:
    /*! \a events must outlive the object. */
    Upgrade(UpgradeWish wish, UpgradeSettings settings, RunEventSink &events,
            UpgradeSurroundings surroundings = {});

    /*! Of an upgrade that was left, what its worker still needs stays on disk. */
    ~Upgrade() override;

    void start();

    /*! Goes on behind signalPlanned(). */
    void agree();

    /*! Ends behind signalPlanned(): the device stays as it was. */
    void decline();

    /*! Ends behind signalPlanned() with \a verdict, for a plan that is of no use to the host. */
    void refuse(const Velmar::Host::Verdict &verdict);

    /*!
        Stops at the next safe point. A message tells that, or why the upgrade goes on, and how to
        leave it.
    */
    void interrupt();

    /*!
        Ends soon and leaves the device to itself. A worker that is writing registers goes on without
        the host; any other ends, and orders no restart. One that may be about to write is asked
        before, and left alone if it does not answer.
    */
    void leave();

    /*! True if a worker goes on without the host: the process should end without waiting for it or
        clearing up behind it. */
    bool isWorkerLeft() const;

Q_SIGNALS:
    /*! The package lies at \a path, which is private to this upgrade and goes with it. */
    void signalCopied(const QString &path);

    /*! This is what the device would get; agree() or decline() is awaited, but for Goal::Plan. */
    void signalPlanned(const Velmar::Host::Plan &plan);

    /*! The verdict has been told. Emitted once. */
    void signalEnded(const Velmar::Host::Verdict &verdict);

private:
    Q_DISABLE_COPY_MOVE(Upgrade)

    enum class State {
        Idle,
        Preparing,
        Planning, //!< a worker plans
        Waiting, //!< for agree()
        Working, //!< a worker upgrades or watches
        Following,
        Confirming,
        Ended,
    };

    bool hasRegisterWorker() const;
    bool isWritingRegisters() const;
    void askToStop();
    void leaveWorker(const QString &sentence);
    void noteBeginning();
    void tellGoingOn();
    void startWorker(WorkerMode mode);
    void connectWorker();
    void slotReady();
    void slotPlan(const Plan &plan);
    void slotSending(int percent, qint64 sentBytes, qint64 totalBytes);
    void slotInstalling(const ProtoModel::Auxiliary::s_UpgradePercent &progress);
    void slotExpired(VerdictCode code, const QString &text);
    void slotStopAnswered(bool isTaken);
    void slotStopUnanswered();
    bool takeWorkerEnd(const QString &text);
    void slotWorkerEnded(bool result, const QString &text);
    void slotWorkerRefused(VerdictCode code, const QString &text);
    void slotWorkerDied(const QString &why);
    void judgeFailure(VerdictCode code, const QString &text);
    void follow();
    void slotFound(Following::Found found);
    void confirm();
    void confirm(RestartNews restart);
    void slotConfirmed(const Verdict &verdict);
    void end(const Verdict &verdict);

    /*! True once the upgrade has ended: \a text, of a later end, is logged and counts for nothing. */
    bool isBehindEnd(const QString &text) const;

    void enter(Phase phase);
    void tellProgress(int percent, qint64 sentBytes, qint64 totalBytes,
                      std::vector<PartProgress> parts = {});
    void tellMessage(const QString &text);
    void tellWarning(const QString &text);
    void tellPlan();
    void tellLog(QtMsgType level, const QString &text);
    void tell(RunEvent event);
    QString watchCommand() const;
    QString partName(int slotId, int type) const;
    std::vector<SectionVersion> sectionVersions() const;

    const UpgradeWish m_wish;
    const UpgradeSettings m_settings;
    const UpgradeSurroundings m_surroundings;
    RunEventSink &m_events;
    const std::vector<Phase> m_phases; // of this upgrade, in order
    State m_state = State::Idle;
    std::optional<Phase> m_phase;
    QElapsedTimer m_elapsed;
    QElapsedTimer m_phaseElapsed;
    std::map<Phase, std::chrono::milliseconds> m_durations;
    ProgressClamp m_clamp; // of the present phase
    std::unique_ptr<Preparation> m_preparation;
    std::unique_ptr<UpgradeWorker> m_worker;
    std::unique_ptr<Deadlines> m_deadlines;
    std::unique_ptr<Following> m_following;
    std::unique_ptr<Confirmation> m_confirmation;
    std::optional<Plan> m_plan;
    std::optional<Verdict> m_failure; // the device's own word, told once it is back
    qint64 m_sentBytes = 0; // by all workers of this run
    int m_workers = 0; // started so far
    bool m_isOrdered = false; // by a former worker of this run: the device may be installing
    bool m_hasBegun = false; // an order of this run was seen to take effect
    bool m_isStopping = false; // the worker was asked to stop
    bool m_isStopRefused = false; // by the worker, which is at work
    QTimer m_stopAnswer; // for it, where an end waits for it
    std::optional<Verdict> m_expiry; // the end behind a stop, for a time that has passed
    bool m_isLeaving = false; // the worker is being killed, or asked to stop, for it
    bool m_isWorkerLeft = false;
    QStringList m_causes; // the last lines of the worker's log
};

} // namespace Velmar::Host

#endif // VELMARHOST_UPGRADE_H
