#ifndef VELMARUPGRADE_VERBS_H
#define VELMARUPGRADE_VERBS_H

#include "commandline.h"
#include "process/hostexitcode.h"

// One function for each verb.

Velmar::Host::HostExitCode devicesVerb(const CommandLine &options);
Velmar::Host::HostExitCode versionsVerb(const CommandLine &options);
Velmar::Host::HostExitCode inspectVerb(const CommandLine &options);
Velmar::Host::HostExitCode planVerb(const CommandLine &options);
Velmar::Host::HostExitCode runVerb(const CommandLine &options);
Velmar::Host::HostExitCode watchVerb(const CommandLine &options);
Velmar::Host::HostExitCode statusVerb(const CommandLine &options);
Velmar::Host::HostExitCode reportVerb(const CommandLine &options);

#endif // VELMARUPGRADE_VERBS_H
