#ifndef VELMARCOMMANDLINE_HELPTEXT_H
#define VELMARCOMMANDLINE_HELPTEXT_H

#include "program.h"

#include <QString>

namespace Velmar::Cli {

/*! What "PROGRAM VERB --help" shows; "PROGRAM --help" if \a verb is null. Lines of at most 79
    characters, the last with its end. */
QString helpText(const Program &program, const Verb *verb = nullptr);

/*! "See PROGRAM VERB --help", the last sentence of an error text. */
QString seeHelp(const Program &program, const Verb *verb);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_HELPTEXT_H
