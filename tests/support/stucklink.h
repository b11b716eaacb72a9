#ifndef TESTS_SUPPORT_STUCKLINK_H
#define TESTS_SUPPORT_STUCKLINK_H

#include <velmarbizmodel/devicelink.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

/*! A link on which everything takes for ever, until it is closed. */
class StuckLink : public Velmar::BizModel::DeviceLink
{
public:
    /*! One that is reachable opens at once. */
    explicit StuckLink(bool isReachable)
        : m_isReachable(isReachable)
    {
    }

    bool open(int timeout, QString &errorText) override
    {
        Q_UNUSED(timeout)
        if (m_isReachable)
            return true;
        waitForClose();
        errorText = QStringLiteral("closed");
        return false;
    }

    void close() override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_closed;
        m_changed.notify_all();
    }

    bool isOpen() const override { return m_isReachable; }

    Velmar::BizModel::LinkAnswer send(const Velmar::BizModel::LinkRequest &request) override
    {
        Q_UNUSED(request)
        waitForClose();
        Velmar::BizModel::LinkAnswer answer;
        answer.outcome = Velmar::BizModel::LinkAnswer::Outcome::Lost;
        return answer;
    }

    void pauseHeartbeat(int milliseconds) override
    {
        Q_UNUSED(milliseconds)
        waitForClose();
    }

    void restartHeartbeat() override { waitForClose(); }

    bool isWaiting() const { return m_waiting > 0; } //!< somebody does, or has done

private:
    // For a close to come, as one that came before does not count.
    void waitForClose()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const int before = m_closed;
        ++m_waiting;
        m_changed.wait(lock, [this, before] { return m_closed > before; });
    }

    const bool m_isReachable;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_closed = 0;
    std::atomic<int> m_waiting { 0 };
};

#endif // TESTS_SUPPORT_STUCKLINK_H
