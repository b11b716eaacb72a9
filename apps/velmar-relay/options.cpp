#include "options.h"

#include <QCommandLineParser>

#include <limits>

namespace Velmar::Relay {

namespace {

const char Help[] = R"(Usage: velmar-relay --to ADDR:PORT [OPTIONS]

Passes TCP connections on to a device, of whatever protocol, and does something
wrong at a given byte of one direction. Prints a JSON line on standard output
when hosts can connect. Signals end it.

Options:
  --to ADDR:PORT        The device.
  --listen ADDR[:PORT]  IPv4 loopback address and port for hosts; port 0: any
                        (default 127.0.0.1:0).
  --fault NAME          One of the faults below; none unless set.
  --at BYTE             Bytes that pass before the fault (default 0).
  --answers             Count the bytes from the device; those from the host
                        otherwise.
  --connection NTH      Do it to this connection alone, counted from 1; to each
                        unless set.
  --pace BYTES          Bytes a second for "trickle" (default 1000).
  -h, --help            Show this text.
  --version             Show the version.

Faults:
  reset    Both ends get a reset.
  close    Both ends are closed behind what has passed.
  stall    Nothing more passes in this direction; the connections stay.
  trickle  The rest of this direction passes at a pace.

The exit status is 64 if the options are wrong, 1 if the relay cannot listen.
)";

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

bool readFault(const QString &name, Plan::Action &action)
{
    const struct {
        const char *name;
        Plan::Action action;
    } faults[] = { { "reset", Plan::Action::Reset },
                   { "close", Plan::Action::Close },
                   { "stall", Plan::Action::Stall },
                   { "trickle", Plan::Action::Trickle } };
    for (const auto &fault : faults) {
        if (name == QLatin1String(fault.name)) {
            action = fault.action;
            return true;
        }
    }
    return false;
}

} // namespace

std::optional<Options> Options::parse(const QStringList &arguments, QString &errorText)
{
    QCommandLineParser parser;
    const auto option = [&parser](const char *name) {
        parser.addOption(
            QCommandLineOption(QLatin1String(name), QString(), QStringLiteral("VALUE")));
    };
    for (const char *name : { "to", "listen", "fault", "at", "connection", "pace" })
        option(name);
    parser.addOptions({ { QStringLiteral("answers"), QString() },
                        { { QStringLiteral("h"), QStringLiteral("help") }, QString() },
                        { QStringLiteral("version"), QString() } });
    if (!parser.parse(arguments)) {
        errorText = parser.errorText();
        return {};
    }
    Options options;
    if (parser.isSet(QStringLiteral("help")) || parser.isSet(QStringLiteral("version"))) {
        options.action =
            parser.isSet(QStringLiteral("help")) ? Action::ShowHelp : Action::ShowVersion;
        return options;
    }
    Settings &settings = options.settings;
    const auto number = [&parser, &errorText](const char *name, qint64 minimum, qint64 maximum,
                                              qint64 otherwise) {
        if (!parser.isSet(QLatin1String(name)))
            return otherwise;
        bool isNumber = false;
        const qint64 value = parser.value(QLatin1String(name)).toLongLong(&isNumber);
        if (!isNumber || value < minimum || value > maximum)
            errorText = QString::fromLatin1("The value \"%1\" of --%2 is no number from %3 to %4.")
                            .arg(parser.value(QLatin1String(name)), QLatin1String(name))
                            .arg(minimum)
                            .arg(maximum);
        return value;
    };
    constexpr int MaxCount = std::numeric_limits<int>::max();
    settings.plan.isAnswer = parser.isSet(QStringLiteral("answers"));
    settings.plan.at = number("at", 0, std::numeric_limits<qint64>::max(), 0);
    settings.plan.bytesPerSecond = number("pace", 1, MaxCount, 1000);
    settings.connection = int(number("connection", 1, MaxCount, 0));
    if (parser.isSet(QStringLiteral("fault"))
        && !readFault(parser.value(QStringLiteral("fault")), settings.plan.action))
        errorText = QString::fromLatin1(
                        "There is no fault \"%1\"; the faults are reset, close, stall, trickle.")
                        .arg(parser.value(QStringLiteral("fault")));
    if (parser.isSet(QStringLiteral("listen"))
        && !readAddress(parser.value(QStringLiteral("listen")), false, settings.address,
                        settings.port))
        errorText = QStringLiteral("The value of --listen is not an IPv4 loopback address "
                                   "(127.0.0.0/8), with or without a port.");
    if (!readAddress(parser.value(QStringLiteral("to")), true, settings.deviceAddress,
                     settings.devicePort))
        errorText = QStringLiteral("The relay needs --to with an IPv4 loopback address "
                                   "(127.0.0.0/8) and a port.");
    if (!parser.positionalArguments().isEmpty())
        errorText = QString::fromLatin1("\"%1\" is not an option.")
                        .arg(parser.positionalArguments().constFirst());
    if (!errorText.isEmpty())
        return {};
    return options;
}

QString Options::helpText()
{
    return QString::fromLatin1(Help);
}

} // namespace Velmar::Relay
