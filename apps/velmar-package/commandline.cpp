#include "commandline.h"

#include "programtable.h"

#include <velmarcommandline/command.h>
#include <velmarcommandline/helptext.h>

namespace Velmar::Package {

namespace {

constexpr struct {
    const char *verb;
    CommandLine::Action action;
} Actions[] = {
    { "create", CommandLine::Action::Create },
    { "image", CommandLine::Action::Image },
    { "encipher", CommandLine::Action::Encipher },
    { "decipher", CommandLine::Action::Decipher },
};

} // namespace

bool parseCommandLine(const QStringList &arguments, CommandLine &commandLine, QString &errorText)
{
    const Cli::ParseResult result = Cli::parse(PackageProgram, arguments.mid(1));
    switch (result.kind) {
    case Cli::ParseResult::Kind::Help:
        commandLine.action = CommandLine::Action::Help;
        commandLine.help = Cli::helpText(PackageProgram, result.verb);
        return true;
    case Cli::ParseResult::Kind::Version:
        commandLine.action = CommandLine::Action::Version;
        return true;
    case Cli::ParseResult::Kind::Error:
        errorText = result.errorText;
        return false;
    case Cli::ParseResult::Kind::Command:
        break;
    }
    for (const auto &each : Actions) {
        if (qstrcmp(each.verb, result.verb->name) == 0)
            commandLine.action = each.action;
    }
    const Cli::Command &command = *result.command;
    const bool isImage = commandLine.action == CommandLine::Action::Image;
    commandLine.input = command.arguments().value(0);
    commandLine.output = command.arguments().value(1);
    commandLine.keyFile = isImage ? QString() : command.value("key-file");
    commandLine.json = isImage && command.isSet("json");
    commandLine.force = !isImage && command.isSet("force");
    return true;
}

} // namespace Velmar::Package
