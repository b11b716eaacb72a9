#ifndef VELMARBIZMODEL_DEVICECONFIGMANAGER_H
#define VELMARBIZMODEL_DEVICECONFIGMANAGER_H

#include "velmarbizmodel_export.h"

namespace Velmar::BizModel {

struct s_DeviceConfig;

/*! The device models of the catalogue in use: the built-in one until Catalogue::install(). Any
    thread may look up at any time. */
class VELMARBIZMODEL_EXPORT DeviceConfigManager
{
public:
    static DeviceConfigManager *instance();

    /*! Description of \a modelId, null if the model is unknown. Needs no connected device. Valid
        until the process ends; all threads share it, so it is not to be changed. */
    s_DeviceConfig *findDeviceConfigByID(const unsigned short &modelId);

private:
    DeviceConfigManager() = default;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_DEVICECONFIGMANAGER_H
