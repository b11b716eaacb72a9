#ifndef VELMARDEVICE_REGISTEROPERATIONS_H
#define VELMARDEVICE_REGISTEROPERATIONS_H

#include <functional>

namespace Velmar::Simulator {

class Faults;
class Installer;
class OperationTable;
class RegisterBank;

/*! Adds register.write; \a restart is called behind the answer to the write that completes a file.
    No write is taken while \a installer is at work, and \a installer takes no order between that
    write and the restart. All arguments have to outlive \a table. */
void addRegisterOperations(OperationTable &table, RegisterBank &bank, Installer &installer,
                           const Faults &faults, std::function<void()> restart);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_REGISTEROPERATIONS_H
