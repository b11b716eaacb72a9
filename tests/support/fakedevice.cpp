#include "fakedevice.h"

#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/devicelist.h>

#include <utility>

using namespace Velmar::BizModel;

namespace {

const s_DeviceConfig &knownModel(unsigned short modelId)
{
    const s_DeviceConfig *const config =
        DeviceConfigManager::instance()->findDeviceConfigByID(modelId);
    if (config == nullptr)
        qFatal("The catalogue has no device model %d", modelId);
    return *config;
}

} // namespace

FakeDevice::FakeDevice(const s_DeviceConfig &config, const std::vector<Subcard> &subcards)
    : m_link(std::make_shared<ScriptedLink>())
{
    std::vector<std::shared_ptr<Subcard>> fitted;
    fitted.reserve(subcards.size());
    for (const Subcard &subcard : subcards)
        fitted.push_back(std::make_shared<Subcard>(subcard));
    m_device = std::make_shared<Device>(config, std::move(fitted), m_link);
    DeviceList::instance()->setActivedDevice(m_device);
}

FakeDevice::FakeDevice(unsigned short modelId, const std::vector<Subcard> &subcards)
    : FakeDevice(knownModel(modelId), subcards)
{
}

FakeDevice::~FakeDevice()
{
    DeviceList::instance()->setActivedDevice({});
}

std::weak_ptr<Device> FakeDevice::handle() const
{
    return m_device;
}

Device &FakeDevice::device() const
{
    return *m_device;
}

ScriptedLink &FakeDevice::link() const
{
    return *m_link;
}

void FakeDevice::expire()
{
    m_device.reset();
}
