#ifndef VELMARHOST_HTTPPROGRESS_H
#define VELMARHOST_HTTPPROGRESS_H

#include <QByteArray>
#include <QString>

#include <optional>

namespace Velmar::Host {

/*! In which forms a device may tell its progress over HTTP. */
enum class ProgressForm {
    Newer, //!< as an object
    Either, //!< as an object, or as the older generation's list
};

/*!
    The progress that \a body tells, written anew for the library.

    The library's reader takes much that is no JSON, cuts numbers to the width of their fields, takes
    an absent result for 0, which is success for the older generation, and never ends on some texts,
    among them correct ones. So it gets none that a device has written: \a body has to be JSON in
    UTF-8, all that is known in it of the right type and range, the results told, and no key twice;
    what is told here are the known keys alone. Of a list, the first element counts.

    Nothing, with \a errorText saying what is wrong, for any other body.
*/
std::optional<QByteArray> judgedProgress(const QByteArray &body, ProgressForm form,
                                         QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_HTTPPROGRESS_H
