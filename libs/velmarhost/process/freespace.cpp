#include "process/freespace.h"

#include <QFile>

#include <sys/statvfs.h>

namespace Velmar::Host {

qint64 freeSpaceOf(const QString &folder)
{
    struct statvfs status = {};
    if (::statvfs(QFile::encodeName(folder).constData(), &status) != 0)
        return -1;
    return qint64(status.f_bavail) * qint64(status.f_frsize);
}

} // namespace Velmar::Host
