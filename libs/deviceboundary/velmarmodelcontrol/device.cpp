#include <velmarmodelcontrol/device.h>

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelink.h>

#include <utility>

namespace Velmar::ModelControl {

Device::Device(std::weak_ptr<BizModel::Device> device)
    : m_device(std::move(device))
{
}

Device::~Device() = default;

void Device::disconnectCommunication()
{
    if (const auto device = m_device.lock())
        device->link()->close();
}

} // namespace Velmar::ModelControl
