#ifndef VELMARUPGRADE_VERBS_H
#define VELMARUPGRADE_VERBS_H

#include "process/hostexitcode.h"

#include <QStringList>

// One function for each verb; \a arguments are the words behind it.

Velmar::Host::HostExitCode inspectVerb(const QStringList &arguments);
Velmar::Host::HostExitCode runVerb(const QStringList &arguments);
Velmar::Host::HostExitCode watchVerb(const QStringList &arguments);
Velmar::Host::HostExitCode devicesVerb(const QStringList &arguments);

#endif // VELMARUPGRADE_VERBS_H
