#include "device/versioncomparison.h"

namespace Velmar::Host {

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
