#include "run/phase.h"

#include <algorithm>
#include <iterator>

namespace Velmar::Host {

namespace {

struct PhaseText {
    Phase phase;
    const char *word;
    const char *title;
};

constexpr PhaseText Texts[] = {
    { Phase::Copying, "copy", "Copying the package" },
    { Phase::Checking, "check", "Checking the package" },
    { Phase::Planning, "plan", "Planning" },
    { Phase::Preparing, "prepare", "Preparing" },
    { Phase::Sending, "send", "Sending" },
    { Phase::Installing, "install", "Installing" },
    { Phase::Restarting, "restart", "Restarting the device" },
    { Phase::Confirming, "confirm", "Confirming" },
};

const PhaseText &textOf(Phase phase)
{
    return *std::find_if(std::begin(Texts), std::end(Texts),
                         [phase](const PhaseText &text) { return text.phase == phase; });
}

} // namespace

QString phaseWord(Phase phase)
{
    return QLatin1String(textOf(phase).word);
}

std::optional<Phase> phaseOf(const QString &word)
{
    const auto *text =
        std::find_if(std::begin(Texts), std::end(Texts), [&word](const PhaseText &candidate) {
            return word == QLatin1String(candidate.word);
        });
    if (text == std::end(Texts))
        return std::nullopt;
    return text->phase;
}

QString phaseTitle(Phase phase)
{
    return QLatin1String(textOf(phase).title);
}

} // namespace Velmar::Host
