#include "deviceprogram.h"

#include "deviceaddress.h"
#include "devicesession.h"
#include "packageparse.h"

#include "compatibilityupgrade_dat.h"
#include "support/encipheredfile.h"
#include "support/packagebuilder.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelink.h>
#include <velmarssproxy/devicechannel.h>

#include <QtTest>

using namespace Velmar;

namespace {

constexpr std::chrono::seconds Ample { 30 };
constexpr int PatienceMs = 20000;

const QByteArray PlainFirmware = QByteArray("Controller MCU 4.5.6.7\n") + QByteArray(20000, 'f');

const QByteArray McuFile =
    "<FileInfo FileLabel='MCU' FileName='MCU.dat'>"
    "<CommandConfig CmdName='SendCardIndex' Data='0' Address='0x01000010' TimeOut='200'/>"
    "<CommandConfig CmdName='SendDeviceID'/>"
    "<CommandConfig CmdName='SendSenderFileType' Data='1-0' Address='0x01000014' TimeOut='200'/>"
    "<CommandConfig CmdName='SendFileLength' Address='0x01000020' TimeOut='200'/>"
    "<CommandConfig CmdName='SendFileCount' Address='0x01000030' TimeOut='200'/>"
    "<CommandConfig CmdName='SendFileData' Address='0x01001000' TimeOut='5000'/></FileInfo>";

} // namespace

/*! One object of the upgrade library that upgrades a device again and again, whatever that does. */
class tst_RegisterReruns : public QObject {
    Q_OBJECT

    bool parse(const QString &path)
    {
        Host::PackageParse parse(path);
        bool isOver = false;
        bool isGood = false;
        connect(&parse, &Host::PackageParse::signalEnded, &parse, [&](bool result) {
            isOver = true;
            isGood = result;
        });
        parse.start(Ample);
        return QTest::qWaitFor([&] { return isOver; }, PatienceMs) && isGood;
    }

private Q_SLOTS:
    void againAfterEachEnd()
    {
        const PackageBuilder package;
        QVERIFY(package.index({ "unit" }) && package.paths({ { "unit/MCU.dat", "/mcu.bin" } }));
        QVERIFY(package.unit("unit", "ModuleID='7701' StepType='0' Version='4.5.6.7'", McuFile));
        QVERIFY(storeEnciphered(package.path("unit/MCU.dat"), PlainFirmware));
        // Counted over all runs: within the first, the second and the third. A whole one has 12.
        DeviceProgram device({ "--fault", "register-ack=2:105", "--fault", "register-silent=5",
                               "--fault", "register-cut=15" });
        QVERIFY(device.waitForReady());
        QString errorText;
        const auto address = Host::DeviceAddress::parse(device.address(), 0, errorText);
        QVERIFY2(address, qPrintable(errorText));
        const auto session = Host::DeviceSession::open(*address, errorText);
        QVERIFY2(session, qPrintable(errorText));
        QVERIFY(parse(package.path()));

        const auto link = session->device()->link();
        const auto channel = std::make_shared<SSProxy::DeviceChannel>(link);
        Firmware::CompatibilityUpgradeDat upgrade;
        ProtoModel::Auxiliary::s_CardInfoParts part;
        part.type = 1;
        part.modelId = 0x7701;
        QVector<bool> ends;
        connect(&upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateFinished, this,
                [&](bool isDone) { ends.append(isDone); });
        const auto run = [&](int number) {
            link->close(); // it need not have noticed the end of the last connection yet
            return link->open(PatienceMs, errorText) && upgrade.update({ part }, channel)
                && QTest::qWaitFor([&] { return ends.size() == number; }, PatienceMs);
        };

        QVERIFY(run(1)); // refused
        QVERIFY(run(2)); // not answered
        QVERIFY(run(3)); // cut off
        QVERIFY(run(4));
        QCOMPARE(ends, QVector<bool>({ false, false, false, true }));
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.runningVersion(0x0101), QStringLiteral("4.5.6.7"));
        QCOMPARE(device.registerFirmware(), QVector<QByteArray>({ PlainFirmware }));

        QVERIFY(run(5));
        QVERIFY(ends.last());
        QVERIFY(device.waitForReady(3));
        QCOMPARE(device.registerFirmware(), QVector<QByteArray>({ PlainFirmware }));
        QCOMPARE(QDir(package.path("unit")).entryList(QDir::Files),
                 QStringList({ "MCU.dat", "unit.xml" }));
    }
};

QTEST_GUILESS_MAIN(tst_RegisterReruns)
#include "tst_registerreruns.moc"
