#ifndef VELMARHOST_SERVICEGENERATION_H
#define VELMARHOST_SERVICEGENERATION_H

#include <memory>

namespace Velmar::BizModel {
class DeviceLink;
struct s_DeviceConfig;
} // namespace Velmar::BizModel

namespace Velmar::Host {

/*! Which HTTP service a device has, as its version tells. */
enum class ServiceGeneration {
    Older, //!< renews its main control's "MCU" and its back plane's "MCU_Back", and nothing else
    Newer, //!< renews what is chosen
    None, //!< a device that does not take upgrades over HTTP
};

/*!
    Asks the device behind \a link for its version, and takes its answer as the upgrade library does
    for an upgrade with the compatibility flag: no answer, or none that can be read, is that of the
    older generation.

    Blocks for the time-out that \a config has for the question at most. Any thread.
*/
ServiceGeneration askServiceGeneration(const std::shared_ptr<BizModel::DeviceLink> &link,
                                       const BizModel::s_DeviceConfig &config);

} // namespace Velmar::Host

#endif // VELMARHOST_SERVICEGENERATION_H
