#ifndef VELMARHOST_SELECTION_H
#define VELMARHOST_SELECTION_H

#include "package/offer.h"
#include "records/devicerecords.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace Velmar::Host {

/*! What a user wants of that which fits. */
struct Wish {
    QStringList sections; //!< names of sections; empty: all
    QStringList cards; //!< slot numbers, or "main" for the main control; empty: all parts
};

/*! Which sections of which parts a device is to be upgraded with. */
class Selection
{
public:
    /*!
        Chooses of \a offered what \a wish names. With both sections and cards named, a section is
        chosen on the named cards alone.

        False if nothing is offered, or if a name or slot of \a wish fits nothing; \a errorText then
        names it and lists what would fit, and the selection stays as it was.
    */
    bool choose(const std::vector<PartOffer> &offered, const Wish &wish, QString &errorText);

    const std::vector<PartOffer> &parts() const;

    /*! The choice in the form of the upgrade library: a record for each part, or several if the
        sections of a part are of several types. */
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> cardInfoParts() const;

private:
    std::vector<PartOffer> m_parts;
};

} // namespace Velmar::Host

#endif // VELMARHOST_SELECTION_H
