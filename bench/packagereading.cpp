#include "pairedrounds.h"
#include "pugixmlpackages.h"

#include "descriptionname.h"
#include "packageconfig.h"
#include "records/loadrecords.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

using TZ::ZLoad::CommandConfig;
using TZ::ZLoad::DataPackage;
using TZ::ZLoad::FileInfo;
using Velmar::Firmware::PackageConfig;

// A controller's unit, as velmar-package writes it.
constexpr char Description[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<DataPackage DeviceTypes="Controller" Version="3.2.1.0" ModuleID="0x7701" StepType="0">
    <EndSendCmd>
        <CommandConfig CmdName="SendFinish" Address="33554432" TimeOut="1000"/>
    </EndSendCmd>
    <BeforeStartCmd>
        <CommandConfig CmdName="SendDeviceID" Address="33554432" TimeOut="1000"/>
    </BeforeStartCmd>
    <FileInfo IsMCUFile="true" Version="3.2.1.0" Remark="Main control" FileName="MCU.dat" FileLabel="MCU" Address="16777216">
        <CommandConfig CmdName="SendCardIndex" Data="0" Address="16777232" TimeOut="1000"/>
        <CommandConfig CmdName="SendDeviceID" Address="33554432" TimeOut="1000"/>
        <CommandConfig CmdName="SendSenderFileType" Data="1-0" Address="16777236" TimeOut="1000"/>
        <CommandConfig CmdName="SendFileLength" Address="16777248" TimeOut="1000"/>
        <CommandConfig CmdName="SendFileCount" Address="16777264" TimeOut="1000"/>
        <CommandConfig CmdName="SendFileData" Address="16781312" TimeOut="3000"/>
    </FileInfo>
    <FileInfo Version="2.0.7.0" FileName="FPGA.dat" FileLabel="FPGA"/>
    <FileInfo Version="5.10.3.1" Remark="Stored twice on the device" FileName="kernel.bin" FileLabel="Kernel"/>
    <FileInfo Version="1.1.0.0" FileName="MCU_Back.dat" FileLabel="MCU_Back"/>
</DataPackage>
)";

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

// A package of so many units, of which each has the files that its description names.
class Package
{
public:
    explicit Package(int unitCount)
        : m_unitCount(unitCount)
    {
        QByteArray index("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<PackageCfg>\n");
        for (int i = 0; i < unitCount; ++i) {
            const QString unit = QStringLiteral("unit%1").arg(i);
            index += "    <string>" + unit.toUtf8() + "</string>\n";
            if (!QDir(path()).mkdir(unit))
                fail("cannot make a folder");
            write(unit + QStringLiteral("/DataPackage.xml"), Description);
            for (const char *file : { "MCU.dat", "FPGA.dat", "kernel.bin", "MCU_Back.dat" })
                write(unit + QLatin1Char('/') + QLatin1String(file), QByteArray());
        }
        write(QStringLiteral("PackageCfg.xml"), index + "</PackageCfg>\n");
    }

    int unitCount() const { return m_unitCount; }
    QString path() const { return m_folder.path(); }

private:
    void write(const QString &name, const QByteArray &content) const
    {
        QFile file(m_folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            fail("cannot write a file");
    }

    QTemporaryDir m_folder { QDir::tempPath() + QStringLiteral("/packagereading-XXXXXX") };
    const int m_unitCount;
};

void setText(QString &text, const pugi::xml_node &node, const char *name)
{
    if (const pugi::xml_attribute attribute = node.attribute(name))
        text = QString::fromUtf8(attribute.value());
}

CommandConfig *command(const pugi::xml_node &node)
{
    auto *made = new CommandConfig;
    setText(made->CmdName, node, "CmdName");
    setText(made->Data, node, "Data");
    made->IsCommonCmd = node.attribute("IsCommonCmd").as_bool();
    made->Address = node.attribute("Address").as_int();
    made->WaitTime = node.attribute("WaitTime").as_int();
    made->TimeOut = node.attribute("TimeOut").as_int();
    made->ExecuteTimes = node.attribute("ExecuteTimes").as_int();
    made->CmdFromNoneType = node.attribute("CmdFromNoneType").as_int();
    made->SpecialPackID = node.attribute("SpecialPackID").as_int();
    return made;
}

void appendCommands(QList<CommandConfig *> &commands, const pugi::xml_node &node)
{
    for (const pugi::xml_node child : node.children("CommandConfig"))
        commands.append(command(child));
}

FileInfo *fileInfo(const pugi::xml_node &node)
{
    auto *made = new FileInfo;
    made->IsSupportBroadcast = node.attribute("IsSupportBroadcast").as_bool();
    made->IsMCUFile = node.attribute("IsMCUFile").as_bool();
    made->IsFileAddrNoIncrease = node.attribute("IsFileAddrNoIncrease").as_bool();
    setText(made->Version, node, "Version");
    setText(made->Remark, node, "Remark");
    setText(made->FileName, node, "FileName");
    setText(made->FileLabel, node, "FileLabel");
    made->Address = node.attribute("Address").as_int();
    made->ExtendNum = node.attribute("ExtendNum").as_int();
    appendCommands(made->commandConfigs, node);
    return made;
}

std::unique_ptr<DataPackage> dataPackage(const pugi::xml_node &node, const QString &folder)
{
    auto made = std::make_unique<DataPackage>();
    made->FilePath = folder;
    setText(made->DeviceTypes, node, "DeviceTypes");
    setText(made->Version, node, "Version");
    setText(made->ModuleID, node, "ModuleID");
    made->IsSupportFromScratch = node.attribute("IsSupportFromScratch").as_bool();
    made->StepType = node.attribute("StepType").as_int();
    appendCommands(made->endSendCmd->commandConfigs, node.child("EndSendCmd"));
    appendCommands(made->beforeStartCmd->commandConfigs, node.child("BeforeStartCmd"));
    for (const pugi::xml_node child : node.children("FileInfo"))
        made->fileInfos.append(fileInfo(child));
    return made;
}

void load(const QString &path, pugi::xml_document &document)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        fail("cannot open a file");
    const QByteArray text = file.readAll();
    if (!document.load_buffer(text.constData(), std::size_t(text.size())))
        fail("cannot read a file");
}

using Records = std::vector<std::unique_ptr<DataPackage>>;

// The same records, written down for these classes alone: no tree, no names at run time, no copy.
void readByHand(const Package &package, Records &records)
{
    records.clear();
    pugi::xml_document index;
    load(package.path() + QLatin1String("/PackageCfg.xml"), index);
    for (const pugi::xml_node unit : index.document_element().children("string")) {
        const QString folder =
            package.path() + QLatin1Char('/') + QString::fromUtf8(unit.text().get());
        pugi::xml_document description;
        load(folder + QLatin1Char('/') + Velmar::Firmware::Internal::descriptionName(folder),
             description);
        records.push_back(dataPackage(description.document_element(), folder));
    }
    if (records.size() != static_cast<std::size_t>(package.unitCount()))
        fail("units are missing");
}

void readWithPugixml(const Package &package)
{
    QString errorText;
    if (!PugixmlPackages::read(package.path(), errorText))
        fail(qPrintable(errorText));
}

void read(const Package &package)
{
    QString errorText;
    if (!PackageConfig::instance()->readConfig(package.path(), errorText))
        fail(qPrintable(errorText));
}

// All sides end with records that say the same.
void compare(const Package &package)
{
    const auto peers = PugixmlPackages::upgradeCfgs();
    const auto own = PackageConfig::instance()->upgradeCfgs();
    bool isSame = own.size() == package.unitCount() && peers.size() == own.size();
    for (int i = 0; isSame && i < own.size(); ++i) {
        isSame = own.at(i).path == peers.at(i).path && own.at(i).modelId == peers.at(i).modelId
            && own.at(i).files.size() == peers.at(i).files.size();
        for (int j = 0; isSame && j < own.at(i).files.size(); ++j)
            isSame = own.at(i).files.at(j).sectionName == peers.at(i).files.at(j).sectionName
                && own.at(i).files.at(j).filePath == peers.at(i).files.at(j).filePath;
    }
    if (!isSame)
        fail("the records differ");
}

void compare(const Package &package, const Records &records)
{
    const auto cfgs = PackageConfig::instance()->upgradeCfgs();
    bool isSame = cfgs.size() == package.unitCount();
    for (int i = 0; isSame && i < cfgs.size(); ++i) {
        const DataPackage &record = *records[static_cast<std::size_t>(i)];
        isSame = cfgs.at(i).path == record.FilePath
            && cfgs.at(i).files.size() == record.fileInfos.size()
            && cfgs.at(i).files.last().sectionName == record.fileInfos.last()->FileLabel;
    }
    DataPackage first;
    isSame = isSame && PackageConfig::instance()->findDataPackage(0x7701, first)
        && first.fileInfos.first()->commandConfigs.last()->Address
            == records.front()->fileInfos.first()->commandConfigs.last()->Address;
    if (!isSame)
        fail("the records differ");
}

const Package &thousandUnits()
{
    static const Package package(1000);
    return package;
}

void thousandUnitsAgainstPugixml(benchmark::State &state)
{
    const Package &package = thousandUnits();
    PairedRounds::run(
        state, 1.5, [&package] { read(package); }, [&package] { readWithPugixml(package); });
    compare(package);
    state.SetItemsProcessed(state.iterations() * package.unitCount());
}

void thousandUnitsAgainstByHand(benchmark::State &state)
{
    const Package &package = thousandUnits();
    Records records;
    PairedRounds::run(
        state, 1.5, [&package] { read(package); },
        [&package, &records] { readByHand(package, records); });
    compare(package, records);
    state.SetItemsProcessed(state.iterations() * package.unitCount());
}

// Reads and lets go: a reader destroys what it held at the next reading, whoever's that is.
void readOnce(const Package &package)
{
    read(package);
    PackageConfig::destroyInstance();
}

// Twenty times the units: more than twenty times the time would come from copies or walks that grow.
void twentyThousandUnitsAgainstThousand(benchmark::State &state)
{
    const Package package(20000);
    PackageConfig::destroyInstance();
    PairedRounds::run(
        state, 30, [&package] { readOnce(package); }, [] { readOnce(thousandUnits()); });
    state.SetItemsProcessed(state.iterations() * package.unitCount());
}

} // namespace

BENCHMARK(thousandUnitsAgainstPugixml)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(thousandUnitsAgainstByHand)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(twentyThousandUnitsAgainstThousand)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
