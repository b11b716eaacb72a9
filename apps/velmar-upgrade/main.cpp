#include "console.h"
#include "show/printable.h"
#include "verbs.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <iterator>

using namespace Velmar::Host;

namespace {

struct Verb {
    const char *name;
    HostExitCode (*run)(const QStringList &arguments);
};

constexpr Verb Verbs[] = {
    { "inspect", inspectVerb },
    { "run", runVerb },
    { "watch", watchVerb },
    { "devices", devicesVerb },
};

constexpr char Help[] = R"(Usage: velmar-upgrade VERB [options]
Upgrades the firmware of networked display-processing devices.

Verbs:
  inspect PACKAGE   Show what a package holds, and what of it fits a device.
  run PACKAGE       Upgrade a device with a package.
  watch             Watch an installation that is already running on a device.
  devices           Look for devices on the network.

velmar-upgrade VERB --help explains the options of a verb.
velmar-upgrade --version prints the version.
)";

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments().mid(1);
    const QString first = words.value(0);
    if (first == QLatin1String("--version")) {
        std::puts("velmar-upgrade " VELMAR_VERSION);
        return 0;
    }
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        std::fputs(Help, stdout);
        return 0;
    }
    const auto *verb = std::find_if(std::begin(Verbs), std::end(Verbs), [&first](const Verb &each) {
        return first == QLatin1String(each.name);
    });
    if (verb == std::end(Verbs)) {
        return static_cast<int>(complain(
            HostExitCode::Usage,
            first.isEmpty() ? QStringLiteral("No verb is given. See velmar-upgrade --help")
                            : QStringLiteral("There is no verb \"%1\". See velmar-upgrade --help")
                                  .arg(printable(first))));
    }
    return static_cast<int>(verb->run(words.mid(1)));
}
