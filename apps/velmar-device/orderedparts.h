#ifndef VELMARDEVICE_ORDEREDPARTS_H
#define VELMARDEVICE_ORDEREDPARTS_H

#include "installation.h"

namespace Velmar::Simulator {

class Fitting;

/*! Adds \a part to \a order if this device has such a card, with \a boardId, and such sections on
    it. The board of the device itself is not looked at. */
Outcome addToOrder(const Fitting &fitting, const PartOrder &part, quint8 boardId,
                   InstallationOrder &order);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_ORDEREDPARTS_H
