#ifndef VELMARHOST_PRINTABLE_H
#define VELMARHOST_PRINTABLE_H

#include <QByteArray>
#include <QString>

namespace Velmar::Host {

/*!
    \a text as one line that is safe to show on a terminal.

    Control, format and line-breaking characters become "\xNN" or "\u{NNNN}", so that no name from a
    device or a package can move the cursor, colour the screen or turn the order of the words.
    More than \a maximum characters are cut and end in an ellipsis.
*/
QString printable(const QString &text, int maximum = 400);

/*! JSON text \a json with the characters that printable() replaces written as \c \u escapes; line
    breaks and blanks between the values stay. */
QByteArray printableJson(const QByteArray &json);

} // namespace Velmar::Host

#endif // VELMARHOST_PRINTABLE_H
