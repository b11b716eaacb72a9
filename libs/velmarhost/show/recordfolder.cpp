#include "show/recordfolder.h"

#include "show/runevent.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

constexpr mode_t OwnerFolder = S_IRWXU;
constexpr mode_t OwnerFile = S_IRUSR | S_IWUSR;
constexpr int FolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

QString failure(const QString &what, const QString &name)
{
    return QStringLiteral("%1 %2: %3").arg(what, name, QString::fromLocal8Bit(strerror(errno)));
}

void makeWay(const QString &path)
{
    for (int end = path.indexOf(QLatin1Char('/'), 1); end != -1;
         end = path.indexOf(QLatin1Char('/'), end + 1))
        ::mkdir(QFile::encodeName(path.left(end)).constData(), OwnerFolder);
    ::mkdir(QFile::encodeName(path).constData(), OwnerFolder);
}

QStringList namesIn(const Descriptor &folder)
{
    // A listing moves the place in its descriptor, and closes it: it gets one of its own.
    Descriptor own(::openat(folder.number(), ".", FolderFlags));
    DIR *listing = own.isOpen() ? ::fdopendir(own.number()) : nullptr;
    if (!listing)
        return {};
    own.release();
    QStringList names;
    while (const dirent *entry = ::readdir(listing)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.append(QFile::decodeName(entry->d_name));
    }
    ::closedir(listing);
    return names;
}

// For writing, though nothing is written: some network file systems lock nothing else.
Descriptor openEvents(const Descriptor &folder)
{
    return Descriptor(::openat(folder.number(), RecordFiles::Events,
                               O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

} // namespace

Descriptor openRecordsFolder(const QString &path, bool isMade, QString &errorText)
{
    const QString cleaned = QDir::cleanPath(path);
    if (isMade)
        makeWay(cleaned); // whether that worked shows when it is opened
    Descriptor folder(::open(QFile::encodeName(cleaned).constData(), FolderFlags));
    struct stat status = {};
    if (!folder.isOpen() || ::fstat(folder.number(), &status) != 0) {
        errorText = failure(QStringLiteral("cannot open"), cleaned);
        return {};
    }
    if (status.st_uid != ::geteuid()) {
        errorText = QStringLiteral("%1 belongs to another user").arg(cleaned);
        return {};
    }
    if (isMade && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0
        && ::fchmod(folder.number(), OwnerFolder) != 0) {
        errorText = failure(QStringLiteral("cannot close to others"), cleaned);
        return {};
    }
    return folder;
}

Descriptor makeRecordFolder(const Descriptor &records, const QString &name, QString &errorText)
{
    if (::mkdirat(records.number(), QFile::encodeName(name).constData(), OwnerFolder) == 0) {
        auto folder = openRecordFolder(records, name);
        if (folder.isOpen())
            return folder;
    }
    errorText = failure(QStringLiteral("cannot make"), name);
    return {};
}

Descriptor openRecordFolder(const Descriptor &records, const QString &name)
{
    return Descriptor(::openat(records.number(), QFile::encodeName(name).constData(), FolderFlags));
}

QStringList recordFolderNames(const Descriptor &records)
{
    QStringList names = namesIn(records);
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&records](const QString &name) {
                                   return !isRunId(name)
                                       || !openRecordFolder(records, name).isOpen();
                               }),
                names.end());
    std::sort(names.begin(), names.end());
    return names;
}

Descriptor makeRecordFile(const Descriptor &folder, const char *name, QString &errorText)
{
    Descriptor file(::openat(folder.number(), name,
                             O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                             OwnerFile));
    if (!file.isOpen())
        errorText = failure(QStringLiteral("cannot make"), QLatin1String(name));
    return file;
}

std::optional<QByteArray> readRecordFile(const Descriptor &folder, const char *name, qint64 maximum)
{
    // Not to wait for a pipe that somebody has put there.
    const Descriptor descriptor(
        ::openat(folder.number(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!descriptor.isOpen() || ::fstat(descriptor.number(), &status) != 0
        || !S_ISREG(status.st_mode) || status.st_size > maximum)
        return std::nullopt;
    QFile file;
    if (!file.open(descriptor.number(), QIODevice::ReadOnly))
        return std::nullopt;
    return file.read(maximum);
}

bool replaceRecordFile(const Descriptor &folder, const QByteArray &name, const QByteArray &content)
{
    const QByteArray next = name + ".new";
    const Descriptor file(::openat(folder.number(), next.constData(),
                                   O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                                   OwnerFile));
    return file.isOpen() && appendWhole(file, content)
        && ::renameat(folder.number(), next.constData(), folder.number(), name.constData()) == 0;
}

bool appendWhole(const Descriptor &file, const QByteArray &bytes)
{
    struct stat status = {};
    if (::fstat(file.number(), &status) != 0)
        return false;
    qint64 written = 0;
    while (written < bytes.size()) {
        const auto count = ::write(file.number(), bytes.constData() + written,
                                   std::size_t(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            // Half a line would spoil the next one.
            const int savedErrno = errno;
            [[maybe_unused]] const int result = ::ftruncate(file.number(), status.st_size);
            errno = savedErrno;
            return false;
        }
        written += count;
    }
    return true;
}

bool lockRecord(const Descriptor &file)
{
    // Others hold it for a moment, to see whether it is held.
    int result = -1;
    do {
        result = ::flock(file.number(), LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool isRecordInUse(const Descriptor &folder)
{
    const auto events = openEvents(folder);
    return events.isOpen() && ::flock(events.number(), LOCK_EX | LOCK_NB) != 0;
}

bool removeRecordFolder(const Descriptor &records, const QString &name)
{
    const auto folder = openRecordFolder(records, name);
    if (!folder.isOpen())
        return false;
    const auto events = openEvents(folder);
    if (events.isOpen() && ::flock(events.number(), LOCK_EX | LOCK_NB) != 0)
        return false;
    // The folder goes only if it is empty then: what is no file of a record is not ours to remove.
    for (const auto &file : namesIn(folder))
        ::unlinkat(folder.number(), QFile::encodeName(file).constData(), 0);
    return ::unlinkat(records.number(), QFile::encodeName(name).constData(), AT_REMOVEDIR) == 0;
}

} // namespace Velmar::Host
