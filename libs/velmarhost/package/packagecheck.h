#ifndef VELMARHOST_PACKAGECHECK_H
#define VELMARHOST_PACKAGECHECK_H

#include "package/packagemanifest.h"

#include <QString>

#include <atomic>
#include <vector>

namespace Velmar::Host {

/*! Something about a package that its maker should know. */
struct PackageFinding {
    QString code; //!< stable word, as in "document-type"
    QString place; //!< in the package: a path, with ":" and a line number where there is one
    QString text; //!< for people, without the place; may quote the package: to be made printable
    bool isRefusal = true; //!< false: the package may be used all the same
};

struct PackageCheckOptions {
    const std::atomic<bool> *isCancelled = nullptr; //!< set: the check ends early, as it may
    bool triesDeciphering = true; //!< with the key of TZ::cryptKey()
};

/*!
    Reads the package folder at \a path, of which \a manifest tells the files, on its own, strictly,
    and tells everything that breaks a rule, in the order of the package's files. Blocks; any thread.

    docs/host/package.md lists the rules with their codes.
*/
std::vector<PackageFinding> checkPackage(const QString &path, const PackageManifest &manifest,
                                         const PackageCheckOptions &options = {});

/*! The first that refuses; a null pointer if nothing does. */
const PackageFinding *firstRefusal(const std::vector<PackageFinding> &findings);

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGECHECK_H
