#include <velmarbizmodel/catalogue.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

using namespace Velmar::BizModel;

namespace {

// Line 1 is the one with the first brace.
const char Valid[] = R"json({
    "catalogueVersion": 1,
    "deviceModels": [
        {
            "modelId": "0x1001",
            "name": "Controller A",
            "series": "Series A",
            "backPlaneModelId": "0x2001",
            "defaultTimeout": 3000,
            "commandTimeouts": [
                { "commandGroup": "0xFC", "commandId": "0x0A", "timeout": 5000 },
                { "commandGroup": "0x0A", "commandId": "0xFC", "timeout": 6000 }
            ],
            "sections": [
                { "name": "MCU", "type": 1, "upgradeCode": "0x0101", "compatibilityCode": "0xC", "order": 1 },
                { "name": "FPGA", "type": 2, "upgradeCode": "0xffff", "compatibilityCode": "0xC", "order": 65535 }
            ],
            "subCards": [
                { "modelId": "0x3001", "slotCount": 4 },
                { "modelId": "0x3002", "slotCount": 2 }
            ]
        },
        {
            "modelId": "0x1002",
            "name": "Controller B",
            "series": "Series A",
            "backPlaneModelId": "0x0000",
            "defaultTimeout": 1,
            "commandTimeouts": [],
            "sections": [],
            "subCards": []
        }
    ],
    "subCardModels": [
        {
            "modelId": "0x3001",
            "name": "Card A",
            "boards": [
                {
                    "boardId": 7,
                    "sections": [
                        { "name": "MCU", "type": 3, "upgradeCode": "0x0371", "compatibilityCode": "0x20", "order": 1 },
                        { "name": "SDI", "type": 3, "upgradeCode": "0x0302", "compatibilityCode": "0x21", "order": 2 }
                    ]
                },
                {
                    "boardId": 2,
                    "sections": [
                        { "name": "MCU", "type": 3, "upgradeCode": "0x0321", "compatibilityCode": "0x22", "order": 1 },
                        { "name": "EDID", "type": 3, "upgradeCode": "0x0302", "compatibilityCode": "0x23", "order": 2 }
                    ]
                }
            ]
        },
        {
            "modelId": "0x3002",
            "name": "Card B",
            "boards": [{ "boardId": 255, "sections": [] }]
        }
    ]
}
)json";

Catalogue validCatalogue()
{
    QString errorText;
    return Catalogue::fromJson(Valid, QStringLiteral("valid.json"), errorText).value();
}

} // namespace

class tst_Catalogue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void builtinIsInUseFromTheStart()
    {
        const quint16 controllers[] = { 0x7701, 0x7702 };
        for (const quint16 modelId : controllers) {
            const s_DeviceConfig *config =
                DeviceConfigManager::instance()->findDeviceConfigByID(modelId);
            QVERIFY(config);
            QStringList names;
            for (const s_UpgradeCfg &section : config->upgradeCfgs)
                names.append(section.name);
            for (const char *name : { "MCU", "FPGA", "Kernel", "fileVersion", "MCU_Back" })
                QVERIFY2(names.contains(QLatin1String(name)), name);
        }
        QCOMPARE(InterfaceConfig::instance()->findUpgradeCfgByBoardId(0x7801, 1).size(), 3);
        QCOMPARE(InterfaceConfig::instance()->findUpgradeCfgByBoardId(0x7802, 1).size(), 3);
        QCOMPARE(InterfaceConfig::instance()->findUpgradeCfgByBoardId(0x7802, 2).size(), 2);
        QCOMPARE(InterfaceConfig::instance()->findUpgradeCfgByBoardId(0x7811, 1).size(), 2);
        QCOMPARE(InterfaceConfig::instance()->findUpgradeCfgByBoardId(0x7812, 1).size(), 3);
        // What the older HTTP protocol asks for of every controller.
        for (const quint16 modelId : controllers) {
            const s_DeviceConfig *config =
                DeviceConfigManager::instance()->findDeviceConfigByID(modelId);
            QCOMPARE(config->upgradeCfgs.first().upgradeCode, quint16(257));
            QVERIFY(std::any_of(config->upgradeCfgs.cbegin(), config->upgradeCfgs.cend(),
                                [](const auto &section) { return section.upgradeCode == 261; }));
        }
    }

    void readsAllFields()
    {
        const Catalogue catalogue = validCatalogue();

        QCOMPARE(catalogue.deviceModels().size(), 2);
        const s_DeviceConfig &config = catalogue.deviceModels().at(0);
        QCOMPARE(config.modelId, quint16(0x1001));
        QCOMPARE(config.name, QStringLiteral("Controller A"));
        QCOMPARE(config.series, QStringLiteral("Series A"));
        QCOMPARE(config.backPlaneModelId, quint16(0x2001));
        QCOMPARE(config.defaultTimeout, 3000);
        QCOMPARE(config.commandTimeouts.size(), 2);
        QCOMPARE(config.commandTimeouts.at(0).commandGroup, quint16(0xFC));
        QCOMPARE(config.commandTimeouts.at(0).commandId, quint16(0x0A));
        QCOMPARE(config.commandTimeouts.at(0).timeout, 5000);
        QCOMPARE(config.commandTimeouts.at(1).commandGroup, quint16(0x0A));
        QCOMPARE(config.upgradeCfgs.size(), 2);
        QCOMPARE(config.upgradeCfgs.at(1).name, QStringLiteral("FPGA"));
        QCOMPARE(config.upgradeCfgs.at(1).type, quint16(2));
        QCOMPARE(config.upgradeCfgs.at(1).upgradeCode, quint16(0xFFFF));
        QCOMPARE(config.upgradeCfgs.at(1).compatibilityCode, quint16(0xC));
        QCOMPARE(config.upgradeCfgs.at(1).order, quint16(65535));
        QCOMPARE(config.subCardConfigs.size(), 2);
        QCOMPARE(config.subCardConfigs.at(0).modelId, quint16(0x3001));
        QCOMPARE(config.subCardConfigs.at(0).slotCount, 4);

        QCOMPARE(catalogue.subCardModels().size(), 2);
        const s_SubCardModel &model = catalogue.subCardModels().at(0);
        QCOMPARE(model.modelId, quint16(0x3001));
        QCOMPARE(model.name, QStringLiteral("Card A"));
        QCOMPARE(model.boards.size(), 2);
        QCOMPARE(model.boards.at(0).boardId, 2); // ascending, unlike in the text
        QCOMPARE(model.boards.at(1).boardId, 7);
        QCOMPARE(model.boards.at(0).upgradeCfgs.at(1).name, QStringLiteral("EDID"));
    }

    void faultIsToldWithItsLine_data()
    {
        QTest::addColumn<QByteArray>("from"); // its first occurrence is replaced
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("errorText");

        const auto row = [](const char *name, const char *from, const char *to, const char *error) {
            QTest::newRow(name) << QByteArray(from) << QByteArray(to)
                                << QStringLiteral("models.json:") + QLatin1String(error);
        };

        // Not JSON at all.
        row("comma missing", "\"Controller A\",", "\"Controller A\"", "7: unterminated object");
        row("bracket missing", "\"commandTimeouts\": [],", "\"commandTimeouts\": [,",
            "29: illegal value");
        row("text in front", "{\n", "catalogue {\n", "1: illegal value");
        row("text behind", "    ]\n}\n", "    ]\n}\n}\n", "62: garbage at the end of the document");
        row("not UTF-8", "Card B", "Card \xFF", "57: invalid UTF8 string");

        // Not a catalogue.
        row("newer version", "\"catalogueVersion\": 1", "\"catalogueVersion\": 2",
            "2: \"catalogueVersion\" must be 1");
        row("version as text", "\"catalogueVersion\": 1", "\"catalogueVersion\": \"1\"",
            "2: \"catalogueVersion\" must be 1");
        row("key of the top missing", "\"catalogueVersion\": 1,", "",
            "1: \"catalogueVersion\" is missing");
        row("unknown key at the top", "\"catalogueVersion\": 1,",
            "\"catalogueVersion\": 1,\n\"vendor\": 5,", "3: unknown key \"vendor\"");

        // Keys.
        row("unknown key of a device model", "\"series\": \"Series A\",",
            "\"series\": \"Series A\",\n \"colour\": [1, {\"a\": 2}],",
            "8: unknown key \"colour\"");
        row("key of a device model missing", "\"series\": \"Series A\",", "",
            "4: \"series\" is missing");
        row("unknown key of a section", "\"order\": 1 }", "\"order\": 1,\n\n \"code\": 3 }",
            "17: unknown key \"code\"");
        row("key of a section missing", "\"type\": 2, ", "", "16: \"type\" is missing");
        row("key of a command time-out missing", ", \"timeout\": 6000", "",
            "12: \"timeout\" is missing");
        row("key of a sub-card missing", ", \"slotCount\": 2", "", "20: \"slotCount\" is missing");
        row("key of a sub-card model missing", "\"name\": \"Card B\",", "",
            "55: \"name\" is missing");
        row("key of a board missing", "{ \"boardId\": 255, \"sections\": [] }",
            "\n{ \"sections\": [] }", "59: \"boardId\" is missing");
        row("key in the wrong case", "\"series\"", "\"Series\"", "7: unknown key \"Series\"");
        row("key twice", "\"series\": \"Series A\",",
            "\"series\": \"Series A\",\n\"series\": \"Series B\",",
            "8: key \"series\" is used twice");
        row("key twice, once escaped", "\"series\": \"Series A\",",
            "\"series\": \"Series A\",\n\"s\\u0065ries\": \"Series B\",",
            "8: key \"series\" is used twice");
        row("key twice in an unknown object", "\"catalogueVersion\": 1,",
            "\"catalogueVersion\": 1, \"x\": [{\"\\\"\": 1}, {\"b\": [], \"c\": {},\n\"b\": "
            "null}],",
            "3: key \"b\" is used twice");

        // Types and ranges.
        row("device models not a list", "\"deviceModels\": [", "\"deviceModels\": true, \"x\": [",
            "3: unknown key \"x\"");
        row("sections not a list", "\"sections\": [],", "\"sections\": {},",
            "30: \"sections\" must be a list");
        row("sub-cards null", "\"subCards\": []", "\"subCards\": null",
            "31: \"subCards\" must be a list");
        row("device model not an object", "\"deviceModels\": [", "\"deviceModels\": [\n\n7,",
            "5: an entry of \"deviceModels\" must be an object");
        row("section not an object", "\"sections\": [],", "\"sections\": [\n\"MCU\"],",
            "31: an entry of \"sections\" must be an object");
        row("board not an object", "[{ \"boardId\": 255, \"sections\": [] }]", "[[]]",
            "58: an entry of \"boards\" must be an object");
        row("name empty", "\"Controller A\"", "\"\"",
            "6: \"name\" must be a text that is not empty");
        row("name a number", "\"Controller A\"", "5",
            "6: \"name\" must be a text that is not empty");
        row("series null", "\"series\": \"Series A\"", "\"series\": null",
            "7: \"series\" must be a text that is not empty");
        row("section name empty", "\"name\": \"FPGA\"", "\"name\": \"\"",
            "16: \"name\" must be a text that is not empty");
        row("model id zero", "\"0x1001\"", "\"0x0\"",
            "5: \"modelId\" must be a text from \"0x0001\" to \"0xFFFF\"");
        row("model id a number", "\"0x1001\"", "4097",
            "5: \"modelId\" must be a text from \"0x0001\" to \"0xFFFF\"");
        row("model id over 16 bits", "\"0x1001\"", "\"0x10000\"",
            "5: \"modelId\" must be a text from \"0x0001\" to \"0xFFFF\"");
        row("back plane over 16 bits", "\"0x2001\"", "\"0x12001\"",
            "8: \"backPlaneModelId\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("code over 16 bits", "\"0xffff\"", "\"0x1ffff\"",
            "16: \"upgradeCode\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("code without 0x", "\"0xffff\"", "\"ffff\"",
            "16: \"upgradeCode\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("code without digits", "\"0xffff\"", "\"0x\"",
            "16: \"upgradeCode\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("code with a sign", "\"0xffff\"", "\"0x-1\"",
            "16: \"upgradeCode\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("code with a line break behind", "\"0xffff\"", "\"0xff\\n\"",
            "16: \"upgradeCode\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("compatibility code no hexadecimal", "\"0xC\"", "\"0xG\"",
            "15: \"compatibilityCode\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("command group over 16 bits", "\"0xFC\"", "\"0x100FC\"",
            "11: \"commandGroup\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("command id a number", "\"0x0A\"", "10",
            "11: \"commandId\" must be a text from \"0x0000\" to \"0xFFFF\"");
        row("time-out zero", "\"timeout\": 5000", "\"timeout\": 0",
            "11: \"timeout\" must be a whole number from 1 to 3600000");
        row("default time-out over an hour", "\"defaultTimeout\": 3000",
            "\"defaultTimeout\": 3600001",
            "9: \"defaultTimeout\" must be a whole number from 1 to 3600000");
        row("default time-out negative", "\"defaultTimeout\": 3000", "\"defaultTimeout\": -1",
            "9: \"defaultTimeout\" must be a whole number from 1 to 3600000");
        row("type over 8 bits", "\"type\": 2", "\"type\": 256",
            "16: \"type\" must be a whole number from 0 to 255");
        row("type negative", "\"type\": 2", "\"type\": -1",
            "16: \"type\" must be a whole number from 0 to 255");
        row("type a fraction", "\"type\": 2", "\"type\": 1.5",
            "16: \"type\" must be a whole number from 0 to 255");
        row("type true", "\"type\": 2", "\"type\": true",
            "16: \"type\" must be a whole number from 0 to 255");
        row("order over 16 bits", "65535", "65536",
            "16: \"order\" must be a whole number from 0 to 65535");
        row("order beyond any integer", "65535", "1e300",
            "16: \"order\" must be a whole number from 0 to 65535");
        row("slot count zero", "\"slotCount\": 4", "\"slotCount\": 0",
            "19: \"slotCount\" must be a whole number from 1 to 255");
        row("slot count over 8 bits", "\"slotCount\": 4", "\"slotCount\": 256",
            "19: \"slotCount\" must be a whole number from 1 to 255");
        row("board id zero, which means any board", "\"boardId\": 2,", "\"boardId\": 0,",
            "47: \"boardId\" must be a whole number from 1 to 255");
        row("board id over 8 bits", "\"boardId\": 255", "\"boardId\": 256",
            "58: \"boardId\" must be a whole number from 1 to 255");

        // What has to be unique, and what has to be there.
        row("model id of two device models", "\"0x1002\"", "\"0x1001\"",
            "24: model id 0x1001 is used twice, first on line 5");
        row("model id of two sub-card models", "\"0x3002\",\n", "\"0x3001\",\n",
            "56: model id 0x3001 is used twice, first on line 36");
        row("model id of a device model and a sub-card model", "\"0x1002\"", "\"0x3001\"",
            "24: model id 0x3001 is used twice, first on line 36");
        row("name of two device models", "\"Controller B\"", "\"Controller A\"",
            "25: name \"Controller A\" is used twice, first on line 6");
        row("name of two sub-card models", "\"Card B\"", "\"Card A\"",
            "57: name \"Card A\" is used twice, first on line 37");
        row("name of two sections", "\"FPGA\"", "\"MCU\"",
            "16: name \"MCU\" is used twice, first on line 15");
        row("upgrade code of two sections", "\"0xffff\"", "\"0x101\"",
            "16: upgrade code 0x0101 is used twice, first on line 15");
        row("name of two sections of a board", "\"SDI\"", "\"MCU\"",
            "43: name \"MCU\" is used twice, first on line 42");
        row("board id of two boards", "\"boardId\": 2,", "\"boardId\": 7,",
            "47: board id 7 is used twice, first on line 40");
        row("command of two time-outs", "\"commandGroup\": \"0x0A\", \"commandId\": \"0xFC\"",
            "\"commandGroup\": \"0xFC\", \"commandId\": \"0x0a\"",
            "12: the command with group 0x00FC and id 0x000A is used twice, first on line 11");
        row("sub-card twice", "\"modelId\": \"0x3002\", \"slotCount\"",
            "\"modelId\": \"0x3001\", \"slotCount\"",
            "20: sub-card model 0x3001 is used twice, first on line 19");
        row("sub-card of an unknown model", "\"modelId\": \"0x3002\", \"slotCount\"",
            "\"modelId\": \"0x3003\", \"slotCount\"", "20: there is no sub-card model 0x3003");
        row("no boards", "[{ \"boardId\": 255, \"sections\": [] }]", "[]",
            "58: \"boards\" is empty");
    }
    void faultIsToldWithItsLine()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QByteArray json(Valid);
        const int offset = json.indexOf(from);
        QVERIFY(offset >= 0);
        json.replace(offset, from.size(), to);

        QString errorText;
        const auto catalogue = Catalogue::fromJson(json, QStringLiteral("models.json"), errorText);

        QTEST(errorText, "errorText");
        QVERIFY(!catalogue);
    }

    void wholeTextIsWrong_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("empty") << QByteArray() << "models.json:1: illegal value";
        QTest::newRow("a list") << QByteArray("[]")
                                << "models.json:1: the catalogue must be an object";
        QTest::newRow("an empty object, on line 3")
            << QByteArray("\n\n{}") << "models.json:3: \"catalogueVersion\" is missing";
        QTest::newRow("cut off") << QByteArray(Valid).left(QByteArray(Valid).indexOf("\"subCards"))
                                 << "models.json:18: unterminated object";
        QTest::newRow("nested too deep") << QByteArray(5000, '[') + QByteArray(5000, ']')
                                         << "models.json:1: too deeply nested document";
    }
    void wholeTextIsWrong()
    {
        QFETCH(QByteArray, json);
        QString errorText;
        const auto catalogue = Catalogue::fromJson(json, QStringLiteral("models.json"), errorText);

        QTEST(errorText, "errorText");
        QVERIFY(!catalogue);
    }

    void byteOrderMarkIsNoFault()
    {
        QString errorText;
        QVERIFY(Catalogue::fromJson(QByteArray("\xEF\xBB\xBF") + Valid, QString(), errorText));
    }

    void sourceWithPlaceholdersStaysAsItIs()
    {
        QString errorText;
        Catalogue::fromJson("[]", QStringLiteral("%2%3.json"), errorText);
        QCOMPARE(errorText, QStringLiteral("%2%3.json:1: the catalogue must be an object"));
    }

    void loadsAFile()
    {
        QTemporaryFile file;
        QVERIFY(file.open());
        QVERIFY(file.write(Valid) > 0);
        file.close();

        QString errorText;
        const auto catalogue = Catalogue::load(file.fileName(), errorText);
        QVERIFY2(catalogue, qPrintable(errorText));
        QCOMPARE(catalogue->deviceModels().size(), 2);
        QCOMPARE(errorText, QString());
    }

    void fileThatCannotBeRead()
    {
        const QTemporaryDir folder;
        const QString missing = folder.filePath(QStringLiteral("missing.json"));
        QString errorText;

        QVERIFY(!Catalogue::load(missing, errorText));
        QCOMPARE(errorText,
                 missing + QStringLiteral(": cannot be read: No such file or directory"));

        QVERIFY(!Catalogue::load(folder.path(), errorText));
        QVERIFY2(errorText.startsWith(folder.path() + QStringLiteral(": cannot be read: ")),
                 qPrintable(errorText));
    }

    void fileThatIsTooLong()
    {
        QTemporaryFile file;
        QVERIFY(file.open());
        QVERIFY(file.write(Valid) > 0);
        QVERIFY(file.resize(16 * 1024 * 1024 + 1));
        QString errorText;

        QVERIFY(!Catalogue::load(file.fileName(), errorText));
        QCOMPARE(errorText, file.fileName() + QStringLiteral(": is longer than 16777216 bytes"));
    }

    void deviceIsTheSystemsEndlessFile()
    {
        QString errorText;
        QVERIFY(!Catalogue::load(QStringLiteral("/dev/zero"), errorText));
        QCOMPARE(errorText, QStringLiteral("/dev/zero: is longer than 16777216 bytes"));
    }

    void installedModelsAreFound()
    {
        validCatalogue().install();
        DeviceConfigManager *const manager = DeviceConfigManager::instance();

        QVERIFY(!manager->findDeviceConfigByID(0x7701)); // of the built-in catalogue only
        s_DeviceConfig *const config = manager->findDeviceConfigByID(0x1001);
        QVERIFY(config);
        QCOMPARE(config->name, QStringLiteral("Controller A"));
        QVERIFY(!manager->findDeviceConfigByID(0x3001)); // a sub-card's

        InterfaceConfig *const interface = InterfaceConfig::instance();
        QVERIFY(interface->findSubCardByModelId(0x3001));
        QVERIFY(interface->findSubCardByModelId(0x3002));
        QVERIFY(!interface->findSubCardByModelId(0x1001)); // a controller's
    }

    void pointersOutliveTheNextInstallation()
    {
        validCatalogue().install();
        s_DeviceConfig *const config =
            DeviceConfigManager::instance()->findDeviceConfigByID(0x1001);
        auto *const subCard = InterfaceConfig::instance()->findSubCardByModelId(0x3001);
        QCOMPARE(DeviceConfigManager::instance()->findDeviceConfigByID(0x1001), config);
        QCOMPARE(InterfaceConfig::instance()->findSubCardByModelId(0x3001), subCard);

        Catalogue::builtin().install();

        QVERIFY(!DeviceConfigManager::instance()->findDeviceConfigByID(0x1001));
        QVERIFY(DeviceConfigManager::instance()->findDeviceConfigByID(0x7701));
        QCOMPARE(config->name, QStringLiteral("Controller A"));
    }

    void codeOfASectionName_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<QString>("sectionName");
        QTest::addColumn<int>("extendNum");
        QTest::addColumn<int>("code");

        QTest::newRow("any board: that with the lowest id") << 0x3001 << "MCU" << 0 << 0x0321;
        QTest::newRow("any board: a later board's own section") << 0x3001 << "SDI" << 0 << 0x0302;
        QTest::newRow("one board") << 0x3001 << "MCU" << 7 << 0x0371;
        QTest::newRow("not on that board") << 0x3001 << "SDI" << 2 << -1;
        QTest::newRow("no such board") << 0x3001 << "MCU" << 1 << -1;
        QTest::newRow("negative board") << 0x3001 << "MCU" << -7 << -1;
        QTest::newRow("name in another case") << 0x3001 << "mcu" << 0 << -1;
        QTest::newRow("unknown name") << 0x3001 << "Kernel" << 0 << -1;
        QTest::newRow("empty name") << 0x3001 << "" << 0 << -1;
        QTest::newRow("board without sections") << 0x3002 << "MCU" << 255 << -1;
        QTest::newRow("unknown model") << 0x3003 << "MCU" << 0 << -1;
        QTest::newRow("a controller's model") << 0x1001 << "MCU" << 0 << -1;
        QTest::newRow("equal in the low 16 bits only") << 0x13001 << "MCU" << 0 << -1;
    }
    void codeOfASectionName()
    {
        validCatalogue().install();
        QFETCH(int, modelId);
        QFETCH(QString, sectionName);
        QFETCH(int, extendNum);

        QTEST(InterfaceConfig::instance()->findCodeBySectionName(modelId, sectionName, extendNum),
              "code");
    }

    void sectionNameOfACode_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("extendNum");
        QTest::addColumn<QString>("sectionName");

        QTest::newRow("any board: that with the lowest id") << 0x3001 << 0x0302 << 0 << "EDID";
        QTest::newRow("any board: a later board's own code") << 0x3001 << 0x0371 << 0 << "MCU";
        QTest::newRow("one board") << 0x3001 << 0x0302 << 7 << "SDI";
        QTest::newRow("not on that board") << 0x3001 << 0x0371 << 2 << "";
        QTest::newRow("no such board") << 0x3001 << 0x0302 << 1 << "";
        QTest::newRow("a compatibility code") << 0x3001 << 0x20 << 0 << "";
        QTest::newRow("code over 16 bits") << 0x3001 << 0x10302 << 0 << "";
        QTest::newRow("negative code") << 0x3001 << -1 << 0 << "";
        QTest::newRow("unknown model") << 0x3003 << 0x0302 << 0 << "";
    }
    void sectionNameOfACode()
    {
        validCatalogue().install();
        QFETCH(int, modelId);
        QFETCH(int, code);
        QFETCH(int, extendNum);

        QTEST(InterfaceConfig::instance()->findSectionNameByCode(modelId, code, extendNum),
              "sectionName");
    }

    void sectionsOfABoard_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<int>("boardId");
        QTest::addColumn<QStringList>("names");

        QTest::newRow("one board") << 0x3001 << 7 << QStringList { "MCU", "SDI" };
        QTest::newRow("another board") << 0x3001 << 2 << QStringList { "MCU", "EDID" };
        QTest::newRow("no such board") << 0x3001 << 1 << QStringList();
        QTest::newRow("0 is no board") << 0x3001 << 0 << QStringList();
        QTest::newRow("unknown model") << 0x3003 << 2 << QStringList();
        QTest::newRow("a controller's model") << 0x1001 << 1 << QStringList();
    }
    void sectionsOfABoard()
    {
        validCatalogue().install();
        QFETCH(int, modelId);
        QFETCH(int, boardId);
        QStringList names;
        for (const s_UpgradeCfg &section :
             InterfaceConfig::instance()->findUpgradeCfgByBoardId(modelId, boardId))
            names.append(section.name);

        QTEST(names, "names");
    }

    void threadsLookUpWhileCataloguesAreInstalled()
    {
        const Catalogue valid = validCatalogue();
        valid.install();
        std::atomic<bool> isInstalling { true };
        std::atomic<int> wrongAnswers { 0 };
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                const QString sectionName = QStringLiteral("MCU");
                do {
                    const s_DeviceConfig *const config =
                        DeviceConfigManager::instance()->findDeviceConfigByID(0x1001);
                    if (config && config->upgradeCfgs.size() != 2)
                        ++wrongAnswers;
                    const int code =
                        InterfaceConfig::instance()->findCodeBySectionName(0x3001, sectionName, 7);
                    if (code != 0x0371 && code != -1) // -1 while the built-in one is in use
                        ++wrongAnswers;
                } while (isInstalling);
            });
        }
        for (int i = 0; i < 20; ++i) {
            Catalogue::builtin().install();
            valid.install();
        }
        isInstalling = false;
        for (std::thread &reader : readers)
            reader.join();

        QCOMPARE(wrongAnswers.load(), 0);
    }

    void exampleOfTheDocumentationIsValid()
    {
        QFile page(QStringLiteral(VELMAR_DOCS "/formats/device-catalogue.md"));
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QByteArray text = page.readAll();
        const QByteArray fence("```json\n");
        const int begin = text.indexOf(fence);
        QVERIFY(begin >= 0);
        const int end = text.indexOf("\n```\n", begin);
        QVERIFY(end >= 0);
        const QByteArray example = text.mid(begin + fence.size(), end - begin - fence.size());

        QString errorText;
        const auto catalogue = Catalogue::fromJson(example, QStringLiteral("example"), errorText);

        QVERIFY2(catalogue, qPrintable(errorText));
        QCOMPARE(catalogue->deviceModels().size(), 1);
        QCOMPARE(catalogue->subCardModels().size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_Catalogue)
#include "tst_catalogue.moc"
