#include "package/packagescan.h"

#include "package/packagename.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <fcntl.h>

namespace Velmar::Host {

namespace {

QByteArray joined(const QByteArray &folder, const QByteArray &name)
{
    return folder.isEmpty() ? name : folder + '/' + name;
}

CopyFault refused(const QString &text)
{
    return { VerdictCode::PackageRefused, text };
}

QString kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFLNK:
        return QStringLiteral("a link");
    case S_IFIFO:
        return QStringLiteral("a pipe");
    case S_IFSOCK:
        return QStringLiteral("a socket");
    default:
        return QStringLiteral("a device");
    }
}

// False, with errno set, if the folder cannot be listed.
bool listNames(Descriptor folder, std::vector<QByteArray> &names)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> listing(::fdopendir(folder.number()), ::closedir);
    if (!listing)
        return false;
    folder.release(); // now the listing's
    while (true) {
        errno = 0; // all that tells a failure from the end
        const dirent *entry = ::readdir(listing.get());
        if (!entry)
            break;
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            names.push_back(name);
    }
    if (errno != 0)
        return false;
    std::sort(names.begin(), names.end());
    return true;
}

class Scanner
{
public:
    Scanner(const Descriptor &package, const PackageLimits &limits,
            const std::atomic<bool> &isCancelled, PackageScan &scan)
        : m_package(package)
        , m_limits(limits)
        , m_isCancelled(isCancelled)
        , m_scan(scan)
    {
    }

    std::optional<CopyFault> run()
    {
        m_scan.folders.push_back({});
        // By place, as the list grows on the way.
        for (std::size_t i = 0; i < m_scan.folders.size(); ++i) {
            if (const auto fault = scanFolder(i))
                return fault;
        }
        return std::nullopt;
    }

private:
    std::optional<CopyFault> scanFolder(std::size_t place)
    {
        const QByteArray path = m_scan.folders[place].path;
        const Descriptor folder = openFolderBelow(m_package, path);
        std::vector<QByteArray> names;
        if (!folder.isOpen() || !listNames(openFolderBelow(folder, "."), names))
            return unreadable(path);
        for (const auto &name : names) {
            if (m_isCancelled)
                return interruptedCopy();
            if (const auto fault = scanEntry(folder, place, name))
                return fault;
        }
        return std::nullopt;
    }

    std::optional<CopyFault> scanEntry(const Descriptor &folder, std::size_t place,
                                       const QByteArray &name)
    {
        const QByteArray parent = m_scan.folders[place].path;
        const QByteArray path = joined(parent, name);
        if (++m_count > m_limits.fileCount)
            return refused(QStringLiteral("The package holds more than %1 files and folders.")
                               .arg(m_limits.fileCount));
        if (!isUtf8(name))
            return refused(QStringLiteral("The name of %1 in the package is not in UTF-8.")
                               .arg(QString::fromUtf8(path)));
        if (path.size() > m_limits.pathLength)
            return refused(QStringLiteral("The path of %1 in the package is longer than %2 bytes.")
                               .arg(QString::fromUtf8(path), QString::number(m_limits.pathLength)));
        ScannedFile file { name, {} };
        if (::fstatat(folder.number(), name.constData(), &file.facts, AT_SYMLINK_NOFOLLOW) != 0)
            return unreadable(path);
        if (S_ISREG(file.facts.st_mode))
            return takeFile(place, path, std::move(file));
        if (!S_ISDIR(file.facts.st_mode))
            return refused(
                QStringLiteral("%1 in the package is %2; only files and folders are copied.")
                    .arg(QString::fromUtf8(path), kindOf(file.facts.st_mode)));
        if (path.count('/') >= m_limits.depth)
            return refused(QStringLiteral("The folders of the package are nested more than %1 "
                                          "deep, at %2.")
                               .arg(QString::number(m_limits.depth), QString::fromUtf8(path)));
        m_scan.folders.push_back({ path, {} });
        return std::nullopt;
    }

    std::optional<CopyFault> takeFile(std::size_t place, const QByteArray &path, ScannedFile file)
    {
        const qint64 size = file.facts.st_size;
        if (size > m_limits.totalSize - m_scan.totalSize)
            return refused(QStringLiteral("The files of the package have more than %1 bytes.")
                               .arg(m_limits.totalSize));
        m_scan.totalSize += size;
        if (path.endsWith(".dat"))
            m_scan.largestEnciphered = std::max(m_scan.largestEnciphered, size);
        ++m_scan.fileCount;
        m_scan.folders[place].files.push_back(std::move(file));
        return std::nullopt;
    }

    static CopyFault unreadable(const QByteArray &path)
    {
        const int cause = errno;
        return { VerdictCode::CopyFailed,
                 path.isEmpty()
                     ? QStringLiteral("The package cannot be read: %1.").arg(qt_error_string(cause))
                     : QStringLiteral("%1 in the package cannot be read: %2.")
                           .arg(QString::fromUtf8(path), qt_error_string(cause)) };
    }

    const Descriptor &m_package;
    const PackageLimits &m_limits;
    const std::atomic<bool> &m_isCancelled;
    PackageScan &m_scan;
    int m_count = 0;
};

} // namespace

std::optional<CopyFault> scanPackage(const Descriptor &package, const PackageLimits &limits,
                                     const std::atomic<bool> &isCancelled, PackageScan &scan)
{
    return Scanner(package, limits, isCancelled, scan).run();
}

Descriptor openFolderBelow(const Descriptor &top, const QByteArray &path)
{
    constexpr int Flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor folder(::openat(top.number(), ".", Flags));
    const auto names = path.split('/');
    for (const auto &name : names) {
        if (folder.isOpen() && !name.isEmpty())
            folder = Descriptor(::openat(folder.number(), name.constData(), Flags));
    }
    return folder;
}

CopyFault interruptedCopy()
{
    return { VerdictCode::Interrupted, QStringLiteral("The copy of the package was interrupted.") };
}

QString shownPath(const QByteArray &folder, const QByteArray &name)
{
    return QString::fromUtf8(joined(folder, name));
}

} // namespace Velmar::Host
