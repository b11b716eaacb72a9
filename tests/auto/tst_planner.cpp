#include "package/planner.h"

#include "device/modelnames.h"
#include "package/imagecheck.h"
#include "package/offer.h"
#include "package/olderservicechoice.h"
#include "package/packagelisting.h"
#include "package/packageparse.h"
#include "package/registerchoice.h"
#include "run/imagebuild.h"

#include "support/encipheredfile.h"
#include "support/fakedevice.h"
#include "support/imagebuilder.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"

#include <upgradeimage/imagereader.h>
#include <velmarbizmodel/catalogue.h>

#include <QEventLoop>
#include <QtTest>

#include <random>

using namespace Velmar;
using namespace Velmar::Host;
using ProtoModel::Auxiliary::s_DeviceVersion;
using ProtoModel::Auxiliary::s_DeviceVersionPart;
using ProtoModel::Auxiliary::s_DeviceVersionSection;

Q_DECLARE_METATYPE(Velmar::Host::Wish)
Q_DECLARE_METATYPE(Velmar::ProtoModel::Auxiliary::s_DeviceVersionPart)

namespace {

constexpr std::chrono::seconds Ample { 30 };
constexpr quint16 StrataS8 = 0x7701;
constexpr quint16 HdmiCard = 0x7801; // one board: 1
constexpr quint16 SdiCard = 0x7802; // boards 1 and 2, which number their FPGA differently

const QByteArray MainUnit("ModuleID='7701' StepType='0' Version='3.1.0.0'");
const QByteArray HdmiUnit("ModuleID='7801' StepType='1' Version='2.0'");

QByteArray fileInfo(const QByteArray &section, const QByteArray &file, int board = 0,
                    const QByteArray &commands = {})
{
    return "<FileInfo FileLabel='" + section + "' FileName='" + file + "' ExtendNum='"
        + QByteArray::number(board) + "'>" + commands + "</FileInfo>";
}

const QByteArray DataCommands("<CommandConfig CmdName='SendFileLength' Address='0x01000020'/>"
                              "<CommandConfig CmdName='SendFileData' Address='0x01001000'/>");

s_DeviceVersionPart part(quint8 type, quint8 slotId,
                         const std::vector<s_DeviceVersionSection> &sections)
{
    s_DeviceVersionPart told;
    told.type = type;
    told.slotId = slotId;
    told.section = sections;
    return told;
}

s_DeviceVersion exampleVersions()
{
    s_DeviceVersion versions;
    versions.parts = { part(1, 0, { { 0x101, "1.0.0.0", "" }, { 0x110, "1.1.0.0", "" } }),
                       part(2, 0, { { 0x105, "1.0.0.5", "" } }),
                       part(3, 2, { { 0x303, "2.0.0.0", "" }, { 0x302, "N/A", "" } }) };
    return versions;
}

/*! What a host has when it comes to planning. */
class Package
{
public:
    bool parse(FakeDevice &device, const Wish &wish, Road road)
    {
        PackageParse parse(builder.path());
        QEventLoop loop;
        QObject::connect(&parse, &PackageParse::signalEnded, &loop, &QEventLoop::quit);
        parse.start(Ample);
        loop.exec();
        units = parse.units();
        dataFilePaths = parse.dataFilePaths();
        if (!listing.read(builder.path(), errorText))
            return false;
        const auto offered = offeredParts(units, device.device());
        selection = {};
        choiceText.clear();
        if (road == Road::Registers)
            chooseForRegisters(offered, listing, device.device().modelId(), selection, choiceText);
        else if (isOlderService)
            chooseForOlderService(offered, wish, selection, choiceText);
        else
            selection.choose(offered, wish, choiceText);
        return true;
    }

    bool plan(FakeDevice &device, const Wish &wish = {}, Road road = Road::Native,
              const PlannedUpload &upload = {})
    {
        const PlanOrder order { road,           wish,
                                selection,      units,
                                dataFilePaths,  listing,
                                builder.path(), device.device(),
                                versions,       { QStringLiteral("127.0.0.1"), 9720 },
                                "S8-0001",      "Hall",
                                upload,         isOlderService,
                                &modelNames };
        return makePlan(order, made, code, errorText);
    }

    /*! Parses and plans. */
    bool run(FakeDevice &device, const Wish &wish = {}, Road road = Road::Native,
             const PlannedUpload &upload = {})
    {
        const LogRecorder log; // the library's causes, which other tests check
        errorText.clear();
        return parse(device, wish, road) && plan(device, wish, road, upload);
    }

    QStringList files() const
    {
        QStringList lines;
        for (const auto &file : made.files)
            lines.append(file.file + QStringLiteral(" > ") + file.target);
        return lines;
    }

    QStringList leftOut() const
    {
        QStringList lines;
        for (const auto &leftOut : made.leftOut)
            lines.append(QStringList({ leftOut.unit, leftOut.section, leftOut.file,
                                       leftOutWord(leftOut.reason) })
                             .join(QLatin1Char('|')));
        return lines;
    }

    PackageBuilder builder;
    QVector<Firmware::UpgradeCfg> units;
    QVector<Firmware::DataFilePath> dataFilePaths;
    PackageListing listing;
    Selection selection;
    QString choiceText;
    s_DeviceVersion versions = exampleVersions();
    bool isOlderService = false;
    const ModelNames modelNames { BizModel::Catalogue::builtin() };
    Plan made;
    VerdictCode code = VerdictCode::Internal;
    QString errorText;
};

} // namespace

class tst_Planner : public QObject
{
    Q_OBJECT

    std::unique_ptr<FakeDevice> m_device;
    std::unique_ptr<Package> m_package;

    const PackageBuilder &builder() const { return m_package->builder; }

    // A main control's unit and a card's, and the data files around them.
    void makeWholePackage() const
    {
        QVERIFY(builder().index({ "main", "hdmi" }));
        QVERIFY(builder().unit("main", MainUnit,
                               fileInfo("FPGA", "fpga.bin")
                                   + fileInfo("MCU", "MCU.dat", 0, DataCommands)));
        QVERIFY(builder().file("main/fpga.bin", "1234567"));
        QVERIFY(storeEnciphered(builder().path("main/MCU.dat"), "firmware"));
        QVERIFY(builder().file("main/osd.json", "{}"));
        QVERIFY(builder().file("main/font12.dat", "font"));
        QVERIFY(builder().unit("hdmi", HdmiUnit, fileInfo("EDID", "edid.bin")));
        QVERIFY(builder().file("hdmi/edid.bin", "edid"));
        QVERIFY(builder().paths({ { "main/osd.json", "/config/osd.json" },
                                  { "main/MCU.dat", "/boot/mcu" },
                                  { "main/fpga.bin", "/boot/fpga" },
                                  { "main/fpga.bin", "/recovery/fpga" },
                                  { "main/font12.dat", "/config/font" },
                                  { "hdmi/edid.bin", "/cards/edid" },
                                  { "main/readme.txt", "/readme" } }));
    }

private Q_SLOTS:
    void init()
    {
        m_device = std::make_unique<FakeDevice>(
            StrataS8, std::vector<BizModel::Subcard> { { HdmiCard, 2, 1 }, { SdiCard, 3, 2 } });
        m_device->link().answer(QStringLiteral("version.read"), ScriptedLink::accepted());
        m_package = std::make_unique<Package>();
    }
    void cleanup()
    {
        m_package.reset();
        m_device.reset();
    }

    void wholePackage()
    {
        makeWholePackage();
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        const auto &plan = m_package->made;
        QCOMPARE(
            m_package->files(),
            QStringList({ "main/fpga.bin > /boot/fpga", "main/MCU.dat > /boot/mcu",
                          "main/fpga.bin > /recovery/fpga", "hdmi/edid.bin > /cards/edid",
                          "main/osd.json > /config/osd.json", "main/font12.dat > /config/font" }));
        QCOMPARE(m_package->leftOut(), QStringList("||main/readme.txt|unused"));

        QVERIFY(plan.road == Road::Native);
        QCOMPARE(plan.packagePath, builder().path());
        QCOMPARE(plan.device.modelName, QStringLiteral("Strata S8 (0x7701)"));
        QCOMPARE(plan.device.serial, QStringLiteral("S8-0001"));
        QCOMPARE(plan.device.cards.size(), std::size_t(2));
        QCOMPARE(plan.device.cards.at(1).slotId, quint8(3));
        QCOMPARE(plan.device.cards.at(1).boardId, quint8(2));

        const auto &mcu = plan.files.at(1);
        QCOMPARE(mcu.section, QStringLiteral("MCU"));
        QCOMPARE(mcu.code, quint16(0x101));
        QVERIFY(mcu.isMainControl && !mcu.isDataFile);
        QCOMPARE(mcu.size, qint64(64)); // 8 bytes, enciphered
        const auto &edid = plan.files.at(3);
        QCOMPARE(edid.slotId, quint8(2));
        QCOMPARE(edid.modelId, HdmiCard);
        QCOMPARE(edid.boardId, quint8(1));
        QVERIFY(!edid.isMainControl);
        QVERIFY(plan.files.at(4).isDataFile);
    }

    void versionsBeforeAndAfter()
    {
        makeWholePackage();
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QStringList lines;
        for (const auto &section : m_package->made.sections)
            lines.append(QStringLiteral("%1 %2.%3 %4: %5 -> %6")
                             .arg(section.isMainControl ? "main" : "card")
                             .arg(section.slotId)
                             .arg(section.type)
                             .arg(section.name, section.versionBefore, section.versionExpected));
        QCOMPARE(lines,
                 QStringList({ "main 0.1 FPGA:  -> 1.1.0.0", "main 0.1 MCU: 1.0.0.0 -> 1.1.0.0",
                               "card 2.3 EDID: 2.0.0.0 -> 1.1.0.0" }));
    }

    // Devices read the version from the image's header, where it has four bytes.
    void stampedVersion_data()
    {
        QTest::addColumn<QByteArray>("told");
        QTest::addColumn<QString>("expected");

        QTest::newRow("four parts") << QByteArray("1.2.3.4") << "1.2.3.4";
        QTest::newRow("two parts") << QByteArray("1.2") << "0.0.1.2";
        QTest::newRow("over a byte") << QByteArray("1.256.0.0") << "2.0.0.0";
        QTest::newRow("not told") << QByteArray("N/A") << "";
        QTest::newRow("empty") << QByteArray() << "";
        QTest::newRow("five parts wrap") << QByteArray("1.0.0.0.1") << "0.0.0.2";
    }
    void stampedVersion()
    {
        QFETCH(QByteArray, told);
        makeWholePackage();
        m_package->versions.parts[0].section[1].version = told.toStdString();
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QTEST(m_package->made.sections.at(0).versionExpected, "expected");
    }

    // The library takes the first part of the type, and then its first section of the code.
    void deviceWithoutAStamp_data()
    {
        QTest::addColumn<s_DeviceVersionPart>("first");

        QTest::newRow("no part of the type") << part(4, 0, { { 0x110, "1.1.0.0", "" } });
        QTest::newRow("first part of the type without the section")
            << part(1, 0, { { 0x101, "1.0.0.0", "" } });
    }
    void deviceWithoutAStamp()
    {
        QFETCH(s_DeviceVersionPart, first);
        makeWholePackage();
        m_package->versions.parts[0].slotId = 1;
        if (first.type != 1)
            m_package->versions.parts.clear();
        m_package->versions.parts.insert(m_package->versions.parts.begin(), first);
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QCOMPARE(m_package->made.sections.at(0).versionExpected, QString());
    }

    void chosenSections_data()
    {
        QTest::addColumn<Wish>("wish");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QStringList>("leftOut");

        QTest::newRow("without data files")
            << Wish { { "FPGA" }, {} }
            << QStringList { "main/fpga.bin > /boot/fpga", "main/fpga.bin > /recovery/fpga" }
            << QStringList { "main|MCU|main/MCU.dat|not-chosen",
                             "hdmi|EDID|hdmi/edid.bin|not-chosen", "||main/osd.json|not-chosen",
                             "||main/font12.dat|not-chosen", "||main/readme.txt|unused" };
        QTest::newRow("card") << Wish { {}, { "2" } }
                              << QStringList { "hdmi/edid.bin > /cards/edid" }
                              << QStringList { "main|FPGA|main/fpga.bin|not-chosen",
                                               "main|MCU|main/MCU.dat|not-chosen",
                                               "||main/osd.json|not-chosen",
                                               "||main/font12.dat|not-chosen",
                                               "||main/readme.txt|unused" };
        QTest::newRow("MCU") << Wish { { "MCU" }, {} }
                             << QStringList { "main/MCU.dat > /boot/mcu",
                                              "main/osd.json > /config/osd.json",
                                              "main/font12.dat > /config/font" }
                             << QStringList { "main|FPGA|main/fpga.bin|not-chosen",
                                              "hdmi|EDID|hdmi/edid.bin|not-chosen",
                                              "||main/readme.txt|unused" };
    }
    void chosenSections()
    {
        QFETCH(Wish, wish);
        makeWholePackage();
        QVERIFY2(m_package->run(*m_device, wish), qPrintable(m_package->errorText));
        QTEST(m_package->files(), "files");
        QTEST(m_package->leftOut(), "leftOut");
    }

    // One unit beside a good one, and what is told of it.
    void leftOutUnits_data()
    {
        QTest::addColumn<QByteArray>("attributes");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("leftOut");

        QTest::newRow("another device")
            << QByteArray("ModuleID='7702' StepType='0'") << fileInfo("FPGA", "a.bin")
            << QStringList("unit|FPGA|unit/a.bin|other-model");
        QTest::newRow("no model") << QByteArray("ModuleID='x' StepType='0'")
                                  << fileInfo("FPGA", "a.bin")
                                  << QStringList("unit|FPGA|unit/a.bin|other-model");
        QTest::newRow("card unit for the device itself")
            << QByteArray("ModuleID='7701' StepType='1'") << fileInfo("FPGA", "a.bin")
            << QStringList("unit|FPGA|unit/a.bin|other-model");
        QTest::newRow("card that the device never takes")
            << QByteArray("ModuleID='7812' StepType='1'") << fileInfo("FPGA", "a.bin")
            << QStringList("unit|FPGA|unit/a.bin|other-model");
        QTest::newRow("card that is not fitted")
            << QByteArray("ModuleID='7811' StepType='1'")
            << fileInfo("FPGA", "a.bin") + fileInfo("MCU", "a.bin")
            << QStringList { "unit|FPGA|unit/a.bin|no-such-card",
                             "unit|MCU|unit/a.bin|no-such-card" };
        QTest::newRow("board that is not fitted")
            << QByteArray("ModuleID='7802' StepType='1'") << fileInfo("FPGA", "a.bin", 1)
            << QStringList("unit|FPGA|unit/a.bin|unfitted-board");
        QTest::newRow("board of the main control")
            << MainUnit << fileInfo("Kernel", "a.bin", 1)
            << QStringList("unit|Kernel|unit/a.bin|unfitted-board");
        QTest::newRow("the same once more for a board that is not fitted")
            << QByteArray("ModuleID='7802' StepType='1'")
            << fileInfo("SDI", "a.bin", 2) + fileInfo("SDI", "a.bin", 1)
            << QStringList { "unit|SDI|unit/a.bin|unfitted-board",
                             "unit|SDI|unit/a.bin|unfitted-board" };
        QTest::newRow("unknown section") << MainUnit << fileInfo("Fpga", "a.bin")
                                         << QStringList("unit|Fpga|unit/a.bin|unknown-section");
        QTest::newRow("section of another board")
            << QByteArray("ModuleID='7802' StepType='1'") << fileInfo("EDID", "a.bin")
            << QStringList("unit|EDID|unit/a.bin|unknown-section");
        QTest::newRow("section that another board numbers otherwise")
            << QByteArray("ModuleID='7802' StepType='1'") << fileInfo("FPGA", "a.bin")
            << QStringList("unit|FPGA|unit/a.bin|unknown-section");
        QTest::newRow("section named twice")
            << MainUnit
            << fileInfo("Kernel", "a.bin") + fileInfo("MCU", "a.bin") + fileInfo("Kernel", "b.bin")
            << QStringList { "unit|Kernel|unit/a.bin|doubled-section",
                             "unit|MCU|unit/a.bin|doubled-section",
                             "unit|Kernel|unit/b.bin|doubled-section" };
        QTest::newRow("unknown step")
            << QByteArray("ModuleID='7701' StepType='2'") << fileInfo("Kernel", "a.bin")
            << QStringList("unit|Kernel|unit/a.bin|unknown-step");
        QTest::newRow("factory file")
            << MainUnit << fileInfo("Kernel", "a.bin") + fileInfo("Kernel", "KernelGolden.dat")
            << QStringList("unit|Kernel|unit/KernelGolden.dat|golden-file");
        QTest::newRow("missing file")
            << MainUnit << fileInfo("Kernel", "none.bin")
            << QStringList { "unit|Kernel|unit/none.bin|missing-file", "||unit/a.bin|unused" };
        QTest::newRow("unit without a file")
            << QByteArray("ModuleID='7702' StepType='0'") << QByteArray()
            << QStringList { "unit|||other-model", "||unit/a.bin|unused" };
        QTest::newRow("unit without a file that fits")
            << MainUnit << QByteArray() << QStringList("||unit/a.bin|unused");
        QTest::newRow("broken description")
            << MainUnit << QByteArray("<FileInfo FileLabel='Kernel' FileName='a.bin'>")
            << QStringList { "unit|||unreadable-unit", "||unit/a.bin|unused" };
        QTest::newRow("bad number in the description")
            << MainUnit + " IsSupportFromScratch='perhaps'" << fileInfo("Kernel", "a.bin")
            << QStringList { "unit|||unreadable-unit", "||unit/a.bin|unused" };
    }
    void leftOutUnits()
    {
        QFETCH(QByteArray, attributes);
        QFETCH(QByteArray, content);
        QVERIFY(builder().index({ "main", "unit" }));
        QVERIFY(builder().unit("main", MainUnit, fileInfo("FPGA", "fpga.bin")));
        QVERIFY(builder().file("main/fpga.bin"));
        QVERIFY(builder().unit("unit", attributes, content));
        for (const auto *name : { "unit/a.bin", "unit/b.bin", "unit/KernelGolden.dat" })
            QVERIFY(builder().file(name));
        QVERIFY(builder().paths({ { "main/fpga.bin", "/fpga" }, { "unit/a.bin", "/a" } }));

        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QVERIFY(m_package->files().contains("main/fpga.bin > /fpga"));
        QTEST(m_package->leftOut(), "leftOut");
        for (const auto &leftOut : m_package->made.leftOut)
            QVERIFY(!leftOut.text.isEmpty());
    }

    void unitWithoutDescription()
    {
        makeWholePackage();
        QVERIFY(builder().index({ "nowhere", "main" }));
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QCOMPARE(m_package->leftOut().first(), QStringLiteral("nowhere|||unreadable-unit"));
    }

    void furtherPlaceOfABoardsFile()
    {
        QVERIFY(builder().index({ "sdi" }));
        QVERIFY(builder().unit("sdi", "ModuleID='7802' StepType='1'", fileInfo("SDI", "a.bin", 2)));
        QVERIFY(builder().file("sdi/a.bin"));
        QVERIFY(builder().paths({ { "sdi/a.bin", "/first" }, { "sdi/a.bin", "/second" } }));
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(), QStringList("sdi/a.bin > /first"));
        QCOMPARE(m_package->leftOut(), QStringList("sdi|SDI|sdi/a.bin|further-target"));
    }

    // Two cards that want one file get it once; the plan names the first of them.
    void oneFileForTwoCards()
    {
        m_device.reset(); // one active device at a time
        FakeDevice device(StrataS8, { { HdmiCard, 2, 1 }, { HdmiCard, 4, 1 } });
        makeWholePackage();
        QVERIFY2(m_package->run(device, { { "EDID" }, {} }), qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(), QStringList("hdmi/edid.bin > /cards/edid"));
        QCOMPARE(m_package->made.files.at(0).slotId, quint8(2));
        QCOMPARE(m_package->made.sections.size(), std::size_t(2));
    }

    // A data file that is a section's, too, is sent twice: the library does not compare.
    void dataFileOfASection()
    {
        QVERIFY(builder().index({ "main" }));
        QVERIFY(builder().unit("main", MainUnit,
                               fileInfo("MCU", "a.bin") + fileInfo("Kernel", "k.json")));
        QVERIFY(builder().file("main/a.bin"));
        QVERIFY(builder().file("main/k.json"));
        QVERIFY(builder().paths({ { "main/a.bin", "/a" }, { "main/k.json", "/k" } }));
        QVERIFY2(m_package->run(*m_device), qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(),
                 QStringList({ "main/a.bin > /a", "main/k.json > /k", "main/k.json > /k" }));
    }

    void refusals_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("word");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("nothing fits") << "fit"
                                      << "nothing-fits"
                                      << "Nothing in the package would be sent to this device";
        QTest::newRow("empty file") << "empty"
                                    << "package-refused"
                                    << "main/fpga.bin is missing, empty or no file";
        QTest::newRow("missing data file") << "data"
                                           << "package-refused"
                                           << "main/osd.json is missing, empty or no file";
        QTest::newRow("no place") << "place"
                                  << "package-refused"
                                  << "main/fpga.bin has no place on the device";
        QTest::newRow("long place")
            << "long"
            << "package-refused"
            << "main/fpga.bin has a place on the device of other than 1 to 255 ASCII characters";
        QTest::newRow("foreign place")
            << "foreign"
            << "package-refused"
            << "main/fpga.bin has a place on the device of other than 1 to 255 ASCII characters";
    }
    void refusals()
    {
        QFETCH(QString, change);
        makeWholePackage();
        if (change == QLatin1String("fit"))
            QVERIFY(builder().index({}));
        else if (change == QLatin1String("empty"))
            QVERIFY(builder().file("main/fpga.bin", ""));
        else if (change == QLatin1String("data"))
            QVERIFY(QFile::remove(builder().path("main/osd.json")));
        else if (change == QLatin1String("place"))
            QVERIFY(QFile::remove(builder().path("DataFilPathCfg.xml")));
        else if (change == QLatin1String("long"))
            QVERIFY(builder().paths({ { "main/fpga.bin", QString(256, QLatin1Char('x')) } }));
        else
            QVERIFY(builder().paths({ { "main/fpga.bin", QString::fromUtf8("/f\u00fc") } }));
        QVERIFY(!m_package->run(*m_device));
        QTEST(verdictWord(m_package->code), "word");
        QTEST(m_package->errorText, "errorText");
    }

    void longestPlace()
    {
        makeWholePackage();
        QVERIFY(builder().paths({ { "main/fpga.bin", QString(255, QLatin1Char('x')) } }));
        QVERIFY2(m_package->run(*m_device, { { "FPGA" }, {} }), qPrintable(m_package->errorText));
    }

    void pickedButNotSent_data()
    {
        QTest::addColumn<Wish>("wish");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("missing file")
            << Wish { { "Kernel" }, {} }
            << "The section \"Kernel\" would not be sent, main/kernel.bin: The package has no such "
               "file";
        QTest::newRow("one of two")
            << Wish { { "MCU", "Kernel" }, {} }
            << "The section \"Kernel\" would not be sent, main/kernel.bin: The package has no such "
               "file";
        QTest::newRow("not in the package")
            << Wish { { "Colour" }, {} }
            << "The section \"Colour\" would not be sent: the package has none of that name";
        QTest::newRow("card without anything")
            << Wish { {}, { "3" } } << "Nothing would be sent for card \"3\"";
    }
    void pickedButNotSent()
    {
        QFETCH(Wish, wish);
        makeWholePackage();
        QVERIFY(builder().unit("main", MainUnit,
                               fileInfo("MCU", "MCU.dat") + fileInfo("Kernel", "kernel.bin")));
        QVERIFY(!m_package->run(*m_device, wish));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("not-planned"));
        QTEST(m_package->errorText.section(QStringLiteral(". "), -1), "errorText");
        QVERIFY(!m_package->choiceText.isEmpty()); // the choice refuses it as well, without reason
    }

    void chosenWithoutAFile()
    {
        makeWholePackage();
        QVERIFY(m_package->run(*m_device));
        m_package->units[1].files.clear(); // the card's
        QVERIFY(!m_package->plan(*m_device));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("not-planned"));
        QCOMPARE(m_package->errorText.section(QLatin1Char(','), 0, 0),
                 QStringLiteral("No file would be sent for the section \"EDID\""));
    }

    void byRegisters()
    {
        makeWholePackage();
        QVERIFY2(m_package->run(*m_device, {}, Road::Registers), qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(), QStringList("main/MCU.dat > "));
        QCOMPARE(m_package->made.sections.size(), std::size_t(1));
        QCOMPARE(m_package->made.sections.at(0).versionBefore, QStringLiteral("1.0.0.0"));
        QCOMPARE(m_package->made.sections.at(0).versionExpected, QStringLiteral("3.1.0.0"));
        QCOMPARE(m_package->leftOut(),
                 QStringList({ "main|FPGA|main/fpga.bin|not-by-registers",
                               "hdmi|EDID|hdmi/edid.bin|not-by-registers",
                               "||main/osd.json|not-by-registers",
                               "||main/font12.dat|not-by-registers", "||main/readme.txt|unused" }));
    }

    void byRegistersWithAnotherWish()
    {
        makeWholePackage();
        const Wish wish { { "FPGA" }, {} };
        QVERIFY(!m_package->run(*m_device, wish, Road::Registers));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("not-planned"));
        QCOMPARE(m_package->errorText,
                 QStringLiteral("The section \"FPGA\" would not be sent, main/fpga.bin: Only the "
                                "main control's \"MCU\" is written by registers"));
    }

    // Of two units for the model the library takes the first.
    void byRegistersOfTheFirstUnit()
    {
        makeWholePackage();
        QVERIFY(builder().index({ "main", "second" }));
        QVERIFY(builder().unit("second", MainUnit, fileInfo("MCU", "MCU.dat", 0, DataCommands)));
        QVERIFY(storeEnciphered(builder().path("second/MCU.dat"), "other"));
        QVERIFY2(m_package->run(*m_device, {}, Road::Registers), qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(), QStringList("main/MCU.dat > "));
        QVERIFY(m_package->leftOut().contains("second|MCU|second/MCU.dat|other-unit"));
    }

    // The unit that is written may be one that fell at the parse, and need not be for this device.
    void byRegistersOfAUnitThatDoesNotFit()
    {
        makeWholePackage();
        QVERIFY(builder().index({ "odd", "main" }));
        QVERIFY(builder().unit("odd", "ModuleID='7701' StepType='1' Version='3.0'",
                               fileInfo("MCU", "MCU.dat", 0, DataCommands)));
        QVERIFY(storeEnciphered(builder().path("odd/MCU.dat"), "other"));
        QVERIFY(!m_package->run(*m_device, {}, Road::Registers));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("not-planned"));
        QCOMPARE(m_package->errorText,
                 QStringLiteral("The unit that would be written by registers is one that does not "
                                "fit the device: odd"));
    }

    void byRegistersWithoutCommands()
    {
        makeWholePackage();
        QVERIFY(builder().unit("main", MainUnit, fileInfo("MCU", "MCU.dat")));
        QVERIFY(!m_package->run(*m_device, {}, Road::Registers));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("nothing-fits"));
        QCOMPARE(m_package->leftOut().first(), QStringLiteral("main|MCU|main/MCU.dat|no-commands"));
    }

    // A factory file has them in vain.
    void byRegistersOfAFactoryFile()
    {
        makeWholePackage();
        QVERIFY(builder().index({ "factory", "main" }));
        QVERIFY(builder().unit("factory", MainUnit,
                               fileInfo("MCU", "MCU_Golden.dat", 0, DataCommands)));
        QVERIFY(storeEnciphered(builder().path("factory/MCU_Golden.dat"), "factory"));
        QVERIFY(!m_package->run(*m_device, {}, Road::Registers));
        QCOMPARE(m_package->choiceText,
                 QStringLiteral("The package has no commands by which the \"MCU\" of model 0x7701 "
                                "could be written register by register"));
    }

    // The library notices it on its way, behind the writes of the commands before it.
    void byRegistersWithoutTheDevicesIdentifier_data()
    {
        QTest::addColumn<QByteArray>("commands");
        QTest::addColumn<bool>("isPlanned");

        const QByteArray card("<CommandConfig CmdName='SendCardIndex'/>");
        const QByteArray identifier("<CommandConfig CmdName='SendDeviceID'/>");
        QTest::newRow("without") << DataCommands + card << false;
        QTest::newRow("in front") << identifier + card + DataCommands << true;
        QTest::newRow("behind") << card + DataCommands + identifier << true;
        QTest::newRow("not needed") << DataCommands << true;
    }
    void byRegistersWithoutTheDevicesIdentifier()
    {
        QFETCH(QByteArray, commands);
        QFETCH(bool, isPlanned);
        makeWholePackage();
        QVERIFY(builder().unit("main", MainUnit, fileInfo("MCU", "MCU.dat", 0, commands)));
        QCOMPARE(m_package->run(*m_device, {}, Road::Registers), isPlanned);
        if (isPlanned)
            return;
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("package-refused"));
        QCOMPARE(m_package->errorText,
                 QStringLiteral("main/MCU.dat has the command \"SendCardIndex\" and not "
                                "\"SendDeviceID\", without which that cannot be carried out"));
    }

    // Into an image such files go as they are; on the way to a register the library deciphers all.
    void byRegistersWhatIsNotEnciphered_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("another ending") << QByteArray("MCU.bin");
        QTest::newRow("font") << QByteArray("font12.dat");
    }
    void byRegistersWhatIsNotEnciphered()
    {
        QFETCH(QByteArray, name);
        const QString path = "main/" + name;
        makeWholePackage();
        QVERIFY(builder().unit("main", MainUnit, fileInfo("MCU", name, 0, DataCommands)));
        QVERIFY(builder().file(path, "firmware"));
        QVERIFY(!m_package->run(*m_device, {}, Road::Registers));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("package-refused"));
        QCOMPARE(m_package->errorText,
                 path + " cannot be deciphered: The file is cut off or not enciphered.");

        QVERIFY(storeEnciphered(builder().path(path), "firmware"));
        QVERIFY2(m_package->run(*m_device, {}, Road::Registers), qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(), QStringList(path + " > "));
    }

    void placesThatClash_data()
    {
        QTest::addColumn<QString>("target"); // of main/MCU.dat, behind /boot/fpga of main/fpga.bin
        QTest::addColumn<QString>("fault"); // empty: planned

        QTest::newRow("apart") << "/boot/fpga2"
                               << "";
        QTest::newRow("the same") << "/boot/fpga"
                                  << "is the same place as that of main/fpga.bin";
        QTest::newRow("the same in other words") << "boot/.//fpga"
                                                 << "is the same place as that of main/fpga.bin";
        QTest::newRow("below a file") << "/boot/fpga/mcu"
                                      << "lies below that of main/fpga.bin, which is a file";
        QTest::newRow("a folder") << "/boot"
                                  << "is a folder for that of main/fpga.bin";
        QTest::newRow("none") << "/./"
                              << "names no file";
    }
    void placesThatClash()
    {
        QFETCH(QString, target);
        QFETCH(QString, fault);
        makeWholePackage();
        // The library sends a data file as often as it is listed: with the same content, that is.
        QVERIFY(builder().paths({ { "main/fpga.bin", "/boot/fpga" },
                                  { "main/MCU.dat", target },
                                  { "main/osd.json", "/config/osd.json" },
                                  { "main/osd.json", "/config/osd.json" } }));
        QCOMPARE(m_package->run(*m_device, { {}, { "main" } }), fault.isEmpty());
        QCOMPARE(m_package->files().size(), 4);
        if (fault.isEmpty())
            return;
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("package-refused"));
        QCOMPARE(m_package->errorText,
                 QStringLiteral("The place of main/MCU.dat on the device, \"%1\", %2")
                     .arg(target, fault));
    }

    void registerVersions_data()
    {
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<bool>("isPlanned");
        QTest::addColumn<QString>("expected");

        QTest::newRow("dotted") << QByteArray("12.1") << true << "12.1";
        QTest::newRow("not dotted") << QByteArray("3") << true << "";
        QTest::newRow("no version") << QByteArray("3.x") << true << "";
        QTest::newRow("too low") << QByteArray("2.9.9") << false << "2.9.9";
        QTest::newRow("none") << QByteArray() << false << "";
    }
    void registerVersions()
    {
        QFETCH(QByteArray, version);
        QFETCH(bool, isPlanned);
        makeWholePackage();
        QVERIFY(builder().unit("main", "ModuleID='7701' StepType='0' Version='" + version + "'",
                               fileInfo("MCU", "MCU.dat", 0, DataCommands)));
        QCOMPARE(m_package->run(*m_device, {}, Road::Registers), isPlanned);
        QTEST(m_package->made.sections.at(0).versionExpected, "expected");
        if (!isPlanned)
            QCOMPARE(verdictWord(m_package->code), QStringLiteral("package-refused"));
    }

    void overHttp()
    {
        makeWholePackage();
        QVERIFY2(
            m_package->run(*m_device, { { "EDID" }, {} }, Road::Http, { "10.0.0.2", {}, true }),
            qPrintable(m_package->errorText));
        QCOMPARE(m_package->files(), QStringList("hdmi/edid.bin > /cards/edid"));
        QCOMPARE(m_package->made.upload.host, QStringLiteral("10.0.0.2"));
        QVERIFY(m_package->made.upload.isCompatible);
        QCOMPARE(m_package->made.sections.at(0).versionExpected, QStringLiteral("1.1.0.0"));
    }

    void overTheOlderHttpService()
    {
        makeWholePackage();
        m_package->isOlderService = true;
        QVERIFY2(m_package->run(*m_device, {}, Road::Http, { {}, {}, true }),
                 qPrintable(m_package->errorText));
        QCOMPARE(m_package->files().first(), QStringLiteral("main/MCU.dat > /boot/mcu"));
        QCOMPARE(m_package->made.sections.size(), std::size_t(1));
        QCOMPARE(m_package->leftOut(),
                 QStringList({ "main|FPGA|main/fpga.bin|not-by-older-service",
                               "hdmi|EDID|hdmi/edid.bin|not-by-older-service",
                               "||main/readme.txt|unused" }));
        QVERIFY(!m_package->run(*m_device, { { "FPGA" }, {} }, Road::Http, { {}, {}, true }));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("not-planned"));
    }

    void uploadOfAnImage()
    {
        makeWholePackage();
        const QTemporaryDir folder;
        const QString path = folder.filePath("image");
        ImageBuilder image;
        image.files = { { "/boot/mcu", "firmware" } };
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write(image.build()) > 0);
        file.close();
        QVERIFY2(m_package->run(*m_device, { { "MCU" }, {} }, Road::Http, { {}, path, false }),
                 qPrintable(m_package->errorText));
        QCOMPARE(m_package->made.files.size(), std::size_t(1));
        QCOMPARE(m_package->made.files.at(0).file, path);
        QCOMPARE(m_package->made.files.at(0).size, qint64(256 + 264 + 8 + 2));
        QCOMPARE(m_package->made.sections.size(), std::size_t(1));
        QCOMPARE(m_package->made.sections.at(0).versionExpected, QStringLiteral("1.2.3.4"));
        QCOMPARE(m_package->leftOut(),
                 QStringList({ "main|FPGA|main/fpga.bin|not-chosen",
                               "main|MCU|main/MCU.dat|not-uploaded",
                               "hdmi|EDID|hdmi/edid.bin|not-chosen", "||main/osd.json|not-uploaded",
                               "||main/font12.dat|not-uploaded", "||main/readme.txt|unused" }));

        image.modelId = 0x7702;
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write(image.build()) > 0);
        file.close();
        QVERIFY(!m_package->run(*m_device, {}, Road::Http, { {}, path, false }));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("package-refused"));
        QCOMPARE(m_package->errorText,
                 path + " is an image for model 0x7702, and the device is 0x7701");
    }

    void uploadOfAnotherKind()
    {
        makeWholePackage();
        const QTemporaryDir folder;
        const QString path = folder.filePath("archive");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write("archive"), qint64(7));
        file.close();
        QVERIFY2(m_package->run(*m_device, {}, Road::Http, { {}, path, false }),
                 qPrintable(m_package->errorText));
        QCOMPARE(m_package->made.sections.at(0).versionExpected, QString());
    }

    void uploadThatIsNotThere()
    {
        makeWholePackage();
        const QTemporaryDir folder;
        QVERIFY(!m_package->run(*m_device, {}, Road::Http, { {}, folder.filePath("none"), false }));
        QCOMPARE(verdictWord(m_package->code), QStringLiteral("package-refused"));
        QCOMPARE(m_package->errorText, folder.filePath("none") + " is missing, empty or no file");
    }

    /*!
        Packages of all kinds against devices of all kinds: the image that the library builds has
        the plan's table, and each file that a unit lists is in the plan or left out.
    */
    void asTheLibraryBuildsIt_data()
    {
        QTest::addColumn<quint32>("seed");
        for (quint32 seed = 1; seed <= 40; ++seed)
            QTest::addRow("seed %u", seed) << seed;
    }
    void asTheLibraryBuildsIt();
};

namespace {

/*! Makes packages, devices and wishes: the same ones for a seed. */
class Chance
{
public:
    explicit Chance(quint32 seed)
        : m_engine(seed)
    {
    }

    int upTo(int largest) { return std::uniform_int_distribution<int>(0, largest)(m_engine); }
    bool oneIn(int cases) { return upTo(cases - 1) == 0; }

    template<typename Value> const Value &of(const QVector<Value> &values)
    {
        return values.at(upTo(values.size() - 1));
    }

    std::vector<BizModel::Subcard> cards()
    {
        std::vector<BizModel::Subcard> cards;
        for (unsigned char slot = 1; slot <= 6; ++slot) {
            if (oneIn(3))
                continue;
            const auto model = of<unsigned>({ 0x7801, 0x7802, 0x7811 });
            const int board = model == 0x7802 ? 1 + upTo(1) : 1;
            cards.emplace_back(model, slot, static_cast<unsigned char>(board));
        }
        return cards;
    }

    /*! False if a file could not be written. */
    bool fill(const PackageBuilder &package)
    {
        bool isWritten = true;
        QStringList folders;
        QVector<QPair<QString, QString>> paths;
        const int unitCount = 2 + upTo(5);
        for (int unit = 0; unit < unitCount; ++unit) {
            const QString folder = QStringLiteral("unit%1").arg(unit);
            folders.append(folder);
            if (oneIn(12))
                folders.append(folder); // twice in the index
            QByteArray content;
            const int fileCount = upTo(7);
            for (int file = 0; file < fileCount; ++file) {
                const QByteArray name = of<QByteArray>(
                    { "a.bin", "b.bin", "c.dat", "d.json", "font12.dat", "eGolden.dat", "f.bin" });
                content += fileInfo(
                    of<QByteArray>({ "MCU", "FPGA", "Kernel", "EDID", "SDI", "MCU_Back", "None" }),
                    name, oneIn(3) ? 1 + upTo(2) : 0);
                const QString path = folder + QLatin1Char('/') + QString::fromLatin1(name);
                const QByteArray bytes(1 + upTo(40), 'x');
                if (!oneIn(8))
                    isWritten = package.file(path, bytes)
                        && (name != "c.dat" || storeEnciphered(package.path(path), bytes))
                        && isWritten;
                // Some files have no place, some have two.
                for (int place = oneIn(15) ? 1 : 0; place < (oneIn(4) ? 2 : 1); ++place)
                    paths.append({ path, QStringLiteral("/%1/%2").arg(path).arg(upTo(1)) });
            }
            const QByteArray model =
                of<QByteArray>({ "7701", "7701", "7801", "0x7802", "7811", "7702" });
            const int step = oneIn(8) ? upTo(2) : (model == "7701" ? 0 : 1);
            isWritten =
                package.unit(folder,
                             "ModuleID='" + model + "' StepType='" + QByteArray::number(step) + "'",
                             content)
                && isWritten;
        }
        if (oneIn(2)) {
            isWritten = package.file("extra.json", "{}") && isWritten;
            paths.append(qMakePair(QStringLiteral("extra.json"), QStringLiteral("/extra")));
        }
        std::shuffle(paths.begin(), paths.end(), m_engine);
        return package.index(folders) && package.paths(paths) && isWritten;
    }

    Wish wish()
    {
        Wish wish;
        if (oneIn(6))
            wish.sections.append(of<QString>({ "MCU", "FPGA", "EDID", "Kernel" }));
        if (oneIn(8))
            wish.cards.append(of<QString>({ "main", "1", "2", "3" }));
        return wish;
    }

private:
    std::mt19937 m_engine;
};

/*! The target of each record. */
QStringList tableOf(const QString &path)
{
    QStringList lines;
    QFile file(path);
    QString fault;
    UpgradeImage::ImageReader reader(file);
    if (!file.open(QIODevice::ReadOnly) || !reader.check(fault))
        return { QStringLiteral("unsound: ") + fault };
    reader.readRecords(
        [&](const UpgradeImage::ImageRecord &record) {
            lines.append(QString::fromUtf8(record.targetPath));
            return true;
        },
        fault);
    return lines;
}

} // namespace

void tst_Planner::asTheLibraryBuildsIt()
{
    QFETCH(quint32, seed);
    Chance chance(seed);
    m_device.reset(); // one active device at a time
    FakeDevice device(StrataS8, chance.cards());
    device.link().answer(QStringLiteral("version.read"), ScriptedLink::accepted());
    QVERIFY(chance.fill(builder()));
    const Wish wish = chance.wish();
    const bool isPlanned = m_package->run(device, wish);
    const auto &plan = m_package->made;

    QSet<QString> told;
    for (const auto &file : plan.files)
        told.insert(file.file);
    for (const auto &leftOut : plan.leftOut)
        told.insert(leftOut.file);
    for (const auto &unit : m_package->listing.units()) {
        for (const auto &file : unit.files)
            QVERIFY2(told.contains(unit.folder + QLatin1Char('/') + file.fileName),
                     qPrintable(file.filePath));
    }

    const LogRecorder log;
    ImageBuild build({ device.handle(), m_package->selection.cardInfoParts(), m_package->units,
                       m_package->dataFilePaths, builder().path() });
    QString errorText;
    const bool isBuilt = build.run(Ample, errorText);
    if (isPlanned) {
        QVERIFY2(isBuilt, qPrintable(errorText));
        QStringList targets;
        for (const auto &file : plan.files)
            targets.append(file.target);
        QCOMPARE(tableOf(build.imagePath()), targets);
        QVERIFY2(checkImage(build.imagePath(), plan, errorText), qPrintable(errorText));
    } else if (isBuilt) {
        // The library would have gone on: with what was picked missing, or with a file for nowhere.
        QVERIFY2(verdictWord(m_package->code) == QLatin1String("not-planned")
                     || m_package->errorText.endsWith(QLatin1String("no place on the device")),
                 qPrintable(m_package->errorText));
    }
}

QTEST_GUILESS_MAIN(tst_Planner)
#include "tst_planner.moc"
