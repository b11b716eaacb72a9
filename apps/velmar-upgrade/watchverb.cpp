#include "verbs.h"

#include "conduct.h"
#include "show/formerplan.h"
#include "steps.h"

using namespace Velmar::Host;

HostExitCode watchVerb(const CommandLine &options)
{
    UpgradeWish wish;
    wish.goal = Goal::Watch;
    const auto address = options.deviceAddress();
    if (!address || !useCatalogue(options))
        return HostExitCode::Usage;
    wish.device = *address;
    if (options.isSet("catalogue"))
        wish.cataloguePath = libraryPath(options.value("catalogue"));
    wish.mayRestart = options.isGiven("restart");
    wish.formerPlan = [](const QString &serial) {
        return formerPlan(serial);
    };
    return conduct(wish, options);
}
