#include <velmarbizmodel/device.h>

#include <velmarbizmodel/devicelink.h>

#include <algorithm>
#include <utility>

namespace Velmar::BizModel {

Device::Device(s_DeviceConfig config, std::vector<std::shared_ptr<Subcard>> subcards,
               std::shared_ptr<DeviceLink> link)
    : m_config(std::move(config))
    , m_subcards(std::move(subcards))
    , m_link(std::move(link))
{
    Q_ASSERT(m_link);
    std::stable_sort(m_subcards.begin(), m_subcards.end(), [](const auto &left, const auto &right) {
        return left->slotId() < right->slotId();
    });
}

unsigned short Device::modelId() const
{
    return m_config.modelId;
}

s_DeviceConfig &Device::deviceConfig()
{
    return m_config;
}

QList<int> Device::findSubcardBoardIdByModelId(int modelId)
{
    QList<int> boardIds;
    for (const auto &subcard : m_subcards) {
        // Widened, so that a negative id equals no card's unsigned one.
        if (qint64(subcard->modelId()) == qint64(modelId))
            boardIds.append(subcard->boardId());
    }
    return boardIds;
}

const std::vector<std::shared_ptr<Subcard>> &Device::subcards() const
{
    return m_subcards;
}

const std::shared_ptr<DeviceLink> &Device::link() const
{
    return m_link;
}

} // namespace Velmar::BizModel
