#include "run/upgrade.h"

#include "device/confirmation.h"
#include "device/devicelock.h"
#include "device/versioncomparison.h"
#include "package/packagecopy.h"
#include "run/httpguard.h"
#include "run/preparation.h"

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

using ProtoModel::Auxiliary::s_UpgradePercent;

// Behind the first, one may be lost to a fault and one more to bad luck; a device on which a third
// fails as well is better looked at by a person.
constexpr int WorkerLimit = 4;

// No less than a device has to answer an upload: it checks the file before it does.
constexpr std::chrono::milliseconds HttpSilenceLimit = HttpLimits().uploadAtLeast;
constexpr std::chrono::seconds HttpEndLimit { 30 }; // for the worker to tell a silence

constexpr int CauseCount = 5;
constexpr int InstallationDone = 2; // result of an upgrade.progress
constexpr int InstallationFailed = 3;

std::vector<Phase> phasesOf(const UpgradeWish &wish)
{
    switch (wish.goal) {
    case Goal::Plan:
        return { Phase::Copying, Phase::Checking, Phase::Planning };
    case Goal::Watch:
        return { Phase::Planning, Phase::Installing, Phase::Restarting, Phase::Confirming };
    case Goal::Upgrade:
        break;
    }
    std::vector<Phase> phases { Phase::Copying, Phase::Checking, Phase::Planning };
    const bool hasImage =
        wish.road == Road::Native || (wish.road == Road::Http && wish.upload.filePath.isEmpty());
    if (hasImage)
        phases.push_back(Phase::Preparing);
    phases.push_back(Phase::Sending);
    if (wish.road != Road::Registers)
        phases.push_back(Phase::Installing);
    phases.push_back(Phase::Restarting);
    phases.push_back(Phase::Confirming);
    return phases;
}

/*! How long a device or a disk may be busy in \a phase without a word. */
std::chrono::seconds silenceOf(Phase phase, const UpgradeSettings &settings)
{
    switch (phase) {
    case Phase::Planning:
    case Phase::Preparing:
        return std::chrono::minutes(2);
    case Phase::Installing:
        return std::chrono::duration_cast<std::chrono::seconds>(
            settings.silenceLimit.value_or(std::chrono::minutes(2)));
    case Phase::Restarting:
        return std::chrono::duration_cast<std::chrono::seconds>(settings.returnLimit);
    case Phase::Copying:
    case Phase::Checking:
    case Phase::Sending:
    case Phase::Confirming:
        break;
    }
    return std::chrono::seconds(0);
}

DeadlineLimits limitsOf(Road road, const UpgradeSettings &settings, DeadlineLimits limits)
{
    if (road == Road::Http) {
        // The worker watches the service, and ends in a way behind which the device is asked for its
        // versions: it comes first.
        const std::chrono::milliseconds worker =
            settings.silenceLimit.value_or(HttpSilenceLimit) + HttpEndLimit;
        for (auto *limit : { &limits.sending, &limits.storing, &limits.installing })
            *limit = std::max(*limit, worker);
    } else if (settings.silenceLimit) {
        limits.sending = limits.storing = limits.installing = *settings.silenceLimit;
    }
    return limits;
}

QString stateText(int result)
{
    switch (result) {
    case 1:
        return QStringLiteral("installing");
    case 2:
        return QStringLiteral("done");
    case 3:
        return QStringLiteral("failed");
    default:
        return QStringLiteral("waiting");
    }
}

QString levelWord(QtMsgType level)
{
    switch (level) {
    case QtDebugMsg:
        return QStringLiteral("debug");
    case QtInfoMsg:
        return QStringLiteral("info");
    case QtWarningMsg:
        return QStringLiteral("warning");
    case QtCriticalMsg:
    case QtFatalMsg:
        break;
    }
    return QStringLiteral("critical");
}

} // namespace

Upgrade::Upgrade(UpgradeWish wish, UpgradeSettings settings, RunEventSink &events,
                 UpgradeSurroundings surroundings)
    : m_wish(std::move(wish))
    , m_settings(std::move(settings))
    , m_surroundings(std::move(surroundings))
    , m_events(events)
    , m_phases(phasesOf(m_wish))
{
    m_stopAnswer.setSingleShot(true);
    m_stopAnswer.setInterval(m_surroundings.stopAnswer);
    connect(&m_stopAnswer, &QTimer::timeout, this, &Upgrade::slotStopUnanswered);
}

Upgrade::~Upgrade() = default;

void Upgrade::start()
{
    m_elapsed.start();
    m_state = State::Preparing;
    m_deadlines = std::make_unique<Deadlines>(
        m_wish.road, m_settings.timeLimit,
        limitsOf(m_wish.road, m_settings, m_surroundings.deadlines), m_surroundings.clock);
    connect(m_deadlines.get(), &Deadlines::signalExpired, this, &Upgrade::slotExpired);
    connect(m_deadlines.get(), &Deadlines::signalPutOff, this, &Upgrade::tellWarning);
    m_deadlines->start();
    m_preparation =
        std::make_unique<Preparation>(PreparationOrder { m_wish.packagePath, m_settings.workFolder,
                                                         m_wish.device, m_wish.goal != Goal::Plan },
                                      m_surroundings.makeLink);
    connect(m_preparation.get(), &Preparation::signalPhase, this, &Upgrade::enter);
    connect(m_preparation.get(), &Preparation::signalCopied, this,
            [this](qint64 done, qint64 total) {
                tellProgress(total > 0 ? int(done * 100 / total) : 0, done, total);
            });
    connect(m_preparation.get(), &Preparation::signalFinding, this,
            [this](const QString &code, const QString &text) {
                tellWarning(QStringLiteral("%1 (%2)").arg(text, code));
            });
    connect(m_preparation.get(), &Preparation::signalReady, this, &Upgrade::slotReady);
    connect(m_preparation.get(), &Preparation::signalRefused, this, &Upgrade::end);
    m_preparation->start();
}

void Upgrade::agree()
{
    if (m_state != State::Waiting)
        return;
    if (m_wish.goal == Goal::Plan) {
        end(verdict(VerdictCode::NothingToDo, QStringLiteral("The plan is made")));
        return;
    }
    m_state = State::Working;
    m_deadlines->start();
    m_worker->go();
}

void Upgrade::decline()
{
    refuse(verdict(VerdictCode::Interrupted, QStringLiteral("The device stays as it was")));
}

void Upgrade::refuse(const Verdict &verdict)
{
    if (m_state == State::Waiting)
        end(verdict);
}

void Upgrade::interrupt()
{
    switch (m_state) {
    case State::Preparing:
        m_preparation->cancel();
        return;
    case State::Planning:
    case State::Waiting:
        end(verdict(VerdictCode::Interrupted, QStringLiteral("The device stays as it was")));
        return;
    case State::Working:
        if (m_wish.goal == Goal::Watch) {
            leave();
            return;
        }
        // Ordered by a worker that was lost; this one watches what became of it.
        if (m_isOrdered || isWritingRegisters()) {
            tellGoingOn();
            return;
        }
        m_isStopping = true;
        m_worker->requestStop();
        return;
    case State::Following:
    case State::Confirming:
        leave();
        return;
    case State::Idle:
    case State::Ended:
        return;
    }
}

void Upgrade::leave()
{
    // Of a worker that is ended for it, the last word is awaited.
    if (m_state == State::Ended || (m_isLeaving && !m_isStopRefused && m_worker->isRunning()))
        return;
    if (m_failure) { // what the device has said stays true without a wait for its return
        end(*m_failure);
        return;
    }
    const bool isOrdered = m_isOrdered || (m_worker && m_worker->traffic().isOrdered);
    if (isWritingRegisters()) {
        leaveWorker(QStringLiteral("The firmware is still being written, by a process that goes on "
                                   "without you"));
    } else if (m_state == State::Working && !isOrdered && m_wish.goal != Goal::Watch
               && !std::exchange(m_isLeaving, true)) {
        // The order to install may be given already and not yet heard of. The end of the worker
        // brings the last that it told; but it is not to be ended between two register writes.
        if (hasRegisterWorker())
            askToStop();
        else
            m_worker->kill();
    } else if (isOrdered || m_wish.goal == Goal::Watch) {
        end(verdict(
            VerdictCode::Left,
            QStringLiteral("The device goes on by itself. See it with: %1").arg(watchCommand())));
    } else {
        end(verdict(VerdictCode::Interrupted, QStringLiteral("The device stays as it was")));
    }
}

void Upgrade::leaveWorker(const QString &sentence)
{
    m_isWorkerLeft = true;
    end(verdict(VerdictCode::Left, sentence));
}

/*! A worker is there that writes registers, or may begin to. */
bool Upgrade::hasRegisterWorker() const
{
    return m_state == State::Working && m_wish.road == Road::Registers
        && m_wish.goal == Goal::Upgrade && m_worker->isRunning();
}

bool Upgrade::isWritingRegisters() const
{
    // The phase is told before the first write goes out, and the traffic behind it.
    return hasRegisterWorker()
        && (m_phase == Phase::Sending || m_worker->traffic().isOrdered || m_isStopRefused);
}

/*! Lets the worker decide whether it can still end: what it has told may be under way. */
void Upgrade::askToStop()
{
    m_isStopping = true;
    m_worker->requestStop();
    m_stopAnswer.start();
}

void Upgrade::slotExpired(VerdictCode code, const QString &text)
{
    const auto expiry = m_failure.value_or(verdict(code, text));
    if (hasRegisterWorker() && !m_worker->traffic().isOrdered) {
        m_expiry = expiry;
        askToStop();
    } else {
        end(expiry);
    }
}

bool Upgrade::isWorkerLeft() const
{
    return m_isWorkerLeft;
}

void Upgrade::slotReady()
{
    if (m_state != State::Preparing)
        return;
    if (const auto *copy = m_preparation->copy()) {
        m_deadlines->setSize(copy->manifest().totalSize());
        Q_EMIT signalCopied(copy->path());
    }
    if (m_wish.goal == Goal::Watch) {
        if (m_wish.formerPlan)
            m_plan = m_wish.formerPlan(m_preparation->facts().serial);
        m_state = State::Working;
        startWorker(WorkerMode::Watch);
        return;
    }
    m_state = State::Planning;
    startWorker(m_wish.goal == Goal::Plan ? WorkerMode::Plan : WorkerMode::Upgrade);
}

void Upgrade::startWorker(WorkerMode mode)
{
    WorkerOrder order;
    order.mode = mode;
    order.road = m_wish.road;
    order.device = m_wish.device;
    order.cataloguePath = m_wish.cataloguePath;
    order.keyFilePath = m_wish.keyFilePath;
    order.wish = m_wish.wish;
    order.upload = m_wish.upload;
    order.silenceLimit = m_settings.silenceLimit.value_or(HttpSilenceLimit);
    // Behind a run that was lost, the device has to be brought to its end however far it is.
    order.mayRestart = m_wish.mayRestart || m_wish.goal != Goal::Watch;
    std::vector<int> descriptors;
    if (const auto *copy = m_preparation->copy()) {
        order.packagePath = copy->path();
        descriptors.push_back(copy->lockDescriptor());
    }
    if (const auto *lock = m_preparation->lock())
        descriptors.push_back(lock->descriptor());

    m_deadlines->resetTraffic();
    auto launch = m_surroundings.worker;
    launch.memoryLimit = m_settings.workerMemory;
    ++m_workers;
    m_worker = std::make_unique<UpgradeWorker>(launch);
    connectWorker();
    m_worker->start(order, std::move(descriptors));
}

void Upgrade::connectWorker()
{
    auto *worker = m_worker.get();
    connect(worker, &UpgradeWorker::signalAlive, this, [this] { m_deadlines->noteAlive(); });
    connect(worker, &UpgradeWorker::signalPhase, this, &Upgrade::enter);
    connect(worker, &UpgradeWorker::signalPlan, this, &Upgrade::slotPlan);
    connect(worker, &UpgradeWorker::signalStatus, this, [this](const QString &text) {
        // The number in it has its own event, and the last one comes again as the end.
        if (m_phase == Phase::Installing)
            tellLog(QtInfoMsg, text);
        else
            tellMessage(text);
    });
    connect(worker, &UpgradeWorker::signalSending, this, &Upgrade::slotSending);
    connect(worker, &UpgradeWorker::signalInstalling, this, &Upgrade::slotInstalling);
    connect(worker, &UpgradeWorker::signalTraffic, this,
            [this](const LinkTraffic &traffic) { m_deadlines->noteTraffic(traffic); });
    connect(worker, &UpgradeWorker::signalLog, this, &Upgrade::tellLog);
    connect(worker, &UpgradeWorker::signalStopAnswered, this, &Upgrade::slotStopAnswered);
    connect(worker, &UpgradeWorker::signalEnded, this, &Upgrade::slotWorkerEnded);
    connect(worker, &UpgradeWorker::signalRefused, this, &Upgrade::slotWorkerRefused);
    connect(worker, &UpgradeWorker::signalDied, this, &Upgrade::slotWorkerDied);
}

void Upgrade::slotPlan(const Plan &plan)
{
    if (m_state != State::Planning)
        return;
    m_plan = plan;
    m_plan->packagePath = m_wish.packagePath;
    QString errorText;
    if (!m_plan->addHashes(m_preparation->copy()->manifest(), errorText)) {
        end(verdict(VerdictCode::Internal, errorText));
        return;
    }
    tellPlan();
    if (m_wish.plan) {
        const auto differences = m_wish.plan->differences(*m_plan);
        if (!differences.empty()) {
            for (const auto &difference : differences)
                tellWarning(difference);
            end(verdict(VerdictCode::PlanOutdated, differences.front()));
            return;
        }
    }
    m_state = State::Waiting;
    m_deadlines->stop(); // a person may think as long as they like
    Q_EMIT signalPlanned(*m_plan);
}

void Upgrade::slotSending(int percent, qint64 sentBytes, qint64 totalBytes)
{
    if (m_phase != Phase::Sending)
        return;
    m_deadlines->notePercent(percent);
    tellProgress(percent, sentBytes, totalBytes);
}

void Upgrade::slotInstalling(const s_UpgradePercent &progress)
{
    m_deadlines->noteInstalling(progress);
    if (m_phase != Phase::Installing)
        return;
    std::vector<PartProgress> parts;
    for (const auto &part : progress.parts)
        parts.push_back({ partName(part.slotId, part.type), part.rate, stateText(part.result) });
    tellProgress(progress.rate, -1, -1, std::move(parts));
}

void Upgrade::slotStopAnswered(bool isTaken)
{
    m_stopAnswer.stop();
    if (isTaken) // its end comes next
        return;
    m_isStopping = false;
    m_isStopRefused = true;
    if (m_isLeaving) {
        leave();
        return;
    }
    if (std::exchange(m_expiry, std::nullopt))
        m_deadlines->putOff();
    tellGoingOn();
}

void Upgrade::slotStopUnanswered()
{
    if (m_expiry) // in all that time, no write has been heard of
        end(*m_expiry);
    else if (m_isLeaving)
        leaveWorker(QStringLiteral("The upgrade's process does not answer. It is left to itself, "
                                   "and may be writing the firmware"));
}

void Upgrade::tellGoingOn()
{
    if (m_wish.road == Road::Registers)
        tellWarning(QStringLiteral("The upgrade goes on: between two register writes the "
                                   "device has half a firmware. Press Ctrl-C again to leave "
                                   "it to the upgrade's process"));
    else
        tellWarning(QStringLiteral("The upgrade goes on: the device is installing and is not to be "
                                   "interrupted. Press Ctrl-C again to leave it to itself"));
}

/*! The worker has ended, with \a text: true if there is nothing more to judge. */
bool Upgrade::takeWorkerEnd(const QString &text)
{
    if (isBehindEnd(text))
        return true;
    m_stopAnswer.stop(); // nobody is there to answer
    m_sentBytes += m_worker->traffic().sentBytes;
    if (!m_isLeaving)
        return false;
    leave();
    return true;
}

void Upgrade::slotWorkerEnded(bool result, const QString &text)
{
    if (takeWorkerEnd(text))
        return;
    // The library's last text speaks of a restart that the host may have kept from the device.
    tellLog(QtInfoMsg, text);
    if (!result) {
        if (m_phase && *m_phase >= Phase::Sending)
            judgeFailure(VerdictCode::SendFailed, QStringLiteral("The firmware could not be sent"));
        else
            judgeFailure(VerdictCode::PrepareFailed,
                         QStringLiteral("The firmware could not be prepared"));
        return;
    }
    m_isOrdered = true;
    if (m_wish.goal == Goal::Upgrade && m_sentBytes == 0)
        end(verdict(VerdictCode::NothingSent,
                    QStringLiteral("The upgrade ended as a success, but nothing was sent")));
    else
        confirm();
}

void Upgrade::slotWorkerRefused(VerdictCode code, const QString &text)
{
    if (takeWorkerEnd(text))
        return;
    const bool hasWatchedNothing =
        code == VerdictCode::NothingToDo || code == VerdictCode::InstallFailed;
    // Behind an order, nothing to watch means that the device has restarted.
    if (code == VerdictCode::NothingToDo && m_isOrdered)
        confirm();
    else if (hasWatchedNothing || code == VerdictCode::SendFailed)
        // An upload that was refused, or broke off: the device installs nothing, also where all of
        // it had gone out.
        end(verdict(code, text));
    else
        judgeFailure(code, text);
}

void Upgrade::slotWorkerDied(const QString &why)
{
    if (takeWorkerEnd(why))
        return;
    judgeFailure(VerdictCode::WorkerDied,
                 QStringLiteral("The upgrade's process has ended: ") + why);
}

void Upgrade::judgeFailure(VerdictCode code, const QString &text)
{
    const auto &traffic = m_worker->traffic();
    noteBeginning();
    m_isOrdered = m_isOrdered || traffic.isOrdered
        || (m_wish.goal == Goal::Watch && m_phase == Phase::Installing);
    // Every write was answered, the last one by a refusal, or the HTTP service has refused the
    // file: the device has not got the whole.
    const bool isRefused = code == VerdictCode::SendFailed && m_phase == Phase::Sending
        && (m_wish.road == Road::Http || (m_wish.road == Road::Registers && traffic.overdue == 0));
    if (traffic.isEndTold && traffic.result == InstallationFailed) {
        m_failure = verdict(VerdictCode::InstallFailed,
                            QStringLiteral("The device says that its installation has failed"));
        confirm();
    } else if (m_isOrdered && !isRefused) {
        // A word of the library about sending says nothing about what the device does now.
        if (code != VerdictCode::SendFailed)
            tellWarning(text);
        follow();
    } else if (m_isStopping && !m_isOrdered) {
        end(m_expiry.value_or(
            verdict(VerdictCode::Interrupted,
                    QStringLiteral("Interrupted. The device keeps the firmware that it has"))));
    } else if (code == VerdictCode::SendFailed && m_wish.road == Road::Registers && m_isOrdered) {
        end({ code, text,
              QStringLiteral("Upgrade again once the cause is removed; part of the firmware may be "
                             "written.") });
    } else {
        end(verdict(code, text));
    }
}

// An end that the device shows since an older installation is no effect of the order.
void Upgrade::noteBeginning()
{
    const auto &traffic = m_worker->traffic();
    const bool isEndShown =
        traffic.result == InstallationDone || traffic.result == InstallationFailed;
    const bool isBeginningShown = traffic.result != LinkTraffic::NoResult && !isEndShown;
    if (traffic.isEndTold || (traffic.isOrdered && isBeginningShown))
        m_hasBegun = true;
}

void Upgrade::follow()
{
    tellWarning(QStringLiteral("The device was lost while it may have been installing"));
    // The other roads' devices restart by themselves, and their versions alone can tell.
    if (m_wish.road != Road::Native) {
        confirm(RestartNews::Unknown);
        return;
    }
    m_state = State::Following;
    m_deadlines->enter(Phase::Confirming); // no worker is there to be silent
    m_following = std::make_unique<Following>(m_wish.device, m_surroundings.makeLink);
    connect(m_following.get(), &Following::signalFound, this, &Upgrade::slotFound);
    m_following->start(m_settings.returnLimit);
}

void Upgrade::slotFound(Following::Found found)
{
    if (m_state != State::Following)
        return;
    switch (found) {
    case Following::Found::AtEnd:
        // A device that shows the end of an older installation may be about to begin with this
        // one, and would not survive a restart.
        if (m_wish.goal != Goal::Watch && !m_hasBegun) {
            confirm();
            return;
        }
        [[fallthrough]];
    case Following::Found::AtWork:
        m_hasBegun = true;
        if (m_workers >= WorkerLimit) {
            end(verdict(VerdictCode::WorkerLost,
                        QStringLiteral("The installation could not be followed to its end")));
            return;
        }
        m_state = State::Working;
        startWorker(WorkerMode::Watch);
        m_deadlines->enter(Phase::Installing); // which is no new phase for whoever looks on
        return;
    case Following::Found::Idle:
        confirm();
        return;
    case Following::Found::Nothing:
        end(verdict(VerdictCode::DeviceLost,
                    QStringLiteral("The device was lost while it may have been installing, and "
                                   "gives no answer that the host gets")));
        return;
    }
}

void Upgrade::confirm()
{
    // The other roads' devices restart by themselves.
    const bool isTaken = m_wish.road != Road::Native || m_worker->traffic().isRestartOrdered;
    confirm(isTaken ? RestartNews::Taken : RestartNews::NotTaken);
}

void Upgrade::confirm(RestartNews restart)
{
    m_state = State::Confirming;
    enter(Phase::Restarting);
    m_deadlines->enter(Phase::Confirming); // no worker is there to be silent
    ConfirmationOrder order;
    order.device = m_wish.device;
    order.serial = m_preparation->facts().serial;
    if (m_plan)
        order.sections = m_plan->sections;
    order.restart = restart;
    order.road = m_wish.road;
    order.limit = m_settings.returnLimit;
    auto times = m_surroundings.confirmation;
    if (restart == RestartNews::NotTaken) {
        // A restart that was not ordered hardly comes, and nothing is said of the versions without
        // one: there is no need to wait longer than was asked for.
        times.grace = std::min(times.grace, m_settings.returnLimit);
        times.settle = std::min(times.settle, m_settings.returnLimit);
    } else if (restart == RestartNews::Unknown) {
        // One that is still installing restarts much later.
        times.grace = std::max(times.grace, m_settings.returnLimit);
    }
    m_confirmation =
        std::make_unique<Confirmation>(std::move(order), times, m_surroundings.makeLink);
    connect(m_confirmation.get(), &Confirmation::signalReturned, this,
            [this] { enter(Phase::Confirming); });
    connect(m_confirmation.get(), &Confirmation::signalStatus, this,
            [this](const QString &text) { tellMessage(text); });
    connect(m_confirmation.get(), &Confirmation::signalEnded, this, &Upgrade::slotConfirmed);
    m_confirmation->start();
}

void Upgrade::slotConfirmed(const Verdict &verdict)
{
    const auto versions = sectionVersions();
    const bool hasChanged =
        std::any_of(versions.begin(), versions.end(), [](const SectionVersion &section) {
            return !section.after.isEmpty() && section.after != section.before;
        });
    // The device's own word about its installation weighs more than versions that are as they were
    // before; where they are not, the word was about an older installation.
    end(m_failure && !hasChanged ? *m_failure : verdict);
}

bool Upgrade::isBehindEnd(const QString &text) const
{
    if (m_state != State::Ended)
        return false;
    qInfo().noquote() << "An end behind the end of the upgrade:" << text;
    return true;
}

void Upgrade::end(const Verdict &verdict)
{
    if (isBehindEnd(verdict.sentence))
        return;
    m_state = State::Ended;
    m_stopAnswer.stop();
    m_deadlines->stop();
    if (m_preparation)
        m_preparation->cancel();
    if (m_confirmation)
        m_confirmation->stop();
    if (m_worker && m_worker->isRunning())
        m_sentBytes += m_worker->traffic().sentBytes;
    if (m_worker && m_isWorkerLeft) {
        m_worker->leave();
        m_preparation->leaveCopy();
    } else if (m_worker) {
        m_worker->kill();
    }

    if (m_phase)
        m_durations[*m_phase] += std::chrono::milliseconds(m_phaseElapsed.elapsed());
    RunEvent event;
    event.kind = RunEvent::Kind::Verdict;
    event.summary = RunSummary();
    event.summary->verdict = verdict;
    if (verdictKind(verdict.code) != VerdictKind::Confirmed)
        event.summary->causes = m_causes;
    event.summary->versions = sectionVersions();
    event.summary->bytesSent = m_sentBytes;
    event.summary->durations = m_durations;
    event.summary->wholeDuration = std::chrono::milliseconds(m_elapsed.elapsed());
    tell(std::move(event));
    Q_EMIT signalEnded(verdict);
}

void Upgrade::enter(Phase phase)
{
    const auto place = std::find(m_phases.begin(), m_phases.end(), phase);
    // A worker that follows plans nothing anew, and what was left behind is not entered again.
    if (m_state == State::Ended || place == m_phases.end() || (m_phase && *m_phase >= phase))
        return;
    if (m_phase)
        m_durations[*m_phase] += std::chrono::milliseconds(m_phaseElapsed.elapsed());
    m_phase = phase;
    m_phaseElapsed.start();
    m_clamp.reset();
    m_deadlines->enter(phase);
    RunEvent event;
    event.kind = RunEvent::Kind::Phase;
    event.silence = silenceOf(phase, m_settings);
    tell(std::move(event));
}

void Upgrade::tellProgress(int percent, qint64 sentBytes, qint64 totalBytes,
                           std::vector<PartProgress> parts)
{
    RunEvent event;
    event.kind = RunEvent::Kind::Progress;
    event.percent = m_clamp.take(percent);
    event.bytesSent = sentBytes;
    event.bytesTotal = totalBytes;
    event.parts = std::move(parts);
    tell(std::move(event));
}

void Upgrade::tellMessage(const QString &text)
{
    if (text.isEmpty())
        return;
    RunEvent event;
    event.kind = RunEvent::Kind::Message;
    event.text = text;
    tell(std::move(event));
}

void Upgrade::tellWarning(const QString &text)
{
    RunEvent event;
    event.kind = RunEvent::Kind::Message;
    event.code = QStringLiteral("warning");
    event.text = text;
    tell(std::move(event));
}

void Upgrade::tellPlan()
{
    RunEvent event;
    event.kind = RunEvent::Kind::Plan;
    event.data = m_plan->toJson();
    tell(std::move(event));
}

void Upgrade::tellLog(QtMsgType level, const QString &text)
{
    m_causes.append(text);
    if (m_causes.size() > CauseCount)
        m_causes.removeFirst();
    RunEvent event;
    event.kind = RunEvent::Kind::Log;
    event.code = levelWord(level);
    event.text = text;
    tell(std::move(event));
}

void Upgrade::tell(RunEvent event)
{
    // What comes behind the verdict is no part of the upgrade any more.
    if (m_state == State::Ended && event.kind != RunEvent::Kind::Verdict)
        return;
    if (m_phase) {
        const auto place = std::find(m_phases.begin(), m_phases.end(), *m_phase);
        event.phase = *m_phase;
        event.place = int(place - m_phases.begin()) + 1;
        event.places = int(m_phases.size());
    }
    m_events.take(event);
}

QString Upgrade::watchCommand() const
{
    return QStringLiteral("velmar-upgrade watch --device ") + m_wish.device.toString();
}

QString Upgrade::partName(int slotId, int type) const
{
    if (slotId != 0)
        return QStringLiteral("card %1").arg(slotId);
    // In slot 0 the first part is the main control, and any other belongs to the back plane.
    const auto &parts = m_preparation->facts().versions.parts;
    const auto main =
        std::find_if(parts.begin(), parts.end(), [](const auto &part) { return part.slotId == 0; });
    return main == parts.end() || main->type == type ? QStringLiteral("main control")
                                                     : QStringLiteral("back plane");
}

std::vector<SectionVersion> Upgrade::sectionVersions() const
{
    std::vector<SectionVersion> versions;
    if (!m_plan || m_wish.goal == Goal::Plan)
        return versions;
    const auto after = m_confirmation ? m_confirmation->versions() : std::nullopt;
    const ToldVersions told(after.value_or(ProtoModel::Auxiliary::s_DeviceVersion()));
    for (const auto &section : m_plan->sections)
        versions.push_back({ partName(section.slotId, section.type), section.name,
                             section.versionBefore, section.versionExpected,
                             told.find(section.type, section.slotId, section.code) });
    return versions;
}

} // namespace Velmar::Host
