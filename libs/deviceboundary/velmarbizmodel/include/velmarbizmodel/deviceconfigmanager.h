#ifndef VELMARBIZMODEL_DEVICECONFIGMANAGER_H
#define VELMARBIZMODEL_DEVICECONFIGMANAGER_H

#include "velmarbizmodel_export.h"

namespace Velmar::BizModel {

struct s_DeviceConfig;

/*! The device models of the catalogue in use. Any thread may look up while no catalogue is being
    installed (see Catalogue::install()). */
class VELMARBIZMODEL_EXPORT DeviceConfigManager
{
public:
    static DeviceConfigManager *instance();

    /*! Description of \a modelId, null if the model is unknown. Needs no connected device. */
    s_DeviceConfig *findDeviceConfigByID(const unsigned short &modelId);

private:
    DeviceConfigManager() = default;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_DEVICECONFIGMANAGER_H
