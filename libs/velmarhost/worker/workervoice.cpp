#include "worker/workervoice.h"

#include <cerrno>
#include <utility>
#include <variant>

#include <unistd.h>

namespace Velmar::Host {

namespace {

constexpr int MostWaitingBytes = 256 * 1024; // behind them, only what must be told is added

bool isExpendable(const WorkerMessage &message)
{
    return std::holds_alternative<LogTell>(message) || std::holds_alternative<StatusTell>(message)
        || std::holds_alternative<SendingTell>(message)
        || std::holds_alternative<InstallingTell>(message)
        || std::holds_alternative<TrafficTell>(message);
}

} // namespace

WorkerVoice::WorkerVoice(int descriptor)
    : m_descriptor(descriptor)
    , m_writer([this] { writeAll(); })
{
}

WorkerVoice::~WorkerVoice()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_writer.join();
}

void WorkerVoice::tell(const WorkerMessage &message)
{
    const auto line = toLine(message);
    const bool isTraffic = std::holds_alternative<TrafficTell>(message);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isBroken)
            return;
        if (m_waitingBytes > MostWaitingBytes && isExpendable(message)) {
            if (isTraffic)
                m_heldTraffic = line;
            return;
        }
        if (isTraffic)
            m_heldTraffic.clear();
        addHeldTraffic();
        add(line);
    }
    m_changed.notify_all();
}

void WorkerVoice::flush(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, limit, [this] { return isSilent(); });
}

void WorkerVoice::flush()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return isSilent(); });
}

void WorkerVoice::writeAll()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_isEnding || !m_lines.empty(); });
        if (m_lines.empty())
            return;
        const auto line = std::move(m_lines.front());
        m_lines.pop_front();
        lock.unlock();
        const bool isWritten = write(line);
        lock.lock();
        m_waitingBytes -= line.size();
        if (!isWritten) {
            m_isBroken = true;
            m_lines.clear();
            m_heldTraffic.clear();
            m_waitingBytes = 0;
        }
        if (m_lines.empty())
            addHeldTraffic();
        m_changed.notify_all();
    }
}

bool WorkerVoice::write(const QByteArray &line) const
{
    for (int written = 0; written < line.size();) {
        const auto count = ::write(m_descriptor, line.constData() + written,
                                   static_cast<std::size_t>(line.size() - written));
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            written += static_cast<int>(count);
    }
    return true;
}

// With the mutex locked, as for addHeldTraffic().
void WorkerVoice::add(const QByteArray &line)
{
    m_lines.push_back(line);
    m_waitingBytes += line.size();
}

void WorkerVoice::addHeldTraffic()
{
    if (!m_heldTraffic.isEmpty())
        add(std::exchange(m_heldTraffic, {}));
}

bool WorkerVoice::isSilent() const
{
    return m_isBroken || m_waitingBytes == 0;
}

void leaveWorker(WorkerVoice &voice, WorkerExit code, const WorkerMessage &last)
{
    voice.tell(last);
    voice.flush();
    _exit(static_cast<int>(code));
}

} // namespace Velmar::Host
