#include "package/selection.h"

#include "show/printable.h"

#include <QSet>

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

QString wishName(const PartOffer &part)
{
    return part.isMainControl ? QStringLiteral("main") : QString::number(part.slotId);
}

QStringList unmet(const QStringList &wishes, const QSet<QString> &met)
{
    QStringList names;
    for (const auto &name : wishes) {
        if (!met.contains(name))
            names.append(QStringLiteral("\"%1\"").arg(printable(name)));
    }
    return names;
}

} // namespace

bool Selection::choose(const std::vector<PartOffer> &offered, const Wish &wish, QString &errorText)
{
    if (offered.empty()) {
        errorText = QStringLiteral("Nothing in the package fits this device");
        return false;
    }
    const QSet<QString> wantedCards(wish.cards.cbegin(), wish.cards.cend());
    const QSet<QString> wantedSections(wish.sections.cbegin(), wish.sections.cend());
    QSet<QString> metCards;
    QSet<QString> metSections;
    std::vector<PartOffer> chosen;
    for (auto part : offered) {
        if (!wantedCards.isEmpty() && !wantedCards.contains(wishName(part)))
            continue;
        if (!wantedSections.isEmpty()) {
            part.sections.erase(std::remove_if(part.sections.begin(), part.sections.end(),
                                               [&wantedSections](const SectionOffer &section) {
                                                   return !wantedSections.contains(section.name);
                                               }),
                                part.sections.end());
        }
        if (part.sections.empty())
            continue;
        metCards.insert(wishName(part));
        for (const auto &section : part.sections)
            metSections.insert(section.name);
        chosen.push_back(std::move(part));
    }

    const auto cards = unmet(wish.cards, metCards);
    const auto sections = unmet(wish.sections, metSections);
    if (!cards.isEmpty() || !sections.isEmpty()) {
        QStringList what;
        if (!sections.isEmpty())
            what.append(QStringLiteral("section ") + sections.join(QLatin1String(", ")));
        if (!cards.isEmpty())
            what.append(QStringLiteral("card ") + cards.join(QLatin1String(", ")));
        errorText = QStringLiteral("Nothing fits for %1. What fits: %2")
                        .arg(what.join(QLatin1String(" and ")), summary(offered));
        return false;
    }
    m_parts = std::move(chosen);
    return true;
}

const std::vector<PartOffer> &Selection::parts() const
{
    return m_parts;
}

std::vector<ProtoModel::Auxiliary::s_CardInfoParts> Selection::cardInfoParts() const
{
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> records;
    for (const auto &part : m_parts) {
        const auto first = records.size();
        for (const auto &section : part.sections) {
            // A device tells its parts apart by type and slot, and a section's type is its part's.
            auto record = std::find_if(
                records.begin() + static_cast<std::ptrdiff_t>(first), records.end(),
                [&section](const auto &candidate) { return candidate.type == section.type; });
            if (record == records.end()) {
                ProtoModel::Auxiliary::s_CardInfoParts fresh;
                fresh.type = section.type;
                fresh.slotId = part.slotId;
                fresh.modelId = part.modelId;
                fresh.boardId = part.boardId;
                record = records.insert(records.end(), std::move(fresh));
            }
            record->section.push_back({ section.code });
        }
    }
    return records;
}

} // namespace Velmar::Host
