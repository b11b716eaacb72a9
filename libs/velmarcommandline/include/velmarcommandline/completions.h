#ifndef VELMARCOMMANDLINE_COMPLETIONS_H
#define VELMARCOMMANDLINE_COMPLETIONS_H

#include "program.h"

#include <QByteArray>

namespace Velmar::Cli {

// What a shell offers behind the name of \a program: verbs, the options of the verb, words and paths
// as values and arguments. Values are offered behind a blank and behind "=".

/*! To be read by bash, as the file PROGRAM of bash-completion; needs nothing of that. */
QByteArray bashCompletion(const Program &program);

/*! To be read by zsh's compinit, as the file _PROGRAM. */
QByteArray zshCompletion(const Program &program);

/*! To be read by fish, as the file PROGRAM.fish. */
QByteArray fishCompletion(const Program &program);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_COMPLETIONS_H
