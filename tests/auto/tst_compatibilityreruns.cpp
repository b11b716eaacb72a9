#include "compatibilityupgrade_dat.h"

#include "packageconfig.h"
#include "records/loadrecords.h"
#include "support/encipheredfile.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"
#include "support/waituntil.h"

#include <velmarbizmodel/devicelink.h>
#include <velmarssproxy/devicechannel.h>

#include <QtTest>

#include <algorithm>
#include <limits>

#include <malloc.h>

using TZ::ZLoad::DataPackage;
using Velmar::BizModel::LinkAnswer;
using Velmar::BizModel::LinkRequest;
using Velmar::Firmware::CompatibilityUpgradeDat;
using Velmar::Firmware::PackageConfig;
using Velmar::ProtoModel::Auxiliary::s_CardInfoParts;
using Velmar::SSProxy::DeviceChannel;

namespace {

constexpr int ModelId = 0x7701;
constexpr int WarmUpRuns = 20; // make what is made once
constexpr int Runs = 200; // in a row
constexpr int Rows = 3;
constexpr qint64 ToleratedBytes = 40; // a run, for odd ends of the heap's blocks

int entryCount(const char *folder)
{
    return QDir(QLatin1String(folder))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

// Bytes on the heap in all threads' arenas; 0 under a sanitizer, which has a heap of its own.
qint64 heapBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return qint64(info.uordblks) + qint64(info.hblkhd);
}

/*! Answers whole pieces of a file with one word and accepts all else. Unlike a ScriptedLink it
    keeps no record, which would pile up. */
class FirmwareLink : public Velmar::BizModel::DeviceLink
{
public:
    explicit FirmwareLink(quint16 ack)
        : m_ack(ack)
    {
    }

    bool open(int, QString &) override { return true; }
    void close() override { }
    bool isOpen() const override { return true; }
    LinkAnswer send(const LinkRequest &request) override
    {
        const int size = request.arguments.value(QLatin1String("body")).toByteArray().size();
        LinkAnswer answer;
        answer.outcome = LinkAnswer::Outcome::Answered;
        answer.ack = size == 4096 ? m_ack : quint16(0);
        return answer;
    }
    void pauseHeartbeat(int) override { }
    void restartHeartbeat() override { }

private:
    const quint16 m_ack;
};

} // namespace

/*! One object runs again and again: nothing may pile up but what its package's assignment drops. */
class tst_CompatibilityReruns : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { PackageConfig::destroyInstance(); }
    void nothingPilesUp_data();
    void nothingPilesUp();

private:
    qint64 bytesDroppedByAssignment();

    PackageBuilder m_package;
};

void tst_CompatibilityReruns::initTestCase()
{
    QVERIFY(m_package.index({ "controller" }));
    QVERIFY(m_package.unit("controller", "ModuleID='7701' Version='3.2.1.0'",
                           "<FileInfo FileName='MCU.dat' FileLabel='MCU'>"
                           "<CommandConfig CmdName='SendCardIndex' Data='0' Address='0x01000010'/>"
                           "<CommandConfig CmdName='SendDeviceID'/>"
                           "<CommandConfig CmdName='SendSenderFileType' Data='1-0' Address='0x14'/>"
                           "<CommandConfig CmdName='SendFileLength' Address='0x01000020'/>"
                           "<CommandConfig CmdName='SendFileCount' Address='0x01000030'/>"
                           "<CommandConfig CmdName='SendFileData' Address='0x01001000'/>"
                           "</FileInfo>"));
    QVERIFY(storeEnciphered(m_package.path("controller/MCU.dat"), QByteArray(9000, 'm')));
    QString errorText;
    QVERIFY2(PackageConfig::instance()->readConfig(m_package.path(), errorText),
             qPrintable(errorText));
}

qint64 tst_CompatibilityReruns::bytesDroppedByAssignment()
{
    constexpr int Assignments = 64;
    DataPackage package;
    PackageConfig::instance()->findDataPackage(ModelId, package);
    const qint64 before = heapBytes();
    for (int i = 0; i < Assignments; ++i)
        PackageConfig::instance()->findDataPackage(ModelId, package);
    return (heapBytes() - before) / Assignments;
}

void tst_CompatibilityReruns::nothingPilesUp_data()
{
    QTest::addColumn<quint16>("ack");

    QTest::newRow("good runs") << quint16(0);
    QTest::newRow("runs that fail") << quint16(3);
}

void tst_CompatibilityReruns::nothingPilesUp()
{
    QFETCH(quint16, ack);
    LogRecorder log;
    const auto channel = std::make_shared<DeviceChannel>(std::make_shared<FirmwareLink>(ack));
    CompatibilityUpgradeDat upgrade;
    int ends = 0;
    int goodEnds = 0;
    connect(&upgrade, &CompatibilityUpgradeDat::signalUpdateFinished, this, [&](bool isDone) {
        ++ends;
        goodEnds += isDone ? 1 : 0;
    });
    s_CardInfoParts part;
    part.type = 1;
    part.modelId = ModelId;
    const auto run = [&](int times) {
        const int endsBefore = ends;
        for (int i = 1; i <= times; ++i) {
            if (!upgrade.update({ part }, channel)
                || !waitUntil([&] { return ends == endsBefore + i; }))
                return false;
            log.clear();
        }
        return true;
    };
    const qint64 dropped = bytesDroppedByAssignment();
    const int threads = entryCount("/proc/self/task");
    const int handles = entryCount("/proc/self/fd");
    // A thread is there a little longer than its QThread.
    const auto areWorkersGone = [threads] {
        return waitUntil([threads] { return entryCount("/proc/self/task") == threads; });
    };
    QVERIFY(run(WarmUpRuns));

    QVERIFY(areWorkersGone());

    // A heap may have a buffer more at the end of some runs than before them. Of several rows of
    // runs, a leak shows in each.
    qint64 growth = std::numeric_limits<qint64>::max();
    for (int row = 0; row < Rows; ++row) {
        const qint64 bytes = heapBytes();
        QVERIFY(run(Runs));
        QVERIFY(areWorkersGone());
        growth = std::min(growth, heapBytes() - bytes);
    }

    QCOMPARE(goodEnds, ack == 0 ? WarmUpRuns + Rows * Runs : 0);
    QCOMPARE(entryCount("/proc/self/fd"), handles);
    QVERIFY2(growth <= Runs * (dropped + ToleratedBytes), qPrintable(QString::number(growth)));
    QCOMPARE(QDir(m_package.path("controller")).entryList(QDir::Files),
             QStringList({ "MCU.dat", "unit.xml" }));
}

QTEST_GUILESS_MAIN(tst_CompatibilityReruns)

#include "tst_compatibilityreruns.moc"
