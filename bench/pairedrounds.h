#ifndef VELMAR_BENCH_PAIREDROUNDS_H
#define VELMAR_BENCH_PAIREDROUNDS_H

#include <benchmark/benchmark.h>

#include <functional>

/*!
    Times two pieces of work against each other.

    Machines wander by more than what is measured, so each round times both, one right behind the
    other and in turns first. The ratio is taken within each round; medians count.
*/
namespace PairedRounds {

constexpr int Count = 15; // an odd number, for a median that was measured

/*!
    Runs \a subject and \a reference once in advance and then Count times each, or as often as
    \a state has iterations.

    The time of \a state is that of \a subject. Counters: "subject_ms" and "reference_ms" (medians),
    "ratio" (median of subject by reference) and "limit", the most that the ratio should be.
*/
void run(benchmark::State &state, double limit, const std::function<void()> &subject,
         const std::function<void()> &reference);

/*! The same for work of which only a part counts: each returns the seconds that this part took. */
void runTimed(benchmark::State &state, double limit, const std::function<double()> &subject,
              const std::function<double()> &reference);

} // namespace PairedRounds

#endif // VELMAR_BENCH_PAIREDROUNDS_H
