#include "run/backgroundtask.h"

#include <system_error>
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
    try {
        m_thread = std::thread([this] {
            m_work(m_isCancelled);
            QMetaObject::invokeMethod(this, &BackgroundTask::signalEnded, Qt::QueuedConnection);
        });
    } catch (const std::system_error &error) {
        m_fault = QStringLiteral("The system has no room for a thread: %1")
                      .arg(QString::fromLocal8Bit(error.what()));
        QMetaObject::invokeMethod(this, &BackgroundTask::signalEnded, Qt::QueuedConnection);
    }
}

void BackgroundTask::cancel()
{
    m_isCancelled = true;
}

const QString &BackgroundTask::fault() const
{
    return m_fault;
}

} // namespace Velmar::Host
