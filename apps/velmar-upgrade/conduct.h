#ifndef VELMARUPGRADE_CONDUCT_H
#define VELMARUPGRADE_CONDUCT_H

#include "commandline.h"
#include "process/hostexitcode.h"
#include "run/upgradewish.h"
#include "run/verdict.h"

#include <functional>
#include <optional>

/*! Is given the plan as soon as it stands. A verdict ends the upgrade there, as that verdict. */
using PlanHandler =
    std::function<std::optional<Velmar::Host::Verdict>(const Velmar::Host::Plan &plan)>;

/*!
    Takes an upgrade from \a wish to its verdict, for a person or, with --json, for a program:
    events, the question whether to upgrade, interrupts, the record of the run.

    The first Ctrl-C stops at the next safe point or tells why the upgrade goes on; a second one, or
    SIGTERM, leaves the device to itself. The end of a terminal (SIGHUP) or of the output stops
    nothing. The process may end in here, if a worker is left behind.
*/
Velmar::Host::HostExitCode conduct(const Velmar::Host::UpgradeWish &wish,
                                   const CommandLine &options, const PlanHandler &takePlan = {});

#endif // VELMARUPGRADE_CONDUCT_H
