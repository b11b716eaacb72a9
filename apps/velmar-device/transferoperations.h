#ifndef VELMARDEVICE_TRANSFEROPERATIONS_H
#define VELMARDEVICE_TRANSFEROPERATIONS_H

namespace Velmar::Simulator {

class Faults;
class FileReceiver;
class Installer;
class Mishaps;
class OperationTable;

/*! Adds file.announce, file.open, file.data and file.close. No file is taken while \a installer is
    at work. All arguments have to outlive \a table. */
void addTransferOperations(OperationTable &table, FileReceiver &receiver,
                           const Installer &installer, const Faults &faults, Mishaps &mishaps);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_TRANSFEROPERATIONS_H
