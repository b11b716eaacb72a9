#include "programs.h"
#include "trial.h"

#include <QtTest>

#include <csignal>

/*! What trials tell of a device: that of its state folder and its trace, over each road. */
class tst_Trial : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
