#ifndef VELMARPACKAGE_PACKAGEMANIFEST_H
#define VELMARPACKAGE_PACKAGEMANIFEST_H

#include <QString>
#include <QStringList>
#include <QVector>

namespace Velmar::Package {

/*! One attribute of an element in a unit's description. */
struct XmlAttribute {
    QString name;
    QString value;
};

struct ManifestCommand {
    QVector<XmlAttribute> attributes;
};

/*! A firmware file of a unit. */
struct ManifestFile {
    QString fileName; //!< in the unit's folder
    QStringList targetPaths; //!< on the device, at least one
    QVector<XmlAttribute> attributes;
    QVector<ManifestCommand> commands;
};

/*! One loadable unit: firmware for a controller or for a kind of card. */
struct ManifestUnit {
    QString folder; //!< name of its folder, in the plain folder and in the package
    QVector<XmlAttribute> attributes;
    QVector<ManifestCommand> endSendCommands;
    QVector<ManifestCommand> beforeStartCommands;
    QVector<ManifestFile> files;
};

/*! A file that goes with the main control's "MCU" section. */
struct ManifestDataFile {
    QString path; //!< in the plain folder and in the package
    QStringList targetPaths;
};

/*! What a package is made of. Every file named is there, is not empty, and can be read. */
struct PackageManifest {
    QString plainFolder; //!< where the plain files are: the folder of the manifest
    QVector<ManifestUnit> units;
    QVector<ManifestDataFile> dataFiles;
};

/*! False, with \a errorText set, if the manifest at \a path or a file that it names is wrong. */
bool readPackageManifest(const QString &path, PackageManifest &manifest, QString &errorText);

} // namespace Velmar::Package

#endif // VELMARPACKAGE_PACKAGEMANIFEST_H
