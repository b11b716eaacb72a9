#include "componentconfig.h"

#include "records/loadrecords.h"
#include "singletonslot.h"

#include <tzserializer/serializetoxml.h>

using TZ::ZLoad::BeforeStartCmd;
using TZ::ZLoad::CommandConfig;
using TZ::ZLoad::DataPackage;
using TZ::ZLoad::EndSendCmd;
using TZ::ZLoad::FileInfo;

namespace Velmar::Firmware {

namespace {

Internal::SingletonSlot<ComponentConfig> s_slot;

TZ::Serializer::ObjectFactory objectFactory()
{
    TZ::Serializer::ObjectFactory factory;
    factory.insert(QStringLiteral("DataPackage"), [] { return new DataPackage; });
    factory.insert(QStringLiteral("EndSendCmd"), [] { return new EndSendCmd; });
    factory.insert(QStringLiteral("BeforeStartCmd"), [] { return new BeforeStartCmd; });
    factory.insert(QStringLiteral("FileInfo"), [] { return new FileInfo; });
    factory.insert(QStringLiteral("CommandConfig"), [] { return new CommandConfig; });
    return factory;
}

bool isAnyCommand(const CommandConfig &)
{
    return true;
}

// These two choose a target and have no place after the files.
bool isEndCommand(const CommandConfig &command)
{
    return command.CmdName != QLatin1String("SendSubCarIndex")
        && command.CmdName != QLatin1String("SendDeviceID");
}

/*
    Appends the commands under holder that are wanted, in the order of the tree.

    A list deletes what it holds, and so does a parent. A command is listed itself only where the
    two agree on the order: right under its holder, and that right under the package. From any
    deeper place, where some other list or listed object may reach it too, and from a holder that
    has been listed before, the list gets a clone, and the command stays its parent's.
*/
void appendCommands(const QObject &holder, const DataPackage &package, QList<CommandConfig *> &list,
                    bool (*isWanted)(const CommandConfig &))
{
    const bool takesChildren = holder.parent() == &package && list.isEmpty();
    const auto commands = holder.findChildren<CommandConfig *>(QStringLiteral("CommandConfig"));
    for (CommandConfig *command : commands) {
        if (!isWanted(*command))
            continue;
        list.append(takesChildren && command->parent() == &holder ? command : command->clone());
    }
}

QList<FileInfo *> filesUnder(const DataPackage &package)
{
    return package.findChildren<FileInfo *>(QStringLiteral("FileInfo"));
}

} // namespace

ComponentConfig::ComponentConfig(QObject *parent)
    : QObject(parent)
{
}

ComponentConfig *ComponentConfig::instance()
{
    return s_slot.instance();
}

void ComponentConfig::destroyInstance()
{
    s_slot.destroyInstance();
}

bool ComponentConfig::loadDataPackage(const QString &path, DataPackage *package)
{
    // A package that was loaded before has listed its files. New ones are appended to the tree.
    const int listedFiles = package->fileInfos.isEmpty() ? 0 : filesUnder(*package).size();

    // The same for every unit.
    static const TZ::Serializer::ObjectFactory factory = objectFactory();
    TZ::SerializeToXML serializer;
    serializer.loadXml(package, path, factory);

    // The objects found are not the package's own ones of these names, which are no children.
    if (const auto *end = package->findChild<EndSendCmd *>(QStringLiteral("EndSendCmd"))) {
        appendCommands(*end, *package, package->endSendCmd->commandConfigs, isEndCommand);
    }
    if (const auto *start = package->findChild<BeforeStartCmd *>(QStringLiteral("BeforeStartCmd")))
        appendCommands(*start, *package, package->beforeStartCmd->commandConfigs, isAnyCommand);

    const auto files = filesUnder(*package).mid(listedFiles);
    for (FileInfo *file : files) {
        // No upgrade sends a golden image, nor any file whose name ends as theirs.
        if (file->FileName.endsWith(QLatin1String("Golden.dat")))
            continue;
        FileInfo *listed = file->parent() == package ? file : file->clone();
        appendCommands(*file, *package, listed->commandConfigs, isAnyCommand);
        package->fileInfos.append(listed);
    }
    return true;
}

} // namespace Velmar::Firmware
