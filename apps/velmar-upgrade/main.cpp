#include "commandline.h"
#include "verbs.h"
#include "worker/workermain.h"

#include <QCoreApplication>

#include <algorithm>
#include <iterator>

using namespace Velmar::Host;

namespace {

struct Handler {
    const char *verb;
    HostExitCode (*run)(const CommandLine &options);
};

constexpr Handler Handlers[] = {
    { "devices", devicesVerb }, { "versions", versionsVerb }, { "inspect", inspectVerb },
    { "plan", planVerb },       { "run", runVerb },           { "watch", watchVerb },
    { "status", statusVerb },   { "report", reportVerb },
};

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    // Not for people, and so in no help: each upgrade runs in a process that the program starts
    // of itself.
    if (QCoreApplication::arguments().mid(1) == QStringList(QStringLiteral("worker")))
        workerMain();
    auto code = HostExitCode::Ok;
    const auto options = readCommandLine(QCoreApplication::arguments().mid(1), code);
    if (!options)
        return static_cast<int>(code);
    const auto *handler =
        std::find_if(std::begin(Handlers), std::end(Handlers), [&options](const Handler &each) {
            return qstrcmp(options->verb()->name, each.verb) == 0;
        });
    if (handler == std::end(Handlers))
        qFatal("nothing carries out %s", options->verb()->name);
    return static_cast<int>(handler->run(*options));
}
