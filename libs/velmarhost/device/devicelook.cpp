#include "device/devicelook.h"

#include "device/greeting.h"

#include <velmarbizmodel/devicelink.h>

#include <utility>

namespace Velmar::Host {

DeviceLooker::DeviceLooker(DeviceAddress address, std::shared_ptr<BizModel::DeviceLink> link,
                           std::chrono::milliseconds timeout)
    : m_address(std::move(address))
    , m_link(std::move(link))
    , m_timeout(timeout)
{
}

DeviceLook DeviceLooker::look()
{
    DeviceLook look;
    if (m_isGreeted && !m_link->isOpen()) {
        look.isInterrupted = true;
        m_isGreeted = false;
    }
    if (!m_isGreeted) {
        const auto greeting = greet(*m_link, m_address.toString(), m_timeout, look.errorText);
        if (!greeting) {
            look.kind = m_link->isOpen() ? DeviceLook::Kind::NoDevice : DeviceLook::Kind::Away;
            m_link->close();
            return look;
        }
        m_serial = greeting->serial;
        m_isGreeted = true;
    }

    QString noProgress; // many a device tells none, and is judged without
    const auto installation = readInstallation(m_link, m_timeout, noProgress);
    auto versions = readVersions(m_link, m_timeout, look.errorText);
    if (!m_link->isOpen()) { // even if the versions came before the end: the device is going down
        look.isInterrupted = true;
        m_isGreeted = false;
        return look;
    }
    look.serial = m_serial;
    if (installation)
        look.installation = installation->result;
    if (versions) {
        look.kind = DeviceLook::Kind::Versions;
        look.versions = std::move(*versions);
    } else {
        look.kind = DeviceLook::Kind::NoVersions;
    }
    return look;
}

} // namespace Velmar::Host
