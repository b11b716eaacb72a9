#include "commands.h"
#include "support/unprivileged.h"

#include <tzcryptrc2/cryptrc2.h>

#include <QtTest>

#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>

using Velmar::Package::CommandLine;

Q_DECLARE_METATYPE(CommandLine::Action)

namespace {

struct Outcome {
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;
};

// A sound image with one body of ten bytes for "a".
QByteArray tenBytes()
{
    return QByteArray::fromHex("1201000004030201a801000177") + QByteArray(243, '\0') + 'a'
        + QByteArray(255, '\0') + QByteArray::fromHex("080100000a000000") + "0123456789"
        + QByteArray::fromHex("d657");
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be opened)");
}

} // namespace

/*! Runs the program as its users do. */
class tst_VelmarPackage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_folder.reset(new QTemporaryDir);
        QVERIFY(m_folder->isValid());
    }

    void commandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("error");

        const auto row = [](const char *name, const char *words, const char *error) {
            QTest::newRow(name) << QString::fromLatin1(words).split(u' ', Qt::SkipEmptyParts)
                                << QByteArray(error);
        };
        row("nothing", "", "No verb is given. See velmar-package --help");
        row("unknown verb", "pack a b", "There is no verb \"pack\". See velmar-package --help");
        row("unknown option", "image --fast a",
            "There is no option \"--fast\". See velmar-package image --help");
        row("option without its value", "encipher a b --key-file",
            "--key-file needs a value, FILE. See velmar-package encipher --help");
        row("one path of two", "encipher a", "OUT is missing. See velmar-package encipher --help");
        row("a path too many", "image a b",
            "Unexpected argument \"b\". See velmar-package image --help");
        row("JSON of a file", "decipher a b --json",
            "There is no option \"--json\". See velmar-package decipher --help");
        row("key of an image", "image a --key-file k",
            "There is no option \"--key-file\". See velmar-package image --help");
        row("force of an image", "image a --force",
            "There is no option \"--force\". See velmar-package image --help");
    }
    void commandLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, error);

        const Outcome outcome = run(arguments);

        QCOMPARE(outcome.errors, "velmar-package: " + error + "\n");
        QCOMPARE(outcome.output, QByteArray());
        QCOMPARE(outcome.exitCode, 64);
    }

    void help()
    {
        const Outcome outcome = run({ QStringLiteral("--help") });

        QVERIFY(outcome.output.startsWith("Usage: velmar-package VERB [options]\n"));
        QCOMPARE(outcome.errors, QByteArray());
        QCOMPARE(outcome.exitCode, 0);
    }

    void version()
    {
        const Outcome outcome = run({ QStringLiteral("--version") });

        QCOMPARE(outcome.output, QByteArray("velmar-package " VELMAR_VERSION "\n"));
        QCOMPARE(outcome.exitCode, 0);
    }

    void outputThatIsFull()
    {
        const Outcome outcome = run({ QStringLiteral("--help") }, QStringLiteral("/dev/full"));

        QCOMPARE(outcome.errors,
                 QByteArray("velmar-package: standard output: No space left on "
                            "device\n"));
        QCOMPARE(outcome.exitCode, 74);
    }

    void thereAndBack()
    {
        write("plain bytes", "in");

        QCOMPARE(run("encipher in enciphered").exitCode, 0);
        QCOMPARE(run("decipher enciphered out").exitCode, 0);

        QVERIFY(read("enciphered").startsWith("VRC2"));
        QCOMPARE(read("out"), QByteArray("plain bytes"));
    }

    void keyFile()
    {
        write("plain bytes", "in");
        write("key = 00112233445566778899\n", "key");
        QCOMPARE(run("encipher in enciphered --key-file key").exitCode, 0);

        QCOMPARE(run("decipher enciphered out --key-file key").exitCode, 0);
        QCOMPARE(read("out"), QByteArray("plain bytes"));

        const Outcome outcome = run("decipher enciphered other");
        QCOMPARE(outcome.errors,
                 QByteArray("velmar-package: Failed to decipher enciphered: The file is damaged, "
                            "or enciphered with another key.\n"));
        QCOMPARE(outcome.exitCode, 65);
        QVERIFY(!exists("other"));
    }

    void badKeyFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("error");
        QTest::addColumn<int>("exitCode");

        QTest::newRow("malformed") << QStringLiteral("bad")
                                   << QByteArray("bad, line 1: only \"key = ...\" and "
                                                 "\"effective-bits = ...\" are known")
                                   << 65;
        QTest::newRow("missing") << QStringLiteral("none")
                                 << QByteArray("none: No such file or directory") << 66;
    }
    void badKeyFile()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, error);
        write("plain bytes", "in");
        write("password", "bad");

        const Outcome outcome = run("encipher in out --key-file " + name);

        QCOMPARE(outcome.errors, "velmar-package: " + error + '\n');
        QTEST(outcome.exitCode, "exitCode");
        QVERIFY(!exists("out"));
    }

    void convertFailures_data()
    {
        QTest::addColumn<QString>("words");
        QTest::addColumn<QByteArray>("error");
        QTest::addColumn<int>("exitCode");

        const auto row = [](const char *name, const char *words, const char *error, int exitCode) {
            QTest::newRow(name) << QString::fromLatin1(words) << QByteArray(error) << exitCode;
        };
        row("missing input", "encipher none out", "none: no such file", 66);
        row("folder as input", "decipher . out", ".: no such file", 66);
        row("output is there", "encipher in former", "former is there already", 73);
        row("input itself", "encipher in in", "in is there already", 73);
        row("input itself, by force", "encipher in in --force",
            "Failed to encipher in: Source and target are the same file.", 73);
        row("folder as output, by force", "encipher in folder --force",
            "Failed to encipher in: The target is there and not a file.", 73);
        row("output in a missing folder", "encipher in none/out",
            "Failed to encipher in: none/out: No such file or directory", 73);
        row("deciphered output in a missing folder", "decipher in none/out",
            "Failed to decipher in: none/out: No such file or directory", 73);
        row("file as the output's folder", "encipher in former/out",
            "Failed to encipher in: former/out: Not a directory", 73);
        row("plain file", "decipher in out",
            "Failed to decipher in: The file is cut off or not enciphered.", 65);
    }
    void convertFailures()
    {
        QFETCH(QString, words);
        QFETCH(QByteArray, error);
        write("plain bytes", "in");
        write("former", "former");
        QVERIFY(QDir(m_folder->path()).mkdir(QStringLiteral("folder")));

        const Outcome outcome = run(words);

        QCOMPARE(outcome.errors, "velmar-package: " + error + '\n');
        QTEST(outcome.exitCode, "exitCode");
        QCOMPARE(read("in"), QByteArray("plain bytes"));
        QCOMPARE(read("former"), QByteArray("former"));
        QVERIFY(!exists("out"));
    }

    void fullDiskOfAFile_data()
    {
        QTest::addColumn<QString>("words");

        QTest::newRow("encipher") << QStringLiteral("encipher in out");
        QTest::newRow("decipher") << QStringLiteral("decipher enciphered out");
    }
    void fullDiskOfAFile()
    {
        QFETCH(QString, words);
        write(QByteArray(100000, 'f'), "in");
        QCOMPARE(run("encipher in enciphered").exitCode, 0);

        const Outcome outcome =
            runShell(qPrintable("trap '' XFSZ; ulimit -f 8; exec \"$0\" " + words));

        QVERIFY(outcome.errors.contains("The disk is full."));
        QCOMPARE(outcome.exitCode, 74);
        QVERIFY(!exists("out"));
    }

    void emptyPath_data()
    {
        QTest::addColumn<QStringList>("arguments");

        QTest::addColumn<QByteArray>("error");

        QTest::newRow("input") << QStringList({ "image", "" })
                               << QByteArray("FILE is empty. See velmar-package image --help");
        QTest::newRow("output") << QStringList({ "encipher", "in", "" })
                                << QByteArray("OUT is empty. See velmar-package encipher --help");
        QTest::newRow("package") << QStringList({ "create", "manifest.json", "" })
                                 << QByteArray("OUTDIR is empty. See velmar-package create --help");
        QTest::newRow("key file") << QStringList({ "encipher", "in", "out", "--key-file", "" })
                                  << QByteArray("--key-file: an empty path names nothing. See "
                                                "velmar-package encipher --help");
    }
    void emptyPath()
    {
        QFETCH(QStringList, arguments);
        write("plain bytes", "in");

        const Outcome outcome = run(arguments);

        QFETCH(QByteArray, error);
        QCOMPARE(outcome.errors, "velmar-package: " + error + "\n");
        QCOMPARE(outcome.exitCode, 64);
    }

    void failureKeepsTheFormerOutput()
    {
        write("plain bytes", "in");
        write("former", "out");

        QCOMPARE(run("decipher in out --force").exitCode, 65);

        QCOMPARE(read("out"), QByteArray("former"));
    }

    void interruptedFile_data()
    {
        QTest::addColumn<int>("signal");

        QTest::newRow("from the keyboard") << SIGINT;
        QTest::newRow("termination") << SIGTERM;
        QTest::newRow("without mercy") << SIGKILL;
    }
    void interruptedFile()
    {
        QFETCH(int, signal);
        writeHole("in");
        QProcess process;
        process.setWorkingDirectory(m_folder->path());
        process.start(VELMAR_PACKAGE, { "encipher", "in", "out" });
        QVERIFY(process.waitForStarted());
        QTRY_VERIFY(isWriting(process));

        QCOMPARE(kill(pid_t(process.processId()), signal), 0);

        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);
        QCOMPARE(process.exitCode(), signal);
        QCOMPARE(entries(), QStringList("in"));
    }

    void outputIsReplacedByForce()
    {
        write("plain bytes", "in");
        write("former", "out");

        QCOMPARE(run("encipher in out --force").exitCode, 0);

        QVERIFY(read("out").startsWith("VRC2"));
    }

    void soundImage()
    {
        write(tenBytes(), "image");

        const Outcome outcome = run("image image");

        QCOMPARE(outcome.output,
                 QByteArray("size         532\n"
                            "data length  274\n"
                            "version      1.2.3.4\n"
                            "mark         0xa8\n"
                            "files        1\n"
                            "model        0x7701\n"
                            "sum          0x57d6\n"
                            "\n"
                            "     #      offset      length  destination\n"
                            "     0         264          10  a\n"
                            "\n"
                            "sound\n"));
        QCOMPARE(outcome.errors, QByteArray());
        QCOMPARE(outcome.exitCode, 0);
    }

    void soundImageAsJson()
    {
        write(tenBytes(), "image");

        const Outcome outcome = run("image image --json");

        const QJsonObject expected {
            { "size", 532 },
            { "sound", true },
            { "faults", QJsonArray() },
            { "header",
              QJsonObject { { "dataLength", 274 },
                            { "version", "1.2.3.4" },
                            { "mark", 168 },
                            { "fileCount", 1 },
                            { "modelId", 0x7701 } } },
            { "records",
              QJsonArray { QJsonObject {
                  { "path", "a" }, { "offset", 264 }, { "length", 10 }, { "position", 520 } } } },
            { "sum", QJsonObject { { "stored", 0x57D6 }, { "computed", 0x57D6 } } },
        };
        QCOMPARE(QJsonDocument::fromJson(outcome.output).object(), expected);
        QCOMPARE(outcome.exitCode, 0);
    }

    void pathThatIsNoUtf8()
    {
        write(tenBytes().replace(256, 2, "\xff\xe9"), "image");

        const Outcome outcome = run("image image --json");

        const QJsonObject record = QJsonDocument::fromJson(outcome.output)
                                       .object()
                                       .value(QLatin1String("records"))
                                       .toArray()
                                       .first()
                                       .toObject();
        QCOMPARE(record.value(QLatin1String("path")).toString(),
                 QString(2, QChar(QChar::ReplacementCharacter)));
        QCOMPARE(record.value(QLatin1String("pathHex")).toString(), QStringLiteral("ffe9"));
    }

    void unsoundImage_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("faults");

        const auto text = [](const char *latin1) {
            return QString::fromLatin1(latin1);
        };
        QTest::newRow("empty file")
            << QByteArray() << QStringList { text("the file has 0 bytes, an image at least 258") };
        QTest::newRow("body changed")
            << tenBytes().replace(525, 1, "0")
            << QStringList { text("the sum is 0x57d6 instead of 0x57d1") };
        QTest::newRow("cut off in its table")
            << tenBytes().left(400)
            << QStringList { text("the data length is 274, but the file has room for 142"),
                             text("the table ends behind record 0 of 1"),
                             text("the sum is 0x0000 instead of 0x55b6") };
    }
    void unsoundImage()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, faults);
        write(bytes, "image");

        const Outcome json = run("image image --json");
        const Outcome text = run("image image");

        const QJsonObject report = QJsonDocument::fromJson(json.output).object();
        QCOMPARE(report.value(QLatin1String("sound")), QJsonValue(false));
        QCOMPARE(report.value(QLatin1String("faults")).toVariant().toStringList(), faults);
        QCOMPARE(json.exitCode, 65);
        QVERIFY(text.output.endsWith(
            "\nunsound: " + faults.join(QStringLiteral("\nunsound: ")).toUtf8() + '\n'));
        QCOMPARE(text.exitCode, 65);
    }

    void pathThatSteersTheTerminal()
    {
        write(tenBytes().replace(256, 5, "\x1b[2J\n"), "image");

        const Outcome outcome = run("image image");

        QVERIFY(outcome.output.contains(" \\x1b[2J\\x0a\n"));
        QVERIFY(!outcome.output.contains('\x1b'));
    }

    // CSI as one character of 8 bits, and a mark that turns the order of what follows.
    void pathThatSteersTheTerminalInJson()
    {
        write(tenBytes().replace(256, 5, "\xC2\x9B\xE2\x80\xAE"), "image");

        const QByteArray output = run("image image --json").output;

        QVERIFY(output.contains("\"path\": \"\\u009b\\u202e\""));
        const QJsonObject report = QJsonDocument::fromJson(output).object();
        QCOMPARE(report.value(QLatin1String("records"))[0][QLatin1String("path")].toString(),
                 QStringLiteral("\u009b\u202e"));
    }

    void keyThatSteersTheTerminal()
    {
        const QByteArray key("\"k\\u001b[31m\\u202ey\"");
        write("{ " + key + ": 1, " + key + ": 2 }", "manifest.json");

        const Outcome outcome = run("create manifest.json package");

        QCOMPARE(outcome.errors,
                 QByteArray("velmar-package: manifest.json, line 1: the key "
                            "\"k\\x1b[31m\\u{202e}y\" is there a second time\n"));
        QCOMPARE(outcome.exitCode, 65);
    }

    void missingImage()
    {
        const Outcome outcome = run("image none");

        QCOMPARE(outcome.errors, QByteArray("velmar-package: none: no such file\n"));
        QCOMPARE(outcome.exitCode, 66);
    }

    void examplePackage()
    {
        const Outcome outcome =
            run({ QStringLiteral("create"), QStringLiteral(VELMAR_EXAMPLE "/manifest.json"),
                  path("package") });

        QCOMPARE(outcome.errors, QByteArray());
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(
            filesBelow(path("package")),
            QStringList({ "DataFilPathCfg.xml", "PackageCfg.xml", "controller/DataPackage.xml",
                          "controller/FPGA.dat", "controller/MCU.dat", "controller/MCU_Back.dat",
                          "controller/font12.dat", "controller/kernel.bin", "controller/osd.json",
                          "dp-sdi-input/DataPackage.xml", "dp-sdi-input/FPGA-board1.dat",
                          "dp-sdi-input/FPGA-board2.dat", "dp-sdi-input/MCU.dat",
                          "dp-sdi-input/SDI.dat", "hdmi-input/DataPackage.xml",
                          "hdmi-input/FPGA.dat", "hdmi-input/MCU.dat", "hdmi-input/edid.bin" }));
        for (const char *name : { "controller/font12.dat", "controller/kernel.bin",
                                  "controller/osd.json", "hdmi-input/edid.bin" })
            QCOMPARE(readFile(path("package/") + name),
                     readFile(QString(VELMAR_EXAMPLE "/") + name));
        for (const char *name :
             { "controller/FPGA.dat", "controller/MCU.dat", "controller/MCU_Back.dat",
               "dp-sdi-input/FPGA-board1.dat", "dp-sdi-input/FPGA-board2.dat",
               "dp-sdi-input/MCU.dat", "dp-sdi-input/SDI.dat", "hdmi-input/FPGA.dat",
               "hdmi-input/MCU.dat" }) {
            QVERIFY(CryptRc2().ReadFileToEncryptOrDecrypt(path("package/") + name, path("plain"),
                                                          CRYPTSTYLE_FILE, CRYPTTYPE_DECRYPT));
            QCOMPARE(read("plain"), readFile(QString(VELMAR_EXAMPLE "/") + name));
        }
    }

    void exampleOfTheManual()
    {
        const QByteArray page = readFile(QStringLiteral(VELMAR_FORMATS "/package-manifest.md"));
        const int begin = page.lastIndexOf("```json\n") + 8;
        write(page.mid(begin, page.indexOf("```", begin) - begin), "manifest.json");
        write("firmware", "controller/MCU.dat");
        write("{}", "controller/osd.json");

        const Outcome outcome = run("create manifest.json package");

        QCOMPARE(outcome.errors, QByteArray());
        QCOMPARE(filesBelow(path("package")),
                 QStringList({ "DataFilPathCfg.xml", "PackageCfg.xml", "controller/DataPackage.xml",
                               "controller/MCU.dat", "controller/osd.json" }));
    }

    void xmlOfAPackage()
    {
        writePlainFolder();

        QCOMPARE(run("create plain/manifest.json package").exitCode, 0);

        QCOMPARE(read("package/PackageCfg.xml"),
                 QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<PackageCfg>\n"
                            "    <string>main &amp; more</string>\n"
                            "</PackageCfg>\n"));
        QCOMPARE(read("package/main & more/DataPackage.xml"),
                 QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<DataPackage DeviceTypes=\"\" Version=\"3.1\" ModuleID=\"0x7701\" "
                            "IsSupportFromScratch=\"false\" StepType=\"0\">\n"
                            "    <EndSendCmd>\n"
                            "        <CommandConfig CmdName=\"SendDeviceID\" Data=\"&lt;&quot;\" "
                            "IsCommonCmd=\"false\" Address=\"0x10\" WaitTime=\"0\" TimeOut=\"0\" "
                            "ExecuteTimes=\"0\" CmdFromNoneType=\"0\" SpecialPackID=\"0\"/>\n"
                            "    </EndSendCmd>\n"
                            "    <FileInfo IsSupportBroadcast=\"false\" IsMCUFile=\"false\" "
                            "IsFileAddrNoIncrease=\"false\" Version=\"\" Remark=\"\" "
                            "FileName=\"MCU.dat\" FileLabel=\"MCU\" Address=\"0\" "
                            "ExtendNum=\"0\"/>\n"
                            "</DataPackage>\n"));
        QCOMPARE(read("package/DataFilPathCfg.xml"),
                 QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                            "<Velmar>\n"
                            "    <File>\n"
                            "        <SrcPath>main &amp; more/MCU.dat</SrcPath>\n"
                            "        <DestPath>/mcu</DestPath>\n"
                            "    </File>\n"
                            "    <File>\n"
                            "        <SrcPath>main &amp; more/MCU.dat</SrcPath>\n"
                            "        <DestPath>/mcu2</DestPath>\n"
                            "    </File>\n"
                            "</Velmar>\n"));
    }

    void packageWithAKey()
    {
        writePlainFolder();
        write("key = 0011\n", "key");

        QCOMPARE(run("create plain/manifest.json package --key-file key").exitCode, 0);

        QCOMPARE(
            run({ "decipher", "package/main & more/MCU.dat", "out", "--key-file", "key" }).exitCode,
            0);
        QCOMPARE(read("out"), QByteArray("firmware"));
    }

    void placeThatIsTaken_data()
    {
        QTest::addColumn<QString>("place");
        QTest::addColumn<bool>("force");
        QTest::addColumn<QByteArray>("error");

        QTest::newRow("a package")
            << QStringLiteral("former") << false << QByteArray("former is there already");
        QTest::newRow("a file, by force")
            << QStringLiteral("file") << true
            << QByteArray("file is no package and will not be replaced");
        QTest::newRow("a folder with other files, by force")
            << QStringLiteral("folder") << true
            << QByteArray("folder is no package and will not be replaced");
        QTest::newRow("a link to a package, by force")
            << QStringLiteral("link") << true
            << QByteArray("link is no package and will not be replaced");
        QTest::newRow("the plain folder, by force")
            << QStringLiteral("plain") << true
            << QByteArray("plain is no package and will not be replaced");
        QTest::newRow("a package that holds the manifest, by force")
            << QStringLiteral("both") << true
            << QByteArray("both holds the manifest and will not be replaced");
        QTest::newRow("a missing folder") << QStringLiteral("none/package") << false
                                          << QByteArray("no folder can be made in FOLDER/none");
    }
    void placeThatIsTaken()
    {
        QFETCH(QString, place);
        QFETCH(bool, force);
        QFETCH(QByteArray, error);
        writePlainFolder();
        QCOMPARE(run("create plain/manifest.json former").exitCode, 0);
        QVERIFY(QFile::link(path("former"), path("link")));
        write("precious", "file");
        write("precious", "folder/file");
        write("<PackageCfg/>", "both/PackageCfg.xml");
        QVERIFY(QFile::rename(path("plain"), path("both/plain")));
        QVERIFY(QFile::link(path("both/plain"), path("plain")));
        const QStringList before = filesBelow(m_folder->path());

        const Outcome outcome =
            run("create plain/manifest.json " + place + (force ? " --force" : ""));

        QCOMPARE(outcome.errors,
                 "velmar-package: " + error.replace("FOLDER", m_folder->path().toUtf8()) + '\n');
        QCOMPARE(outcome.exitCode, 73);
        QCOMPARE(filesBelow(m_folder->path()), before);
    }

    void replacedByForce_data()
    {
        QTest::addColumn<QString>("former");

        QTest::newRow("a package") << QStringLiteral("package/PackageCfg.xml");
        QTest::newRow("an empty folder") << QString();
        QTest::newRow("nothing") << QStringLiteral("elsewhere");
    }
    void replacedByForce()
    {
        QFETCH(QString, former);
        writePlainFolder();
        if (former.isEmpty())
            QVERIFY(QDir(m_folder->path()).mkdir(QStringLiteral("package")));
        else
            write("former", former.toUtf8().constData());
        if (former.startsWith(QLatin1String("package")))
            write("former", "package/old.bin");

        const Outcome outcome = run("create plain/manifest.json package/ --force");

        QCOMPARE(outcome.errors, QByteArray());
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(filesBelow(path("package")),
                 QStringList({ "DataFilPathCfg.xml", "PackageCfg.xml",
                               "main & more/DataPackage.xml", "main & more/MCU.dat" }));
        QCOMPARE(QDir(m_folder->path())
                     .entryList(QDir::Hidden | QDir::Dirs | QDir::NoDotAndDotDot)
                     .filter(QRegularExpression(QStringLiteral("^\\."))),
                 QStringList());
    }

    void longestName_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("exitCode");

        QTest::newRow("longest") << 255 << 0;
        QTest::newRow("too long") << 256 << 73;
    }
    void longestName()
    {
        QFETCH(int, length);
        writePlainFolder();
        const QString name(length, u'n');

        QTEST(run("create plain/manifest.json " + name).exitCode, "exitCode");

        QCOMPARE(entries(), length == 255 ? QStringList({ name, "plain" }) : QStringList("plain"));
    }

    void interruptedPackage_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QString>("file");

        QTest::newRow("from the keyboard, enciphering") << SIGINT << QStringLiteral("MCU.dat");
        QTest::newRow("termination, enciphering") << SIGTERM << QStringLiteral("MCU.dat");
        QTest::newRow("termination, copying") << SIGTERM << QStringLiteral("MCU.bin");
        QTest::newRow("terminal closed, enciphering") << SIGHUP << QStringLiteral("MCU.dat");
    }
    void interruptedPackage()
    {
        QFETCH(int, signal);
        QFETCH(QString, file);
        writePlainFolder();
        const QByteArray text = read("plain/manifest.json");
        write(QByteArray(text).replace("MCU.dat", file.toUtf8()), "plain/manifest.json");
        writeHole(qPrintable("plain/main & more/" + file));
        QProcess process;
        startCreate(process);
        QTRY_VERIFY(isWriting(process));

        QCOMPARE(kill(pid_t(process.processId()), signal), 0);

        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);
        QCOMPARE(process.exitCode(), signal);
        QCOMPARE(entries(), QStringList("plain"));
    }

    void leftoverOfAKilledRun()
    {
        writePlainFolder();
        writeHole("plain/main & more/MCU.dat");
        QProcess process;
        startCreate(process);
        QTRY_VERIFY(isWriting(process));
        process.kill();
        QVERIFY(process.waitForFinished());
        QCOMPARE(entries().size(), 2);
        write("precious", ".velmar-package-/file");
        write("firmware", "plain/main & more/MCU.dat");

        QCOMPARE(run("create plain/manifest.json other").exitCode, 0);
        QCOMPARE(entries().size(), 4); // that of another place stays

        QCOMPARE(run("create plain/manifest.json package").exitCode, 0);
        QCOMPARE(entries(), QStringList({ ".velmar-package-", "other", "package", "plain" }));
    }

    void runBesideAnother()
    {
        writePlainFolder();
        writeHole("plain/main & more/MCU.dat");
        QProcess process;
        startCreate(process);
        QTRY_VERIFY(isWriting(process));
        const QString growing = entries().first();
        QVERIFY(growing.startsWith(".velmar-package-"));
        QVERIFY(QFile::remove(path("plain/main & more/MCU.dat")));
        write("firmware", "plain/main & more/MCU.dat");

        QCOMPARE(run("create plain/manifest.json package").exitCode, 0);

        QCOMPARE(entries(), QStringList({ growing, "package", "plain" }));
        QVERIFY(isWriting(process));
        process.terminate();
        QVERIFY(process.waitForFinished());
        QCOMPARE(entries(), QStringList({ "package", "plain" }));
    }

    void badManifest()
    {
        writePlainFolder();
        QVERIFY(QFile::remove(path("plain/main & more/MCU.dat")));

        const Outcome outcome = run("create plain/manifest.json package");

        QCOMPARE(outcome.errors,
                 "velmar-package: plain/manifest.json: units[0].files[0].fileName names the file "
                     + m_folder->path().toUtf8()
                     + "/plain/main & more/MCU.dat, which is not there\n");
        QCOMPARE(outcome.exitCode, 65);
        QVERIFY(!exists("package"));
    }

    void folderWithAZeroByte()
    {
        write(
            "{\"manifestVersion\": 1, \"units\": [{ \"folder\": \"u\\u0000\", \"version\": \"1\", "
            "\"moduleId\": 1, \"stepType\": 0, \"files\": [{ \"fileName\": \"a\", "
            "\"fileLabel\": \"MCU\", \"targetPaths\": [\"/a\"] }] }] }",
            "manifest.json");

        const Outcome outcome = run("create manifest.json package");

        QCOMPARE(outcome.errors,
                 QByteArray("velmar-package: manifest.json: units[0].folder contains a character "
                            "that is none of a text\n"));
        QCOMPARE(outcome.exitCode, 65);
    }

    void missingManifest()
    {
        const Outcome outcome = run("create none.json package");

        QCOMPARE(outcome.errors, QByteArray("velmar-package: none.json: no such file\n"));
        QCOMPARE(outcome.exitCode, 66);
    }

    // In this process: one without privileges may find no way to the program.
    void permissions_data()
    {
        QTest::addColumn<CommandLine::Action>("action");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("keyFile");
        QTest::addColumn<QByteArray>("exitCode");

        const QString secret = QStringLiteral("secret");
        const QString manifest = QStringLiteral("plain/manifest.json");
        QTest::newRow("image") << CommandLine::Action::Image << secret << QString()
                               << QByteArray("66");
        QTest::newRow("input") << CommandLine::Action::Encipher << secret << QString()
                               << QByteArray("66");
        QTest::newRow("manifest") << CommandLine::Action::Create << secret << QString()
                                  << QByteArray("66");
        QTest::newRow("key") << CommandLine::Action::Create << manifest << secret
                             << QByteArray("66");
        QTest::newRow("place of the package")
            << CommandLine::Action::Create << manifest << QString() << QByteArray("73");
    }
    void permissions()
    {
        QFETCH(CommandLine::Action, action);
        QFETCH(QString, input);
        QFETCH(QString, keyFile);
        writePlainFolder();
        write("anything", "secret");
        QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));
        QVERIFY(QFile::setPermissions(path("secret"), {}));
        QVERIFY(QFile::setPermissions(m_folder->path(), QFile::ReadOwner | QFile::ExeOwner));
        CommandLine commandLine;
        commandLine.action = action;
        commandLine.input = m_folder->filePath(input);
        commandLine.output = path("out");
        if (!keyFile.isEmpty())
            commandLine.keyFile = m_folder->filePath(keyFile);

        const QByteArray outcome = Unprivileged::run([&commandLine] {
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral(".")));
            return QByteArray::number(int(Velmar::Package::run(commandLine)));
        });

        QTEST(outcome, "exitCode");
        QVERIFY(QFile::setPermissions(m_folder->path(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(!exists("out"));
    }

    void fullDisk()
    {
        writePlainFolder();
        write(QByteArray(100000, 'f'), "plain/main & more/MCU.dat");

        const Outcome outcome = runShell("trap '' XFSZ; ulimit -f 8; exec \"$0\" create "
                                         "plain/manifest.json package");

        QVERIFY(outcome.errors.contains("MCU.dat cannot be enciphered"));
        QCOMPARE(outcome.exitCode, 74);
        QCOMPARE(QDir(m_folder->path())
                     .entryList(QDir::Hidden | QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList(QStringLiteral("plain")));
    }

private:
    QString path(const char *name) const { return m_folder->filePath(QString::fromUtf8(name)); }
    QByteArray read(const char *name) const { return readFile(path(name)); }
    bool exists(const char *name) const { return QFileInfo::exists(path(name)); }

    void write(const QByteArray &contents, const char *name)
    {
        QVERIFY(QDir().mkpath(QFileInfo(path(name)).path()));
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(contents), qint64(contents.size()));
    }

    // So large that no machine enciphers it before a signal arrives. It takes no room on the disk.
    void writeHole(const char *name)
    {
        write("", name);
        QVERIFY(QFile::resize(path(name), qint64(1) << 34));
    }

    void startCreate(QProcess &process)
    {
        process.setWorkingDirectory(m_folder->path());
        process.start(VELMAR_PACKAGE, { "create", "plain/manifest.json", "package" });
        QVERIFY(process.waitForStarted());
    }

    // Has the process a file open in the folder that it writes to?
    bool isWriting(const QProcess &process) const
    {
        const QString descriptors = QStringLiteral("/proc/%1/fd/").arg(process.processId());
        for (int descriptor = 3; descriptor < 64; ++descriptor) {
            const QString number = QString::number(descriptor);
            QFile info(QStringLiteral("/proc/%1/fdinfo/%2").arg(process.processId()).arg(number));
            if (QFile::symLinkTarget(descriptors + number).startsWith(m_folder->path())
                && info.open(QIODevice::ReadOnly) && info.readAll().contains("01\nmnt_id"))
                return true;
        }
        return false;
    }

    QStringList entries() const
    {
        return QDir(m_folder->path())
            .entryList(QDir::Hidden | QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
    }

    void writePlainFolder()
    {
        write("{\"manifestVersion\": 1, \"units\": [{ \"folder\": \"main & more\", "
              "\"version\": \"3.1\", \"moduleId\": 30465, \"stepType\": 0, "
              "\"endSendCommands\": [{ \"cmdName\": \"SendDeviceID\", \"data\": \"<\\\"\", "
              "\"address\": \"0x10\" }], "
              "\"files\": [{ \"fileName\": \"MCU.dat\", \"fileLabel\": \"MCU\", "
              "\"targetPaths\": [\"/mcu\", \"/mcu2\"] }] }] }",
              "plain/manifest.json");
        write("firmware", "plain/main & more/MCU.dat");
    }

    static QStringList filesBelow(const QString &folder)
    {
        QStringList files;
        for (QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System,
                             QDirIterator::Subdirectories);
             it.hasNext();)
            files.append(QDir(folder).relativeFilePath(it.next()));
        files.sort();
        return files;
    }

    Outcome run(const QString &words) { return run(words.split(u' ', Qt::SkipEmptyParts)); }
    Outcome run(const char *words) { return run(QString::fromLatin1(words)); }
    Outcome run(const QStringList &arguments, const QString &output = QString())
    {
        return runProgram(QStringLiteral(VELMAR_PACKAGE), arguments, output);
    }

    Outcome runShell(const char *script)
    {
        return runProgram(
            QStringLiteral("sh"),
            { QStringLiteral("-c"), QString::fromLatin1(script), QStringLiteral(VELMAR_PACKAGE) });
    }

    Outcome runProgram(const QString &program, const QStringList &arguments,
                       const QString &output = QString())
    {
        QProcess process;
        process.setWorkingDirectory(m_folder->path());
        if (!output.isEmpty())
            process.setStandardOutputFile(output);
        process.start(program, arguments);
        Outcome outcome;
        if (process.waitForFinished() && process.exitStatus() == QProcess::NormalExit)
            outcome.exitCode = process.exitCode();
        outcome.output = process.readAllStandardOutput();
        outcome.errors = process.readAllStandardError();
        return outcome;
    }

    QScopedPointer<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(tst_VelmarPackage)

#include "tst_velmarpackage.moc"
