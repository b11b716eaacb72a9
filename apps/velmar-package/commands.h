#ifndef VELMARPACKAGE_COMMANDS_H
#define VELMARPACKAGE_COMMANDS_H

#include "commandline.h"
#include "exitcode.h"

namespace Velmar::Package {

/*! Does what is asked for. Results go to standard output, errors to standard error. */
ExitCode run(const CommandLine &commandLine);

} // namespace Velmar::Package

#endif // VELMARPACKAGE_COMMANDS_H
