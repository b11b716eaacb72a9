#include "durable.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace Velmar::Simulator {

bool syncFile(QFile &file)
{
    return file.flush() && ::fsync(file.handle()) == 0;
}

bool syncFolder(const QString &path)
{
    const int folder =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    const bool isSynced = ::fsync(folder) == 0;
    ::close(folder);
    return isSynced;
}

} // namespace Velmar::Simulator
