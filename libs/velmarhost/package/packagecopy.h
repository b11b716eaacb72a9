#ifndef VELMARHOST_PACKAGECOPY_H
#define VELMARHOST_PACKAGECOPY_H

#include "package/packagemanifest.h"
#include "package/packagerules.h"
#include "run/verdict.h"

#include <QString>

#include <atomic>
#include <functional>
#include <memory>

namespace Velmar::Host {

class PrivateFolder;

/*! How far a package may go before it is refused. */
struct PackageLimits {
    int fileCount = 100'000; //!< files and folders together
    int depth = DeepestPath; //!< of folders in each other; a file in the package itself has 0
    int pathLength = LongestPath; //!< bytes, relative to the package
    qint64 totalSize = qint64(16) * 1024 * 1024 * 1024; //!< bytes of all files
};

struct PackageCopyOptions {
    QString baseFolder; //!< where copies are made; empty: "packages" in the program's cache
    PackageLimits limits;

    /*! Bytes that must be left beside the copy and all that the upgrade library writes to it: the
        image, and the plain form of one enciphered file at a time. */
    qint64 extraSpace = qint64(16) * 1024 * 1024;

    /*! Bytes that a user may still write in the file system of a folder; empty: asks the system. */
    std::function<qint64(const QString &folder)> freeSpace;

    /*! Told how many bytes of how many are copied; from the thread of make(), about every MiB and
        at the end. */
    std::function<void(qint64 done, qint64 total)> progress;
};

/*!
    A private copy of a package folder, removed with the object.

    An upgrade works on it alone, since the library writes into the folder that it upgrades from
    and opens its index for writing; so the user's folder may be read-only, and may change
    afterwards. Only this user may enter the copy or read its files.
*/
class PackageCopy
{
public:
    /*!
        Copies the folder at \a packagePath, which may itself be a link, and hashes each file on
        the way. Copies that killed processes left are removed first. Blocks; any thread.

        Within the package only folders and regular files are taken, and no link is followed. A
        null pointer, with nothing left behind, \a code and \a errorText (one sentence) set:
        - NoPackage: there is nothing at the path, or no folder
        - PackageRefused: something else lies in the package, it goes beyond the limits, or a name is no UTF-8
        - CopyFailed: something cannot be read or written, or has changed meanwhile
        - DiskFull: there is not enough room for the copy and for what an upgrade adds to it
        - Interrupted: \a isCancelled was set
    */
    static std::unique_ptr<PackageCopy> make(const QString &packagePath,
                                             const PackageCopyOptions &options,
                                             const std::atomic<bool> &isCancelled,
                                             VerdictCode &code, QString &errorText);
    ~PackageCopy();

    QString path() const; //!< of the package's copy, absolute
    const PackageManifest &manifest() const;

    /*! Whoever has inherited it keeps the copy from being swept by another process; see
        PrivateFolder::lockDescriptor(). */
    int lockDescriptor() const;

    /*! Leaves the copy to a worker that goes on without this process and has inherited the lock:
        the destructor does not remove it, but the next run does, once the worker has ended. */
    void leave();

private:
    Q_DISABLE_COPY_MOVE(PackageCopy)

    PackageCopy(std::unique_ptr<PrivateFolder> folder, PackageManifest manifest);

    const std::unique_ptr<PrivateFolder> m_folder;
    const PackageManifest m_manifest;
};

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGECOPY_H
