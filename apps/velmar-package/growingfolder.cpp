#include "growingfolder.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmar::Package {

namespace {

constexpr int HashDigits = 16;

// The place's own name would leave no room for more if it is long.
QString prefixFor(const QString &name)
{
    const QByteArray hash =
        QCryptographicHash::hash(QFile::encodeName(name), QCryptographicHash::Sha256);
    return QStringLiteral(".velmar-package-%1-")
        .arg(QString::fromLatin1(hash.toHex().left(HashDigits)));
}

int openFolder(const QString &path)
{
    return ::open(QFile::encodeName(path).constData(),
                  O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

bool isOwn(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && status.st_uid == geteuid();
}

} // namespace

GrowingFolder::GrowingFolder(const QFileInfo &place)
    : m_parent(place.absolutePath())
    , m_prefix(prefixFor(place.fileName()))
{
}

GrowingFolder::~GrowingFolder()
{
    if (!m_path.isEmpty())
        QDir(m_path).removeRecursively();
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

void GrowingFolder::removeLeftovers() const
{
    const QDir parent(m_parent);
    const QStringList names = parent.entryList({ m_prefix + QLatin1Char('*') },
                                               QDir::Dirs | QDir::Hidden | QDir::NoSymLinks);
    for (const QString &name : names) {
        const int descriptor = openFolder(parent.filePath(name));
        if (descriptor < 0)
            continue;
        if (isOwn(descriptor) && flock(descriptor, LOCK_EX | LOCK_NB) == 0)
            QDir(parent.filePath(name)).removeRecursively();
        ::close(descriptor);
    }
}

bool GrowingFolder::make()
{
    constexpr int Attempts = 100;
    for (int i = 0; i < Attempts; ++i) {
        m_path = QStringLiteral("%1/%2%3").arg(
            m_parent, m_prefix, QString::number(QRandomGenerator::system()->generate(), 16));
        if (QDir().mkdir(m_path) && lock())
            return true;
        m_path.clear();
    }
    return false;
}

// False if another process took the new folder for a leftover before it was locked.
bool GrowingFolder::lock()
{
    const int descriptor = openFolder(m_path);
    if (descriptor < 0)
        return false;
    // A file system without locks: nobody can take a lock there, and leftovers stay.
    const bool isLocked = flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    if (!isLocked || !QFileInfo::exists(m_path)) {
        ::close(descriptor);
        return false;
    }
    m_descriptor = descriptor;
    return true;
}

} // namespace Velmar::Package
