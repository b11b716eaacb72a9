#include "pairedrounds.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace PairedRounds {

namespace {

double seconds(const std::function<void()> &work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

void run(benchmark::State &state, double limit, const std::function<void()> &subject,
         const std::function<void()> &reference)
{
    runTimed(
        state, limit, [&subject] { return seconds(subject); },
        [&reference] { return seconds(reference); });
}

void runTimed(benchmark::State &state, double limit, const std::function<double()> &subject,
              const std::function<double()> &reference)
{
    reference();
    subject();

    std::vector<double> subjects;
    std::vector<double> references;
    std::vector<double> ratios;
    bool isSubjectFirst = true;
    for (auto _ : state) {
        double subjectTime = 0;
        double referenceTime = 0;
        if (isSubjectFirst) {
            subjectTime = subject();
            referenceTime = reference();
        } else {
            referenceTime = reference();
            subjectTime = subject();
        }
        isSubjectFirst = !isSubjectFirst;
        subjects.push_back(subjectTime);
        references.push_back(referenceTime);
        ratios.push_back(subjectTime / referenceTime);
        state.SetIterationTime(subjectTime);
    }
    state.counters["subject_ms"] = median(subjects) * 1000;
    state.counters["reference_ms"] = median(references) * 1000;
    state.counters["ratio"] = median(ratios);
    state.counters["limit"] = limit;
}

} // namespace PairedRounds
