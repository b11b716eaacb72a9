#ifndef VELMARUPGRADE_SUPERVISE_H
#define VELMARUPGRADE_SUPERVISE_H

#include "hostexitcode.h"
#include "logcapture.h"
#include "records/upgraderecords.h"
#include "upgraderun.h"

#include <QString>

#include <chrono>

/*!
    Runs \a run to its end on the screen: progress, the library's texts, the verdict, and what an
    interrupt does. \a address names the device in advice to the user.

    The first Ctrl-C is answered with a warning; a second one, or SIGTERM, ends the process at once
    and leaves the device to itself. The end of a terminal (SIGHUP) or of the output does not stop
    an upgrade. A run that is given up ends the process, too.
*/
Velmar::Host::HostExitCode supervise(Velmar::Host::UpgradeRun &run,
                                     Velmar::Firmware::Enum::UpgradeProcessType type,
                                     std::chrono::milliseconds timeLimit, const QString &address,
                                     bool isVerbose, const Velmar::Host::LogCapture &log);

#endif // VELMARUPGRADE_SUPERVISE_H
