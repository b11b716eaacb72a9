#ifndef VELMARHOST_IMAGECHECK_H
#define VELMARHOST_IMAGECHECK_H

#include <QString>

namespace Velmar::Host {

struct Plan;

/*! Who adds up an image's bytes. */
enum class ImageSum {
    Checked,
    LeftToSender, //!< the control layer does before it sends over the device link
};

/*!
    Whether the combined image at \a path is sound and holds exactly what \a plan has: the device's
    model, the same targets in the same order, and of each file as many bytes as it has, or could
    have deciphered.

    Reads the whole image once, or, if \a sum is left to others, its header and table only. False,
    with \a errorText naming the first difference, if it does not.
*/
bool checkImage(const QString &path, const Plan &plan, QString &errorText,
                ImageSum sum = ImageSum::Checked);

} // namespace Velmar::Host

#endif // VELMARHOST_IMAGECHECK_H
