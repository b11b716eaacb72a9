#ifndef VELMARPACKAGE_PACKAGEXML_H
#define VELMARPACKAGE_PACKAGEXML_H

#include "packagemanifest.h"

#include <QString>

/*! The XML files of a package. Each function makes the file \a path; false sets \a errorText. */
namespace Velmar::Package {

/*! The index of the package: the folders of its units. */
bool writePackageIndex(const QString &path, const PackageManifest &manifest, QString &errorText);

/*! The description of one unit. */
bool writeUnitDescription(const QString &path, const ManifestUnit &unit, QString &errorText);

/*! The table of destination paths, in the order of the manifest. */
bool writeDataFilePaths(const QString &path, const PackageManifest &manifest, QString &errorText);

} // namespace Velmar::Package

#endif // VELMARPACKAGE_PACKAGEXML_H
