#ifndef VELMARCOMMANDLINE_MANPAGE_H
#define VELMARCOMMANDLINE_MANPAGE_H

#include "program.h"

#include <QByteArray>
#include <QString>

namespace Velmar::Cli {

/*! The manual page of \a program, of section 1, in roff with the macros of man(7). \a version and
    \a date (as in "2024-05-06") stand at its foot. */
QByteArray manPage(const Program &program, const QString &version, const QString &date);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_MANPAGE_H
