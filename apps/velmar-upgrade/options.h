#ifndef VELMARUPGRADE_OPTIONS_H
#define VELMARUPGRADE_OPTIONS_H

#include <velmarcommandline/program.h>

/*! The verbs and options of velmar-upgrade. */
extern const Velmar::Cli::Program UpgradeProgram;

#endif // VELMARUPGRADE_OPTIONS_H
