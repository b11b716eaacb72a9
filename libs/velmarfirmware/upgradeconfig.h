#ifndef VELMARFIRMWARE_UPGRADECONFIG_H
#define VELMARFIRMWARE_UPGRADECONFIG_H

#include "records/upgraderecords.h"

#include <QObject>

namespace Velmar::Firmware {

/*!
    Reader of one kind of upgrade configuration.

    Each reader is one object for the process, made by its instance() and ended by its
    destroyInstance(). The two functions below take no lock: one thread at a time may use a reader.
*/
class UpgradeConfig : public QObject
{
    Q_OBJECT

public:
    explicit UpgradeConfig(QObject *parent);

    /*!
        Reads the configuration at \a path in place of what the reader held.

        True if it could be read; it may hold no items all the same. After a failure the content is
        undefined, and it is the reader's own affair whether \a errorText tells the cause.
    */
    virtual bool readConfig(const QString &path, QString &errorText) = 0;

    /*! The items of the last successful read, empty before any. */
    virtual QVector<UpgradeCfg> upgradeCfgs() = 0;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_UPGRADECONFIG_H
