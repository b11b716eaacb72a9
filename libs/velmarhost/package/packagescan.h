#ifndef VELMARHOST_PACKAGESCAN_H
#define VELMARHOST_PACKAGESCAN_H

#include "package/packagecopy.h"
#include "process/descriptor.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <optional>
#include <vector>

#include <sys/stat.h>

namespace Velmar::Host {

/*! Why a package cannot be copied. */
struct CopyFault {
    VerdictCode code = VerdictCode::CopyFailed;
    QString text; //!< one sentence
};

/*! One regular file of a package as it was found. Paths are as the file system has them: UTF-8,
    relative to the package. */
struct ScannedFile {
    QByteArray name; //!< in its folder
    struct stat facts = {};
};

struct ScannedFolder {
    QByteArray path; //!< empty: the package itself
    std::vector<ScannedFile> files; //!< sorted by name
};

/*! All of a package, a folder in front of those in it. */
struct PackageScan {
    std::vector<ScannedFolder> folders;
    qint64 fileCount = 0;
    qint64 totalSize = 0; //!< bytes
    qint64 largestEnciphered = 0; //!< bytes of the largest ".dat" file
};

/*! Lists what lies in the folder that \a package is open for, without following any link in it. */
std::optional<CopyFault> scanPackage(const Descriptor &package, const PackageLimits &limits,
                                     const std::atomic<bool> &isCancelled, PackageScan &scan);

/*! Opens the folder at \a path below \a top, following no link; errno tells why it is not open. */
Descriptor openFolderBelow(const Descriptor &top, const QByteArray &path);

CopyFault interruptedCopy();

/*! \a path below a package, for people. */
QString shownPath(const QByteArray &folder, const QByteArray &name);

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGESCAN_H
