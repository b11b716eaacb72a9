#ifndef VELMARDEVICE_DESTINATIONPATH_H
#define VELMARDEVICE_DESTINATIONPATH_H

#include <QByteArray>
#include <QString>

namespace Velmar::Simulator {

/*!
    Where the file with the destination path \a destination of an image lies below the folder of
    installed files: a relative path that never leads out of it.

    "/" parts the components; empty ones and "." are dropped, so that absolute and relative paths
    are the same place. All else is kept apart: ".." becomes "%2E%2E", and "%", control characters
    and bytes that are not UTF-8 become "%" and two upper-case hex digits. A component that is too
    long for a file name then keeps its beginning and ends in "%#" and a hash of the whole.

    Empty if \a destination names no file ("", "/", "./").
*/
QString installedPath(const QByteArray &destination);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DESTINATIONPATH_H
