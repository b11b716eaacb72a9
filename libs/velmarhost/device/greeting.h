#ifndef VELMARHOST_GREETING_H
#define VELMARHOST_GREETING_H

#include <velmarbizmodel/subcard.h>

#include <QString>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace Velmar::BizModel {
class DeviceLink;
}

namespace Velmar::Host {

/*! What a device says about itself, its texts as it tells them. */
struct Greeting {
    quint16 modelId = 0;
    QString serial;
    QString name;
    std::vector<std::shared_ptr<BizModel::Subcard>> cards; //!< in slot order
};

/*!
    Opens \a link if it is closed, and asks the device behind it what it is.

    Blocks for at most twice \a timeout; any thread. Nothing if there is no device, if it does not
    answer as one or speaks another protocol version; \a errorText then says so in a sentence with
    what to do, made printable, in which \a name stands for the device.
*/
std::optional<Greeting> greet(BizModel::DeviceLink &link, const QString &name,
                              std::chrono::milliseconds timeout, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_GREETING_H
