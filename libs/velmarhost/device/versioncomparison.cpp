#include "device/versioncomparison.h"

namespace Velmar::Host {

ToldVersions::ToldVersions(const ProtoModel::Auxiliary::s_DeviceVersion &versions)
{
    for (const auto &part : versions.parts) {
        const auto key = qMakePair(int(part.type), int(part.slotId));
        if (m_parts.contains(key))
            continue;
        auto &sections = m_parts[key];
        for (const auto &section : part.section) {
            const auto version = QString::fromStdString(section.version);
            if (!sections.contains(section.code))
                sections.insert(section.code,
                                version == QLatin1String("N/A") ? QString() : version);
        }
    }
}

QString ToldVersions::find(int type, quint8 slotId, quint16 code) const
{
    const auto part = m_parts.constFind({ type, slotId });
    return part == m_parts.constEnd() ? QString() : part->value(code);
}

bool ToldVersions::operator==(const ToldVersions &other) const
{
    return m_parts == other.m_parts;
}

VersionComparison compareVersions(const std::vector<PlannedSection> &sections,
                                  const ToldVersions &versions)
{
    VersionComparison comparison;
    for (const auto &section : sections) {
        ++comparison.count;
        const auto now = versions.find(section.type, section.slotId, section.code);
        const bool isNew =
            !now.isEmpty() && !section.versionBefore.isEmpty() && now != section.versionBefore;
        comparison.changed += isNew ? 1 : 0;
        if (now.isEmpty())
            comparison.untold.push_back({ section, now });
        else if (section.versionExpected.isEmpty() ? isNew : now == section.versionExpected)
            ++comparison.asPlanned;
        else if (section.versionExpected.isEmpty())
            comparison.unjudged.push_back({ section, now });
        else if (now == section.versionBefore)
            comparison.unchanged.push_back({ section, now });
        else
            comparison.other.push_back({ section, now });
    }
    return comparison;
}

} // namespace Velmar::Host
