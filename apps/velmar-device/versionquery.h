#ifndef VELMARDEVICE_VERSIONQUERY_H
#define VELMARDEVICE_VERSIONQUERY_H

#include "generation.h"
#include "linkoperations.h"

namespace Velmar::Simulator {

class Faults;

/*!
    Adds command, of which this device knows the version query alone.

    A device of the older generation does not know that either. What the arguments refer to has to
    outlive \a table.
*/
void addVersionQuery(OperationTable &table, const Identity &identity, Generation generation,
                     const Faults &faults);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_VERSIONQUERY_H
