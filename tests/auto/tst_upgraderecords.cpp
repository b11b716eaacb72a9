#include "records/upgraderecords.h"

#include <QtTest>

using namespace Velmar::Firmware;

// What readers and drivers take for granted of the records between them.
class tst_UpgradeRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaults();
    void equality_data();
    void equality();
    void numbers();
};

void tst_UpgradeRecords::defaults()
{
    const UpgradeCfg cfg;
    QVERIFY(cfg.path.isNull());
    QCOMPARE(cfg.modelId, 0);
    QCOMPARE(cfg.stepType, 0);
    QVERIFY(cfg.otherValues.isEmpty());
    QVERIFY(cfg.files.isEmpty());

    const UpgradeFileItem item;
    QVERIFY(item.sectionName.isNull());
    QVERIFY(item.filePath.isNull());
    QVERIFY(item.targetPath.isNull());
    QCOMPARE(item.extendNum, 0);

    const DataFilePath path;
    QVERIFY(path.sourcePath.isNull());
    QVERIFY(path.targetPath.isNull());
}

void tst_UpgradeRecords::equality_data()
{
    QTest::addColumn<QString>("sectionName");
    QTest::addColumn<QString>("filePath");
    QTest::addColumn<QString>("targetPath");
    QTest::addColumn<int>("extendNum");
    QTest::addColumn<bool>("isEqual");

    QTest::newRow("same") << "MCU"
                          << "/p/mcu.dat"
                          << "/fw/mcu" << 3 << true;
    QTest::newRow("another board") << "MCU"
                                   << "/p/mcu.dat"
                                   << "/fw/mcu" << 4 << true;
    QTest::newRow("any board") << "MCU"
                               << "/p/mcu.dat"
                               << "/fw/mcu" << 0 << true;
    QTest::newRow("another section") << "mcu"
                                     << "/p/mcu.dat"
                                     << "/fw/mcu" << 3 << false;
    QTest::newRow("another file") << "MCU"
                                  << "/p/MCU.dat"
                                  << "/fw/mcu" << 3 << false;
    QTest::newRow("another place") << "MCU"
                                   << "/p/mcu.dat"
                                   << "/fw/mcu2" << 3 << false;
    QTest::newRow("no place yet") << "MCU"
                                  << "/p/mcu.dat" << QString() << 3 << false;
}

void tst_UpgradeRecords::equality()
{
    QFETCH(QString, sectionName);
    QFETCH(QString, filePath);
    QFETCH(QString, targetPath);
    QFETCH(int, extendNum);
    const UpgradeFileItem item { "MCU", "/p/mcu.dat", "/fw/mcu", 3 };
    const UpgradeFileItem other { sectionName, filePath, targetPath, extendNum };

    QTEST(item == other, "isEqual");
    QTEST(other == item, "isEqual");
}

void tst_UpgradeRecords::numbers()
{
    QCOMPARE(int(Enum::UpgradeProcessType::FullUpgrade), 0);
    QCOMPARE(int(Enum::UpgradeProcessType::ReadProgressOnly), 1);
    QCOMPARE(int(Enum::UpgradeProtoType::ProtoUnknown), 0);
    QCOMPARE(int(Enum::UpgradeProtoType::ProtoSupported), 1);
    QCOMPARE(int(Enum::UpgradeProtoType::ProtoRefused), 255);
}

QTEST_APPLESS_MAIN(tst_UpgradeRecords)
#include "tst_upgraderecords.moc"
