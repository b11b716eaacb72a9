#include "commands.h"
#include "interruption.h"
#include "show/printable.h"

#include <QCoreApplication>
#include <QDebug>

#include <cstdio>

namespace {

constexpr int LongestMessage = 8192; // characters: no more than two of the longest paths

// Qt's own handler may send a message to the system's journal instead. What a message quotes may be
// from a manifest or an image of somebody else.
void writeMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    std::fprintf(stderr, "velmar-package: %s\n",
                 qUtf8Printable(Velmar::Host::printable(text, LongestMessage)));
}

} // namespace

int main(int argc, char *argv[])
{
    using namespace Velmar::Package;

    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(writeMessage);
    CommandLine commandLine;
    QString errorText;
    if (!parseCommandLine(QCoreApplication::arguments(), commandLine, errorText)) {
        qCritical().noquote() << errorText;
        return int(ExitCode::Usage);
    }
    const Interruption interruption;
    const ExitCode code = run(commandLine);
    if (code != ExitCode::Ok)
        interruption.endProcessIfInterrupted();
    return int(code);
}
