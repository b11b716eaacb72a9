#include "programtable.h"

#include "faults.h"

#include <limits>

namespace Velmar::Simulator {

using namespace Cli;

namespace {

constexpr qint64 MaxMs = std::numeric_limits<int>::max();

std::vector<Section::Item> faultItems()
{
    std::vector<Section::Item> items;
    for (const FaultDescription &fault : Faults::descriptions()) {
        QString term = QLatin1String(fault.name);
        QString text = QString::fromUtf8(fault.help);
        if (fault.valueName != nullptr) {
            const bool isOptional = fault.defaultValue >= fault.minimum;
            term += QString::fromLatin1(isOptional ? "[=%1]" : "=%1").arg(Faults::valueText(fault));
            if (isOptional)
                text += QString::fromLatin1(" Default: %1.").arg(Faults::defaultText(fault));
        }
        items.push_back({ term, text });
    }
    return items;
}

QStringList faultNames()
{
    QStringList names;
    for (const FaultDescription &fault : Faults::descriptions())
        names.append(QLatin1String(fault.name));
    return names;
}

QStringList probePortWords()
{
    return { QStringLiteral("off") };
}

constexpr const char *Generations[] = { "older", "newer", "none" };

constexpr Option DeviceOptions[] = {
    Option("listen", "IPv4 loopback address and TCP port for hosts; port 0: any.")
        .value("ADDR[:PORT]")
        .orElse("127.0.0.1:9720"),
    Option("probe-port", "UDP port on which hosts look for devices; 0: any.")
        .value("PORT|off")
        .suggest(probePortWords)
        .orElse("9721"),
    Option("catalogue", "Catalogue of device and card models, in place of the built-in one.")
        .file("FILE"),
    Option("model", "Model of the device; the catalogue's first unless set.").value("NAME|ID"),
    Option("card",
           "A fitted card, its model by name or id, its board (the model's first unless told). "
           "Without --card, one card of each board that the device takes is fitted.")
        .value("SLOT=MODEL[:BOARD]")
        .repeatable(),
    Option("no-cards", "Fit no card at all."),
    Option("serial", "Serial number; made up at the first start unless set.").value("TEXT"),
    Option("name", "Name of the device; that of its model unless set.").value("TEXT"),
    Option("file-version",
           "Version that the device reports for its section \"fileVersion\" until an image brings "
           "another; 1.1.0.0 at the first start unless set.")
        .value("VERSION"),
    Option("state", "Folder for all that the device remembers; a temporary one unless set.")
        .folder("FOLDER"),
    Option("trace", "Append each request and answer to this file, as a JSON line.").file("FILE"),
    Option("install-ms", "How long an installation takes at least.")
        .number("MS", 0, MaxMs)
        .orElse("10000"),
    Option("restart-ms", "How long the device is away for a restart.")
        .number("MS", 0, MaxMs)
        .orElse("5000"),
    Option("heartbeat-ms", "How long a host may be silent before it is dropped.")
        .number("MS", 1, MaxMs)
        .orElse("15000"),
    Option("generation",
           "Generation of the HTTP service, which listens on port 8080 of the same address; with "
           "none there is no such service.")
        .word("GENERATION", Generations)
        .orElse("none"),
    Option("fault", "Do something wrong, see below; of two with one name the later counts.")
        .value("NAME[=N]")
        .suggest(faultNames)
        .repeatable(),
    helpOption(),
    versionOption(),
};

constexpr const char *Usage[] = { "[options]" };

constexpr ExitStatus Statuses[] = {
    { 0, "SIGTERM or SIGINT." },
    { 1,
      "The device cannot start: a port or the state folder is in use, a file cannot be "
      "written." },
    { 64, "The options are wrong, the catalogue is broken, or it has no such model or card." },
};

constexpr Section Sections[] = { { "Faults", faultItems } };

constexpr Example Examples[] = {
    { "A device on the usual ports, with three cards:",
      "velmar-device --card 1=SI-H4 --card 2=SI-H4 --card 3=SI-H4" },
    { "A device that remembers, and loses its connection once in the middle of a transfer:",
      "velmar-device --listen 127.0.0.1:0 --state /tmp/box --fault cut-transfer=50" },
};

constexpr const char *SeeAlso[] = { "velmar-upgrade(1)", "velmar-package(1)" };

} // namespace

constexpr Program DeviceProgram = {
    "velmar-device",
    "Simulates a networked display-processing device.",
    "Behaves as a device on the network would: takes images, installs them and restarts. Prints a "
    "JSON line on standard output when hosts can connect and when it restarts. SIGTERM and SIGINT "
    "switch it off.",
    Usage,
    {},
    DeviceOptions,
    {},
    {},
    {},
    nullptr,
    Statuses,
    {},
    {},
    Sections,
    Examples,
    SeeAlso,
    true, // a script's usual options stand in front of those of the moment
};

} // namespace Velmar::Simulator
