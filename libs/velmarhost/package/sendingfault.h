#ifndef VELMARHOST_SENDINGFAULT_H
#define VELMARHOST_SENDINGFAULT_H

#include <QString>

namespace Velmar::Host {

struct Plan;

/*!
    Why the files of \a plan cannot be sent, or would not be what the device gets; empty if they can.
    By registers, \a unitVersion is that of the unit that is written.

    Reads files of the package only by registers, those of which no name tells that they are
    enciphered.
*/
QString sendingFault(const Plan &plan, const QString &unitVersion);

} // namespace Velmar::Host

#endif // VELMARHOST_SENDINGFAULT_H
