#ifndef TINY_VELMARBIZMODEL_INTERFACECONFIG_H
#define TINY_VELMARBIZMODEL_INTERFACECONFIG_H

#include <velmarbizmodel/deviceconfig.h>

namespace Velmar::BizModel {

class InterfaceConfig
{
public:
    struct s_SubCard;

    static InterfaceConfig *instance();

    int findCodeBySectionName(int modelId, const QString &sectionName, int extendNum);
    QString findSectionNameByCode(int modelId, int code, int extendNum);
    QList<s_UpgradeCfg> findUpgradeCfgByBoardId(int modelId, int boardId);
    s_SubCard *findSubCardByModelId(const unsigned short &modelId);
};

} // namespace Velmar::BizModel

#endif // TINY_VELMARBIZMODEL_INTERFACECONFIG_H
