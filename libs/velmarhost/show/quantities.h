#ifndef VELMARHOST_QUANTITIES_H
#define VELMARHOST_QUANTITIES_H

#include <QString>

#include <chrono>

namespace Velmar::Host {

/*! \a duration as a clock shows it, as in "0:42" or "1:02:03"; parts of a second are left out. */
QString clockText(std::chrono::milliseconds duration);

/*! \a duration in words, as in "45 s", "2 min" or "90 min"; begun minutes count. */
QString limitText(std::chrono::seconds duration);

/*! \a bytes as in "256 MiB"; parts of a unit are left out, and no number is below 10 but of bytes. */
QString amountText(qint64 bytes);

/*! \a bytes of \a total in the unit that suits the total, as in "108 of 256 MiB". */
QString amountText(qint64 bytes, qint64 total);

} // namespace Velmar::Host

#endif // VELMARHOST_QUANTITIES_H
