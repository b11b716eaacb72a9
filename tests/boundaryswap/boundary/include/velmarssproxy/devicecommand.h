#ifndef TINY_VELMARSSPROXY_DEVICECOMMAND_H
#define TINY_VELMARSSPROXY_DEVICECOMMAND_H

#include <cstdint>
#include <string>

namespace Velmar::SSProxy {

class IDeviceCommand
{
public:
    virtual ~IDeviceCommand();

    void setBody(const std::string &body);
    const std::string &body() const;

    std::uint8_t label = 0;

private:
    std::string m_body;
};

class DeviceRequestCommand : public IDeviceCommand
{
public:
    DeviceRequestCommand();
    ~DeviceRequestCommand() override;

    std::uint8_t commandKind = 0;
    std::uint8_t commandId = 0;
    std::uint8_t commandGroup = 0;

    std::uint8_t isScannerTarget = 0;
    std::uint8_t writeFlag = 0;
    std::uint8_t reservedFlag = 0;
    std::uint32_t address = 0;
    std::uint16_t dataLength = 0;
    std::uint8_t trailingFlag = 0;

    void setTimeout(int timeout);

    virtual const std::string &buffer() const;
    virtual std::string &buffer();
    virtual unsigned long long bufferLen() const;
    virtual void setBuffer(const std::string &buffer);
    virtual void setBufferLen(const unsigned long long &length);

private:
    std::string m_buffer;
};

class DeviceResponseCommand : public IDeviceCommand
{
public:
    ~DeviceResponseCommand() override;

    std::uint16_t ack = 0;
};

} // namespace Velmar::SSProxy

#endif // TINY_VELMARSSPROXY_DEVICECOMMAND_H
