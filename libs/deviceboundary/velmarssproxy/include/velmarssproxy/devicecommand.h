#ifndef VELMARSSPROXY_DEVICECOMMAND_H
#define VELMARSSPROXY_DEVICECOMMAND_H

#include "velmarssproxy_export.h"

#include <cstdint>
#include <string>

namespace Velmar::SSProxy {

/*! What requests and answers have in common. */
class VELMARSSPROXY_EXPORT IDeviceCommand
{
public:
    virtual ~IDeviceCommand();

    void setBody(const std::string &body); //!< the payload
    const std::string &body() const;

    std::uint8_t label = 0; //!< number that the channel gave the request; its answer has the same

private:
    std::string m_body;
};

/*! A request over the raw channel: a command if commandKind is not 0, else a register write. */
class VELMARSSPROXY_EXPORT DeviceRequestCommand : public IDeviceCommand
{
public:
    DeviceRequestCommand();
    ~DeviceRequestCommand() override;

    // Of a command.
    std::uint8_t commandKind = 0;
    std::uint8_t commandId = 0;
    std::uint8_t commandGroup = 0;

    // Of a register write.
    std::uint8_t isScannerTarget = 0; //!< 1: the register is a scanner's
    std::uint8_t writeFlag = 0; //!< 1: write
    std::uint8_t reservedFlag = 0;
    std::uint32_t address = 0; //!< register address
    std::uint16_t dataLength = 0; //!< bytes of the payload
    std::uint8_t trailingFlag = 0;

    void setTimeout(int timeout); //!< milliseconds; 0: the channel's own default
    int timeout() const;

    /*! The request as raw bytes, for hosts that frame requests themselves. */
    virtual const std::string &buffer() const;
    virtual std::string &buffer();
    virtual unsigned long long bufferLen() const;
    virtual void setBuffer(const std::string &buffer);
    virtual void setBufferLen(const unsigned long long &length);

private:
    int m_timeout = 0;
    std::string m_buffer;
    unsigned long long m_bufferLen = 0;
};

/*! A device's answer to a DeviceRequestCommand. */
class VELMARSSPROXY_EXPORT DeviceResponseCommand : public IDeviceCommand
{
public:
    ~DeviceResponseCommand() override;

    std::uint16_t ack = 0; //!< 0: accepted
};

} // namespace Velmar::SSProxy

#endif // VELMARSSPROXY_DEVICECOMMAND_H
