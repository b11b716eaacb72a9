#ifndef VELMARHOST_FORMERPLAN_H
#define VELMARHOST_FORMERPLAN_H

#include "package/plan.h"

#include <QString>

#include <optional>

namespace Velmar::Host {

/*!
    What the device with the serial number \a serial is getting by the last run on it that was
    recorded in \a baseFolder (empty: runRecordsFolder()) with a plan.

    Nothing if there is no such run, or if it knew its end: what the device installs now is not that
    run's then.
*/
std::optional<Plan> formerPlan(const QString &serial, const QString &baseFolder = QString());

} // namespace Velmar::Host

#endif // VELMARHOST_FORMERPLAN_H
