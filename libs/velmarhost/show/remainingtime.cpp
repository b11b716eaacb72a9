#include "show/remainingtime.h"

#include <algorithm>
#include <cmath>

namespace Velmar::Host {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds Window = seconds(20);
constexpr milliseconds ShortestSpan = seconds(5);
constexpr milliseconds ShortestStep(100); // quicker ones tell no more
constexpr milliseconds ShortestPatience = seconds(1);
constexpr std::size_t FewestSamples = 4;
constexpr double GreatestDeviation = 0.25;

seconds rounded(double remaining)
{
    const int step = remaining > 120 ? 30 : 5;
    return seconds(qint64(std::ceil(remaining / step)) * step);
}

} // namespace

void RemainingTime::take(double share, milliseconds now)
{
    if (!m_samples.empty()) {
        const auto &last = m_samples.back();
        if (share < last.share)
            clear();
        else if (share == last.share || now - last.time < ShortestStep)
            return;
    }
    m_samples.push_back({ share, now });
    while (m_samples.size() > FewestSamples && now - m_samples.front().time > Window)
        m_samples.pop_front();
}

void RemainingTime::clear()
{
    m_samples.clear();
}

std::optional<seconds> RemainingTime::forecast(milliseconds now) const
{
    if (m_samples.size() < FewestSamples)
        return std::nullopt;
    const auto &first = m_samples.front();
    const auto &last = m_samples.back();
    if (last.time - first.time < ShortestSpan)
        return std::nullopt;

    const auto middleTime = first.time + (last.time - first.time) / 2;
    const auto middle =
        std::find_if(std::next(m_samples.begin()), std::prev(m_samples.end(), 2),
                     [middleTime](const Sample &sample) { return sample.time >= middleTime; });
    const auto rate = [](const Sample &from, const Sample &to) {
        return (to.share - from.share) / std::chrono::duration<double>(to.time - from.time).count();
    };
    const double firstHalf = rate(first, *middle);
    const double secondHalf = rate(*middle, last);
    if (std::abs(firstHalf - secondHalf) > GreatestDeviation * std::max(firstHalf, secondHalf))
        return std::nullopt;

    milliseconds longestWait = ShortestPatience;
    for (auto sample = std::next(m_samples.begin()); sample != m_samples.end(); ++sample)
        longestWait = std::max(longestWait, sample->time - std::prev(sample)->time);
    if (now - last.time > 2 * longestWait)
        return std::nullopt;

    const double sinceLast = std::chrono::duration<double>(now - last.time).count();
    return rounded(std::max(1.0, (1 - last.share) / rate(first, last) - sinceLast));
}

} // namespace Velmar::Host
