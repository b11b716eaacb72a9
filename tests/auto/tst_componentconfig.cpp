#include "componentconfig.h"
#include "records/loadrecords.h"
#include "support/packagebuilder.h"
#include "support/singletonrace.h"

#include <QPointer>
#include <QtTest>

#include <QHash>
#include <QSet>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

using TZ::ZLoad::BeforeStartCmd;
using TZ::ZLoad::CommandConfig;
using TZ::ZLoad::DataPackage;
using TZ::ZLoad::EndSendCmd;
using TZ::ZLoad::FileInfo;
using Velmar::Firmware::ComponentConfig;

namespace {

QString names(const QList<CommandConfig *> &commands)
{
    QStringList result;
    for (const CommandConfig *listed : commands)
        result.append(listed->CmdName);
    return result.join(u',');
}

// The lists of a package in one line.
QString contents(const DataPackage &package)
{
    QStringList files;
    for (const FileInfo *listed : package.fileInfos)
        files.append(listed->FileName + QLatin1Char(':') + names(listed->commandConfigs));
    return QStringLiteral("files %1; end %2; start %3")
        .arg(files.join(u' '), names(package.endSendCmd->commandConfigs),
             names(package.beforeStartCmd->commandConfigs));
}

/*! An element of a description, for trees that no well-meaning package would have. */
struct Element {
    QString className;
    QString name;
    std::vector<Element> children;
};

QByteArray xmlOf(const Element &element)
{
    const QByteArray tag = element.className.toLatin1();
    QByteArray xml = '<' + tag;
    if (element.className == QLatin1String("FileInfo"))
        xml += " FileName='" + element.name.toLatin1() + '\'';
    else if (element.className == QLatin1String("CommandConfig"))
        xml += " CmdName='" + element.name.toLatin1() + '\'';
    xml += '>';
    for (const Element &child : element.children)
        xml += xmlOf(child);
    return xml + "</" + tag + '>';
}

// Elements below one, each before those in it.
void collect(const Element &element, const QString &className, std::vector<const Element *> &found)
{
    for (const Element &child : element.children) {
        if (child.className == className)
            found.push_back(&child);
        collect(child, className, found);
    }
}

// The children of an element come before what is in them.
const Element *first(const Element &element, const QString &className)
{
    for (const Element &child : element.children) {
        if (child.className == className)
            return &child;
    }
    for (const Element &child : element.children) {
        if (const Element *found = first(child, className))
            return found;
    }
    return nullptr;
}

QString expectedCommands(const Element *holder, const QStringList &leftOut)
{
    QStringList result;
    std::vector<const Element *> commands;
    if (holder)
        collect(*holder, QStringLiteral("CommandConfig"), commands);
    for (const Element *command : commands) {
        if (!leftOut.contains(command->name))
            result.append(command->name);
    }
    return result.join(u',');
}

// The same as contents(), from the tree alone. A package loaded so often holds all as often.
QString expectedContents(const Element &root, int loads)
{
    QStringList files;
    std::vector<const Element *> found;
    collect(root, QStringLiteral("FileInfo"), found);
    for (const Element *file : found) {
        if (!file->name.endsWith(QLatin1String("Golden.dat")))
            files.append(file->name + QLatin1Char(':') + expectedCommands(file, {}));
    }
    const QString end =
        expectedCommands(first(root, QStringLiteral("EndSendCmd")),
                         { QStringLiteral("SendSubCarIndex"), QStringLiteral("SendDeviceID") });
    const QString start = expectedCommands(first(root, QStringLiteral("BeforeStartCmd")), {});
    const auto repeated = [loads](const QString &text, QChar separator) {
        QStringList all;
        for (int i = 0; i < loads && !text.isEmpty(); ++i)
            all.append(text);
        return all.join(separator);
    };
    return QStringLiteral("files %1; end %2; start %3")
        .arg(repeated(files.join(u' '), u' '), repeated(end, u','), repeated(start, u','));
}

Element randomElement(std::mt19937 &random, int depth)
{
    static const QStringList Classes {
        QStringLiteral("CommandConfig"), QStringLiteral("CommandConfig"),
        QStringLiteral("FileInfo"),      QStringLiteral("FileInfo"),
        QStringLiteral("EndSendCmd"),    QStringLiteral("BeforeStartCmd"),
        QStringLiteral("DataPackage"),
    };
    static const QStringList Commands { QStringLiteral("a"), QStringLiteral("b"),
                                        QStringLiteral("SendDeviceID"),
                                        QStringLiteral("SendSubCarIndex") };
    static const QStringList Files { QStringLiteral("f.dat"), QStringLiteral("g.dat"),
                                     QStringLiteral("Golden.dat"), QStringLiteral("xGolden.dat") };
    const auto pick = [&random](const QStringList &list) {
        return list.at(int(random() % unsigned(list.size())));
    };
    Element element;
    element.className = pick(Classes);
    element.name = element.className == QLatin1String("FileInfo") ? pick(Files) : pick(Commands);
    const unsigned width = depth > 0 ? unsigned(random() % 4) : 0;
    for (unsigned i = 0; i < width; ++i)
        element.children.push_back(randomElement(random, depth - 1));
    return element;
}

Element randomTree(unsigned seed)
{
    std::mt19937 random(seed);
    Element root { QStringLiteral("DataPackage"), {}, {} };
    const unsigned width = 1 + unsigned(random() % 4);
    for (unsigned i = 0; i < width; ++i)
        root.children.push_back(randomElement(random, 6));
    return root;
}

/*! Counts the ends of all objects that a package holds, as children or in its lists. */
class DeathCount
{
public:
    explicit DeathCount(const DataPackage &package)
    {
        QSet<const QObject *> objects { package.endSendCmd, package.beforeStartCmd };
        const auto addCommands = [&objects](const QList<CommandConfig *> &commands) {
            for (const CommandConfig *command : commands)
                objects.insert(command);
        };
        for (const QObject *child : package.findChildren<QObject *>())
            objects.insert(child);
        for (const FileInfo *file : package.fileInfos) {
            objects.insert(file);
            addCommands(file->commandConfigs);
        }
        addCommands(package.endSendCmd->commandConfigs);
        addCommands(package.beforeStartCmd->commandConfigs);
        m_size = objects.size();
        for (const QObject *object : qAsConst(objects))
            QObject::connect(object, &QObject::destroyed, &m_context,
                             [this](QObject *dead) { ++m_deaths[dead]; });
    }

    bool isEachDeadOnce() const
    {
        return m_deaths.size() == m_size
            && std::all_of(m_deaths.begin(), m_deaths.end(), [](int count) { return count == 1; });
    }

private:
    QObject m_context;
    int m_size = 0;
    QHash<const QObject *, int> m_deaths;
};

} // namespace

class tst_ComponentConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanupTestCase() { ComponentConfig::destroyInstance(); }

    void metaObject()
    {
        const QMetaObject &metaObject = ComponentConfig::staticMetaObject;
        QCOMPARE(metaObject.className(), "Velmar::Firmware::ComponentConfig");
        QCOMPARE(metaObject.methodCount(), metaObject.methodOffset());
        QCOMPARE(metaObject.propertyCount(), metaObject.propertyOffset());
    }

    void singleton()
    {
        QVERIFY(threadsShareFirstInstance<ComponentConfig>());
        QCOMPARE(ComponentConfig::instance(), ComponentConfig::instance());
        QVERIFY(!ComponentConfig::instance()->parent());
        const QPointer<ComponentConfig> first(ComponentConfig::instance());
        ComponentConfig::destroyInstance();
        QVERIFY(first.isNull());
        ComponentConfig::destroyInstance();
        QVERIFY(ComponentConfig::instance());
    }

    void lists_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("expected");

        QTest::newRow("nothing") << QByteArray() << QStringLiteral("files ; end ; start ");
        QTest::newRow("all there is")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>"
                          "<BeforeStartCmd><CommandConfig CmdName='s'/></BeforeStartCmd>"
                          "<FileInfo FileName='f'><CommandConfig CmdName='1'/>"
                          "<CommandConfig CmdName='2'/></FileInfo>"
                          "<FileInfo FileName='g'/>")
            << QStringLiteral("files f:1,2 g:; end e; start s");
        QTest::newRow("no EndSendCmd")
            << QByteArray("<BeforeStartCmd><CommandConfig CmdName='s'/></BeforeStartCmd>")
            << QStringLiteral("files ; end ; start s");
        QTest::newRow("no BeforeStartCmd")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>")
            << QStringLiteral("files ; end e; start ");
        QTest::newRow("end commands that choose a target")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='A'/>"
                          "<CommandConfig CmdName='SendDeviceID'/><CommandConfig CmdName='B'/>"
                          "<CommandConfig CmdName='SendSubCarIndex'/>"
                          "<CommandConfig CmdName='C'/></EndSendCmd>")
            << QStringLiteral("files ; end A,B,C; start ");
        QTest::newRow("the filter minds the case and the whole name")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='sendDeviceID'/>"
                          "<CommandConfig CmdName='SendSubCardIndex'/>"
                          "<CommandConfig CmdName='SendDeviceID2'/></EndSendCmd>")
            << QStringLiteral("files ; end sendDeviceID,SendSubCardIndex,SendDeviceID2; start ");
        QTest::newRow("start and file commands are not filtered")
            << QByteArray("<BeforeStartCmd><CommandConfig CmdName='SendDeviceID'/>"
                          "<CommandConfig CmdName='SendSubCarIndex'/></BeforeStartCmd>"
                          "<FileInfo FileName='f'><CommandConfig CmdName='SendDeviceID'/>"
                          "<CommandConfig CmdName='SendSubCarIndex'/></FileInfo>")
            << QStringLiteral("files f:SendDeviceID,SendSubCarIndex; end ; "
                              "start SendDeviceID,SendSubCarIndex");
        QTest::newRow("golden files")
            << QByteArray("<FileInfo FileName='Golden.dat'><CommandConfig CmdName='1'/></FileInfo>"
                          "<FileInfo FileName='MyGolden.dat'/><FileInfo FileName='golden.dat'/>"
                          "<FileInfo FileName='Golden.dat2'/><FileInfo FileName='Golden.DAT'/>")
            << QStringLiteral("files golden.dat: Golden.dat2: Golden.DAT:; end ; start ");
        QTest::newRow("only the first of two EndSendCmd and two BeforeStartCmd")
            << QByteArray("<EndSendCmd/><EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>"
                          "<BeforeStartCmd><CommandConfig CmdName='s'/></BeforeStartCmd>"
                          "<BeforeStartCmd><CommandConfig CmdName='t'/></BeforeStartCmd>")
            << QStringLiteral("files ; end ; start s");
        QTest::newRow("an EndSendCmd of the package comes before a deeper one")
            << QByteArray("<FileInfo FileName='f'><EndSendCmd><CommandConfig CmdName='deep'/>"
                          "</EndSendCmd></FileInfo>"
                          "<EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>")
            << QStringLiteral("files f:deep; end e; start ");
        QTest::newRow("a command in a command")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='1'><CommandConfig CmdName='2'/>"
                          "</CommandConfig><CommandConfig CmdName='3'/></EndSendCmd>")
            << QStringLiteral("files ; end 1,2,3; start ");
        QTest::newRow("a command in one that is filtered")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='SendDeviceID'>"
                          "<CommandConfig CmdName='2'/></CommandConfig></EndSendCmd>")
            << QStringLiteral("files ; end 2; start ");
        QTest::newRow("a file in a file")
            << QByteArray("<FileInfo FileName='f'><FileInfo FileName='g'>"
                          "<CommandConfig CmdName='1'/></FileInfo></FileInfo>")
            << QStringLiteral("files f:1 g:1; end ; start ");
        QTest::newRow("a file in a golden file")
            << QByteArray("<FileInfo FileName='Golden.dat'><FileInfo FileName='g'>"
                          "<CommandConfig CmdName='1'/></FileInfo></FileInfo>")
            << QStringLiteral("files g:1; end ; start ");
        QTest::newRow("a file in a command of the end")
            << QByteArray("<EndSendCmd><CommandConfig CmdName='1'><FileInfo FileName='f'>"
                          "<CommandConfig CmdName='2'/></FileInfo></CommandConfig></EndSendCmd>")
            << QStringLiteral("files f:2; end 1,2; start ");
        QTest::newRow("start commands in a file in the end commands")
            << QByteArray("<EndSendCmd><FileInfo FileName='f'><BeforeStartCmd>"
                          "<CommandConfig CmdName='1'/></BeforeStartCmd></FileInfo></EndSendCmd>")
            << QStringLiteral("files f:1; end 1; start 1");
        QTest::newRow("a package in the package")
            << QByteArray("<DataPackage><EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>"
                          "<FileInfo FileName='f'/></DataPackage>")
            << QStringLiteral("files f:; end e; start ");
        QTest::newRow("a command of the package itself")
            << QByteArray("<CommandConfig CmdName='1'/>") << QStringLiteral("files ; end ; start ");
    }
    void lists()
    {
        QFETCH(QByteArray, content);
        QVERIFY(m_builder.unit(QStringLiteral("u"), QByteArray(), content));
        auto package = std::make_unique<DataPackage>();

        QVERIFY(load(*package));

        QTEST(contents(*package), "expected");
        const DeathCount deaths(*package);
        package.reset();
        QVERIFY(deaths.isEachDeadOnce());
    }

    void propertiesOfAllLevels()
    {
        QVERIFY(m_builder.unit(
            QStringLiteral("u"),
            "FilePath='p' DeviceTypes='Scanner' Version='3.0' ModuleID='0x1F2' "
            "IsSupportFromScratch='true' StepType='1'",
            "<FileInfo IsSupportBroadcast='true' IsMCUFile='1' IsFileAddrNoIncrease='true' "
            "Version='1.1' Remark='r' FileName='MCU.dat' FileLabel='MCU' Address='7' ExtendNum='3'>"
            "<CommandConfig CmdName='SendFileData' Data='1-0' IsCommonCmd='true' Address='0x10' "
            "WaitTime='1' TimeOut='2' ExecuteTimes='3' CmdFromNoneType='4' SpecialPackID='5'/>"
            "</FileInfo>"));
        DataPackage package;

        QVERIFY(load(package));

        QCOMPARE(package.FilePath, QStringLiteral("p"));
        QCOMPARE(package.DeviceTypes, QStringLiteral("Scanner"));
        QCOMPARE(package.Version, QStringLiteral("3.0"));
        QCOMPARE(package.ModuleID, QStringLiteral("0x1F2"));
        QCOMPARE(package.IsSupportFromScratch, true);
        QCOMPARE(package.StepType, 1);
        QCOMPARE(package.fileInfos.size(), 1);
        const FileInfo &file = *package.fileInfos.first();
        QVERIFY(file.IsSupportBroadcast && file.IsMCUFile && file.IsFileAddrNoIncrease);
        QCOMPARE(file.Version, QStringLiteral("1.1"));
        QCOMPARE(file.Remark, QStringLiteral("r"));
        QCOMPARE(file.FileName, QStringLiteral("MCU.dat"));
        QCOMPARE(file.FileLabel, QStringLiteral("MCU"));
        QCOMPARE(file.Address, 7);
        QCOMPARE(file.ExtendNum, 3);
        QCOMPARE(file.commandConfigs.size(), 1);
        const CommandConfig &command = *file.commandConfigs.first();
        QCOMPARE(command.CmdName, QStringLiteral("SendFileData"));
        QCOMPARE(command.Data, QStringLiteral("1-0"));
        QCOMPARE(command.IsCommonCmd, true);
        QCOMPARE(command.Address, 16);
        QCOMPARE(command.WaitTime, 1);
        QCOMPARE(command.TimeOut, 2);
        QCOMPARE(command.ExecuteTimes, 3);
        QCOMPARE(command.CmdFromNoneType, 4);
        QCOMPARE(command.SpecialPackID, 5);
    }

    void ordinaryTreeIsListedItself()
    {
        QVERIFY(m_builder.unit(QStringLiteral("u"), QByteArray(),
                               "<EndSendCmd><CommandConfig CmdName='e'/>"
                               "<CommandConfig CmdName='SendDeviceID'/></EndSendCmd>"
                               "<FileInfo FileName='f'><CommandConfig CmdName='1'/></FileInfo>"
                               "<FileInfo FileName='Golden.dat'/>"));
        DataPackage package;

        QVERIFY(load(package));

        const auto *end = package.findChild<EndSendCmd *>();
        QVERIFY(end && end != package.endSendCmd);
        QVERIFY(end->commandConfigs.isEmpty());
        QCOMPARE(end->children().size(), 2);
        QCOMPARE(package.endSendCmd->commandConfigs.first(), end->children().first());
        QCOMPARE(package.fileInfos.first(), package.children().at(1));
        QCOMPARE(package.fileInfos.first()->commandConfigs.first(),
                 package.fileInfos.first()->children().first());
        // What was left out is still there, as a child.
        const auto *golden = qobject_cast<const FileInfo *>(package.children().at(2));
        QVERIFY(golden && golden->commandConfigs.isEmpty());
    }

    void unreadableFileLeavesDefaults_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::newRow("missing") << QByteArray();
        QTest::newRow("malformed at its end")
            << QByteArray("<DataPackage ModuleID='1'><FileInfo FileName='f'/></DataPackag>");
    }
    void unreadableFileLeavesDefaults()
    {
        QFETCH(QByteArray, xml);
        QFile::remove(m_builder.path(QStringLiteral("u/unit.xml")));
        if (!xml.isEmpty())
            QVERIFY(m_builder.file(QStringLiteral("u/unit.xml"), xml));
        DataPackage package;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^Failed to load ")));

        QVERIFY(load(package));

        QVERIFY(package.ModuleID.isNull());
        QVERIFY(package.children().isEmpty());
        QCOMPARE(contents(package), QStringLiteral("files ; end ; start "));
    }

    void packageLoadedTwiceHoldsEverythingTwice()
    {
        QVERIFY(m_builder.unit(QStringLiteral("u"), QByteArray(),
                               "<EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>"
                               "<BeforeStartCmd><CommandConfig CmdName='s'/></BeforeStartCmd>"
                               "<FileInfo FileName='f'><CommandConfig CmdName='1'/></FileInfo>"));
        auto package = std::make_unique<DataPackage>();

        QVERIFY(load(*package));
        QVERIFY(load(*package));

        QCOMPARE(contents(*package), QStringLiteral("files f:1 f:1; end e,e; start s,s"));
        const DeathCount deaths(*package);
        package.reset();
        QVERIFY(deaths.isEachDeadOnce());
    }

    void copyOfLoadedPackage()
    {
        QVERIFY(m_builder.unit(QStringLiteral("u"), QByteArray(),
                               "<EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>"
                               "<FileInfo FileName='f'><CommandConfig CmdName='1'/></FileInfo>"));
        auto package = std::make_unique<DataPackage>();
        QVERIFY(load(*package));

        const DataPackage copy(*package);

        QVERIFY(copy.fileInfos.first() != package->fileInfos.first());
        package.reset();
        QCOMPARE(contents(copy), QStringLiteral("files f:1; end e; start "));
        QVERIFY(copy.children().isEmpty());
    }

    void assignmentToLoadedPackage()
    {
        QVERIFY(m_builder.unit(QStringLiteral("u"), QByteArray(),
                               "<EndSendCmd><CommandConfig CmdName='e'/></EndSendCmd>"
                               "<FileInfo FileName='f'><CommandConfig CmdName='1'/></FileInfo>"));
        auto package = std::make_unique<DataPackage>();
        QVERIFY(load(*package));
        const DeathCount deaths(*package);
        const DataPackage empty;

        *package = empty;

        QCOMPARE(contents(*package), QStringLiteral("files ; end ; start "));
        package.reset();
        // What the lists dropped was still the package's child.
        QVERIFY(deaths.isEachDeadOnce());
    }

    void oddlyNestedTrees_data()
    {
        QTest::addColumn<int>("loads");
        QTest::newRow("loaded once") << 1;
        QTest::newRow("loaded twice") << 2;
    }
    void oddlyNestedTrees()
    {
        QFETCH(int, loads);
        for (unsigned seed = 1; seed <= 100; ++seed) {
            const QByteArray where = "seed " + QByteArray::number(seed);
            const Element tree = randomTree(seed);
            QVERIFY(m_builder.file(QStringLiteral("u/unit.xml"), xmlOf(tree)));
            auto package = std::make_unique<DataPackage>();
            for (int i = 0; i < loads; ++i)
                QVERIFY(load(*package));
            QVERIFY2(contents(*package) == expectedContents(tree, loads), where.constData());

            const auto copy = std::make_unique<DataPackage>(*package);
            const DeathCount deaths(*package);
            package.reset();

            QVERIFY2(deaths.isEachDeadOnce(), where.constData());
            QCOMPARE(contents(*copy), expectedContents(tree, loads));
        }
    }

private:
    bool load(DataPackage &package)
    {
        return ComponentConfig::instance()->loadDataPackage(
            m_builder.path(QStringLiteral("u/unit.xml")), &package);
    }

    PackageBuilder m_builder;
};

QTEST_GUILESS_MAIN(tst_ComponentConfig)
#include "tst_componentconfig.moc"
