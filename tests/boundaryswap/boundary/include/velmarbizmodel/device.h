#ifndef TINY_VELMARBIZMODEL_DEVICE_H
#define TINY_VELMARBIZMODEL_DEVICE_H

#include <velmarbizmodel/deviceconfig.h>
#include <velmarbizmodel/subcard.h>

#include <memory>
#include <vector>

namespace Velmar::BizModel {

class Device
{
public:
    Device();

    unsigned short modelId() const;
    s_DeviceConfig &deviceConfig();
    QList<int> findSubcardBoardIdByModelId(int modelId);
    const std::vector<std::shared_ptr<Subcard>> &subcards() const;

private:
    s_DeviceConfig m_config;
    std::vector<std::shared_ptr<Subcard>> m_subcards;
};

} // namespace Velmar::BizModel

#endif // TINY_VELMARBIZMODEL_DEVICE_H
