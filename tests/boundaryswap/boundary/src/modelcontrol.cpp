#include <tinyboundary/calls.h>
#include <velmarmodelcontrol/auxiliary.h>
#include <velmarmodelcontrol/device.h>
#include <velmarmodelcontrol/file.h>

#include <QFile>

namespace Velmar::ModelControl {

Auxiliary::Auxiliary(std::weak_ptr<BizModel::Device>) { }

Auxiliary::~Auxiliary() = default;

bool Auxiliary::readDeviceVersion(ProtoModel::Auxiliary::s_DeviceVersion &version, QString &)
{
    TinyBoundary::note(QStringLiteral("readDeviceVersion"));
    ProtoModel::Auxiliary::s_DeviceVersionSection section;
    section.code = 0x0043;
    section.version = "1.2.3.4";
    ProtoModel::Auxiliary::s_DeviceVersionPart part;
    part.section.push_back(section);
    version.parts.push_back(part);
    return true;
}

bool Auxiliary::setUgradeConfig(const ProtoModel::Auxiliary::s_UpgradeDetail &)
{
    TinyBoundary::note(QStringLiteral("setUgradeConfig"));
    return true;
}

bool Auxiliary::readUpgradeProgress(ProtoModel::Auxiliary::s_UpgradePercent &percent, QString &)
{
    TinyBoundary::note(QStringLiteral("readUpgradeProgress"));
    percent.rate = 100;
    percent.result = 2;
    return true;
}

bool Auxiliary::setDeviceShutDownMode(const unsigned char &)
{
    TinyBoundary::note(QStringLiteral("setDeviceShutDownMode"));
    return true;
}

Device::Device(std::weak_ptr<BizModel::Device>) { }

Device::~Device() = default;

void Device::disconnectCommunication()
{
    TinyBoundary::note(QStringLiteral("disconnectCommunication"));
}

File::File(std::weak_ptr<BizModel::Device>) { }

File::~File() = default;

// Accepts, and has something to say all the same.
bool File::importFile(const std::vector<ProtoModel::File::s_FileInfo> &, QString &errorText)
{
    TinyBoundary::note(QStringLiteral("importFile"));
    errorText = QStringLiteral("running low on room");
    return true;
}

// Never calls back: this device has no idea how far it is.
bool File::writeFileBinary(const QString &path, BizModel::Enum::File::FileType, int,
                           std::function<void(bool, int, QString)>, bool)
{
    TinyBoundary::note(QStringLiteral("writeFileBinary"));
    QFile file(path);
    if (!TinyBoundary::isTakingFiles() || !file.open(QIODevice::ReadOnly))
        return false;
    TinyBoundary::setSentBytes(file.readAll());
    return true;
}

} // namespace Velmar::ModelControl
