#include "upgradeprocess_p.h"

#include "support/fakedevice.h"
#include "support/logtext.h"
#include "support/statusbarrecorder.h"
#include "support/storefile.h"

#include <velmarbizmodel/catalogue.h>

#include <QCborArray>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

using namespace Velmar::Firmware;
using Internal::UpgradeProcessPrivate;
using Velmar::BizModel::s_DeviceConfig;
using Velmar::ProtoModel::Auxiliary::s_CardInfoParts;
using Velmar::ProtoModel::Auxiliary::s_DeviceVersion;
using Velmar::ProtoModel::Auxiliary::s_DeviceVersionPart;

using FilePaths = QVector<QPair<QString, QString>>;

// What the planning puts into an image, for which cards, and in which order.
class tst_Recombination : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void plannedFiles_data();
    void plannedFiles();
    void filesPlannedBefore();
    void chosenSection_data();
    void chosenSection();
    void mcuDataFiles_data();
    void mcuDataFiles();
    void mcuDataFilesAreNotComparedWithOthers();
    void wholePlan_data();
    void wholePlan();
    void deviceWithoutSections();

    void deviceVersion();
    void deviceVersionRefused();
    void versionOfSection_data();
    void versionOfSection();
    void versionOfCode_data();
    void versionOfCode();

    void image();
    void imageOfDeviceWithoutFileVersion();
    void imageFails();
    void nothingIsAskedWithoutPlan();
    void versionCannotBeRead();

    void expiredDevice_data();
    void expiredDevice();
    void expiredDeviceLeavesResultsAlone();

private:
    static s_DeviceConfig deviceModel();

    QScopedPointer<FakeDevice> m_device;
    QScopedPointer<UpgradeProcessPrivate> m_planning;
};

namespace {

constexpr unsigned short OwnModel = 1024;
constexpr unsigned short CardModel = 2000; // boards 5 and 6
constexpr unsigned short OtherCardModel = 2001;

UpgradeFileItem item(const QString &sectionName, const QString &filePath,
                     const QString &targetPath = QStringLiteral("/t"), int extendNum = 0)
{
    UpgradeFileItem item;
    item.sectionName = sectionName;
    item.filePath = filePath;
    item.targetPath = targetPath;
    item.extendNum = extendNum;
    return item;
}

UpgradeCfg unit(int modelId, const QVector<UpgradeFileItem> &files)
{
    UpgradeCfg cfg;
    cfg.modelId = modelId;
    cfg.files = files;
    return cfg;
}

s_CardInfoParts card(unsigned short modelId, unsigned char boardId, const QVector<quint16> &codes)
{
    s_CardInfoParts card;
    card.modelId = modelId;
    card.boardId = boardId;
    for (const quint16 code : codes)
        card.section.push_back({ code });
    return card;
}

// Path and destination of each, as in "main.bin -> /fw/main".
QStringList texts(const FilePaths &filePaths)
{
    QStringList texts;
    for (const QPair<QString, QString> &filePath : filePaths)
        texts.append(filePath.first + QStringLiteral(" -> ") + filePath.second);
    return texts;
}

} // namespace

using Units = QVector<UpgradeCfg>;
using Cards = std::vector<s_CardInfoParts>;
using Step = std::function<bool(UpgradeProcessPrivate &)>;
Q_DECLARE_METATYPE(Units)
Q_DECLARE_METATYPE(Cards)
Q_DECLARE_METATYPE(Step)

void tst_Recombination::initTestCase()
{
    const QByteArray json = R"({
        "catalogueVersion": 1,
        "deviceModels": [],
        "subCardModels": [
            {
                "modelId": "0x07D0", "name": "Card of two boards",
                "boards": [
                    { "boardId": 5, "sections": [
                        { "name": "FPGA", "type": 3, "upgradeCode": "0x01F5", "compatibilityCode": "0x0001", "order": 1 },
                        { "name": "MCU", "type": 3, "upgradeCode": "0x01F6", "compatibilityCode": "0x0002", "order": 2 } ] },
                    { "boardId": 6, "sections": [
                        { "name": "FPGA", "type": 3, "upgradeCode": "0x0259", "compatibilityCode": "0x0003", "order": 1 },
                        { "name": "SDI", "type": 3, "upgradeCode": "0x025A", "compatibilityCode": "0x0004", "order": 2 } ] }
                ]
            },
            {
                "modelId": "0x07D1", "name": "Card of one board",
                "boards": [
                    { "boardId": 1, "sections": [
                        { "name": "FPGA", "type": 4, "upgradeCode": "0x0065", "compatibilityCode": "0x0005", "order": 1 },
                        { "name": "Last", "type": 4, "upgradeCode": "0xFFFF", "compatibilityCode": "0x0006", "order": 2 } ] }
                ]
            }
        ]
    })";
    QString errorText;
    const auto catalogue =
        Velmar::BizModel::Catalogue::fromJson(json, QStringLiteral("test"), errorText);
    QVERIFY2(catalogue, qPrintable(errorText));
    catalogue->install();
}

void tst_Recombination::init()
{
    m_device.reset(); // the next one is active only if this one is gone
    m_device.reset(new FakeDevice(deviceModel()));
    m_planning.reset(new UpgradeProcessPrivate(nullptr));
    m_planning->activedDevice = m_device->handle();
}

s_DeviceConfig tst_Recombination::deviceModel()
{
    s_DeviceConfig config;
    config.modelId = OwnModel;
    config.upgradeCfgs = {
        { QStringLiteral("MCU"), 1, 11, 91, 0 },
        { QStringLiteral("FPGA"), 1, 12, 92, 1 },
        { QStringLiteral("FPGA"), 1, 13, 93, 2 }, // behind another of its name
        { QStringLiteral("fileVersion"), 0x0301, 16, 94, 3 }, // part 1 in the low 8 bits
        { QStringLiteral("Back"), 2, 21, 95, 4 },
        { QStringLiteral("Last"), 1, 65535, 96, 5 },
    };
    return config;
}

void tst_Recombination::plannedFiles_data()
{
    QTest::addColumn<Units>("units");
    QTest::addColumn<Cards>("cards");
    QTest::addColumn<QStringList>("planned");

    const UpgradeCfg main = unit(OwnModel,
                                 { item("FPGA", "fpga", "/fpga"), item("MCU", "mcu", "/mcu"),
                                   item("Back", "back", "/back") });

    QTest::newRow("nothing at all") << Units {} << Cards {} << QStringList();
    QTest::newRow("no card") << Units { main } << Cards {} << QStringList();
    QTest::newRow("no unit") << Units {} << Cards { card(OwnModel, 0, { 11 }) } << QStringList();
    QTest::newRow("card without sections")
        << Units { main } << Cards { card(OwnModel, 0, {}) } << QStringList();
    QTest::newRow("card with codes that no item has")
        << Units { main } << Cards { card(OwnModel, 0, { 13, 14, 501 }) } << QStringList();
    QTest::newRow("all sections, in the order of the items")
        << Units { main } << Cards { card(OwnModel, 0, { 21, 11, 12 }) }
        << QStringList({ "fpga -> /fpga", "mcu -> /mcu", "back -> /back" });
    QTest::newRow("one section of many")
        << Units { main } << Cards { card(OwnModel, 0, { 11 }) } << QStringList("mcu -> /mcu");
    QTest::newRow("units first, then cards, then items")
        << Units { unit(CardModel,
                        { item("SDI", "sdi"), item("MCU", "mcu5"), item("FPGA", "f6", "/t", 6) }),
                   main, unit(CardModel, { item("MCU", "later") }) }
        << Cards { card(CardModel, 5, { 502 }), card(OwnModel, 0, { 12 }),
                   card(CardModel, 6, { 601, 602 }) }
        << QStringList({ "mcu5 -> /t", "sdi -> /t", "f6 -> /t", "fpga -> /fpga", "later -> /t" });
    QTest::newRow("card of another model")
        << Units { main } << Cards { card(CardModel, 5, { 11, 12, 21 }) } << QStringList();

    QTest::newRow("equal pairs once: two boards want the same file")
        << Units { unit(OtherCardModel, { item("FPGA", "f") }) }
        << Cards { card(OtherCardModel, 1, { 101 }), card(OtherCardModel, 2, { 101 }) }
        << QStringList("f -> /t");
    QTest::newRow("equal pairs once: two units, the first place counts")
        << Units { unit(OwnModel, { item("MCU", "m"), item("FPGA", "f") }),
                   unit(OwnModel, { item("FPGA", "f"), item("Back", "b"), item("FPGA", "m") }) }
        << Cards { card(OwnModel, 0, { 11, 12, 21 }) }
        << QStringList({ "m -> /t", "f -> /t", "b -> /t" });
    QTest::newRow("one file to two places")
        << Units { unit(OwnModel, { item("MCU", "m", "/one"), item("MCU", "m", "/two") }) }
        << Cards { card(OwnModel, 0, { 11 }) } << QStringList({ "m -> /one", "m -> /two" });
    QTest::newRow("two files to one place")
        << Units { unit(OwnModel, { item("MCU", "m", "/one"), item("MCU", "n", "/one") }) }
        << Cards { card(OwnModel, 0, { 11 }) } << QStringList({ "m -> /one", "n -> /one" });
    QTest::newRow("null and empty destination are equal")
        << Units { unit(OwnModel, { item("MCU", "m", QString()), item("MCU", "m", "") }) }
        << Cards { card(OwnModel, 0, { 11 }) } << QStringList("m -> ");

    QTest::newRow("item for one board, and the card has it")
        << Units { unit(CardModel, { item("FPGA", "f", "/t", 5) }) }
        << Cards { card(CardModel, 5, { 501 }) } << QStringList("f -> /t");
    QTest::newRow("item for one board, and the card has another")
        << Units { unit(CardModel, { item("FPGA", "f", "/t", 5) }) }
        << Cards { card(CardModel, 6, { 501, 601 }) } << QStringList();
    QTest::newRow("item for one board has that board's code")
        << Units { unit(CardModel, { item("FPGA", "f", "/t", 6) }) }
        << Cards { card(CardModel, 6, { 601 }) } << QStringList("f -> /t");
    QTest::newRow("item for any board has the code of the model, whatever board the card has")
        << Units { unit(CardModel, { item("FPGA", "f") }) } << Cards { card(CardModel, 6, { 601 }) }
        << QStringList();
    QTest::newRow("board numbers over 255 are no card's")
        << Units { unit(CardModel, { item("FPGA", "f", "/t", 261) }) }
        << Cards { card(CardModel, 5, { 501 }) } << QStringList();
    QTest::newRow("negative board numbers are no card's")
        << Units { unit(CardModel, { item("FPGA", "f", "/t", -251) }) }
        << Cards { card(CardModel, 5, { 501 }) } << QStringList();
    QTest::newRow("a board leaves the codes of the device's own model alone")
        << Units { unit(OwnModel, { item("FPGA", "f", "/t", 5) }) }
        << Cards { card(OwnModel, 5, { 12 }) } << QStringList("f -> /t");
    QTest::newRow("a board sorts out items of the device's own model")
        << Units { unit(OwnModel, { item("FPGA", "f", "/t", 5) }) }
        << Cards { card(OwnModel, 0, { 12 }) } << QStringList();

    QTest::newRow("own section and card's section of one name")
        << Units { unit(OwnModel, { item("FPGA", "own") }),
                   unit(OtherCardModel, { item("FPGA", "card") }) }
        << Cards { card(OtherCardModel, 1, { 12 }), card(OwnModel, 0, { 101 }) } << QStringList();
    QTest::newRow("first of two own sections with one name")
        << Units { unit(OwnModel, { item("FPGA", "f") }) } << Cards { card(OwnModel, 0, { 13 }) }
        << QStringList();
    QTest::newRow("names are compared to the letter")
        << Units { unit(OwnModel, { item("mcu", "a"), item("MCU ", "b"), item("", "c") }) }
        << Cards { card(OwnModel, 0, { 11 }) } << QStringList();
    QTest::newRow("unknown own section is no code at all")
        << Units { unit(OwnModel, { item("Nowhere", "f") }) }
        << Cards { card(OwnModel, 0, { 65535, 0 }) } << QStringList();
    QTest::newRow("unknown section of a card is no code at all")
        << Units { unit(CardModel, { item("Nowhere", "f") }) }
        << Cards { card(CardModel, 5, { 65535, 0 }) } << QStringList();
    QTest::newRow("unknown card model has no codes at all")
        << Units { unit(3000, { item("FPGA", "f") }) } << Cards { card(3000, 5, { 65535, 0 }) }
        << QStringList();
    QTest::newRow("65535 is a code like any other")
        << Units { unit(OwnModel, { item("Last", "own") }),
                   unit(OtherCardModel, { item("Last", "card") }) }
        << Cards { card(OwnModel, 0, { 65535 }), card(OtherCardModel, 1, { 65535 }) }
        << QStringList({ "own -> /t", "card -> /t" });
    QTest::newRow("model ids over 65535 are no card's")
        << Units { unit(66560, { item("MCU", "f") }) } << Cards { card(OwnModel, 0, { 11 }) }
        << QStringList();
    QTest::newRow("negative model ids are no card's")
        << Units { unit(-64512, { item("MCU", "f") }) } << Cards { card(OwnModel, 0, { 11 }) }
        << QStringList();
}

void tst_Recombination::plannedFiles()
{
    QFETCH(Units, units);
    QFETCH(Cards, cards);
    m_planning->upgradeCfgs = units;
    m_planning->upgradeParts = cards;
    FilePaths filePaths;
    const LogRecorder log;

    m_planning->datDataFilePath(filePaths);

    QTEST(texts(filePaths), "planned");
    QCOMPARE(logText(log), QByteArray());
    QCOMPARE(m_device->link().operations(), QStringList());
}

void tst_Recombination::filesPlannedBefore()
{
    m_planning->upgradeCfgs = { unit(OwnModel, { item("MCU", "m"), item("FPGA", "f") }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 11, 12 }) };
    FilePaths filePaths { { "f", "/t" }, { "other", "/t" }, { "other", "/t" } };

    m_planning->datDataFilePath(filePaths);

    QCOMPARE(texts(filePaths), QStringList({ "f -> /t", "other -> /t", "other -> /t", "m -> /t" }));
}

void tst_Recombination::chosenSection_data()
{
    QTest::addColumn<Cards>("cards");
    QTest::addColumn<int>("modelId");
    QTest::addColumn<QString>("sectionName");
    QTest::addColumn<bool>("isChosen");

    QTest::newRow("no card") << Cards {} << int(OwnModel) << "MCU" << false;
    QTest::newRow("own section") << Cards { card(OwnModel, 0, { 11 }) } << int(OwnModel) << "MCU"
                                 << true;
    QTest::newRow("own section, on the second card as its last")
        << Cards { card(OwnModel, 0, { 12 }), card(OwnModel, 0, { 13, 11 }) } << int(OwnModel)
        << "MCU" << true;
    QTest::newRow("another own section")
        << Cards { card(OwnModel, 0, { 12 }) } << int(OwnModel) << "MCU" << false;
    QTest::newRow("code on a card of another model")
        << Cards { card(CardModel, 5, { 11 }) } << int(OwnModel) << "MCU" << false;
    QTest::newRow("unknown own section is no code at all")
        << Cards { card(OwnModel, 0, { 65535 }) } << int(OwnModel) << "Nowhere" << false;
    QTest::newRow("own section 65535")
        << Cards { card(OwnModel, 0, { 65535 }) } << int(OwnModel) << "Last" << true;
    QTest::newRow("section of a card")
        << Cards { card(CardModel, 5, { 502 }) } << int(CardModel) << "MCU" << true;
    QTest::newRow("a card's board does not count, the first board with the name does")
        << Cards { card(CardModel, 6, { 501 }) } << int(CardModel) << "FPGA" << true;
    QTest::newRow("the code of the card's own board is not asked for")
        << Cards { card(CardModel, 6, { 601 }) } << int(CardModel) << "FPGA" << false;
    QTest::newRow("unknown section of a card is no code at all")
        << Cards { card(CardModel, 5, { 65535 }) } << int(CardModel) << "Nowhere" << false;
}

void tst_Recombination::chosenSection()
{
    QFETCH(Cards, cards);
    QFETCH(int, modelId);
    QFETCH(QString, sectionName);
    m_planning->upgradeParts = cards;
    const LogRecorder log;

    QTEST(m_planning->containsSection(static_cast<unsigned short>(modelId), sectionName),
          "isChosen");

    QCOMPARE(logText(log), QByteArray());
}

void tst_Recombination::mcuDataFiles_data()
{
    QTest::addColumn<QString>("sourcePath");
    QTest::addColumn<QStringList>("appended");

    QTest::newRow("JSON") << "data/menu.json" << QStringList("/package/data/menu.json -> /t");
    QTest::newRow("the font of size 12")
        << "font12.dat" << QStringList("/package/font12.dat -> /t");
    QTest::newRow("ends like the font of size 12")
        << "data/bigfont12.dat" << QStringList("/package/data/bigfont12.dat -> /t");
    QTest::newRow("suffix alone") << ".json" << QStringList("/package/.json -> /t");
    QTest::newRow("JSON in capitals") << "menu.JSON" << QStringList();
    QTest::newRow("font in capitals") << "FONT12.dat" << QStringList();
    QTest::newRow("another font") << "font13.dat" << QStringList();
    QTest::newRow("firmware") << "main.dat" << QStringList();
    QTest::newRow("suffix in the middle") << "menu.json.bak" << QStringList();
    QTest::newRow("null") << QString() << QStringList();
}

void tst_Recombination::mcuDataFiles()
{
    QFETCH(QString, sourcePath);
    m_planning->packagePath = QStringLiteral("/package");
    m_planning->dataFilePaths = { { sourcePath, QStringLiteral("/t") } };
    FilePaths filePaths;

    m_planning->appendMcuDataFiles(filePaths);

    QTEST(texts(filePaths), "appended");
}

void tst_Recombination::mcuDataFilesAreNotComparedWithOthers()
{
    m_planning->packagePath = QStringLiteral("/package");
    m_planning->dataFilePaths = { { "b.json", "/b" }, { "a.json", "/a" }, { "b.json", "/b" } };
    FilePaths filePaths { { "/package/a.json", "/a" } };

    m_planning->appendMcuDataFiles(filePaths);

    QCOMPARE(texts(filePaths),
             QStringList({ "/package/a.json -> /a", "/package/b.json -> /b",
                           "/package/a.json -> /a", "/package/b.json -> /b" }));
}

void tst_Recombination::wholePlan_data()
{
    QTest::addColumn<Units>("units");
    QTest::addColumn<Cards>("cards");
    QTest::addColumn<QStringList>("planned");
    QTest::addColumn<QByteArray>("logged");

    const UpgradeCfg main = unit(OwnModel, { item("MCU", "mcu"), item("FPGA", "fpga") });
    const UpgradeCfg cards = unit(CardModel, { item("MCU", "cardmcu") });
    const QByteArray empty("warning: filePath info is empty\n");

    QTest::newRow("nothing chosen") << Units { main } << Cards {} << QStringList() << empty;
    QTest::newRow("no item for what is chosen")
        << Units { main } << Cards { card(OwnModel, 0, { 21 }) } << QStringList() << empty;
    QTest::newRow("MCU: the data files follow the sections")
        << Units { main, cards }
        << Cards { card(OwnModel, 0, { 11, 12 }), card(CardModel, 5, { 502 }) }
        << QStringList(
               { "mcu -> /t", "fpga -> /t", "cardmcu -> /t", "/package/menu.json -> /menu" })
        << QByteArray();
    QTest::newRow("MCU chosen, and the package has no file for it")
        << Units {} << Cards { card(OwnModel, 0, { 11 }) }
        << QStringList("/package/menu.json -> /menu") << QByteArray();
    QTest::newRow("MCU not chosen") << Units { main } << Cards { card(OwnModel, 0, { 12 }) }
                                    << QStringList("fpga -> /t") << QByteArray();
    QTest::newRow("MCU of a card does not count")
        << Units { main, cards } << Cards { card(CardModel, 5, { 502 }) }
        << QStringList("cardmcu -> /t") << QByteArray();
    QTest::newRow("MCU not chosen, but the data file is that of a section")
        << Units { unit(OwnModel, { item("FPGA", "/package/menu.json", "/menu") }) }
        << Cards { card(OwnModel, 0, { 12 }) } << QStringList("/package/menu.json -> /menu")
        << QByteArray();
    QTest::newRow("MCU chosen, and the data file is that of a section too")
        << Units { unit(OwnModel, { item("MCU", "/package/menu.json", "/menu") }) }
        << Cards { card(OwnModel, 0, { 11 }) }
        << QStringList({ "/package/menu.json -> /menu", "/package/menu.json -> /menu" })
        << QByteArray();
}

void tst_Recombination::wholePlan()
{
    QFETCH(Units, units);
    QFETCH(Cards, cards);
    QFETCH(QStringList, planned);
    m_planning->upgradeCfgs = units;
    m_planning->upgradeParts = cards;
    m_planning->dataFilePaths = { { "menu.json", "/menu" }, { "main.dat", "/main" } };
    m_planning->packagePath = QStringLiteral("/package");
    FilePaths filePaths;
    const LogRecorder log;

    QCOMPARE(m_planning->isAllowedRecombineFile(filePaths), !planned.isEmpty());

    QCOMPARE(texts(filePaths), planned);
    QTEST(logText(log), "logged");
}

void tst_Recombination::deviceWithoutSections()
{
    s_DeviceConfig bare;
    bare.modelId = OwnModel;
    m_device.reset();
    m_device.reset(new FakeDevice(bare));
    m_planning->activedDevice = m_device->handle();
    m_planning->upgradeCfgs = { unit(OwnModel, { item("FPGA", "f"), item("MCU", "m") }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 0, 11, 12, 65535 }) };
    m_planning->dataFilePaths = { { "menu.json", "/menu" } };
    s_DeviceVersion reported;
    reported.parts.resize(1);
    reported.parts[0].section = { { 16, "1.2.3.4", "" }, { 65535, "5.6.7.8", "" } };
    FilePaths filePaths;
    QString version = QStringLiteral("before");
    const LogRecorder log;

    QVERIFY(!m_planning->isAllowedRecombineFile(filePaths));
    m_planning->findVersionBySectionName(reported, QStringLiteral("fileVersion"), version);

    QCOMPARE(texts(filePaths), QStringList());
    QCOMPARE(version, QString("before"));
    QCOMPARE(logText(log), QByteArray("warning: filePath info is empty\n"));
}

void tst_Recombination::deviceVersion()
{
    m_device->link().answer(
        "version.read",
        ScriptedLink::accepted({ { QLatin1String("version"), QLatin1String("2.0") } }));
    s_DeviceVersion version;
    const LogRecorder log;

    QVERIFY(m_planning->readDeviceVersion(version));

    QCOMPARE(version.version, std::string("2.0"));
    QCOMPARE(version.brief, std::string("N/A"));
    QCOMPARE(m_device->link().operations(), QStringList("version.read"));
    QCOMPARE(logText(log), QByteArray());
}

void tst_Recombination::deviceVersionRefused()
{
    m_device->link().answer("version.read", ScriptedLink::refused(4, "not now"));
    s_DeviceVersion version;
    const LogRecorder log;

    QVERIFY(!m_planning->readDeviceVersion(version));

    QCOMPARE(logText(log),
             QByteArray("warning: Fail to read version:"
                        "the device refused version.read with 4: not now\n"));
}

void tst_Recombination::versionOfSection_data()
{
    QTest::addColumn<QString>("sectionName");
    QTest::addColumn<QString>("version");

    QTest::newRow("section of the device's model") << "MCU"
                                                   << "mcu 1";
    QTest::newRow("low 8 bits of the type count") << "fileVersion"
                                                  << "1.2.3.4";
    QTest::newRow("section of another part") << "Back" << QStringLiteral("zur\u00FCck 7");
    QTest::newRow("first of two sections with one name") << "FPGA"
                                                         << "fpga 3";
    QTest::newRow("section that the device does not report") << "Last"
                                                             << "before";
    QTest::newRow("section that the model does not have") << "Nowhere"
                                                          << "before";
    QTest::newRow("no name") << QString() << "before";
}

void tst_Recombination::versionOfSection()
{
    QFETCH(QString, sectionName);
    s_DeviceVersionPart main;
    main.type = 1;
    main.section = { { 11, "mcu 1", "" }, { 16, "1.2.3.4", "" }, { 12, "fpga 3", "" } };
    s_DeviceVersionPart back;
    back.type = 2;
    back.section = { { 21,
                       "zur\xC3\xBC"
                       "ck 7",
                       "" } };
    s_DeviceVersion reported;
    reported.parts = { back, main };
    QString version = QStringLiteral("before");
    const LogRecorder log;

    m_planning->findVersionBySectionName(reported, sectionName, version);

    QTEST(version, "version");
    QCOMPARE(logText(log), QByteArray());
}

void tst_Recombination::versionOfCode_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("version");

    QTest::newRow("first element with the code") << 1 << 10 << "first";
    QTest::newRow("code that is only on the second part of the type") << 1 << 30 << "before";
    QTest::newRow("another part") << 2 << 10 << "back";
    QTest::newRow("code of another part") << 2 << 20 << "before";
    QTest::newRow("no such part") << 9 << 10 << "before";
    QTest::newRow("part over 8 bits") << 257 << 10 << "before";
    QTest::newRow("code over 16 bits") << 1 << 65546 << "before";
}

void tst_Recombination::versionOfCode()
{
    QFETCH(int, type);
    QFETCH(int, code);
    s_DeviceVersionPart first;
    first.type = 1;
    first.section = { { 20, "other", "" }, { 10, "first", "" }, { 10, "second", "" } };
    s_DeviceVersionPart second;
    second.type = 1;
    second.section = { { 30, "unseen", "" } };
    s_DeviceVersionPart back;
    back.type = 2;
    back.section = { { 10, "back", "" } };
    s_DeviceVersion reported;
    reported.parts = { first, second, back };
    QString version = QStringLiteral("before");

    m_planning->findVersionByCode(reported, type, code, version);

    QTEST(version, "version");
}

static QCborMap reportedVersion(const QString &fileVersion)
{
    const QCborMap section { { QLatin1String("code"), 16 },
                             { QLatin1String("version"), fileVersion } };
    const QCborMap part { { QLatin1String("type"), 1 },
                          { QLatin1String("section"), QCborArray { section } } };
    return { { QLatin1String("parts"), QCborArray { part } } };
}

static QByteArray storedFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void tst_Recombination::image()
{
    const QTemporaryDir package;
    QVERIFY(storeFile(package.filePath("fpga.bin"), "fpga"));
    QVERIFY(storeFile(package.filePath("menu.json"), "{}"));
    m_planning->packagePath = package.path();
    m_planning->upgradeCfgs = { unit(OwnModel,
                                     { item("FPGA", package.filePath("fpga.bin"), "/f") }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 11, 12 }) };
    m_planning->dataFilePaths = { { "menu.json", "/m" } };
    m_device->link().answer("version.read", ScriptedLink::accepted(reportedVersion("1.2.3.4")));
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    QCOMPARE(m_planning->recombineFile(), package.path() + "/upgrade");

    const QByteArray image = storedFile(package.filePath("upgrade"));
    // 534 bytes of data, version, constant, two files, model id
    QCOMPARE(image.left(13),
             QByteArray("\x16\x02\x00\x00\x04\x03\x02\x01\xA8\x02\x00\x00\x04", 13));
    QCOMPARE(image.mid(256, 3), QByteArray("/f\0", 3));
    QCOMPARE(image.mid(520, 3), QByteArray("/m\0", 3));
    QCOMPARE(image.mid(784, 6), QByteArray("fpga{}"));
    QCOMPARE(m_device->link().operations(), QStringList("version.read"));
    QCOMPARE(statusBar.shown(),
             QStringList({ "0 \"Upgrading file processing\" 30000 ms", "0 \"\" 1 ms" }));
    QCOMPARE(logText(log), QByteArray());
}

void tst_Recombination::imageOfDeviceWithoutFileVersion()
{
    const QTemporaryDir package;
    QVERIFY(storeFile(package.filePath("fpga.bin"), "fpga"));
    m_planning->packagePath = package.path();
    m_planning->upgradeCfgs = { unit(OwnModel, { item("FPGA", package.filePath("fpga.bin")) }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 12 }) };
    m_device->link().answer("version.read", ScriptedLink::accepted());

    QCOMPARE(m_planning->recombineFile(), package.path() + "/upgrade");

    QCOMPARE(storedFile(package.filePath("upgrade")).mid(4, 4), QByteArray(4, '\0'));
}

void tst_Recombination::imageFails()
{
    const QTemporaryDir package;
    m_planning->packagePath = package.path();
    m_planning->upgradeCfgs = { unit(OwnModel, { item("FPGA", package.filePath("missing.bin")) }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 12 }) };
    m_device->link().answer("version.read", ScriptedLink::accepted());
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    QCOMPARE(m_planning->recombineFile(), QString());

    QCOMPARE(logText(log), QByteArray("debug: File is error:file length is 0\n"));
    QCOMPARE(statusBar.shown(),
             QStringList({ "0 \"Upgrading file processing\" 30000 ms", "0 \"\" 1 ms" }));
}

void tst_Recombination::nothingIsAskedWithoutPlan()
{
    const QTemporaryDir package;
    QVERIFY(storeFile(package.filePath("upgrade"), "old"));
    m_planning->packagePath = package.path();
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    QCOMPARE(m_planning->recombineFile(), QString());

    QCOMPARE(logText(log), QByteArray("warning: filePath info is empty\n"));
    QCOMPARE(m_device->link().operations(), QStringList());
    QCOMPARE(statusBar.shown(), QStringList());
    QCOMPARE(storedFile(package.filePath("upgrade")), QByteArray("old"));
}

void tst_Recombination::versionCannotBeRead()
{
    const QTemporaryDir package;
    QVERIFY(storeFile(package.filePath("fpga.bin"), "fpga"));
    m_planning->packagePath = package.path();
    m_planning->upgradeCfgs = { unit(OwnModel, { item("FPGA", package.filePath("fpga.bin")) }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 12 }) };
    m_device->link().answer("version.read", ScriptedLink::refused(1, "no"));
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    QCOMPARE(m_planning->recombineFile(), QString());

    QCOMPARE(logText(log),
             QByteArray("warning: Fail to read version:"
                        "the device refused version.read with 1: no\n"));
    QCOMPARE(statusBar.shown(), QStringList());
    QVERIFY(!QFile::exists(package.filePath("upgrade")));
}

void tst_Recombination::expiredDevice_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<QByteArray>("logged");

    QTest::newRow("whole image") << Step([](UpgradeProcessPrivate &planning) {
        return !planning.recombineFile().isEmpty();
    }) << QByteArray("warning: Device is nullptr\n");
    QTest::newRow("whole plan") << Step([](UpgradeProcessPrivate &planning) {
        FilePaths filePaths { { "a", "b" } };
        return planning.isAllowedRecombineFile(filePaths);
    }) << QByteArray("warning: device is nullptr\n");
    QTest::newRow("files of sections") << Step([](UpgradeProcessPrivate &planning) {
        FilePaths filePaths;
        planning.datDataFilePath(filePaths);
        return !filePaths.isEmpty();
    }) << QByteArray("warning: activedDevice is nullptr\n");
    QTest::newRow("chosen section") << Step([](UpgradeProcessPrivate &planning) {
        return planning.containsSection(OwnModel, QStringLiteral("FPGA"));
    }) << QByteArray("warning: activedDevice is nullptr\n");
    QTest::newRow("version of the device") << Step([](UpgradeProcessPrivate &planning) {
        s_DeviceVersion version;
        return planning.readDeviceVersion(version);
    }) << QByteArray("warning: Device is nullptr\n");
    QTest::newRow("version of a section") << Step([](UpgradeProcessPrivate &planning) {
        s_DeviceVersion reported;
        reported.parts.resize(1);
        reported.parts[0].section = { { 12, "1.0", "" } };
        QString version;
        planning.findVersionBySectionName(reported, QStringLiteral("FPGA"), version);
        return !version.isEmpty();
    }) << QByteArray("warning: activedDevice is nullptr\n");
}

void tst_Recombination::expiredDevice()
{
    QFETCH(Step, step);
    m_planning->upgradeCfgs = { unit(OwnModel, { item("FPGA", "f") }) };
    m_planning->upgradeParts = { card(OwnModel, 0, { 12 }) };
    m_device->expire();
    const StatusBarRecorder statusBar;
    const LogRecorder log;

    QVERIFY(!step(*m_planning));

    QTEST(logText(log), "logged");
    QCOMPARE(statusBar.shown(), QStringList());
    QCOMPARE(m_device->link().operations(), QStringList());
}

void tst_Recombination::expiredDeviceLeavesResultsAlone()
{
    m_device->expire();
    FilePaths filePaths { { "a", "b" } };
    QString version = QStringLiteral("before");
    const LogRecorder log;

    m_planning->datDataFilePath(filePaths);
    m_planning->findVersionBySectionName({}, QStringLiteral("MCU"), version);

    QCOMPARE(texts(filePaths), QStringList("a -> b"));
    QCOMPARE(version, QString("before"));
}

QTEST_GUILESS_MAIN(tst_Recombination)
#include "tst_recombination.moc"
