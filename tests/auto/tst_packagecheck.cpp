#include "package/packagecheck.h"

#include "package/packagecopy.h"
#include "support/encipheredfile.h"
#include "support/packagebuilder.h"

#include <tzcryptrc2/cryptkey.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <memory>

using namespace Velmar::Host;

namespace {

/*! One finding a line: "code place: text", with "note" in front of what refuses nothing. */
QStringList lines(const std::vector<PackageFinding> &findings)
{
    QStringList result;
    for (const auto &finding : findings)
        result.append(QStringLiteral("%1%2 %3: %4")
                          .arg(finding.isRefusal ? QString() : QStringLiteral("note "),
                               finding.code, finding.place, finding.text));
    return result;
}

QByteArray attributes(int count)
{
    QByteArray text;
    for (int i = 0; i < count; ++i)
        text += "a" + QByteArray::number(i) + "='' ";
    return text;
}

QByteArray nested(int depth)
{
    return QByteArray("<r>").repeated(depth) + QByteArray("</r>").repeated(depth);
}

} // namespace

class tst_PackageCheck : public QObject
{
    Q_OBJECT

    std::unique_ptr<PackageBuilder> m_package;
    std::unique_ptr<QTemporaryDir> m_folder;

    // As in a run: of the private copy.
    std::vector<PackageFinding> findings(const PackageCheckOptions &checkOptions = {}) const
    {
        PackageCopyOptions options;
        options.baseFolder = m_folder->path();
        const std::atomic<bool> isCancelled { false };
        VerdictCode code = VerdictCode::Internal;
        QString errorText;
        const auto copy =
            PackageCopy::make(m_package->path(), options, isCancelled, code, errorText);
        if (!copy)
            return { { QStringLiteral("copy"), {}, errorText } };
        return checkPackage(copy->path(), copy->manifest(), checkOptions);
    }
    QStringList told() const { return lines(findings()); }

    bool makeIndex() const { return m_package->index({ QStringLiteral("unit") }); }
    bool makePaths() const { return m_package->paths({}); }

    bool makeUnit(const QByteArray &content) const
    {
        return makeIndex() && makePaths()
            && m_package->unit(QStringLiteral("unit"), "ModuleID='7701'", content);
    }

private Q_SLOTS:
    void init()
    {
        m_package = std::make_unique<PackageBuilder>();
        m_folder = std::make_unique<QTemporaryDir>();
    }

    void cleanup() { QVERIFY(TZ::setCryptKey(TZ::demonstrationCryptKey())); }

    void soundPackage()
    {
        QVERIFY(m_package->index({ "controller", "cards/hdmi" }));
        QVERIFY(m_package->file(
            "controller/DataPackage.xml",
            "\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?>\n<!-- unit -->\n"
            "<DataPackage ModuleID='0x7701' StepType='0' IsSupportFromScratch='true' Colour='red'>"
            "<BeforeStartCmd><CommandConfig CmdName='SendDeviceID'/></BeforeStartCmd>"
            "<EndSendCmd><CommandConfig CmdName='SendSubCarIndex'/></EndSendCmd>"
            "<FileInfo FileName='MCU.dat' FileLabel='MCU' Address='0xFFFFFFFF' ExtendNum='-1'>"
            "<CommandConfig CmdName='SendCardIndex' Data='0' Address='4294967295'/>"
            "<CommandConfig CmdName='SendSenderFileType' Data='1-0'/>"
            "<CommandConfig CmdName='SendFileLength'/><CommandConfig CmdName='SendFileCount'/>"
            "<CommandConfig CmdName='SendFileData'/></FileInfo>"
            "<FileInfo FileName='sub/kernel.bin' FileLabel='Kernel'/>"
            "<Unknown><FileInfo FileName='../x'/><CommandConfig CmdName='y'/></Unknown>"
            "</DataPackage>"));
        QVERIFY(storeEnciphered(m_package->path("controller/MCU.dat"), "firmware"));
        QVERIFY(m_package->file("controller/sub/kernel.bin"));
        QVERIFY(m_package->file("controller/font12.dat", "plain"));
        QVERIFY(m_package->file("controller/.hidden.xml", "no description"));
        QVERIFY(m_package->file(
            QStringLiteral("cards/hdmi/gr\u00fc\u00df.xml"),
            QStringLiteral("<DataPackage ModuleID='7801' Version='gr\u00fc\u00df'/>").toUtf8()));
        QVERIFY(m_package->paths({ { "controller/MCU.dat", "/firmware/mcu.bin" },
                                   { "controller/font12.dat", QString(255, 'a') },
                                   { "controller/sub/kernel.bin", "~ !" } }));
        QCOMPARE(told(), QStringList());
    }

    void texts_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("finding"); // %1: the file

        QTest::newRow("document type") << QByteArray("<?xml version='1.0'?>\n<!DOCTYPE r>\n<r/>")
                                       << "document-type %1:2: A document type is not allowed.";
        QTest::newRow("entities in a document type")
            << QByteArray("<!DOCTYPE r [<!ENTITY a 'aa'><!ENTITY b '&a;&a;'>]><r>&b;</r>")
            << "document-type %1:1: A document type is not allowed.";
        QTest::newRow("bytes that are no UTF-8") << QByteArray("<r>\n<!-- gr\xFC\xDF --></r>")
                                                 << "not-utf-8 %1:2: The file is not in UTF-8.";
        QTest::newRow("overlong UTF-8")
            << QByteArray("<r>\xC0\xAF</r>") << "not-utf-8 %1:1: The file is not in UTF-8.";
        QTest::newRow("surrogate in UTF-8")
            << QByteArray("<r>\xED\xA0\x80</r>") << "not-utf-8 %1:1: The file is not in UTF-8.";
        QTest::newRow("UTF-16") << QByteArray("\xFF\xFE<\0r\0/\0>\0", 10)
                                << "not-utf-8 %1:1: The file is not in UTF-8.";
        QTest::newRow("UTF-16 without its mark")
            << QByteArray("<\0r\0/\0>\0", 8) << "not-utf-8 %1:1: The file is not in UTF-8.";
        QTest::newRow("another encoding told")
            << QByteArray("<?xml version='1.0' encoding='ISO-8859-1'?>\n<r/>")
            << "not-utf-8 %1:1: The file says that it is in ISO-8859-1 instead of UTF-8.";
        QTest::newRow("nested too deep")
            << nested(17) << "too-deep %1:1: Elements are nested more than 16 deep.";
        QTest::newRow("too large") << "<r>" + QByteArray(16 * 1024 * 1024, ' ') + "</r>"
                                   << "too-large %1: The file is larger than 16 MiB.";
        QTest::newRow("empty") << QByteArray("") << "not-xml %1:1: Premature end of document.";
        QTest::newRow("no XML") << QByteArray("hello\n") << "not-xml %1:1: Start tag expected.";
        QTest::newRow("a zero") << QByteArray("<r>\0</r>", 8) << "not-xml %1:1: Unexpected ''.";
        QTest::newRow("unknown entity")
            << QByteArray("<r>&e;</r>") << "not-xml %1:1: Entity 'e' not declared.";
        QTest::newRow("doubled attribute")
            << QByteArray("<r a='1' a='2'/>") << "not-xml %1:1: Attribute 'a' redefined.";
        // The upgrade library drops it, and then ends the instruction in front of the comment.
        QTest::newRow("carriage return alone")
            << QByteArray("<r>\r\n<?a ?\r><!--?> --></r>")
            << "carriage-return %1:2: A carriage return stands without a line feed.";
        QTest::newRow("carriage return at the end")
            << QByteArray("<r/>\n\r")
            << "carriage-return %1:2: A carriage return stands without a line feed.";
        QTest::newRow("reference to more than 16 bits")
            << QByteArray("<r>\n&#65601;</r>")
            << "character-reference %1:2: A number stands for a character beyond U+FFFF.";
        QTest::newRow("hexadecimal reference to more than 16 bits")
            << QByteArray("<r>&#xA;&#x0010041;</r>")
            << "character-reference %1:1: A number stands for a character beyond U+FFFF.";
        QTest::newRow("many attributes")
            << "<r>\n<!-- ' <r -->\n<s " + attributes(65) + "/></r>"
            << "too-many-attributes %1:3: An element has more than 64 attributes.";
        QTest::newRow("many attributes with every trap for who counts them")
            << "<r><![CDATA[<']]><?a '?><s b='>\"' c=\">'\" " + attributes(63) + "/></r>"
            << "too-many-attributes %1:1: An element has more than 64 attributes.";
        QTest::newRow("many elements") << "<r>" + QByteArray("<s/>").repeated(250'000) + "</r>"
                                       << "too-many-elements %1:1: The package's XML files have "
                                          "more than 250000 elements.";
    }
    void indexText_data() { texts_data(); }
    void indexText()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, finding);
        QVERIFY(m_package->file("PackageCfg.xml", text));
        QCOMPARE(told(), QStringList(finding.arg("PackageCfg.xml")));
    }

    void pathText_data() { texts_data(); }
    void pathText()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, finding);
        QVERIFY(m_package->index({}));
        // Another root would be told as well.
        QVERIFY(m_package->file("DataFilPathCfg.xml",
                                text.replace("<r", "<Velmar").replace("/r>", "/Velmar>")));
        auto expected = QStringList(finding.arg("DataFilPathCfg.xml"));
        if (finding.startsWith("too-many-elements")) // the first of them is an entry
            expected.prepend(
                "incomplete-entry DataFilPathCfg.xml:1: The entry has no \"SrcPath\".");
        QCOMPARE(told(), expected);
    }

    void descriptionText_data() { texts_data(); }
    void descriptionText()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, finding);
        QVERIFY(makeIndex() && makePaths());
        QVERIFY(m_package->file(
            "unit/a.xml", text.replace("<r", "<DataPackage").replace("/r>", "/DataPackage>")));
        auto expected = QStringList(finding.arg("unit/a.xml"));
        if (finding.startsWith("too-deep")) // a package within the package is a fault of its own
            expected.prepend("misplaced-element unit/a.xml:1: The element \"DataPackage\" does not "
                             "belong here.");
        QCOMPARE(told(), expected);
    }

    void almostTooMuch()
    {
        QVERIFY(m_package->file("PackageCfg.xml",
                                "<r>\r\n<s " + attributes(64) + "/>&#xFFFD;&#65533; &amp;#65601;"
                                    + QByteArray("<s/>").repeated(249'997) + "</r>\r\n"));
        QVERIFY(makePaths());
        QCOMPARE(told(), QStringList());
    }

    // The upgrade library takes away the blanks of a piece that has nothing else.
    void unitNameInPieces_data()
    {
        QTest::addColumn<QByteArray>("name");

        QTest::newRow("comment") << QByteArray(" <!-- -->unit");
        QTest::newRow("CDATA") << QByteArray("un<![CDATA[ ]]>it");
        QTest::newRow("element") << QByteArray("unit<b> </b>");
        QTest::newRow("instruction") << QByteArray("unit<?a?> ");
    }
    void unitNameInPieces()
    {
        QFETCH(QByteArray, name);
        QVERIFY(m_package->file("PackageCfg.xml", "<r>\n<string>" + name + "</string></r>"));
        QVERIFY(makePaths());
        QCOMPARE(told(),
                 QStringList("split-name PackageCfg.xml:2: The name of a unit's folder is not "
                             "written in one piece."));
    }

    void deepestNesting()
    {
        QVERIFY(m_package->file("PackageCfg.xml", nested(16)));
        QVERIFY(makePaths());
        QCOMPARE(told(), QStringList());
    }

    void missingFilesOfThePackage()
    {
        QVERIFY(m_package->file("other"));
        QCOMPARE(told(), QStringList("no-file PackageCfg.xml: There is no such file."));
        QVERIFY(m_package->index({}));
        QCOMPARE(told(), QStringList("note no-file DataFilPathCfg.xml: There is no such file."));
        QVERIFY(QDir(m_package->path()).mkdir("DataFilPathCfg.xml"));
        QCOMPARE(told(), QStringList("note no-file DataFilPathCfg.xml: There is no such file."));
    }

    void names_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("fault");

        QTest::newRow("upwards") << "../x"
                                 << "leads upwards with \"..\"";
        QTest::newRow("upwards in the middle") << "x/../../y"
                                               << "leads upwards with \"..\"";
        QTest::newRow("upwards at the end") << "x/.."
                                            << "leads upwards with \"..\"";
        QTest::newRow("absolute") << "/etc/passwd"
                                  << "is absolute";
        QTest::newRow("backslash") << "..\\x"
                                   << "has a \"\\\"";
        QTest::newRow("here") << "./x"
                              << "has an empty name or \".\" between its \"/\"";
        QTest::newRow("two slashes") << "x//y"
                                     << "has an empty name or \".\" between its \"/\"";
        QTest::newRow("slash at the end") << "x/"
                                          << "has an empty name or \".\" between its \"/\"";
        QTest::newRow("line feed") << "x\ny"
                                   << "has a control character";
        QTest::newRow("delete") << "x\x7Fy"
                                << "has a control character";
        QTest::newRow("control character above ASCII")
            << QStringLiteral("x\u0085y") << "has a control character";
        QTest::newRow("empty") << ""
                               << "is empty";
        QTest::newRow("blanks") << "  "
                                << "is empty";
    }
    static QString escaped(const QString &name)
    {
        // An attribute, unlike a text, has a blank for each line feed that is not written so.
        return name.toHtmlEscaped().replace('\n', "&#10;");
    }

    void unitNames_data() { names_data(); }
    void unitNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, fault);
        QVERIFY(m_package->index({ name }));
        QVERIFY(makePaths());
        QCOMPARE(told(),
                 QStringList(QStringLiteral("unit-name PackageCfg.xml: The name of the unit's "
                                            "folder, \"%1\", %2.")
                                 .arg(name, fault)));
    }

    void fileNames_data() { names_data(); }
    void fileNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, fault);
        QVERIFY(makeUnit("\n<FileInfo FileName='" + escaped(name).toUtf8() + "'/>"));
        QCOMPARE(told(),
                 QStringList(QStringLiteral("file-name unit/unit.xml:2: The name of the file, "
                                            "\"%1\", %2.")
                                 .arg(name, fault)));
    }

    void sourceNames_data() { names_data(); }
    void sourceNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, fault);
        QVERIFY(m_package->index({}));
        QVERIFY(m_package->paths({ { name, "/x" } }));
        QCOMPARE(told(),
                 QStringList(QStringLiteral("source-name DataFilPathCfg.xml:2: The name of the "
                                            "file, \"%1\", %2.")
                                 .arg(name, fault)));
    }

    void filesThemselves_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("isFolder");
        QTest::addColumn<QString>("finding");

        const QString image =
            "reserved-name upgrade: The upgrade writes its image under this name.";
        QTest::newRow("file upgrade") << "upgrade" << false << image;
        QTest::newRow("folder upgrade") << "upgrade" << true << image;
        QTest::newRow("upgrade in a folder") << "unit/upgrade" << false << "";
        QTest::newRow("upgrade with more behind it") << "upgrade.bin" << false << "";
        const QString plain = "reserved-name %1: The upgrade writes deciphered files under names "
                              "that end in \"_dn\".";
        QTest::newRow("deciphered file") << "a.dat_dn" << false << plain;
        QTest::newRow("deciphered file in a folder") << "x/y/a_dn" << false << plain;
        QTest::newRow("folder like a deciphered file") << "x/MCU.dat_dn" << true << plain;
        QTest::newRow("_dn within a name") << "x/a_dn.bin" << false << "";
        QTest::newRow("backslash") << "x/a\\b" << false << "name %1: The name has a \"\\\".";
        QTest::newRow("control character")
            << "x/a\x1B[31m" << true << "name %1: The name has a control character.";
    }
    void filesThemselves()
    {
        QFETCH(QString, path);
        QFETCH(bool, isFolder);
        QFETCH(QString, finding);
        QVERIFY(m_package->index({}));
        QVERIFY(makePaths());
        QVERIFY(isFolder ? QDir(m_package->path()).mkpath(path) : m_package->file(path));
        QStringList expected;
        if (!finding.isEmpty())
            expected.append(finding.contains("%1") ? finding.arg(path) : finding);
        QCOMPARE(told(), expected);
    }

    void descriptions_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("finding");

        const QString none =
            "no-description unit: The unit has no description, a file that ends in \".xml\".";
        QTest::newRow("no folder") << QStringList() << none;
        QTest::newRow("no description") << QStringList { "unit/MCU.bin" } << none;
        QTest::newRow("hidden") << QStringList { "unit/.a.xml" } << none;
        QTest::newRow("in capitals") << QStringList { "unit/a.XML" } << none;
        QTest::newRow("one") << QStringList { "unit/a.xml", "unit/b.XML", "unit/c/d.xml" } << "";
        QTest::newRow("two") << QStringList { "unit/a.xml", "unit/b.xml" }
                             << "several-descriptions unit: The unit has 2 files that end in "
                                "\".xml\"; only one can be its description.";
        QTest::newRow("a folder of such a name")
            << QStringList { "unit/a.xml", "unit/b.xml/file" }
            << "several-descriptions unit: The unit has 2 files that end in \".xml\"; only one can "
               "be its description.";
    }
    void descriptions()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, finding);
        QVERIFY(makeIndex() && makePaths());
        for (const auto &file : files)
            QVERIFY(m_package->file(file, "<DataPackage/>"));
        QCOMPARE(told(), finding.isEmpty() ? QStringList() : QStringList(finding));
    }

    void doubledUnit()
    {
        QVERIFY(m_package->index({ "unit", "unit" }));
        QVERIFY(makePaths());
        QVERIFY(m_package->unit("unit", "ModuleID='1'", "<FileInfo FileName='../x'/>"));
        QCOMPARE(told(),
                 QStringList({ "file-name unit/unit.xml:1: The name of the file, \"../x\", leads "
                               "upwards with \"..\".",
                               "doubled-unit PackageCfg.xml: The index names the folder unit more "
                               "than once." }));
    }

    // The library takes any node of this name for a unit, and an empty name for the package.
    void processingInstructionForAUnit()
    {
        QVERIFY(m_package->file("PackageCfg.xml", "<r><?string unit?></r>"));
        QVERIFY(makePaths());
        QCOMPARE(told(),
                 QStringList("unit-name PackageCfg.xml: The name of the unit's folder, \"\", is "
                             "empty."));
    }

    void descriptionRules_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("finding");

        const auto row = [](const char *name, const char *xml, const char *finding) {
            QTest::newRow(name) << QByteArray(xml) << QString(finding);
        };
        row("another root", "<Package/>",
            "wrong-root unit/unit.xml:1: The root element is \"Package\" instead of "
            "\"DataPackage\".");
        row("root with a prefix", "<p:DataPackage xmlns:p='x'/>",
            "wrong-root unit/unit.xml:1: The root element is \"p:DataPackage\" instead of "
            "\"DataPackage\".");
        row("unknown command in a file",
            "<DataPackage><FileInfo FileName='a'>\n<CommandConfig CmdName='sendfiledata'/>"
            "</FileInfo></DataPackage>",
            "unknown-command unit/unit.xml:2: There is no command \"sendfiledata\".");
        row("unknown command at the end",
            "<DataPackage><EndSendCmd>\n\n<CommandConfig CmdName='Reboot'/></EndSendCmd>"
            "</DataPackage>",
            "unknown-command unit/unit.xml:3: There is no command \"Reboot\".");
        row("unknown command at the start",
            "<DataPackage><BeforeStartCmd><CommandConfig/></BeforeStartCmd></DataPackage>",
            "unknown-command unit/unit.xml:1: There is no command \"\".");
        row("command of the package itself",
            "<DataPackage><CommandConfig CmdName='SendFileData'/></DataPackage>",
            "misplaced-element unit/unit.xml:1: The element \"CommandConfig\" does not belong "
            "here.");
        row("file within a file",
            "<DataPackage><FileInfo FileName='a'><FileInfo FileName='a'/></FileInfo>"
            "</DataPackage>",
            "misplaced-element unit/unit.xml:1: The element \"FileInfo\" does not belong here.");
        row("file at the end",
            "<DataPackage><EndSendCmd><FileInfo FileName='a'/></EndSendCmd></DataPackage>",
            "misplaced-element unit/unit.xml:1: The element \"FileInfo\" does not belong here.");
        row("command within a command",
            "<DataPackage><EndSendCmd><CommandConfig CmdName='SendDeviceID'>"
            "<CommandConfig CmdName='SendDeviceID'/></CommandConfig></EndSendCmd></DataPackage>",
            "misplaced-element unit/unit.xml:1: The element \"CommandConfig\" does not belong "
            "here.");
        row("package within the package", "<DataPackage><DataPackage/></DataPackage>",
            "misplaced-element unit/unit.xml:1: The element \"DataPackage\" does not belong here.");
        row("step type", "<DataPackage StepType='one'/>",
            "bad-value unit/unit.xml:1: \"one\" is no number for StepType.");
        row("octal digits are decimal", "<DataPackage StepType='08'/>", "");
        row("empty number", "<DataPackage><FileInfo FileName='a' ExtendNum=''/></DataPackage>",
            "bad-value unit/unit.xml:1: \"\" is no number for ExtendNum.");
        row("blank in front of a number",
            "<DataPackage><FileInfo FileName='a' ExtendNum=' 1'/></DataPackage>",
            "bad-value unit/unit.xml:1: \" 1\" is no number for ExtendNum.");
        row("number of 33 bits",
            "<DataPackage><FileInfo FileName='a' Address='4294967296'/></DataPackage>",
            "bad-value unit/unit.xml:1: \"4294967296\" is no number for Address.");
        row("number of 65 bits",
            "<DataPackage><FileInfo FileName='a' Address='0x10000000000000000'/></DataPackage>",
            "bad-value unit/unit.xml:1: \"0x10000000000000000\" is no number for Address.");
        row("below 32 bits",
            "<DataPackage><FileInfo FileName='a' Address='-2147483649'/></DataPackage>",
            "bad-value unit/unit.xml:1: \"-2147483649\" is no number for Address.");
        row("lowest number",
            "<DataPackage><FileInfo FileName='a' Address='-2147483648'/></DataPackage>", "");
        row("negative hexadecimal",
            "<DataPackage><FileInfo FileName='a' Address='-0x1'/></DataPackage>",
            "bad-value unit/unit.xml:1: \"-0x1\" is no number for Address.");
        row("bool", "<DataPackage><FileInfo FileName='a' IsMCUFile='TRUE'/></DataPackage>",
            "bad-value unit/unit.xml:1: \"TRUE\" is no bool for IsMCUFile.");
        row("command's number",
            "<DataPackage><EndSendCmd><CommandConfig CmdName='SendDeviceID' TimeOut='1s'/>"
            "</EndSendCmd></DataPackage>",
            "bad-value unit/unit.xml:1: \"1s\" is no number for TimeOut.");
        row("number where it is a text", "<DataPackage Version='x' DeviceTypes='y'/>", "");
    }
    void descriptionRules()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, finding);
        QVERIFY(makeIndex() && makePaths());
        QVERIFY(m_package->file("unit/a"));
        QVERIFY(m_package->file("unit/unit.xml", xml));
        QCOMPARE(told(), finding.isEmpty() ? QStringList() : QStringList(finding));
    }

    void targets_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("isGood");

        QTest::newRow("one character") << "a" << true;
        QTest::newRow("not in 16 bits") << QString::fromUtf8("/\xF0\x9F\x94\xA5") << false;
    }
    void targets()
    {
        QFETCH(QString, target);
        QFETCH(bool, isGood);
        QVERIFY(m_package->index({}));
        QVERIFY(m_package->file("a"));
        QVERIFY(m_package->paths({ { "a", target } }));
        QCOMPARE(told(),
                 isGood ? QStringList()
                        : QStringList(QStringLiteral("target DataFilPathCfg.xml:2: The destination "
                                                     "\"%1\" has not 1 to 255 printable ASCII "
                                                     "characters.")
                                          .arg(target)));
    }

    void pathFileRules_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<QString>("finding");

        const auto row = [](const char *name, const char *xml, const char *finding) {
            QTest::newRow(name) << QByteArray(xml) << QString(finding);
        };
        row("another root", "<velmar/>",
            "wrong-root DataFilPathCfg.xml:1: The root element is \"velmar\" instead of "
            "\"Velmar\".");
        row("no source", "<Velmar>\n<F><DestPath>x</DestPath></F></Velmar>",
            "incomplete-entry DataFilPathCfg.xml:2: The entry has no \"SrcPath\".");
        row("no target", "<Velmar>\n<F><SrcPath>a</SrcPath></F></Velmar>",
            "incomplete-entry DataFilPathCfg.xml:2: The entry has no \"DestPath\".");
        row("nothing", "<Velmar><F/></Velmar>",
            "incomplete-entry DataFilPathCfg.xml:1: The entry has no \"SrcPath\".");
        row("the first of each counts",
            "<Velmar><F><SrcPath>a</SrcPath><SrcPath>../x</SrcPath><DestPath>x</DestPath>"
            "<DestPath/></F></Velmar>",
            "");
        row("other children and comments",
            "<Velmar><!-- x --><F><Note>x</Note><DestPath>x</DestPath> "
            "<SrcPath><![CDATA[a]]></SrcPath></F></Velmar>",
            "");
        row("text of inner elements",
            "<Velmar><F><SrcPath>.<b>.</b>/a</SrcPath><DestPath>x</DestPath></F></Velmar>",
            "source-name DataFilPathCfg.xml:1: The name of the file, \"../a\", leads upwards with "
            "\"..\".");
    }
    void pathFileRules()
    {
        QFETCH(QByteArray, xml);
        QFETCH(QString, finding);
        QVERIFY(m_package->index({}));
        QVERIFY(m_package->file("a"));
        QVERIFY(m_package->file("DataFilPathCfg.xml", xml));
        QCOMPARE(told(), finding.isEmpty() ? QStringList() : QStringList(finding));
    }

    // Each entry for a file is one place for each time that units name it.
    void morePlacesThanAnImageHas_data()
    {
        QTest::addColumn<int>("entries");
        QTest::addColumn<QString>("finding");

        QTest::newRow("as many") << 257 << "";
        QTest::newRow("one time more")
            << 258
            << "too-many-places DataFilPathCfg.xml: The files of all units have 65790 places "
               "together, and an image has room for 65535.";
    }
    void morePlacesThanAnImageHas()
    {
        QFETCH(int, entries);
        QFETCH(QString, finding);
        QVERIFY(makeUnit(QByteArray("<FileInfo FileName='a'/>").repeated(255)
                         + "<FileInfo FileName='Golden.dat'/>"));
        QVERIFY(m_package->file("unit/a") && m_package->file("unit/Golden.dat"));
        QVERIFY(m_package->paths(QVector<QPair<QString, QString>>(entries, { "unit/a", "/a" })
                                 << qMakePair(QString("unit/Golden.dat"), QString("/b"))));
        QCOMPARE(told(), finding.isEmpty() ? QStringList() : QStringList(finding));
    }

    void missingAndEmptyFilesAreNotes()
    {
        QVERIFY(m_package->index({ "unit" }));
        QVERIFY(m_package->unit("unit", "ModuleID='7701'",
                                "<FileInfo FileName='gone.bin'/><FileInfo FileName='empty.bin'/>"));
        QVERIFY(m_package->file("unit/empty.bin", ""));
        QVERIFY(m_package->paths({ { "unit/none", "/x" } }));
        const auto found = findings();
        QCOMPARE(lines(found),
                 QStringList({ "note missing-file unit/unit.xml:1: There is no file unit/gone.bin.",
                               "note empty-file unit/empty.bin: The file is empty.",
                               "note missing-file DataFilPathCfg.xml:2: There is no file "
                               "unit/none." }));
        QVERIFY(!firstRefusal(found));
    }

    void filesTooLargeForAnImage()
    {
        QVERIFY(makeUnit("<FileInfo FileName='a.bin'/><FileInfo FileName='b.bin'/>"));
        // Their content is not looked at.
        const PackageManifest manifest({ { "unit/a.bin", 2'147'483'647, {} },
                                         { "unit/b.bin", 2'147'483'648, {} },
                                         { "unit/c.bin", 4'294'967'396, {} } },
                                       { "unit" });
        QCOMPARE(lines(checkPackage(m_package->path(), manifest)),
                 QStringList("file-size unit/b.bin: The file has 2 GiB or more, which no upgrade "
                             "can send."));
    }

    void deciphering_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("content"); // null: enciphered
        QTest::addColumn<QString>("cause");

        const QString plain = "The file is not enciphered.";
        QTest::newRow("enciphered") << "MCU.dat" << QByteArray() << "";
        QTest::newRow("plain") << "MCU.dat" << QByteArray(100, 'x').append("four") << plain;
        QTest::newRow("too short")
            << "MCU.dat" << QByteArray("x") << "The file is cut off or not enciphered.";
        QTest::newRow("plain without the ending") << "MCU.DAT" << QByteArray(104, 'x') << "";
        QTest::newRow("font") << "font12.dat" << QByteArray(104, 'x') << "";
        QTest::newRow("name that ends as the font's")
            << "big-font12.dat" << QByteArray(104, 'x') << "";
        QTest::newRow("golden") << "MCU_Golden.dat" << QByteArray(104, 'x') << "";
    }
    void deciphering()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, content);
        QFETCH(QString, cause);
        QVERIFY(makeUnit("<FileInfo FileName='" + name.toUtf8() + "'/>"));
        const QString path = QStringLiteral("unit/") + name;
        QVERIFY(content.isNull() ? storeEnciphered(m_package->path(path), "firmware")
                                 : m_package->file(path, content));
        QCOMPARE(told(),
                 cause.isEmpty()
                     ? QStringList()
                     : QStringList(QStringLiteral("undecipherable %1: The file cannot be "
                                                  "deciphered: %2")
                                       .arg(path, cause)));
    }

    void decipheringTakesTheKeyInUse()
    {
        QVERIFY(makeUnit("<FileInfo FileName='MCU.dat'/>"));
        QVERIFY(TZ::setCryptKey({ "another key", 64 }));
        QVERIFY(storeEnciphered(m_package->path("unit/MCU.dat"), "firmware"));
        QCOMPARE(told(), QStringList());
        QVERIFY(TZ::setCryptKey(TZ::demonstrationCryptKey()));
        QCOMPARE(told(),
                 QStringList("undecipherable unit/MCU.dat: The file cannot be deciphered: The file "
                             "is damaged, or enciphered with another key."));
        PackageCheckOptions options;
        options.triesDeciphering = false;
        QCOMPARE(lines(findings(options)), QStringList());
    }

    // Told in the order of the descriptions, whichever is done first.
    void manyEncipheredFiles()
    {
        QByteArray content;
        QStringList expected;
        QVERIFY(QDir(m_package->path()).mkdir("unit"));
        for (int i = 0; i < 40; ++i) {
            const QString name = QStringLiteral("%1.dat").arg(i, 2, 10, QLatin1Char('0'));
            content += "<FileInfo FileName='" + name.toUtf8() + "'/>";
            content += "<FileInfo FileName='" + name.toUtf8() + "'/>";
            QFile file(m_package->path("unit/" + name));
            QVERIFY(storeEnciphered(file.fileName(), QByteArray(1 + i * 1000, 'x')));
            if (i % 3 != 0)
                continue;
            // Any byte may stand there.
            char byte = 0;
            QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(16) && file.getChar(&byte));
            QVERIFY(file.seek(16) && file.putChar(char(~byte)));
            expected.append(QStringLiteral("undecipherable unit/%1: The file cannot be deciphered: "
                                           "The file is damaged, or enciphered with another key.")
                                .arg(name));
        }
        QVERIFY(makeUnit(content));
        QCOMPARE(told(), expected);
    }

    void cancelled()
    {
        QVERIFY(makeUnit("<FileInfo FileName='MCU.dat'/>"));
        QVERIFY(m_package->file("unit/MCU.dat", QByteArray(104, 'x')));
        const std::atomic<bool> isCancelled { true };
        PackageCheckOptions options;
        options.isCancelled = &isCancelled;
        QCOMPARE(lines(findings(options)), QStringList());
    }

    // Nobody reads on, and memory is not for the package's maker to fill.
    void noMoreFaultsThanAnyoneReads()
    {
        QVERIFY(makeUnit(QByteArray("<FileInfo FileName='gone'/>").repeated(1000)
                         + QByteArray("<FileInfo FileName='..'/>").repeated(1000)));
        const auto found = findings();
        QCOMPARE(found.size(), std::size_t(400));
        QVERIFY(!found.front().isRefusal);
        QCOMPARE(firstRefusal(found), &found[200]);
    }
};

QTEST_GUILESS_MAIN(tst_PackageCheck)
#include "tst_packagecheck.moc"
