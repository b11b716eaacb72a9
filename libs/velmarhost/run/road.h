#ifndef VELMARHOST_ROAD_H
#define VELMARHOST_ROAD_H

#include <QString>

#include <optional>

namespace Velmar::Host {

/*! How a device gets its firmware. */
enum class Road {
    Native, //!< one combined image over the device link
    Http, //!< one file to the device's HTTP service
    Registers, //!< the main control's MCU, register by register
};

/*! The word for \a road in options, plans and events, as in "native". Words are stable. */
QString roadWord(Road road);

/*! The road with that \a word. */
std::optional<Road> roadOf(const QString &word);

} // namespace Velmar::Host

#endif // VELMARHOST_ROAD_H
