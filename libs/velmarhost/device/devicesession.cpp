#include "device/devicesession.h"

#include "device/devicefacts.h"
#include "device/greeting.h"
#include "device/modelnames.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/devicelink.h>
#include <velmarbizmodel/devicelist.h>

#include <optional>
#include <utility>

namespace Velmar::Host {

std::unique_ptr<DeviceSession> DeviceSession::open(const DeviceAddress &address, QString &errorText,
                                                   std::chrono::milliseconds timeout)
{
    return open(makeSocketLink(address), address.toString(), errorText, timeout);
}

std::unique_ptr<DeviceSession> DeviceSession::open(std::shared_ptr<BizModel::DeviceLink> link,
                                                   const QString &name, QString &errorText,
                                                   std::chrono::milliseconds timeout)
{
    auto greeting = greet(*link, name, timeout, errorText);
    if (!greeting)
        return nullptr;
    const auto *config =
        BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(greeting->modelId);
    if (!config) {
        errorText = QStringLiteral(
                        "The device at %1 is of model %2, which the catalogue does not know. Use a "
                        "catalogue that describes it")
                        .arg(name, modelNumber(greeting->modelId));
        return nullptr;
    }
    auto device = std::make_shared<BizModel::Device>(*config, std::move(greeting->cards), link);
    BizModel::DeviceList::instance()->setActivedDevice(device);
    return std::unique_ptr<DeviceSession>(
        new DeviceSession(std::move(device), greeting->serial, greeting->name));
}

DeviceSession::DeviceSession(std::shared_ptr<BizModel::Device> device, QString serial, QString name)
    : m_device(std::move(device))
    , m_serial(std::move(serial))
    , m_name(std::move(name))
{
}

DeviceSession::~DeviceSession()
{
    BizModel::DeviceList::instance()->setActivedDevice({});
    m_device->link()->close();
}

const std::shared_ptr<BizModel::Device> &DeviceSession::device() const
{
    return m_device;
}

const QString &DeviceSession::serial() const
{
    return m_serial;
}

const QString &DeviceSession::name() const
{
    return m_name;
}

} // namespace Velmar::Host
