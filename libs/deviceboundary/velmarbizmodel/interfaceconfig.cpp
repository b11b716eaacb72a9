#include <velmarbizmodel/interfaceconfig.h>

#include "installedcatalogue_p.h"

namespace Velmar::BizModel {

namespace {

const Internal::SectionIndex *findSections(int modelId, int extendNum)
{
    const auto *subCard = Internal::InstalledCatalogue::current().findSubCard(modelId);
    return subCard ? subCard->sections(extendNum) : nullptr;
}

} // namespace

InterfaceConfig *InterfaceConfig::instance()
{
    static InterfaceConfig config;
    return &config;
}

int InterfaceConfig::findCodeBySectionName(int modelId, const QString &sectionName, int extendNum)
{
    const auto *sections = findSections(modelId, extendNum);
    return sections ? sections->codeOf(sectionName) : -1;
}

QString InterfaceConfig::findSectionNameByCode(int modelId, int code, int extendNum)
{
    const auto *sections = findSections(modelId, extendNum);
    return sections ? sections->nameOf(code) : QString();
}

QList<s_UpgradeCfg> InterfaceConfig::findUpgradeCfgByBoardId(int modelId, int boardId)
{
    const auto *subCard = Internal::InstalledCatalogue::current().findSubCard(modelId);
    if (!subCard)
        return {};
    const auto board = subCard->boards.find(boardId);
    return board == subCard->boards.end() ? QList<s_UpgradeCfg>() : board->second.upgradeCfgs;
}

InterfaceConfig::s_SubCard *InterfaceConfig::findSubCardByModelId(const unsigned short &modelId)
{
    return Internal::InstalledCatalogue::current().findSubCard(modelId);
}

} // namespace Velmar::BizModel
