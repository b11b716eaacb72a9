#include "options.h"

#include "httpservice.h"

#include <QCommandLineParser>

#include <algorithm>
#include <limits>

namespace Velmar::Simulator {

namespace {

void describeOptions(QCommandLineParser &parser)
{
    const DeviceSettings defaults;
    const auto text = [](const char *format, int value) {
        return QString::fromLatin1(format).arg(value);
    };
    const auto option = [&parser](const char *name, const char *value, const QString &description) {
        parser.addOption(
            QCommandLineOption(QLatin1String(name), description, QLatin1String(value)));
    };
    const auto flag = [&parser](const QStringList &names, const char *description) {
        parser.addOption(QCommandLineOption(names, QLatin1String(description)));
    };
    parser.setApplicationDescription(
        QStringLiteral("Behaves as a device on the network would: takes images, installs them and\n"
                       "restarts.\n"
                       "Prints a JSON line on standard output when hosts can connect and when it\n"
                       "restarts.\n"
                       "SIGTERM and SIGINT switch it off."));
    option("listen", "ADDR[:PORT]",
           text("IPv4 loopback address and TCP port for hosts; port 0: any (default "
                "127.0.0.1:%1).",
                defaults.port));
    option("probe-port", "PORT|off",
           text("UDP port on which hosts look for devices; 0: any (default %1).",
                *defaults.probePort));
    option("catalogue", "FILE",
           QStringLiteral("Catalogue of device and card models (default: the built-in one)."));
    option("model", "NAME|ID",
           QStringLiteral("Model of the device (default: the catalogue's first)."));
    option("card", "SLOT=MODEL[:BOARD]",
           QStringLiteral("A fitted card, its model by name or id, its board (default: the model's "
                          "first). Repeatable. Without --card, one card of each board that the "
                          "device takes is fitted."));
    flag({ QStringLiteral("no-cards") }, "Fits no card at all.");
    option("serial", "TEXT",
           QStringLiteral("Serial number (default: made up at the first start)."));
    option("name", "TEXT", QStringLiteral("Name of the device (default: that of its model)."));
    option("file-version", "VERSION",
           QStringLiteral("Version that the device reports for its section \"fileVersion\" until "
                          "an image brings another (default: %1 at the first start).")
               .arg(QLatin1String(SimulatedDevice::FirstFileVersion)));
    option("state", "DIR",
           QStringLiteral("Folder for all that the device remembers (default: a temporary one)."));
    option("trace", "FILE",
           QStringLiteral("Appends each request and answer to FILE, as a JSON line."));
    option("install-ms", "MS",
           text("How long an installation takes at least (default %1).", defaults.installMs));
    option("restart-ms", "MS",
           text("How long the device is away for a restart (default %1).", defaults.restartMs));
    option("heartbeat-ms", "MS",
           text("How long a host may be silent before it is dropped (default %1).",
                defaults.heartbeatMs));
    option("generation", "older|newer|none",
           text("Generation of the HTTP service, which listens on port %1 of the same address "
                "(default none: there is no such service).",
                HttpService::Port));
    option("fault", "NAME[=N]", QStringLiteral("Does something wrong, see below. Repeatable."));
    flag({ QStringLiteral("h"), QStringLiteral("help") }, "Shows this text.");
    flag({ QStringLiteral("version") }, "Shows the version.");
}

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
    ValueReader(const QCommandLineParser &parser, QString &errorText)
        : m_parser(parser)
        , m_errorText(errorText)
    {
    }

    int milliseconds(const char *name, int minimum, int defaultValue)
    {
        if (!m_parser.isSet(QLatin1String(name)))
            return defaultValue;
        constexpr int Maximum = std::numeric_limits<int>::max();
        const int value = digits(m_parser.value(QLatin1String(name)), Maximum).value_or(-1);
        if (value < minimum)
            fail(name,
                 QString::fromLatin1("a number of milliseconds from %1 to %2")
                     .arg(minimum)
                     .arg(Maximum));
        return value;
    }

    std::optional<quint16> probePort(std::optional<quint16> defaultValue)
    {
        const QString value = m_parser.value(QStringLiteral("probe-port"));
        if (!m_parser.isSet(QStringLiteral("probe-port")))
            return defaultValue;
        if (value == QLatin1String("off"))
            return {};
        return port(value, "probe-port", QStringLiteral("a port from 0 to 65535 or \"off\""));
    }

    void listen(QHostAddress &address, quint16 &portNumber)
    {
        const QString value = m_parser.value(QStringLiteral("listen"));
        if (!m_parser.isSet(QStringLiteral("listen")))
            return;
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
        const QString value = m_parser.value(QLatin1String(name));
        if (value.size() > SimulatedDevice::MaxTextLength)
            fail(name,
                 QString::fromLatin1("a text of at most %1 characters")
                     .arg(SimulatedDevice::MaxTextLength));
        return value;
    }

    QString version(const char *name)
    {
        const QString value = m_parser.value(QLatin1String(name));
        if (!m_parser.isSet(QLatin1String(name)))
            return {};
        const QStringList parts = value.split(QLatin1Char('.'));
        bool isVersion = parts.size() == 4;
        for (const QString &part : parts)
            isVersion = isVersion && digits(part, 255).has_value();
        if (!isVersion)
            fail(name, QStringLiteral("a version such as 1.2.3.4, each part up to 255"));
        return value;
    }

    Generation generation()
    {
        const QString value = m_parser.value(QStringLiteral("generation"));
        if (value == QLatin1String("older"))
            return Generation::Older;
        if (value == QLatin1String("newer"))
            return Generation::Newer;
        if (m_parser.isSet(QStringLiteral("generation")) && value != QLatin1String("none"))
            fail("generation", QStringLiteral("\"older\", \"newer\" or \"none\""));
        return Generation::None;
    }

    void fail(const char *name, const QString &expectation)
    {
        if (m_errorText.isEmpty())
            m_errorText =
                QString::fromLatin1("The value \"%1\" of --%2 is not %3.")
                    .arg(m_parser.value(QLatin1String(name)), QLatin1String(name), expectation);
    }

private:
    quint16 port(const QString &text, const char *name, const QString &expectation)
    {
        const std::optional<int> number = digits(text, 65535);
        if (!number)
            fail(name, expectation);
        return quint16(number.value_or(0));
    }

    const QCommandLineParser &m_parser;
    QString &m_errorText;
};

} // namespace

std::optional<Options> Options::parse(const QStringList &arguments, QString &errorText)
{
    errorText.clear();
    QCommandLineParser parser;
    describeOptions(parser);
    if (!parser.parse(arguments)) {
        errorText = parser.errorText();
        return {};
    }
    Options options;
    if (parser.isSet(QStringLiteral("help"))) {
        options.action = Action::ShowHelp;
        return options;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        options.action = Action::ShowVersion;
        return options;
    }
    if (!parser.positionalArguments().isEmpty())
        errorText = QString::fromLatin1("\"%1\" is not an option.")
                        .arg(parser.positionalArguments().constFirst());

    ValueReader values(parser, errorText);
    DeviceSettings &device = options.device;
    values.listen(device.address, device.port);
    device.probePort = values.probePort(device.probePort);
    device.fileVersion = values.version("file-version");
    device.installMs = values.milliseconds("install-ms", 0, device.installMs);
    device.restartMs = values.milliseconds("restart-ms", 0, device.restartMs);
    device.heartbeatMs = values.milliseconds("heartbeat-ms", 1, device.heartbeatMs);
    device.generation = values.generation();
    device.serial = values.text("serial");
    device.name = values.text("name");
    device.statePath = parser.value(QStringLiteral("state"));
    device.tracePath = parser.value(QStringLiteral("trace"));
    for (const QString &fault : parser.values(QStringLiteral("fault"))) {
        QString faultError;
        if (!device.faults.add(fault, faultError) && errorText.isEmpty())
            errorText = faultError;
    }
    options.catalogue = parser.value(QStringLiteral("catalogue"));
    options.model = parser.value(QStringLiteral("model"));
    options.cards = parser.values(QStringLiteral("card"));
    const bool hasNoCards = parser.isSet(QStringLiteral("no-cards"));
    options.isFullyFitted = options.cards.isEmpty() && !hasNoCards;
    if (hasNoCards && !options.cards.isEmpty() && errorText.isEmpty())
        errorText = QStringLiteral("--card and --no-cards exclude each other.");
    if (!errorText.isEmpty())
        return {};
    return options;
}

QString Options::helpText()
{
    QCommandLineParser parser;
    describeOptions(parser);
    return parser.helpText() + QLatin1String("\nFaults:\n") + Faults::helpText()
        + QStringLiteral(
               "\nThe exit status is 0 after SIGTERM or SIGINT, 64 if the options or the\n"
               "catalogue are wrong, and 1 if the device cannot start.\n");
}

} // namespace Velmar::Simulator
