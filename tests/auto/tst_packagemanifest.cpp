#include "packagemanifest.h"

#include <QtTest>

#include <QFile>
#include <QTemporaryDir>

using namespace Velmar::Package;

namespace {

QByteArray manifest(const char *name)
{
    QFile file(QStringLiteral(VELMAR_TEST_DATA "/manifests/%1.json").arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString inWords(const QVector<XmlAttribute> &attributes)
{
    QStringList words;
    for (const XmlAttribute &attribute : attributes)
        words.append(QStringLiteral("%1=%2").arg(attribute.name, attribute.value));
    return words.join(u' ');
}

} // namespace

class tst_PackageManifest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        for (const char *path :
             { "main/MCU.dat", "main/kernel.bin", "main/osd.json", "card/one.bin", "card/two.bin",
               "fonts/font12.dat", "fonts/big.dat" })
            write("plain", path);
        write("", "main/empty.bin");
        QVERIFY(QDir(m_folder.path()).mkpath(QStringLiteral("main/folder.bin")));
    }

    void sound()
    {
        write(manifest("sound"), "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY2(readPackageManifest(path("manifest.json"), result, errorText),
                 qPrintable(errorText));

        QCOMPARE(result.plainFolder, m_folder.path());
        QCOMPARE(result.units.size(), 2);
        const ManifestUnit &unit = result.units[0];
        QCOMPARE(unit.folder, QStringLiteral("main"));
        QCOMPARE(inWords(unit.attributes),
                 QStringLiteral("DeviceTypes=Controller Version=3.2.1.0 ModuleID=0x7701 "
                                "IsSupportFromScratch=false StepType=0"));
        QCOMPARE(unit.beforeStartCommands.size(), 1);
        QCOMPARE(unit.endSendCommands.size(), 0);
        QCOMPARE(unit.files.size(), 2);
        QCOMPARE(unit.files[0].fileName, QStringLiteral("MCU.dat"));
        QCOMPARE(inWords(unit.files[0].attributes),
                 QStringLiteral("IsSupportBroadcast=false IsMCUFile=false "
                                "IsFileAddrNoIncrease=false Version= Remark= FileName=MCU.dat "
                                "FileLabel=MCU Address=0 ExtendNum=0"));
        QCOMPARE(unit.files[0].commands.size(), 2);
        QCOMPARE(inWords(unit.files[0].commands[0].attributes),
                 QStringLiteral("CmdName=SendCardIndex Data=2 IsCommonCmd=false "
                                "Address=0x80000010 WaitTime=0 TimeOut=0 ExecuteTimes=0 "
                                "CmdFromNoneType=0 SpecialPackID=0"));
        QCOMPARE(unit.files[1].targetPaths,
                 QStringList({ QStringLiteral("/a"), QStringLiteral("/b") }));
        QVERIFY(inWords(result.units[1].attributes)
                    .endsWith(QStringLiteral("ModuleID=0x7801 IsSupportFromScratch=false "
                                             "StepType=1")));
        QVERIFY(
            inWords(result.units[1].files[1].attributes).endsWith(QStringLiteral("ExtendNum=2")));
        QCOMPARE(result.dataFiles.size(), 2);
        QCOMPARE(result.dataFiles[1].path, QStringLiteral("fonts/font12.dat"));
        QCOMPARE(result.dataFiles[1].targetPaths, QStringList(QStringLiteral("/font")));
    }

    void everyAttribute()
    {
        write(manifest("every-attribute"), "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY2(readPackageManifest(path("manifest.json"), result, errorText),
                 qPrintable(errorText));

        QVERIFY(inWords(result.units[0].attributes)
                    .contains(QStringLiteral("IsSupportFromScratch=true")));
        QCOMPARE(inWords(result.units[0].files[0].attributes),
                 QString::fromUtf8("IsSupportBroadcast=true IsMCUFile=true "
                                   "IsFileAddrNoIncrease=true Version=1.2 Remark=a \"b\" <c> é "
                                   "FileName=MCU.dat FileLabel=MCU Address=-1 ExtendNum=255"));
        QCOMPARE(inWords(result.units[0].beforeStartCommands[0].attributes),
                 QStringLiteral("CmdName=SendFileCount Data=d IsCommonCmd=true Address=4294967295 "
                                "WaitTime=1 TimeOut=0x2 ExecuteTimes=3 CmdFromNoneType=4 "
                                "SpecialPackID=-2147483648"));
    }

    void targetsThatOnlyLookAlike()
    {
        QByteArray text = manifest("sound");
        text.replace(R"(["/mcu"])", R"(["/a.bin", "/ab/c", "/a..", "/../a"])");
        write(text, "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY2(readPackageManifest(path("manifest.json"), result, errorText),
                 qPrintable(errorText));

        QCOMPARE(result.units[0].files[0].targetPaths,
                 QStringList({ "/a.bin", "/ab/c", "/a..", "/../a" }));
    }

    // They are for different devices.
    void mainUnitsWithOneTarget()
    {
        QByteArray text = manifest("sound");
        text.replace(R"("stepType": 1)", R"("stepType": 0)");
        text.replace(R"("fileLabel": "FPGA", "extendNum": 2)", R"("fileLabel": "Other")");
        text.replace(R"(["/1"])", R"(["/mcu"])");
        write(text, "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY2(readPackageManifest(path("manifest.json"), result, errorText),
                 qPrintable(errorText));

        QCOMPARE(result.units[1].files[0].targetPaths, QStringList("/mcu"));
    }

    // Cards of all models may be in one device.
    void cardUnitsWithOneTarget_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("fault");

        QTest::newRow("cards") << QString("1") << QString("1")
                               << "units[1].files[0].targetPaths[0] is the same place as "
                                  "units[0].files[0].targetPaths[0]";
        QTest::newRow("main unit behind a card")
            << QString("1") << QString("0")
            << "units[1].files[0].targetPaths[0] is the same place as "
               "units[0].files[0].targetPaths[0]";
    }
    void cardUnitsWithOneTarget()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        const QString unit = "{ \"folder\": \"%1\", \"version\": \"1\", \"moduleId\": %2, "
                             "\"stepType\": %3, \"files\": [{ \"fileName\": \"%4\", "
                             "\"fileLabel\": \"FPGA\", \"targetPaths\": [\"/one\"] }] }";
        const QString units = unit.arg("card", "1", first, "one.bin") + ", "
            + unit.arg("main", "2", second, "MCU.dat");
        write("{ \"manifestVersion\": 1, \"units\": [" + units.toUtf8() + "] }", "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY(!readPackageManifest(path("manifest.json"), result, errorText));

        QFETCH(QString, fault);
        QCOMPARE(errorText, path("manifest.json") + ": " + fault);
    }

    // As many bytes as the record of an image has, less the zero that ends them.
    void longestTarget()
    {
        const QByteArray longest(255, 'p');
        QByteArray text = manifest("sound");
        text.replace(R"(["/mcu"])", "[\"" + longest + "\"]");
        write(text, "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY2(readPackageManifest(path("manifest.json"), result, errorText),
                 qPrintable(errorText));

        QCOMPARE(result.units[0].files[0].targetPaths, QStringList(QString::fromLatin1(longest)));
    }

    void unsound_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("error");

        const auto row = [](const char *name, const QByteArray &from, const QByteArray &to,
                            const char *error) {
            QTest::newRow(name) << from << to << QString::fromUtf8(error);
        };
        const char mcu[] = R"("fileName": "MCU.dat")";
        const char unit[] = R"("folder": "main")";
        const char osd[] = R"("path": "main/osd.json")";
        const char target[] = R"(["/mcu"])";

        row("no JSON", "\"units\": [", "\"units\": <", ", line 3: illegal number");
        row("cut off", "\"/font\"] } ]\n}\n", "", ", line 31: unterminated array");
        row("key twice", "\"stepType\": 1", R"("stepType": 0, "stepType": 1)",
            ", line 23: the key \"stepType\" is there a second time");
        row("another version", "\"manifestVersion\": 1", "\"manifestVersion\": 2",
            ": manifestVersion is no number from 1 to 1");
        row("no version", "\"manifestVersion\": 1,", "", ": manifestVersion is missing");
        row("unknown key", "\"manifestVersion\"", "\"comment\": 1, \"manifestVersion\"",
            ": comment is unknown");
        row("unknown key of a unit", unit, R"("Folder": "x", "folder": "main")",
            ": units[0].Folder is unknown");
        row("unknown key of a file", mcu, R"("filename": "x", "fileName": "MCU.dat")",
            ": units[0].files[0].filename is unknown");
        row("unknown key of a command", "\"data\": \"2\"", "\"text\": \"2\"",
            ": units[0].files[0].commands[0].text is unknown");
        row("unknown key of a data file", osd, R"("from": "", "path": "main/osd.json")",
            ": dataFiles[0].from is unknown");
        row("units are no array", "\"units\": [", "\"units\": 1, \"more\": [",
            ": units is no array");
        row("unit is no object", "\"units\": [", "\"units\": [ 1,", ": units[0] is no object");
        row("text that is none", R"("deviceTypes": "Controller")", R"("deviceTypes": 1)",
            ": units[0].deviceTypes is no text");
        row("control character in a text", "\"Controller\"", R"("Con\ntroller")",
            ": units[0].deviceTypes contains a character that is none of a text");
        row("half a surrogate pair", "\"Controller\"", R"("Con\ud800troller")",
            ": units[0].deviceTypes contains a character that is none of a text");

        row("no folder", R"("folder": "main",)", "", ": units[0].folder is missing");
        row("empty folder", unit, R"("folder": "")", ": units[0].folder is empty");
        row("folder that leads out", unit, R"("folder": "..")",
            ": units[0].folder is no name of a file or folder");
        row("the package itself", unit, R"("folder": ".")",
            ": units[0].folder is no name of a file or folder");
        row("folder in a folder", unit, R"("folder": "a/main")",
            ": units[0].folder is no name of a file or folder");
        row("absolute folder", unit, R"("folder": "/main")",
            ": units[0].folder is no name of a file or folder");
        row("folder with a blank at its end", unit, R"("folder": "main ")",
            ": units[0].folder begins or ends with a blank");
        row("folder at the place of the image", unit, R"("folder": "upgrade")",
            ": units[0].folder begins with \"upgrade\", which is for the upgrade image only");
        row("folder twice", R"("folder": "card")", R"("folder": "Main")",
            ": units[1].folder is that of an earlier unit");

        row("version in words", "\"3.2.1.0\"", "\"three\"",
            ": units[0].version is not 1 to 4 numbers up to 255 with dots between");
        row("version part missing", "\"3.2.1.0\"", "\"3..1\"",
            ": units[0].version is not 1 to 4 numbers up to 255 with dots between");
        row("version part above 255", "\"3.2.1.0\"", "\"3.256\"",
            ": units[0].version is not 1 to 4 numbers up to 255 with dots between");
        row("five version parts", "\"3.2.1.0\"", "\"3.2.1.0.0\"",
            ": units[0].version is not 1 to 4 numbers up to 255 with dots between");
        row("no model", R"("moduleId": "0x7701",)", "", ": units[0].moduleId is missing");
        row("model 0", "\"0x7701\"", "0", ": units[0].moduleId is no number from 1 to 65535");
        row("model of 17 bits", "\"0x7701\"", "\"0x10000\"",
            ": units[0].moduleId is no number from 1 to 65535");
        row("model without its prefix", "\"0x7701\"", "\"77AB\"",
            ": units[0].moduleId is no number from 1 to 65535");
        row("model twice", "30721", "30465", ": units[1].moduleId is that of an earlier unit");
        row("unknown step type", "\"stepType\": 1", "\"stepType\": 2",
            ": units[1].stepType is no number from 0 to 1");
        row("no step type", "\"stepType\": 1,", "", ": units[1].stepType is missing");

        row("no file name", R"("fileName": "MCU.dat",)", "",
            ": units[0].files[0].fileName is missing");
        row("file in a folder", mcu, R"("fileName": "../card/one.bin")",
            ": units[0].files[0].fileName is no name of a file or folder");
        row("file name with a backslash", mcu, R"("fileName": "a\\b")",
            ": units[0].files[0].fileName is no name of a file or folder");
        row("second description", mcu, R"("fileName": "A.XML")",
            ": units[0].files[0].fileName ends in \".xml\", which is for descriptions only");
        row("name of a deciphered copy", mcu, R"("fileName": "MCU.dat_dn")",
            ": units[0].files[0].fileName ends in \"_dn\", which is for deciphered copies only");
        row("missing file", mcu, R"("fileName": "none.dat")",
            ": units[0].files[0].fileName names the file FOLDER/main/none.dat, which is not there");
        row("folder as a file", mcu, R"("fileName": "folder.bin")",
            ": units[0].files[0].fileName names the file FOLDER/main/folder.bin, which is not "
            "there");
        row("empty file", mcu, R"("fileName": "empty.bin")",
            ": units[0].files[0].fileName names the file FOLDER/main/empty.bin, which is empty");
        row("file twice", R"("fileName": "kernel.bin")", mcu,
            ": units[0].files[1].fileName names the file main/MCU.dat a second time");
        row("no label", R"("fileLabel": "MCU",)", "", ": units[0].files[0].fileLabel is missing");
        row("section twice in a main unit", R"("fileLabel": "Kernel")",
            R"("fileLabel": "MCU", "extendNum": 3)",
            ": units[0].files[1].fileLabel is that of an earlier file of the unit");
        row("section twice for one board", R"("extendNum": 2)", R"("extendNum": 1)",
            ": units[1].files[1].fileLabel is that of an earlier file of the unit");
        row("board above 8 bits", R"("extendNum": 2)", R"("extendNum": 256)",
            ": units[1].files[1].extendNum is no number from 0 to 255");
        row("negative board", R"("extendNum": 2)", R"("extendNum": -1)",
            ": units[1].files[1].extendNum is no number from 0 to 255");
        row("two places for one board", R"(["/2"])", R"(["/2", "/3"])",
            ": units[1].files[1].targetPaths has more than one path, and a file for one board "
            "takes one");

        row("no target", R"(, "targetPaths": ["/mcu"])", "",
            ": units[0].files[0].targetPaths is missing");
        row("no target in the list", target, "[]", ": units[0].files[0].targetPaths is empty");
        row("target is no list", target, "\"/mcu\"", ": units[0].files[0].targetPaths is no array");
        row("empty target", target, R"([""])", ": units[0].files[0].targetPaths[0] is empty");
        row("target is no text", target, "[1]", ": units[0].files[0].targetPaths[0] is no text");
        row("target twice", target, R"(["/a", "/a"])",
            ": units[0].files[0].targetPaths[1] is given twice");
        row("target outside ASCII", target, R"(["/é"])",
            ": units[0].files[0].targetPaths[0] has characters outside ASCII");
        row("target with a line break", target, R"(["/a\n"])",
            ": units[0].files[0].targetPaths[0] has characters outside ASCII");
        row("target too long", target, "[\"" + QByteArray(256, 'p') + "\"]",
            ": units[0].files[0].targetPaths[0] is longer than 255 bytes");

        row("target of blanks", target, R"([" "])",
            ": units[0].files[0].targetPaths[0] has nothing but blanks");
        row("target that names no file", target, R"(["/./"])",
            ": units[0].files[0].targetPaths[0] names no file");
        row("target in another notation", target, R"(["/a", ".//a/"])",
            ": units[0].files[0].targetPaths[1] is the same place as "
            "units[0].files[0].targetPaths[0]");
        row("target of another file", target, R"(["/a"])",
            ": units[0].files[1].targetPaths[0] is the same place as "
            "units[0].files[0].targetPaths[0]");
        row("target below a file", target, R"(["/f", "/f/x/y"])",
            ": units[0].files[0].targetPaths[1] lies below units[0].files[0].targetPaths[0], "
            "which is a file");
        row("target that is a folder", target, R"(["/f/x/y", "/f/x/z", "/f"])",
            ": units[0].files[0].targetPaths[2] is a folder for units[0].files[0].targetPaths[0]");
        row("target of another board", R"(["/2"])", R"(["/1"])",
            ": units[1].files[1].targetPaths[0] is the same place as "
            "units[1].files[0].targetPaths[0]");
        row("card's target of a main unit", R"(["/2"])", R"(["/mcu"])",
            ": units[1].files[1].targetPaths[0] is the same place as "
            "units[0].files[0].targetPaths[0]");
        row("card's target below a main unit's", R"(["/2"])", R"(["/a/2"])",
            ": units[1].files[1].targetPaths[0] lies below units[0].files[1].targetPaths[0], "
            "which is a file");
        row("data file at a card's target", R"(["/osd"])", R"(["/2"])",
            ": dataFiles[0].targetPaths[0] is the same place as "
            "units[1].files[1].targetPaths[0]");
        row("data file at a main unit's target", R"(["/osd"])", R"(["/b"])",
            ": dataFiles[0].targetPaths[0] is the same place as "
            "units[0].files[1].targetPaths[1]");
        row("data files with one target", R"(["/font"])", R"(["/osd"])",
            ": dataFiles[1].targetPaths[0] is the same place as dataFiles[0].targetPaths[0]");

        row("command without a name", R"("cmdName": "SendDeviceID")", R"("data": "x")",
            ": units[0].files[0].commands[1].cmdName is missing");
        row("command that is none", R"("cmdName": "SendDeviceID")", R"("cmdName": "SendDeviceId")",
            ": units[0].files[0].commands[1].cmdName is none of SendCardIndex, SendDeviceID, "
            "SendSenderFileType, SendFileLength, SendFileCount, SendFileData, SendSubCarIndex");
        row("address beyond 32 bits", "\"0x80000010\"", "\"0x100000000\"",
            ": units[0].files[0].commands[0].address is no number from -2147483648 to 4294967295");
        row("address with a fraction", "\"0x80000010\"", "1.5",
            ": units[0].files[0].commands[0].address is no number from -2147483648 to 4294967295");
        row("address in words", "\"0x80000010\"", "\"here\"",
            ": units[0].files[0].commands[0].address is no number from -2147483648 to 4294967295");
        row("address with a blank", "\"0x80000010\"", "\" 1\"",
            ": units[0].files[0].commands[0].address is no number from -2147483648 to 4294967295");
        row("negative hexadecimal address", "\"0x80000010\"", "\"0x-1\"",
            ": units[0].files[0].commands[0].address is no number from -2147483648 to 4294967295");
        row("flag in words", R"("data": "2")", R"("isCommonCmd": "true")",
            ": units[0].files[0].commands[0].isCommonCmd is neither true nor false");

        row("data file that leads out", osd, R"("path": "../osd.json")",
            ": dataFiles[0].path is no name of a file or folder");
        row("data file with an empty step", osd, R"("path": "main//osd.json")",
            ": dataFiles[0].path is no name of a file or folder");
        row("data file that is never sent", osd, R"("path": "fonts/big.dat")",
            ": dataFiles[0].path ends neither in \".json\" nor in \"font12.dat\", and nothing "
            "else is sent as a data file");
        row("data file twice", osd, R"("path": "fonts/font12.dat")",
            ": dataFiles[1].path names the file fonts/font12.dat a second time");
        row("missing data file", osd, R"("path": "main/none.json")",
            ": dataFiles[0].path names the file FOLDER/main/none.json, which is not there");
        row("data file in 17 folders", osd,
            R"("path": ")" + QByteArray("a/").repeated(17) + R"(osd.json")",
            ": dataFiles[0].path lies in more than 16 folders");
        row("data file in 16 folders", osd,
            R"("path": ")" + QByteArray("a/").repeated(16) + R"(osd.json")",
            ": dataFiles[0].path names the file FOLDER/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/a/osd.json, "
            "which is not there");
        row("data file with a long path", osd,
            "\"path\": \"" + QByteArray(200, 'a').append('/').repeated(5)
                + "1234567890.12345.json\"",
            ": dataFiles[0].path is longer than 1024 bytes");
        row("data file in a folder called as a description", osd, R"("path": "a.xml/osd.json")",
            ": dataFiles[0].path ends in \".xml\", which is for descriptions only");
    }
    void unsound()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(QString, error);
        QByteArray text = manifest("sound");
        const int at = text.indexOf(from);
        QVERIFY2(at >= 0, "the row changes nothing");
        write(text.replace(at, from.size(), to), "manifest.json");
        PackageManifest result;
        result.plainFolder = QStringLiteral("former");
        QString errorText;

        QVERIFY(!readPackageManifest(path("manifest.json"), result, errorText));

        QCOMPARE(errorText,
                 path("manifest.json") + error.replace(QStringLiteral("FOLDER"), m_folder.path()));
        QCOMPARE(result.plainFolder, QStringLiteral("former"));
    }

    void topLevelIsNoObject()
    {
        write("[]", "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY(!readPackageManifest(path("manifest.json"), result, errorText));

        QCOMPARE(errorText, path("manifest.json") + ": the manifest is no object");
    }

    void noUnits()
    {
        write("{\"manifestVersion\": 1, \"units\": []}", "manifest.json");
        PackageManifest result;
        QString errorText;

        QVERIFY(!readPackageManifest(path("manifest.json"), result, errorText));

        QCOMPARE(errorText, path("manifest.json") + ": units is empty");
    }

    void noManifest()
    {
        PackageManifest result;
        QString errorText;

        QVERIFY(!readPackageManifest(path("none.json"), result, errorText));

        QCOMPARE(errorText, path("none.json") + ": No such file or directory");
    }

private:
    QString path(const char *name) const { return m_folder.filePath(QString::fromUtf8(name)); }

    void write(const QByteArray &contents, const char *name)
    {
        QVERIFY(QDir().mkpath(QFileInfo(path(name)).path()));
        // A file that is truncated and written again is flushed to disk by some file systems.
        QFile::remove(path(name));
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(contents), qint64(contents.size()));
    }

    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(tst_PackageManifest)

#include "tst_packagemanifest.moc"
