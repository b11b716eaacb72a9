#ifndef VELMARHOST_DEVICELOOKS_H
#define VELMARHOST_DEVICELOOKS_H

#include "device/devicelook.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace Velmar::Host {

/*! Looks at a device again and again on a thread of its own, until stopped. */
class DeviceLooks
{
public:
    /*! \a tell gets each look on that thread; \a pause is between two of them. */
    DeviceLooks(const DeviceAddress &address, std::shared_ptr<BizModel::DeviceLink> link,
                std::chrono::milliseconds timeout, std::chrono::milliseconds pause,
                std::function<void(const DeviceLook &look)> tell);

    /*! Stops, and waits for the look that is under way; the link is closed to end it soon. */
    ~DeviceLooks();

    /*! No look begins any more, and none is told. Does not wait. */
    void stop();

private:
    Q_DISABLE_COPY_MOVE(DeviceLooks)

    void run();

    // Of the thread alone.
    DeviceLooker m_looker;
    const std::function<void(const DeviceLook &)> m_tell;

    const std::shared_ptr<BizModel::DeviceLink> m_link;
    const std::chrono::milliseconds m_pause;
    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    bool m_isStopped = false;
    bool m_isOver = false; // the thread does nothing more
    std::thread m_thread; // the last member: it uses all others
};

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICELOOKS_H
