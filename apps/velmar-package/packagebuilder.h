#ifndef VELMARPACKAGE_PACKAGEBUILDER_H
#define VELMARPACKAGE_PACKAGEBUILDER_H

#include "packagemanifest.h"

#include <QString>

namespace Velmar::Package {

/*!
    Makes a package folder out of plain files.

    The package is built beside its final place, in a GrowingFolder, and renamed when it is whole:
    what stands at the final place is a whole package at any time. The key is that of
    TZ::cryptKey(). mayGoOn() interrupts it.
*/
class PackageBuilder
{
public:
    enum class Result {
        Done,
        TargetRefused, //!< something stands in the way; nothing was changed
        Failed, //!< reading or writing failed or was interrupted; nothing was changed
    };

    explicit PackageBuilder(const PackageManifest &manifest);

    /*!
        Makes the package \a target. With \a replace, a former package or an empty folder there is
        replaced; anything else is refused all the same.
    */
    Result build(const QString &target, bool replace, QString &errorText);

private:
    bool fill(const QString &folder, QString &errorText) const;
    bool bringFile(const QString &folder, const QString &path, QString &errorText) const;

    const PackageManifest &m_manifest;
};

} // namespace Velmar::Package

#endif // VELMARPACKAGE_PACKAGEBUILDER_H
