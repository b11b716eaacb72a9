#include "records/loadrecords.h"

namespace TZ::ZLoad {

namespace {

// What a description leaves out reads as an empty text here, not as a null one.
QString emptyText()
{
    return QStringLiteral("");
}

template<typename T> void deleteAll(QList<T *> &list)
{
    for (T *&element : list) {
        delete element;
        element = nullptr;
    }
    list.clear();
}

// What the target held is dropped, not deleted: its elements may be someone's children.
template<typename T> void cloneAll(const QList<T *> &source, QList<T *> &target)
{
    target.clear();
    target.reserve(source.size());
    for (const T *element : source)
        target.append(element->clone());
}

} // namespace

CommandConfig::CommandConfig()
    : QObject(nullptr)
    , CmdName(emptyText())
    , Data(emptyText())
{
    setObjectName(QStringLiteral("CommandConfig"));
}

CommandConfig *CommandConfig::clone() const
{
    auto *copy = new CommandConfig;
    copy->CmdName = CmdName;
    copy->Data = Data;
    copy->IsCommonCmd = IsCommonCmd;
    copy->Address = Address;
    copy->WaitTime = WaitTime;
    copy->TimeOut = TimeOut;
    copy->ExecuteTimes = ExecuteTimes;
    copy->CmdFromNoneType = CmdFromNoneType;
    copy->SpecialPackID = SpecialPackID;
    return copy;
}

FileInfo::FileInfo()
    : QObject(nullptr)
    , Version(emptyText())
    , Remark(emptyText())
    , FileName(emptyText())
    , FileLabel(emptyText())
{
    setObjectName(QStringLiteral("FileInfo"));
}

FileInfo::~FileInfo()
{
    deleteAll(commandConfigs);
}

FileInfo *FileInfo::clone() const
{
    auto *copy = new FileInfo;
    copy->IsSupportBroadcast = IsSupportBroadcast;
    copy->IsMCUFile = IsMCUFile;
    copy->IsFileAddrNoIncrease = IsFileAddrNoIncrease;
    copy->Version = Version;
    copy->Remark = Remark;
    copy->FileName = FileName;
    copy->FileLabel = FileLabel;
    copy->Address = Address;
    copy->ExtendNum = ExtendNum;
    cloneAll(commandConfigs, copy->commandConfigs);
    return copy;
}

BeforeStartCmd::BeforeStartCmd()
    : QObject(nullptr)
{
    setObjectName(QStringLiteral("BeforeStartCmd"));
}

BeforeStartCmd::BeforeStartCmd(const BeforeStartCmd &other)
    : BeforeStartCmd()
{
    cloneAll(other.commandConfigs, commandConfigs);
}

BeforeStartCmd &BeforeStartCmd::operator=(const BeforeStartCmd &other)
{
    if (this != &other)
        cloneAll(other.commandConfigs, commandConfigs);
    return *this;
}

BeforeStartCmd::~BeforeStartCmd()
{
    deleteAll(commandConfigs);
}

EndSendCmd::EndSendCmd()
    : QObject(nullptr)
{
    setObjectName(QStringLiteral("EndSendCmd"));
}

EndSendCmd::EndSendCmd(const EndSendCmd &other)
    : EndSendCmd()
{
    cloneAll(other.commandConfigs, commandConfigs);
}

EndSendCmd &EndSendCmd::operator=(const EndSendCmd &other)
{
    if (this != &other)
        cloneAll(other.commandConfigs, commandConfigs);
    return *this;
}

EndSendCmd::~EndSendCmd()
{
    deleteAll(commandConfigs);
}

DataPackage::DataPackage()
    : QObject(nullptr)
    , endSendCmd(new EndSendCmd)
    , beforeStartCmd(new BeforeStartCmd)
{
    setObjectName(QStringLiteral("DataPackage"));
}

DataPackage::DataPackage(const DataPackage &other)
    : QObject(nullptr)
    , FilePath(other.FilePath)
    , DeviceTypes(other.DeviceTypes)
    , Version(other.Version)
    , ModuleID(other.ModuleID)
    , IsSupportFromScratch(other.IsSupportFromScratch)
    , StepType(other.StepType)
    , endSendCmd(other.endSendCmd ? new EndSendCmd(*other.endSendCmd) : new EndSendCmd)
    , beforeStartCmd(other.beforeStartCmd ? new BeforeStartCmd(*other.beforeStartCmd)
                                          : new BeforeStartCmd)
{
    setObjectName(QStringLiteral("DataPackage"));
    cloneAll(other.fileInfos, fileInfos);
}

DataPackage &DataPackage::operator=(const DataPackage &other)
{
    // The lists are emptied before they are filled: a package would lose its own.
    if (this == &other)
        return *this;
    FilePath = other.FilePath;
    DeviceTypes = other.DeviceTypes;
    Version = other.Version;
    ModuleID = other.ModuleID;
    IsSupportFromScratch = other.IsSupportFromScratch;
    StepType = other.StepType;
    if (other.endSendCmd)
        *endSendCmd = *other.endSendCmd;
    if (other.beforeStartCmd)
        *beforeStartCmd = *other.beforeStartCmd;
    cloneAll(other.fileInfos, fileInfos);
    return *this;
}

DataPackage::~DataPackage()
{
    deleteAll(fileInfos);
    delete endSendCmd;
    endSendCmd = nullptr;
    delete beforeStartCmd;
    beforeStartCmd = nullptr;
}

} // namespace TZ::ZLoad
