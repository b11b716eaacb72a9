#include <velmarbizmodel/deviceconfigmanager.h>

#include "installedcatalogue_p.h"

namespace Velmar::BizModel {

DeviceConfigManager *DeviceConfigManager::instance()
{
    static DeviceConfigManager manager;
    return &manager;
}

s_DeviceConfig *DeviceConfigManager::findDeviceConfigByID(const unsigned short &modelId)
{
    return Internal::InstalledCatalogue::current().findDevice(modelId);
}

} // namespace Velmar::BizModel
