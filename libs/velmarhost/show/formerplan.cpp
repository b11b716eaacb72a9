#include "show/formerplan.h"

#include "run/verdict.h"
#include "show/recordedrun.h"
#include "show/runrecord.h"

namespace Velmar::Host {

namespace {

bool hasKnownEnd(const RecordedRun &run)
{
    const auto verdict = run.verdict();
    return verdict
        && verdict->value(QLatin1String("kind")).toString()
        != verdictKindWord(VerdictKind::Unconfirmed);
}

} // namespace

std::optional<Plan> formerPlan(const QString &serial, const QString &baseFolder)
{
    if (serial.isEmpty())
        return std::nullopt;
    const auto runs = runRecords(baseFolder);
    for (auto entry = runs.rbegin(); entry != runs.rend(); ++entry) {
        QString errorText;
        const auto run = readRunRecord(*entry, errorText);
        if (!run || !run->plan)
            continue;
        auto plan = Plan::fromJson(*run->plan, errorText);
        if (!plan || plan->device.serial != serial)
            continue;
        if (hasKnownEnd(*run))
            return std::nullopt;
        return plan;
    }
    return std::nullopt;
}

} // namespace Velmar::Host
