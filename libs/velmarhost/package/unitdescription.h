#ifndef VELMARHOST_UNITDESCRIPTION_H
#define VELMARHOST_UNITDESCRIPTION_H

#include "package/packagelisting.h"

#include <QString>

namespace Velmar::Host {

/*!
    Reads the description \a file, relative to the folder \a package, into \a unit, of which folder
    and path are set.

    What breaks a rule is added to the unit's faults. A fault for which the upgrade library takes
    nothing of the file sets the unit's problem, and leaves the unit without contents.
*/
void readUnitDescription(const QString &package, const QString &file, XmlAccount &account,
                         ListedUnit &unit);

} // namespace Velmar::Host

#endif // VELMARHOST_UNITDESCRIPTION_H
