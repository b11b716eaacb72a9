#include "upgradeclientproxy.h"
#include "upgradefileofhttp.h"
#include "upgradefileofhttp_p.h"

#include "support/logrecorder.h"
#include "support/polltimerfinder.h"
#include "support/scriptedhttpserver.h"
#include "support/scriptedlink.h"
#include "support/translationrecorder.h"

#include <velmarbizmodel/catalogue.h>
#include <velmarbizmodel/deviceconfig.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarssproxy/devicechannel.h>

#include <QCborValue>
#include <QElapsedTimer>
#include <QFile>
#include <QMetaMethod>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <memory>

using namespace Velmar;
using BizModel::LinkAnswer;
using Firmware::UpgradeFileOfHTTP;
using Firmware::Enum::UpgradeProtoType;
using Firmware::Internal::UpgradeFileOfHTTPPrivate;
using ProtoModel::Auxiliary::s_CardInfoParts;
using ProtoModel::Auxiliary::s_CompatibilitySubCardPercentSection;
using ProtoModel::Auxiliary::s_CompatibilityUpgradePercent;
using ProtoModel::Auxiliary::s_DeviceVersion;
using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

using OlderList = std::vector<s_CompatibilitySubCardPercentSection>;
Q_DECLARE_METATYPE(std::vector<Velmar::ProtoModel::Auxiliary::s_CardInfoParts>)
Q_DECLARE_METATYPE(OlderList)

namespace {

// Of this program alone: the port stands in the addresses.
const auto Address = QStringLiteral("127.0.82.1");
const QByteArray UploadPath("/uploadUpgrade");
const QByteArray PollPath("/getUpgradeRate");

constexpr unsigned short KnownModel = 1024;
constexpr unsigned short NoBackModel = 1025; // without a section MCU_Back
constexpr unsigned short NoMcuModel = 1026;
constexpr unsigned short DefaultTimeoutModel = 1027; // lists group and id the other way round
constexpr unsigned short HalfTimeoutModel = 1028; // lists group and id in entries of their own
constexpr unsigned short UnknownModel = 1999;

const char Catalogue[] = R"({
"catalogueVersion": 1,
"deviceModels": [
  { "modelId": "0x0400", "name": "Known", "series": "S", "backPlaneModelId": "0x0800",
    "defaultTimeout": 3000,
    "commandTimeouts": [
      { "commandGroup": "0x0A", "commandId": "0xFC", "timeout": 1 },
      { "commandGroup": "0xFC", "commandId": "0x0A", "timeout": 5000 } ],
    "sections": [
      { "name": "MCU", "type": 1, "upgradeCode": "0x0101", "compatibilityCode": "0x000C", "order": 1 },
      { "name": "FPGA", "type": 1, "upgradeCode": "0x0102", "compatibilityCode": "0x0010", "order": 2 },
      { "name": "MCU_Back", "type": 2, "upgradeCode": "0x0105", "compatibilityCode": "0x000D", "order": 3 } ],
    "subCards": [] },
  { "modelId": "0x0401", "name": "No back", "series": "S", "backPlaneModelId": "0x0800",
    "defaultTimeout": 3000, "commandTimeouts": [],
    "sections": [
      { "name": "MCU", "type": 1, "upgradeCode": "0x0101", "compatibilityCode": "0x000C", "order": 1 } ],
    "subCards": [] },
  { "modelId": "0x0402", "name": "No MCU", "series": "S", "backPlaneModelId": "0x0800",
    "defaultTimeout": 3000, "commandTimeouts": [],
    "sections": [
      { "name": "MCU_Back", "type": 2, "upgradeCode": "0x0105", "compatibilityCode": "0x000D", "order": 1 } ],
    "subCards": [] },
  { "modelId": "0x0403", "name": "Default time-out", "series": "S", "backPlaneModelId": "0x0800",
    "defaultTimeout": 1234,
    "commandTimeouts": [ { "commandGroup": "0x0A", "commandId": "0xFC", "timeout": 1 } ],
    "sections": [
      { "name": "MCU", "type": 1, "upgradeCode": "0x0101", "compatibilityCode": "0x000C", "order": 1 } ],
    "subCards": [] },
  { "modelId": "0x0404", "name": "Half time-outs", "series": "S", "backPlaneModelId": "0x0800",
    "defaultTimeout": 4321,
    "commandTimeouts": [
      { "commandGroup": "0xFC", "commandId": "0x0B", "timeout": 1 },
      { "commandGroup": "0xFB", "commandId": "0x0A", "timeout": 2 } ],
    "sections": [
      { "name": "MCU", "type": 1, "upgradeCode": "0x0101", "compatibilityCode": "0x000C", "order": 1 } ],
    "subCards": [] } ],
"subCardModels": [] })";

s_CardInfoParts card(int type, quint8 slotId, quint8 boardId, const std::vector<quint16> &codes)
{
    s_CardInfoParts part;
    part.type = type;
    part.slotId = slotId;
    part.modelId = 0x7801; // which must not travel
    part.boardId = boardId;
    for (const quint16 code : codes)
        part.section.push_back({ code });
    return part;
}

s_CompatibilitySubCardPercentSection older(quint8 slotId,
                                           const std::vector<s_SectionPercent> &sections)
{
    s_CompatibilitySubCardPercentSection element;
    element.slotId = slotId;
    element.modelId = 1;
    element.sections = sections;
    return element;
}

s_SectionPercent section(quint16 code, quint8 rate, int result)
{
    s_SectionPercent percent;
    percent.code = code;
    percent.rate = rate;
    percent.result = result;
    return percent;
}

/*! A part as "type/slot/result rate: code rate result, ...". */
QString text(const s_UpgradeCardParts &part)
{
    QStringList sections;
    for (const auto &entry : part.section)
        sections.append(
            QStringLiteral("%1 %2 %3").arg(entry.code).arg(entry.rate).arg(entry.result));
    return QStringLiteral("%1/%2/%3 %4: %5")
        .arg(part.type)
        .arg(part.slotId)
        .arg(part.result)
        .arg(part.rate)
        .arg(sections.join(QLatin1String(", ")));
}

QString text(const s_UpgradePercent &percent)
{
    QStringList parts;
    for (const auto &part : percent.parts)
        parts.append(text(part));
    return QStringLiteral("result %1 rate %2 sub %3 [%4]")
        .arg(percent.result)
        .arg(percent.rate)
        .arg(percent.subSections.rate)
        .arg(parts.join(QLatin1String("; ")));
}

// The ends of an upgrade as the host sees them.
const QStringList FailedTransfer { "status 2 6000 Upload file failed!", "finished",
                                   "box 2 The device will restart, please wait!" };
const QStringList Installed { "status 0 6000 Upgrade successed!", "finished",
                              "box 2 The device will restart, please wait!" };
const QStringList Failed { "status 2 6000 Upgrade failed!", "finished",
                           "box 2 The device will restart, please wait!" };
const QString Refusal("Failed to upgrade:Please use device OLED program to upgrade!");

} // namespace

class tst_UpgradeFileOfHTTP : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void interface();
    void wholeUpgrade();
    void notBegun_data();
    void notBegun();
    void begun_data();
    void begun();
    void fileMissing();
    void setDeviceIP();
    void newRunAfterTheEnd();
    void bodyEndsAtTheFirstNul();
    void answerOfTheFirstRunIsKept();

    void versionQuery_data();
    void versionQuery();
    void versionDecision_data();
    void versionDecision();
    void versionUnanswered();
    void versionLabel();
    void versionFieldsBeforeAFault();
    void versionAckIsNotLookedAt();

    void request_data();
    void request();
    void requestImpossible_data();
    void requestImpossible();
    void codes();

    void uploadProgress_data();
    void uploadProgress();
    void uploadFinished_data();
    void uploadFinished();
    void pollingFinished_data();
    void pollingFinished();
    void schedule_data();
    void schedule();
    void scheduleWithoutBody();
    void olderSchedule_data();
    void olderSchedule();
    void olderScheduleOfAnUnknownModel();
    void olderRecordTakesThePlaceOfParts();
    void callbackChangesTheRecord();
    void callbackReplacesItself();
    void laterCallbackReplacesTheEarlier();
    void endIsNotedBehindTheCallback_data();
    void endIsNotedBehindTheCallback();
    void ends_data();
    void ends();
    void pollInFlightFailsAfterSuccess();
    void merge_data();
    void merge();
    void mergeKeepsOtherTypes();

    void translations();
    void emptyCallback();
    void parent();
    void outlivesThePublicObject();
    void leavesThePollingOn();

private:
    void prepare(bool isCompatible, unsigned short modelId = KnownModel,
                 const std::vector<s_CardInfoParts> &parts = { card(1, 0, 0, { 257 }) });
    void answerVersion(const QByteArray &json);
    void startPolling() { UpgradeClientProxy::getInstance()->startPostReply(); }
    QStringList warnings() const { return m_log->texts(QtWarningMsg); }
    QStringList debugLines() const { return m_log->texts(QtDebugMsg); }

    QTemporaryDir m_folder;
    QString m_file;
    UpgradeFileOfHTTP m_upgrade;
    UpgradeFileOfHTTPPrivate *m_private = UpgradeFileOfHTTPPrivate::get(&m_upgrade);
    QTimer *m_pollTimer = nullptr;
    std::unique_ptr<ScriptedHttpServer> m_server;
    std::shared_ptr<ScriptedLink> m_link;
    std::unique_ptr<LogRecorder> m_log;
    QStringList m_shown; // status texts, message boxes and ends, in order
    QStringList m_progress;
    std::function<void(s_UpgradePercent &)> m_onProgress;
    std::function<void()> m_onFinished;
};

void tst_UpgradeFileOfHTTP::initTestCase()
{
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    QString errorText;
    const auto catalogue = BizModel::Catalogue::fromJson(Catalogue, "test", errorText);
    QVERIFY2(catalogue, qPrintable(errorText));
    catalogue->install();
    // Entries that a catalogue file could not have: the first of two counts.
    auto *const known = BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(KnownModel);
    known->commandTimeouts.append({ 0xFC, 0x0A, 2 });
    known->upgradeCfgs.append({ QStringLiteral("Twin"), 1, 0x0103, 0x0010, 4 });
    known->upgradeCfgs.append({ QStringLiteral("Again"), 2, 0x0105, 0x000E, 5 });
    m_file = m_folder.filePath("upgrade.bin");
    QFile file(m_file);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write("firmware"), qint64(8));

    auto *const screen = BizModel::DeviceList::instance();
    connect(screen, &BizModel::DeviceList::signalShowStatusBarMsg, this,
            [this](BizModel::Enum::StatusBarMsgType type, const QString &text, int milliseconds) {
                m_shown.append(QStringLiteral("status %1 %2 ").arg(int(type)).arg(milliseconds)
                               + text);
            });
    connect(screen, &BizModel::DeviceList::signalShowFramelessMessageBoxMsg, this,
            [this](BizModel::Enum::FramelessMessageBoxMsgType type, const QString &text) {
                m_shown.append(QStringLiteral("box %1 ").arg(int(type)) + text);
                return 0;
            });
    m_upgrade.registerUpgradeFinishedCallBack([this] {
        m_shown.append("finished");
        if (m_onFinished)
            m_onFinished();
    });
    m_upgrade.registerRefreshUpgradeProcessCallBack([this](s_UpgradePercent &percent) {
        m_progress.append(text(percent));
        if (m_onProgress)
            m_onProgress(percent);
    });

    PollTimerFinder finder;
    startPolling();
    QTest::ignoreMessage(QtWarningMsg, "the device ip is null. upgrade failed.");
    QTRY_VERIFY(finder.found);
    m_pollTimer = finder.found;
}

void tst_UpgradeFileOfHTTP::init()
{
    m_server = std::make_unique<ScriptedHttpServer>();
    QVERIFY(m_server->listen(Address));
    m_server->always(UploadPath, ScriptedHttpServer::answer("received"));
    m_link = std::make_shared<ScriptedLink>();
    m_log = std::make_unique<LogRecorder>();
    m_shown.clear();
    m_progress.clear();
    prepare(false);
    m_private->m_bFinished = false;
}

void tst_UpgradeFileOfHTTP::cleanup()
{
    m_onProgress = nullptr;
    m_onFinished = nullptr;
    auto *const proxy = UpgradeClientProxy::getInstance();
    proxy->stopPostReply();
    m_server.reset();
    const auto managers = proxy->findChildren<QNetworkAccessManager *>();
    for (QNetworkAccessManager *manager : managers)
        manager->clearConnectionCache();
    QCoreApplication::processEvents();
    m_log.reset();
}

void tst_UpgradeFileOfHTTP::prepare(bool isCompatible, unsigned short modelId,
                                    const std::vector<s_CardInfoParts> &parts)
{
    m_upgrade.init(isCompatible, std::make_shared<SSProxy::DeviceChannel>(m_link), modelId, parts,
                   m_file, Address);
}

void tst_UpgradeFileOfHTTP::answerVersion(const QByteArray &json)
{
    m_link->answer("command", ScriptedLink::accepted({ { "body", json } }));
}

void tst_UpgradeFileOfHTTP::interface()
{
    const QMetaObject &meta = UpgradeFileOfHTTPPrivate::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        QCOMPARE(method.methodType(), QMetaMethod::Slot);
        methods.append(QString::fromLatin1(method.methodSignature() + " "
                                           + method.parameterNames().join(',')));
    }
    QCOMPARE(
        methods,
        (QStringList { "slotOnUploadProgress(qlonglong,qlonglong) bytesSent,bytesTotal",
                       "slotReplyUploadFinished(int) nCode", "slotReplyUpdataFinished(int) nCode",
                       "slotReplyUpdataSchedule(QByteArray) buffer" }));
    QCOMPARE(meta.className(), "Velmar::Firmware::Internal::UpgradeFileOfHTTPPrivate");
    QCOMPARE(UpgradeFileOfHTTP::staticMetaObject.methodOffset(),
             UpgradeFileOfHTTP::staticMetaObject.methodCount());

    const UpgradeFileOfHTTP fresh;
    auto *const state = UpgradeFileOfHTTPPrivate::get(const_cast<UpgradeFileOfHTTP *>(&fresh));
    QVERIFY(!state->parent());
    QCOMPARE(state->q, &fresh);
    QVERIFY(!state->m_bCompatibility);
    QVERIFY(!state->m_pDeviceChannel);
    QCOMPARE(state->m_modelId, static_cast<unsigned short>(0xFFFF));
    QVERIFY(!state->m_bFinished);
    delete state;
}

void tst_UpgradeFileOfHTTP::wholeUpgrade()
{
    m_server->queue(PollPath,
                    ScriptedHttpServer::answer("{\"result\":1,\"rate\":42,"
                                               "\"subSections\":{\"rate\":0},\"parts\":[]}"));
    m_server->queue(PollPath, ScriptedHttpServer::answer("{\"result\":2,\"rate\":100}"));
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QVERIFY(debugLines().contains(
        "Update user config json: {\"upgradeType\":1,\"filePath\":\"N/A\",\"reboot\":1,"
        "\"deleteUpgradeFile\":1,\"parts\":[{\"type\":1,\"slotId\":0,\"boardId\":0,"
        "\"section\":[{\"code\":257}]}]}"));
    QElapsedTimer elapsed;
    QTRY_VERIFY(m_pollTimer->isActive());
    elapsed.start();
    QCOMPARE(m_server->count(PollPath), 0);
    QTRY_COMPARE(m_server->count(PollPath), 1);
    QVERIFY2(elapsed.elapsed() >= 900, qPrintable(QString::number(elapsed.elapsed())));
    QTRY_COMPARE(m_progress, QStringList("result 1 rate 42 sub 0 []"));
    QVERIFY(m_pollTimer->isActive());
    UpgradeClientProxy::getInstance()->slotRunReply();
    QTRY_COMPARE(m_progress.size(), 2);
    QVERIFY(!m_pollTimer->isActive());
    QVERIFY(m_private->m_bFinished);
    QCOMPARE(m_shown.first(), QStringLiteral("status 0 6000 Upload file progress: 100%"));
    QCOMPARE(m_shown.mid(m_shown.size() - 4),
             QStringList("status 0 6000 Upgrade has been completed: 42%") + Installed);
    QCOMPARE(m_server->count(UploadPath), 1);
    QVERIFY(m_server->requests().first().body.contains("\r\n\r\nfirmware\r\n"));
    QVERIFY(m_link->requests().isEmpty());
}

void tst_UpgradeFileOfHTTP::notBegun_data()
{
    QTest::addColumn<bool>("isCompatible");
    QTest::addColumn<bool>("hasChannel");
    QTest::addColumn<unsigned short>("modelId");
    QTest::addColumn<bool>("hasParts");
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<QStringList>("warnings");
    QTest::addColumn<int>("queries");
    QTest::addColumn<bool>("isCompatibleAfter");

    const QString select("box 1 Please select upgrade config.");
    const QString check("box 1 Please check upgrade config.");
    const QString nothingSelected("The user did not select an upgrade item");
    const QByteArray some("{\"version\":\"1.0\"}");
    QTest::newRow("newer form, nothing selected")
        << false << true << KnownModel << false << some << QStringList(select)
        << QStringList(nothingSelected) << 0 << false;
    QTest::newRow("newer form, no channel and nothing selected")
        << false << false << KnownModel << false << some << QStringList(select)
        << QStringList(nothingSelected) << 0 << false;
    QTest::newRow("compatibility without a channel") << true << false << KnownModel << true << some
                                                     << QStringList() << QStringList() << 0 << true;
    QTest::newRow("version told, nothing selected")
        << true << true << KnownModel << false << some << QStringList(select)
        << QStringList(nothingSelected) << 1 << false;
    QTest::newRow("unknown model")
        << true << true << UnknownModel << true << some << QStringList(check)
        << QStringList { "Can not find device config for this device, modelId : 1999",
                         "Can not find device config for this device, modelId : 1999" }
        << 0 << true;
    QTest::newRow("refused") << true << true << KnownModel << true
                             << QByteArray("{\"version\":\"2.0.0.0\",\"brief\":\"S1.T2\"}")
                             << QStringList("box 1 " + Refusal) << QStringList(Refusal) << 1
                             << true;
    QTest::newRow("older form impossible")
        << true << true << NoBackModel << true << QByteArray("[]") << QStringList(check)
        << QStringList { "Decode json failed: error at line :0 col :1 msg:read object must start "
                         "with {!",
                         "Can not find MCU_Back config for this device, modelId : 1025" }
        << 1 << true;
}

void tst_UpgradeFileOfHTTP::notBegun()
{
    QFETCH(bool, isCompatible);
    QFETCH(bool, hasChannel);
    QFETCH(unsigned short, modelId);
    QFETCH(bool, hasParts);
    QFETCH(QByteArray, version);
    QFETCH(int, queries);
    answerVersion(version);
    prepare(isCompatible, modelId,
            hasParts ? std::vector<s_CardInfoParts> { card(1, 0, 0, { 257 }) }
                     : std::vector<s_CardInfoParts>());
    if (!hasChannel)
        m_private->m_pDeviceChannel.reset();

    QVERIFY(!m_upgrade.doDeviceUpgradeOfHTTP());

    QTEST(m_shown, "shown");
    QTEST(warnings(), "warnings");
    QCOMPARE(m_link->requests().size(), queries);
    QTEST(m_private->m_bCompatibility, "isCompatibleAfter");
    QCoreApplication::processEvents();
    QCOMPARE(m_server->connections(), 0);
}

void tst_UpgradeFileOfHTTP::begun_data()
{
    QTest::addColumn<bool>("isCompatible");
    QTest::addColumn<QByteArray>("version"); // null: no answer
    QTest::addColumn<bool>("isOlderForm");

    QTest::newRow("newer form without a question") << false << QByteArray("[]") << false;
    QTest::newRow("newer version") << true << QByteArray("{\"version\":\"3.0.0.0\"}") << false;
    QTest::newRow("allowed hardware")
        << true << QByteArray("{\"version\":\"2.0.0.0\",\"brief\":\"S2.T1\"}") << false;
    QTest::newRow("no answer") << true << QByteArray() << true;
    QTest::newRow("broken answer") << true << QByteArray("[]") << true;
}

void tst_UpgradeFileOfHTTP::begun()
{
    QFETCH(bool, isCompatible);
    QFETCH(QByteArray, version);
    QFETCH(bool, isOlderForm);
    if (version.isNull())
        m_link->answer("command", ScriptedLink::failed(LinkAnswer::Outcome::TimedOut));
    else
        answerVersion(version);
    prepare(isCompatible);

    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());

    QTRY_COMPARE(m_server->count(UploadPath), 1);
    const QByteArray body = m_server->requests().first().body;
    QCOMPARE(body.contains("\r\n\r\n[{\"deviceId\":1024,"), isOlderForm);
    QCOMPARE(body.contains("\r\n\r\n{\"upgradeType\":1,\"filePath\":\"N/A\","), !isOlderForm);
    QCOMPARE(m_private->m_bCompatibility, isOlderForm);
}

void tst_UpgradeFileOfHTTP::fileMissing()
{
    const QString missing = m_folder.filePath("none.bin");
    m_upgrade.init(false, nullptr, KnownModel, { card(1, 0, 0, { 257 }) }, missing, Address);
    m_private->m_bFinished = true;
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QCOMPARE(m_shown, QStringList("box 1 Failed to upgrade!"));
    QCOMPARE(warnings(), QStringList(missing + " is not exits!"));
    QVERIFY(!m_private->m_bFinished);
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeFileOfHTTP::setDeviceIP()
{
    m_upgrade.setDeviceIP(QString());
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QCOMPARE(m_shown, QStringList("box 1 Failed to upgrade!"));
    m_upgrade.setDeviceIP(Address);
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QTRY_COMPARE(m_server->count(UploadPath), 1);
}

void tst_UpgradeFileOfHTTP::newRunAfterTheEnd()
{
    m_private->slotReplyUpdataSchedule("{\"result\":3}");
    QVERIFY(m_private->m_bFinished);
    m_shown.clear();
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QVERIFY(!m_private->m_bFinished);
    QTRY_COMPARE(m_server->count(UploadPath), 1);
    m_private->slotReplyUpdataSchedule("{\"result\":3}");
    QCOMPARE(m_shown.count("finished"), 1);
}

void tst_UpgradeFileOfHTTP::bodyEndsAtTheFirstNul()
{
    m_private->sendUpgradeRequest(std::string("{\"a\":1}\0behind", 14));
    QTRY_COMPARE(m_server->count(UploadPath), 1);
    const QByteArray body = m_server->requests().first().body;
    QVERIFY(body.contains("\r\n\r\n{\"a\":1}\r\n------weasdashDsdesd--"));
    QVERIFY(!body.contains("behind"));
}

void tst_UpgradeFileOfHTTP::answerOfTheFirstRunIsKept()
{
    answerVersion(R"({"version":"3.0.0.0"})");
    prepare(true);
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QVERIFY(!m_private->m_bCompatibility);
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QCOMPARE(m_link->requests().size(), 1); // the second one asks no more
    QTRY_COMPARE(m_server->count(UploadPath), 2);
    QVERIFY(m_server->requests().at(1).body.contains("\r\n\r\n{\"upgradeType\":1,"));
}

void tst_UpgradeFileOfHTTP::versionQuery_data()
{
    QTest::addColumn<unsigned short>("modelId");
    QTest::addColumn<int>("timeout");

    QTest::newRow("the first listed time-out") << KnownModel << 5000;
    QTest::newRow("group and id the other way round") << DefaultTimeoutModel << 1234;
    QTest::newRow("group alone and id alone") << HalfTimeoutModel << 4321;
}

void tst_UpgradeFileOfHTTP::versionQuery()
{
    QFETCH(unsigned short, modelId);
    answerVersion("{}");
    prepare(true, modelId);
    s_DeviceVersion version;
    QVERIFY(m_private->getDeviceVersion(version));
    QCOMPARE(m_link->operations(), QStringList("command"));
    const auto request = m_link->requests().first();
    QTEST(request.timeout, "timeout");
    QCOMPARE(QCborValue(request.arguments).toDiagnosticNotation(),
             QString("{\"kind\": 1, \"id\": 10, \"group\": 252, \"body\": h''}"));
    QVERIFY(m_shown.isEmpty());
}

void tst_UpgradeFileOfHTTP::versionDecision_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("isCompatibleAfter");

    const auto row = [](const char *name, const QByteArray &answer, int result, bool after) {
        QTest::newRow(name) << answer << result << after;
    };
    row("nothing told", "{}", 1, false);
    row("another version", R"({"version":"1.9.9.9","brief":"S1.T1"})", 1, false);
    row("begins alike", R"({"version":"2.0.0.0.1","brief":"S1.T1"})", 1, false);
    row("shorter", R"({"version":"2.0.0","brief":"S1.T1"})", 1, false);
    row("first hardware", R"({"version":"2.0.0.0","brief":"S1.T1"})", 255, true);
    row("second hardware", R"({"version":"2.0.0.0","brief":"S1.T2"})", 255, true);
    row("third hardware", R"({"version":"2.0.0.0","brief":"S1.T3"})", 255, true);
    row("lower case", R"({"version":"2.0.0.0","brief":"s1.t2"})", 1, false);
    row("begins like a refused one", R"({"version":"2.0.0.0","brief":"S1.T22"})", 1, false);
    row("the whole list", R"({"version":"2.0.0.0","brief":"S1.T1;S1.T2;S1.T3"})", 1, false);
    row("empty hardware", R"({"version":"2.0.0.0","brief":""})", 1, false);
    row("no hardware told", R"({"version":"2.0.0.0"})", 1, false);
    row("with parts",
        R"({"parts":[{"type":1,"section":[{"code":1}]}],"version":"2.0.0.0","brief":"S1.T3"})", 255,
        true);
    row("not an object", "[]", 0, true);
    row("nothing", "", 0, true);
    row("broken behind the version", R"({"version":"2.0.0.0","brief":"S1.T1",)", 0, true);
}

void tst_UpgradeFileOfHTTP::versionDecision()
{
    QFETCH(QByteArray, answer);
    QFETCH(int, result);
    answerVersion(answer);
    prepare(true);
    QCOMPARE(int(m_private->checkDeviceVersion()), result);
    QTEST(m_private->m_bCompatibility, "isCompatibleAfter");
    const bool isRefused = result == 255;
    QCOMPARE(m_shown, isRefused ? QStringList("box 1 " + Refusal) : QStringList());
    if (isRefused)
        QCOMPARE(warnings(), QStringList(Refusal));
    else if (result == 1)
        QCOMPARE(warnings(), QStringList());
    else
        QVERIFY(warnings().first().startsWith("Decode json failed: error at line :0 col :"));
}

void tst_UpgradeFileOfHTTP::versionUnanswered()
{
    prepare(true);
    m_link->answer("command", ScriptedLink::failed(LinkAnswer::Outcome::TimedOut));
    QCOMPARE(m_private->checkDeviceVersion(), UpgradeProtoType::ProtoUnknown);
    QVERIFY(m_private->m_bCompatibility);
    QCOMPARE(m_shown,
             QStringList("status 2 5000 Get device version failed: invalid response command model "
                         "data ."));
    QCOMPARE(warnings(),
             QStringList("VelmarCmd 127.0.82.1 Get device version failed: invalid response command "
                         "model data .  lables: 1"));
}

void tst_UpgradeFileOfHTTP::versionLabel()
{
    prepare(true);
    m_link->answer("command", ScriptedLink::failed(LinkAnswer::Outcome::TimedOut));
    s_DeviceVersion version;
    for (int i = 0; i < 12; ++i)
        QVERIFY(!m_private->getDeviceVersion(version));
    QVERIFY(warnings().last().endsWith(".  lables: 12"));
}

void tst_UpgradeFileOfHTTP::versionFieldsBeforeAFault()
{
    prepare(true);
    answerVersion(R"({"version":"3.1.0.0","brief":5})");
    s_DeviceVersion version;
    QVERIFY(!m_private->getDeviceVersion(version));
    QCOMPARE(version.version, std::string("3.1.0.0"));
    QCOMPARE(version.brief, std::string("N/A"));
    QCOMPARE(warnings(),
             QStringList("Decode json failed: error at line :0 col :30 msg:not a valid string."));
    QCOMPARE(m_shown, QStringList());
}

void tst_UpgradeFileOfHTTP::versionAckIsNotLookedAt()
{
    LinkAnswer answer = ScriptedLink::refused(7, QStringLiteral("busy"));
    answer.values.insert(QStringLiteral("body"), QByteArray(R"({"version":"2.0.0.0"})"));
    m_link->answer("command", answer);
    prepare(true);
    s_DeviceVersion version;
    QVERIFY(m_private->getDeviceVersion(version));
    QCOMPARE(version.version, std::string("2.0.0.0"));
    QCOMPARE(warnings(), QStringList());
    QCOMPARE(m_shown, QStringList());
}

void tst_UpgradeFileOfHTTP::request_data()
{
    QTest::addColumn<bool>("isOlderForm");
    QTest::addColumn<std::vector<s_CardInfoParts>>("parts");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("json");

    const std::vector<s_CardInfoParts> one { card(1, 0, 0, { 258 }) };
    QTest::newRow("newer form, one section")
        << false << one << "/pkg/update.bin"
        << R"({"upgradeType":1,"filePath":"N/A","reboot":1,"deleteUpgradeFile":1,"parts":[)"
           R"({"type":1,"slotId":0,"boardId":0,"section":[{"code":258}]}]})";
    QTest::newRow("newer form, order kept")
        << false
        << std::vector<s_CardInfoParts> { card(3, 255, 2, { 769, 1, 65535 }), card(-1, 1, 255, {}) }
        << QString()
        << R"({"upgradeType":1,"filePath":"N/A","reboot":1,"deleteUpgradeFile":1,"parts":[)"
           R"({"type":3,"slotId":255,"boardId":2,"section":[{"code":769},{"code":1},{"code":65535}]},)"
           R"({"type":-1,"slotId":1,"boardId":255,"section":[]}]})";
    const QString olderForm =
        R"([{"deviceId":1024,"upgradeType":1,"filePath":"%1","reboot":1,"deleteUpgradeFile":1,)"
        R"("mainControl":[{"modelId":1024,"slotId":0,"sections":[{"code":12,"timeout":60}]}],)"
        R"("backPlane":[{"modelId":2048,"slotId":0,"sections":[{"code":13,"timeout":60}]}]}])";
    QTest::newRow("older form") << true << one << "C:/pkg/update.bin"
                                << QString(olderForm).replace("%1", "C:/pkg/update.bin");
    QTest::newRow("older form without a choice") << true << std::vector<s_CardInfoParts>() << "a b"
                                                 << QString(olderForm).replace("%1", "a b");
    QTest::newRow("older form, path beyond ASCII")
        << true << one << QString::fromUtf8("/\xC3\xA9\"\\")
        << QString(olderForm).replace("%1", "/\\u00E9\\\"\\\\");
}

void tst_UpgradeFileOfHTTP::request()
{
    QFETCH(bool, isOlderForm);
    QFETCH(std::vector<s_CardInfoParts>, parts);
    QFETCH(QString, path);
    m_upgrade.init(isOlderForm, nullptr, KnownModel, parts, path, Address);
    QTEST(QString::fromStdString(m_private->serializeUpgradeConfigForHttp()), "json");
    QCOMPARE(warnings(), QStringList());
}

void tst_UpgradeFileOfHTTP::requestImpossible_data()
{
    QTest::addColumn<bool>("isOlderForm");
    QTest::addColumn<unsigned short>("modelId");
    QTest::addColumn<QString>("warning");

    QTest::newRow("nothing selected")
        << false << KnownModel << "The user did not select an upgrade item";
    QTest::newRow("unknown model")
        << true << UnknownModel << "Can not find device config for this device, modelId : 1999";
    QTest::newRow("no MCU") << true << NoMcuModel
                            << "Can not find MCU config for this device, modelId : 1026";
    QTest::newRow("no MCU_Back") << true << NoBackModel
                                 << "Can not find MCU_Back config for this device, modelId : 1025";
}

void tst_UpgradeFileOfHTTP::requestImpossible()
{
    QFETCH(bool, isOlderForm);
    QFETCH(unsigned short, modelId);
    QFETCH(QString, warning);
    prepare(isOlderForm, modelId, {});
    QCOMPARE(m_private->serializeUpgradeConfigForHttp(), std::string());
    QCOMPARE(warnings(), QStringList(warning));
}

void tst_UpgradeFileOfHTTP::codes()
{
    const auto *config =
        BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(KnownModel);
    unsigned short code = 7;
    QVERIFY(!m_private->findCompatibilityCodeByUpgradeCode(nullptr, 257, code));
    QVERIFY(!m_private->findCompatibilityCodeByUpgradeCode(config, 12, code));
    QCOMPARE(code, static_cast<unsigned short>(7));
    QVERIFY(m_private->findCompatibilityCodeByUpgradeCode(config, 261, code));
    QCOMPARE(code, static_cast<unsigned short>(13)); // the first of two

    QVERIFY(m_private->findUpgradeCodeByCompatilityCode(16, code));
    QCOMPARE(code, static_cast<unsigned short>(258)); // the first of two
    code = 7;
    QVERIFY(!m_private->findUpgradeCodeByCompatilityCode(257, code));
    QCOMPARE(code, static_cast<unsigned short>(7));
    QCOMPARE(warnings(), QStringList());
    m_private->m_modelId = UnknownModel;
    QVERIFY(!m_private->findUpgradeCodeByCompatilityCode(16, code));
    QCOMPARE(warnings(), QStringList("Can not find device config for this device, modelId : 16"));
}

void tst_UpgradeFileOfHTTP::uploadProgress_data()
{
    QTest::addColumn<qint64>("sent");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QStringList>("shown");

    const auto row = [](const char *name, qint64 sent, qint64 total, const QString &percent) {
        QTest::newRow(name) << sent << total
                            << QStringList("status 0 6000 Upload file progress: " + percent);
    };
    QTest::newRow("nothing to send") << qint64(5) << qint64(0) << QStringList();
    row("nothing sent", 0, 100, "0%");
    row("a third", 1, 3, "33%");
    row("29 of 100, which is a little less in binary", 29, 100, "28%");
    row("almost all", 999, 1000, "99%");
    row("all", 1000, 1000, "100%");
    row("half of 16 GiB", Q_INT64_C(1) << 33, Q_INT64_C(1) << 34, "50%");
    row("unknown total", 5, -1, "-500%");
    row("unknown total, 1 TiB sent", Q_INT64_C(1) << 40, -1, "-2147483648%");
    row("1 TiB of 1 byte", Q_INT64_C(1) << 40, 1, "2147483647%");
}

void tst_UpgradeFileOfHTTP::uploadProgress()
{
    QFETCH(qint64, sent);
    QFETCH(qint64, total);
    m_private->slotOnUploadProgress(sent, total);
    QTEST(m_shown, "shown");
}

void tst_UpgradeFileOfHTTP::uploadFinished_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("taken") << 0 << QStringList();
    QTest::newRow("refused") << 401 << FailedTransfer;
    QTest::newRow("negative") << -1 << FailedTransfer;
}

void tst_UpgradeFileOfHTTP::uploadFinished()
{
    QFETCH(int, code);
    m_private->slotReplyUploadFinished(code);
    QTEST(m_shown, "shown");
    QCOMPARE(m_pollTimer->isActive(), code == 0);
    QCOMPARE(debugLines(), QStringList(QStringLiteral("Upload file code %1").arg(code)));
    QVERIFY(!m_private->m_bFinished);
    if (code == 0)
        return;
    // Only what started the timer stops it.
    startPolling();
    m_private->slotReplyUploadFinished(code);
    QVERIFY(m_pollTimer->isActive());
}

void tst_UpgradeFileOfHTTP::pollingFinished_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("no error") << 0 << QStringList();
    QTest::newRow("no address") << -1 << FailedTransfer;
    QTest::newRow("network fault") << 1 << FailedTransfer;
}

void tst_UpgradeFileOfHTTP::pollingFinished()
{
    QFETCH(int, code);
    startPolling();
    m_private->slotReplyUpdataFinished(code);
    QTEST(m_shown, "shown");
    QVERIFY(!m_pollTimer->isActive());
    QVERIFY(!m_private->m_bFinished);
    QCOMPARE(debugLines(), QStringList(QStringLiteral("127.0.82.1 Updata finished  %1").arg(code)));
}

void tst_UpgradeFileOfHTTP::schedule_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("progress");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<bool>("isPolling");

    const auto row = [](const char *name, const QByteArray &body, const QString &progress,
                        const QStringList &shown, bool isPolling) {
        QTest::newRow(name) << body << QStringList(progress) << shown << isPolling;
    };
    row("running", R"({"result":1,"rate":42,"subSections":{"rate":0},"parts":[]})",
        "result 1 rate 42 sub 0 []", QStringList("status 0 6000 Upgrade has been completed: 42%"),
        true);
    row("nothing told", "{}", "result 0 rate 0 sub 0 []", {}, true);
    row("result 0", R"({"result":0,"rate":10})", "result 0 rate 10 sub 0 []", {}, true);
    row("result 4", R"({"result":4,"rate":10})", "result 4 rate 10 sub 0 []", {}, true);
    row("negative result", R"({"result":-2})", "result -2 rate 0 sub 0 []", {}, true);
    row("done", R"({"result":2,"rate":100})", "result 2 rate 100 sub 0 []", Installed, false);
    row("failed", R"({"result":3,"rate":7})", "result 3 rate 7 sub 0 []", Failed, false);
    row("with details",
        R"({"result":1,"rate":255,"subSections":{"rate":9},"parts":[{"type":3,"slotId":2,"rate":8,)"
        R"("result":1,"section":[{"code":769,"rate":7,"result":1},{"rate":3}]}]})",
        "result 1 rate 255 sub 9 [3/2/1 8: 769 7 1, 258 3 0]",
        QStringList("status 0 6000 Upgrade has been completed: 255%"), true);
}

void tst_UpgradeFileOfHTTP::schedule()
{
    QFETCH(QByteArray, body);
    startPolling();
    m_private->slotReplyUpdataSchedule(body);
    QTEST(m_progress, "progress");
    QTEST(m_shown, "shown");
    QTEST(m_pollTimer->isActive(), "isPolling");
    QCOMPARE(debugLines().first(),
             QStringLiteral("VelmarCmd Updata Schedule json:  127.0.82.1 ") + body);
}

void tst_UpgradeFileOfHTTP::scheduleWithoutBody()
{
    startPolling();
    m_private->slotReplyUpdataSchedule(QByteArray());
    QCOMPARE(warnings(), QStringList("VelmarCmd Updata Shedule json is null 127.0.82.1"));
    QCOMPARE(debugLines(), QStringList());
    m_log->clear();

    m_private->slotReplyUpdataSchedule(QByteArray(""));
    m_private->slotReplyUpdataSchedule("[1]");
    m_private->slotReplyUpdataSchedule(R"({"result":2,"subSections":5})");
    QCOMPARE(warnings(),
             (QStringList { "VelmarCmd Decode upgradePercent data failed. ErrMsg : error at line "
                            ":0 col :0 msg:read object must start with {! 127.0.82.1",
                            "VelmarCmd Decode upgradePercent data failed. ErrMsg : error at line "
                            ":0 col :1 msg:read object must start with {! 127.0.82.1",
                            "VelmarCmd Decode upgradePercent data failed. ErrMsg : error at line "
                            ":0 col :27 msg:read object must start with {! 127.0.82.1" }));
    m_private->m_bCompatibility = true;
    m_log->clear();
    m_private->slotReplyUpdataSchedule("{}");
    QCOMPARE(warnings(),
             QStringList("VelmarCmd Decode compatibilityUpgradePercent data failed. ErrMsg : error "
                         "at line :0 col :1 msg:array must start with [. 127.0.82.1"));
    QCOMPARE(m_progress, QStringList());
    QCOMPARE(m_shown, QStringList());
    QVERIFY(m_pollTimer->isActive());
}

void tst_UpgradeFileOfHTTP::olderSchedule_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("progress");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<QStringList>("warnings");
    QTest::addColumn<bool>("isPolling");

    const auto running = [](int percent) {
        return QStringList(
            QStringLiteral("status 0 6000 Upgrade has been completed: %1%").arg(percent));
    };
    const auto row = [](const char *name, const QByteArray &body, const QString &progress,
                        const QStringList &shown, const QStringList &warnings = {}) {
        QTest::newRow(name) << body << progress << shown << warnings << (shown != Installed);
    };
    row("no record", "[]", "result 0 rate 0 sub 0 []", {});
    row("no lists", R"([{"result":5}])", "result 1 rate 0 sub 0 []", running(0));
    row("done, all at 100",
        R"([{"deviceId":1024,"result":0,"mainControl":[{"modelId":1024,"slotId":0,)"
        R"("sections":[{"code":12,"rate":100,"result":0}]}],"backPlane":[{"modelId":2048,)"
        R"("slotId":0,"sections":[{"code":13,"rate":100,"result":0}]}]}])",
        "result 2 rate 100 sub 0 [1/0/0 100: 257 100 2, 261 100 2]", Installed);
    row("running",
        R"([{"result":1,"mainControl":[{"slotId":3,"sections":[{"code":12,"rate":50,"result":1},)"
        R"({"code":16,"rate":25,"result":0}]}],"backPlane":[{"slotId":9,)"
        R"("sections":[{"code":13,"rate":7,"result":-1}]}]}])",
        // 37 of two sections, then (7 + 2 * 37) / 3
        "result 1 rate 27 sub 0 [1/3/0 27: 257 50 1, 258 25 2, 261 7 1]", running(27));
    row("back plane alone",
        R"([{"result":-1,"backPlane":[{"slotId":9,"sections":[{"code":13,"rate":7}]}]}])",
        "result 1 rate 7 sub 0 [1/9/0 7: 261 7 2]", running(7));
    row("only the first record", R"([{"result":1},{"result":0}])", "result 1 rate 0 sub 0 []",
        running(0));
    row("unknown section dropped",
        R"([{"result":1,"mainControl":[{"sections":[{"code":99,"rate":100},{"code":12,"rate":40},)"
        R"({"rate":3}]}]}])",
        "result 1 rate 40 sub 0 [1/0/0 40: 257 40 2]", running(40),
        { "Can not find the section code by compatility code :99",
          "Can not find the section code by compatility code :258" });
    row("no section known",
        R"([{"result":1,"mainControl":[{"sections":[{"code":98,"rate":100}]},)"
        R"({"slotId":4,"sections":[{"code":99,"rate":100}]}]}])",
        "result 1 rate 0 sub 0 [1/0/0 0: ]", running(0),
        { "Can not find the section code by compatility code :98",
          "Can not find the section code by compatility code :99" });
    row("no failure in this form", R"([{"result":3}])", "result 1 rate 0 sub 0 []", running(0));
    row("done, nothing more told", R"([{"result":0}])", "result 2 rate 0 sub 0 []", Installed);
}

void tst_UpgradeFileOfHTTP::olderSchedule()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, progress);
    m_private->m_bCompatibility = true;
    startPolling();
    m_private->slotReplyUpdataSchedule(body);
    QCOMPARE(m_progress, QStringList(progress));
    QTEST(m_shown, "shown");
    QFETCH(QStringList, warnings);
    QCOMPARE(this->warnings(), warnings);
    QTEST(m_pollTimer->isActive(), "isPolling");
}

void tst_UpgradeFileOfHTTP::olderScheduleOfAnUnknownModel()
{
    prepare(true, UnknownModel);
    m_private->slotReplyUpdataSchedule(
        R"([{"result":1,"mainControl":[{"sections":[{"code":12,"rate":40}]}]}])");
    QCOMPARE(warnings(),
             (QStringList { "Can not find device config for this device, modelId : 12",
                            "Can not find the section code by compatility code :12" }));
    QCOMPARE(m_progress, QStringList("result 1 rate 0 sub 0 [1/0/0 0: ]"));
}

void tst_UpgradeFileOfHTTP::olderRecordTakesThePlaceOfParts()
{
    s_UpgradePercent percent;
    percent.result = 7;
    percent.rate = 8;
    percent.parts.resize(1);
    m_private->convertCompatibilityPercent({}, percent);
    QCOMPARE(text(percent), QString("result 7 rate 8 sub 0 [1/0/0 0: ]"));
    // Without a part the rate stays.
    m_private->convertCompatibilityPercent({ s_CompatibilityUpgradePercent() }, percent);
    QCOMPARE(percent.parts.size(), std::size_t(0));
    QCOMPARE(percent.rate, std::uint8_t(8));
}

void tst_UpgradeFileOfHTTP::callbackChangesTheRecord()
{
    m_onProgress = [](s_UpgradePercent &percent) {
        percent.result = 1;
        percent.rate = 12;
    };
    m_private->slotReplyUpdataSchedule(R"({"result":3,"rate":99})");
    QCOMPARE(m_progress, QStringList("result 3 rate 99 sub 0 []"));
    QCOMPARE(m_shown, QStringList("status 0 6000 Upgrade has been completed: 12%"));
    QVERIFY(debugLines().contains("VelmarCmd 127.0.82.1 Upgrade has been completed: 12%"));
}

void tst_UpgradeFileOfHTTP::callbackReplacesItself()
{
    auto *const other = new UpgradeFileOfHTTP(this);
    auto *const state = UpgradeFileOfHTTPPrivate::get(other);
    disconnect(UpgradeClientProxy::getInstance(), nullptr, state, nullptr);
    QStringList called;
    const auto finishedState = std::make_shared<int>();
    const auto progressState = std::make_shared<int>();
    // What a callback holds stays until it has returned.
    other->registerUpgradeFinishedCallBack([&called, other, held = finishedState] {
        const std::weak_ptr<int> watched = held;
        QStringList &calls = called;
        other->registerUpgradeFinishedCallBack([&calls] { calls.append("second finished"); });
        calls.append(QStringLiteral("finished %1").arg(watched.use_count()));
    });
    other->registerRefreshUpgradeProcessCallBack(
        [&called, other, held = progressState](s_UpgradePercent &) {
            const std::weak_ptr<int> watched = held;
            QStringList &calls = called;
            other->registerRefreshUpgradeProcessCallBack(
                [&calls](s_UpgradePercent &) { calls.append("second progress"); });
            calls.append(QStringLiteral("progress %1").arg(watched.use_count()));
        });
    state->slotReplyUpdataSchedule("{\"result\":2}");
    QCOMPARE(called, (QStringList { "progress 2", "finished 2" }));
    state->slotReplyUpdataSchedule("{\"result\":2}");
    QCOMPARE(called.mid(2), (QStringList { "second progress", "second finished" }));
    QCOMPARE(finishedState.use_count(), 1L);
    QCOMPARE(progressState.use_count(), 1L);
    delete other;
    delete state;
}

void tst_UpgradeFileOfHTTP::laterCallbackReplacesTheEarlier()
{
    UpgradeFileOfHTTP other;
    auto *const state = UpgradeFileOfHTTPPrivate::get(&other);
    disconnect(UpgradeClientProxy::getInstance(), nullptr, state, nullptr);
    QStringList called;
    for (const char *name : { "first", "second" }) {
        const QString text = QString::fromLatin1(name);
        other.registerRefreshUpgradeProcessCallBack(
            [&called, text](s_UpgradePercent &) { called.append(text + " progress"); });
        other.registerUpgradeFinishedCallBack(
            [&called, text] { called.append(text + " finished"); });
    }
    state->slotReplyUpdataSchedule("{\"result\":2}");
    QCOMPARE(called, (QStringList { "second progress", "second finished" }));
    delete state;
}

void tst_UpgradeFileOfHTTP::endIsNotedBehindTheCallback_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("done") << QByteArray("{\"result\":2}") << Installed;
    QTest::newRow("failed") << QByteArray("{\"result\":3}") << Failed;
}

void tst_UpgradeFileOfHTTP::endIsNotedBehindTheCallback()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, shown);
    startPolling();
    bool isNoted = true;
    bool isPolling = true;
    QStringList shownBefore;
    m_onFinished = [&] {
        isNoted = m_private->m_bFinished;
        isPolling = m_pollTimer->isActive();
        shownBefore = m_shown;
    };
    m_private->slotReplyUpdataSchedule(body);
    QVERIFY(!isNoted);
    QVERIFY(!isPolling);
    QCOMPARE(shownBefore, shown.mid(0, 2)); // the message box waits for the callback
    QCOMPARE(m_shown, shown);
    QVERIFY(m_private->m_bFinished);
}

void tst_UpgradeFileOfHTTP::ends_data()
{
    QTest::addColumn<QVector<int>>("results");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("done twice") << QVector<int> { 2, 2 } << Installed + Installed;
    QTest::newRow("failed twice") << QVector<int> { 3, 3 } << Failed;
    QTest::newRow("failed after done") << QVector<int> { 2, 3 } << Installed;
    QTest::newRow("done after failed") << QVector<int> { 3, 2 } << Failed + Installed;
    QTest::newRow("running after done")
        << QVector<int> { 2, 1 }
        << Installed + QStringList("status 0 6000 Upgrade has been completed: 0%");
}

void tst_UpgradeFileOfHTTP::ends()
{
    QFETCH(QVector<int>, results);
    for (const int result : results) {
        startPolling();
        m_private->slotReplyUpdataSchedule("{\"result\":" + QByteArray::number(result) + "}");
        QCOMPARE(m_pollTimer->isActive(), result == 1);
    }
    QTEST(m_shown, "shown");
    QVERIFY(m_private->m_bFinished);
}

void tst_UpgradeFileOfHTTP::pollInFlightFailsAfterSuccess()
{
    auto *const proxy = UpgradeClientProxy::getInstance();
    proxy->setDeviceIp(Address);
    m_server->always(PollPath, ScriptedHttpServer::silence());
    proxy->slotRunReply();
    proxy->slotRunReply();
    QTRY_COMPARE(m_server->count(PollPath), 2);
    QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer("{\"result\":2}")));
    QTRY_COMPARE(m_shown, Installed);
    QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer("", "503 Service Unavailable")));
    QTRY_COMPARE(m_shown, Installed + FailedTransfer);
    QVERIFY(m_private->m_bFinished);
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeFileOfHTTP::merge_data()
{
    QTest::addColumn<OlderList>("list");
    QTest::addColumn<QStringList>("parts");
    QTest::addColumn<quint64>("sum");

    // 12, 13 and 16 are known codes, 99 is not.
    QTest::newRow("nothing") << OlderList {} << QStringList {} << quint64(0);
    QTest::newRow("one without sections")
        << OlderList { older(5, {}) } << QStringList("1/5/0 0: ") << quint64(0);
    QTest::newRow("several merge into the first")
        << OlderList { older(5, { section(12, 10, 1) }), older(6, { section(13, 21, 0) }),
                       older(7, { section(16, 40, 1) }) }
        // (21 + 10) / 2 is 15, then (40 + 2 * 15) / 3
        << QStringList("1/5/0 23: 257 10 1, 261 21 2, 258 40 1") << quint64(23);
    QTest::newRow("one without sections keeps the rate")
        << OlderList { older(5, { section(12, 77, 1) }), older(6, {}) }
        << QStringList("1/5/0 77: 257 77 1") << quint64(77);
    QTest::newRow("none with sections")
        << OlderList { older(5, { section(99, 8, 1) }), older(6, {}) } << QStringList("1/5/0 0: ")
        << quint64(0);
    QTest::newRow("first without sections")
        << OlderList { older(5, {}), older(6, { section(12, 30, 0), section(13, 31, 0) }) }
        << QStringList("1/5/0 30: 257 30 2, 261 31 2") << quint64(30);
    QTest::newRow("rates over 100")
        << OlderList { older(5, { section(12, 255, 1) }), older(6, { section(13, 254, 1) }) }
        << QStringList("1/5/0 254: 257 255 1, 261 254 1") << quint64(254);
}

void tst_UpgradeFileOfHTTP::merge()
{
    QFETCH(OlderList, list);
    QFETCH(QStringList, parts);
    s_UpgradePercent percent;
    quint64 sum = 0;
    m_private->mergeUpgradeParts(list, 1, sum, percent);
    QStringList merged;
    for (const auto &part : percent.parts)
        merged.append(text(part));
    QCOMPARE(merged, parts);
    QTEST(sum, "sum");
}

void tst_UpgradeFileOfHTTP::mergeKeepsOtherTypes()
{
    s_UpgradePercent percent;
    s_UpgradeCardParts present;
    present.type = 2;
    present.rate = 40;
    percent.parts = { present, present };
    percent.parts[1].type = 1;
    percent.parts[1].section = { section(9, 40, 1) };
    quint64 sum = 80;
    m_private->mergeUpgradeParts({ older(5, { section(12, 20, 1) }) }, 1, sum, percent);
    QCOMPARE(text(percent),
             QString("result 0 rate 0 sub 0 [2/0/0 40: ; 1/0/0 30: 9 40 1, 257 20 1]"));
    QCOMPARE(sum, quint64(70));
    // The place of the part that was appended is known although the list has grown.
    m_private->mergeUpgradeParts(
        { older(7, { section(12, 20, 1) }), older(8, { section(13, 40, 1) }) }, 4, sum, percent);
    QCOMPARE(text(percent),
             QString("result 0 rate 0 sub 0 [2/0/0 40: ; 1/0/0 30: 9 40 1, 257 20 1; "
                     "4/7/0 30: 257 20 1, 261 40 1]"));
    QCOMPARE(sum, quint64(100));
}

void tst_UpgradeFileOfHTTP::translations()
{
    const QString outer("Velmar::Firmware::UpgradeFileOfHTTP");
    const QString inner("Velmar::Firmware::Internal::UpgradeFileOfHTTPPrivate");
    QVector<QPair<QString, QString>> asked;
    {
        const TranslationRecorder translator;
        prepare(false, KnownModel, {});
        m_upgrade.doDeviceUpgradeOfHTTP();
        m_link->answer("command", ScriptedLink::failed(LinkAnswer::Outcome::TimedOut));
        prepare(true, NoMcuModel);
        m_upgrade.doDeviceUpgradeOfHTTP();
        answerVersion(R"({"version":"2.0.0.0","brief":"S1.T1"})");
        m_upgrade.doDeviceUpgradeOfHTTP();
        m_upgrade.init(false, nullptr, KnownModel, { card(1, 0, 0, {}) }, "none", Address);
        m_upgrade.doDeviceUpgradeOfHTTP();
        m_private->slotOnUploadProgress(1, 2);
        m_private->slotReplyUploadFinished(1);
        m_private->slotReplyUpdataSchedule("{\"result\":1,\"rate\":5}");
        m_private->slotReplyUpdataSchedule("{\"result\":3}");
        m_private->slotReplyUpdataSchedule("{\"result\":2}");
        asked = translator.asked();
    }
    const QString restart("The device will restart, please wait!");
    const QVector<QPair<QString, QString>> expected {
        { outer, "Please select upgrade config." },
        { inner, "Get %1 failed: %2 ." },
        { inner, "device version" },
        { inner, "invalid response command model data" },
        { outer, "Please check upgrade config." },
        { inner, Refusal },
        { inner, "Failed to upgrade!" },
        { inner, "Upload file progress: %1%" },
        { inner, "Upload file failed!" },
        { inner, restart },
        { inner, "Upgrade has been completed: %1%" },
        { inner, "Upgrade failed!" },
        { inner, restart },
        { inner, "Upgrade successed!" },
        { inner, restart },
    };
    QVector<QPair<QString, QString>> sortedAsked = asked;
    QVector<QPair<QString, QString>> sortedExpected = expected;
    std::sort(sortedAsked.begin(), sortedAsked.end());
    std::sort(sortedExpected.begin(), sortedExpected.end());
    QCOMPARE(sortedAsked, sortedExpected); // which of the texts in one call comes first is open
    const QChar mark(0xAB);
    QCOMPARE(m_shown.first(), QString("box 1 ") + mark + "Please select upgrade config.");
    QVERIFY(m_shown.contains(QString("status 2 5000 ") + mark + "Get " + mark
                             + "device version failed: " + mark
                             + "invalid response command model data ."));
    QVERIFY(m_shown.contains(QString("status 0 6000 ") + mark + "Upload file progress: 50%"));
    // These three log lines repeat what the user reads; the label behind the first is never worded.
    QVERIFY(warnings().contains(QString("VelmarCmd 127.0.82.1 ") + mark + "Get " + mark
                                + "device version failed: " + mark
                                + "invalid response command model data .  lables: 1"));
    QVERIFY(warnings().contains(mark + Refusal));
    QVERIFY(debugLines().contains(QString("VelmarCmd 127.0.82.1 ") + mark
                                  + "Upgrade has been completed: 5%"));
}

void tst_UpgradeFileOfHTTP::emptyCallback()
{
    auto *const fresh = UpgradeFileOfHTTPPrivate::get(new UpgradeFileOfHTTP(this));
    disconnect(UpgradeClientProxy::getInstance(), nullptr, fresh, nullptr);
    QVERIFY_EXCEPTION_THROWN(fresh->slotReplyUploadFinished(1), std::bad_function_call);
    QCOMPARE(m_shown, QStringList("status 2 6000 Upload file failed!"));
    QVERIFY_EXCEPTION_THROWN(fresh->slotReplyUpdataSchedule("{\"result\":2}"),
                             std::bad_function_call);
    QVERIFY(!fresh->m_bFinished);
    fresh->slotReplyUpdataSchedule("{"); // nothing to tell
    delete fresh;
}

void tst_UpgradeFileOfHTTP::parent()
{
    QVERIFY(!m_upgrade.parent());
    QObject owner;
    auto *const other = new UpgradeFileOfHTTP(&owner);
    QCOMPARE(other->parent(), &owner);
    delete UpgradeFileOfHTTPPrivate::get(other);
}

void tst_UpgradeFileOfHTTP::leavesThePollingOn()
{
    auto *const proxy = UpgradeClientProxy::getInstance();
    startPolling();
    UpgradeFileOfHTTPPrivate *left = nullptr;
    {
        UpgradeFileOfHTTP other;
        left = UpgradeFileOfHTTPPrivate::get(&other);
    }
    QVERIFY(m_pollTimer->isActive());
    QCOMPARE(UpgradeClientProxy::getInstance(), proxy);
    delete left;
}

void tst_UpgradeFileOfHTTP::outlivesThePublicObject()
{
    UpgradeFileOfHTTPPrivate *left = nullptr;
    {
        UpgradeFileOfHTTP other;
        other.registerUpgradeFinishedCallBack([this] { m_shown.append("other finished"); });
        left = UpgradeFileOfHTTPPrivate::get(&other);
    }
    // A network fault of a later object's upload ends both, twice.
    m_server->close();
    QVERIFY(m_upgrade.doDeviceUpgradeOfHTTP());
    QStringList other = FailedTransfer;
    other.replace(1, "other finished");
    QTRY_COMPARE(m_shown, FailedTransfer + other + FailedTransfer + other);
    delete left;
}

QTEST_GUILESS_MAIN(tst_UpgradeFileOfHTTP)

#include "tst_upgradefileofhttp.moc"
