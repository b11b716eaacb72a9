#include "programs.h"
#include "trial.h"

#include <QtTest>

#include <csignal>

/*! What trials tell of a device: that of its state folder and its trace, over each road. */
class tst_Trial : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lieAndCleanRun_data()
    {
        QTest::addColumn<int>("road");
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("files"); // installed by the clean run
        QTest::addColumn<int>("firmware");
        QTest::addColumn<int>("installations");

        QTest::newRow("native") << int(Trial::Road::Native) << "upgrade.configure" << 14 << 0 << 1;
        QTest::newRow("HTTP") << int(Trial::Road::Http) << "POST /uploadUpgrade" << 14 << 0 << 1;
        QTest::newRow("registers")
            << int(Trial::Road::Registers) << "register.write" << 0 << 1 << 0;
    }
    void lieAndCleanRun()
    {
        QFETCH(int, road);
        QFETCH(QString, operation);
        QFETCH(int, installations);
        Trial trial(Trial::Road(road), { { "lie" }, {}, {} }, 93, road + 1);
        QVERIFY(trial.isReady());
        const ExamplePackage package;
        UpgradeProgram::run(trial.runArguments(package.path()));
        QVERIFY(trial.device().waitForReady(2));
        const DeviceAftermath lied = trial.aftermath();
        QVERIFY(lied.isRunning && !lied.isBricked && !lied.isInstalling);
        QVERIFY(!lied.wasRestartedEarly);
        QVERIFY2(lied.operations.contains(operation), qPrintable(lied.operations.join(' ')));
        QVERIFY(lied.installedFiles.isEmpty());
        QVERIFY(lied.registerFirmware.isEmpty());
        QCOMPARE(lied.installations, installations);
        QCOMPARE(lied.restarts, 1);
        QCOMPARE(lied.leftOver, QStringList());

        QVERIFY(trial.recover());
        const auto clean = UpgradeProgram::run(trial.runArguments(package.path()));
        QVERIFY2(clean.exitCode == 0, qPrintable(clean.err));
        const DeviceAftermath installed = trial.aftermath();
        QTEST(installed.installedFiles.size(), "files");
        QTEST(installed.registerFirmware.size(), "firmware");
    }

    void brick()
    {
        Trial trial(Trial::Road::Native, { { "brick", "power-cut=2" }, {}, {} }, 93, 10);
        QVERIFY(trial.isReady());
        const ExamplePackage package;
        UpgradeProgram upgrade(trial.runArguments(package.path()));
        QVERIFY(trial.device().waitForEnd());
        upgrade.interrupt(SIGKILL);
        upgrade.finish();
        const DeviceAftermath cut = trial.aftermath();
        QVERIFY(!cut.isRunning && cut.isInstalling && !cut.isBricked);
        QVERIFY(!cut.leftOver.isEmpty());
        QVERIFY(!trial.recover());
        QVERIFY(trial.aftermath().isBricked);
    }
};

QTEST_GUILESS_MAIN(tst_Trial)
#include "tst_trial.moc"
