#include "commandline.h"

#include "console.h"
#include "options.h"

#include <velmarcommandline/helptext.h>
#include <velmarcommandline/settings.h>
#include <velmarssproxy/framecodec.h>

using namespace Velmar;
using namespace Velmar::Host;

CommandLine::CommandLine(const Cli::Command &command)
    : Command(command)
{
}

QString CommandLine::argument() const
{
    return arguments().value(0);
}

std::optional<DeviceAddress> CommandLine::deviceAddress() const
{
    if (!isSet("device")) {
        complain(VerdictCode::Usage,
                 QStringLiteral("No device is named. Add --device HOST[:PORT]"));
        return std::nullopt;
    }
    QString errorText;
    auto address = DeviceAddress::parse(value("device"), SSProxy::DefaultDevicePort, errorText);
    if (!address)
        complain(VerdictCode::Usage, QStringLiteral("--device: ") + errorText);
    return address;
}

std::chrono::milliseconds CommandLine::timeLimit() const
{
    return std::chrono::seconds(number("timeout"));
}

std::optional<CommandLine> readCommandLine(const QStringList &words, HostExitCode &code)
{
    if (words.contains(QStringLiteral("--json")))
        writeJson();
    auto result = Cli::parse(UpgradeProgram, words);
    code = HostExitCode::Ok;
    switch (result.kind) {
    case Cli::ParseResult::Kind::Help:
        print(Cli::helpText(UpgradeProgram, result.verb));
        return std::nullopt;
    case Cli::ParseResult::Kind::Version:
        print(QStringLiteral("velmar-upgrade " VELMAR_VERSION "\n"));
        return std::nullopt;
    case Cli::ParseResult::Kind::Error:
        code = complain(VerdictCode::Usage, result.errorText);
        return std::nullopt;
    case Cli::ParseResult::Kind::Command:
        break;
    }
    if (!result.verb->isHidden) {
        const auto environment = QProcessEnvironment::systemEnvironment();
        const QString file = result.command->isGiven("no-config")
            ? QString()
            : Cli::configurationPath(UpgradeProgram, environment);
        QString errorText;
        if (!Cli::addSettings(*result.command, environment, file, errorText)) {
            code = complain(VerdictCode::Usage, errorText);
            return std::nullopt;
        }
    }
    return CommandLine(*result.command);
}
