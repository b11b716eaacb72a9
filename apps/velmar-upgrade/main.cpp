#include "commandline.h"
#include "console.h"
#include "verbs.h"
#include "worker/workermain.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <algorithm>
#include <clocale>
#include <csignal>
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
    // Help, the version and errors of the command line are told before Qt is started.
    // Words, names of files and what is written are UTF-8 whatever the locale says: those of a package
    // are, and so is JSON.
    QStringList words;
    for (int i = 1; i < argc; ++i)
        words.append(QString::fromUtf8(argv[i]));
    auto code = HostExitCode::Ok;
    const auto options = readCommandLine(words, code);
    if (!options)
        return static_cast<int>(code);
    const QCoreApplication application(argc, argv);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    std::setlocale(LC_CTYPE, "C.UTF-8"); // for the width of what is written
    // A file that gets too large for a limit of the system is an error that is told, as a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    // Not for people, and so in no help: each upgrade runs in a process that the program starts
    // of itself.
    if (options->verb()->isHidden)
        workerMain();
    const auto *handler =
        std::find_if(std::begin(Handlers), std::end(Handlers), [&options](const Handler &each) {
            return qstrcmp(options->verb()->name, each.verb) == 0;
        });
    if (handler == std::end(Handlers))
        qFatal("nothing carries out %s", options->verb()->name);
    code = handler->run(*options);
    // The look-up of a name that an interrupt has called off would be waited for.
    if (code == HostExitCode::Interrupted)
        leaveProcess(code);
    return static_cast<int>(code);
}
