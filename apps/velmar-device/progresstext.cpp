#include "progresstext.h"

#include <velmarbizmodel/deviceconfig.h>

#include <nlohmann/json.hpp>

#include <algorithm>

namespace Velmar::Simulator {

namespace {

using Json = nlohmann::ordered_json;
using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

constexpr int Done = 2;

Json newer(const s_UpgradePercent &progress)
{
    Json parts = Json::array();
    for (const s_UpgradeCardParts &part : progress.parts) {
        Json sections = Json::array();
        for (const s_SectionPercent &section : part.section)
            sections.push_back({ { "code", section.code },
                                 { "rate", section.rate },
                                 { "result", section.result } });
        parts.push_back({ { "type", part.type },
                          { "slotId", part.slotId },
                          { "rate", part.rate },
                          { "result", part.result },
                          { "section", sections } });
    }
    return { { "result", progress.result },
             { "rate", progress.rate },
             { "subSections", { { "rate", progress.subSections.rate } } },
             { "parts", parts } };
}

int olderResult(int result)
{
    return result == Done ? 0 : 1;
}

Json olderList(quint16 modelId, const Json &sections)
{
    if (sections.empty())
        return Json::array();
    return Json::array({ { { "modelId", modelId }, { "slotId", 0 }, { "sections", sections } } });
}

Json older(const s_UpgradePercent &progress, const BizModel::s_DeviceConfig &model)
{
    if (progress.result == 0)
        return Json::array();
    Json mainControl = Json::array();
    Json backPlane = Json::array();
    quint16 current = 0;
    quint8 currentRate = 0;
    for (const s_UpgradeCardParts &part : progress.parts) {
        if (part.slotId != 0)
            continue;
        for (const s_SectionPercent &section : part.section) {
            const auto known = std::find_if(
                model.upgradeCfgs.begin(), model.upgradeCfgs.end(),
                [&section](const auto &entry) { return entry.upgradeCode == section.code; });
            if (known == model.upgradeCfgs.end())
                continue;
            // The first kind of part in the model's table is the main control.
            Json &list =
                known->type == model.upgradeCfgs.constFirst().type ? mainControl : backPlane;
            list.push_back({ { "code", known->compatibilityCode },
                             { "rate", section.rate },
                             { "result", olderResult(section.result) } });
            if (current == 0 || section.rate > 0) {
                current = known->compatibilityCode;
                currentRate = section.rate;
            }
        }
    }
    return Json::array({ { { "deviceId", model.modelId },
                           { "result", olderResult(progress.result) },
                           { "updateBaseSections",
                             { { "code", current },
                               { "rate", currentRate },
                               { "type", 1 },
                               { "modelId", model.modelId },
                               { "slotId", 0 } } },
                           { "updateSubSections", { { "rate", progress.subSections.rate } } },
                           { "mainControl", olderList(model.modelId, mainControl) },
                           { "backPlane", olderList(model.backPlaneModelId, backPlane) } } });
}

} // namespace

std::string progressText(const s_UpgradePercent &progress, Generation generation,
                         const BizModel::s_DeviceConfig &model)
{
    return (generation == Generation::Older ? older(progress, model) : newer(progress)).dump();
}

} // namespace Velmar::Simulator
