#ifndef VELMARDEVICE_REGISTEROPERATIONS_H
#define VELMARDEVICE_REGISTEROPERATIONS_H

#include <functional>

namespace Velmar::Simulator {

class DeviceState;
class Faults;
class Installer;
class Mishaps;
class OperationTable;
class RegisterBank;

/*! What register writes work on; all of it has to outlive the table. */
struct RegisterDevice {
    RegisterBank &bank;
    Installer &installer;
    DeviceState &state;
    const Faults &faults;
    Mishaps &mishaps;
    int storingMs; //!< that a device that must not be cut takes to store a file
};

/*! Adds register.write; \a restart is called behind the answer to the write that completes a file.
    No write is taken while the installer is at work, and the installer takes no order between that
    write and the restart. */
void addRegisterOperations(OperationTable &table, const RegisterDevice &device,
                           std::function<void()> restart);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_REGISTEROPERATIONS_H
