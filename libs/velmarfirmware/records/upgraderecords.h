#ifndef VELMARFIRMWARE_RECORDS_UPGRADERECORDS_H
#define VELMARFIRMWARE_RECORDS_UPGRADERECORDS_H

#include <QList>
#include <QString>
#include <QVector>

#include <array>

namespace Velmar::Firmware {

namespace Enum {

/*! What a run of UpgradeProcess does. Only zero and non-zero are told apart. */
enum class UpgradeProcessType {
    FullUpgrade = 0, //!< send the image, have it installed, watch, restart
    ReadProgressOnly = 1, //!< watch an installation that already runs, then restart
};

/*! What a device's version says about an upgrade over HTTP. */
enum class UpgradeProtoType {
    ProtoUnknown = 0, //!< the version could not be read
    ProtoSupported = 1, //!< the upgrade may go on
    ProtoRefused = 255, //!< the user has to upgrade with the device's own OLED program
};

} // namespace Enum

/*! One section of a unit, and the file that carries it. */
struct UpgradeFileItem {
    QString sectionName; //!< name of the section, as the device model and the package know it
    QString filePath; //!< path on disk
    QString targetPath; //!< path on the device; null until a parser has filled it in
    int extendNum = 0; //!< 0: any board of the model; otherwise the one board id it is for
};

/*! Two items are the same section from the same file to the same place, whatever their board. */
inline bool operator==(const UpgradeFileItem &left, const UpgradeFileItem &right)
{
    return left.sectionName == right.sectionName && left.filePath == right.filePath
        && left.targetPath == right.targetPath;
}

/*! One upgradable unit of a package: a controller's image set, or one kind of card. */
struct UpgradeCfg {
    QString path; //!< folder of the unit, or the image configuration file
    int modelId = 0; //!< model of the device or card that the unit is for
    int stepType = 0; //!< 0: for the main device; 1: for a sub-card; other values match no device
    QList<std::array<unsigned char, 4>> otherValues; //!< left empty by every reader
    QVector<UpgradeFileItem> files; //!< the sections of the unit
};

/*! Where one file of a package belongs on the device. */
struct DataFilePath {
    QString sourcePath; //!< relative to the package folder
    QString targetPath; //!< path on the device
};

} // namespace Velmar::Firmware

Q_DECLARE_TYPEINFO(Velmar::Firmware::UpgradeFileItem, Q_MOVABLE_TYPE);
Q_DECLARE_TYPEINFO(Velmar::Firmware::UpgradeCfg, Q_MOVABLE_TYPE);
Q_DECLARE_TYPEINFO(Velmar::Firmware::DataFilePath, Q_MOVABLE_TYPE);

#endif // VELMARFIRMWARE_RECORDS_UPGRADERECORDS_H
