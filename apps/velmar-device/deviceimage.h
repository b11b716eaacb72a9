#ifndef VELMARDEVICE_DEVICEIMAGE_H
#define VELMARDEVICE_DEVICEIMAGE_H

#include <QString>

#include <optional>
#include <vector>

namespace Velmar::Simulator {

/*! One file of an image. */
struct ImageFile {
    QString installedPath; //!< below the folder of installed files, see installedPath()
    qint64 offset = 0; //!< of its first byte, from the start of the image
    qint64 length = 0;
};

/*! What this device takes from an image. */
struct DeviceImage {
    QString version; //!< dotted, from the header
    std::vector<ImageFile>
        files; //!< in the image's order; of two with one path the later one holds
};

/*!
    Reads the image at \a path, in constant memory but for its table.

    Without a value, and with \a errorText set, if its lengths, offsets or sum are wrong, if it is
    not for a device of \a modelId, or if its files cannot lie beside each other on this device.
*/
std::optional<DeviceImage> readDeviceImage(const QString &path, quint16 modelId,
                                           QString &errorText);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DEVICEIMAGE_H
