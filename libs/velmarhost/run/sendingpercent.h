#ifndef VELMARHOST_SENDINGPERCENT_H
#define VELMARHOST_SENDINGPERCENT_H

#include <QString>

#include <optional>

namespace Velmar::Host {

/*!
    The percentage in the library's status text about sending, in whatever language is installed;
    nothing if \a statusText is another text.

    The library hands out the sending percentage in this text and nowhere else.
*/
std::optional<int> sendingPercent(const QString &statusText);

/*! The same for an upload over HTTP. */
std::optional<int> uploadPercent(const QString &statusText);

} // namespace Velmar::Host

#endif // VELMARHOST_SENDINGPERCENT_H
