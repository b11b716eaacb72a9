#include <velmarmodelcontrol/file.h>

#include "devicevalues.h"
#include "exchange.h"
#include "filesender.h"

#include <velmarbizmodel/device.h>

#include <QDebug>

#include <utility>

namespace Velmar::ModelControl {

File::File(std::weak_ptr<BizModel::Device> device)
    : m_device(std::move(device))
{
}

File::~File() = default;

bool File::importFile(const std::vector<ProtoModel::File::s_FileInfo> &files, QString &errorText)
{
    const auto device = m_device.lock();
    if (!device) {
        errorText = QStringLiteral("the device is gone");
        return false;
    }
    const LinkPolicy policy = linkPolicy();
    const BizModel::LinkRequest request { QStringLiteral("file.announce"),
                                          Internal::announceArguments(files), policy.writeTimeout };
    const BizModel::LinkAnswer answer = Internal::order(*device->link(), request, policy);
    if (!answer.isAccepted()) {
        errorText = Internal::failureText(request, answer);
        return false;
    }
    for (const ProtoModel::File::s_FileInfo &file : files)
        m_announcedSizes[file.fileId] = file.fileSize;
    return true;
}

bool File::writeFileBinary(const QString &path, BizModel::Enum::File::FileType type, int fileId,
                           std::function<void(bool, int, QString)> callback, bool verify)
{
    const auto device = m_device.lock();
    if (!device) {
        qWarning().noquote() << "Cannot send file" << path << ": the device is gone";
        return false;
    }
    Internal::FileSender sender(*device->link(), linkPolicy(), fileId);
    const auto showPercentage = [&callback](int percentage) {
        if (callback)
            callback(true, percentage, QString());
    };
    // Of the other kinds of file only the device knows what is in them.
    const bool isToBeChecked = verify && type == BizModel::Enum::File::FileType::Upgrade;
    const auto announced = m_announcedSizes.find(fileId);
    const bool isSent = sender.open(path)
        && (announced == m_announcedSizes.end() || sender.checkSize(announced->second))
        && (!isToBeChecked || sender.checkImage()) && sender.sendOpening(int(type))
        && sender.sendContents(showPercentage) && sender.sendEnd();
    if (!isSent)
        qWarning().noquote() << "Cannot send file" << path << ":" << sender.errorText();
    return isSent;
}

} // namespace Velmar::ModelControl
