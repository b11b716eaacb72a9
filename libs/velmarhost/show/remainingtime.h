#ifndef VELMARHOST_REMAININGTIME_H
#define VELMARHOST_REMAININGTIME_H

#include <QtGlobal>

#include <chrono>
#include <deque>
#include <optional>

namespace Velmar::Host {

/*!
    Tells how long something that moves from 0 to 1 will still take, as long as that can be foretold.

    It looks at the steps of the last 20 seconds, or the last four. A forecast is made if at least 5 of them are known, if the
    rates of their first and their second half differ by at most a quarter of the greater one, and
    if the last step is not longer ago than twice the longest wait between two. Otherwise there is
    none: no number is better than one that jumps.
*/
class RemainingTime
{
public:
    /*! At the time \a now, \a share (0 to 1) is done. A share below the last one begins anew. */
    void take(double share, std::chrono::milliseconds now);

    /*! Forgets all. */
    void clear();

    /*! The time that remains at \a now, rounded up to 5 seconds, from 2 minutes on to 30. */
    std::optional<std::chrono::seconds> forecast(std::chrono::milliseconds now) const;

private:
    struct Sample {
        double share;
        std::chrono::milliseconds time;
    };
    std::deque<Sample> m_samples; // oldest first, one a step
};

} // namespace Velmar::Host

#endif // VELMARHOST_REMAININGTIME_H
