#include "package/offer.h"

#include "show/printable.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QHash>
#include <QStringList>

#include <optional>
#include <utility>

namespace Velmar::Host {

namespace {

struct Section {
    quint16 code = 0;
    int type = 0;
};

/*! One part of the device while the units are matched with it. */
class Candidate
{
public:
    Candidate(PartOffer part, const QList<BizModel::s_UpgradeCfg> &table)
        : m_part(std::move(part))
    {
        for (const auto &entry : table) {
            if (!m_table.contains(entry.name)) // the first one counts
                m_table.insert(entry.name, { entry.upgradeCode, entry.type & 0xFF });
        }
    }

    void offer(const Firmware::UpgradeFileItem &item)
    {
        if (item.extendNum != 0 && item.extendNum != m_part.boardId)
            return;
        const auto section = findSection(item);
        if (!section)
            return;
        auto place = m_places.find(item.sectionName);
        if (place == m_places.end()) {
            place = m_places.insert(item.sectionName, m_part.sections.size());
            m_part.sections.push_back({ item.sectionName, section->code, section->type, {} });
        }
        m_part.sections[*place].items.append(item);
    }

    PartOffer &part() { return m_part; }

private:
    std::optional<Section> findSection(const Firmware::UpgradeFileItem &item) const
    {
        const auto entry = m_table.constFind(item.sectionName);
        if (entry == m_table.constEnd())
            return std::nullopt;
        // The library looks a card's section up by model and may find another board's entry.
        const bool isPlannable = m_part.isMainControl
            || BizModel::InterfaceConfig::instance()->findCodeBySectionName(
                   m_part.modelId, item.sectionName, item.extendNum)
                == entry->code;
        return isPlannable ? std::make_optional(*entry) : std::nullopt;
    }

    PartOffer m_part;
    QHash<QString, Section> m_table; // the sections of the part's own model and board
    QHash<QString, std::size_t> m_places; // section name to its place in m_part.sections
};

Candidate mainControl(const BizModel::s_DeviceConfig &config)
{
    return { PartOffer { true, 0, config.modelId, 0, {} }, config.upgradeCfgs };
}

std::vector<PartOffer> match(const QVector<Firmware::UpgradeCfg> &units,
                             std::vector<Candidate> candidates)
{
    QHash<int, std::vector<Candidate *>> candidatesByModel;
    for (auto &candidate : candidates)
        candidatesByModel[candidate.part().modelId].push_back(&candidate);

    for (const auto &unit : units) {
        const auto fitting = candidatesByModel.constFind(unit.modelId);
        if (fitting == candidatesByModel.constEnd())
            continue;
        for (auto *candidate : *fitting) {
            for (const auto &item : unit.files)
                candidate->offer(item);
        }
    }

    std::vector<PartOffer> parts;
    for (auto &candidate : candidates) {
        if (!candidate.part().sections.empty())
            parts.push_back(std::move(candidate.part()));
    }
    return parts;
}

} // namespace

std::vector<PartOffer> offeredParts(const QVector<Firmware::UpgradeCfg> &units,
                                    BizModel::Device &device)
{
    std::vector<Candidate> candidates { mainControl(device.deviceConfig()) };
    for (const auto &card : device.subcards()) {
        const auto modelId = static_cast<quint16>(card->modelId());
        candidates.emplace_back(PartOffer { false, card->slotId(), modelId, card->boardId(), {} },
                                BizModel::InterfaceConfig::instance()->findUpgradeCfgByBoardId(
                                    modelId, card->boardId()));
    }
    return match(units, std::move(candidates));
}

std::vector<PartOffer> offeredParts(const QVector<Firmware::UpgradeCfg> &units,
                                    const BizModel::s_DeviceConfig &config)
{
    return match(units, { mainControl(config) });
}

QString partName(const PartOffer &part)
{
    return part.isMainControl ? QStringLiteral("main control")
                              : QStringLiteral("card %1").arg(part.slotId);
}

QString summary(const std::vector<PartOffer> &parts)
{
    QStringList texts;
    for (const auto &part : parts) {
        QStringList names;
        for (const auto &section : part.sections)
            names.append(printable(section.name));
        texts.append(QStringLiteral("%1: %2").arg(partName(part), names.join(QLatin1String(", "))));
    }
    return texts.join(QLatin1String("; "));
}

} // namespace Velmar::Host
