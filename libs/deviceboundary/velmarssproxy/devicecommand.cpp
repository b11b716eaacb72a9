#include <velmarssproxy/devicecommand.h>

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

void DeviceRequestCommand::setTimeout(int timeout)
{
    m_timeout = timeout;
}

int DeviceRequestCommand::timeout() const
{
    return m_timeout;
}

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
    return m_bufferLen;
}

void DeviceRequestCommand::setBuffer(const std::string &buffer)
{
    m_buffer = buffer;
}

void DeviceRequestCommand::setBufferLen(const unsigned long long &length)
{
    m_bufferLen = length;
}

DeviceResponseCommand::~DeviceResponseCommand() = default;

} // namespace Velmar::SSProxy
