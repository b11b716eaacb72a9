#ifndef VELMARFIRMWARE_PACKAGECONFIG_H
#define VELMARFIRMWARE_PACKAGECONFIG_H

#include "records/loadrecords.h"
#include "upgradeconfig.h"

#include <QVector>

namespace Velmar::Firmware {

/*!
    Reader of a package folder: its index PackageCfg.xml and the description of each unit.

    A unit is a subfolder that the index names, relative to the package folder and just as it
    stands: nothing is trimmed, and nothing keeps a name inside the folder.
*/
class PackageConfig : public UpgradeConfig
{
    Q_OBJECT

public:
    explicit PackageConfig(QObject *parent);

    static PackageConfig *instance();
    static void destroyInstance();

    /*!
        Reads the package in the folder \a path.

        The index has to be writable, although it is only read. A subfolder that is missing or that
        holds no description is passed over. After a failure the reader is empty, and \a errorText
        tells the cause in an untranslated text; on success \a errorText is left alone.
    */
    bool readConfig(const QString &path, QString &errorText) override;

    /*! One item for each unit, in the order of the index; made anew at each call. */
    QVector<UpgradeCfg> upgradeCfgs() override;

    /*!
        Assigns to \a out the first unit for \a modelId. False, with \a out left alone, if there is
        none. A text that is no hexadecimal number counts as model 0.
    */
    bool findDataPackage(int modelId, TZ::ZLoad::DataPackage &out);

private:
    QVector<TZ::ZLoad::DataPackage> m_packages; // in the order of the index
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_PACKAGECONFIG_H
