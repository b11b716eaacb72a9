#include "options.h"

#include "programtable.h"

#include <velmarcommandline/command.h>
#include <velmarcommandline/helptext.h>

#include <algorithm>

namespace Velmar::Simulator {

namespace {

/*! The decimal number \a text, digits and nothing else; without a value if it is none or above
    \a maximum. */
std::optional<int> digits(const QString &text, int maximum)
{
    const auto isDigit = [](QChar letter) {
        return letter >= QLatin1Char('0') && letter <= QLatin1Char('9');
    };
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (!isNumber || number > maximum || !std::all_of(text.begin(), text.end(), isDigit))
        return {};
    return number;
}

/*! Reads the values of single options; remembers the first fault. */
class ValueReader
{
public:
    ValueReader(const Cli::Command &command, QString &errorText)
        : m_command(command)
        , m_errorText(errorText)
    {
    }

    std::optional<quint16> probePort()
    {
        const QString value = m_command.value("probe-port");
        if (value == QLatin1String("off"))
            return {};
        return port(value, "probe-port", QStringLiteral("a port from 0 to 65535 or \"off\""));
    }

    void listen(QHostAddress &address, quint16 &portNumber)
    {
        const QString value = m_command.value("listen");
        const int colon = value.indexOf(QLatin1Char(':'));
        const QString expectation =
            QStringLiteral("an IPv4 loopback address (127.0.0.0/8), with or without a port");
        if (!address.setAddress(value.left(colon))
            || address.protocol() != QAbstractSocket::IPv4Protocol || !address.isLoopback())
            fail("listen", expectation);
        if (colon >= 0)
            portNumber = port(value.mid(colon + 1), "listen", expectation);
    }

    QString text(const char *name)
    {
        const QString value = m_command.value(name);
        if (value.size() > SimulatedDevice::MaxTextLength)
            fail(name,
                 QString::fromLatin1("a text of at most %1 characters")
                     .arg(SimulatedDevice::MaxTextLength));
        return value;
    }

    QString version(const char *name)
    {
        const QString value = m_command.value(name);
        if (!m_command.isSet(name))
            return {};
        const QStringList parts = value.split(QLatin1Char('.'));
        bool isVersion = parts.size() == 4;
        for (const QString &part : parts)
            isVersion = isVersion && digits(part, 255).has_value();
        if (!isVersion)
            fail(name, QStringLiteral("a version such as 1.2.3.4, each part up to 255"));
        return value;
    }

    Generation generation() const
    {
        const QString value = m_command.value("generation");
        if (value == QLatin1String("older"))
            return Generation::Older;
        return value == QLatin1String("newer") ? Generation::Newer : Generation::None;
    }

    void fail(const char *name, const QString &expectation)
    {
        if (m_errorText.isEmpty())
            m_errorText =
                QString::fromLatin1("--%1: %2 is not %3.")
                    .arg(QLatin1String(name), Cli::quoted(m_command.value(name)), expectation);
    }

private:
    quint16 port(const QString &text, const char *name, const QString &expectation)
    {
        const std::optional<int> number = digits(text, 65535);
        if (!number)
            fail(name, expectation);
        return quint16(number.value_or(0));
    }

    const Cli::Command &m_command;
    QString &m_errorText;
};

} // namespace

std::optional<Options> Options::parse(const QStringList &arguments, QString &errorText)
{
    errorText.clear();
    const Cli::ParseResult result = Cli::parse(DeviceProgram, arguments.mid(1));
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
    ValueReader values(command, errorText);
    DeviceSettings &device = options.device;
    values.listen(device.address, device.port);
    device.probePort = values.probePort();
    device.fileVersion = values.version("file-version");
    device.installMs = int(command.number("install-ms"));
    device.restartMs = int(command.number("restart-ms"));
    device.heartbeatMs = int(command.number("heartbeat-ms"));
    device.generation = values.generation();
    device.serial = values.text("serial");
    device.name = values.text("name");
    device.statePath = command.value("state");
    device.tracePath = command.value("trace");
    for (const QString &fault : command.values("fault")) {
        QString faultError;
        if (!device.faults.add(fault, faultError) && errorText.isEmpty())
            errorText = QLatin1String("--fault: ") + faultError;
    }
    options.catalogue = command.value("catalogue");
    options.model = command.value("model");
    options.cards = command.values("card");
    const bool hasNoCards = command.isSet("no-cards");
    options.isFullyFitted = options.cards.isEmpty() && !hasNoCards;
    if (hasNoCards && !options.cards.isEmpty() && errorText.isEmpty())
        errorText = QStringLiteral("--card and --no-cards exclude each other.");
    if (errorText.isEmpty())
        return options;
    errorText += QLatin1Char(' ') + Cli::seeHelp(DeviceProgram, nullptr);
    return {};
}

QString Options::helpText()
{
    return Cli::helpText(DeviceProgram);
}

} // namespace Velmar::Simulator
