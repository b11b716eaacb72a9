#ifndef VELMARMODELCONTROL_DEVICE_H
#define VELMARMODELCONTROL_DEVICE_H

#include "velmarmodelcontrol_export.h"

#include <memory>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::ModelControl {

/*! Control of the connection to one device. Made on the stack for one use. */
class VELMARMODELCONTROL_EXPORT Device
{
public:
    explicit Device(std::weak_ptr<BizModel::Device> device);
    virtual ~Device();

    /*! Closes the connection to the device. */
    void disconnectCommunication();

private:
    std::weak_ptr<BizModel::Device> m_device;
};

} // namespace Velmar::ModelControl

#endif // VELMARMODELCONTROL_DEVICE_H
