#ifndef VELMARMODELCONTROL_FILE_H
#define VELMARMODELCONTROL_FILE_H

#include "velmarmodelcontrol_export.h"
#include <velmarbizmodel/enums.h>

#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::ProtoModel::File {

/*! One file that a host announces to a device. */
struct s_FileInfo {
    int fileId = 0;
    int fileType = 0; //!< a number of BizModel::Enum::File::FileType
    std::string fileName = "N/A";
    int fileSize = 0; //!< bytes
    int fileVersion = 0; //!< for devices that want it; 0: the device is not told
    unsigned int checksum = 0; //!< for devices that want it; 0: the device is not told
};

} // namespace Velmar::ProtoModel::File

namespace Velmar::ModelControl {

/*!
    File transfer to one device.

    Made on the stack for one use. Every call blocks, for a finite time, on the calling thread.
*/
class VELMARMODELCONTROL_EXPORT File
{
public:
    explicit File(std::weak_ptr<BizModel::Device> device);
    virtual ~File();

    /*! Announces \a files to the device. False, with \a errorText set, if it refuses them or does
        not answer. */
    bool importFile(const std::vector<ProtoModel::File::s_FileInfo> &files, QString &errorText);

    /*!
        Sends the bytes of the file at \a path, announced before as \a fileId, in constant memory.

        Calls \a callback with true, the percentage sent (0 to 100) and an empty text, from the
        calling thread, at most once for each percent and never after the return. With
        \a verify, an upgrade image whose lengths or sum are wrong is refused before the device
        hears of its bytes. True if the device has confirmed the whole file.

        False, with the cause in the log, if the file cannot be read, has another size than the one
        that this object announced (the low 32 bits count), changes while it is sent, or if the
        device refuses it or is lost. The device drops what it got when the file is sent anew.
    */
    bool writeFileBinary(const QString &path, BizModel::Enum::File::FileType type, int fileId,
                         std::function<void(bool, int, QString)> callback, bool verify);

private:
    std::weak_ptr<BizModel::Device> m_device;
    std::map<int, int> m_announcedSizes; // by file id
};

} // namespace Velmar::ModelControl

#endif // VELMARMODELCONTROL_FILE_H
