#include "process/privatefolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

constexpr mode_t OwnerOnly = S_IRWXU;
constexpr mode_t OwnerFile = S_IRUSR | S_IWUSR;

// A name is this many hexadecimal digits; the lock beside the folder has an ending.
constexpr int NameDigits = 32;
constexpr char LockEnding[] = ".lock";

// Deeper than anything that is made in a private folder; each level holds a descriptor.
constexpr int DeepestTree = 64;

QByteArray randomName()
{
    quint32 words[NameDigits / 8];
    QRandomGenerator::system()->fillRange(words);
    return QByteArray(reinterpret_cast<const char *>(words), sizeof(words)).toHex();
}

bool isName(const QByteArray &name)
{
    return name.size() == NameDigits && name == QByteArray::fromHex(name).toHex();
}

Descriptor openFolder(int parent, const QByteArray &name)
{
    return Descriptor(
        ::openat(parent, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor openLock(int parent, const QByteArray &name, int flags)
{
    // For writing: some network file systems lock no file that is open for reading only.
    return Descriptor(
        ::openat(parent, name.constData(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, OwnerFile));
}

bool isSameFile(int descriptor, int parent, const QByteArray &name)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(descriptor, &opened) == 0
        && ::fstatat(parent, name.constData(), &named, AT_SYMLINK_NOFOLLOW) == 0
        && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

std::vector<QByteArray> namesIn(int folder)
{
    std::vector<QByteArray> names;
    const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (copy < 0)
        return names;
    DIR *listing = ::fdopendir(copy);
    if (!listing) {
        ::close(copy);
        return names;
    }
    while (const dirent *entry = ::readdir(listing)) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            names.push_back(name);
    }
    ::closedir(listing);
    return names;
}

dev_t deviceOf(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 ? status.st_dev : 0;
}

// Goes into folders of the same file system only, so that nothing mounted in between is emptied.
bool removeTree(int parent, const QByteArray &name, int depth = 0)
{
    if (::unlinkat(parent, name.constData(), 0) == 0 || errno == ENOENT)
        return true;
    const Descriptor folder = openFolder(parent, name);
    if (!folder.isOpen() || depth >= DeepestTree || deviceOf(folder.number()) != deviceOf(parent))
        return false;
    const auto names = namesIn(folder.number());
    for (const auto &inner : names)
        removeTree(folder.number(), inner, depth + 1);
    return ::unlinkat(parent, name.constData(), AT_REMOVEDIR) == 0 || errno == ENOENT;
}

// The lock goes last: a folder without one would be nobody's to sweep.
bool removeWithLock(int base, const QByteArray &name)
{
    return removeTree(base, name) && ::unlinkat(base, (name + LockEnding).constData(), 0) == 0;
}

// With isMade, the folder is made if it is not there. Not open, with errno set, if that fails.
Descriptor enterFolder(const Descriptor &parent, const QByteArray &name, int flags, bool isMade)
{
    const bool isMakingRefused =
        isMade && ::mkdirat(parent.number(), name.constData(), OwnerOnly) != 0 && errno != EEXIST;
    const int makingError = errno;
    Descriptor folder(::openat(parent.number(), name.constData(), flags | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen() && errno == ENOENT && isMakingRefused)
        errno = makingError;
    return folder;
}

// Not open, with errno set, if the base is not there and is not to be made, or cannot be used.
Descriptor openBase(const QString &base, bool isMade)
{
    auto names = QFile::encodeName(QFileInfo(base).absoluteFilePath()).split('/');
    names.removeAll(QByteArray());
    if (names.isEmpty()) {
        errno = EINVAL;
        return {};
    }
    const QByteArray last = names.takeLast();
    Descriptor way(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (const auto &name : std::as_const(names)) {
        way = enterFolder(way, name, O_PATH, isMade);
        if (!way.isOpen())
            return {};
    }
    Descriptor folder = enterFolder(way, last, O_RDONLY | O_NOFOLLOW, isMade);
    struct stat status = {};
    if (!folder.isOpen() || ::fstat(folder.number(), &status) != 0)
        return {};
    if (status.st_uid != ::geteuid()) {
        errno = EPERM;
        return {};
    }
    constexpr mode_t Others = S_IRWXG | S_IRWXO;
    if ((status.st_mode & Others) != 0 && ::fchmod(folder.number(), OwnerOnly) != 0)
        return {};
    return folder;
}

} // namespace

PrivateFolder::PrivateFolder(QString path, QByteArray name, Descriptor base, Descriptor folder,
                             Descriptor lock)
    : m_path(std::move(path))
    , m_name(std::move(name))
    , m_base(std::move(base))
    , m_folder(std::move(folder))
    , m_lock(std::move(lock))
{
}

std::unique_ptr<PrivateFolder> PrivateFolder::make(const QString &base, int &errorNumber,
                                                   QString &errorText)
{
    const auto fail = [&](const QString &path) {
        errorNumber = errno;
        errorText = QStringLiteral("The folder %1 cannot be used: %2.")
                        .arg(path, qt_error_string(errorNumber));
        return nullptr;
    };
    Descriptor baseFolder = openBase(base, true);
    if (!baseFolder.isOpen())
        return fail(base);
    // Only a sweep that meets a lock in its first instant makes a second attempt necessary.
    constexpr int Attempts = 100;
    for (int i = 0; i < Attempts; ++i) {
        const QByteArray name = randomName();
        const QByteArray lockName = name + LockEnding;
        Descriptor lock = openLock(baseFolder.number(), lockName, O_CREAT | O_EXCL);
        if (!lock.isOpen())
            return fail(base);
        // On a file system without locks nobody can take one: nothing is swept there.
        if (::flock(lock.number(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            continue;
        if (!isSameFile(lock.number(), baseFolder.number(), lockName))
            continue;
        const QString path =
            QFileInfo(base).absoluteFilePath() + QLatin1Char('/') + QString::fromLatin1(name);
        if (::mkdirat(baseFolder.number(), name.constData(), OwnerOnly) != 0) {
            const auto failure = fail(path);
            ::unlinkat(baseFolder.number(), lockName.constData(), 0);
            return failure;
        }
        Descriptor folder = openFolder(baseFolder.number(), name);
        if (!folder.isOpen()) {
            const auto failure = fail(path);
            removeWithLock(baseFolder.number(), name);
            return failure;
        }
        return std::unique_ptr<PrivateFolder>(new PrivateFolder(
            path, name, std::move(baseFolder), std::move(folder), std::move(lock)));
    }
    errno = EBUSY;
    return fail(base);
}

PrivateFolder::~PrivateFolder()
{
    if (!m_isLeft)
        removeWithLock(m_base.number(), m_name);
}

void PrivateFolder::leave()
{
    m_isLeft = true;
}

QString PrivateFolder::path() const
{
    return m_path;
}

int PrivateFolder::descriptor() const
{
    return m_folder.number();
}

int PrivateFolder::lockDescriptor() const
{
    return m_lock.number();
}

int PrivateFolder::sweep(const QString &base)
{
    const Descriptor folder = openBase(base, false);
    if (!folder.isOpen())
        return 0;
    int removed = 0;
    const auto names = namesIn(folder.number());
    for (const auto &lockName : names) {
        const QByteArray name = lockName.left(NameDigits);
        if (lockName != name + LockEnding || !isName(name))
            continue;
        const Descriptor lock = openLock(folder.number(), lockName, O_NONBLOCK);
        if (lock.isOpen() && ::flock(lock.number(), LOCK_EX | LOCK_NB) == 0
            && isSameFile(lock.number(), folder.number(), lockName)
            && removeWithLock(folder.number(), name))
            ++removed;
    }
    return removed;
}

QString cacheFolder(const QString &name)
{
    QString cache = qEnvironmentVariable("XDG_CACHE_HOME");
    if (!QDir::isAbsolutePath(cache))
        cache = QDir::homePath() + QLatin1String("/.cache");
    return cache + QLatin1String("/velmar-upgrade/") + name;
}

} // namespace Velmar::Host
