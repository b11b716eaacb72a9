#ifndef TINY_VELMARMODELCONTROL_DEVICE_H
#define TINY_VELMARMODELCONTROL_DEVICE_H

#include <memory>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::ModelControl {

class Device
{
public:
    explicit Device(std::weak_ptr<BizModel::Device> device);
    virtual ~Device();

    void disconnectCommunication();
};

} // namespace Velmar::ModelControl

#endif // TINY_VELMARMODELCONTROL_DEVICE_H
