#include "devicecalls.h"

#include <chrono>

namespace Velmar::Simulator {

DeviceCalls::DeviceCalls() = default;

DeviceCalls::~DeviceCalls()
{
    stop();
}

bool DeviceCalls::call(const std::function<void()> &work)
{
    const auto ticket = std::make_shared<Ticket>(Ticket { work, false });
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_isStopped)
        return false;
    m_waiting.push_back(ticket);
    QMetaObject::invokeMethod(this, &DeviceCalls::carryOutNext, Qt::QueuedConnection);
    m_changed.wait(lock, [this, &ticket] { return ticket->isOver || m_isStopped; });
    return ticket->isOver;
}

bool DeviceCalls::wait(int milliseconds)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                               [this] { return m_isStopped; });
}

void DeviceCalls::stop()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isStopped = true;
    m_waiting.clear();
    m_changed.notify_all();
}

/*! stop() comes in this thread, too: whoever waits for what is carried out here still waits. */
void DeviceCalls::carryOutNext()
{
    std::shared_ptr<Ticket> ticket;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_waiting.empty())
            return;
        ticket = m_waiting.front();
        m_waiting.pop_front();
    }
    ticket->work();
    const std::lock_guard<std::mutex> lock(m_mutex);
    ticket->isOver = true;
    m_changed.notify_all();
}

} // namespace Velmar::Simulator
