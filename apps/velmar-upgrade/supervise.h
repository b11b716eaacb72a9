#ifndef VELMARUPGRADE_SUPERVISE_H
#define VELMARUPGRADE_SUPERVISE_H

#include "process/hostexitcode.h"
#include "process/logcapture.h"
#include "roadtexts.h"
#include "run/devicerun.h"

#include <functional>

/*!
    Has \a start start \a run, and takes it to its end on the screen: progress, the library's texts,
    the verdict, and what an interrupt does. \a texts are those of the run's road.

    The first Ctrl-C is answered with a warning; a second one, or SIGTERM, ends the process at once
    and leaves the device to itself. The end of a terminal (SIGHUP) or of the output does not stop
    an upgrade. A run that is given up ends the process, too.
*/
Velmar::Host::HostExitCode supervise(Velmar::Host::DeviceRun &run,
                                     const std::function<void()> &start, const RoadTexts &texts,
                                     bool isVerbose, const Velmar::Host::LogCapture &log);

#endif // VELMARUPGRADE_SUPERVISE_H
