#include "package/offer.h"
#include "package/packagelisting.h"
#include "package/packageparse.h"
#include "package/registerchoice.h"
#include "run/registerrun.h"

#include "support/encipheredfile.h"
#include "support/fakedevice.h"
#include "support/logrecorder.h"
#include "support/packagebuilder.h"
#include "support/registerlink.h"

#include <velmarbizmodel/device.h>

#include <QSemaphore>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer)

namespace {

constexpr std::chrono::seconds Ample { 30 };
constexpr quint16 StrataS8 = 0x7701;

const QByteArray McuCommands = "<CommandConfig CmdName='SendCardIndex' Data='0' Address='0x10'/>"
                               "<CommandConfig CmdName='SendDeviceID'/>"
                               "<CommandConfig CmdName='SendFileData' Address='0x40'/>";

QByteArray mcuFile(const QByteArray &commands)
{
    return "<FileInfo FileLabel='MCU' FileName='MCU.dat'>" + commands + "</FileInfo>";
}

/*! What a host hears of a run, in order. */
class Listener : public QObject
{
public:
    explicit Listener(RegisterRun &run)
    {
        connect(&run, &RegisterRun::signalStageChanged, this, [this](DeviceRun::Stage stage) {
            heard.append(QVariant::fromValue(stage).toString());
        });
        connect(&run, &RegisterRun::signalSending, this, [this](int percent, const QString &text) {
            heard.append(QStringLiteral("%1: %2").arg(percent).arg(text));
        });
        connect(&run, &RegisterRun::signalEnded, this,
                [this](DeviceRun::Outcome outcome, const QString &text) {
                    outcomes.append(QVariant::fromValue(outcome).toString());
                    heard.append(text);
                });
    }

    QStringList heard;
    QStringList outcomes;
};

/*! A link over which no write is answered until it is closed. */
class SilentLink : public RegisterLink
{
public:
    SilentLink()
    {
        handle("register.write", [this](const BizModel::LinkRequest &) {
            m_written.release();
            m_closed.acquire();
            return failed(BizModel::LinkAnswer::Outcome::Lost);
        });
    }

    void close() override
    {
        RegisterLink::close();
        m_closed.release();
    }

    void waitForWrite() { m_written.acquire(); }

private:
    QSemaphore m_written;
    QSemaphore m_closed;
};

} // namespace

/*! The road over registers as a host takes it: what is chosen, and the run. */
class tst_RegisterRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void choice();
    void nothingToChoose_data();
    void nothingToChoose();

    void wholeUpgrade();
    void oneWriteHasNoProgress();
    void percentIsToldOnce();
    void everyPercentIsTold();
    void failure_data();
    void failure();
    void libraryWordsTheFailure();
    void timeLimit();
    void givenUp();
    void givenUpTwice();
    void givenUpWithoutAWorker();
    void workerThatDoesNotEnd();
    void noParts();
    void droppedWhileRunning();

private:
    bool parse(const QByteArray &attributes, const QByteArray &content);
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> parts() const;
    bool choose(Selection &selection, QString &errorText) const;

    std::unique_ptr<LogRecorder> m_log; // the library's causes, which other tests check
    std::unique_ptr<FakeDevice> m_device;
    std::unique_ptr<PackageBuilder> m_package;
    QVector<Firmware::UpgradeCfg> m_units;
};

void tst_RegisterRun::init()
{
    m_log = std::make_unique<LogRecorder>();
    m_device = std::make_unique<FakeDevice>(StrataS8);
    for (const char *operation : { "register.write", "heartbeat.pause", "heartbeat.resume" })
        m_device->link().answer(operation, ScriptedLink::accepted());
    m_package = std::make_unique<PackageBuilder>();
    QVERIFY(m_package->index({ "main" }) && m_package->paths({ { "main/MCU.dat", "/mcu.bin" } }));
    QVERIFY(QDir().mkpath(m_package->path("main")));
    QVERIFY(storeEnciphered(m_package->path("main/MCU.dat"), QByteArray(10000, 'f')));
}

void tst_RegisterRun::cleanup()
{
    m_package.reset();
    m_device.reset();
    m_log.reset();
}

/*! Writes the one unit of the package and parses it for the device. */
bool tst_RegisterRun::parse(const QByteArray &attributes, const QByteArray &content)
{
    if (!m_package->unit("main", attributes + " StepType='0'", content))
        return false;
    PackageParse parse(m_package->path());
    bool isOver = false;
    bool isGood = false;
    connect(&parse, &PackageParse::signalEnded, &parse, [&](bool result) {
        isOver = true;
        isGood = result;
    });
    parse.start(Ample);
    [&] {
        QTRY_VERIFY(isOver);
    }();
    m_units = parse.units();
    return isGood;
}

std::vector<ProtoModel::Auxiliary::s_CardInfoParts> tst_RegisterRun::parts() const
{
    ProtoModel::Auxiliary::s_CardInfoParts part;
    part.type = 1;
    part.modelId = StrataS8;
    return { part };
}

bool tst_RegisterRun::choose(Selection &selection, QString &errorText) const
{
    PackageListing listing;
    return listing.read(m_package->path(), errorText)
        && chooseForRegisters(offeredParts(m_units, m_device->device()), listing, StrataS8,
                              selection, errorText);
}

void tst_RegisterRun::choice()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'",
                  "<FileInfo FileLabel='FPGA' FileName='FPGA.dat'/>" + mcuFile(McuCommands)));
    Selection selection;
    QString errorText;
    QVERIFY2(choose(selection, errorText), qPrintable(errorText));
    QCOMPARE(summary(selection.parts()), QStringLiteral("main control: MCU"));
    const auto chosen = registerParts(selection);
    QCOMPARE(chosen.size(), std::size_t(1));
    QCOMPARE(chosen.front().type, 1);
    QCOMPARE(chosen.front().slotId, quint8(0));
    QCOMPARE(chosen.front().modelId, StrataS8);
    QCOMPARE(chosen.front().section.size(), std::size_t(1));
    QCOMPARE(chosen.front().section.front().code, quint16(0x0101));
}

void tst_RegisterRun::nothingToChoose_data()
{
    QTest::addColumn<QString>("section"); // that the parse offers
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("errorText");

    const QString noCommands =
        QStringLiteral("The package has no commands by which the \"MCU\" of model 0x7701 could be "
                       "written register by register");
    QTest::newRow("no MCU")
        << "FPGA"
        << QByteArray("<FileInfo FileLabel='FPGA' FileName='FPGA.dat'>" + McuCommands
                      + "</FileInfo>")
        << "Nothing fits for section \"MCU\" and card \"main\". What fits: main control: FPGA";
    QTest::newRow("no commands") << "MCU" << mcuFile("") << noCommands;
    QTest::newRow("no command for the data")
        << "MCU" << mcuFile("<CommandConfig CmdName='SendDeviceID'/>") << noCommands;
    QTest::newRow("commands of another file")
        << "MCU"
        << QByteArray(mcuFile("") + "<FileInfo FileLabel='FPGA' FileName='FPGA.dat'>" + McuCommands
                      + "</FileInfo>")
        << noCommands;
    QTest::newRow("commands of no file")
        << "MCU" << QByteArray(mcuFile("") + "<EndSendCmd>" + McuCommands + "</EndSendCmd>")
        << noCommands;
}

void tst_RegisterRun::nothingToChoose()
{
    QFETCH(QString, section);
    QFETCH(QByteArray, content);
    QVERIFY(m_package->unit("main", "ModuleID='7701'", content));
    Firmware::UpgradeCfg unit;
    unit.modelId = StrataS8;
    unit.files.append({ section, QString(), QString(), 0 });
    m_units = { unit };
    Selection selection;
    QString errorText;
    QVERIFY(!choose(selection, errorText));
    QTEST(errorText, "errorText");
    QVERIFY(selection.parts().empty());
}

void tst_RegisterRun::wholeUpgrade()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    RegisterRun run(m_device->device().link(), parts());
    const Listener listener(run);
    QCOMPARE(run.stage(), DeviceRun::Stage::Idle);

    run.start(Ample);

    QCOMPARE(run.stage(), DeviceRun::Stage::Preparing);
    QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
    QVERIFY(!run.isWorkerLeftBehind());
    QCOMPARE(listener.heard,
             QStringList({ "Preparing", "Sending", "33: Writing firmware, current progress is 33%",
                           "66: Writing firmware, current progress is 66%",
                           "100: Writing firmware, current progress is 100%", "Ended",
                           "The firmware is written, and the device restarts with it" }));
    QCOMPARE(m_device->link().operations(),
             QStringList({ "heartbeat.pause", "register.write", "register.write", "register.write",
                           "register.write", "heartbeat.resume" }));
}

void tst_RegisterRun::oneWriteHasNoProgress()
{
    QVERIFY(storeEnciphered(m_package->path("main/MCU.dat"), QByteArray(4096, 'f')));
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    RegisterRun run(m_device->device().link(), parts());
    const Listener listener(run);
    run.start(Ample);
    QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
    QCOMPARE(listener.heard,
             QStringList({ "Preparing", "Ended",
                           "The firmware is written, and the device restarts with it" }));
}

void tst_RegisterRun::percentIsToldOnce()
{
    QVERIFY(storeEnciphered(m_package->path("main/MCU.dat"), QByteArray(250 * 4096, 'f')));
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    RegisterRun run(m_device->device().link(), parts());
    const Listener listener(run);
    run.start(Ample);
    QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
    QCOMPARE(listener.heard.size(), 105); // 0 to 100, three stages, the last word
}

void tst_RegisterRun::everyPercentIsTold()
{
    QVERIFY(storeEnciphered(m_package->path("main/MCU.dat"), QByteArray(100 * 4096, 'f')));
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    RegisterRun run(m_device->device().link(), parts());
    const Listener listener(run);
    QVector<int> percents;
    connect(&run, &RegisterRun::signalSending, this,
            [&percents](int percent) { percents.append(percent); });
    run.start(Ample);
    QTRY_COMPARE(listener.outcomes, QStringList("Succeeded"));
    QCOMPARE(percents.size(), 100);
    for (int i = 0; i < 100; ++i)
        QCOMPARE(percents.at(i), i + 1);
}

void tst_RegisterRun::failure_data()
{
    QTest::addColumn<BizModel::LinkAnswer>("answer");

    QTest::newRow("refused") << ScriptedLink::refused(104, QStringLiteral("no"));
    QTest::newRow("not answered") << ScriptedLink::failed(BizModel::LinkAnswer::Outcome::TimedOut);
    QTest::newRow("lost") << ScriptedLink::failed(BizModel::LinkAnswer::Outcome::Lost);
}

void tst_RegisterRun::failure()
{
    QFETCH(BizModel::LinkAnswer, answer);
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    m_device->link().queue("register.write", answer);
    RegisterRun run(m_device->device().link(), parts());
    const Listener listener(run);
    run.start(Ample);
    QTRY_COMPARE(listener.outcomes, QStringList("Failed"));
    QCOMPARE(listener.heard,
             QStringList({ "Preparing", "Ended", "The firmware could not be written" }));
}

void tst_RegisterRun::libraryWordsTheFailure()
{
    QVERIFY(parse("ModuleID='7701' Version='2.9'", mcuFile(McuCommands)));
    RegisterRun run(m_device->device().link(), parts());
    const Listener listener(run);
    run.start(Ample);
    QTRY_COMPARE(listener.outcomes, QStringList("Failed"));
    QCOMPARE(
        listener.heard.constLast(),
        QStringLiteral("Failed to upgrade:The upgrade file version is too low, please check!"));
}

void tst_RegisterRun::timeLimit()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    const auto link = std::make_shared<SilentLink>();
    RegisterRun run(link, parts());
    const Listener listener(run);

    run.start(std::chrono::milliseconds(50));

    QTRY_COMPARE(listener.outcomes, QStringList("TimedOut"));
    QCOMPARE(listener.heard, QStringList({ "Preparing", "Ended", QString() }));
    QVERIFY(!run.isWorkerLeftBehind());
    QVERIFY(!link->isOpen());
    QCOMPARE(link->restarts(), 1);
    QCOMPARE(QDir(m_package->path("main")).entryList(QDir::Files),
             QStringList({ "MCU.dat", "unit.xml" }));
}

void tst_RegisterRun::givenUp()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    const auto link = std::make_shared<SilentLink>();
    RegisterRun run(link, parts());
    const Listener listener(run);
    run.start(Ample);
    link->waitForWrite();

    run.giveUp();

    QVERIFY(!run.isWorkerLeftBehind());
    QCOMPARE(run.stage(), DeviceRun::Stage::Ended);
    QCoreApplication::processEvents();
    QCOMPARE(listener.heard, QStringList({ "Preparing", "Ended" }));
}

void tst_RegisterRun::givenUpTwice()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    QSemaphore reached;
    QSemaphore release;
    m_device->link().handle("register.write", [&](const BizModel::LinkRequest &) {
        reached.release();
        release.acquire();
        return ScriptedLink::refused(1, QString());
    });
    RegisterRun run(m_device->device().link(), parts());
    run.setWorkerEndLimit(Ample);
    run.start(Ample);
    reached.acquire();
    bool isFirstWaiting = false;
    bool isSecondGood = false;
    QTimer::singleShot(0, &run, [&] { // while the first one waits
        isFirstWaiting = run.isWorkerLeftBehind();
        QTimer::singleShot(0, &run, [&] { release.release(); }); // while the second one does
        run.giveUp();
        isSecondGood = !run.isWorkerLeftBehind()
            && m_log->texts(QtWarningMsg).contains("Fail to send command config");
    });

    run.giveUp();

    QVERIFY(isFirstWaiting);
    QVERIFY(isSecondGood);
    QVERIFY(!run.isWorkerLeftBehind());
}

void tst_RegisterRun::givenUpWithoutAWorker()
{
    auto run = std::make_unique<RegisterRun>(m_device->device().link(),
                                             std::vector<ProtoModel::Auxiliary::s_CardInfoParts>());
    run->setWorkerEndLimit(Ample);
    const Listener listener(*run);
    run->start(Ample);
    QElapsedTimer waited;
    waited.start();

    run->giveUp();

    QVERIFY(std::chrono::milliseconds(waited.elapsed()) < Ample / 2);
    QVERIFY(!run->isWorkerLeftBehind());
    QCoreApplication::processEvents();
    QCOMPARE(listener.heard, QStringList({ "Preparing", "Ended" }));
}

void tst_RegisterRun::workerThatDoesNotEnd()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    QSemaphore release;
    m_device->link().handle("register.write", [&](const BizModel::LinkRequest &) {
        release.acquire();
        return ScriptedLink::refused(1, QString());
    });
    auto run = std::make_unique<RegisterRun>(m_device->device().link(), parts());
    run->setWorkerEndLimit(std::chrono::milliseconds(20));
    const Listener listener(*run);

    run->start(std::chrono::milliseconds(20));

    QTRY_COMPARE(listener.outcomes, QStringList("TimedOut"));
    QVERIFY(run->isWorkerLeftBehind());
    run.reset();
    release.release();
    QTRY_VERIFY(m_log->texts(QtWarningMsg).contains("Fail to send command config"));
}

void tst_RegisterRun::noParts()
{
    RegisterRun run(m_device->device().link(), {});
    const Listener listener(run);
    run.start(Ample);
    QVERIFY(listener.outcomes.isEmpty()); // not before the host runs its event loop
    QTRY_COMPARE(listener.outcomes, QStringList("Failed"));
}

void tst_RegisterRun::droppedWhileRunning()
{
    QVERIFY(parse("ModuleID='7701' Version='3.0'", mcuFile(McuCommands)));
    QSemaphore reached;
    QSemaphore release;
    m_device->link().handle("register.write", [&](const BizModel::LinkRequest &) {
        reached.release();
        release.acquire();
        return ScriptedLink::refused(1, QString());
    });
    auto run = std::make_unique<RegisterRun>(m_device->device().link(), parts());
    run->start(Ample);
    reached.acquire();

    run.reset();

    release.release();
    QTRY_VERIFY(m_device->link().operations().contains("heartbeat.resume"));
}

QTEST_GUILESS_MAIN(tst_RegisterRun)

#include "tst_registerrun.moc"
