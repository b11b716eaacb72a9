#ifndef TINY_VELMARMODELCONTROL_AUXILIARY_H
#define TINY_VELMARMODELCONTROL_AUXILIARY_H

#include "records/devicerecords.h"

#include <QString>

#include <memory>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::ModelControl {

class Auxiliary
{
public:
    explicit Auxiliary(std::weak_ptr<BizModel::Device> device);
    virtual ~Auxiliary();

    bool readDeviceVersion(ProtoModel::Auxiliary::s_DeviceVersion &version, QString &errorText);
    bool setUgradeConfig(const ProtoModel::Auxiliary::s_UpgradeDetail &detail);
    bool readUpgradeProgress(ProtoModel::Auxiliary::s_UpgradePercent &percent, QString &errorText);
    bool setDeviceShutDownMode(const unsigned char &mode);
};

} // namespace Velmar::ModelControl

#endif // TINY_VELMARMODELCONTROL_AUXILIARY_H
