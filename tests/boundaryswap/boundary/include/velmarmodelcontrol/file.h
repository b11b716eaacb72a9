#ifndef TINY_VELMARMODELCONTROL_FILE_H
#define TINY_VELMARMODELCONTROL_FILE_H

#include <velmarbizmodel/enums.h>

#include <QString>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::ProtoModel::File {

struct s_FileInfo {
    int fileId = 0;
    int fileType = 0;
    std::string fileName = "N/A";
    int fileSize = 0;
};

} // namespace Velmar::ProtoModel::File

namespace Velmar::ModelControl {

class File
{
public:
    explicit File(std::weak_ptr<BizModel::Device> device);
    virtual ~File();

    bool importFile(const std::vector<ProtoModel::File::s_FileInfo> &files, QString &errorText);
    bool writeFileBinary(const QString &path, BizModel::Enum::File::FileType type, int fileId,
                         std::function<void(bool, int, QString)> callback, bool flag);
};

} // namespace Velmar::ModelControl

#endif // TINY_VELMARMODELCONTROL_FILE_H
