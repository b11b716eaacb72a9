#ifndef VELMARDEVICE_RECEIVEDIMAGE_H
#define VELMARDEVICE_RECEIVEDIMAGE_H

#include "outcome.h"

#include <QByteArray>

namespace Velmar::Simulator {

class DeviceState;
class StateFolder;

/*!
    Makes the file at \a path, of which \a sha256 is the hash, the image that waits to be installed.

    The file is complete, on the disk and on the file system of \a folder; it is moved. What is no
    image for this device is refused, and then the file stays, and the image before, too.
*/
Outcome keepImage(const QString &path, const QByteArray &sha256, const StateFolder &folder,
                  DeviceState &state);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_RECEIVEDIMAGE_H
