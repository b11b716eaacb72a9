#ifndef VELMARBIZMODEL_DEVICECONFIG_H
#define VELMARBIZMODEL_DEVICECONFIG_H

#include "velmarbizmodel_export.h"

#include <QList>
#include <QString>

namespace Velmar::BizModel {

/*! One upgradable section of a model, as the device names it. */
struct s_UpgradeCfg {
    QString name; //!< name of the section, the key against a package's section names
    unsigned short type = 0; //!< kind of part that carries the section; the low 8 bits count
    unsigned short upgradeCode = 0; //!< code in the native and the newer HTTP protocol
    unsigned short compatibilityCode = 0; //!< code in the older HTTP protocol
    unsigned short order = 0; //!< place in the vendor's own listing
};

/*! Time-out of one command of a model. */
struct s_CommandTimeout {
    unsigned short commandGroup = 0;
    unsigned short commandId = 0;
    int timeout = 0; //!< milliseconds
};

/*! A kind of sub-card that a device model takes. A host's copy of s_DeviceConfig copies and
    destroys it with the functions of this library. */
struct VELMARBIZMODEL_EXPORT s_SubCardConfig {
    s_SubCardConfig();
    s_SubCardConfig(const s_SubCardConfig &other);
    s_SubCardConfig &operator=(const s_SubCardConfig &other);
    ~s_SubCardConfig(); // NOLINT(performance-trivially-destructible)

    unsigned short modelId = 0;
    int slotCount = 0; //!< number of slots that take such a card
};

/*! Static description of a device model. */
struct s_DeviceConfig {
    QString name;
    QString series;
    unsigned short modelId = 0;
    unsigned short backPlaneModelId = 0;
    QList<s_UpgradeCfg> upgradeCfgs; //!< the sections of the model, in the model's order
    QList<s_CommandTimeout> commandTimeouts;
    int defaultTimeout = 0; //!< milliseconds; for commands that commandTimeouts does not list
    QList<s_SubCardConfig> subCardConfigs;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_DEVICECONFIG_H
