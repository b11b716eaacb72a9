#ifndef VELMARBIZMODEL_INSTALLEDCATALOGUE_P_H
#define VELMARBIZMODEL_INSTALLEDCATALOGUE_P_H

#include <velmarbizmodel/catalogue.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QString>

#include <memory>
#include <unordered_map>

namespace Velmar::BizModel {

namespace Internal {

/*! Finds the sections of one board, or of a whole model, by either key. */
class SectionIndex
{
public:
    /*! Of sections with one name, or with one code, the first that is added is found. */
    void add(const QList<s_UpgradeCfg> &sections);

    int codeOf(const QString &name) const; //!< −1 if there is none
    QString nameOf(int code) const; //!< empty if there is none

private:
    std::unordered_map<QString, int> m_codes;
    std::unordered_map<int, QString> m_names;
};

} // namespace Internal

/*! A sub-card model with what its look-ups need. */
struct InterfaceConfig::s_SubCard {
    struct Board {
        QList<s_UpgradeCfg> upgradeCfgs;
        Internal::SectionIndex sections;
    };

    explicit s_SubCard(const s_SubCardModel &model);

    /*! The sections that \a extendNum stands for, null if there is no such board. */
    const Internal::SectionIndex *sections(int extendNum) const;

    Internal::SectionIndex allSections;
    std::unordered_map<int, Board> boards; // by board id
};

namespace Internal {

/*! A catalogue as the look-ups of this process see it. Not changed once it is made. */
class InstalledCatalogue
{
public:
    explicit InstalledCatalogue(const Catalogue &catalogue);

    /*! The one that was installed last; the built-in one if none was. */
    static InstalledCatalogue &current();

    /*! Makes \a catalogue the current one. Any thread may call it. */
    static void install(std::unique_ptr<InstalledCatalogue> catalogue);

    s_DeviceConfig *findDevice(int modelId); //!< null if unknown
    InterfaceConfig::s_SubCard *findSubCard(int modelId); //!< null if unknown

private:
    // By model id. Maps whose elements never move: pointers to them are handed out.
    std::unordered_map<int, s_DeviceConfig> m_devices;
    std::unordered_map<int, InterfaceConfig::s_SubCard> m_subCards;
};

} // namespace Internal

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_INSTALLEDCATALOGUE_P_H
