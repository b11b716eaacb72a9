#ifndef VELMARHOST_DEVICEFACTS_H
#define VELMARHOST_DEVICEFACTS_H

#include "device/deviceaddress.h"
#include "package/plan.h"
#include "records/devicerecords.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Velmar::BizModel {
class DeviceLink;
}

namespace Velmar::Host {

/*! What a host has to know of a device before it upgrades it. Texts are as the device tells them. */
struct DeviceFacts {
    DeviceAddress address;
    quint16 modelId = 0;
    QString serial; //!< may be empty
    QString name;
    std::vector<PlannedCard> cards; //!< in slot order
    ProtoModel::Auxiliary::s_DeviceVersion versions;
};

/*! Makes the link to the device at an address, closed. */
using LinkFactory = std::function<std::shared_ptr<BizModel::DeviceLink>(const DeviceAddress &)>;

/*! The factory for real devices. */
std::shared_ptr<BizModel::DeviceLink> makeSocketLink(const DeviceAddress &address);

/*
    All of these ask over a connection of their own, or over the link given, and block; any thread
    may call them. Nothing is repeated: each step (to connect, to greet, to ask) takes \a timeout at
    most. No device becomes the active one, and the catalogue is not asked, so that a device of an
    unknown model has facts as well. Where nothing is returned, \a errorText is a sentence without its
    full stop, made printable.
*/

/*! What the device at \a address is, and its versions. */
std::optional<DeviceFacts> readDeviceFacts(const DeviceAddress &address,
                                           std::chrono::milliseconds timeout, QString &errorText,
                                           const LinkFactory &makeLink = makeSocketLink);

/*! The progress of the device's last installation, whoever ordered that: \c result is 0 if it has
    installed nothing since it started, 1 while it installs, 2 or 3 behind a good or a bad end. */
std::optional<ProtoModel::Auxiliary::s_UpgradePercent>
readInstallation(const DeviceAddress &address, std::chrono::milliseconds timeout,
                 QString &errorText, const LinkFactory &makeLink = makeSocketLink);

/*! The same over \a link, of a device that was greeted. */
std::optional<ProtoModel::Auxiliary::s_UpgradePercent>
readInstallation(const std::shared_ptr<BizModel::DeviceLink> &link,
                 std::chrono::milliseconds timeout, QString &errorText);

/*! The versions over \a link, of a device that was greeted. */
std::optional<ProtoModel::Auxiliary::s_DeviceVersion>
readVersions(const std::shared_ptr<BizModel::DeviceLink> &link, std::chrono::milliseconds timeout,
             QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICEFACTS_H
