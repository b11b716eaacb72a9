#include "support/fakedevice.h"
#include "support/logrecorder.h"

#include <velmarmodelcontrol/auxiliary.h>
#include <velmarmodelcontrol/device.h>
#include <velmarmodelcontrol/linkpolicy.h>

#include <QCborArray>
#include <QCborValue>
#include <QtTest>

#include <type_traits>

using namespace Velmar::ProtoModel::Auxiliary;
using Velmar::BizModel::LinkRequest;
using Velmar::ModelControl::Auxiliary;
using Velmar::ModelControl::LinkPolicy;
using Outcome = Velmar::BizModel::LinkAnswer::Outcome;

// Whoever derives from them may delete by the base.
static_assert(std::has_virtual_destructor_v<Auxiliary>);
static_assert(std::has_virtual_destructor_v<Velmar::ModelControl::Device>);

namespace {

Velmar::BizModel::s_DeviceConfig model()
{
    Velmar::BizModel::s_DeviceConfig config;
    config.modelId = 0x7701;
    return config;
}

// Time for many tries and no pause between them.
LinkPolicy quickPolicy()
{
    LinkPolicy policy;
    policy.readRepeatTime = 10000;
    policy.writeRepeatTime = 10000;
    policy.repeatPause = 0;
    return policy;
}

LinkPolicy singleTry()
{
    LinkPolicy policy = quickPolicy();
    policy.readRepeatTime = 0;
    policy.writeRepeatTime = 0;
    return policy;
}

QCborMap wholeVersion()
{
    const QCborMap section { { "code", 258 }, { "version", "1.2.3.4" }, { "brief", "S" } };
    const QCborMap part { { "type", 2 },        { "slotId", 255 },
                          { "modelId", 70000 }, { "version", "2.0" },
                          { "brief", "P" },     { "section", QCborArray { section } } };
    return { { "version", "3.0.0.0" }, { "brief", "S1.T9" }, { "parts", QCborArray { part } } };
}

QCborMap wholeProgress()
{
    const QCborMap section { { "code", 65535 }, { "rate", 30 }, { "result", -7 } };
    const QCborMap card { { "type", -1 },
                          { "slotId", 4 },
                          { "rate", 40 },
                          { "result", 1 },
                          { "section", QCborArray { section } } };
    return { { "run", 5 },
             { "result", 1 },
             { "rate", 50 },
             { "subSections", QCborMap { { "rate", 60 } } },
             { "parts", QCborArray { card } } };
}

QCborMap with(QCborMap map, const char *key, const QCborValue &value)
{
    map[QLatin1String(key)] = value;
    return map;
}

} // namespace

class tst_Auxiliary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void policyDefaults();

    void version();
    void versionLeavesOutKeys();
    void versionOfTheWrongShape_data();
    void versionOfTheWrongShape();
    void questionIsRepeated_data();
    void questionIsRepeated();
    void questionIsGivenUp_data();
    void questionIsGivenUp();
    void questionThatIsTooLongIsFinal();
    void refusedQuestionIsFinal();
    void unreachableDeviceIsGivenUp();
    void laterTriesKeepToTheRest();

    void configure();
    void configureStoresTheRun_data();
    void configureStoresTheRun();
    void orderIsRepeatedIfNotDelivered();
    void orderIsGivenUp();
    void orderIsNotRepeated_data();
    void orderIsNotRepeated();

    void progress();
    void progressLeavesOutKeys();
    void progressOfTheWrongShape_data();
    void progressOfTheWrongShape();
    void olderResultIsStillRunning_data();
    void olderResultIsStillRunning();

    void shutDown();
    void disconnects();
    void expiredDevice();

private:
    std::unique_ptr<FakeDevice> m_device;
};

void tst_Auxiliary::init()
{
    Velmar::ModelControl::setLinkPolicy(singleTry());
    m_device = std::make_unique<FakeDevice>(model());
}

void tst_Auxiliary::cleanup()
{
    Velmar::ModelControl::setLinkPolicy(LinkPolicy());
}

void tst_Auxiliary::policyDefaults()
{
    Velmar::ModelControl::setLinkPolicy(LinkPolicy());
    const LinkPolicy policy = Velmar::ModelControl::linkPolicy();
    QCOMPARE(policy.connectTimeout, 5000);
    QCOMPARE(policy.readTimeout, 5000);
    QCOMPARE(policy.writeTimeout, 10000);
    QCOMPARE(policy.chunkTimeout, 30000);
    QCOMPARE(policy.closeTimeout, 120000);
    QCOMPARE(policy.readRepeatTime, 60000);
    QCOMPARE(policy.writeRepeatTime, 10000);
    QCOMPARE(policy.repeatPause, 250);
}

void tst_Auxiliary::version()
{
    m_device->link().answer("version.read", ScriptedLink::accepted(wholeVersion()));
    s_DeviceVersion version;
    QString errorText;

    QVERIFY(Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));

    QCOMPARE(errorText, QString());
    QCOMPARE(m_device->link().operations(), QStringList("version.read"));
    QVERIFY(m_device->link().requests().first().arguments.isEmpty());
    QCOMPARE(m_device->link().requests().first().timeout, 5000);
    QCOMPARE(version.version, std::string("3.0.0.0"));
    QCOMPARE(version.brief, std::string("S1.T9"));
    QCOMPARE(version.parts.size(), std::size_t(1));
    const s_DeviceVersionPart &part = version.parts.front();
    QCOMPARE(int(part.type), 2);
    QCOMPARE(int(part.slotId), 255);
    QCOMPARE(part.modelId, 70000u);
    QCOMPARE(part.version, std::string("2.0"));
    QCOMPARE(part.brief, std::string("P"));
    QCOMPARE(part.section.size(), std::size_t(1));
    QCOMPARE(int(part.section.front().code), 258);
    QCOMPARE(part.section.front().version, std::string("1.2.3.4"));
    QCOMPARE(part.section.front().brief, std::string("S"));
}

void tst_Auxiliary::versionLeavesOutKeys()
{
    const QCborMap part { { "section", QCborArray { QCborMap() } }, { "colour", "red" } };
    m_device->link().queue("version.read", ScriptedLink::accepted());
    m_device->link().queue("version.read",
                           ScriptedLink::accepted({ { "parts", QCborArray { part } } }));
    s_DeviceVersion version;
    QString errorText;
    Auxiliary auxiliary(m_device->handle());

    QVERIFY(auxiliary.readDeviceVersion(version, errorText));
    QCOMPARE(version.version, std::string("N/A"));
    QCOMPARE(version.brief, std::string("N/A"));
    QVERIFY(version.parts.empty());

    QVERIFY(auxiliary.readDeviceVersion(version, errorText));
    QCOMPARE(version.parts.size(), std::size_t(1));
    const s_DeviceVersionPart &read = version.parts.front();
    QCOMPARE(int(read.type), 1);
    QCOMPARE(int(read.slotId), 0);
    QCOMPARE(read.modelId, 30465u);
    QCOMPARE(read.version, std::string("N/A"));
    QCOMPARE(read.brief, std::string("N/A"));
    QCOMPARE(int(read.section.front().code), 258);
    QCOMPARE(read.section.front().version, std::string("N/A"));
    QCOMPARE(read.section.front().brief, std::string("N/A"));
}

void tst_Auxiliary::versionOfTheWrongShape_data()
{
    QTest::addColumn<QCborMap>("values");
    QTest::addColumn<QString>("key");

    const auto inPart = [](const char *key, const QCborValue &value) {
        return QCborMap { { "parts", QCborArray { QCborMap { { QLatin1String(key), value } } } } };
    };
    const auto inSection = [&inPart](const char *key, const QCborValue &value) {
        return inPart("section", QCborArray { QCborMap { { QLatin1String(key), value } } });
    };
    QTest::newRow("version a number") << with(wholeVersion(), "version", 3) << "version";
    QTest::newRow("version null") << with(wholeVersion(), "version", nullptr) << "version";
    QTest::newRow("brief bytes") << with(wholeVersion(), "brief", QByteArray("x")) << "brief";
    QTest::newRow("parts a map") << with(wholeVersion(), "parts", QCborMap()) << "parts";
    QTest::newRow("part a number") << with(wholeVersion(), "parts", QCborArray { 1 }) << "parts";
    QTest::newRow("type too large") << inPart("type", 256) << "type";
    QTest::newRow("type negative") << inPart("type", -1) << "type";
    QTest::newRow("type a fraction") << inPart("type", 1.5) << "type";
    QTest::newRow("slot as text") << inPart("slotId", "1") << "slotId";
    QTest::newRow("model too large") << inPart("modelId", 4294967296LL) << "modelId";
    QTest::newRow("version of a part") << inPart("version", 1) << "version";
    QTest::newRow("brief of a part") << inPart("brief", QCborArray()) << "brief";
    QTest::newRow("sections as text") << inPart("section", "1") << "section";
    QTest::newRow("section as text") << inPart("section", QCborArray { "1" }) << "section";
    QTest::newRow("code too large") << inSection("code", 65536) << "code";
    QTest::newRow("code negative") << inSection("code", -1) << "code";
    QTest::newRow("version of a section") << inSection("version", 1) << "version";
    QTest::newRow("brief of a section") << inSection("brief", true) << "brief";
}

void tst_Auxiliary::versionOfTheWrongShape()
{
    QFETCH(QCborMap, values);
    QFETCH(QString, key);
    m_device->link().answer("version.read", ScriptedLink::accepted(values));
    s_DeviceVersion version;
    version.version = "as it was";
    QString errorText;

    QVERIFY(!Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));
    QCOMPARE(errorText, QString("the answer has no valid \"%1\"").arg(key));
    QCOMPARE(version.version, std::string("as it was"));
    QVERIFY(version.parts.empty());
    QCOMPARE(m_device->link().requests().size(), 1);
}

void tst_Auxiliary::questionIsRepeated_data()
{
    QTest::addColumn<int>("outcome");
    QTest::addColumn<int>("connections"); // made anew

    QTest::newRow("not delivered") << int(Outcome::NotDelivered) << 2;
    QTest::newRow("timed out") << int(Outcome::TimedOut) << 0;
    QTest::newRow("lost") << int(Outcome::Lost) << 2;
}

void tst_Auxiliary::questionIsRepeated()
{
    QFETCH(int, outcome);
    QFETCH(int, connections);
    Velmar::ModelControl::setLinkPolicy(quickPolicy());
    ScriptedLink &link = m_device->link();
    for (const char *operation : { "version.read", "upgrade.progress" }) {
        link.queue(operation, ScriptedLink::failed(Outcome(outcome)));
        link.queue(operation, ScriptedLink::failed(Outcome(outcome)));
    }
    link.answer("version.read", ScriptedLink::accepted(wholeVersion()));
    link.answer("upgrade.progress", ScriptedLink::accepted(wholeProgress()));
    s_DeviceVersion version;
    s_UpgradePercent percent;
    QString errorText;

    QVERIFY(Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));
    QCOMPARE(version.version, std::string("3.0.0.0"));
    QCOMPARE(link.openCount(), connections);
    QVERIFY(Auxiliary(m_device->handle()).readUpgradeProgress(percent, errorText));
    QCOMPARE(int(percent.rate), 50);
    QCOMPARE(link.openCount(), connections * 2);
    QCOMPARE(errorText, QString());
    QCOMPARE(link.operations(),
             QStringList({ "version.read", "version.read", "version.read", "upgrade.progress",
                           "upgrade.progress", "upgrade.progress" }));
}

void tst_Auxiliary::questionIsGivenUp_data()
{
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("text");

    QTest::newRow("not delivered")
        << int(Outcome::NotDelivered) << "version.read did not reach the device: scripted failure";
    QTest::newRow("timed out") << int(Outcome::TimedOut)
                               << "no answer to version.read: scripted failure";
    QTest::newRow("lost") << int(Outcome::Lost)
                          << "connection lost during version.read: scripted failure";
}

void tst_Auxiliary::questionIsGivenUp()
{
    QFETCH(int, outcome);
    QFETCH(QString, text);
    LinkPolicy policy = quickPolicy();
    policy.readRepeatTime = 10;
    policy.repeatPause = 1;
    Velmar::ModelControl::setLinkPolicy(policy);
    m_device->link().answer("version.read", ScriptedLink::failed(Outcome(outcome)));
    s_DeviceVersion version;
    QString errorText;

    QVERIFY(!Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));
    QCOMPARE(errorText, text);
    QVERIFY(m_device->link().requests().size() >= 2);
}

void tst_Auxiliary::questionThatIsTooLongIsFinal()
{
    Velmar::ModelControl::setLinkPolicy(quickPolicy());
    m_device->link().answer("version.read", ScriptedLink::failed(Outcome::Unsendable));
    s_DeviceVersion version;
    QString errorText;

    QVERIFY(!Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));
    QCOMPARE(errorText, QString("version.read cannot be sent: scripted failure"));
    QCOMPARE(m_device->link().requests().size(), 1);
}

void tst_Auxiliary::refusedQuestionIsFinal()
{
    Velmar::ModelControl::setLinkPolicy(quickPolicy());
    m_device->link().answer("version.read", ScriptedLink::refused(4, "starting up"));
    s_DeviceVersion version;
    QString errorText;

    QVERIFY(!Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));
    QCOMPARE(errorText, QString("the device refused version.read with 4: starting up"));
    QCOMPARE(m_device->link().requests().size(), 1);
}

void tst_Auxiliary::unreachableDeviceIsGivenUp()
{
    LinkPolicy policy = quickPolicy();
    policy.readRepeatTime = 10;
    policy.repeatPause = 1;
    Velmar::ModelControl::setLinkPolicy(policy);
    m_device->link().close();
    m_device->link().setReachable(false);
    s_UpgradePercent percent;
    QString errorText;

    QVERIFY(!Auxiliary(m_device->handle()).readUpgradeProgress(percent, errorText));
    QCOMPARE(errorText,
             QString("upgrade.progress did not reach the device: scripted device is unreachable"));
    QVERIFY(m_device->link().openCount() >= 2);
    QVERIFY(m_device->link().requests().isEmpty());
}

void tst_Auxiliary::laterTriesKeepToTheRest()
{
    LinkPolicy policy = quickPolicy();
    policy.readRepeatTime = 1000;
    Velmar::ModelControl::setLinkPolicy(policy);
    m_device->link().queue("version.read", ScriptedLink::failed(Outcome::TimedOut));
    m_device->link().answer("version.read", ScriptedLink::accepted());
    s_DeviceVersion version;
    QString errorText;

    QVERIFY(Auxiliary(m_device->handle()).readDeviceVersion(version, errorText));
    QCOMPARE(m_device->link().requests().at(0).timeout, 5000);
    QVERIFY(m_device->link().requests().at(1).timeout <= 1000);
    QVERIFY(m_device->link().requests().at(1).timeout > 0);
}

void tst_Auxiliary::configure()
{
    s_CardInfoParts card;
    card.type = 1;
    card.slotId = 255;
    card.modelId = 0x7701;
    card.boardId = 5;
    card.section = { { 258 }, { 65535 } };
    s_UpgradeDetail detail;
    detail.upgradeType = 1;
    detail.filePath = "N/A";
    detail.reboot = 1;
    detail.deleteUpgradeFile = 1;
    detail.parts = { card, s_CardInfoParts() };
    m_device->link().answer("upgrade.configure", ScriptedLink::accepted({ { "run", 7 } }));

    QVERIFY(Auxiliary(m_device->handle()).setUgradeConfig(detail));

    QCOMPARE(m_device->link().operations(), QStringList("upgrade.configure"));
    QCOMPARE(m_device->link().requests().first().timeout, 10000);
    QCOMPARE(QCborValue(m_device->link().requests().first().arguments).toDiagnosticNotation(),
             QString("{\"upgradeType\": 1, \"filePath\": \"N/A\", \"reboot\": 1, "
                     "\"deleteUpgradeFile\": 1, \"parts\": ["
                     "{\"type\": 1, \"slotId\": 255, \"boardId\": 5, "
                     "\"section\": [{\"code\": 258}, {\"code\": 65535}]}, "
                     "{\"type\": 0, \"slotId\": 0, \"boardId\": 0, \"section\": []}]}"));
    QCOMPARE(m_device->device().upgradeRun.load(), 7u);
}

void tst_Auxiliary::configureStoresTheRun_data()
{
    QTest::addColumn<QCborMap>("values");
    QTest::addColumn<bool>("isAccepted");
    QTest::addColumn<quint32>("run");

    QTest::newRow("number") << QCborMap { { "run", 4 } } << true << 4u;
    QTest::newRow("largest number") << QCborMap { { "run", 4294967295LL } } << true << 4294967295u;
    QTest::newRow("a device that does not number") << QCborMap() << true << 0u;
    QTest::newRow("too large") << QCborMap { { "run", 4294967296LL } } << false << 3u;
    QTest::newRow("negative") << QCborMap { { "run", -1 } } << false << 3u;
    QTest::newRow("text") << QCborMap { { "run", "4" } } << false << 3u;
}

void tst_Auxiliary::configureStoresTheRun()
{
    QFETCH(QCborMap, values);
    QFETCH(bool, isAccepted);
    QFETCH(quint32, run);
    m_device->device().upgradeRun = 3;
    m_device->link().answer("upgrade.configure", ScriptedLink::accepted(values));
    LogRecorder log;

    QCOMPARE(Auxiliary(m_device->handle()).setUgradeConfig({}), isAccepted);
    QCOMPARE(m_device->device().upgradeRun.load(), run);
    QCOMPARE(log.texts(QtWarningMsg),
             isAccepted
                 ? QStringList()
                 : QStringList("Cannot configure the upgrade: the answer has no valid \"run\""));
}

void tst_Auxiliary::orderIsRepeatedIfNotDelivered()
{
    Velmar::ModelControl::setLinkPolicy(quickPolicy());
    ScriptedLink &link = m_device->link();
    link.queue("upgrade.configure", ScriptedLink::failed(Outcome::NotDelivered));
    link.queue("upgrade.configure", ScriptedLink::failed(Outcome::NotDelivered));
    link.answer("upgrade.configure", ScriptedLink::accepted({ { "run", 1 } }));
    LogRecorder log;

    QVERIFY(Auxiliary(m_device->handle()).setUgradeConfig({}));
    QCOMPARE(link.requests().size(), 3);
    QCOMPARE(link.openCount(), 2);
    const auto requests = link.requests();
    for (const LinkRequest &request : requests)
        QCOMPARE(request.timeout, 10000);
    QVERIFY(log.lines().isEmpty());
}

void tst_Auxiliary::orderIsGivenUp()
{
    LinkPolicy policy = quickPolicy();
    policy.writeRepeatTime = 10;
    policy.repeatPause = 1;
    Velmar::ModelControl::setLinkPolicy(policy);
    m_device->link().answer("device.shutdown", ScriptedLink::failed(Outcome::NotDelivered));
    LogRecorder log;

    QVERIFY(!Auxiliary(m_device->handle()).setDeviceShutDownMode(0));
    QVERIFY(m_device->link().requests().size() >= 2);
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList("Cannot shut down the device: "
                         "device.shutdown did not reach the device: scripted failure"));
}

void tst_Auxiliary::orderIsNotRepeated_data()
{
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("text");

    QTest::newRow("refused") << int(Outcome::Answered)
                             << "the device refused %1 with 1: scripted failure";
    QTest::newRow("timed out") << int(Outcome::TimedOut) << "no answer to %1: scripted failure";
    QTest::newRow("lost") << int(Outcome::Lost) << "connection lost during %1: scripted failure";
    QTest::newRow("too long") << int(Outcome::Unsendable) << "%1 cannot be sent: scripted failure";
}

void tst_Auxiliary::orderIsNotRepeated()
{
    QFETCH(int, outcome);
    QFETCH(QString, text);
    Velmar::ModelControl::setLinkPolicy(quickPolicy());
    auto failure = ScriptedLink::failed(Outcome(outcome));
    failure.ack = 1;
    m_device->link().answer("upgrade.configure", failure);
    m_device->link().answer("device.shutdown", failure);
    LogRecorder log;

    QVERIFY(!Auxiliary(m_device->handle()).setUgradeConfig({}));
    QString ignoredText;
    QVERIFY(m_device->link().open(0, ignoredText));
    QVERIFY(!Auxiliary(m_device->handle()).setDeviceShutDownMode(0));
    QCOMPARE(m_device->link().operations(),
             QStringList({ "upgrade.configure", "device.shutdown" }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Cannot configure the upgrade: " + text.arg("upgrade.configure"),
                           "Cannot shut down the device: " + text.arg("device.shutdown") }));
}

void tst_Auxiliary::progress()
{
    m_device->link().answer("upgrade.progress", ScriptedLink::accepted(wholeProgress()));
    s_UpgradePercent percent;
    QString errorText;

    QVERIFY(Auxiliary(m_device->handle()).readUpgradeProgress(percent, errorText));

    QCOMPARE(m_device->link().operations(), QStringList("upgrade.progress"));
    QVERIFY(m_device->link().requests().first().arguments.isEmpty());
    QCOMPARE(m_device->link().requests().first().timeout, 5000);
    QCOMPARE(percent.result, 1);
    QCOMPARE(int(percent.rate), 50);
    QCOMPARE(int(percent.subSections.rate), 60);
    QCOMPARE(percent.parts.size(), std::size_t(1));
    const s_UpgradeCardParts &card = percent.parts.front();
    QCOMPARE(card.type, -1);
    QCOMPARE(int(card.slotId), 4);
    QCOMPARE(int(card.rate), 40);
    QCOMPARE(int(card.result), 1);
    QCOMPARE(card.section.size(), std::size_t(1));
    QCOMPARE(int(card.section.front().code), 65535);
    QCOMPARE(int(card.section.front().rate), 30);
    QCOMPARE(card.section.front().result, -7);
}

void tst_Auxiliary::progressLeavesOutKeys()
{
    const QCborMap card { { "section", QCborArray { QCborMap() } } };
    m_device->link().answer(
        "upgrade.progress",
        ScriptedLink::accepted({ { "result", 0 }, { "parts", QCborArray { card } } }));
    s_UpgradePercent percent;
    QString errorText;

    QVERIFY(Auxiliary(m_device->handle()).readUpgradeProgress(percent, errorText));
    QCOMPARE(int(percent.rate), 0);
    QCOMPARE(int(percent.subSections.rate), 0);
    QCOMPARE(percent.parts.front().type, 1);
    QCOMPARE(int(percent.parts.front().slotId), 0);
    QCOMPARE(int(percent.parts.front().section.front().code), 258);
    QCOMPARE(percent.parts.front().section.front().result, 0);
}

void tst_Auxiliary::progressOfTheWrongShape_data()
{
    QTest::addColumn<QCborMap>("values");
    QTest::addColumn<QString>("key");

    const auto inCard = [](const char *key, const QCborValue &value) {
        return with(wholeProgress(), "parts",
                    QCborArray { QCborMap { { QLatin1String(key), value } } });
    };
    const auto inSection = [&inCard](const char *key, const QCborValue &value) {
        return inCard("section", QCborArray { QCborMap { { QLatin1String(key), value } } });
    };
    QTest::newRow("nothing") << QCborMap() << "result";
    QTest::newRow("without result") << QCborMap { { "rate", 5 } } << "result";
    QTest::newRow("result as text") << with(wholeProgress(), "result", "2") << "result";
    QTest::newRow("result too large") << with(wholeProgress(), "result", 2147483648LL) << "result";
    QTest::newRow("result too small") << with(wholeProgress(), "result", -2147483649LL) << "result";
    QTest::newRow("rate too large") << with(wholeProgress(), "rate", 256) << "rate";
    QTest::newRow("rate negative") << with(wholeProgress(), "rate", -1) << "rate";
    QTest::newRow("sub-sections a number")
        << with(wholeProgress(), "subSections", 60) << "subSections";
    QTest::newRow("rate of the sub-sections")
        << with(wholeProgress(), "subSections", QCborMap { { "rate", "60" } }) << "rate";
    QTest::newRow("run as text") << with(wholeProgress(), "run", "5") << "run";
    QTest::newRow("parts a map") << with(wholeProgress(), "parts", QCborMap()) << "parts";
    QTest::newRow("part a number") << with(wholeProgress(), "parts", QCborArray { 1 }) << "parts";
    QTest::newRow("type as text") << inCard("type", "1") << "type";
    QTest::newRow("slot too large") << inCard("slotId", 256) << "slotId";
    QTest::newRow("rate of a card") << inCard("rate", 300) << "rate";
    QTest::newRow("result of a card") << inCard("result", 256) << "result";
    QTest::newRow("sections a number") << inCard("section", 1) << "section";
    QTest::newRow("code too large") << inSection("code", 65536) << "code";
    QTest::newRow("rate of a section") << inSection("rate", -1) << "rate";
    QTest::newRow("result of a section") << inSection("result", false) << "result";
}

void tst_Auxiliary::progressOfTheWrongShape()
{
    QFETCH(QCborMap, values);
    QFETCH(QString, key);
    m_device->link().answer("upgrade.progress", ScriptedLink::accepted(values));
    s_UpgradePercent percent;
    QString errorText;

    QVERIFY(!Auxiliary(m_device->handle()).readUpgradeProgress(percent, errorText));
    QCOMPARE(errorText, QString("the answer has no valid \"%1\"").arg(key));
    QCOMPARE(percent.result, 0);
    QCOMPARE(int(percent.rate), 0);
    QVERIFY(percent.parts.empty());
}

void tst_Auxiliary::olderResultIsStillRunning_data()
{
    QTest::addColumn<quint32>("orderedRun");
    QTest::addColumn<QCborMap>("values");
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("rate");

    const QCborMap older = with(with(wholeProgress(), "run", 4), "rate", 100);
    QCborMap unnumbered = older;
    unnumbered.remove(QLatin1String("run"));
    QTest::newRow("older success") << 5u << with(older, "result", 2) << 0 << 0;
    QTest::newRow("older failure") << 5u << with(older, "result", 3) << 0 << 0;
    QTest::newRow("older, still running") << 5u << with(older, "result", 1) << 1 << 100;
    QTest::newRow("success before any installation")
        << 5u << with(with(older, "run", 0), "result", 2) << 0 << 0;
    QTest::newRow("the one that was ordered") << 4u << with(older, "result", 2) << 2 << 100;
    QTest::newRow("a newer one") << 3u << with(older, "result", 3) << 3 << 100;
    QTest::newRow("none was ordered") << 0u << with(older, "result", 2) << 2 << 100;
    QTest::newRow("a device that does not number")
        << 5u << with(unnumbered, "result", 2) << 2 << 100;
}

void tst_Auxiliary::olderResultIsStillRunning()
{
    QFETCH(quint32, orderedRun);
    QFETCH(QCborMap, values);
    QFETCH(int, result);
    QFETCH(int, rate);
    m_device->device().upgradeRun = orderedRun;
    m_device->link().answer("upgrade.progress", ScriptedLink::accepted(values));
    s_UpgradePercent percent;
    QString errorText;

    QVERIFY(Auxiliary(m_device->handle()).readUpgradeProgress(percent, errorText));
    QCOMPARE(percent.result, result);
    QCOMPARE(int(percent.rate), rate);
    QCOMPARE(percent.parts.empty(), result == 0);
}

void tst_Auxiliary::shutDown()
{
    m_device->link().answer("device.shutdown", ScriptedLink::accepted());
    QVERIFY(Auxiliary(m_device->handle()).setDeviceShutDownMode(0));
    QVERIFY(Auxiliary(m_device->handle()).setDeviceShutDownMode(255));
    const auto arguments = m_device->link().arguments("device.shutdown");
    QCOMPARE(arguments.at(0), (QCborMap { { "mode", 0 } }));
    QCOMPARE(arguments.at(1), (QCborMap { { "mode", 255 } }));
    QCOMPARE(m_device->link().requests().first().timeout, 10000);
}

void tst_Auxiliary::disconnects()
{
    Velmar::ModelControl::Device(m_device->handle()).disconnectCommunication();
    QVERIFY(!m_device->link().isOpen());
    QVERIFY(m_device->link().requests().isEmpty());
}

void tst_Auxiliary::expiredDevice()
{
    m_device->expire();
    LogRecorder log;
    s_DeviceVersion version;
    s_UpgradePercent percent;
    QString versionError;
    QString percentError;
    Auxiliary auxiliary(m_device->handle());

    QVERIFY(!auxiliary.readDeviceVersion(version, versionError));
    QCOMPARE(versionError, QString("the device is gone"));
    QVERIFY(!auxiliary.readUpgradeProgress(percent, percentError));
    QCOMPARE(percentError, QString("the device is gone"));
    QVERIFY(!auxiliary.setUgradeConfig({}));
    QVERIFY(!auxiliary.setDeviceShutDownMode(0));
    Velmar::ModelControl::Device(m_device->handle()).disconnectCommunication();

    QVERIFY(m_device->link().isOpen());
    QVERIFY(m_device->link().requests().isEmpty());
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({ "Cannot configure the upgrade: the device is gone",
                           "Cannot shut down the device: the device is gone" }));
}

QTEST_GUILESS_MAIN(tst_Auxiliary)
#include "tst_auxiliary.moc"
