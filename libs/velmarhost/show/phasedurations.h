#ifndef VELMARHOST_PHASEDURATIONS_H
#define VELMARHOST_PHASEDURATIONS_H

#include "run/phase.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace Velmar::Host {

/*! Milliseconds of the monotonic clock; only differences mean anything. */
std::chrono::milliseconds monotonicTime();

/*! Measures how long the phases of a run take; one that is entered twice counts twice. */
class PhaseDurations
{
public:
    /*! The run begins now. \a clock is monotonic. */
    explicit PhaseDurations(std::function<std::chrono::milliseconds()> clock = monotonicTime);

    /*! \a phase begins now, and the one before ends. */
    void enter(Phase phase);

    /*! The times of the phases entered so far, the present one up to now. */
    std::map<Phase, std::chrono::milliseconds> phases() const;

    /*! The time since the run began. */
    std::chrono::milliseconds whole() const;

private:
    const std::function<std::chrono::milliseconds()> m_clock;
    const std::chrono::milliseconds m_begin;
    std::map<Phase, std::chrono::milliseconds> m_ended;
    std::optional<Phase> m_phase;
    std::chrono::milliseconds m_entered { 0 };
};

} // namespace Velmar::Host

#endif // VELMARHOST_PHASEDURATIONS_H
