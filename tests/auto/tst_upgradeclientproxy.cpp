#include "upgradeclientproxy.h"

#include "support/logrecorder.h"
#include "support/polltimerfinder.h"
#include "support/scriptedhttpserver.h"
#include "support/waituntil.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHttpMultiPart>
#include <QMetaMethod>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QSslError>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <algorithm>
#include <memory>

namespace {

// Of this program alone: the port stands in the addresses.
const auto Address = QStringLiteral("127.0.81.1");
const QByteArray UploadPath("/uploadUpgrade");
const QByteArray PollPath("/getUpgradeRate");

/*! The header lines of \a head without the one that depends on the user's language. */
QByteArray comparable(const QByteArray &head)
{
    QString text = QString::fromLatin1(head);
    text.remove(QRegularExpression(QStringLiteral("Accept-Language: [^\r]*\r\n")));
    return text.toLatin1();
}

bool writeFile(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

/*! Runs the event loop until all that was queued has been delivered. */
void deliverQueued()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/*! What the proxy reports, in order, as in "uploaded 0". */
class Listener : public QObject
{
public:
    Listener()
    {
        const auto *proxy = UpgradeClientProxy::getInstance();
        connect(proxy, &UpgradeClientProxy::signalOnUploadProgress, this,
                [this](qint64 sent, qint64 total) {
                    progress.append(QStringLiteral("%1 of %2").arg(sent).arg(total));
                });
        connect(proxy, &UpgradeClientProxy::signalReplyUploadFinished, this,
                [this](int code) { ends.append(QStringLiteral("uploaded %1").arg(code)); });
        connect(proxy, &UpgradeClientProxy::signalReplyUpdataFinished, this,
                [this](int code) { ends.append(QStringLiteral("polled %1").arg(code)); });
        connect(proxy, &UpgradeClientProxy::signalReplyUpdataSchedule, this,
                [this](const QByteArray &body) { bodies.append(body); });
    }

    QStringList progress;
    QStringList ends;
    QVector<QByteArray> bodies;
};

/*! A reply that says what it was told to, at the second time that all of it is read. */
class FakeReply : public QNetworkReply
{
public:
    explicit FakeReply(NetworkError error, const QByteArray &secondReading = QByteArray())
        : m_secondReading(secondReading)
    {
        setError(error, QStringLiteral("fake"));
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    void abort() override { }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (m_isFirstReading) {
            m_isFirstReading = false;
            return 0;
        }
        const qint64 size = std::min(maxSize, qint64(m_secondReading.size()));
        std::copy_n(m_secondReading.cbegin(), size, data);
        m_secondReading.remove(0, int(size));
        return size;
    }

private:
    QByteArray m_secondReading;
    bool m_isFirstReading = true;
};

template<typename... Arguments> bool callSlot(const char *slot, Arguments... arguments)
{
    return QMetaObject::invokeMethod(UpgradeClientProxy::getInstance(), slot, Qt::DirectConnection,
                                     arguments...);
}

/*! One life of the proxy in a process of its own; tear-down can be tried once in each. */
int tearDown(const QStringList &arguments)
{
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    const QString scenario = arguments.value(2);
    const QString file = arguments.value(3);
    if (scenario == QLatin1String("without an object")) {
        UpgradeClientProxy::destoryInstance();
        return 0;
    }
    auto *const proxy = UpgradeClientProxy::getInstance();
    int ends = 0;
    QObject::connect(proxy, &UpgradeClientProxy::signalReplyUploadFinished,
                     [&ends](int) { ++ends; });
    bool isBegun = false;
    QObject::connect(proxy, &UpgradeClientProxy::signalOnUploadProgress,
                     [&isBegun](qint64, qint64) { isBegun = true; });
    if (scenario != QLatin1String("upload without an address"))
        proxy->setDeviceIp(Address);
    const bool isUploaded = proxy->uploadFiletoDevice(file, QByteArray("{}")) == 0;
    if (scenario == QLatin1String("after an upload")) {
        if (!waitUntil([&] { return ends == 1; }))
            return 2;
    } else if (scenario == QLatin1String("during an upload")) {
        if (!waitUntil([&] { return isBegun; }))
            return 2;
    } else if (scenario == QLatin1String("during two uploads")) {
        if (!waitUntil([&] { return isBegun; })
            || proxy->uploadFiletoDevice(file, QByteArray("{}")) != 0)
            return 2;
        isBegun = false;
        if (!waitUntil([&] { return isBegun; }))
            return 2;
    } else if (scenario == QLatin1String("while polling")) {
        proxy->startPostReply();
        proxy->slotRunReply();
    } else if (isUploaded) {
        return 2;
    }
    UpgradeClientProxy::destoryInstance();
    // The pointer is stale and stays: who asks gets the same one.
    return UpgradeClientProxy::getInstance() == proxy ? 0 : 3;
}

} // namespace

class tst_UpgradeClientProxy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void interface();
    void oneObject();
    void uploadOnTheWire_data();
    void uploadOnTheWire();
    void uploadIsNotBegun_data();
    void uploadIsNotBegun();
    void uploadWithoutAddressKeepsTheFileOpen();
    void uploadAnswered_data();
    void uploadAnswered();
    void uploadWithoutAService();
    void uploadCutInTheBody();
    void uploadIsRepeatedByQt_data();
    void uploadIsRepeatedByQt();
    void uploadProgress_data();
    void uploadProgress();
    void uploadIsStreamed();
    void uploadAnswerComparedWithOk_data();
    void uploadAnswerComparedWithOk();
    void uploadReplyIsKept();
    void uploadLeavesThePollingOn();
    void secondUpload();
    void secondUploadDuringTheFirst();
    void secondUploadLeavesTheConnections();
    void uploadBegunInsideAFailure_data();
    void uploadBegunInsideAFailure();
    void pollOnTheWire();
    void pollsFollowEachOther();
    void pollWithoutAddress();
    void pollAnswered_data();
    void pollAnswered();
    void pollFailed_data();
    void pollFailed();
    void pollRedirected();
    void pollReplyIsDeletedLater_data();
    void pollReplyIsDeletedLater();
    void pollIsRepeatedByQt_data();
    void pollIsRepeatedByQt();
    void severalPollsInFlight();
    void pollInFlightOutlivesStop();
    void noCookies_data();
    void noCookies();
    void noReply();
    void finishedIsQueued();
    void sslErrors();
    void sslErrorsOfEitherManager();
    void replyErrorSlot();
    void tearDown_data();
    void tearDown();
    void cleanupTestCase();

private:
    QString storeFile(const QByteArray &contents);
    QNetworkAccessManager *uploadManager() const { return m_managers.at(0); }
    QNetworkAccessManager *pollManager() const { return m_managers.at(1); }
    static QNetworkReply *latestReply(const QNetworkAccessManager *manager);
    bool waitForEnds(int count) const
    {
        return waitUntil([this, count] { return m_heard->ends.size() >= count; });
    }
    QStringList warnings() const { return m_log->texts(QtWarningMsg); }
    QStringList debugLines() const { return m_log->texts(QtDebugMsg); }

    QTemporaryDir m_folder;
    QTimer *m_pollTimer = nullptr;
    std::unique_ptr<ScriptedHttpServer> m_server;
    std::unique_ptr<Listener> m_heard;
    std::unique_ptr<LogRecorder> m_log;
    UpgradeClientProxy *m_proxy = nullptr;
    QList<QNetworkAccessManager *> m_managers; // in the order of their making
};

void tst_UpgradeClientProxy::initTestCase()
{
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    m_proxy = UpgradeClientProxy::getInstance();
    m_managers = m_proxy->findChildren<QNetworkAccessManager *>();
    QCOMPARE(m_managers.size(), 2);
    PollTimerFinder finder;
    QElapsedTimer elapsed;
    elapsed.start();
    QTest::ignoreMessage(QtWarningMsg, "the device ip is null. upgrade failed.");
    m_proxy->startPostReply();
    QTRY_VERIFY(finder.found);
    QVERIFY2(elapsed.elapsed() >= 950, qPrintable(QString::number(elapsed.elapsed())));
    m_pollTimer = finder.found;
    QVERIFY(!m_pollTimer->parent());
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::init()
{
    m_server = std::make_unique<ScriptedHttpServer>();
    QVERIFY(m_server->listen(Address));
    m_server->always(UploadPath, ScriptedHttpServer::answer("received"));
    m_server->always(PollPath, ScriptedHttpServer::answer("{}"));
    m_heard = std::make_unique<Listener>();
    m_log = std::make_unique<LogRecorder>();
    m_proxy->setDeviceIp(Address);
}

void tst_UpgradeClientProxy::cleanup()
{
    m_proxy->stopPostReply();
    m_server.reset();
    for (QNetworkAccessManager *manager : qAsConst(m_managers))
        manager->clearConnectionCache(); // what a test did to a connection is no matter of the next
    deliverQueued();
    m_log.reset();
    m_heard.reset();
}

QString tst_UpgradeClientProxy::storeFile(const QByteArray &contents)
{
    const QString path = m_folder.filePath(QStringLiteral("upgrade.bin"));
    return writeFile(path, contents) ? path : QString();
}

QNetworkReply *tst_UpgradeClientProxy::latestReply(const QNetworkAccessManager *manager)
{
    const auto replies = manager->findChildren<QNetworkReply *>();
    return replies.isEmpty() ? nullptr : replies.last();
}

void tst_UpgradeClientProxy::interface()
{
    const QMetaObject &meta = UpgradeClientProxy::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        methods.append(QString::fromLatin1(method.methodSignature() + " "
                                           + method.parameterNames().join(',')));
    }
    const QStringList expected {
        "signalOnUploadProgress(qlonglong,qlonglong) bytesSent,bytesTotal",
        "signalReplyUploadFinished(int) nCode",
        "signalReplyUpdataFinished(int) nCode",
        "signalReplyUpdataSchedule(QByteArray) buffer",
        "slotRunReply() ",
        "slotReplyFinished(QNetworkReply*) pNetReply",
        "slotReplySslErrors(QNetworkReply*,QList<QSslError>) reply,errors",
        "slotUpLoadReplyError(QNetworkReply::NetworkError) ",
        "slotOnUploadProgress(qlonglong,qlonglong) ,",
        "slotScheduleReplyFinished(QNetworkReply*) ",
        "slotScheduleReplySslErrors(QNetworkReply*,QList<QSslError>) ,",
        "slotGetReplyError(QNetworkReply::NetworkError) ",
    };
    QCOMPARE(methods, expected);
    QCOMPARE(meta.method(meta.methodOffset() + 3).methodType(), QMetaMethod::Signal);
    QCOMPARE(meta.method(meta.methodOffset() + 4).methodType(), QMetaMethod::Slot);
    QCOMPARE(meta.method(meta.methodOffset() + 4).access(), QMetaMethod::Public);
    QCOMPARE(meta.className(), "UpgradeClientProxy");
}

void tst_UpgradeClientProxy::oneObject()
{
    QCOMPARE(UpgradeClientProxy::getInstance(), m_proxy);
    QVERIFY(!m_proxy->parent());
    QCOMPARE(m_proxy->thread(), QThread::currentThread());
}

void tst_UpgradeClientProxy::uploadOnTheWire_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("length");

    QTest::newRow("file and control text")
        << QByteArray("firmware") << QByteArray("{\"a\":1}") << QByteArray("299");
    QTest::newRow("empty file and text") << QByteArray() << QByteArray() << QByteArray("284");
    QTest::newRow("binary file with line ends and boundary")
        << QByteArray("\0\r\n------weasdashDsdesd--\r\n\xff", 27) << QByteArray("[]")
        << QByteArray("313");
}

void tst_UpgradeClientProxy::uploadOnTheWire()
{
    QFETCH(QByteArray, contents);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, length);
    const QString path = storeFile(contents);

    QCOMPARE(m_proxy->uploadFiletoDevice(path, text), 0);
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_heard->ends, QStringList("uploaded 0"));

    QCOMPARE(m_server->requests().size(), 1);
    const auto &request = m_server->requests().first();
    QCOMPARE(comparable(request.head),
             QByteArray("POST /uploadUpgrade HTTP/1.1\r\n"
                        "Host: 127.0.81.1:8080\r\n"
                        "Content-Type: multipart/form-data;boundary=----weasdashDsdesd\r\n"
                        "MIME-Version: 1.0\r\n"
                        "Content-Length: ")
                 + length
                 + "\r\nConnection: Keep-Alive\r\n"
                   "Accept-Encoding: gzip, deflate\r\n"
                   "User-Agent: Mozilla/5.0\r\n");
    QCOMPARE(request.body,
             QByteArray("------weasdashDsdesd\r\n"
                        "Content-Disposition: form-data; name=\"file\"; filename=\"file.jpg\"\r\n"
                        "Content-Type: application/octet-stream\r\n"
                        "\r\n")
                 + contents
                 + "\r\n------weasdashDsdesd\r\n"
                   "Content-Disposition: form-data; name=\"text\"; filename=\"text.text\"\r\n"
                   "Content-Type: multipart/form-data\r\n"
                   "\r\n"
                 + text + "\r\n------weasdashDsdesd--\r\n");
    QVERIFY(debugLines().contains("VelmarCmd post upgrade file to 127.0.81.1"));
    QVERIFY(debugLines().last().contains("\"received\""));
    QCOMPARE(warnings(), QStringList());
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::uploadIsNotBegun_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("warning");

    const QString missing = m_folder.filePath(QStringLiteral("none.bin"));
    const QString present = storeFile("firmware");
    QTest::newRow("file missing") << missing << Address << missing + " is not exits!";
    QTest::newRow("file missing and no address")
        << missing << QString() << missing + " is not exits!";
    QTest::newRow("a folder") << m_folder.path() << Address << m_folder.path() + "file open error!";
    QTest::newRow("a folder and no address")
        << m_folder.path() << QString() << m_folder.path() + "file open error!";
    QTest::newRow("no address") << present << QString()
                                << QStringLiteral("the device ip is null. upgrade failed.");
}

void tst_UpgradeClientProxy::uploadIsNotBegun()
{
    QFETCH(QString, path);
    QFETCH(QString, address);
    QFETCH(QString, warning);
    m_proxy->setDeviceIp(address);

    QCOMPARE(m_proxy->uploadFiletoDevice(path, QByteArray("{}")), -1);

    deliverQueued();
    QCOMPARE(warnings(), QStringList(warning));
    QCOMPARE(m_heard->ends, QStringList());
    QCOMPARE(m_server->connections(), 0);
}

void tst_UpgradeClientProxy::uploadWithoutAddressKeepsTheFileOpen()
{
    const QString path = storeFile("firmware");
    const auto isOpen = [&path] {
        const QDir descriptors(QStringLiteral("/proc/self/fd"));
        const auto entries = descriptors.entryInfoList(QDir::Files | QDir::System);
        return std::any_of(entries.begin(), entries.end(), [&path](const QFileInfo &entry) {
            return entry.symLinkTarget() == QFileInfo(path).canonicalFilePath();
        });
    };
    m_proxy->setDeviceIp(QString());
    QCOMPARE(m_proxy->uploadFiletoDevice(path, QByteArray("{}")), -1);
    QVERIFY(isOpen());
    // The next upload lets go of it, even if that comes to nothing either.
    QCOMPARE(m_proxy->uploadFiletoDevice(m_folder.filePath(QStringLiteral("none.bin")), {}), -1);
    QVERIFY(!isOpen());
}

void tst_UpgradeClientProxy::uploadAnswered_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("ends");

    const auto twice = [](const char *end) {
        return QStringList { end, end };
    };
    QTest::newRow("ok") << QByteArray("200 OK") << QByteArray("ok") << QStringList("uploaded 0");
    QTest::newRow("another text") << QByteArray("200 OK") << QByteArray("failed")
                                  << QStringList("uploaded 0");
    QTest::newRow("no body") << QByteArray("200 OK") << QByteArray() << QStringList("uploaded 0");
    // Not followed, and no error for Qt.
    QTest::newRow("moved") << QByteArray("301 Moved Permanently") << QByteArray("elsewhere")
                           << QStringList("uploaded 0");
    QTest::newRow("see other") << QByteArray("303 See Other") << QByteArray()
                               << QStringList("uploaded 0");
    QTest::newRow("not modified") << QByteArray("304 Not Modified") << QByteArray()
                                  << QStringList("uploaded 0");
    QTest::newRow("temporary redirect")
        << QByteArray("307 Temporary Redirect") << QByteArray() << QStringList("uploaded 0");
    QTest::newRow("bad request") << QByteArray("400 Bad Request") << QByteArray("no")
                                 << twice("uploaded 302");
    QTest::newRow("not found") << QByteArray("404 Not Found") << QByteArray()
                               << twice("uploaded 203");
    QTest::newRow("server error") << QByteArray("500 Internal Server Error") << QByteArray("broken")
                                  << twice("uploaded 401");
    QTest::newRow("server error that says ok")
        << QByteArray("500 Internal Server Error") << QByteArray("ok") << twice("uploaded 401");
    QTest::newRow("service unavailable")
        << QByteArray("503 Service Unavailable") << QByteArray("OK") << twice("uploaded 403");
}

void tst_UpgradeClientProxy::uploadAnswered()
{
    QFETCH(QByteArray, status);
    QFETCH(QByteArray, body);
    QFETCH(QStringList, ends);
    const bool isRedirection = status.startsWith('3');
    m_server->queue(UploadPath,
                    ScriptedHttpServer::answer(
                        body, status, isRedirection ? "Location: /getUpgradeRate\r\n" : ""));
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), 0);
    QVERIFY(waitForEnds(ends.size()));
    deliverQueued();
    QCOMPARE(m_heard->ends, ends);
    QVERIFY(!m_pollTimer->isActive());
    QCOMPARE(m_server->requests().size(), 1);
    // A failure is logged with the data of its answer and in no other way.
    QCOMPARE(warnings(), QStringList());
    QCOMPARE(debugLines().size(), 2);
    QCOMPARE(debugLines().first(), QStringLiteral("VelmarCmd post upgrade file to 127.0.81.1"));
    QVERIFY(debugLines().last().startsWith(QLatin1String("QNetworkReplyHttpImpl(0x")));
    QVERIFY(debugLines().last().endsWith(") \"" + QString::fromLatin1(body) + '"'));
}

void tst_UpgradeClientProxy::uploadAnswerComparedWithOk_data()
{
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QByteArray>("secondReading");
    QTest::addColumn<QString>("end");

    const auto failed = QNetworkReply::ProtocolInvalidOperationError;
    QTest::newRow("ok") << failed << QByteArray("ok") << "uploaded 0";
    QTest::newRow("capitals") << failed << QByteArray("OK") << "uploaded 302";
    QTest::newRow("more behind it") << failed << QByteArray("ok\n") << "uploaded 302";
    QTest::newRow("nothing left") << failed << QByteArray() << "uploaded 302";
    QTest::newRow("no error") << QNetworkReply::NoError << QByteArray("OK") << "uploaded 0";
}

// Of a reply whose data is there only at the second reading.
void tst_UpgradeClientProxy::uploadAnswerComparedWithOk()
{
    QFETCH(QNetworkReply::NetworkError, error);
    QFETCH(QByteArray, secondReading);
    QFETCH(QString, end);
    FakeReply reply(error, secondReading);
    QVERIFY(callSlot("slotReplyFinished", Q_ARG(QNetworkReply *, &reply)));
    QCOMPARE(m_heard->ends, QStringList(end));
}

void tst_UpgradeClientProxy::uploadReplyIsKept()
{
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), 0);
    const QPointer<QNetworkReply> reply(latestReply(uploadManager()));
    QVERIFY(reply);
    const QPointer<QHttpMultiPart> multiPart(reply->findChild<QHttpMultiPart *>());
    QVERIFY(multiPart);
    QVERIFY(multiPart->findChild<QFile *>());
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_heard->ends, QStringList("uploaded 0"));
    deliverQueued();
    QVERIFY(reply);
    QVERIFY(multiPart);
    QCOMPARE(reply->parent(), uploadManager());
    QCOMPARE(multiPart->parent(), reply);
}

void tst_UpgradeClientProxy::uploadLeavesThePollingOn()
{
    m_proxy->startPostReply();
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), 0);
    QVERIFY(m_pollTimer->isActive());
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_heard->ends, QStringList("uploaded 0"));
    QVERIFY(m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::uploadWithoutAService()
{
    m_server->close();
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), 0);
    QVERIFY(waitForEnds(2));
    QCOMPARE(m_heard->ends, (QStringList { "uploaded 1", "uploaded 1" }));
}

void tst_UpgradeClientProxy::uploadCutInTheBody()
{
    m_server->setReading(false);
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile(QByteArray(16 << 20, 'f')), QByteArray("{}")),
             0);
    QTRY_VERIFY(!m_heard->progress.isEmpty());
    m_server->close();
    QVERIFY(waitForEnds(2));
    // Which error it is depends on what Qt notices first; it is the same twice.
    QVERIFY(m_heard->ends.first() != QLatin1String("uploaded 0"));
    QCOMPARE(m_heard->ends.last(), m_heard->ends.first());
}

void tst_UpgradeClientProxy::uploadIsRepeatedByQt_data()
{
    QTest::addColumn<ScriptedHttpServer::Reaction>("reaction");

    QTest::newRow("closed") << ScriptedHttpServer::closeWithoutAnswer();
    QTest::newRow("reset") << ScriptedHttpServer::reset();
}

// Qt's own doing: integrators see a second request that the proxy never made.
void tst_UpgradeClientProxy::uploadIsRepeatedByQt()
{
    QFETCH(ScriptedHttpServer::Reaction, reaction);
    m_server->queue(UploadPath, reaction);
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), 0);
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_heard->ends, QStringList("uploaded 0"));
    QCOMPARE(m_server->count(UploadPath), 2);
    QCOMPARE(m_server->requests().at(0).body, m_server->requests().at(1).body);
}

void tst_UpgradeClientProxy::uploadProgress_data()
{
    QTest::addColumn<qint64>("sent");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<QStringList>("told");

    QTest::newRow("both") << qint64(29) << qint64(100) << QStringList("29 of 100");
    QTest::newRow("beyond 32 bits")
        << qint64(1) << Q_INT64_C(8589934592) << QStringList("1 of 8589934592");
    QTest::newRow("nothing sent") << qint64(0) << qint64(100) << QStringList();
    QTest::newRow("nothing to send") << qint64(29) << qint64(0) << QStringList();
    QTest::newRow("neither") << qint64(0) << qint64(0) << QStringList();
    QTest::newRow("unknown total") << qint64(29) << qint64(-1) << QStringList("29 of -1");
}

void tst_UpgradeClientProxy::uploadProgress()
{
    QFETCH(qint64, sent);
    QFETCH(qint64, total);
    QVERIFY(callSlot("slotOnUploadProgress", Q_ARG(qint64, sent), Q_ARG(qint64, total)));
    QTEST(m_heard->progress, "told");
}

void tst_UpgradeClientProxy::uploadIsStreamed()
{
    const QString path = storeFile(QByteArray(4 << 20, 'f'));
    m_server->setReading(false);
    QCOMPARE(m_proxy->uploadFiletoDevice(path, QByteArray("{}")), 0);
    QTRY_VERIFY(!m_heard->progress.isEmpty());
    // What is read only now has not been held in memory.
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.seek((4 << 20) - 4));
        QCOMPARE(file.write("late"), qint64(4));
    }
    m_server->setReading(true);
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_heard->ends, QStringList("uploaded 0"));
    QVERIFY(m_server->requests().first().body.contains("ffflate\r\n------weasdashDsdesd"));
    QCOMPARE(m_heard->progress.last(),
             QStringLiteral("%1 of %1").arg(m_server->requests().first().body.size()));
}

void tst_UpgradeClientProxy::secondUpload()
{
    const QString first = storeFile("first");
    QCOMPARE(m_proxy->uploadFiletoDevice(first, QByteArray("{}")), 0);
    QVERIFY(waitForEnds(1));
    const QString second = m_folder.filePath(QStringLiteral("second.bin"));
    QVERIFY(writeFile(second, "second"));
    QCOMPARE(m_proxy->uploadFiletoDevice(second, QByteArray("{}")), 0);
    QVERIFY(waitForEnds(2));
    QCOMPARE(m_heard->ends, (QStringList { "uploaded 0", "uploaded 0" }));
    QVERIFY(m_server->requests().at(1).body.contains("\r\n\r\nsecond\r\n"));
}

void tst_UpgradeClientProxy::secondUploadDuringTheFirst()
{
    m_server->setReading(false);
    const QString first = storeFile(QByteArray(8 << 20, '1'));
    QCOMPARE(m_proxy->uploadFiletoDevice(first, QByteArray("{}")), 0);
    QTRY_VERIFY(!m_heard->progress.isEmpty());
    const QString second = m_folder.filePath(QStringLiteral("second.bin"));
    QVERIFY(writeFile(second, QByteArray(3 << 20, '2')));
    QCOMPARE(m_proxy->uploadFiletoDevice(second, QByteArray("{}")), 0);
    m_server->setReading(true);
    // The first one keeps its file and its connections.
    QVERIFY(waitForEnds(2));
    QCOMPARE(m_heard->ends, (QStringList { "uploaded 0", "uploaded 0" }));
    QVector<int> sizes { m_server->requests().at(0).body.size(),
                         m_server->requests().at(1).body.size() };
    std::sort(sizes.begin(), sizes.end());
    QVERIFY(sizes.at(0) > (3 << 20) && sizes.at(0) < (4 << 20));
    QVERIFY(sizes.at(1) > (8 << 20));
}

void tst_UpgradeClientProxy::secondUploadLeavesTheConnections()
{
    const QString path = storeFile("firmware");
    QCOMPARE(m_proxy->uploadFiletoDevice(path, QByteArray("{}")), 0);
    const QPointer<QNetworkReply> first(latestReply(uploadManager()));
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_proxy->uploadFiletoDevice(path, QByteArray("{}")), 0);
    QVERIFY(latestReply(uploadManager()) != first);
    QVERIFY(waitForEnds(2));
    QVERIFY(first);
    m_heard->ends.clear();
    m_heard->progress.clear();

    Q_EMIT first->uploadProgress(5, 6);
    QCOMPARE(m_heard->progress, QStringList("5 of 6"));
    QVERIFY(
        QMetaObject::invokeMethod(first, "error", Qt::DirectConnection,
                                  Q_ARG(QNetworkReply::NetworkError, QNetworkReply::TimeoutError)));
    QCOMPARE(m_heard->ends, QStringList("uploaded 4"));
}

void tst_UpgradeClientProxy::uploadBegunInsideAFailure_data()
{
    QTest::addColumn<bool>("isListening");
    QTest::addColumn<int>("report"); // of the two of the failed upload
    QTest::addColumn<QStringList>("ends");

    QTest::newRow("refused by the device, first report")
        << true << 1 << QStringList { "uploaded 403", "uploaded 403", "uploaded 0" };
    QTest::newRow("refused by the device, second report")
        << true << 2 << QStringList { "uploaded 403", "uploaded 403", "uploaded 0" };
    QTest::newRow("no service, first report")
        << false << 1 << QStringList { "uploaded 1", "uploaded 1", "uploaded 0" };
    QTest::newRow("no service, second report")
        << false << 2 << QStringList { "uploaded 1", "uploaded 1", "uploaded 0" };
}

// The file of the failed upload is let go of while its reply is still at work.
void tst_UpgradeClientProxy::uploadBegunInsideAFailure()
{
    QFETCH(bool, isListening);
    QFETCH(int, report);
    QFETCH(QStringList, ends);
    const QString second = m_folder.filePath(QStringLiteral("second.bin"));
    QVERIFY(writeFile(second, "second"));
    m_server->queue(UploadPath, ScriptedHttpServer::answer("", "503 Service Unavailable"));
    if (!isListening)
        m_server->close();
    int reports = 0;
    int begun = -1;
    const QObject scope; // of the connection
    connect(m_proxy, &UpgradeClientProxy::signalReplyUploadFinished, &scope, [&](int) {
        if (++reports != report)
            return;
        if (!isListening) {
            m_server = std::make_unique<ScriptedHttpServer>();
            m_server->listen(Address);
            m_server->always(UploadPath, ScriptedHttpServer::answer("received"));
        }
        begun = m_proxy->uploadFiletoDevice(second, QByteArray("{}"));
    });
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile(QByteArray(1 << 20, 'f')), QByteArray("{}")), 0);
    QVERIFY(waitForEnds(ends.size()));
    QCOMPARE(begun, 0);
    deliverQueued();
    QCOMPARE(m_heard->ends, ends);
    QVERIFY(m_server->requests().last().body.contains("\r\n\r\nsecond\r\n"));
}

void tst_UpgradeClientProxy::pollOnTheWire()
{
    m_proxy->slotRunReply();
    QTRY_COMPARE(m_heard->bodies, QVector<QByteArray> { "{}" });
    QCOMPARE(comparable(m_server->requests().first().head),
             QByteArray("GET /getUpgradeRate HTTP/1.1\r\n"
                        "Host: 127.0.81.1:8080\r\n"
                        "Content-Type: application/x-www-form-urlencoded\r\n"
                        "Connection: Keep-Alive\r\n"
                        "Accept-Encoding: gzip, deflate\r\n"
                        "User-Agent: Mozilla/5.0\r\n"));
    QCOMPARE(m_server->requests().first().body, QByteArray());
    QCOMPARE(debugLines(), QStringList("VelmarCmd get upgrade process from 127.0.81.1"));
    QVERIFY(m_pollTimer->isActive());
    m_proxy->stopPostReply();
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::pollsFollowEachOther()
{
    m_pollTimer->setInterval(1);
    m_server->always(PollPath, ScriptedHttpServer::silence());
    m_proxy->startPostReply();
    // Polls go on although none is answered.
    QTRY_VERIFY(m_server->count(PollPath) >= 3);
    m_proxy->stopPostReply();
    m_pollTimer->setInterval(1000);
    m_server->always(PollPath, ScriptedHttpServer::answer("{}"));
    while (m_server->answerSilent(ScriptedHttpServer::answer("{}"))) { }
    const auto sent = debugLines().filter(QStringLiteral("VelmarCmd get")).size();
    QTRY_COMPARE(m_heard->bodies.size(), sent);
}

void tst_UpgradeClientProxy::pollWithoutAddress()
{
    m_proxy->setDeviceIp(QString());
    m_proxy->slotRunReply();
    QCOMPARE(m_heard->ends, QStringList("polled -1"));
    QCOMPARE(warnings(), QStringList("the device ip is null. upgrade failed."));
    QVERIFY(!m_pollTimer->isActive());
    QCOMPARE(m_server->connections(), 0);
}

void tst_UpgradeClientProxy::pollAnswered_data()
{
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("JSON") << QByteArray("{\"result\":1}");
    QTest::newRow("binary") << QByteArray("\0\xff", 2);
    QTest::newRow("a megabyte") << QByteArray(1 << 20, 'x');
}

void tst_UpgradeClientProxy::pollAnswered()
{
    QFETCH(QByteArray, body);
    m_server->queue(PollPath, ScriptedHttpServer::answer(body));
    m_server->queue(PollPath, ScriptedHttpServer::answer(QByteArray()));
    m_proxy->slotRunReply();
    QTRY_COMPARE(m_heard->bodies, QVector<QByteArray> { body });
    m_proxy->slotRunReply();
    QTRY_COMPARE(m_heard->bodies.size(), 2);
    QVERIFY(m_heard->bodies.last().isNull()); // nothing to read is no array at all
    QCOMPARE(m_heard->ends, QStringList());
}

void tst_UpgradeClientProxy::pollFailed_data()
{
    QTest::addColumn<ScriptedHttpServer::Reaction>("reaction");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("warning");

    QTest::newRow("not found") << ScriptedHttpServer::answer("{}", "404 Not Found") << 203
                               << "QNetworkReply::ContentNotFoundError";
    QTest::newRow("server error") << ScriptedHttpServer::answer("{\"result\":2}",
                                                                "500 Internal Server Error")
                                  << 401 << "QNetworkReply::InternalServerError";
    QTest::newRow("truncated") << ScriptedHttpServer::truncatedAnswer("{\"result\":2}") << 2
                               << "QNetworkReply::RemoteHostClosedError";
}

void tst_UpgradeClientProxy::pollFailed()
{
    QFETCH(ScriptedHttpServer::Reaction, reaction);
    QFETCH(int, code);
    m_server->queue(PollPath, reaction);
    m_proxy->slotRunReply();
    QVERIFY(waitForEnds(1));
    QCOMPARE(m_heard->ends, QStringList(QStringLiteral("polled %1").arg(code)));
    QFETCH(QString, warning);
    QCOMPARE(warnings(), QStringList(warning));
    QVERIFY(!m_pollTimer->isActive());
    QVERIFY(m_heard->bodies.isEmpty());
}

// As with an upload.
void tst_UpgradeClientProxy::pollRedirected()
{
    m_server->queue(
        PollPath,
        ScriptedHttpServer::answer("{\"result\":2}", "302 Found", "Location: /getUpgradeRate\r\n"));
    m_proxy->slotRunReply();
    QTRY_COMPARE(m_heard->bodies, QVector<QByteArray> { "{\"result\":2}" });
    QCOMPARE(m_heard->ends, QStringList());
    QCOMPARE(m_server->count(PollPath), 1);
    QVERIFY(m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::pollReplyIsDeletedLater_data()
{
    QTest::addColumn<QNetworkReply::NetworkError>("error");

    QTest::newRow("answered") << QNetworkReply::NoError;
    QTest::newRow("failed") << QNetworkReply::TimeoutError;
}

void tst_UpgradeClientProxy::pollReplyIsDeletedLater()
{
    QFETCH(QNetworkReply::NetworkError, error);
    const QPointer<QNetworkReply> reply(new FakeReply(error));
    QVERIFY(callSlot("slotScheduleReplyFinished", Q_ARG(QNetworkReply *, reply)));
    QVERIFY(reply); // its own signals may be under way
    deliverQueued();
    QVERIFY(!reply);
}

void tst_UpgradeClientProxy::pollIsRepeatedByQt_data()
{
    uploadIsRepeatedByQt_data();
}

void tst_UpgradeClientProxy::pollIsRepeatedByQt()
{
    QFETCH(ScriptedHttpServer::Reaction, reaction);
    m_server->queue(PollPath, reaction);
    m_proxy->slotRunReply();
    QTRY_COMPARE(m_heard->bodies, QVector<QByteArray> { "{}" });
    QCOMPARE(m_server->count(PollPath), 2);
    QCOMPARE(m_heard->ends, QStringList());
}

void tst_UpgradeClientProxy::severalPollsInFlight()
{
    m_server->always(PollPath, ScriptedHttpServer::silence());
    for (int i = 0; i < 3; ++i)
        m_proxy->slotRunReply();
    QTRY_COMPARE(m_server->count(PollPath), 3);
    QVERIFY(m_heard->bodies.isEmpty());
    for (const char *body : { "1", "2", "3" })
        QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer(body)));
    QTRY_COMPARE(m_heard->bodies.size(), 3);
    QCOMPARE(m_server->connections(), 3);
}

void tst_UpgradeClientProxy::pollInFlightOutlivesStop()
{
    m_server->always(PollPath, ScriptedHttpServer::silence());
    m_proxy->slotRunReply();
    QTRY_COMPARE(m_server->count(PollPath), 1);
    m_proxy->stopPostReply();
    QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer("late")));
    QTRY_COMPARE(m_heard->bodies, QVector<QByteArray> { "late" });
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::noCookies_data()
{
    QTest::addColumn<bool>("isUpload");

    QTest::newRow("upload") << true;
    QTest::newRow("poll") << false;
}

void tst_UpgradeClientProxy::noCookies()
{
    QFETCH(bool, isUpload);
    m_server->always(isUpload ? UploadPath : PollPath,
                     ScriptedHttpServer::answer("{}", "200 OK", "Set-Cookie: id=1; Path=/\r\n"));
    for (int i = 1; i <= 2; ++i) {
        if (isUpload)
            QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), 0);
        else
            m_proxy->slotRunReply();
        QVERIFY(waitUntil([&] { return m_heard->ends.size() + m_heard->bodies.size() == i; }));
    }
    QCOMPARE(m_server->requests().size(), 2);
    QVERIFY(!m_server->requests().at(1).head.contains("Cookie"));
}

void tst_UpgradeClientProxy::noReply()
{
    QNetworkReply *const noObject = nullptr;
    const QList<QSslError> noErrors;
    const auto none = Q_ARG(QNetworkReply *, noObject);
    const auto errors = Q_ARG(QList<QSslError>, noErrors);
    QVERIFY(callSlot("slotReplyFinished", none));
    QVERIFY(callSlot("slotReplySslErrors", none, errors));
    QCOMPARE(m_heard->ends, QStringList());
    QVERIFY(m_log->lines().isEmpty());

    m_proxy->startPostReply();
    QVERIFY(callSlot("slotScheduleReplyFinished", none));
    QVERIFY(!m_pollTimer->isActive());
    m_proxy->startPostReply();
    QVERIFY(callSlot("slotScheduleReplySslErrors", none, errors));
    QVERIFY(!m_pollTimer->isActive());
    QCOMPARE(m_heard->ends, (QStringList { "polled -1", "polled -1" }));
    QCOMPARE(warnings(), (QStringList { "process reply is null.", "process reply is null." }));
}

void tst_UpgradeClientProxy::finishedIsQueued()
{
    FakeReply upload(QNetworkReply::TimeoutError);
    Q_EMIT uploadManager()->finished(&upload);
    QCOMPARE(m_heard->ends, QStringList());
    deliverQueued();
    QCOMPARE(m_heard->ends, QStringList("uploaded 4"));

    auto *const poll = new FakeReply(QNetworkReply::TimeoutError); // deleted by the proxy
    Q_EMIT pollManager()->finished(poll);
    QCOMPARE(m_heard->ends, QStringList("uploaded 4"));
    deliverQueued();
    QCOMPARE(m_heard->ends, (QStringList { "uploaded 4", "polled 4" }));
}

void tst_UpgradeClientProxy::sslErrorsOfEitherManager()
{
    FakeReply failed(QNetworkReply::SslHandshakeFailedError);
    const QList<QSslError> errors { QSslError(QSslError::CertificateExpired) };
    Q_EMIT uploadManager()->sslErrors(&failed, errors);
    QCOMPARE(m_heard->ends, QStringList("uploaded 6"));
    Q_EMIT pollManager()->sslErrors(&failed, errors);
    QCOMPARE(m_heard->ends, (QStringList { "uploaded 6", "polled 6" }));
}

void tst_UpgradeClientProxy::sslErrors()
{
    const QList<QSslError> errors { QSslError(QSslError::CertificateExpired),
                                    QSslError(QSslError::HostNameMismatch) };
    FakeReply good(QNetworkReply::NoError);
    FakeReply failed(QNetworkReply::SslHandshakeFailedError);
    const auto call = [&errors](const char *slot, QNetworkReply &reply) {
        return callSlot(slot, Q_ARG(QNetworkReply *, &reply), Q_ARG(QList<QSslError>, errors));
    };
    m_proxy->startPostReply();

    QVERIFY(call("slotReplySslErrors", good));
    QCOMPARE(m_heard->ends, QStringList());
    QCOMPARE(debugLines().size(), 1);
    QVERIFY(debugLines().first().contains(
        QLatin1String("(\"The certificate has expired\", \"The host name did not match any of the "
                      "valid hosts for this certificate\")")));
    QVERIFY(call("slotScheduleReplySslErrors", good));
    QVERIFY(m_pollTimer->isActive());
    QCOMPARE(warnings(), QStringList());

    QVERIFY(call("slotReplySslErrors", failed));
    QVERIFY(m_pollTimer->isActive());
    QVERIFY(call("slotScheduleReplySslErrors", failed));
    QVERIFY(!m_pollTimer->isActive());
    QCOMPARE(m_heard->ends, (QStringList { "uploaded 6", "polled 6" }));
    QCOMPARE(warnings().size(), 1);
    QVERIFY(warnings().first().endsWith("QNetworkReply::SslHandshakeFailedError"));
}

void tst_UpgradeClientProxy::replyErrorSlot()
{
    m_proxy->startPostReply();
    QVERIFY(
        callSlot("slotGetReplyError", Q_ARG(QNetworkReply::NetworkError, QNetworkReply::NoError)));
    QCOMPARE(m_heard->ends, QStringList());
    QVERIFY(callSlot("slotGetReplyError",
                     Q_ARG(QNetworkReply::NetworkError, QNetworkReply::TimeoutError)));
    QCOMPARE(m_heard->ends, QStringList("polled 4"));
    QVERIFY(!m_pollTimer->isActive());
}

void tst_UpgradeClientProxy::tearDown_data()
{
    QTest::addColumn<bool>("isRead");

    QTest::newRow("without an object") << true;
    QTest::newRow("after an upload") << true;
    QTest::newRow("during an upload") << false;
    QTest::newRow("during two uploads") << false;
    QTest::newRow("upload without an address") << true;
    QTest::newRow("while polling") << true;
}

void tst_UpgradeClientProxy::tearDown()
{
    QFETCH(bool, isRead);
    m_server->setReading(isRead);
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(),
                  { "tear-down", QTest::currentDataTag(), storeFile(QByteArray(8 << 20, 'f')) });
    // The service of the child is in this process.
    QVERIFY(waitUntil([&process] { return process.state() == QProcess::NotRunning; }));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
}

// The object ends once in a process, so this comes behind all tests.
void tst_UpgradeClientProxy::cleanupTestCase()
{
    m_proxy->setDeviceIp(QString());
    QTest::ignoreMessage(QtWarningMsg, "the device ip is null. upgrade failed.");
    QCOMPARE(m_proxy->uploadFiletoDevice(storeFile("firmware"), QByteArray("{}")), -1);
    auto *const multiPart =
        m_proxy->findChildren<QHttpMultiPart *>(QString(), Qt::FindDirectChildrenOnly).last();
    auto *const file = multiPart->findChild<QFile *>();
    QVERIFY(file);
    m_proxy->startPostReply();

    QStringList ended;
    const auto note = [&ended](const QObject *object, const char *name) {
        connect(object, &QObject::destroyed, [&ended, name] { ended.append(name); });
    };
    note(uploadManager(), "upload manager");
    note(pollManager(), "poll manager");
    note(m_pollTimer, "timer");
    note(file, "file");
    note(multiPart, "multi-part");
    note(m_proxy, "proxy");
    UpgradeClientProxy::destoryInstance();
    // The proxy says so ahead of its remaining children.
    QCOMPARE(
        ended,
        (QStringList { "upload manager", "poll manager", "timer", "file", "proxy", "multi-part" }));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == QLatin1String("tear-down"))
        return tearDown(QCoreApplication::arguments());
    tst_UpgradeClientProxy test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_upgradeclientproxy.moc"
