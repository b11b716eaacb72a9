#include "verbs.h"

#include "conduct.h"
#include "console.h"
#include "upgradewishes.h"

using namespace Velmar::Host;

HostExitCode runVerb(const CommandLine &options)
{
    const auto wish = upgradeWish(options, Goal::Upgrade);
    if (!wish)
        return HostExitCode::Usage;
    const bool isAgreed = options.isGiven("yes");
    if (!isAgreed && options.isGiven("json"))
        return complain(VerdictCode::Usage,
                        QStringLiteral("With --json nobody is asked. Add --yes to upgrade without "
                                       "a question"));
    if (!isAgreed && !isInteractive())
        return complain(
            VerdictCode::Usage,
            QStringLiteral("Nobody can be asked: the input is no terminal. Add --yes to "
                           "upgrade without a question"));
    return conduct(*wish, options);
}
