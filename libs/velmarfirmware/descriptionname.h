#ifndef VELMARFIRMWARE_DESCRIPTIONNAME_H
#define VELMARFIRMWARE_DESCRIPTIONNAME_H

#include <QString>

namespace Velmar::Firmware::Internal {

/*!
    The name of the file that describes the unit in \a folder: the first entry that ends in ".xml",
    in lower case, of QDir's default listing. It may be the name of a folder.

    Null if there is none, or no such folder.
*/
QString descriptionName(const QString &folder);

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_DESCRIPTIONNAME_H
