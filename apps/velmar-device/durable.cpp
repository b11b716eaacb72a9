#include "durable.h"

#include <QBuffer>
#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace Velmar::Simulator {

namespace {

bool syncWith(int (*sync)(int), const QString &folderPath)
{
    const int folder =
        ::open(QFile::encodeName(folderPath).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    const bool isSynced = sync(folder) == 0;
    ::close(folder);
    return isSynced;
}

} // namespace

QString writeFault(const QFile &file)
{
    // What Qt says of a device without a cause, as of a buffer that was written in part.
    const QString noCause = QBuffer().errorString();
    return file.error() == QFileDevice::NoError || file.errorString() == noCause
        ? QString::fromLatin1("the disk has no room for all of it")
        : file.errorString();
}

bool syncFile(QFile &file)
{
    return file.flush() && ::fsync(file.handle()) == 0;
}

bool syncFolder(const QString &path)
{
    return syncWith(::fsync, path);
}

bool syncFileSystem(const QString &path)
{
    return syncWith(::syncfs, path);
}

} // namespace Velmar::Simulator
