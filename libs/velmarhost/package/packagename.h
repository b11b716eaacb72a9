#ifndef VELMARHOST_PACKAGENAME_H
#define VELMARHOST_PACKAGENAME_H

#include <QByteArray>
#include <QString>

namespace Velmar::Host {

/*! True if \a bytes are UTF-8, without a mark of the byte order. */
bool isUtf8(const QByteArray &bytes);

/*!
    Why \a name, as a package has it for a file or folder, is no plain way from one of its folders
    to what lies below: names with "/" between, without empty ones, "." or "..", a "\" or a control
    character. Empty if it is one.
*/
QString packageNameFault(const QString &name);

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGENAME_H
