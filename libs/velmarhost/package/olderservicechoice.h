#ifndef VELMARHOST_OLDERSERVICECHOICE_H
#define VELMARHOST_OLDERSERVICECHOICE_H

#include "package/selection.h"

#include <QString>

namespace Velmar::Host {

/*! Whether the older generation of the HTTP service renews \a section of \a part. */
bool isOfOlderService(const PartOffer &part, const SectionOffer &section);

/*!
    Chooses of \a offered what \a wish names for a device with the older generation of the HTTP
    service: that renews the main control's "MCU" and the back plane's "MCU_Back", whatever else an
    image holds.

    False if neither is offered or the wish names anything else; \a errorText says so, and \a
    selection stays as it was.
*/
bool chooseForOlderService(const std::vector<PartOffer> &offered, const Wish &wish,
                           Selection &selection, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_OLDERSERVICECHOICE_H
