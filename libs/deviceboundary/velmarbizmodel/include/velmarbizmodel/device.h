#ifndef VELMARBIZMODEL_DEVICE_H
#define VELMARBIZMODEL_DEVICE_H

#include <velmarbizmodel/deviceconfig.h>
#include <velmarbizmodel/subcard.h>

#include <atomic>
#include <memory>
#include <vector>

namespace Velmar::BizModel {

class DeviceLink;

/*!
    A connected device: its model, its fitted cards and the link to it.

    Everything but upgradeRun is set at construction and not changed afterwards, so that any thread
    may read it.
*/
class VELMARBIZMODEL_EXPORT Device
{
public:
    Device(s_DeviceConfig config, std::vector<std::shared_ptr<Subcard>> subcards,
           std::shared_ptr<DeviceLink> link);

    unsigned short modelId() const;

    /*! Description of this device's model. */
    s_DeviceConfig &deviceConfig();

    /*! Board ids of the fitted sub-cards of \a modelId, in slot order; empty if there are none. */
    QList<int> findSubcardBoardIdByModelId(int modelId);

    /*! The fitted sub-cards, in slot order. */
    const std::vector<std::shared_ptr<Subcard>> &subcards() const;

    /*! The link to the hardware, never null. */
    const std::shared_ptr<DeviceLink> &link() const;

    /*!
        Number of the installation that this host ordered last, 0 for none.

        The device numbers its installations; a result with a lower number is an older one's.
    */
    std::atomic<quint32> upgradeRun { 0 };

private:
    s_DeviceConfig m_config;
    std::vector<std::shared_ptr<Subcard>> m_subcards;
    std::shared_ptr<DeviceLink> m_link;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_DEVICE_H
