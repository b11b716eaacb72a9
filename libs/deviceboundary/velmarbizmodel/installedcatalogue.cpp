#include "installedcatalogue_p.h"

#include <QMutex>
#include <QMutexLocker>

#include <atomic>
#include <utility>
#include <vector>

namespace Velmar::BizModel {

InterfaceConfig::s_SubCard::s_SubCard(const s_SubCardModel &model)
{
    for (const s_SubCardBoard &board : model.boards) {
        Board &entry = boards[board.boardId];
        entry.upgradeCfgs = board.upgradeCfgs;
        entry.sections.add(board.upgradeCfgs);
        allSections.add(board.upgradeCfgs);
    }
}

const Internal::SectionIndex *InterfaceConfig::s_SubCard::sections(int extendNum) const
{
    if (extendNum == 0)
        return &allSections;
    const auto board = boards.find(extendNum);
    return board == boards.end() ? nullptr : &board->second.sections;
}

namespace Internal {

namespace {

// All catalogues that this process has installed: pointers into each may still be in use.
struct Registry {
    QMutex mutex; // guards catalogues
    std::vector<std::unique_ptr<InstalledCatalogue>> catalogues;
    std::atomic<InstalledCatalogue *> current { nullptr };

    void append(std::unique_ptr<InstalledCatalogue> catalogue)
    {
        catalogues.push_back(std::move(catalogue));
        current.store(catalogues.back().get(), std::memory_order_release);
    }
};

Registry &registry()
{
    // Never destroyed: a worker thread may still look up while the process ends.
    static auto *const instance = new Registry;
    return *instance;
}

} // namespace

void SectionIndex::add(const QList<s_UpgradeCfg> &sections)
{
    for (const s_UpgradeCfg &section : sections) {
        m_codes.emplace(section.name, section.upgradeCode);
        m_names.emplace(section.upgradeCode, section.name);
    }
}

int SectionIndex::codeOf(const QString &name) const
{
    const auto entry = m_codes.find(name);
    return entry == m_codes.end() ? -1 : entry->second;
}

QString SectionIndex::nameOf(int code) const
{
    const auto entry = m_names.find(code);
    return entry == m_names.end() ? QString() : entry->second;
}

InstalledCatalogue::InstalledCatalogue(const Catalogue &catalogue)
{
    for (const s_DeviceConfig &model : catalogue.deviceModels())
        m_devices.emplace(model.modelId, model);
    for (const s_SubCardModel &model : catalogue.subCardModels())
        m_subCards.emplace(model.modelId, InterfaceConfig::s_SubCard(model));
}

InstalledCatalogue &InstalledCatalogue::current()
{
    Registry &all = registry();
    if (InstalledCatalogue *const catalogue = all.current.load(std::memory_order_acquire))
        return *catalogue;

    auto builtin = std::make_unique<InstalledCatalogue>(Catalogue::builtin());
    const QMutexLocker locker(&all.mutex);
    // Another thread may have installed one meanwhile, and that one counts.
    if (all.catalogues.empty())
        all.append(std::move(builtin));
    return *all.current.load(std::memory_order_relaxed);
}

void InstalledCatalogue::install(std::unique_ptr<InstalledCatalogue> catalogue)
{
    Registry &all = registry();
    const QMutexLocker locker(&all.mutex);
    all.append(std::move(catalogue));
}

s_DeviceConfig *InstalledCatalogue::findDevice(int modelId)
{
    const auto entry = m_devices.find(modelId);
    return entry == m_devices.end() ? nullptr : &entry->second;
}

InterfaceConfig::s_SubCard *InstalledCatalogue::findSubCard(int modelId)
{
    const auto entry = m_subCards.find(modelId);
    return entry == m_subCards.end() ? nullptr : &entry->second;
}

} // namespace Internal

} // namespace Velmar::BizModel
