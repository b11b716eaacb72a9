#ifndef VELMARUPGRADE_UPGRADEWISHES_H
#define VELMARUPGRADE_UPGRADEWISHES_H

#include "commandline.h"
#include "run/upgradewish.h"

#include <optional>

/*! What \a options of the verbs plan and run ask for, with catalogue and key put in use; nothing,
    with the error told, if they contradict each other or name what cannot be used. */
std::optional<Velmar::Host::UpgradeWish> upgradeWish(const CommandLine &options,
                                                     Velmar::Host::Goal goal);

#endif // VELMARUPGRADE_UPGRADEWISHES_H
