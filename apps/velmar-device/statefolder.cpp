#include "statefolder.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Velmar::Simulator {

namespace {

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

std::unique_ptr<StateFolder> StateFolder::open(const QString &path, QString &errorText)
{
    const QString absolute = QDir(path).absolutePath();
    if (!QDir().mkpath(absolute)) {
        errorText = QString::fromLatin1("The state folder \"%1\" cannot be made.").arg(absolute);
        return nullptr;
    }
    const QByteArray lockFile = QFile::encodeName(absolute + QLatin1String("/lock"));
    const int lock = ::open(lockFile.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lock < 0) {
        errorText = QString::fromLatin1("The state folder \"%1\" cannot be locked: %2.")
                        .arg(absolute, systemError());
        return nullptr;
    }
    if (::flock(lock, LOCK_EX | LOCK_NB) != 0) {
        errorText = errno == EWOULDBLOCK
            ? QString::fromLatin1("The state folder \"%1\" is in use by another device.")
                  .arg(absolute)
            : QString::fromLatin1("The state folder \"%1\" cannot be locked: %2.")
                  .arg(absolute, systemError());
        ::close(lock);
        return nullptr;
    }
    std::unique_ptr<StateFolder> folder(new StateFolder(absolute, lock));
    for (const QString &part :
         { folder->files(), folder->firmware(), folder->images(), folder->incoming() }) {
        if (!QDir().mkpath(part)) {
            errorText = QString::fromLatin1("The folder \"%1\" cannot be made.").arg(part);
            return nullptr;
        }
    }
    return folder;
}

StateFolder::StateFolder(const QString &path, int lock)
    : m_path(path)
    , m_lock(lock)
{
}

StateFolder::~StateFolder()
{
    ::close(m_lock);
}

QString StateFolder::stateFile() const
{
    return m_path + QLatin1String("/state.json");
}

QString StateFolder::files() const
{
    return m_path + QLatin1String("/files");
}

QString StateFolder::firmware() const
{
    return m_path + QLatin1String("/firmware");
}

QString StateFolder::images() const
{
    return m_path + QLatin1String("/images");
}

QString StateFolder::incoming() const
{
    return m_path + QLatin1String("/incoming");
}

QString StateFolder::staging() const
{
    return m_path + QLatin1String("/staging");
}

} // namespace Velmar::Simulator
