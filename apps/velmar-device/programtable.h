#ifndef VELMARDEVICE_PROGRAMTABLE_H
#define VELMARDEVICE_PROGRAMTABLE_H

#include <velmarcommandline/program.h>

namespace Velmar::Simulator {

/*! The options of velmar-device. */
extern const Cli::Program DeviceProgram;

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_PROGRAMTABLE_H
