#include "device/devicelooks.h"

#include <velmarbizmodel/devicelink.h>

#include <utility>

namespace Velmar::Host {

namespace {

constexpr std::chrono::milliseconds CloseInterval { 20 };

} // namespace

DeviceLooks::DeviceLooks(const DeviceAddress &address, std::shared_ptr<BizModel::DeviceLink> link,
                         std::chrono::milliseconds timeout, std::chrono::milliseconds pause,
                         std::function<void(const DeviceLook &look)> tell)
    : m_looker(address, link, timeout)
    , m_tell(std::move(tell))
    , m_link(std::move(link))
    , m_pause(pause)
    , m_thread([this] { run(); })
{
}

DeviceLooks::~DeviceLooks()
{
    stop();
    {
        // Again and again: the look may be about to open the link.
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_changed.wait_for(lock, CloseInterval, [this] { return m_isOver; }))
            m_link->close();
    }
    m_thread.join();
}

void DeviceLooks::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isStopped = true;
    }
    m_changed.notify_all();
    m_link->close();
}

void DeviceLooks::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_isStopped) {
        lock.unlock();
        const auto look = m_looker.look();
        lock.lock();
        if (m_isStopped)
            break;
        m_tell(look);
        m_changed.wait_for(lock, m_pause, [this] { return m_isStopped; });
    }
    m_isOver = true;
    m_changed.notify_all();
}

} // namespace Velmar::Host
