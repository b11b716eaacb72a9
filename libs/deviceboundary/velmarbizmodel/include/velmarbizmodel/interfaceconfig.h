#ifndef VELMARBIZMODEL_INTERFACECONFIG_H
#define VELMARBIZMODEL_INTERFACECONFIG_H

#include <velmarbizmodel/deviceconfig.h>

namespace Velmar::BizModel {

/*! The sub-card models of the catalogue in use, with their section tables: the built-in catalogue
    until Catalogue::install(). Any thread may look up at any time. */
class VELMARBIZMODEL_EXPORT InterfaceConfig
{
public:
    struct s_SubCard; //!< a sub-card model; opaque

    static InterfaceConfig *instance();

    /*! Code of \a sectionName on a sub-card of \a modelId; −1 if there is no such section.
        \a extendNum 0 looks through all boards of the model, by ascending board id, any other value
        through that board alone. */
    int findCodeBySectionName(int modelId, const QString &sectionName, int extendNum);

    /*! Name of the section with \a code on a sub-card of \a modelId; empty if there is none.
        \a extendNum as for findCodeBySectionName(). */
    QString findSectionNameByCode(int modelId, int code, int extendNum);

    /*! The sections of board \a boardId of sub-card model \a modelId; empty if unknown. */
    QList<s_UpgradeCfg> findUpgradeCfgByBoardId(int modelId, int boardId);

    /*! The sub-card model \a modelId, null if it is unknown. Valid until the process ends. */
    s_SubCard *findSubCardByModelId(const unsigned short &modelId);

private:
    InterfaceConfig() = default;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_INTERFACECONFIG_H
