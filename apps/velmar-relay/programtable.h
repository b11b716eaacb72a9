#ifndef VELMARRELAY_PROGRAMTABLE_H
#define VELMARRELAY_PROGRAMTABLE_H

#include <velmarcommandline/program.h>

namespace Velmar::Relay {

/*! The options of velmar-relay. */
extern const Cli::Program RelayProgram;

} // namespace Velmar::Relay

#endif // VELMARRELAY_PROGRAMTABLE_H
