#include "run/httprun.h"

#include "support/logrecorder.h"
#include "support/scriptedhttpserver.h"
#include "support/scriptedlink.h"

#include "upgradeclientproxy.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

using namespace Velmar;
using namespace Velmar::Host;
using ProtoModel::Auxiliary::s_CardInfoParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

// Of this program alone: the port stands in the addresses.
const auto Address = QStringLiteral("127.0.84.1");
const QByteArray UploadPath("/uploadUpgrade");
const QByteArray PollPath("/getUpgradeRate");
constexpr quint16 Model = 0x7701;
constexpr std::chrono::seconds Ample { 30 };

bool isAnyReplyRunning()
{
    const auto replies = UpgradeClientProxy::getInstance()->findChildren<QNetworkReply *>();
    return std::any_of(replies.begin(), replies.end(),
                       [](const QNetworkReply *reply) { return reply->isRunning(); });
}

/*! What a host hears of a run, in order. */
class Listener : public QObject
{
public:
    explicit Listener(HttpRun &run)
    {
        connect(&run, &HttpRun::signalStageChanged, this, [this](HttpRun::Stage stage) {
            stages.append(QVariant::fromValue(stage).toString());
        });
        connect(&run, &HttpRun::signalStatusText, this,
                [this](const QString &text) { texts.append(text); });
        connect(&run, &HttpRun::signalSending, this,
                [this](int percent, const QString &text) { sending[percent] = text; });
        connect(&run, &HttpRun::signalInstalling, this, [this](const s_UpgradePercent &record) {
            installing.append(
                QStringLiteral("result %1, rate %2").arg(record.result).arg(record.rate));
        });
        connect(&run, &HttpRun::signalEnded, this,
                [this](HttpRun::Outcome outcome, const QString &text) {
                    ends.append(QVariant::fromValue(outcome).toString() + ": " + text);
                });
    }

    QStringList stages;
    QStringList texts;
    QMap<int, QString> sending;
    QStringList installing;
    QStringList ends;
};

} // namespace

class tst_HttpRun : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;
    std::unique_ptr<ScriptedHttpServer> m_server;
    std::unique_ptr<LogRecorder> m_log;
    HttpOrder m_order;

private Q_SLOTS:
    void init()
    {
        m_log = std::make_unique<LogRecorder>();
        m_server = std::make_unique<ScriptedHttpServer>();
        QVERIFY(m_server->listen(Address));
        m_server->always(UploadPath, ScriptedHttpServer::answer("ok"));
        const QString path = m_folder.filePath("upgrade.bin");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write("firmware"), qint64(8));
        s_CardInfoParts part;
        part.type = 1;
        part.section.push_back({ 257 });
        m_order = { false, std::make_shared<ScriptedLink>(), Model, { part }, path, Address };
    }
    void cleanup()
    {
        UpgradeClientProxy::getInstance()->stopPostReply();
        m_server.reset();
        // What a test left unanswered ends with its server.
        QTRY_VERIFY(!isAnyReplyRunning());
        m_log.reset();
    }

    void success()
    {
        m_server->queue(PollPath, ScriptedHttpServer::answer(R"({"result":1,"rate":42})"));
        m_server->queue(PollPath, ScriptedHttpServer::answer(R"({"result":1,"rate":42})"));
        m_server->queue(PollPath, ScriptedHttpServer::answer(R"({"result":2,"rate":100})"));
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        QTRY_COMPARE(run.stage(), HttpRun::Stage::Installing);
        for (int i = 1; i <= 3; ++i) {
            UpgradeClientProxy::getInstance()->slotRunReply();
            QTRY_COMPARE(heard.installing.size(), i);
        }
        QTRY_COMPARE(heard.ends, QStringList("Succeeded: Upgrade successed!"));
        QCOMPARE(heard.stages, (QStringList { "Preparing", "Sending", "Installing", "Ended" }));
        QCOMPARE(heard.sending.last(), QString("Upload file progress: 100%"));
        QCOMPARE(heard.installing,
                 (QStringList { "result 1, rate 42", "result 1, rate 42", "result 2, rate 100" }));
        QCOMPARE(heard.texts,
                 (QStringList { "Upgrade has been completed: 42%", "Upgrade successed!",
                                "The device will restart, please wait!" }));
        QVERIFY(!run.isWorkerLeftBehind());
    }

    void failure()
    {
        m_server->always(PollPath, ScriptedHttpServer::answer(R"({"result":3})"));
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        QTRY_COMPARE(run.stage(), HttpRun::Stage::Installing);
        UpgradeClientProxy::getInstance()->slotRunReply();
        QTRY_COMPARE(heard.ends, QStringList("Failed: Upgrade failed!"));
        QCOMPARE(heard.texts.last(), QString("The device will restart, please wait!"));
        QVERIFY(!run.fault());
    }

    void guardedFailure_data()
    {
        QTest::addColumn<QByteArray>("uploadStatus");
        QTest::addColumn<QByteArray>("progress");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("word");

        QTest::newRow("upload refused")
            << QByteArray("500 Internal Server Error") << QByteArray()
            << "Failed: The device refuses the file: 500 Internal Server Error"
            << "send-failed";
        QTest::newRow("unreadable progress") << QByteArray("200 OK") << QByteArray("[")
                                             << "Failed: The device tells its progress wrongly: it "
                                                "is no JSON: unterminated array at "
                                                "byte 1"
                                             << "bad-answer";
        QTest::newRow("older progress")
            << QByteArray("200 OK") << QByteArray(R"([{"result":0}])")
            << "Failed: The device tells its progress wrongly: it is a list in place of an object"
            << "bad-answer";
    }
    void guardedFailure()
    {
        QFETCH(QByteArray, uploadStatus);
        QFETCH(QByteArray, progress);
        QFETCH(QString, end);
        m_server->always(UploadPath, ScriptedHttpServer::answer("ok", uploadStatus));
        m_server->always(PollPath, ScriptedHttpServer::answer(progress));
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        if (!progress.isEmpty()) {
            QTRY_COMPARE(run.stage(), HttpRun::Stage::Installing);
            UpgradeClientProxy::getInstance()->slotRunReply();
        }
        QTRY_COMPARE(heard.ends, QStringList(end));
        QVERIFY(run.fault());
        QTEST(verdictWord(*run.fault()), "word");
        // Nothing of it has come to the library.
        QVERIFY(!heard.texts.contains("Upload file failed!"));
        QCOMPARE(heard.installing, QStringList());
    }

    void badAddress()
    {
        m_order.host = Address + ":8080";
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        QCOMPARE(heard.ends, QStringList());
        QTRY_COMPARE(
            heard.ends,
            QStringList("Failed: \"127.0.84.1:8080\" is no address of an HTTP service: give "
                        "a numeric address or a host name, without port or path"));
        QVERIFY(run.fault() == VerdictCode::Unreachable);
        QCOMPARE(m_server->connections(), 0);
    }

    void generationThatOnlyTheLibraryKnows_data()
    {
        QTest::addColumn<QByteArray>("version"); // empty: not answered
        QTest::addColumn<QByteArray>("progress");
        QTest::addColumn<QString>("end");
        const QString wrong(
            "Failed: The device tells its progress wrongly: it is in the form of the "
            "other generation");

        QTest::newRow("older as told")
            << QByteArray() << QByteArray(R"([{"result":0}])") << "Succeeded: Upgrade successed!";
        QTest::newRow("newer as told")
            << QByteArray(R"({"version":"3"})") << QByteArray(R"({"result":2})")
            << "Succeeded: Upgrade successed!";
        QTest::newRow("newer in place of older")
            << QByteArray() << QByteArray(R"({"result":2})") << wrong;
        QTest::newRow("older in place of newer")
            << QByteArray(R"({"version":"3"})") << QByteArray(R"([{"result":0}])") << wrong;
    }
    void generationThatOnlyTheLibraryKnows()
    {
        QFETCH(QByteArray, version);
        QFETCH(QByteArray, progress);
        auto link = std::make_shared<ScriptedLink>();
        link->answer("command", ScriptedLink::accepted({ { "body", version } }));
        m_order.link = link;
        m_order.isCompatible = true;
        m_server->always(PollPath, ScriptedHttpServer::answer(progress));
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        QTRY_COMPARE(run.stage(), HttpRun::Stage::Installing);
        UpgradeClientProxy::getInstance()->slotRunReply();
        QTRY_COMPARE(heard.ends.size(), 1);
        QTEST(heard.ends.first(), "end");
    }

    void endedRunLetsGo()
    {
        m_server->always(UploadPath, ScriptedHttpServer::silence());
        HttpRun run(m_order);
        run.start(Ample, Ample);
        QTRY_COMPARE(m_server->count(UploadPath), 1);
        QVERIFY(run.sentBytes() > 8);
        run.giveUp();
        QTRY_COMPARE(m_server->openConnections(), 0);
    }

    void notBegun_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("hasParts");
        QTest::addColumn<QString>("end");

        QTest::newRow("no file") << m_folder.filePath("none.bin") << true
                                 << "Failed: Failed to upgrade!";
        QTest::newRow("nothing chosen")
            << m_folder.filePath("upgrade.bin") << false << "Failed: Please select upgrade config.";
    }
    void notBegun()
    {
        QFETCH(bool, hasParts);
        QFETCH(QString, file);
        m_order.filePath = file;
        if (!hasParts)
            m_order.parts.clear();
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        QCOMPARE(heard.ends, QStringList());
        QFETCH(QString, end);
        QTRY_COMPARE(heard.ends, QStringList(end));
        QCOMPARE(heard.stages, (QStringList { "Preparing", "Ended" }));
        QCOMPARE(m_server->connections(), 0);
    }

    void versionDecides()
    {
        auto link = std::make_shared<ScriptedLink>();
        m_order.link = link;
        m_order.isCompatible = true;
        link->answer("command",
                     ScriptedLink::accepted(
                         { { "body", QByteArray(R"({"version":"2.0.0.0","brief":"S1.T1"})") } }));
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, Ample);
        QTRY_COMPARE(
            heard.ends,
            QStringList("Failed: Failed to upgrade:Please use device OLED program to upgrade!"));
        QCOMPARE(link->operations(), QStringList("command"));
    }

    void silence_data()
    {
        QTest::addColumn<bool>("answersUpload");

        QTest::newRow("upload never answered") << false;
        QTest::newRow("poll never answered") << true;
    }
    void silence()
    {
        QFETCH(bool, answersUpload);
        if (!answersUpload)
            m_server->always(UploadPath, ScriptedHttpServer::silence());
        m_server->always(PollPath, ScriptedHttpServer::silence());
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, std::chrono::milliseconds(150));
        QTRY_COMPARE(heard.ends, QStringList("TimedOut: "));
        QVERIFY(run.isWorkerLeftBehind());
    }

    void meaninglessProgressIsSilence()
    {
        m_server->always(PollPath, ScriptedHttpServer::answer(R"({"result":0,"rate":0})"));
        HttpRun run(m_order);
        Listener heard(run);
        run.start(Ample, std::chrono::milliseconds(200));
        QTRY_COMPARE(run.stage(), HttpRun::Stage::Installing);
        UpgradeClientProxy::getInstance()->slotRunReply();
        QTRY_COMPARE(heard.ends, QStringList("TimedOut: "));
    }

    void timeLimit()
    {
        m_server->always(UploadPath, ScriptedHttpServer::silence());
        HttpRun run(m_order);
        Listener heard(run);
        run.start(std::chrono::milliseconds(100), Ample);
        QTRY_COMPARE(heard.ends, QStringList("TimedOut: "));
    }

    void laterRunsDoNotReachTheFormer()
    {
        auto first = std::make_unique<HttpRun>(m_order);
        auto heardFirst = std::make_unique<Listener>(*first);
        first.reset();
        HttpRun run(m_order);
        Listener heard(run);
        m_server->always(UploadPath, ScriptedHttpServer::answer("", "404 Not Found"));
        run.start(Ample, Ample);
        QTRY_COMPARE(heard.ends, QStringList("Failed: The device refuses the file: 404 Not Found"));
        QVERIFY(heardFirst->ends.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_HttpRun)

#include "tst_httprun.moc"
