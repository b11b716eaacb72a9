#include "package/packagerules.h"

#include <QtTest>

using namespace Velmar::Host;

class tst_PackageRules : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileNames_data()
    {
        QTest::addColumn<bool>("isEnciphered");
        QTest::addColumn<bool>("isGolden");
        QTest::addColumn<bool>("isData");

        QTest::newRow("MCU.dat") << true << false << false;
        QTest::newRow("font12.dat") << false << false << true;
        QTest::newRow("bold_font12.dat") << false << false << true;
        QTest::newRow("font13.dat") << true << false << false;
        QTest::newRow("FONT12.dat") << true << false << false;
        QTest::newRow("MCU.DAT") << false << false << false;
        QTest::newRow("osd.json") << false << false << true;
        QTest::newRow("osd.JSON") << false << false << false;
        QTest::newRow("Golden.dat") << true << true << false;
        QTest::newRow("MyGolden.dat") << true << true << false;
        QTest::newRow("golden.dat") << true << false << false;
        QTest::newRow("Golden.bin") << false << false << false;
        QTest::newRow("") << false << false << false;
    }
    void fileNames()
    {
        const QString name = QTest::currentDataTag();
        QTEST(isEncipheredFile(name), "isEnciphered");
        QTEST(isGoldenFile(name), "isGolden");
        QTEST(isMcuDataFile(name), "isData");
    }

    void targets_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("isGood");

        QTest::newRow("one character") << "a" << true;
        QTest::newRow("255 characters") << QString(255, 'a') << true;
        QTest::newRow("256 characters") << QString(256, 'a') << false;
        QTest::newRow("empty") << "" << false;
        QTest::newRow("blanks") << "  " << false;
        QTest::newRow("first and last of ASCII") << "/ ~" << true;
        QTest::newRow("delete") << "/\x7F" << false;
        QTest::newRow("control character") << "/a\tb" << false;
        QTest::newRow("beyond ASCII") << QStringLiteral("/gr\u00fc\u00df") << false;
    }
    void targets()
    {
        QFETCH(QString, target);
        QTEST(isTarget(target), "isGood");
    }

    void commands()
    {
        QCOMPARE(
            commandNames(),
            QStringList({ "SendCardIndex", "SendDeviceID", "SendSenderFileType", "SendFileLength",
                          "SendFileCount", "SendFileData", "SendSubCarIndex" }));
        QVERIFY(commandNames().contains(DataCommand));
    }
};

QTEST_GUILESS_MAIN(tst_PackageRules)
#include "tst_packagerules.moc"
