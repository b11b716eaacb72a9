#ifndef VELMARPACKAGE_PROGRAMTABLE_H
#define VELMARPACKAGE_PROGRAMTABLE_H

#include <velmarcommandline/program.h>

namespace Velmar::Package {

/*! The verbs and options of velmar-package. */
extern const Cli::Program PackageProgram;

} // namespace Velmar::Package

#endif // VELMARPACKAGE_PROGRAMTABLE_H
