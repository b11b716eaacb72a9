#include "deviceprogram.h"

#include "device/deviceaddress.h"
#include "device/devicesession.h"
#include "package/packageparse.h"

#include "compatibilityupgrade_dat.h"
#include "support/encipheredfile.h"
#include "support/packagebuilder.h"
#include "support/waituntil.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelink.h>
#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/socketlink.h>

#include <QtTest>

#include <chrono>
#include <memory>

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

// Writes that leave the device as it is.
const QByteArray HarmlessFile =
    "<FileInfo FileLabel='MCU' FileName='MCU.dat'>"
    "<CommandConfig CmdName='SendCardIndex' Data='0' Address='0x01000010' TimeOut='15000'/>"
    "<CommandConfig CmdName='SendDeviceID'/>"
    "<CommandConfig CmdName='SendSenderFileType' Data='1-0' Address='0x01000014' TimeOut='15000'/>"
    "<CommandConfig CmdName='SendFileLength' Address='0x01000020' TimeOut='15000'/></FileInfo>";

ProtoModel::Auxiliary::s_CardInfoParts mcuPart()
{
    ProtoModel::Auxiliary::s_CardInfoParts part;
    part.type = 1;
    part.modelId = 0x7701;
    return part;
}

/*! A session with \a device, which a package is parsed for then; null if there is none. */
std::unique_ptr<Host::DeviceSession> sessionWith(const DeviceProgram &device)
{
    QString errorText;
    const auto address = Host::DeviceAddress::parse(device.address(), 0, errorText);
    auto session = address ? Host::DeviceSession::open(*address, errorText) : nullptr;
    if (!session)
        qWarning().noquote() << errorText;
    return session;
}

int entryCount(const char *folder)
{
    return QDir(QLatin1String(folder))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

/*! The upgrade library's own object, over a link to a device: run after run, whatever that does. */
class tst_RegisterReruns : public QObject
{
    Q_OBJECT

    /*! Puts a unit with \a content and the firmware \a plain into \a package, and parses it. */
    bool parse(const PackageBuilder &package, const QByteArray &content, const QByteArray &plain)
    {
        if (!package.index({ "unit" }) || !package.paths({ { "unit/MCU.dat", "/mcu.bin" } })
            || !package.unit("unit", "ModuleID='7701' StepType='0' Version='4.5.6.7'", content)
            || !storeEnciphered(package.path("unit/MCU.dat"), plain))
            return false;
        Host::PackageParse parse(package.path());
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
        // Counted over all runs: within the first, the second and the third. A whole one has 12.
        DeviceProgram device({ "--fault", "register-ack=2:105", "--fault", "register-silent=5",
                               "--fault", "register-cut=15" });
        QVERIFY(device.waitForReady());
        const auto session = sessionWith(device);
        QVERIFY(session);
        QVERIFY(parse(package, McuFile, PlainFirmware));

        const auto link = session->device()->link();
        const auto channel = std::make_shared<SSProxy::DeviceChannel>(link);
        Firmware::CompatibilityUpgradeDat upgrade;
        QString errorText;
        QVector<bool> ends;
        connect(&upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateFinished, this,
                [&](bool isDone) { ends.append(isDone); });
        const auto run = [&](int number) {
            link->close(); // it need not have noticed the end of the last connection yet
            return link->open(PatienceMs, errorText) && upgrade.update({ mcuPart() }, channel)
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

    void lateAnswerOfTheLastWrite()
    {
        // One write, so that it is the first and the last at once.
        const QByteArray firmware = "Controller MCU 4.5.6.7\n";
        QByteArray impatient = McuFile;
        impatient.replace("TimeOut='200'", "TimeOut='15000'").replace("'5000'", "'50'");
        const PackageBuilder package;
        DeviceProgram device({ "--fault", "register-slow=300" });
        QVERIFY(device.waitForReady());
        const auto session = sessionWith(device);
        QVERIFY(session);
        QVERIFY(parse(package, impatient, firmware));
        const auto link = session->device()->link();
        const auto channel = std::make_shared<SSProxy::DeviceChannel>(link);
        Firmware::CompatibilityUpgradeDat upgrade;
        QSignalSpy ends(&upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateFinished);

        QVERIFY(upgrade.update({ mcuPart() }, channel));
        QTRY_COMPARE_WITH_TIMEOUT(ends.size(), 1, PatienceMs);

        QCOMPARE(ends.at(0).at(0).toBool(), false);
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.registerFirmware(), QVector<QByteArray>({ firmware }));
        QCOMPARE(device.runningVersion(0x0101), QStringLiteral("4.5.6.7"));
    }

    void pauseKeepsTheConnection()
    {
        QByteArray patient = McuFile;
        patient.replace("TimeOut='200'", "TimeOut='15000'");
        const PackageBuilder package;
        DeviceProgram device({ "--heartbeat-ms", "1000" });
        QVERIFY(device.waitForReady());
        const auto session = sessionWith(device);
        QVERIFY(session);
        QVERIFY(parse(package, patient, PlainFirmware));
        const auto link = session->device()->link();
        const auto channel = std::make_shared<SSProxy::DeviceChannel>(link);
        const auto address = device.address().split(':');
        SSProxy::SocketLink other(address.at(0), quint16(address.at(1).toUInt()));
        Firmware::CompatibilityUpgradeDat upgrade;
        QSignalSpy ends(&upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateFinished);
        bool isOtherDropped = false;
        QString errorText;
        connect(
            &upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateProcessChanged, &upgrade,
            [&](int, double) {
                // The run waits between two writes until the device has dropped a connection that
                // has been silent for no longer than the run's own.
                if (!isOtherDropped && other.open(PatienceMs, errorText))
                    isOtherDropped = waitUntil([&] { return !other.isOpen(); });
            },
            Qt::DirectConnection);

        link->close(); // the device may have dropped it during the parse
        QVERIFY2(link->open(PatienceMs, errorText), qPrintable(errorText));
        QVERIFY(upgrade.update({ mcuPart() }, channel));
        QTRY_COMPARE_WITH_TIMEOUT(ends.size(), 1, PatienceMs);

        QVERIFY2(isOtherDropped, qPrintable(errorText));
        QCOMPARE(ends.at(0).at(0).toBool(), true);
        QVERIFY(device.waitForReady(2));
        QCOMPARE(device.registerFirmware(), QVector<QByteArray>({ PlainFirmware }));
    }

    void nothingPilesUpOverALink()
    {
        constexpr int Runs = 200;
        constexpr int RunsOfAConnection = 20;
        const PackageBuilder package;
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const auto session = sessionWith(device);
        QVERIFY(session);
        QVERIFY(parse(package, HarmlessFile, PlainFirmware));
        const auto link = session->device()->link();
        const auto channel = std::make_shared<SSProxy::DeviceChannel>(link);
        Firmware::CompatibilityUpgradeDat upgrade;
        int goodEnds = 0;
        connect(&upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateFinished, this,
                [&](bool isDone) { goodEnds += isDone ? 1 : 0; });
        QString errorText;
        const int threads = entryCount("/proc/self/task");
        const int handles = entryCount("/proc/self/fd");

        for (int i = 1; i <= Runs; ++i) {
            if (i % RunsOfAConnection == 0) {
                link->close();
                QVERIFY2(link->open(PatienceMs, errorText), qPrintable(errorText));
            }
            QVERIFY(upgrade.update({ mcuPart() }, channel));
            QVERIFY(waitUntil([&] { return goodEnds == i; }));
        }

        // A thread is there a little longer than its QThread.
        QTRY_VERIFY(entryCount("/proc/self/task") <= threads);
        QTRY_VERIFY(entryCount("/proc/self/fd") <= handles);
    }
};

QTEST_GUILESS_MAIN(tst_RegisterReruns)
#include "tst_registerreruns.moc"
