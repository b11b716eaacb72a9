#ifndef VELMARHOST_REGISTERCHOICE_H
#define VELMARHOST_REGISTERCHOICE_H

#include "package/selection.h"

#include <QString>

namespace Velmar::Host {

class PackageListing;

/*!
    Chooses of \a offered what goes to the device \a modelId register by register: the main
    control's section "MCU".

    False if it is not offered, or if the unit that the upgrade library would take for the model has
    no commands for it in \a listing: a run would then do nothing and call it a success. \a
    errorText says so, and \a selection stays as it was.
*/
bool chooseForRegisters(const std::vector<PartOffer> &offered, const PackageListing &listing,
                        quint16 modelId, Selection &selection, QString &errorText);

/*! \a selection in the form in which the upgrade library takes it for this road. */
std::vector<ProtoModel::Auxiliary::s_CardInfoParts> registerParts(const Selection &selection);

} // namespace Velmar::Host

#endif // VELMARHOST_REGISTERCHOICE_H
