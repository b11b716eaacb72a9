#include <tinyboundary/calls.h>
#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/devicecommand.h>
#include <velmarssproxy/devicemanager.h>

namespace Velmar::SSProxy {

IDeviceCommand::~IDeviceCommand() = default;

void IDeviceCommand::setBody(const std::string &body)
{
    m_body = body;
}

const std::string &IDeviceCommand::body() const
{
    return m_body;
}

DeviceRequestCommand::DeviceRequestCommand() = default;

DeviceRequestCommand::~DeviceRequestCommand() = default;

void DeviceRequestCommand::setTimeout(int) { }

const std::string &DeviceRequestCommand::buffer() const
{
    return m_buffer;
}

std::string &DeviceRequestCommand::buffer()
{
    return m_buffer;
}

unsigned long long DeviceRequestCommand::bufferLen() const
{
    return m_buffer.size();
}

void DeviceRequestCommand::setBuffer(const std::string &buffer)
{
    m_buffer = buffer;
}

void DeviceRequestCommand::setBufferLen(const unsigned long long &length)
{
    m_buffer.resize(length);
}

DeviceResponseCommand::~DeviceResponseCommand() = default;

std::shared_ptr<DeviceResponseCommand>
DeviceChannel::sendSyncRequest(std::shared_ptr<DeviceRequestCommand>)
{
    TinyBoundary::note(QStringLiteral("sendSyncRequest"));
    return std::make_shared<DeviceResponseCommand>();
}

bool DeviceChannel::isHardwareReadFinished()
{
    return true;
}

void DeviceChannel::pauseHeartbeat(const int &) { }

void DeviceChannel::restartHeartbeat() { }

DeviceManager *DeviceManager::instance()
{
    static DeviceManager manager;
    return &manager;
}

void DeviceManager::stopDeviceUDPProbe()
{
    TinyBoundary::note(QStringLiteral("stopDeviceUDPProbe"));
}

void DeviceManager::startDeviceProbe(const QString &, const unsigned short &,
                                     const unsigned short &, const unsigned short &)
{
    TinyBoundary::note(QStringLiteral("startDeviceProbe"));
}

} // namespace Velmar::SSProxy
