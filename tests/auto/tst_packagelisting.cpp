#include "package/packagelisting.h"

#include "support/packagebuilder.h"
#include "support/unprivileged.h"

#include <QtTest>

using namespace Velmar::Host;

class tst_PackageListing : public QObject
{
    Q_OBJECT

    std::unique_ptr<PackageBuilder> m_package;

private Q_SLOTS:
    void init() { m_package = std::make_unique<PackageBuilder>(); }

    void unitsInTheIndexsOrder()
    {
        QVERIFY(m_package->file(
            "PackageCfg.xml",
            "<?xml version='1.0'?><!-- index --><Any><string>main</string><other>no</other>"
            "<string>cards/a</string></Any>"));
        QVERIFY(m_package->file(
            "main/unit.xml",
            "<DataPackage ModuleID='7701' StepType='0' Version='3.1.0'>"
            "<EndSendCmd><CommandConfig CmdName='x'/></EndSendCmd>"
            "<FileInfo FileLabel='MCU' FileName='MCU.dat'><CommandConfig/></FileInfo>"
            "<FileInfo FileLabel='FPGA' FileName='none.bin' ExtendNum='2'/></DataPackage>"));
        QVERIFY(m_package->file("main/MCU.dat", "12345"));
        QVERIFY(m_package->file("cards/a/b.xml", "<DataPackage ModuleID='0x7801' StepType='1'/>"));

        PackageListing listing;
        QString errorText;
        QVERIFY2(listing.read(m_package->path(), errorText), qPrintable(errorText));
        QCOMPARE(listing.units().size(), 2);

        const auto mainUnit = listing.units().at(0);
        QCOMPARE(mainUnit.folder, QStringLiteral("main"));
        QCOMPARE(mainUnit.path, m_package->path() + "/main");
        QCOMPARE(mainUnit.problem, QString());
        QCOMPARE(mainUnit.modelId, 0x7701);
        QCOMPARE(mainUnit.stepType, 0);
        QCOMPARE(mainUnit.version, QStringLiteral("3.1.0"));
        QCOMPARE(mainUnit.files.size(), 2);
        QCOMPARE(mainUnit.files.at(0).sectionName, QStringLiteral("MCU"));
        QCOMPARE(mainUnit.files.at(0).fileName, QStringLiteral("MCU.dat"));
        QCOMPARE(mainUnit.files.at(0).filePath, m_package->path() + "/main/MCU.dat");
        QCOMPARE(mainUnit.files.at(0).boardId, 0);
        QCOMPARE(mainUnit.files.at(0).size, qint64(5));
        QCOMPARE(mainUnit.files.at(1).boardId, 2);
        QCOMPARE(mainUnit.files.at(1).size, qint64(-1));

        const auto cardUnit = listing.units().at(1);
        QCOMPARE(cardUnit.folder, QStringLiteral("cards/a"));
        QCOMPARE(cardUnit.modelId, 0x7801);
        QCOMPARE(cardUnit.stepType, 1);
        QVERIFY(cardUnit.files.isEmpty());
    }

    void firstDescriptionInNameOrder()
    {
        QVERIFY(m_package->file("PackageCfg.xml", "<r><string>u</string></r>"));
        QVERIFY(m_package->file("u/b.xml", "<DataPackage ModuleID='2'/>"));
        QVERIFY(m_package->file("u/A.xml", "<DataPackage ModuleID='1'/>"));
        QVERIFY(m_package->file("u/0.XML", "<DataPackage ModuleID='3'/>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        QCOMPARE(listing.units().at(0).modelId, 1);
    }

    void commandsOfFiles()
    {
        QVERIFY(m_package->file("PackageCfg.xml", "<r><string>u</string></r>"));
        QVERIFY(m_package->file("u/unit.xml",
                                "<DataPackage ModuleID='1'>"
                                "<EndSendCmd><CommandConfig CmdName='end'/></EndSendCmd>"
                                "<FileInfo FileLabel='a'><CommandConfig CmdName='first'/>"
                                "<CommandConfig CmdName='second'/></FileInfo>"
                                "<BeforeStartCmd><CommandConfig CmdName='start'/></BeforeStartCmd>"
                                "<FileInfo FileLabel='b'/>"
                                "<FileInfo FileLabel='c'><CommandConfig/></FileInfo>"
                                "</DataPackage>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        const auto &files = listing.units().at(0).files;
        QCOMPARE(files.at(0).commands, QStringList({ "first", "second" }));
        QCOMPARE(files.at(1).commands, QStringList());
        QCOMPARE(files.at(2).commands, QStringList(QString()));
    }

    void numbersAsTheLibraryReadsThem_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("boardId");

        QTest::newRow("decimal") << QByteArray("12") << 12;
        QTest::newRow("not octal") << QByteArray("012") << 12;
        QTest::newRow("hexadecimal") << QByteArray("0xFf") << 255;
        QTest::newRow("negative") << QByteArray("-2") << -2;
        QTest::newRow("upper half of 32 bits") << QByteArray("4294967295") << -1;
    }
    void numbersAsTheLibraryReadsThem()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, boardId);
        QVERIFY(m_package->index({ "u" }));
        QVERIFY(m_package->unit("u", "ModuleID='1'", "<FileInfo ExtendNum='" + text + "'/>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        QCOMPARE(listing.units().at(0).problem, QString());
        QCOMPARE(listing.units().at(0).files.at(0).boardId, boardId);
    }

    // As the library does: what is below an element that it does not know is not there.
    void unknownElementsArePassedOver()
    {
        QVERIFY(m_package->index({ "u" }));
        QVERIFY(m_package->unit("u", "ModuleID='1'",
                                "<Other><FileInfo FileName='a'/></Other><FileInfo FileName='b'>"
                                "<Other><CommandConfig CmdName='x'/></Other>"
                                "<CommandConfig CmdName='y'/></FileInfo>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        const auto &files = listing.units().at(0).files;
        QCOMPARE(files.size(), 1);
        QCOMPARE(files.at(0).fileName, QStringLiteral("b"));
        QCOMPARE(files.at(0).commands, QStringList("y"));
    }

    void pathsInTheirOrder()
    {
        QVERIFY(m_package->index({}));
        QVERIFY(m_package->paths({ { "u/b", "/2" }, { "u/a", "/1" }, { "u/b", "/3" } }));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        QVERIFY(listing.faults().isEmpty());
        QCOMPARE(listing.paths().size(), 3);
        QCOMPARE(listing.paths().at(0).source, QStringLiteral("u/b"));
        QCOMPARE(listing.paths().at(0).target, QStringLiteral("/2"));
        QCOMPARE(listing.paths().at(0).line, 2);
        QCOMPARE(listing.paths().at(2).target, QStringLiteral("/3"));
    }

    void unitsThatAreNotRead_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("problem");

        QTest::newRow("outside of the package")
            << "../u"
            << "the name of the unit's folder leads upwards with "
               "\"..\"";
        QTest::newRow("named before") << "u"
                                      << "the index names the folder u more than once";
    }
    void unitsThatAreNotRead()
    {
        QFETCH(QString, folder);
        QFETCH(QString, problem);
        QVERIFY(m_package->file("p/u/unit.xml", "<DataPackage ModuleID='1'/>"));
        QVERIFY(m_package->file("u/unit.xml", "<DataPackage ModuleID='2'/>"));
        QVERIFY(
            m_package->file("p/PackageCfg.xml",
                            "<r><string>u</string><string>" + folder.toUtf8() + "</string></r>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path("p"), errorText));
        QCOMPARE(listing.units().at(0).modelId, 1);
        QCOMPARE(listing.units().at(1).problem, problem);
        QCOMPARE(listing.units().at(1).modelId, 0);
    }

    void unreadableIndex_data()
    {
        QTest::addColumn<QByteArray>("index");
        QTest::addColumn<QString>("errorText"); // %1: path of the index

        QTest::newRow("no file") << QByteArray() << "there is no file %1";
        QTest::newRow("no XML") << QByteArray("hello\n") << "%1:1: Start tag expected.";
        QTest::newRow("cut off") << QByteArray("<r>\n<string>a")
                                 << "%1:2: Premature end of document.";
        QTest::newRow("document type")
            << QByteArray("<!DOCTYPE r [<!ENTITY e 'x'>]>\n<r><string>&e;</string></r>")
            << "%1:1: A document type is not allowed.";
        QTest::newRow("nested too deep")
            << QByteArray("<r>").repeated(17) + QByteArray("</r>").repeated(17)
            << "%1:1: Elements are nested more than 16 deep.";
        QTest::newRow("too large") << "<r>" + QByteArray(16 * 1024 * 1024, ' ') + "</r>"
                                   << "%1 is larger than 16 MiB";
    }
    void unreadableIndex()
    {
        QFETCH(QByteArray, index);
        QFETCH(QString, errorText);
        if (!index.isNull())
            QVERIFY(m_package->file("PackageCfg.xml", index));
        PackageListing listing;
        QString told;
        QVERIFY(!listing.read(m_package->path(), told));
        QCOMPARE(told, errorText.arg(m_package->path("PackageCfg.xml")));
        QVERIFY(listing.units().isEmpty());
    }

    void allowanceOfAllFilesTogether_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<int>("elements");
        QTest::addColumn<QString>("errorText"); // %1: the package
        QTest::addColumn<int>("units");

        const qint64 many = 1000;
        QTest::newRow("as many elements as there are") << many << 11 << "" << 2;
        QTest::newRow("the last element is one too many")
            << many << 10
            << "%1/DataFilPathCfg.xml:1: The package's XML files have more than 10 elements." << 2;
        QTest::newRow("an element of the second unit is one too many")
            << many << 6 << "%1/b/unit.xml:1: The package's XML files have more than 6 elements."
            << 2;
        QTest::newRow("an element of the first unit is one too many")
            << many << 4 << "%1/a/unit.xml:1: The package's XML files have more than 4 elements."
            << 1;
        QTest::newRow("an element of the index is one too many")
            << many << 2
            << "%1/PackageCfg.xml:1: The package's XML files have more than 2 elements." << 0;
        QTest::newRow("as many bytes as there are") << qint64(164) << 1000 << "" << 2;
        QTest::newRow("the last byte is one too many")
            << qint64(163) << 1000
            << "%1/DataFilPathCfg.xml: The package's XML files have more than 163 bytes." << 2;
        QTest::newRow("a byte of the second unit is one too many")
            << qint64(118) << 1000
            << "%1/b/unit.xml: The package's XML files have more than 118 bytes." << 2;
        QTest::newRow("a byte of the index is one too many")
            << qint64(42) << 1000
            << "%1/PackageCfg.xml: The package's XML files have more than 42 bytes." << 0;
    }
    void allowanceOfAllFilesTogether()
    {
        QFETCH(qint64, bytes);
        QFETCH(int, elements);
        QFETCH(QString, errorText);
        QFETCH(int, units);
        QVERIFY(m_package->file("PackageCfg.xml", "<r><string>a</string><string>b</string></r>"));
        for (const char *unit : { "a/unit.xml", "b/unit.xml" })
            QVERIFY(m_package->file(unit, "<DataPackage><FileInfo/></DataPackage>"));
        QVERIFY(
            m_package->file("DataFilPathCfg.xml", "<Velmar><F><SrcPath/><DestPath/></F></Velmar>"));
        PackageListing listing;
        QString told;
        QCOMPARE(listing.read(m_package->path(), told, { bytes, elements }), errorText.isEmpty());
        QCOMPARE(told, errorText.replace("%1", m_package->path()));
        QCOMPARE(listing.units().size(), units);
    }

    void deepestNestingThatIsRead()
    {
        QVERIFY(m_package->file("PackageCfg.xml",
                                QByteArray("<r>").repeated(16) + QByteArray("</r>").repeated(16)));
        PackageListing listing;
        QString errorText;
        QVERIFY2(listing.read(m_package->path(), errorText), qPrintable(errorText));
    }

    void unreadableUnits()
    {
        QVERIFY(
            m_package->file("PackageCfg.xml",
                            "<r><string>gone</string><string>bad</string><string>ok</string></r>"));
        QVERIFY(
            m_package->file("bad/unit.xml", "<DataPackage ModuleID='7701'><FileInfo/><FileInfo"));
        QVERIFY(m_package->file("ok/unit.xml", "<DataPackage ModuleID='7702'/>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        QCOMPARE(listing.units().size(), 3);
        QCOMPARE(listing.units().at(0).problem,
                 QStringLiteral("there is no description, a file that ends in .xml, in ")
                     + m_package->path("gone"));
        QCOMPARE(listing.units().at(1).problem,
                 m_package->path("bad/unit.xml") + ":1: Premature end of document.");
        QCOMPARE(listing.units().at(1).modelId, 0);
        QVERIFY(listing.units().at(1).files.isEmpty());
        QCOMPARE(listing.units().at(2).problem, QString());
        QCOMPARE(listing.units().at(2).modelId, 0x7702);
    }

    void readOnlyPackage()
    {
        QVERIFY(m_package->index({ "u" }));
        QVERIFY(m_package->unit("u", "ModuleID='7701'", ""));
        QVERIFY(QFile::setPermissions(m_package->path("PackageCfg.xml"),
                                      QFile::ReadOwner | QFile::ReadOther));
        QVERIFY(Unprivileged::own(QFile::encodeName(m_package->path())));
        const QByteArray read = Unprivileged::run([this] {
            PackageListing listing;
            QString errorText;
            return listing.read(m_package->path(), errorText)
                ? QByteArray::number(listing.units().size())
                : errorText.toUtf8();
        });
        QCOMPARE(read, QByteArray("1"));
    }

    void secondReadStartsAnew()
    {
        QVERIFY(m_package->file("PackageCfg.xml", "<r><string>u</string></r>"));
        PackageListing listing;
        QString errorText;
        QVERIFY(listing.read(m_package->path(), errorText));
        QVERIFY(listing.read(m_package->path(), errorText));
        QCOMPARE(listing.units().size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_PackageListing)
#include "tst_packagelisting.moc"
