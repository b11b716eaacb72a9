#include "commandline.h"

#include "console.h"
#include "show/printable.h"

#include <velmarssproxy/framecodec.h>

#include <QCommandLineOption>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

const auto Help = QStringLiteral("help");
const auto Device = QStringLiteral("device");
const auto Timeout = QStringLiteral("timeout");

} // namespace

CommandLine::CommandLine(const QString &usage, const QString &description)
    : m_usage(usage)
{
    m_parser.setApplicationDescription(description);
    m_parser.addOption({ { QStringLiteral("h"), Help }, QStringLiteral("Show this help.") });
}

void CommandLine::addArgument(const QString &name, const QString &description)
{
    m_parser.addPositionalArgument(name, description);
    ++m_argumentCount;
}

void CommandLine::addOption(const QString &name, const QString &description,
                            const QString &valueName, const QString &defaultValue)
{
    m_parser.addOption(QCommandLineOption(name, description, valueName, defaultValue));
}

void CommandLine::addDevice()
{
    addOption(Device,
              QStringLiteral("The device: a name or address, with its TCP port unless that is %1.")
                  .arg(SSProxy::DefaultDevicePort),
              QStringLiteral("HOST[:PORT]"));
}

void CommandLine::addCatalogue()
{
    addOption(QStringLiteral("catalogue"),
              QStringLiteral("Device catalogue to use in place of the built-in one."),
              QStringLiteral("FILE"));
}

void CommandLine::addTimeout()
{
    addOption(Timeout,
              QStringLiteral("Give up after so long, from 1 to 86400; 3600 unless set. The device "
                             "is not interrupted."),
              QStringLiteral("SECONDS"), QStringLiteral("3600"));
}

void CommandLine::addVerbose()
{
    m_parser.addOption({ { QStringLiteral("v"), QStringLiteral("verbose") },
                         QStringLiteral("Show the log of the library and the device layers.") });
}

std::optional<HostExitCode> CommandLine::parse(const QStringList &arguments)
{
    const auto seeHelp =
        QStringLiteral("See velmar-upgrade %1 --help").arg(m_usage.section(QLatin1Char(' '), 0, 0));
    // The parser takes the first word for the program's name.
    const bool isParsed = m_parser.parse(QStringList(QStringLiteral("velmar-upgrade")) + arguments);
    if (m_parser.isSet(Help)) {
        const auto generic = m_parser.helpText(); // begins with a line of usage without the verb
        printLine(QStringLiteral("Usage: velmar-upgrade %1").arg(m_usage));
        printLine(generic.mid(generic.indexOf(QLatin1Char('\n')) + 1).trimmed());
        return HostExitCode::Ok;
    }
    if (!isParsed) // the parser's sentence has its full stop
        return complain(HostExitCode::Usage,
                        QStringLiteral("%1 %2").arg(printable(m_parser.errorText()), seeHelp));
    const auto positional = m_parser.positionalArguments();
    if (positional.size() < m_argumentCount)
        return complain(HostExitCode::Usage, QStringLiteral("No package is named. ") + seeHelp);
    if (positional.size() > m_argumentCount)
        return complain(HostExitCode::Usage,
                        QStringLiteral("Unexpected argument \"%1\". %2")
                            .arg(printable(positional.at(m_argumentCount)), seeHelp));
    return std::nullopt;
}

bool CommandLine::isSet(const QString &option) const
{
    return m_parser.isSet(option);
}

QString CommandLine::value(const QString &option) const
{
    return m_parser.value(option);
}

QStringList CommandLine::values(const QString &option) const
{
    return m_parser.values(option);
}

QString CommandLine::argument() const
{
    return m_parser.positionalArguments().constFirst();
}

std::optional<DeviceAddress> CommandLine::deviceAddress() const
{
    if (!isSet(Device)) {
        complain(HostExitCode::Usage,
                 QStringLiteral("No device is named. Add --device HOST[:PORT]"));
        return std::nullopt;
    }
    QString errorText;
    auto address = DeviceAddress::parse(value(Device), SSProxy::DefaultDevicePort, errorText);
    if (!address)
        complain(HostExitCode::Usage, QStringLiteral("--device: ") + errorText);
    return address;
}

std::optional<int> CommandLine::number(const QString &option, int least, int greatest) const
{
    bool isNumber = false;
    const int result = value(option).toInt(&isNumber);
    if (isNumber && result >= least && result <= greatest)
        return result;
    complain(HostExitCode::Usage,
             QStringLiteral("--%1: \"%2\" is no number from %3 to %4")
                 .arg(option, printable(value(option)), QString::number(least),
                      QString::number(greatest)));
    return std::nullopt;
}

std::optional<std::chrono::milliseconds> CommandLine::timeLimit() const
{
    const auto seconds = number(Timeout, 1, 86400);
    if (!seconds)
        return std::nullopt;
    return std::chrono::seconds(*seconds);
}
