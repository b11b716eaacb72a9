#include "run/backgroundtask.h"

#include <utility>

namespace Velmar::Host {

BackgroundTask::BackgroundTask(std::function<void(const std::atomic<bool> &)> work)
    : m_work(std::move(work))
{
}

BackgroundTask::~BackgroundTask()
{
    cancel();
    if (m_thread.joinable())
        m_thread.join();
}

void BackgroundTask::start()
{
    Q_ASSERT(!m_thread.joinable());
    m_thread = std::thread([this] {
        m_work(m_isCancelled);
        QMetaObject::invokeMethod(this, &BackgroundTask::signalEnded, Qt::QueuedConnection);
    });
}

void BackgroundTask::cancel()
{
    m_isCancelled = true;
}

} // namespace Velmar::Host
