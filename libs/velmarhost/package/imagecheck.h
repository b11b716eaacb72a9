#ifndef VELMARHOST_IMAGECHECK_H
#define VELMARHOST_IMAGECHECK_H

#include <QString>

namespace Velmar::Host {

struct Plan;

/*!
    Whether the combined image at \a path is sound and holds exactly what \a plan has: the device's
    model, the same targets in the same order, and of each file as many bytes as it has, or could
    have deciphered.

    Reads the whole image once. False, with \a errorText naming the first difference, if it does
    not.
*/
bool checkImage(const QString &path, const Plan &plan, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_IMAGECHECK_H
