#include "records/loadrecords.h"

#include <QtTest>

#include <QMetaProperty>
#include <QPointer>

#include <memory>

using TZ::ZLoad::BeforeStartCmd;
using TZ::ZLoad::CommandConfig;
using TZ::ZLoad::DataPackage;
using TZ::ZLoad::EndSendCmd;
using TZ::ZLoad::FileInfo;

Q_DECLARE_METATYPE(const QMetaObject *)

namespace {

CommandConfig *command(const QString &name)
{
    auto *made = new CommandConfig;
    made->CmdName = name;
    return made;
}

FileInfo *file(const QString &name, const QStringList &commands = {})
{
    auto *made = new FileInfo;
    made->FileName = name;
    for (const QString &commandName : commands)
        made->commandConfigs.append(command(commandName));
    return made;
}

QStringList names(const QList<CommandConfig *> &commands)
{
    QStringList result;
    for (const CommandConfig *listed : commands)
        result.append(listed->CmdName);
    return result;
}

// The lists of a package in one line.
QString contents(const DataPackage &package)
{
    QStringList files;
    for (const FileInfo *listed : package.fileInfos)
        files.append(listed->FileName + QLatin1Char(':')
                     + names(listed->commandConfigs).join(u','));
    return QStringLiteral("files %1; end %2; start %3")
        .arg(files.join(u' '), names(package.endSendCmd->commandConfigs).join(u','),
             names(package.beforeStartCmd->commandConfigs).join(u','));
}

void fill(DataPackage &package)
{
    package.FilePath = QStringLiteral("/packages/a");
    package.DeviceTypes = QStringLiteral("Scanner");
    package.Version = QStringLiteral("3.1.0.0");
    package.ModuleID = QStringLiteral("1F2");
    package.IsSupportFromScratch = true;
    package.StepType = 1;
    package.fileInfos << file(QStringLiteral("f"), { QStringLiteral("1"), QStringLiteral("2") })
                      << file(QStringLiteral("g"));
    package.endSendCmd->commandConfigs << command(QStringLiteral("3"));
    package.beforeStartCmd->commandConfigs << command(QStringLiteral("4"))
                                           << command(QStringLiteral("5"));
}

const QString FilledContents = QStringLiteral("files f:1,2 g:; end 3; start 4,5");

// What the target of an assignment drops from its lists would be lost: a child goes with it.
void adoptListed(DataPackage &package)
{
    for (FileInfo *listed : qAsConst(package.fileInfos))
        listed->setParent(&package);
    for (CommandConfig *listed : qAsConst(package.endSendCmd->commandConfigs))
        listed->setParent(&package);
    for (CommandConfig *listed : qAsConst(package.beforeStartCmd->commandConfigs))
        listed->setParent(&package);
}

} // namespace

class tst_LoadRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaObject_data()
    {
        QTest::addColumn<const QMetaObject *>("metaObject");
        QTest::addColumn<QString>("className");
        QTest::addColumn<QStringList>("properties");

        QTest::newRow("CommandConfig")
            << &CommandConfig::staticMetaObject << QStringLiteral("TZ::ZLoad::CommandConfig")
            << QStringList {
                   QStringLiteral("QString CmdName"),  QStringLiteral("QString Data"),
                   QStringLiteral("bool IsCommonCmd"), QStringLiteral("int Address"),
                   QStringLiteral("int WaitTime"),     QStringLiteral("int TimeOut"),
                   QStringLiteral("int ExecuteTimes"), QStringLiteral("int CmdFromNoneType"),
                   QStringLiteral("int SpecialPackID")
               };
        QTest::newRow("FileInfo") << &FileInfo::staticMetaObject
                                  << QStringLiteral("TZ::ZLoad::FileInfo")
                                  << QStringList { QStringLiteral("bool IsSupportBroadcast"),
                                                   QStringLiteral("bool IsMCUFile"),
                                                   QStringLiteral("bool IsFileAddrNoIncrease"),
                                                   QStringLiteral("QString Version"),
                                                   QStringLiteral("QString Remark"),
                                                   QStringLiteral("QString FileName"),
                                                   QStringLiteral("QString FileLabel"),
                                                   QStringLiteral("int Address"),
                                                   QStringLiteral("int ExtendNum") };
        QTest::newRow("DataPackage")
            << &DataPackage::staticMetaObject << QStringLiteral("TZ::ZLoad::DataPackage")
            << QStringList { QStringLiteral("QString FilePath"),
                             QStringLiteral("QString DeviceTypes"),
                             QStringLiteral("QString Version"),
                             QStringLiteral("QString ModuleID"),
                             QStringLiteral("bool IsSupportFromScratch"),
                             QStringLiteral("int StepType") };
        QTest::newRow("BeforeStartCmd")
            << &BeforeStartCmd::staticMetaObject << QStringLiteral("TZ::ZLoad::BeforeStartCmd")
            << QStringList();
        QTest::newRow("EndSendCmd") << &EndSendCmd::staticMetaObject
                                    << QStringLiteral("TZ::ZLoad::EndSendCmd") << QStringList();
    }
    void metaObject()
    {
        QFETCH(const QMetaObject *, metaObject);

        QTEST(QString::fromLatin1(metaObject->className()), "className");
        QCOMPARE(metaObject->superClass(), &QObject::staticMetaObject);
        QStringList properties;
        for (int i = metaObject->propertyOffset(); i < metaObject->propertyCount(); ++i) {
            const QMetaProperty property = metaObject->property(i);
            properties.append(QStringLiteral("%1 %2").arg(QLatin1String(property.typeName()),
                                                          QLatin1String(property.name())));
            QVERIFY2(property.isReadable() && property.isWritable() && property.isStored()
                         && !property.hasNotifySignal() && !property.isResettable()
                         && !property.isConstant(),
                     property.name());
        }
        QTEST(properties, "properties");
        QCOMPARE(metaObject->methodCount(), metaObject->methodOffset());
        QCOMPARE(metaObject->enumeratorCount(), metaObject->enumeratorOffset());
        QCOMPARE(metaObject->classInfoCount(), metaObject->classInfoOffset());
    }

    void writeByName()
    {
        CommandConfig record;

        QVERIFY(record.setProperty("CmdName", QStringLiteral("SendFileData")));
        QVERIFY(record.setProperty("IsCommonCmd", true));
        QVERIFY(record.setProperty("SpecialPackID", -7));

        QCOMPARE(record.CmdName, QStringLiteral("SendFileData"));
        QVERIFY(record.IsCommonCmd);
        QCOMPARE(record.SpecialPackID, -7);
        QCOMPARE(record.property("CmdName").toString(), QStringLiteral("SendFileData"));
    }

    void writeOfEqualValueIsNoWrite()
    {
        // A null and an empty text are equal: the one in place stays.
        FileInfo file;
        QVERIFY(file.setProperty("Remark", QString()));
        QVERIFY(!file.Remark.isNull());
        DataPackage package;
        QVERIFY(package.setProperty("Version", QStringLiteral("")));
        QVERIFY(package.Version.isNull());
    }

    void defaultCommandConfig()
    {
        const CommandConfig record;

        QCOMPARE(record.objectName(), QStringLiteral("CommandConfig"));
        QVERIFY(!record.parent());
        for (const QString &text : { record.CmdName, record.Data }) {
            QVERIFY(text.isEmpty());
            QVERIFY(!text.isNull());
        }
        QCOMPARE(record.IsCommonCmd, false);
        for (const int number :
             { record.Address, record.WaitTime, record.TimeOut, record.ExecuteTimes,
               record.CmdFromNoneType, record.SpecialPackID })
            QCOMPARE(number, 0);
    }

    void defaultFileInfo()
    {
        const FileInfo record;

        QCOMPARE(record.objectName(), QStringLiteral("FileInfo"));
        QVERIFY(!record.parent());
        for (const QString &text :
             { record.Version, record.Remark, record.FileName, record.FileLabel }) {
            QVERIFY(text.isEmpty());
            QVERIFY(!text.isNull());
        }
        for (const bool flag :
             { record.IsSupportBroadcast, record.IsMCUFile, record.IsFileAddrNoIncrease })
            QVERIFY(!flag);
        QCOMPARE(record.Address, 0);
        QCOMPARE(record.ExtendNum, 0);
        QVERIFY(record.commandConfigs.isEmpty());
    }

    void defaultDataPackage()
    {
        const DataPackage record;

        QCOMPARE(record.objectName(), QStringLiteral("DataPackage"));
        QVERIFY(!record.parent());
        for (const QString &text :
             { record.FilePath, record.DeviceTypes, record.Version, record.ModuleID }) {
            QVERIFY(text.isEmpty());
            QVERIFY(text.isNull());
        }
        QCOMPARE(record.IsSupportFromScratch, false);
        QCOMPARE(record.StepType, 0);
        QVERIFY(record.fileInfos.isEmpty());
        QVERIFY(record.children().isEmpty());
        QCOMPARE(record.endSendCmd->objectName(), QStringLiteral("EndSendCmd"));
        QVERIFY(!record.endSendCmd->parent());
        QVERIFY(record.endSendCmd->commandConfigs.isEmpty());
        QCOMPARE(record.beforeStartCmd->objectName(), QStringLiteral("BeforeStartCmd"));
        QVERIFY(!record.beforeStartCmd->parent());
        QVERIFY(record.beforeStartCmd->commandConfigs.isEmpty());
    }

    void copyKeepsAllOfCommand()
    {
        DataPackage source;
        auto *original = command(QStringLiteral("SendCardIndex"));
        original->Data = QStringLiteral("258");
        original->IsCommonCmd = true;
        original->Address = -2147483647;
        original->WaitTime = 2;
        original->TimeOut = 3;
        original->ExecuteTimes = 4;
        original->CmdFromNoneType = 5;
        original->SpecialPackID = 6;
        source.endSendCmd->commandConfigs.append(original);

        const DataPackage copy(source);

        const CommandConfig *copied = copy.endSendCmd->commandConfigs.value(0);
        QVERIFY(copied && copied != original);
        QCOMPARE(copied->objectName(), QStringLiteral("CommandConfig"));
        QCOMPARE(copied->CmdName, QStringLiteral("SendCardIndex"));
        QCOMPARE(copied->Data, QStringLiteral("258"));
        QCOMPARE(copied->IsCommonCmd, true);
        QCOMPARE(copied->Address, -2147483647);
        QCOMPARE(copied->WaitTime, 2);
        QCOMPARE(copied->TimeOut, 3);
        QCOMPARE(copied->ExecuteTimes, 4);
        QCOMPARE(copied->CmdFromNoneType, 5);
        QCOMPARE(copied->SpecialPackID, 6);
    }

    void copyKeepsAllOfFile()
    {
        DataPackage source;
        auto *original = file(QStringLiteral("MCU.dat"), { QStringLiteral("SendFileData") });
        original->IsSupportBroadcast = true;
        original->IsMCUFile = true;
        original->IsFileAddrNoIncrease = true;
        original->Version = QStringLiteral("1.2");
        original->Remark = QStringLiteral("remark");
        original->FileLabel = QStringLiteral("MCU");
        original->Address = 16;
        original->ExtendNum = 3;
        source.fileInfos.append(original);

        const DataPackage copy(source);

        const FileInfo *copied = copy.fileInfos.value(0);
        QVERIFY(copied && copied != original);
        QCOMPARE(copied->objectName(), QStringLiteral("FileInfo"));
        QVERIFY(copied->IsSupportBroadcast && copied->IsMCUFile && copied->IsFileAddrNoIncrease);
        QCOMPARE(copied->Version, QStringLiteral("1.2"));
        QCOMPARE(copied->Remark, QStringLiteral("remark"));
        QCOMPARE(copied->FileName, QStringLiteral("MCU.dat"));
        QCOMPARE(copied->FileLabel, QStringLiteral("MCU"));
        QCOMPARE(copied->Address, 16);
        QCOMPARE(copied->ExtendNum, 3);
        QCOMPARE(names(copied->commandConfigs), QStringList(QStringLiteral("SendFileData")));
        QVERIFY(copied->commandConfigs.first() != original->commandConfigs.first());
    }

    void copyOutlivesSource()
    {
        auto source = std::make_unique<DataPackage>();
        fill(*source);
        (new CommandConfig)->setParent(source.get());

        const DataPackage copy(*source);
        source.reset();

        QCOMPARE(copy.objectName(), QStringLiteral("DataPackage"));
        QVERIFY(!copy.parent());
        QVERIFY(copy.children().isEmpty());
        QCOMPARE(copy.FilePath, QStringLiteral("/packages/a"));
        QCOMPARE(copy.DeviceTypes, QStringLiteral("Scanner"));
        QCOMPARE(copy.Version, QStringLiteral("3.1.0.0"));
        QCOMPARE(copy.ModuleID, QStringLiteral("1F2"));
        QCOMPARE(copy.IsSupportFromScratch, true);
        QCOMPARE(copy.StepType, 1);
        QCOMPARE(contents(copy), FilledContents);
    }

    void copyIsChangedAlone()
    {
        DataPackage source;
        fill(source);
        DataPackage copy(source);

        copy.fileInfos.first()->FileName = QStringLiteral("other");
        copy.endSendCmd->commandConfigs.first()->CmdName = QStringLiteral("other");

        QCOMPARE(contents(source), FilledContents);
    }

    void assignmentToFreshPackage()
    {
        auto source = std::make_unique<DataPackage>();
        fill(*source);
        DataPackage target;
        const EndSendCmd *const end = target.endSendCmd;
        const BeforeStartCmd *const start = target.beforeStartCmd;

        target = *source;
        source.reset();

        QCOMPARE(contents(target), FilledContents);
        QCOMPARE(target.FilePath, QStringLiteral("/packages/a"));
        QCOMPARE(target.DeviceTypes, QStringLiteral("Scanner"));
        QCOMPARE(target.Version, QStringLiteral("3.1.0.0"));
        QCOMPARE(target.ModuleID, QStringLiteral("1F2"));
        QCOMPARE(target.IsSupportFromScratch, true);
        QCOMPARE(target.StepType, 1);
        QVERIFY(target.children().isEmpty());
        QCOMPARE(target.endSendCmd, end);
        QCOMPARE(target.beforeStartCmd, start);
    }

    void assignmentDropsWithoutDeleting()
    {
        DataPackage source;
        source.fileInfos << file(QStringLiteral("new"));
        source.endSendCmd->commandConfigs << command(QStringLiteral("newEnd"));
        QPointer<FileInfo> oldFile;
        QPointer<CommandConfig> oldEnd;
        QPointer<CommandConfig> oldStart;
        {
            DataPackage target;
            fill(target);
            adoptListed(target);
            oldFile = target.fileInfos.first();
            oldEnd = target.endSendCmd->commandConfigs.first();
            oldStart = target.beforeStartCmd->commandConfigs.first();

            target = source;

            QCOMPARE(contents(target), QStringLiteral("files new:; end newEnd; start "));
            QVERIFY(oldFile && oldEnd && oldStart);
        }
        QVERIFY(!oldFile && !oldEnd && !oldStart);
    }

    void assignmentFromSourceWithoutCommandObjects()
    {
        DataPackage source;
        fill(source);
        delete source.endSendCmd;
        source.endSendCmd = nullptr;
        delete source.beforeStartCmd;
        source.beforeStartCmd = nullptr;
        DataPackage target;
        target.endSendCmd->commandConfigs << command(QStringLiteral("mine"));
        target.beforeStartCmd->commandConfigs << command(QStringLiteral("mine too"));

        target = source;

        QCOMPARE(contents(target), QStringLiteral("files f:1,2 g:; end mine; start mine too"));
    }

    void assignmentToSelfChangesNothing()
    {
        DataPackage package;
        fill(package);
        DataPackage &same = package;
        const FileInfo *const first = package.fileInfos.first();

        package = same;
        *package.endSendCmd = *same.endSendCmd;
        *package.beforeStartCmd = *same.beforeStartCmd;

        QCOMPARE(contents(package), FilledContents);
        QCOMPARE(package.FilePath, QStringLiteral("/packages/a"));
        QCOMPARE(package.fileInfos.first(), first);
    }

    void commandListsAreCopiedDeeply()
    {
        auto source = std::make_unique<BeforeStartCmd>();
        source->commandConfigs << command(QStringLiteral("a")) << command(QStringLiteral("b"));
        const BeforeStartCmd copy(*source);
        BeforeStartCmd assigned;
        assigned = *source;
        source.reset();
        QCOMPARE(names(copy.commandConfigs).join(u','), QStringLiteral("a,b"));
        QCOMPARE(names(assigned.commandConfigs).join(u','), QStringLiteral("a,b"));
        QCOMPARE(copy.objectName(), QStringLiteral("BeforeStartCmd"));

        auto end = std::make_unique<EndSendCmd>();
        end->commandConfigs << command(QStringLiteral("c"));
        const EndSendCmd endCopy(*end);
        EndSendCmd endAssigned;
        endAssigned = *end;
        end.reset();
        QCOMPARE(names(endCopy.commandConfigs).join(u','), QStringLiteral("c"));
        QCOMPARE(names(endAssigned.commandConfigs).join(u','), QStringLiteral("c"));
        QCOMPARE(endCopy.objectName(), QStringLiteral("EndSendCmd"));
    }

    void destructionOrder()
    {
        QStringList ends;
        auto package = std::make_unique<DataPackage>();
        fill(*package);
        auto *child = new CommandConfig;
        child->setParent(package.get());
        const auto note = [this, &ends](QObject *object, const QString &name) {
            connect(object, &QObject::destroyed, this, [&ends, name] { ends.append(name); });
        };
        for (FileInfo *listed : qAsConst(package->fileInfos)) {
            note(listed, listed->FileName);
            for (CommandConfig *sent : qAsConst(listed->commandConfigs))
                note(sent, sent->CmdName);
        }
        note(package->endSendCmd, QStringLiteral("end"));
        note(package->endSendCmd->commandConfigs.at(0), QStringLiteral("3"));
        note(package->beforeStartCmd, QStringLiteral("start"));
        note(package->beforeStartCmd->commandConfigs.at(0), QStringLiteral("4"));
        note(package->beforeStartCmd->commandConfigs.at(1), QStringLiteral("5"));
        note(child, QStringLiteral("child"));

        package.reset();

        QCOMPARE(ends.join(u' '), QStringLiteral("1 2 f g 3 end 4 5 start child"));
    }

    void listedChildrenDieOnce()
    {
        int deaths = 0;
        auto package = std::make_unique<DataPackage>();
        fill(*package);
        adoptListed(*package);
        for (QObject *child : package->children())
            connect(child, &QObject::destroyed, this, [&deaths] { ++deaths; });
        QCOMPARE(package->children().size(), 5);

        package.reset();

        QCOMPARE(deaths, 5);
    }
};

QTEST_GUILESS_MAIN(tst_LoadRecords)
#include "tst_loadrecords.moc"
