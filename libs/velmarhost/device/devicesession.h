#ifndef VELMARHOST_DEVICESESSION_H
#define VELMARHOST_DEVICESESSION_H

#include "device/deviceaddress.h"

#include <QString>

#include <chrono>
#include <memory>

namespace Velmar::BizModel {
class Device;
class DeviceLink;
} // namespace Velmar::BizModel

namespace Velmar::Host {

/*!
    A device that a host is connected to and has made the active one.

    Owns the device object; the upgrade library holds weak pointers alone. Made in any thread, while
    no run of the library is going on, and destroyed likewise.
*/
class DeviceSession
{
public:
    /*!
        Connects to \a address, asks the device what it is and makes it the active one.

        Blocks for at most twice \a timeout. Null if there is no device, if it does not answer as
        one, speaks another protocol version or is of a model that the catalogue in use does not
        know; \a errorText then says so in a sentence, and what to do.
    */
    static std::unique_ptr<DeviceSession>
    open(const DeviceAddress &address, QString &errorText,
         std::chrono::milliseconds timeout = std::chrono::seconds(5));

    /*! The same over \a link, which is opened if it is closed; \a name stands for the device in
        \a errorText. */
    static std::unique_ptr<DeviceSession>
    open(std::shared_ptr<BizModel::DeviceLink> link, const QString &name, QString &errorText,
         std::chrono::milliseconds timeout = std::chrono::seconds(5));

    /*! Closes the link. No device is the active one afterwards. */
    ~DeviceSession();

    const std::shared_ptr<BizModel::Device> &device() const;
    const QString &serial() const; //!< as the device tells it, not made printable
    const QString &name() const; //!< as the device tells it, not made printable

private:
    DeviceSession(std::shared_ptr<BizModel::Device> device, QString serial, QString name);
    Q_DISABLE_COPY_MOVE(DeviceSession)

    const std::shared_ptr<BizModel::Device> m_device;
    const QString m_serial;
    const QString m_name;
};

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICESESSION_H
