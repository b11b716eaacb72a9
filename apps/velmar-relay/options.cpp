#include "options.h"

#include "programtable.h"

#include <velmarcommandline/command.h>
#include <velmarcommandline/helptext.h>

namespace Velmar::Relay {

namespace {

bool readAddress(const QString &text, bool needsPort, QHostAddress &address, quint16 &port)
{
    const int colon = text.indexOf(QLatin1Char(':'));
    if (!address.setAddress(text.left(colon)) || !address.isLoopback()
        || address.protocol() != QAbstractSocket::IPv4Protocol)
        return false;
    if (colon < 0)
        return !needsPort;
    bool isPort = false;
    port = text.mid(colon + 1).toUShort(&isPort);
    return isPort && (port != 0 || !needsPort);
}

Plan::Action faultOf(const QString &word, Plan::Action otherwise)
{
    if (word == QLatin1String("reset"))
        return Plan::Action::Reset;
    if (word == QLatin1String("close"))
        return Plan::Action::Close;
    if (word == QLatin1String("stall"))
        return Plan::Action::Stall;
    return word == QLatin1String("trickle") ? Plan::Action::Trickle : otherwise;
}

} // namespace

std::optional<Options> Options::parse(const QStringList &arguments, QString &errorText)
{
    const Cli::ParseResult result = Cli::parse(RelayProgram, arguments.mid(1));
    Options options;
    switch (result.kind) {
    case Cli::ParseResult::Kind::Help:
        options.action = Action::ShowHelp;
        return options;
    case Cli::ParseResult::Kind::Version:
        options.action = Action::ShowVersion;
        return options;
    case Cli::ParseResult::Kind::Error:
        errorText = result.errorText;
        return {};
    case Cli::ParseResult::Kind::Command:
        break;
    }
    const Cli::Command &command = *result.command;
    Settings &settings = options.settings;
    settings.plan.action = faultOf(command.value("fault"), settings.plan.action);
    settings.plan.isAnswer = command.isSet("answers");
    settings.plan.at = command.number("at");
    settings.plan.bytesPerSecond = command.number("pace");
    if (command.isSet("connection"))
        settings.connection = int(command.number("connection"));
    const QString expectation = QStringLiteral(
        "--%1: %2 is not an IPv4 loopback address (127.0.0.0/8)%3. See velmar-relay --help");
    if (!readAddress(command.value("listen"), false, settings.address, settings.port))
        errorText = expectation.arg(QStringLiteral("listen"), Cli::quoted(command.value("listen")),
                                    QStringLiteral(", with or without a port"));
    else if (!command.isSet("to"))
        errorText = QStringLiteral("--to is missing. See velmar-relay --help");
    else if (!readAddress(command.value("to"), true, settings.deviceAddress, settings.devicePort))
        errorText = expectation.arg(QStringLiteral("to"), Cli::quoted(command.value("to")),
                                    QStringLiteral(" with a port"));
    if (!errorText.isEmpty())
        return {};
    return options;
}

QString Options::helpText()
{
    return Cli::helpText(RelayProgram);
}

} // namespace Velmar::Relay
