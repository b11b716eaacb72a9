#include "verbs.h"

#include "conduct.h"
#include "console.h"
#include "plantext.h"
#include "upgradewishes.h"

#include <QJsonDocument>

using namespace Velmar::Host;

HostExitCode planVerb(const CommandLine &options)
{
    const auto wish = upgradeWish(options, Goal::Plan);
    if (!wish)
        return HostExitCode::Usage;
    return conduct(*wish, options, [&options](const Plan &plan) -> std::optional<Verdict> {
        QString errorText;
        if (options.isGiven("output") && !plan.save(options.value("output"), errorText))
            return verdict(VerdictCode::Usage, QStringLiteral("--output: ") + errorText);
        if (!options.isGiven("json")) // whose event has all of it
            print(planText(plan).join(QLatin1Char('\n')) + QLatin1Char('\n'));
        return std::nullopt;
    });
}
