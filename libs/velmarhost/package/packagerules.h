#ifndef VELMARHOST_PACKAGERULES_H
#define VELMARHOST_PACKAGERULES_H

#include <QString>
#include <QStringList>

namespace Velmar::Host {

// What the upgrade library makes of the names in a package. All of them are compared in their case.

/*! Label of the section with which data files go, and of all that is written by registers. */
extern const QString McuSection;

/*! The command that sends a file's bytes by registers. */
extern const QString DataCommand;

/*! The command that tells a card by registers, and one without which the library fails at it. */
extern const QString CardCommand;
extern const QString DeviceCommand;

/*! The commands with which the library does something by registers, and one that it drops on
    purpose. It passes over any other without a word. */
const QStringList &commandNames();

/*! True for a factory file, which is never sent. */
bool isGoldenFile(const QString &fileName);

/*! True for a file that is deciphered on its way into an image. By registers, all files are. */
bool isEncipheredFile(const QString &fileName);

/*! True for a file that goes with the main control's "MCU", if the path table names it. */
bool isMcuDataFile(const QString &path);

constexpr int DeepestPath = 16; //!< folders of a package in each other, around a file
constexpr int LongestPath = 1024; //!< bytes, of a file or folder relative to its package

constexpr int LongestTarget = 255; //!< bytes; an image's record has 256 and ends them with a zero

/*! True for 1 to LongestTarget printable ASCII characters that are not all blanks: what an image can
    hold of a place on a device. */
bool isTarget(const QString &target);

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGERULES_H
