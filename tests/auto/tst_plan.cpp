#include "package/packagemanifest.h"
#include "package/plan.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

using namespace Velmar::Host;

Q_DECLARE_METATYPE(Velmar::Host::LeftOutReason)

namespace {

QByteArray hash(char fill)
{
    return QByteArray(32, fill);
}

PlannedFile sectionFile(const QString &section, quint16 code, const QString &file)
{
    PlannedFile planned;
    planned.section = section;
    planned.code = code;
    planned.isMainControl = true;
    planned.modelId = 0x7701;
    planned.file = file;
    planned.target = QStringLiteral("/firmware/") + file;
    planned.size = 100;
    planned.sha256 = hash('\x11');
    return planned;
}

Plan examplePlan()
{
    Plan plan;
    plan.device = { { QStringLiteral("127.0.0.1"), 9720 },
                    0x7701,
                    QStringLiteral("Strata S8 (0x7701)"),
                    QStringLiteral("S8-0001"),
                    QStringLiteral("Hall"),
                    { { 2, 0x7801, 1 } } };
    plan.wish = { { QStringLiteral("MCU") }, { QStringLiteral("main") } };
    plan.packagePath = QStringLiteral("/packages/a");
    plan.packageDigest = hash('\xAB');
    plan.files = { sectionFile("MCU", 0x101, "main/MCU.dat"),
                   sectionFile("FPGA", 0x102, "main/FPGA.dat") };
    plan.sections = {
        { true, 0, 0x7701, 1, 0x101, QStringLiteral("MCU"), QStringLiteral("1.0.0.0"),
          QStringLiteral("1.1.0.0") },
        { false, 2, 0x7801, 3, 0x302, QStringLiteral("FPGA"), {}, {} },
    };
    plan.leftOut = { { QStringLiteral("main"), QStringLiteral("Kernel"), QStringLiteral("main/k"),
                       LeftOutReason::NotChosen, QStringLiteral("It was not chosen") } };
    return plan;
}

const char ExampleText[] = R"json({
    "planFormat": 1,
    "road": "native",
    "device": {
        "address": "127.0.0.1:9720", "modelId": 30465, "model": "Strata S8 (0x7701)",
        "serial": "S8-0001", "name": "Hall",
        "cards": [ { "slotId": 2, "modelId": 30721, "boardId": 1 } ]
    },
    "wish": { "sections": [ "MCU" ], "cards": [ "main" ] },
    "package": {
        "path": "/packages/a",
        "sha256": "abababababababababababababababababababababababababababababababab"
    },
    "files": [
        {
            "section": "MCU", "code": 257, "dataFile": false, "mainControl": true, "slotId": 0,
            "modelId": 30465, "boardId": 0, "file": "main/MCU.dat",
            "target": "/firmware/main/MCU.dat", "size": 100,
            "sha256": "1111111111111111111111111111111111111111111111111111111111111111"
        },
        {
            "section": "FPGA", "code": 258, "dataFile": false, "mainControl": true, "slotId": 0,
            "modelId": 30465, "boardId": 0, "file": "main/FPGA.dat",
            "target": "/firmware/main/FPGA.dat", "size": 100,
            "sha256": "1111111111111111111111111111111111111111111111111111111111111111"
        }
    ],
    "sections": [
        {
            "mainControl": true, "slotId": 0, "modelId": 30465, "type": 1, "code": 257,
            "section": "MCU", "versionBefore": "1.0.0.0", "versionExpected": "1.1.0.0"
        },
        {
            "mainControl": false, "slotId": 2, "modelId": 30721, "type": 3, "code": 770,
            "section": "FPGA", "versionBefore": "", "versionExpected": ""
        }
    ],
    "leftOut": [
        {
            "unit": "main", "section": "Kernel", "file": "main/k", "reason": "not-chosen",
            "text": "It was not chosen"
        }
    ]
})json";

QJsonObject exampleJson()
{
    return QJsonDocument::fromJson(ExampleText).object();
}

QStringList differences(const Plan &then, const Plan &now)
{
    const auto sentences = then.differences(now);
    return { sentences.cbegin(), sentences.cend() };
}

} // namespace

class tst_Plan : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;

    QString path(const QString &name) const { return m_folder.filePath(name); }

    bool store(const QString &name, const QByteArray &text) const
    {
        QFile file(path(name));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    }

private Q_SLOTS:
    void words_data()
    {
        QTest::addColumn<LeftOutReason>("reason");
        QTest::addColumn<QString>("word");

        QTest::newRow("unit") << LeftOutReason::UnreadableUnit << "unreadable-unit";
        QTest::newRow("model") << LeftOutReason::OtherModel << "other-model";
        QTest::newRow("card") << LeftOutReason::NoSuchCard << "no-such-card";
        QTest::newRow("board") << LeftOutReason::UnfittedBoard << "unfitted-board";
        QTest::newRow("section") << LeftOutReason::UnknownSection << "unknown-section";
        QTest::newRow("doubled") << LeftOutReason::DoubledSection << "doubled-section";
        QTest::newRow("step") << LeftOutReason::UnknownStep << "unknown-step";
        QTest::newRow("golden") << LeftOutReason::GoldenFile << "golden-file";
        QTest::newRow("missing") << LeftOutReason::MissingFile << "missing-file";
        QTest::newRow("not chosen") << LeftOutReason::NotChosen << "not-chosen";
        QTest::newRow("other unit") << LeftOutReason::OtherUnit << "other-unit";
        QTest::newRow("registers") << LeftOutReason::NotByRegisters << "not-by-registers";
        QTest::newRow("commands") << LeftOutReason::NoCommands << "no-commands";
        QTest::newRow("older service")
            << LeftOutReason::NotByOlderService << "not-by-older-service";
        QTest::newRow("target") << LeftOutReason::FurtherTarget << "further-target";
        QTest::newRow("unused") << LeftOutReason::Unused << "unused";
        QTest::newRow("upload") << LeftOutReason::NotUploaded << "not-uploaded";
    }
    void words()
    {
        QFETCH(LeftOutReason, reason);
        QFETCH(QString, word);
        QCOMPARE(leftOutWord(reason), word);
        QVERIFY(leftOutReasonOf(word) == reason);
    }

    void unknownWord() { QVERIFY(!leftOutReasonOf(QStringLiteral("not chosen"))); }

    void asJson() { QCOMPARE(examplePlan().toJson(), exampleJson()); }

    void fromJson()
    {
        QString errorText;
        const auto plan = Plan::fromJson(exampleJson(), errorText);
        QVERIFY2(plan, qPrintable(errorText));
        QCOMPARE(plan->device.address.host, QStringLiteral("127.0.0.1"));
        QCOMPARE(plan->device.address.port, quint16(9720));
        QCOMPARE(plan->files.at(1).file, QStringLiteral("main/FPGA.dat"));
        QCOMPARE(plan->files.at(1).sha256, hash('\x11'));
        QCOMPARE(plan->sections.at(1).slotId, quint8(2));
        QVERIFY(plan->leftOut.at(0).reason == LeftOutReason::NotChosen);
        QCOMPARE(plan->toJson(), exampleJson());
        QCOMPARE(plan->totalSize(), qint64(200));
    }

    // A plan for a model alone has no address, and one that was just made no hashes.
    void withoutAddressOrHashes()
    {
        Plan plan = examplePlan();
        plan.device.address = {};
        plan.packageDigest.clear();
        for (auto &file : plan.files)
            file.sha256.clear();
        QString errorText;
        const auto read = Plan::fromJson(plan.toJson(), errorText);
        QVERIFY2(read, qPrintable(errorText));
        QVERIFY(read->device.address.host.isEmpty());
        QVERIFY(read->packageDigest.isEmpty());
        QVERIFY(read->files.at(0).sha256.isEmpty());
    }

    void uploadOfTheHttpRoad()
    {
        Plan plan = examplePlan();
        plan.road = Road::Http;
        plan.upload = { QStringLiteral("10.0.0.2"), QStringLiteral("/images/a"), true };
        const auto json = plan.toJson();
        QCOMPARE(
            json.value("upload").toObject(),
            QJsonObject(
                { { "host", "10.0.0.2" }, { "file", "/images/a" }, { "compatibility", true } }));
        QString errorText;
        const auto read = Plan::fromJson(json, errorText);
        QVERIFY2(read, qPrintable(errorText));
        QVERIFY(read->road == Road::Http);
        QCOMPARE(read->upload.filePath, QStringLiteral("/images/a"));
        QCOMPARE(read->upload.host, QStringLiteral("10.0.0.2"));
        QVERIFY(read->upload.isCompatible);
    }

    void faults_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("other format") << QByteArray("\"planFormat\": 1")
                                      << QByteArray("\"planFormat\": 2") << "planFormat must be 1";
        QTest::newRow("unknown key")
            << QByteArray("\"planFormat\": 1,") << QByteArray("\"planFormat\": 1, \"colour\": 1,")
            << "the plan has the unknown key \"colour\"";
        QTest::newRow("missing key")
            << QByteArray("\"planFormat\": 1,") << QByteArray() << "planFormat is missing";
        QTest::newRow("unknown key below")
            << QByteArray("\"slotId\": 2, \"modelId\": 30721, \"boardId\"")
            << QByteArray("\"slotId\": 2, \"x\": 1, \"modelId\": 30721, \"boardId\"")
            << "device.cards[0] has the unknown key \"x\"";
        QTest::newRow("missing key below")
            << QByteArray("\"size\": 100,") << QByteArray() << "files[0].size is missing";
        QTest::newRow("no road") << QByteArray("\"native\"") << QByteArray("\"air\"")
                                 << "road is no road";
        QTest::newRow("road without upload") << QByteArray("\"native\"") << QByteArray("\"http\"")
                                             << "upload is for the road \"http\", which needs it";
        QTest::newRow("upload of another road")
            << QByteArray("\"planFormat\": 1,")
            << QByteArray("\"planFormat\": 1, \"upload\": {\"host\":\"\",\"file\":\"\","
                          "\"compatibility\":false},")
            << "upload is for the road \"http\", which needs it";
        QTest::newRow("no port") << QByteArray("127.0.0.1:9720") << QByteArray("127.0.0.1")
                                 << "device.address must be an address with a port, or empty";
        QTest::newRow("no object")
            << QByteArray(R"({ "sections": [ "MCU" ], "cards": [ "main" ] })") << QByteArray("[]")
            << "wish must be an object";
        QTest::newRow("no list") << QByteArray(R"([ "MCU" ])") << QByteArray("\"MCU\"")
                                 << "wish.sections must be a list";
        QTest::newRow("no text") << QByteArray(R"([ "MCU" ])") << QByteArray("[ 5 ]")
                                 << "wish.sections[0] must be a text";
        QTest::newRow("empty file") << QByteArray("\"main/MCU.dat\"") << QByteArray("\"\"")
                                    << "files[0].file must not be empty";
        QTest::newRow("no truth") << QByteArray("\"dataFile\": false")
                                  << QByteArray("\"dataFile\": 0")
                                  << "files[0].dataFile must be true or false";
        QTest::newRow("number as text")
            << QByteArray("\"size\": 100") << QByteArray("\"size\": \"100\"")
            << "files[0].size must be a whole number from 0 to "
               "9007199254740992";
        QTest::newRow("negative") << QByteArray("\"size\": 100") << QByteArray("\"size\": -1")
                                  << "files[0].size must be a whole number from 0 to "
                                     "9007199254740992";
        QTest::newRow("fraction") << QByteArray("\"slotId\": 2") << QByteArray("\"slotId\": 2.5")
                                  << "device.cards[0].slotId must be a whole number from 0 to 255";
        QTest::newRow("over a byte") << QByteArray("\"slotId\": 2") << QByteArray("\"slotId\": 256")
                                     << "device.cards[0].slotId must be a whole number from 0 to "
                                        "255";
        QTest::newRow("over a word") << QByteArray("\"code\": 257") << QByteArray("\"code\": 65536")
                                     << "files[0].code must be a whole number from 0 to 65535";
        QTest::newRow("short hash") << QByteArray("\"1111") << QByteArray("\"11")
                                    << "files[0].sha256 must be 64 hexadecimal digits in lower "
                                       "case, or empty";
        QTest::newRow("no hash") << QByteArray("\"1111") << QByteArray("\"g111")
                                 << "files[0].sha256 must be 64 hexadecimal digits in lower "
                                    "case, or empty";
        QTest::newRow("hash in capitals")
            << QByteArray("\"abab") << QByteArray("\"ABab")
            << "package.sha256 must be 64 hexadecimal digits in lower case, or empty";
        QTest::newRow("missing key of a section")
            << QByteArray("\"type\": 1, ") << QByteArray() << "sections[0].type is missing";
        QTest::newRow("missing key of what is left out")
            << QByteArray("\"file\": \"main/k\", ") << QByteArray() << "leftOut[0].file is missing";
        QTest::newRow("no reason") << QByteArray("not-chosen") << QByteArray("bad-luck")
                                   << "leftOut[0].reason is no reason";
    }
    void faults()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QByteArray text(ExampleText);
        const int place = text.indexOf(from);
        QVERIFY(place >= 0);
        text.replace(place, from.size(), to);
        const auto document = QJsonDocument::fromJson(text);
        QVERIFY(document.isObject());
        QString errorText;
        QVERIFY(!Plan::fromJson(document.object(), errorText));
        QTEST(errorText, "errorText");
    }

    void lists_data()
    {
        QTest::addColumn<bool>("isOfTheDevice");
        QTest::newRow("cards") << true;
        QTest::newRow("files") << false;
        QTest::newRow("sections") << false;
        QTest::newRow("leftOut") << false;
    }
    void lists()
    {
        QFETCH(bool, isOfTheDevice);
        const QString key = QTest::currentDataTag();
        auto json = exampleJson();
        if (isOfTheDevice) {
            auto device = json.value("device").toObject();
            device.insert(key, QJsonObject());
            json.insert("device", device);
        } else {
            json.insert(key, QJsonObject());
        }
        QString errorText;
        QVERIFY(!Plan::fromJson(json, errorText));
        QCOMPARE(errorText, (isOfTheDevice ? "device." : "") + key + " must be a list");
    }

    void saveAndLoad()
    {
        const QString file = path("plan.json");
        QVERIFY(store("plan.json", "former"));
        QString errorText;
        QVERIFY2(examplePlan().save(file, errorText), qPrintable(errorText));
        QCOMPARE(int(QFile::permissions(file)
                     & (QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup
                        | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther)),
                 int(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther));
        const auto plan = Plan::load(file, errorText);
        QVERIFY2(plan, qPrintable(errorText));
        QCOMPARE(plan->toJson(), exampleJson());
    }

    void saveIntoNoFolder()
    {
        QString errorText;
        QVERIFY(!examplePlan().save(path("none/plan.json"), errorText));
        QVERIFY(errorText.startsWith(path("none/plan.json: ")));
    }

    void loadFaults_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("errorText"); // behind the path

        QTest::newRow("no JSON") << QByteArray("{\n\"a\": 1,\n") << ":3: unterminated object";
        QTest::newRow("list") << QByteArray("[]") << ":1: a plan is a JSON object";
        QTest::newRow("key twice") << QByteArray("{\n\"road\": \"native\",\n\"road\": \"http\"}")
                                   << ":3: key \"road\" is used twice";
        QTest::newRow("key twice below")
            << QByteArray("{\"wish\": {\n\"cards\": [],\n\n\"cards\": []}}")
            << ":4: key \"cards\" is used twice";
        QTest::newRow("no plan") << QByteArray("{}") << ": planFormat is missing";
        QTest::newRow("without hashes")
            << QByteArray(ExampleText)
                   .replace("1111111111111111111111111111111111111111111111111111111111111111", "")
            << ": the plan lacks hashes, so that nothing could be compared with it";
    }
    void loadFaults()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, errorText);
        QVERIFY(store("fault.json", text));
        QString told;
        QVERIFY(!Plan::load(path("fault.json"), told));
        QCOMPARE(told, path("fault.json") + errorText);
    }

    void loadWhatIsNoFile()
    {
        QString errorText;
        QVERIFY(!Plan::load(path(""), errorText));
        QVERIFY(errorText.endsWith(" is no file"));
    }

    void loadTooMuch()
    {
        QFile file(path("large.json"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(64 * 1024 * 1024 + 1));
        QString errorText;
        QVERIFY(!Plan::load(file.fileName(), errorText));
        QCOMPARE(errorText, file.fileName() + " is larger than 64 MiB");
    }

    void hashesOfThePackage()
    {
        Plan plan = examplePlan();
        const PackageManifest manifest(
            { { "main/MCU.dat", 7, hash('\x22') }, { "main/FPGA.dat", 8, hash('\x33') } },
            { "main" });
        QString errorText;
        QVERIFY2(plan.addHashes(manifest, errorText), qPrintable(errorText));
        QCOMPARE(plan.files.at(0).size, qint64(7));
        QCOMPARE(plan.files.at(0).sha256, hash('\x22'));
        QCOMPARE(plan.files.at(1).size, qint64(8));
        QCOMPARE(plan.files.at(1).sha256, hash('\x33'));
        QCOMPARE(plan.packageDigest, manifest.digest());
    }

    void hashOfAFileThatIsNotThere()
    {
        Plan plan = examplePlan();
        QString errorText;
        QVERIFY(!plan.addHashes(PackageManifest({ { "main/MCU.dat", 7, hash('\x22') } }, {}),
                                errorText));
        QCOMPARE(errorText, QStringLiteral("There is no file main/FPGA.dat in the package"));
    }

    void hashOfTheUpload()
    {
        QVERIFY(store("image", "abc"));
        Plan plan = examplePlan();
        plan.road = Road::Http;
        plan.upload.filePath = path("image");
        plan.files = { sectionFile({}, 0, path("image")) };
        QString errorText;
        QVERIFY2(plan.addHashes({}, errorText), qPrintable(errorText));
        QCOMPARE(plan.files.at(0).size, qint64(3));
        QCOMPARE(plan.files.at(0).sha256.toHex(),
                 QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
        QVERIFY(QFile::remove(path("image")));
        QVERIFY(!plan.addHashes({}, errorText));
        QVERIFY(errorText.startsWith(path("image: ")));
    }

    void sameAgain()
    {
        // Where package and device are found does not count, and neither does the wish.
        Plan now = examplePlan();
        now.packagePath = QStringLiteral("/elsewhere");
        now.device.address.port = 1;
        now.wish = {};
        now.leftOut.clear();
        QCOMPARE(differences(examplePlan(), now), QStringList());
    }

    void otherRoad()
    {
        Plan now = examplePlan();
        now.road = Road::Registers;
        QCOMPARE(differences(examplePlan(), now),
                 QStringList("The plan is for the road \"native\", and this run takes "
                             "\"registers\""));
    }

    void otherDevice()
    {
        Plan now = examplePlan();
        now.device.modelId = 0x7702;
        now.device.serial = QStringLiteral("S16-7");
        QCOMPARE(differences(examplePlan(), now),
                 QStringList({ "The plan is for a device of model 0x7701, and this is 0x7702",
                               "The plan is for the device with serial \"S8-0001\", and this is "
                               "\"S16-7\"" }));
    }

    void otherCards()
    {
        Plan then = examplePlan();
        Plan now = examplePlan();
        then.device.cards = { { 1, 0x7801, 1 }, { 2, 0x7802, 1 }, { 3, 0x7811, 1 } };
        now.device.cards = { { 2, 0x7802, 2 }, { 3, 0x7811, 1 }, { 4, 0x7801, 1 } };
        QCOMPARE(differences(then, now),
                 QStringList({ "Card 2 was model 0x7802, board 1, and is model 0x7802, board 2",
                               "Card 4 is new", "Card 1 is gone" }));
    }

    void otherVersions()
    {
        Plan now = examplePlan();
        now.sections[0].versionBefore = QStringLiteral("1.0.0.1");
        now.sections[1].versionExpected = QStringLiteral("2.0.0.0");
        QCOMPARE(differences(examplePlan(), now),
                 QStringList({ "Section \"MCU\" of main control had version 1.0.0.0, and has "
                               "1.0.0.1",
                               "Section \"FPGA\" of card 2 was to get version unknown, and would "
                               "get 2.0.0.0" }));
    }

    void otherSections()
    {
        Plan now = examplePlan();
        now.sections[1].slotId = 3;
        QCOMPARE(differences(examplePlan(), now),
                 QStringList({ "Section \"FPGA\" of card 3 is not in the plan",
                               "Section \"FPGA\" of card 2 would not be renewed" }));
    }

    void otherFiles()
    {
        Plan now = examplePlan();
        now.packageDigest = hash('\xAC');
        now.files = { sectionFile("MCU", 0x101, "main/MCU.dat"),
                      sectionFile("Kernel", 0x103, "main/kernel") };
        now.files[0].sha256 = hash('\x12');
        QCOMPARE(
            differences(examplePlan(), now),
            QStringList({ "File main/MCU.dat has changed", "File main/kernel is not in the plan",
                          "File main/FPGA.dat would not be sent" }));
    }

    void otherPlaces_data()
    {
        QTest::addColumn<QString>("change");
        QTest::newRow("target") << "target";
        QTest::newRow("order") << "order";
        QTest::newRow("once more") << "more";
    }
    void otherPlaces()
    {
        QFETCH(QString, change);
        Plan now = examplePlan();
        if (change == QLatin1String("target"))
            now.files[1].target = QStringLiteral("/elsewhere");
        else if (change == QLatin1String("order"))
            std::swap(now.files[0], now.files[1]);
        else
            now.files.push_back(now.files[0]);
        QCOMPARE(differences(examplePlan(), now),
                 QStringList("The files would go to other places on the device, or in another "
                             "order"));
    }

    void otherPackageAroundTheSameFiles()
    {
        Plan now = examplePlan();
        now.packageDigest = hash('\xAC');
        QCOMPARE(differences(examplePlan(), now),
                 QStringList("The package has changed, although not in a file that is sent"));
    }

    // The same content under another name is the same upload.
    void otherUpload()
    {
        Plan then = examplePlan();
        then.road = Road::Http;
        then.upload.filePath = QStringLiteral("/images/a");
        then.files = { sectionFile({}, 0, "/images/a") };
        then.files[0].target.clear();
        Plan now = then;
        now.upload.filePath = QStringLiteral("/images/b");
        now.files[0].file = QStringLiteral("/images/b");
        QCOMPARE(differences(then, now), QStringList());
        now.files[0].sha256 = hash('\x12');
        QCOMPARE(differences(then, now), QStringList("File the file to upload has changed"));
    }
};

QTEST_APPLESS_MAIN(tst_Plan)
#include "tst_plan.moc"
