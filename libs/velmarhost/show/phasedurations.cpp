#include "show/phasedurations.h"

#include <utility>

namespace Velmar::Host {

std::chrono::milliseconds monotonicTime()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

PhaseDurations::PhaseDurations(std::function<std::chrono::milliseconds()> clock)
    : m_clock(std::move(clock))
    , m_begin(m_clock())
{
}

void PhaseDurations::enter(Phase phase)
{
    m_ended = phases();
    m_phase = phase;
    m_entered = m_clock();
    m_ended.try_emplace(phase, 0);
}

std::map<Phase, std::chrono::milliseconds> PhaseDurations::phases() const
{
    auto durations = m_ended;
    if (m_phase)
        durations[*m_phase] += m_clock() - m_entered;
    return durations;
}

std::chrono::milliseconds PhaseDurations::whole() const
{
    return m_clock() - m_begin;
}

} // namespace Velmar::Host
