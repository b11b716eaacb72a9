#ifndef VELMARHOST_FREESPACE_H
#define VELMARHOST_FREESPACE_H

#include <QString>

namespace Velmar::Host {

/*! Bytes that this user may still write in the file system of \a folder; -1 if it does not tell. */
qint64 freeSpaceOf(const QString &folder);

} // namespace Velmar::Host

#endif // VELMARHOST_FREESPACE_H
