#include "run/deadlines.h"

#include <algorithm>
#include <utility>

namespace Velmar::Host {

using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr qint64 MiB = 1024 * 1024;
constexpr int OverdueToGiveUp = 3;
constexpr int AllSent = 100; // percent

milliseconds steadyClock()
{
    return std::chrono::duration_cast<milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

/*! \a time in the largest unit that shows it exactly. */
QString timeText(milliseconds time)
{
    const auto count = std::chrono::duration_cast<seconds>(time).count();
    if (count >= 120 && count % 60 == 0)
        return QStringLiteral("%1 min").arg(count / 60);
    return QStringLiteral("%1 s").arg(count);
}

/*! All rates of an installation together, as a measure that rises with any of them. */
int rateSum(const ProtoModel::Auxiliary::s_UpgradePercent &progress)
{
    int sum = progress.rate + progress.subSections.rate;
    for (const auto &part : progress.parts) {
        sum += part.rate;
        for (const auto &section : part.section)
            sum += section.rate;
    }
    return sum;
}

} // namespace

Deadlines::Deadlines(Road road, milliseconds whole, const DeadlineLimits &limits, Clock clock)
    : m_road(road)
    , m_whole(whole)
    , m_limits(limits)
    , m_clock(clock ? std::move(clock) : Clock(steadyClock))
{
    m_tick.setInterval(m_limits.check);
    connect(&m_tick, &QTimer::timeout, this, &Deadlines::check);
}

void Deadlines::start()
{
    if (m_isStarted)
        return;
    m_startedAt = m_clock();
    m_isStarted = true;
    m_tick.start();
}

void Deadlines::stop()
{
    m_before = now();
    m_isStarted = false;
    m_tick.stop();
}

void Deadlines::setSize(qint64 bytes)
{
    m_size = bytes;
}

void Deadlines::enter(Phase phase)
{
    if (phase == m_phase)
        return;
    m_phase = phase;
    m_percent = -1;
    m_rate = -1;
    m_rateSum = -1;
    m_alive = m_heard = m_progressed = now();
}

void Deadlines::noteAlive()
{
    m_alive = now();
}

void Deadlines::noteTraffic(const LinkTraffic &traffic)
{
    if (traffic.answers > m_traffic.answers || traffic.sentBytes > m_traffic.sentBytes)
        m_heard = now();
    m_traffic = traffic;
    m_wasOrdered = m_wasOrdered || traffic.isOrdered;
}

void Deadlines::notePercent(int percent)
{
    if (percent <= m_percent)
        return;
    m_percent = percent;
    m_heard = now();
}

void Deadlines::noteInstalling(const ProtoModel::Auxiliary::s_UpgradePercent &progress)
{
    // The sum may fall while the whole goes on, where a section begins anew for the next file.
    const int sum = rateSum(progress);
    if (progress.rate > m_rate || sum > m_rateSum)
        m_progressed = now();
    m_rate = std::max(m_rate, int(progress.rate));
    m_rateSum = std::max(m_rateSum, sum);
}

void Deadlines::resetTraffic()
{
    m_traffic = {};
    m_alive = m_heard = now();
}

void Deadlines::putOff()
{
    m_isOver = false;
    m_isPutOff = true;
    if (m_isStarted)
        m_tick.start();
}

void Deadlines::check()
{
    if (!m_isStarted || m_isOver)
        return;
    const auto expired = expiry();
    if (!expired)
        return;
    QString why;
    // A worker that has not said a word for so long does not write either.
    const bool isStuck = now() - m_alive >= m_limits.stuck;
    if (!isStuck && !mayGiveUp(m_road, m_phase, m_traffic, why)) {
        if (!std::exchange(m_isPutOff, true))
            Q_EMIT signalPutOff(expired->text + QStringLiteral(". ") + why);
        return;
    }
    m_isOver = true;
    m_tick.stop();
    Q_EMIT signalExpired(expired->code, expired->text);
}

milliseconds Deadlines::now() const
{
    return m_isStarted ? m_before + m_clock() - m_startedAt : m_before;
}

milliseconds Deadlines::bySize(milliseconds limit) const
{
    return limit + seconds(m_size / MiB);
}

std::optional<Deadlines::Expiry> Deadlines::expiry() const
{
    const bool isEndPutOff = m_isPutOff && m_phase == Phase::Confirming;
    if (m_whole.count() > 0 && now() >= m_whole && !isEndPutOff) {
        const bool mayInstall = m_wasOrdered || m_phase >= Phase::Installing;
        return Expiry { mayInstall ? VerdictCode::TimeLimit : VerdictCode::OutOfTime,
                        QStringLiteral("The time limit of %1 has passed").arg(timeText(m_whole)) };
    }
    return silence();
}

std::optional<Deadlines::Expiry> Deadlines::silence() const
{
    switch (m_phase) {
    case Phase::Copying:
    case Phase::Checking: // the host's own work, which ends with its disk's
    case Phase::Confirming: // has a limit of its own
        return std::nullopt;
    case Phase::Planning:
    case Phase::Preparing:
    case Phase::Restarting: {
        const auto limit = bySize(m_limits.reading);
        if (now() - m_alive < limit)
            return std::nullopt;
        return Expiry {
            m_wasOrdered ? VerdictCode::DeviceLost : VerdictCode::WorkerDied,
            QStringLiteral("The upgrade's process has said nothing for %1").arg(timeText(limit))
        };
    }
    case Phase::Sending: {
        const auto limit = sendingLimit();
        if (now() - m_heard < limit)
            return std::nullopt;
        return Expiry {
            m_wasOrdered ? VerdictCode::DeviceLost : VerdictCode::SilentDevice,
            QStringLiteral("The device has taken nothing for %1").arg(timeText(limit))
        };
    }
    case Phase::Installing:
        if (now() - m_heard >= m_limits.installing)
            return Expiry { VerdictCode::DeviceLost,
                            QStringLiteral("The device has not answered for %1")
                                .arg(timeText(m_limits.installing)) };
        if (now() - m_progressed >= m_limits.standstill)
            return Expiry { VerdictCode::NoProgress,
                            QStringLiteral("The installation has stood still for %1")
                                .arg(timeText(m_limits.standstill)) };
        return std::nullopt;
    }
    return std::nullopt;
}

milliseconds Deadlines::sendingLimit() const
{
    const bool isAllSent = m_percent >= AllSent
        || (m_traffic.totalBytes > 0 && m_traffic.sentBytes >= m_traffic.totalBytes);
    if (isAllSent)
        return bySize(m_limits.storing);
    // Before the first byte, the file is read once for its hash.
    return m_traffic.sentBytes > 0 || m_percent > 0 ? m_limits.sending : bySize(m_limits.reading);
}

bool mayGiveUp(Road road, Phase phase, const LinkTraffic &traffic, QString &why)
{
    // Until the first write goes out, there are questions alone.
    const bool isWriting = road == Road::Registers
        && (phase == Phase::Sending || phase == Phase::Installing)
        && (traffic.isOrdered || traffic.sentBytes > 0 || traffic.requests > traffic.answers);
    if (!isWriting || traffic.overdue >= OverdueToGiveUp)
        return true;
    why = QStringLiteral("The upgrade goes on: the device is being written register by register, "
                         "and is not to be left in between");
    return false;
}

} // namespace Velmar::Host
