#include "options.h"

using namespace Velmar::Cli;

namespace {

// Options that several verbs have.

constexpr Option Device =
    Option("device", "The device: a name or an address, with its TCP port unless that is 9720.")
        .value("HOST[:PORT]")
        .setting("VELMAR_DEVICE");
constexpr Option Json =
    Option("json",
           "Write JSON on standard output, and nothing else there: a line for each event, the last "
           "with the verdict.");
constexpr Option KeyFile =
    Option("key-file", "Key of the enciphered files, in place of the demonstration key.")
        .file("FILE")
        .setting("VELMAR_KEY_FILE");
constexpr Option Timeout =
    Option("timeout",
           "Give up when the whole takes longer; the time for an answer to a question does not "
           "count. A device that installs is not interrupted.")
        .number("SECONDS", 1, 86400)
        .orElse("3600")
        .setting("VELMAR_TIMEOUT");
constexpr Option ReturnTimeout =
    Option("return-timeout", "How long the device may take to come back from its restart.")
        .number("SECONDS", 1, 86400)
        .orElse("300")
        .setting("VELMAR_RETURN_TIMEOUT");
constexpr Option StallTimeout =
    Option(
        "stall-timeout",
        "Give up when nothing is heard of the device for so long; unless set, 60 seconds, or "
        "over HTTP 120, or over the native link 150 while it checks what it got and 120 while it "
        "installs.")
        .number("SECONDS", 1, 86400)
        .setting("VELMAR_STALL_TIMEOUT");
constexpr Option Section =
    Option("section", "Upgrade sections of this name alone.").value("NAME").repeatable();
constexpr Option Card =
    Option("card",
           "Upgrade the card in this slot alone; \"main\" is the main control. With --section, the "
           "named sections on the named cards.")
        .value("SLOT")
        .repeatable();
constexpr const char *Roads[] = { "native", "http", "registers" };
constexpr Option Road =
    Option("road",
           "How the device gets its firmware: as one image over its native link, as a file to its "
           "HTTP service, or, for the main control's MCU alone, register by register.")
        .word("ROAD", Roads)
        .orElse("native");
constexpr Option File = Option("file",
                               "With --road http: the image to upload; built of what is chosen "
                               "unless set.")
                            .file("IMAGE");
constexpr Option Compatibility =
    Option("compatibility",
           "With --road http: let the device's version decide on the generation of its service; "
           "the newer one otherwise.");
constexpr Option HttpHost = Option("http-host",
                                   "With --road http: host of the service, which listens on port "
                                   "8080; the device's unless set.")
                                .value("HOST");

constexpr Option Catalogue =
    Option("catalogue", "Device catalogue to use in place of the built-in one.")
        .file("FILE")
        .setting("VELMAR_CATALOGUE");
constexpr Option Verbose =
    Option("verbose", "Show the log of the library and the device layers, with --json as events.")
        .letter('v');
constexpr Option LogFile =
    Option("log-file",
           "Append the log of the library and the device layers, warnings and the verdict to this "
           "file.")
        .file("FILE")
        .setting("VELMAR_LOG_FILE");

constexpr Argument Package = { "PACKAGE", "The package folder.", ValueKind::Folder };

// The verbs.

constexpr const char *DevicesUsage[] = { "[options]" };
constexpr Option DevicesOptions[] = {
    Option("probe-address",
           "Numeric address to ask, that of one device or a broadcast address, with the UDP port "
           "unless that is 9721.")
        .value("ADDRESS[:PORT]")
        .orElse("255.255.255.255")
        .setting("VELMAR_PROBE_ADDRESS"),
    Option("wait", "Milliseconds that the devices have to answer.")
        .number("MS", 1, 60000)
        .orElse("2000"),
    Catalogue,
    Json,
    Verbose,
    LogFile,
};

constexpr const char *VersionsUsage[] = { "--device HOST[:PORT] [options]" };
constexpr Option VersionsOptions[] = { Device, Catalogue, Json, Verbose, LogFile };

constexpr const char *InspectUsage[] = { "PACKAGE [options]" };
constexpr Argument InspectArguments[] = {
    { "PACKAGE", "A package folder, or an image configuration file.", ValueKind::File },
};
constexpr Option InspectOptions[] = {
    Device,
    Option("model",
           "Match with the main control of this model, by its name or number, in place of a "
           "device. Cards need a device.")
        .value("MODEL"),
    KeyFile,
    Catalogue,
    Json,
    Option("quiet", "Show no warnings beside what the package holds.").letter('q'),
    Verbose,
    LogFile,
};

constexpr Argument PlanArguments[] = { Package };
constexpr const char *PlanUsage[] = { "PACKAGE --device HOST[:PORT] [-o FILE] [options]" };
constexpr Option PlanOptions[] = {
    Device,
    Option("output", "Write the plan to this file, for run --plan.").letter('o').file("FILE"),
    Section,
    Card,
    Road,
    File,
    Compatibility,
    HttpHost,
    KeyFile,
    Catalogue,
    Json,
    Option("quiet", "Show nothing but the plan, warnings and errors.").letter('q'),
    Verbose,
    LogFile,
};

constexpr Argument RunArguments[] = {
    { "PACKAGE", "The package folder; without --plan.", ValueKind::Folder, true },
};
constexpr const char *RunUsage[] = { "PACKAGE --device HOST[:PORT] [options]",
                                     "--plan FILE [options]" };
constexpr Option RunOptions[] = {
    Device,
    Option("plan",
           "Carry this plan out. Package, device and choice are those of the plan; it is refused "
           "if package or device have changed since.")
        .file("FILE"),
    Section,
    Card,
    Road,
    File,
    Compatibility,
    HttpHost,
    StallTimeout,
    Option(
        "yes",
        "Do not ask before the upgrade. Needed where the input is no terminal, and with --json."),
    Timeout,
    ReturnTimeout,
    KeyFile,
    Catalogue,
    Json,
    Option("quiet", "Show nothing but the question, warnings and the verdict.").letter('q'),
    Verbose,
    LogFile,
};

constexpr const char *WatchUsage[] = { "--device HOST[:PORT] [options]" };
constexpr Option WatchOptions[] = {
    Device,        Option("restart", "Restart also a device whose installation has ended before."),
    StallTimeout,  Timeout,
    ReturnTimeout, Catalogue,
    Json,          Option("quiet", "Show nothing but warnings and the verdict.").letter('q'),
    Verbose,       LogFile,
};

constexpr const char *StatusUsage[] = { "--device HOST[:PORT] [options]" };
constexpr Option StatusOptions[] = { Device, Catalogue, Json, Verbose, LogFile };

constexpr Argument ReportArguments[] = {
    { "RUN", "The id of the run; the last one unless named.", ValueKind::Text, true },
};
constexpr const char *ReportUsage[] = { "[RUN] [options]" };
constexpr Option ReportOptions[] = {
    Option("output", "Write to this file; to standard output unless set.").letter('o').file("FILE"),
    Option("quiet", "Do not say where the file is.").letter('q'),
};

constexpr const char *WorkerUsage[] = { "" };

constexpr Verb Verbs[] = {
    { "devices",
      "Look for devices on the network.",
      "Looks for devices on the network and lists those that answer.",
      DevicesUsage,
      {},
      DevicesOptions },
    { "versions",
      "Show the versions that a device reports.",
      "Shows the version of each section that a device reports, of the main control and of each "
      "card. The device is not changed.",
      VersionsUsage,
      {},
      VersionsOptions },
    { "inspect", "Show what a package holds, and what of it fits a device.",
      "Shows the units, sections and files of a package and, with --device or --model, what of it "
      "fits. The package is copied and checked as for a run.",
      InspectUsage, InspectArguments, InspectOptions },
    { "plan", "Settle what a device would get of a package, without changing it.",
      "Checks a package, and shows what a device would get of it, in the order in which it is "
      "sent, "
      "and what is left out and why. With --output the plan is kept for run --plan, with hashes "
      "and the versions that the device has now.",
      PlanUsage, PlanArguments, PlanOptions },
    { "run", "Upgrade a device with a package.",
      "Upgrades a device with all that fits it of a package, or with the sections and cards that "
      "are named, restarts it, and confirms by its versions that it has got them.\n\n"
      "The first interrupt stops at the next safe point, or says why it goes on; the second leaves "
      "the device to go on by itself, and says how to watch it.",
      RunUsage, RunArguments, RunOptions },
    { "watch",
      "Watch an installation that is already running on a device.",
      "Watches an installation that is running on a device, for instance because the host that "
      "began it was left.\n\n"
      "At the end of the installation, be it good or bad, the device is restarted, as at the end "
      "of "
      "every upgrade.",
      WatchUsage,
      {},
      WatchOptions },
    { "status",
      "Show whether a device installs something, and how the last installation ended.",
      "Shows what a device is at: its model and serial number, whether it installs something and "
      "how far it is, or how its last installation ended. The device is not changed.",
      StatusUsage,
      {},
      StatusOptions },
    { "report", "Write a support file of a run.",
      "Writes one file with what is known of a run: its events, versions, plan and the library's "
      "log. Nothing else of the machine is in it.",
      ReportUsage, ReportArguments, ReportOptions },
    { "worker",
      "Carry out one upgrade for another process of this program.",
      "Reads an order on standard input and tells its course on standard output.",
      WorkerUsage,
      {},
      {},
      true },
};

constexpr Option Common[] = {
    Option("no-config", "Do not read the configuration file."),
    helpOption(),
};

constexpr Option Settings[] = {
    Option("work-folder",
           "Folder for the private copies of packages, in place of that in the cache folder.")
        .folder("FOLDER")
        .setting("VELMAR_WORK_FOLDER"),
    Option("worker-memory", "Mebibytes of memory that the process of an upgrade may take at most.")
        .number("MIB", 64, 65536)
        .orElse("512")
        .setting("VELMAR_WORKER_MEMORY"),
};

constexpr ExitStatus Statuses[] = {
    { 0, "Confirmed, there was nothing to do, or what was asked is answered." },
    { 1, "The upgrade failed, or what else was asked." },
    { 2, "The options or settings are wrong, or a file that one names cannot be used." },
    { 3,
      "There is no package, it is refused, nothing of it fits the device, or a plan is outdated." },
    { 4, "No device can be reached, it does not answer as one, or it is of an unknown model." },
    { 5, "Ended unconfirmed: the device may have the firmware, or may still be at work." },
    { 75, "Another run has the device: try again later." },
    { 130, "Ended by the user or by a signal." },
};

constexpr Entry Environment[] = {
    { "NO_COLOR", "If it is set and not empty, nothing is coloured." },
    { "TERM", "With \"dumb\" nothing is redrawn in place." },
    { "XDG_CONFIG_HOME", "Folder of the configuration file, in place of ~/.config." },
    { "XDG_CACHE_HOME",
      "Folder for private copies of packages and locks of devices, in place of ~/.cache." },
    { "XDG_STATE_HOME", "Folder for the records of runs, in place of ~/.local/state." },
    { "XDG_RUNTIME_DIR",
      "Folder for the locks of devices if the cache folder cannot be written to." },
};

constexpr Entry Files[] = {
    { "~/.cache/velmar-upgrade/packages",
      "Private copies of packages, one folder for each run; removed at its end, or by the next run "
      "if it was killed." },
    { "~/.cache/velmar-upgrade/locks", "Locks of the devices that this user's runs have taken." },
    { "~/.local/state/velmar-upgrade/runs",
      "What report needs of the last 20 runs: events, log and plan." },
};

constexpr Example Examples[] = {
    { "Find the devices of the network:", "velmar-upgrade devices" },
    { "See what of a package fits a device:",
      "velmar-upgrade inspect package --device 192.168.0.10" },
    { "Upgrade the main control and the card in slot 1:",
      "velmar-upgrade run package --device 192.168.0.10 --card main --card 1" },
    { "Settle today what is installed tonight:",
      "velmar-upgrade plan package --device 192.168.0.10 -o tonight.json\n"
      "velmar-upgrade run --plan tonight.json --yes" },
    { "Watch an installation whose host was left:", "velmar-upgrade watch --device 192.168.0.10" },
};

constexpr const char *SeeAlso[] = { "velmar-device(1)", "velmar-package(1)",
                                    "velmar-package-folder(5)" };

constexpr const char *Usage[] = { "VERB [options]" };
constexpr Option ProgramOptions[] = { helpOption(), versionOption() };

} // namespace

constexpr Program UpgradeProgram = {
    "velmar-upgrade",
    "Upgrades the firmware of networked display-processing devices.",
    "Upgrades the firmware of networked display-processing devices. What a run ends with is the "
    "device's own word: after its restart its versions are compared with the plan, and the "
    "verdict "
    "is confirmed, unconfirmed or failed, with what to do next.",
    Usage,
    {},
    ProgramOptions,
    Verbs,
    Common,
    Settings,
    "velmar/upgrade.conf",
    Statuses,
    Environment,
    Files,
    {},
    Examples,
    SeeAlso,
};
