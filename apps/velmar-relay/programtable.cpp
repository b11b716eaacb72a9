#include "programtable.h"

#include <limits>

namespace Velmar::Relay {

using namespace Cli;

namespace {

constexpr qint64 MaxCount = std::numeric_limits<int>::max();

constexpr const char *Faults[] = { "reset", "close", "stall", "trickle" };

constexpr Option RelayOptions[] = {
    Option("to", "The device; needed.").value("ADDR:PORT"),
    Option("listen", "IPv4 loopback address and port for hosts; port 0: any.")
        .value("ADDR[:PORT]")
        .orElse("127.0.0.1:0"),
    Option("fault",
           "What to do wrong: reset both ends; close both ends behind what has passed; stall, so "
           "that nothing more passes in this direction and the connections stay; trickle, so that "
           "the rest of this direction passes at a pace. None unless set.")
        .word("FAULT", Faults),
    Option("at", "Bytes that pass before the fault.")
        .number("BYTE", 0, std::numeric_limits<qint64>::max())
        .orElse("0"),
    Option("answers", "Count the bytes from the device; those from the host otherwise."),
    Option("connection", "Do it to this connection alone, counted from 1; to each unless set.")
        .number("NTH", 1, MaxCount),
    Option("pace", "Bytes a second for trickle.").number("BYTES", 1, MaxCount).orElse("1000"),
    helpOption(),
    versionOption(),
};

constexpr const char *Usage[] = { "--to ADDR:PORT [options]" };

constexpr ExitStatus Statuses[] = {
    { 1, "The relay cannot listen." },
    { 64, "The options are wrong." },
};

constexpr Example Examples[] = {
    { "Lose the connection in the middle of what the host sends:",
      "velmar-relay --to 127.0.0.1:9720 --fault reset --at 100000" },
};

constexpr const char *SeeAlso[] = { "velmar-device(1)", "velmar-upgrade(1)" };

} // namespace

constexpr Program RelayProgram = {
    "velmar-relay",
    "Passes connections on to a device, with a fault.",
    "Passes TCP connections on to a device, of whatever protocol, and does something wrong at a "
    "given byte of one direction. Prints a JSON line on standard output when hosts can connect. "
    "Signals end it.",
    Usage,
    {},
    RelayOptions,
    {},
    {},
    {},
    nullptr,
    Statuses,
    {},
    {},
    {},
    Examples,
    SeeAlso,
    true, // a script's usual options stand in front of those of the moment
};

} // namespace Velmar::Relay
