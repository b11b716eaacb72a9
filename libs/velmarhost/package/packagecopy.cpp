#include "package/packagecopy.h"

#include "package/blockhasher.h"
#include "package/packagescan.h"
#include "package/sha256.h"
#include "process/freespace.h"
#include "process/privatefolder.h"

#include <QFile>
#include <QLocale>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

constexpr char CopyName[] = "package";

// Below this a file is hashed faster than another thread is woken for it.
constexpr qint64 SmallFile = 64 * 1024;

constexpr qint64 ProgressStep = 1024 * 1024;

// What a file system may need beside a file's bytes, for its last block and its name.
constexpr qint64 SpaceOfEntry = 4096;

QString shownSize(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeIecFormat);
}

// EFBIG: the limit of the process, or of a file system such as FAT, is reached.
bool isForRoom(int errorNumber)
{
    return errorNumber == ENOSPC || errorNumber == EDQUOT || errorNumber == EFBIG;
}

CopyFault systemFault(int errorNumber, const QString &text)
{
    return { isForRoom(errorNumber) ? VerdictCode::DiskFull : VerdictCode::CopyFailed,
             QStringLiteral("%1: %2.").arg(text, qt_error_string(errorNumber)) };
}

bool isSame(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isUnchanged(const struct stat &before, const struct stat &now)
{
    return before.st_dev == now.st_dev && before.st_ino == now.st_ino
        && before.st_size == now.st_size && isSame(before.st_mtim, now.st_mtim)
        && isSame(before.st_ctim, now.st_ctim);
}

// Goes on where a signal or the end of what is there interrupts. -1, with errno set, if it fails.
ssize_t readFully(int descriptor, char *data, std::size_t length)
{
    std::size_t filled = 0;
    while (filled < length) {
        const ssize_t got = ::read(descriptor, data + filled, length - filled);
        if (got == 0)
            break;
        if (got > 0)
            filled += std::size_t(got);
        else if (errno != EINTR)
            return -1;
    }
    return ssize_t(filled);
}

bool writeFully(int descriptor, const char *data, std::size_t length)
{
    while (length > 0) {
        const ssize_t put = ::write(descriptor, data, length);
        if (put < 0 && errno != EINTR)
            return false;
        if (put > 0) {
            data += put;
            length -= std::size_t(put);
        }
    }
    return true;
}

/*! Copies what a scan has found. */
class Copier
{
public:
    Copier(const Descriptor &source, const Descriptor &target, const PackageScan &scan,
           const PackageCopyOptions &options, const std::atomic<bool> &isCancelled)
        : m_source(source)
        , m_target(target)
        , m_scan(scan)
        , m_options(options)
        , m_isCancelled(isCancelled)
    {
        m_files.resize(std::size_t(scan.fileCount));
    }

    std::optional<CopyFault> run()
    {
        std::optional<BlockHasher> hasher;
        try {
            hasher.emplace([this](std::size_t file, const QByteArray &sha256) {
                m_files[file].sha256 = sha256;
            });
        } catch (const std::system_error &error) {
            return CopyFault { VerdictCode::CopyFailed,
                               QStringLiteral("The package cannot be copied: %1.")
                                   .arg(QString::fromLocal8Bit(error.what())) };
        }
        m_hasher = &*hasher;
        for (const auto &folder : m_scan.folders) {
            if (const auto fault = copyFolder(folder))
                return fault;
        }
        m_hasher->finish();
        tellProgress(true);
        return std::nullopt;
    }

    PackageManifest takeManifest() { return { std::move(m_files), std::move(m_folders) }; }

private:
    std::optional<CopyFault> copyFolder(const ScannedFolder &folder)
    {
        if (!folder.path.isEmpty()) {
            if (::mkdirat(m_target.number(), folder.path.constData(), S_IRWXU) != 0)
                return unwritable(folder.path);
            m_folders.append(QString::fromUtf8(folder.path));
        }
        const Descriptor to = openFolderBelow(m_target, folder.path);
        if (!to.isOpen())
            return unwritable(folder.path);
        const Descriptor from = openFolderBelow(m_source, folder.path);
        if (!from.isOpen())
            return systemFault(
                errno,
                QStringLiteral("The folder %1 of the package cannot be read any more")
                    .arg(QString::fromUtf8(folder.path)));
        for (const auto &file : folder.files) {
            if (m_isCancelled)
                return interruptedCopy();
            m_path = shownPath(folder.path, file.name);
            if (const auto fault = copyFile(from, to, file))
                return fault;
            ++m_place;
        }
        return std::nullopt;
    }

    std::optional<CopyFault> copyFile(const Descriptor &fromFolder, const Descriptor &toFolder,
                                      const ScannedFile &file)
    {
        // Not to wait for a pipe, nor to follow a link, that has taken the file's place.
        const Descriptor from(::openat(fromFolder.number(), file.name.constData(),
                                       O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!from.isOpen())
            return errno == ELOOP || errno == ENOENT || errno == ENXIO ? changed() : unreadable();
        if (!isAsFound(from, file))
            return changed();
        Descriptor to(::openat(toFolder.number(), file.name.constData(),
                               O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               S_IRUSR | S_IWUSR));
        if (!to.isOpen())
            return unwritable(m_path.toUtf8());
        m_files[m_place] = { m_path, file.facts.st_size, {} };
        const bool isCloned = clone(from, to);
        if (const auto fault = copyContent(isCloned ? to : from, isCloned ? nullptr : &to, file))
            return fault;
        if (!isAsFound(from, file))
            return changed();
        // Some network file systems tell only here that there was no room.
        if (::close(to.release()) != 0 && errno != EINTR)
            return unwritable(m_path.toUtf8());
        return std::nullopt;
    }

    // Without a second copy of the blocks on file systems that can share them.
    bool clone(const Descriptor &from, const Descriptor &to)
    {
        if (!m_mayClone)
            return false;
        if (::ioctl(to.number(), FICLONE, from.number()) == 0)
            return true;
        m_mayClone = false; // not between these two file systems
        return false;
    }

    // A null to: hashes only.
    std::optional<CopyFault> copyContent(const Descriptor &from, const Descriptor *to,
                                         const ScannedFile &file)
    {
        const qint64 size = file.facts.st_size;
        const bool isSmall = size <= SmallFile;
        Sha256 smallHash;
        qint64 done = 0;
        while (true) {
            if (m_isCancelled)
                return interruptedCopy();
            char *block = m_hasher->fetch();
            const ssize_t got = readFully(from.number(), block, BlockHasher::BlockSize);
            if (got < 0)
                return unreadable();
            done += got;
            const bool isLast = got < ssize_t(BlockHasher::BlockSize);
            if (done > size || (isLast && done < size))
                return changed();
            if (isSmall)
                smallHash.add(block, std::size_t(got));
            else
                m_hasher->submit(std::size_t(got), m_place, isLast);
            if (to && !writeFully(to->number(), block, std::size_t(got)))
                return unwritable(m_path.toUtf8());
            m_done += got;
            m_sinceTold += got;
            tellProgress(false);
            if (isLast)
                break;
        }
        if (isSmall)
            m_files[m_place].sha256 = smallHash.result();
        return std::nullopt;
    }

    static bool isAsFound(const Descriptor &opened, const ScannedFile &file)
    {
        struct stat now = {};
        return ::fstat(opened.number(), &now) == 0 && isUnchanged(file.facts, now);
    }

    void tellProgress(bool isEnd)
    {
        if (!m_options.progress || (!isEnd && m_sinceTold < ProgressStep))
            return;
        m_sinceTold = 0;
        m_options.progress(m_done, m_scan.totalSize);
    }

    CopyFault changed() const
    {
        return { VerdictCode::CopyFailed,
                 QStringLiteral("%1 in the package has changed while it was copied.").arg(m_path) };
    }

    CopyFault unreadable() const
    {
        const int cause = errno;
        return { VerdictCode::CopyFailed,
                 QStringLiteral("%1 in the package cannot be read: %2.")
                     .arg(m_path, qt_error_string(cause)) };
    }

    static CopyFault unwritable(const QByteArray &path)
    {
        return systemFault(errno,
                           QStringLiteral("The package's copy cannot be written, at %1")
                               .arg(QString::fromUtf8(path)));
    }

    const Descriptor &m_source;
    const Descriptor &m_target;
    const PackageScan &m_scan;
    const PackageCopyOptions &m_options;
    const std::atomic<bool> &m_isCancelled;

    std::vector<PackageFile> m_files; // of each, the hasher's thread writes the hash
    QStringList m_folders;
    BlockHasher *m_hasher = nullptr;
    std::size_t m_place = 0; // of the current file
    QString m_path; // its path, for people
    bool m_mayClone = true;
    qint64 m_done = 0;
    qint64 m_sinceTold = 0;
};

std::optional<CopyFault> openPackage(const QString &path, Descriptor &package)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat facts = {};
    const bool isThere = ::stat(name.constData(), &facts) == 0;
    const auto noPackage = [](const QString &text) {
        return CopyFault { VerdictCode::NoPackage, text };
    };
    if (!isThere && (errno == ENOENT || errno == ENOTDIR))
        return noPackage(QStringLiteral("There is no package at \"%1\".").arg(path));
    if (isThere && S_ISREG(facts.st_mode))
        return noPackage(
            QStringLiteral("%1 is a file. An upgrade takes the folder of a package; an "
                           "image configuration file holds no firmware.")
                .arg(path));
    if (isThere && !S_ISDIR(facts.st_mode))
        return noPackage(QStringLiteral("%1 is no folder, as a package is.").arg(path));
    package = Descriptor(::open(name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (package.isOpen())
        return std::nullopt;
    return systemFault(errno, QStringLiteral("The package %1 cannot be read").arg(path));
}

// The library adds the image, which holds each file once, and one plain file at a time.
qint64 neededSpace(const PackageScan &scan, qint64 extraSpace)
{
    const qint64 entries = scan.fileCount + qint64(scan.folders.size());
    return 2 * scan.totalSize + scan.largestEnciphered + entries * SpaceOfEntry + extraSpace;
}

std::optional<CopyFault> checkSpace(const PackageScan &scan, const PackageCopyOptions &options,
                                    const QString &base, const QString &folder)
{
    const qint64 available = options.freeSpace ? options.freeSpace(folder) : freeSpaceOf(folder);
    const qint64 needed = neededSpace(scan, options.extraSpace);
    // A file system that does not tell is tried.
    if (available < 0 || available >= needed)
        return std::nullopt;
    return CopyFault { VerdictCode::DiskFull,
                       QStringLiteral("There is not enough room in %1: the upgrade needs %2, and "
                                      "%3 are free.")
                           .arg(base, shownSize(needed), shownSize(available)) };
}

} // namespace

std::unique_ptr<PackageCopy> PackageCopy::make(const QString &packagePath,
                                               const PackageCopyOptions &options,
                                               const std::atomic<bool> &isCancelled,
                                               VerdictCode &code, QString &errorText)
{
    const auto fail = [&](const CopyFault &fault) {
        code = fault.code;
        errorText = fault.text;
        return nullptr;
    };
    const QString base =
        options.baseFolder.isEmpty() ? cacheFolder(QStringLiteral("packages")) : options.baseFolder;
    PrivateFolder::sweep(base);

    Descriptor package;
    PackageScan scan;
    if (const auto fault = openPackage(packagePath, package))
        return fail(*fault);
    if (const auto fault = scanPackage(package, options.limits, isCancelled, scan))
        return fail(*fault);

    int errorNumber = 0;
    auto folder = PrivateFolder::make(base, errorNumber, errorText);
    if (!folder) {
        code = isForRoom(errorNumber) ? VerdictCode::DiskFull : VerdictCode::CopyFailed;
        return nullptr;
    }
    if (const auto fault = checkSpace(scan, options, base, folder->path()))
        return fail(*fault);
    Descriptor copy;
    if (::mkdirat(folder->descriptor(), CopyName, S_IRWXU) == 0)
        copy = Descriptor(::openat(folder->descriptor(), CopyName,
                                   O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!copy.isOpen())
        return fail(systemFault(
            errno, QStringLiteral("The package's copy in %1 cannot be made").arg(base)));
    Copier copier(package, copy, scan, options, isCancelled);
    if (const auto fault = copier.run())
        return fail(*fault);
    return std::unique_ptr<PackageCopy>(new PackageCopy(std::move(folder), copier.takeManifest()));
}

PackageCopy::PackageCopy(std::unique_ptr<PrivateFolder> folder, PackageManifest manifest)
    : m_folder(std::move(folder))
    , m_manifest(std::move(manifest))
{
}

PackageCopy::~PackageCopy() = default;

QString PackageCopy::path() const
{
    return m_folder->path() + QLatin1Char('/') + QLatin1String(CopyName);
}

const PackageManifest &PackageCopy::manifest() const
{
    return m_manifest;
}

int PackageCopy::lockDescriptor() const
{
    return m_folder->lockDescriptor();
}

void PackageCopy::leave()
{
    m_folder->leave();
}

} // namespace Velmar::Host
