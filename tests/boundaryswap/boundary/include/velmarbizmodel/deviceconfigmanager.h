#ifndef TINY_VELMARBIZMODEL_DEVICECONFIGMANAGER_H
#define TINY_VELMARBIZMODEL_DEVICECONFIGMANAGER_H

#include <velmarbizmodel/deviceconfig.h>

namespace Velmar::BizModel {

class DeviceConfigManager
{
public:
    static DeviceConfigManager *instance();

    s_DeviceConfig *findDeviceConfigByID(const unsigned short &modelId);
};

} // namespace Velmar::BizModel

#endif // TINY_VELMARBIZMODEL_DEVICECONFIGMANAGER_H
