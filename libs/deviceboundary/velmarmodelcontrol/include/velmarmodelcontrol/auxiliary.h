#ifndef VELMARMODELCONTROL_AUXILIARY_H
#define VELMARMODELCONTROL_AUXILIARY_H

#include "records/devicerecords.h"
#include "velmarmodelcontrol_export.h"

#include <QString>

#include <memory>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::ModelControl {

/*!
    Versions, upgrade configuration, progress and restart of one device.

    Made on the stack for one use. Every call blocks, for a finite time, on the calling thread.
*/
class VELMARMODELCONTROL_EXPORT Auxiliary
{
public:
    explicit Auxiliary(std::weak_ptr<BizModel::Device> device);
    virtual ~Auxiliary();

    /*! Fills \a version from the device. False, with \a errorText set, if it does not answer. */
    bool readDeviceVersion(ProtoModel::Auxiliary::s_DeviceVersion &version, QString &errorText);

    /*! Tells the device to install the image that it has received. */
    bool setUgradeConfig(const ProtoModel::Auxiliary::s_UpgradeDetail &detail);

    /*! One look at the device's progress. False, with \a errorText set, if it does not answer. */
    bool readUpgradeProgress(ProtoModel::Auxiliary::s_UpgradePercent &percent, QString &errorText);

    /*! Mode 0: the device restarts. True if the device took the order. */
    bool setDeviceShutDownMode(const unsigned char &mode);

private:
    std::weak_ptr<BizModel::Device> m_device;
};

} // namespace Velmar::ModelControl

#endif // VELMARMODELCONTROL_AUXILIARY_H
