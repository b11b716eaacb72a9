#ifndef VELMARDEVICE_UPGRADEOPERATIONS_H
#define VELMARDEVICE_UPGRADEOPERATIONS_H

#include <functional>

namespace Velmar::Simulator {

class Faults;
class FileReceiver;
class Fitting;
class Installer;
class Mishaps;
class OperationTable;

/*! Adds upgrade.configure, upgrade.progress and device.shutdown; \a restart is called behind the
    answer that accepts a restart. All other arguments have to outlive \a table. */
void addUpgradeOperations(OperationTable &table, const Fitting &fitting, FileReceiver &receiver,
                          Installer &installer, const Faults &faults, Mishaps &mishaps,
                          std::function<void()> restart);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_UPGRADEOPERATIONS_H
