#ifndef VELMARHOST_UPGRADEWISH_H
#define VELMARHOST_UPGRADEWISH_H

#include "device/deviceaddress.h"
#include "package/plan.h"
#include "package/selection.h"
#include "run/road.h"

#include <QString>

#include <chrono>
#include <functional>
#include <optional>

namespace Velmar::Host {

/*! How far an upgrade goes. */
enum class Goal {
    Plan, //!< settle what the device would get
    Upgrade,
    Watch, //!< follow an installation that is running already
};

/*! What a user wants of a host. */
struct UpgradeWish {
    Goal goal = Goal::Upgrade;
    DeviceAddress device;
    QString cataloguePath; //!< absolute; empty: the built-in catalogue

    // Not for Watch.
    QString packagePath; //!< absolute
    Road road = Road::Native;
    Wish wish;
    PlannedUpload upload; //!< for the HTTP road
    QString keyFilePath; //!< absolute; empty: the built-in key
    std::optional<Plan> plan; //!< made before: package and device have to be as they were

    // For Watch.
    bool mayRestart = false; //!< restart also a device whose installation had ended before
    std::function<std::optional<Plan>(const QString &serial)> formerPlan; //!< what a device is to
        //!< have by the run that was left; empty: nobody knows
};

/*! The host's own settings of an upgrade. */
struct UpgradeSettings {
    std::chrono::milliseconds timeLimit { std::chrono::hours(1) }; //!< of the whole
    std::chrono::milliseconds returnLimit { std::chrono::minutes(5) }; //!< until the device is back
    std::optional<std::chrono::milliseconds> silenceLimit; //!< until a device that is not heard of
        //!< is given up; a time that goes by road and phase unless set
    qint64 workerMemory = 512LL * 1024 * 1024; //!< bytes
    QString workFolder; //!< for private copies; empty: the default one
};

} // namespace Velmar::Host

#endif // VELMARHOST_UPGRADEWISH_H
