#ifndef VELMARHOST_TEXTCOLUMNS_H
#define VELMARHOST_TEXTCOLUMNS_H

#include <QString>

namespace Velmar::Host {

/*! How many columns of a terminal the printable \a text takes, by the locale in use: letters of
    East Asia take two, accents of their own none, colour sequences none. */
int columnsOf(const QString &text);

/*! The longest beginning of \a text, which has no colours, that takes at most \a columns. */
QString cutToColumns(const QString &text, int columns);

/*! \a text, filled with blanks up to \a columns. */
QString filledToColumns(const QString &text, int columns);

} // namespace Velmar::Host

#endif // VELMARHOST_TEXTCOLUMNS_H
