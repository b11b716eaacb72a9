#ifndef VELMARHOST_VERSIONCOMPARISON_H
#define VELMARHOST_VERSIONCOMPARISON_H

#include "device/toldversions.h"
#include "package/plan.h"

#include <QString>

#include <vector>

namespace Velmar::Host {

/*! How planned sections and a device's versions go together. */
struct VersionComparison {
    struct Deviation {
        PlannedSection section;
        QString versionNow; //!< empty: not told
    };

    int count = 0; //!< of all sections
    int asPlanned = 0; //!< have the version expected, or a new one if that is unknown
    int changed = 0; //!< have another version than before, as planned or not
    std::vector<Deviation> untold; //!< the device does not tell
    std::vector<Deviation> unchanged; //!< the version from before, though another was expected
    std::vector<Deviation> unjudged; //!< unknown what to expect, and the version from before, or
        //!< that was not told
    std::vector<Deviation> other; //!< a new version, but not the one expected

    bool isAsPlanned() const { return count > 0 && asPlanned == count; }
};

VersionComparison compareVersions(const std::vector<PlannedSection> &sections,
                                  const ToldVersions &versions);

} // namespace Velmar::Host

#endif // VELMARHOST_VERSIONCOMPARISON_H
