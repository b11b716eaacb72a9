#ifndef TINY_VELMARBIZMODEL_DEVICECONFIG_H
#define TINY_VELMARBIZMODEL_DEVICECONFIG_H

#include <QList>
#include <QString>

namespace Velmar::BizModel {

struct s_UpgradeCfg {
    QString name;
    unsigned short type;
    unsigned short upgradeCode;
    unsigned short compatibilityCode;
    unsigned short reserved;
};

struct s_CommandTimeout {
    unsigned short commandGroup;
    unsigned short commandId;
    int timeout;
};

struct s_SubCardConfig {
    s_SubCardConfig();
    s_SubCardConfig(const s_SubCardConfig &other);
    ~s_SubCardConfig();
};

struct s_DeviceConfig {
    QString vendor;
    QString product;
    unsigned short modelId = 0;
    unsigned short backPlaneModelId = 0;
    QList<s_UpgradeCfg> upgradeCfgs;
    QList<s_CommandTimeout> commandTimeouts;
    int defaultTimeout = 0;
    QList<s_SubCardConfig> subCardConfigs;
};

} // namespace Velmar::BizModel

#endif // TINY_VELMARBIZMODEL_DEVICECONFIG_H
