#include "packageconfig.h"
#include "records/loadrecords.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"
#include "support/singletonrace.h"
#include "support/unprivileged.h"

#include <QtTest>

#include <memory>

using TZ::ZLoad::DataPackage;
using Velmar::Firmware::PackageConfig;
using Velmar::Firmware::UpgradeCfg;
using Velmar::Firmware::UpgradeFileItem;

Q_DECLARE_METATYPE(QFileDevice::Permissions)

namespace {

const QString Untouched = QStringLiteral("untouched");

// The folders of the units that were read, relative to the package.
QString unitsOf(const PackageBuilder &builder, const QVector<UpgradeCfg> &cfgs)
{
    QStringList folders;
    for (const UpgradeCfg &cfg : cfgs)
        folders.append(cfg.path.mid(builder.path().size() + 1));
    return folders.join(u'|');
}

} // namespace

class tst_PackageConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_builder = std::make_unique<PackageBuilder>(); }
    void cleanup() { PackageConfig::destroyInstance(); }

    void metaObject()
    {
        const QMetaObject &metaObject = PackageConfig::staticMetaObject;
        QCOMPARE(metaObject.className(), "Velmar::Firmware::PackageConfig");
        QCOMPARE(metaObject.superClass()->className(), "Velmar::Firmware::UpgradeConfig");
        QCOMPARE(metaObject.superClass()->superClass(), &QObject::staticMetaObject);
        QCOMPARE(metaObject.methodCount(), QObject::staticMetaObject.methodCount());
        QCOMPARE(metaObject.propertyCount(), QObject::staticMetaObject.propertyCount());
    }

    void singleton()
    {
        QVERIFY(threadsShareFirstInstance<PackageConfig>());
        QVERIFY(!PackageConfig::instance()->parent());
        QVERIFY(writeUnit(QStringLiteral("u")));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        QVERIFY(read());
        QCOMPARE(PackageConfig::instance()->upgradeCfgs().size(), 1);

        PackageConfig::destroyInstance();
        PackageConfig::destroyInstance();

        QVERIFY(PackageConfig::instance()->upgradeCfgs().isEmpty());
    }

    void failures_data()
    {
        QTest::addColumn<QString>("path"); // relative to the package; null: an empty path
        QTest::addColumn<QByteArray>("index"); // null: none
        QTest::addColumn<QString>("errorText");

        const QByteArray good("<Package/>");
        QTest::newRow("empty path") << QString() << good << QStringLiteral("File is not exist");
        QTest::newRow("no such folder")
            << QStringLiteral("none") << good << QStringLiteral("File is not exist");
        QTest::newRow("a file instead of a folder")
            << QStringLiteral("plain") << good << QStringLiteral("PackageCfg file is not exist");
        QTest::newRow("no index") << QStringLiteral(".") << QByteArray()
                                  << QStringLiteral("PackageCfg file is not exist");
        QTest::newRow("an empty index") << QStringLiteral(".") << QByteArray("")
                                        << QStringLiteral("Failed to parse PackageCfg file");
        QTest::newRow("an index without an element")
            << QStringLiteral(".") << QByteArray("<?xml version='1.0'?><!-- none -->")
            << QStringLiteral("Failed to parse PackageCfg file");
        QTest::newRow("an index that is cut off")
            << QStringLiteral(".") << QByteArray("<Package><string>u</string>")
            << QStringLiteral("Failed to parse PackageCfg file");
        QTest::newRow("an index nested beyond all measure") << QStringLiteral(".")
                                                            << "<p><string>"
                + QByteArray("<i>").repeated(100000) + QByteArray("</i>").repeated(100000)
                + "</string></p>" << QStringLiteral("Failed to parse PackageCfg file");
        QTest::newRow("an index nested beyond all measure and cut off")
            << QStringLiteral(".") << QByteArray("<p>").repeated(100000)
            << QStringLiteral("Failed to parse PackageCfg file");
        QTest::newRow("an index that grows beyond all measure")
            << QStringLiteral(".")
            << QByteArray("<!DOCTYPE p [<!ENTITY a '0123456789012345678901234567890123456789'>"
                          "<!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>"
                          "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'>"
                          "<!ENTITY d '&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;'>"
                          "<!ENTITY e '&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;'>"
                          "<!ENTITY f '&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;'>"
                          "]><p><string>&f;</string></p>")
            << QStringLiteral("Failed to parse PackageCfg file");
    }
    void failures()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, index);
        // What was read before goes, whatever the failure.
        QVERIFY(writeUnit(QStringLiteral("u")));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        QVERIFY(read());
        const QString indexPath = m_builder->path(QStringLiteral("PackageCfg.xml"));
        QVERIFY(QFile::remove(indexPath));
        if (!index.isNull())
            QVERIFY(m_builder->file(QStringLiteral("PackageCfg.xml"), index));
        QVERIFY(m_builder->file(QStringLiteral("plain")));
        const LogRecorder log;
        QString errorText = Untouched;

        QVERIFY(!PackageConfig::instance()->readConfig(
            path.isNull() ? QString() : m_builder->path(path), errorText));

        QTEST(errorText, "errorText");
        QVERIFY(PackageConfig::instance()->upgradeCfgs().isEmpty());
        QVERIFY(log.lines().isEmpty());
        QCOMPARE(QFile::exists(indexPath), !index.isNull());
    }

    void indexThatIsAFolder()
    {
        QVERIFY(QDir(m_builder->path()).mkdir(QStringLiteral("PackageCfg.xml")));
        QString errorText;

        QVERIFY(!PackageConfig::instance()->readConfig(m_builder->path(), errorText));

        QCOMPARE(errorText, QStringLiteral("Failed to open PackageCfg file"));
    }

    void indexThatMayNotBeWritten_data()
    {
        QTest::addColumn<QFileDevice::Permissions>("permissions");
        QTest::addColumn<QByteArray>("outcome");
        QTest::newRow("read-only") << QFileDevice::Permissions(
            QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther)
                                   << QByteArray("0 Failed to open PackageCfg file");
        QTest::newRow("writable") << QFileDevice::Permissions(QFileDevice::ReadOwner
                                                              | QFileDevice::WriteOwner)
                                  << QByteArray("1 untouched");
    }
    void indexThatMayNotBeWritten()
    {
        QFETCH(QFileDevice::Permissions, permissions);
        QVERIFY(m_builder->index({}));
        const QString indexPath = m_builder->path(QStringLiteral("PackageCfg.xml"));
        QVERIFY(QFile::setPermissions(indexPath, permissions));
        QVERIFY(Unprivileged::own(QFile::encodeName(m_builder->path())));
        QVERIFY(Unprivileged::own(QFile::encodeName(indexPath)));

        const QByteArray outcome = Unprivileged::run([this] {
            QString errorText = Untouched;
            const bool isRead = PackageConfig::instance()->readConfig(m_builder->path(), errorText);
            return QByteArray::number(isRead) + ' ' + errorText.toUtf8();
        });

        QTEST(outcome, "outcome");
    }

    void index_data()
    {
        QTest::addColumn<QByteArray>("index");
        QTest::addColumn<QString>("units");

        const auto row = [](const char *name, const char *index, const char *units) {
            QTest::newRow(name) << QByteArray(index) << QString::fromUtf8(units);
        };
        row("no children", "<Package/>", "");
        row("in the order of the index", "<Package><string>b</string><string>a</string></Package>",
            "b|a");
        row("one unit twice", "<p><string>a</string><string>a</string></p>", "a|a");
        row("any root", "<string><string>a</string></string>", "a");
        row("other children",
            "<p>text<!-- string --><String>a</String><strings>a</strings><x>b</x>"
            "<string>b</string></p>",
            "b");
        row("a name with a prefix", "<p xmlns:v='v'><v:string>a</v:string><string>b</string></p>",
            "b");
        row("not below other elements", "<p><x><string>a</string></x></p>", "");
        row("subfolders that are missing",
            "<p><string>none</string><string>a</string><string>none/a</string></p>", "a");
        row("blanks count", "<p><string> a </string><string>a </string></p>", " a ");
        row("text in pieces", "<p><string>a<!-- - --><![CDATA[/]]><i>d<i>e</i></i></string></p>",
            "a/de");
        row("references", "<p><string>&#97;&amp;b</string></p>", "a&b");
        row("outside of the package", "<p><string>../%1/a</string></p>", "../%1/a");
        row("attributes", "<p version='1'><string id='x'>a</string></p>", "a");
    }
    void index()
    {
        QFETCH(QByteArray, index);
        QFETCH(QString, units);
        const QString self = QFileInfo(m_builder->path()).fileName();
        for (const char *folder : { "a", "b", " a ", "a&b", "a/de" })
            QVERIFY(writeUnit(QString::fromUtf8(folder)));
        QVERIFY(
            m_builder->file(QStringLiteral("PackageCfg.xml"), index.replace("%1", self.toUtf8())));
        const LogRecorder log;

        QVERIFY(read());

        QCOMPARE(unitsOf(*m_builder, PackageConfig::instance()->upgradeCfgs()),
                 units.replace(QStringLiteral("%1"), self));
        QVERIFY(log.lines().isEmpty());
    }

    void emptyTextNamesThePackageItself_data()
    {
        QTest::addColumn<QByteArray>("index");
        QTest::newRow("empty element") << QByteArray("<p><string/></p>");
        QTest::newRow("blanks alone are no text") << QByteArray("<p><string>  </string></p>");
        QTest::newRow("an instruction has the name, but no text")
            << QByteArray("<p><?string a?></p>");
    }
    void emptyTextNamesThePackageItself()
    {
        QFETCH(QByteArray, index);
        QVERIFY(m_builder->file(QStringLiteral("PackageCfg.xml"), index));
        // The serialiser finds that the index describes no unit.
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("^Failed to load .*//PackageCfg")));

        QVERIFY(read());

        const QVector<UpgradeCfg> cfgs = PackageConfig::instance()->upgradeCfgs();
        QCOMPARE(cfgs.size(), 1);
        QCOMPARE(cfgs.first().path, m_builder->path() + QLatin1Char('/'));
        QCOMPARE(cfgs.first().modelId, 0);
        QVERIFY(cfgs.first().files.isEmpty());
    }

    void descriptionFile_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("version"); // each file has its name there; null: no unit

        const auto row = [](const char *name, const QStringList &files, const QString &version) {
            QTest::newRow(name) << files << version;
        };
        row("one", { QStringLiteral("a.xml"), QStringLiteral("a.dat") }, QStringLiteral("a.xml"));
        row("in order, whatever the case", { QStringLiteral("b.xml"), QStringLiteral("A.xml") },
            QStringLiteral("A.xml"));
        row("in order, whatever the case, the other way",
            { QStringLiteral("B.xml"), QStringLiteral("a.xml") }, QStringLiteral("a.xml"));
        row("the ending minds the case", { QStringLiteral("a.XML"), QStringLiteral("b.xml") },
            QStringLiteral("b.xml"));
        row("only a capital ending", { QStringLiteral("a.XML") }, QString());
        row("a longer ending", { QStringLiteral("a.xml2"), QStringLiteral("a.xml.bak") },
            QString());
        row("hidden files are not listed",
            { QStringLiteral(".xml"), QStringLiteral(".a.xml"), QStringLiteral("b.xml") },
            QStringLiteral("b.xml"));
        row("an ending without a dot before it", { QStringLiteral("axml") }, QString());
    }
    void descriptionFile()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, version);
        for (const QString &file : files)
            QVERIFY(m_builder->file(QStringLiteral("u/") + file,
                                    "<DataPackage ModuleID='5' Version='" + file.toUtf8() + "'/>"));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));

        QVERIFY(read());

        QCOMPARE(PackageConfig::instance()->upgradeCfgs().size(), version.isNull() ? 0 : 1);
        DataPackage found;
        QCOMPARE(PackageConfig::instance()->findDataPackage(5, found), !version.isNull());
        QCOMPARE(found.Version, version);
    }

    void descriptionThatIsAFolder()
    {
        QVERIFY(m_builder->file(QStringLiteral("u/a.xml/file")));
        QVERIFY(m_builder->file(QStringLiteral("u/b.xml"), "<DataPackage ModuleID='5'/>"));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QStringLiteral("^Failed to load .*/u/a\\.xml")));

        QVERIFY(read());

        QCOMPARE(PackageConfig::instance()->upgradeCfgs().size(), 1);
        QCOMPARE(PackageConfig::instance()->upgradeCfgs().first().modelId, 0);
    }

    void modelId_data()
    {
        QTest::addColumn<QByteArray>("moduleId");
        QTest::addColumn<int>("modelId");
        QTest::newRow("hexadecimal") << QByteArray("1A") << 26;
        QTest::newRow("with 0x") << QByteArray("0x1A") << 26;
        QTest::newRow("lower case") << QByteArray("1f2") << 498;
        QTest::newRow("wider than a card's") << QByteArray("10400") << 66560;
        QTest::newRow("no number") << QByteArray("XYZ") << 0;
        QTest::newRow("empty") << QByteArray("") << 0;
        QTest::newRow("out of range") << QByteArray("100000000") << 0;
        QTest::newRow("negative") << QByteArray("-1") << -1;
    }
    void modelId()
    {
        QFETCH(QByteArray, moduleId);
        QFETCH(int, modelId);
        QVERIFY(m_builder->unit(QStringLiteral("u"), "ModuleID='" + moduleId + '\'', QByteArray()));
        QVERIFY(m_builder->index({ QStringLiteral("u") }));

        QVERIFY(read());

        QCOMPARE(PackageConfig::instance()->upgradeCfgs().value(0).modelId, modelId);
        DataPackage found;
        QVERIFY(PackageConfig::instance()->findDataPackage(modelId, found));
        QCOMPARE(found.ModuleID, QString::fromUtf8(moduleId));
        QVERIFY(!PackageConfig::instance()->findDataPackage(modelId + 1, found));
    }

    void items()
    {
        QVERIFY(m_builder->unit(QStringLiteral("main"),
                                "FilePath='elsewhere' ModuleID='5101' StepType='0'",
                                "<FileInfo FileLabel='MCU' FileName='MCU.dat' ExtendNum='0'/>"
                                "<FileInfo FileLabel='FPGA' FileName='sub/fpga.bin' ExtendNum='3'/>"
                                "<FileInfo FileLabel='MCU' FileName='Golden.dat'/>"));
        QVERIFY(
            m_builder->unit(QStringLiteral("card"), "ModuleID='5301' StepType='1'", QByteArray()));
        QVERIFY(m_builder->index({ QStringLiteral("main"), QStringLiteral("card") }));

        QVERIFY(read());

        const QVector<UpgradeCfg> cfgs = PackageConfig::instance()->upgradeCfgs();
        QCOMPARE(cfgs.size(), 2);
        const QString folder = m_builder->path(QStringLiteral("main"));
        QCOMPARE(cfgs.at(0).path, folder);
        QCOMPARE(cfgs.at(0).modelId, 0x5101);
        QCOMPARE(cfgs.at(0).stepType, 0);
        QVERIFY(cfgs.at(0).otherValues.isEmpty());
        QCOMPARE(cfgs.at(0).files.size(), 2);
        const UpgradeFileItem &mcu = cfgs.at(0).files.at(0);
        QCOMPARE(mcu.sectionName, QStringLiteral("MCU"));
        QCOMPARE(mcu.filePath, folder + QStringLiteral("/MCU.dat"));
        QVERIFY(mcu.targetPath.isNull());
        QCOMPARE(mcu.extendNum, 0);
        const UpgradeFileItem &fpga = cfgs.at(0).files.at(1);
        QCOMPARE(fpga.sectionName, QStringLiteral("FPGA"));
        QCOMPARE(fpga.filePath, folder + QStringLiteral("/sub/fpga.bin"));
        QVERIFY(fpga.targetPath.isNull());
        QCOMPARE(fpga.extendNum, 3);
        QCOMPARE(cfgs.at(1).path, m_builder->path(QStringLiteral("card")));
        QCOMPARE(cfgs.at(1).modelId, 0x5301);
        QCOMPARE(cfgs.at(1).stepType, 1);
        QVERIFY(cfgs.at(1).files.isEmpty());
    }

    void nothingReadGivesNothing()
    {
        QVERIFY(PackageConfig::instance()->upgradeCfgs().isEmpty());
        DataPackage found;
        QVERIFY(!PackageConfig::instance()->findDataPackage(0, found));
    }

    void secondReadReplacesTheFirst()
    {
        QVERIFY(writeUnit(QStringLiteral("a")));
        QVERIFY(writeUnit(QStringLiteral("b")));
        QVERIFY(m_builder->index({ QStringLiteral("a"), QStringLiteral("b") }));
        QVERIFY(read());
        QVERIFY(m_builder->index({ QStringLiteral("b") }));

        QVERIFY(read());

        QCOMPARE(unitsOf(*m_builder, PackageConfig::instance()->upgradeCfgs()),
                 QStringLiteral("b"));
    }

    void findDataPackage()
    {
        QVERIFY(m_builder->unit(QStringLiteral("a"), "ModuleID='7' FilePath='elsewhere'",
                                "<FileInfo FileLabel='MCU' FileName='MCU.dat'>"
                                "<CommandConfig CmdName='SendFileData'/></FileInfo>"));
        QVERIFY(m_builder->unit(QStringLiteral("b"), "ModuleID='0x7'", QByteArray()));
        QVERIFY(m_builder->index({ QStringLiteral("a"), QStringLiteral("b") }));
        QVERIFY(read());
        DataPackage found;

        QVERIFY(PackageConfig::instance()->findDataPackage(7, found));
        PackageConfig::destroyInstance();

        // The first of two, whole and independent of the reader.
        QCOMPARE(found.ModuleID, QStringLiteral("7"));
        QCOMPARE(found.FilePath, m_builder->path(QStringLiteral("a")));
        QCOMPARE(found.fileInfos.size(), 1);
        QCOMPARE(found.fileInfos.first()->commandConfigs.first()->CmdName,
                 QStringLiteral("SendFileData"));
        QVERIFY(found.children().isEmpty());
        QVERIFY(!PackageConfig::instance()->findDataPackage(7, found));
        QCOMPARE(found.ModuleID, QStringLiteral("7"));
    }

    void relativePath()
    {
        QVERIFY(writeUnit(QStringLiteral("p/u")));
        QVERIFY(m_builder->file(QStringLiteral("p/PackageCfg.xml"), "<p><string>u</string></p>"));
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_builder->path()));
        QString errorText;

        const bool isRead = PackageConfig::instance()->readConfig(QStringLiteral("p"), errorText);

        QVERIFY(QDir::setCurrent(before));
        QVERIFY(isRead);
        QCOMPARE(PackageConfig::instance()->upgradeCfgs().value(0).path, QStringLiteral("p/u"));
    }

    void nestedIndex()
    {
        const QByteArray nested =
            QByteArray("<i>").repeated(200) + 'a' + QByteArray("</i>").repeated(200);
        QVERIFY(writeUnit(QStringLiteral("a")));
        QVERIFY(m_builder->file(QStringLiteral("PackageCfg.xml"),
                                "<p><string>" + nested + "</string></p>"));

        QVERIFY(read());

        QCOMPARE(unitsOf(*m_builder, PackageConfig::instance()->upgradeCfgs()),
                 QStringLiteral("a"));
    }

private:
    bool writeUnit(const QString &folder)
    {
        return m_builder->unit(folder, "ModuleID='1'", QByteArray());
    }
    bool read()
    {
        QString errorText = Untouched;
        return PackageConfig::instance()->readConfig(m_builder->path(), errorText)
            && errorText == Untouched;
    }

    std::unique_ptr<PackageBuilder> m_builder;
};

QTEST_GUILESS_MAIN(tst_PackageConfig)
#include "tst_packageconfig.moc"
