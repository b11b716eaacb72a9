#include "pairedrounds.h"

#include "packageconfig.h"
#include "records/loadrecords.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <strings.h>
#include <vector>

#include <dirent.h>

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

std::unique_ptr<DataPackage> dataPackage(const pugi::xml_node &node, const std::string &folder)
{
    auto made = std::make_unique<DataPackage>();
    made->FilePath = QString::fromStdString(folder);
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

// The first name, whatever the case of its letters, that ends in ".xml".
std::string descriptionName(const std::string &folder)
{
    std::string first;
    DIR *const entries = ::opendir(folder.c_str());
    if (!entries)
        fail("cannot list a folder");
    while (const dirent *entry = ::readdir(entries)) {
        const std::size_t length = std::strlen(entry->d_name);
        if (length > 4 && std::strcmp(entry->d_name + length - 4, ".xml") == 0
            && (first.empty() || ::strcasecmp(entry->d_name, first.c_str()) < 0))
            first = entry->d_name;
    }
    ::closedir(entries);
    return first;
}

using Records = std::vector<std::unique_ptr<DataPackage>>;

// The same records, by the shortest way that pugixml has to offer.
void readWithPugixml(const Package &package, Records &records)
{
    records.clear();
    const std::string path = package.path().toStdString();
    pugi::xml_document index;
    if (!index.load_file((path + "/PackageCfg.xml").c_str()))
        fail("cannot read the index");
    for (const pugi::xml_node unit : index.document_element().children("string")) {
        const std::string folder = path + '/' + unit.text().get();
        pugi::xml_document description;
        if (!description.load_file((folder + '/' + descriptionName(folder)).c_str()))
            fail("cannot read a description");
        records.push_back(dataPackage(description.document_element(), folder));
    }
    if (records.size() != static_cast<std::size_t>(package.unitCount()))
        fail("units are missing");
}

void read(const Package &package)
{
    QString errorText;
    if (!PackageConfig::instance()->readConfig(package.path(), errorText))
        fail(qPrintable(errorText));
}

// Both sides end with records that say the same.
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
    Records records;
    PairedRounds::run(
        state, 1.5, [&package] { read(package); },
        [&package, &records] { readWithPugixml(package, records); });
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
BENCHMARK(twentyThousandUnitsAgainstThousand)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
