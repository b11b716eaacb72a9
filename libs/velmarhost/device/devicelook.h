#ifndef VELMARHOST_DEVICELOOK_H
#define VELMARHOST_DEVICELOOK_H

#include "device/devicefacts.h"

#include <QString>

#include <chrono>
#include <memory>
#include <optional>

namespace Velmar::Host {

/*! What one look at a device's address has shown. */
struct DeviceLook {
    enum class Kind {
        Away, //!< nothing can be reached there
        NoDevice, //!< something answers, but not as a device
        NoVersions, //!< the device answers and does not tell its versions, or not readably
        Versions,
    };

    Kind kind = Kind::Away;
    bool isInterrupted = false; //!< the connection of the look before has ended
    QString errorText; //!< why there are no versions; made printable
    QString serial; //!< of NoVersions and Versions
    ProtoModel::Auxiliary::s_DeviceVersion versions; //!< of Versions
    std::optional<int> installation; //!< result of the last one, if the device tells
};

/*!
    Looks at one address again and again, and keeps the connection in between.

    look() blocks; one thread at a time.
*/
class DeviceLooker
{
public:
    /*! \a timeout is for each step of a look. */
    DeviceLooker(DeviceAddress address, std::shared_ptr<BizModel::DeviceLink> link,
                 std::chrono::milliseconds timeout);

    DeviceLook look();

private:
    const DeviceAddress m_address;
    const std::shared_ptr<BizModel::DeviceLink> m_link;
    const std::chrono::milliseconds m_timeout;
    QString m_serial; // of the device at the other end
    bool m_isGreeted = false; // over the connection that is held
};

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICELOOK_H
