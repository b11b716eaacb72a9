#include "run/devicerun.h"

#include "run/workerwatch.h"

namespace Velmar::Host {

DeviceRun::DeviceRun()
    : m_worker(std::make_shared<WorkerWatch>())
{
    m_timeLimit.setSingleShot(true);
    connect(&m_timeLimit, &QTimer::timeout, this, &DeviceRun::slotTimeLimit);
}

DeviceRun::~DeviceRun() = default;

DeviceRun::Stage DeviceRun::stage() const
{
    return m_stage;
}

void DeviceRun::giveUp()
{
    const bool hasWorker = isWorkerAlive();
    enter(Stage::Ended);
    m_timeLimit.stop();
    // Left behind until it has ended: endWorker() may handle events, among them one that gives the
    // run up again, and that has to wait for the worker, too.
    m_isWorkerLeftBehind = hasWorker;
    if (hasWorker)
        m_isWorkerLeftBehind = !endWorker(m_workerEndLimit);
}

void DeviceRun::setWorkerEndLimit(std::chrono::milliseconds limit)
{
    m_workerEndLimit = limit;
}

bool DeviceRun::isWorkerLeftBehind() const
{
    return m_isWorkerLeftBehind;
}

void DeviceRun::begin(std::chrono::milliseconds timeLimit)
{
    Q_ASSERT(m_stage == Stage::Idle);
    enter(Stage::Preparing);
    m_timeLimit.start(timeLimit);
}

void DeviceRun::enter(Stage stage)
{
    if (stage == m_stage)
        return;
    m_stage = stage;
    Q_EMIT signalStageChanged(stage);
}

void DeviceRun::finish(bool result, const QString &text)
{
    if (m_stage == Stage::Ended)
        return;
    enter(Stage::Ended);
    m_timeLimit.stop();
    m_isWorkerLeftBehind = !m_worker->waitForEnd(m_workerEndLimit);
    Q_EMIT signalEnded(result ? Outcome::Succeeded : Outcome::Failed, text);
}

bool DeviceRun::isWorkerAlive() const
{
    const bool isRunning = m_stage != Stage::Idle && m_stage != Stage::Ended;
    return isRunning || m_isWorkerLeftBehind;
}

bool DeviceRun::endWorker(std::chrono::milliseconds limit)
{
    Q_UNUSED(limit)
    return false;
}

void DeviceRun::slotTimeLimit()
{
    giveUp();
    Q_EMIT signalEnded(Outcome::TimedOut, QString());
}

} // namespace Velmar::Host
