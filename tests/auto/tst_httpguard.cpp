#include "run/httpguard.h"

#include "support/logrecorder.h"
#include "support/scriptedhttpserver.h"

#include "upgradeclientproxy.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace Velmar::Host;
using Reaction = ScriptedHttpServer::Reaction;
using std::chrono::milliseconds;

namespace {

// Of this program alone: the port stands in the addresses.
const auto Address = QStringLiteral("127.0.85.1");
const auto EmptyAddress = QStringLiteral("127.0.85.2");
const QByteArray UploadPath("/uploadUpgrade");
const QByteArray PollPath("/getUpgradeRate");
const QByteArray Running("{\"rate\":42,\"result\":1}");
constexpr int BodyLimit = 65536;
#ifdef __SANITIZE_ADDRESS__
constexpr int PeakKibLimit = 400 * 1024; // it keeps what was freed
#else
constexpr int PeakKibLimit = 32 * 1024;
#endif

UpgradeClientProxy *client()
{
    return UpgradeClientProxy::getInstance();
}

/*! Handles events until \a isSo, which it looks at every millisecond; false after 30 s. */
template<class Condition> bool waitUntil(Condition isSo)
{
    const QDeadlineTimer deadline(30000);
    while (!isSo()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(1);
    }
    return true;
}

bool areRepliesGone()
{
    return waitUntil([] { return client()->findChildren<QNetworkReply *>().isEmpty(); });
}

/*! What the library hears, and what the guard says. */
class Listener : public QObject
{
public:
    explicit Listener(HttpGuard *guard)
    {
        connect(client(), &UpgradeClientProxy::signalReplyUploadFinished, this,
                [this](int code) { heard.append(QStringLiteral("upload %1").arg(code)); });
        connect(client(), &UpgradeClientProxy::signalReplyUpdataFinished, this,
                [this](int code) { heard.append(QStringLiteral("polling %1").arg(code)); });
        connect(client(), &UpgradeClientProxy::signalReplyUpdataSchedule, this,
                [this](const QByteArray &body) { heard.append(QString::fromUtf8(body)); });
        if (!guard)
            return;
        connect(guard, &HttpGuard::signalFault, this,
                [this](VerdictCode code, const QString &text) {
                    faults.append(verdictWord(code) + ": " + text);
                });
        connect(guard, &HttpGuard::signalOrdering, this, [this] {
            const auto *file = client()->findChild<QFile *>();
            orders.append(file->size() - file->pos());
        });
    }

    bool waitForFault() const
    {
        return waitUntil([this] { return !faults.isEmpty(); });
    }

    bool waitForHeard(int count = 1) const
    {
        return waitUntil([this, count] { return heard.size() >= count; });
    }

    QStringList heard;
    QStringList faults;
    QVector<qint64> orders; // bytes of the file that nobody had read yet
};

QByteArray paddedTo(int size)
{
    return Running + QByteArray(size - Running.size(), ' ');
}

Reaction chunked(const QByteArray &body)
{
    return { Reaction::Kind::Answer,
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                 + QByteArray::number(body.size(), 16) + "\r\n" + body + "\r\n0\r\n\r\n" };
}

Reaction untilClose(const QByteArray &body)
{
    return { Reaction::Kind::AnswerAndClose,
             "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body };
}

/*! The peak of this process's memory so far, in KiB. */
int peakKib()
{
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toInt();
    }
    return -1;
}

} // namespace

class tst_HttpGuard : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;
    QString m_file;
    std::unique_ptr<ScriptedHttpServer> m_server;
    std::unique_ptr<LogRecorder> m_log;

    void upload() { QCOMPARE(client()->uploadFiletoDevice(m_file, "{}"), 0); }

private Q_SLOTS:
    void initTestCase()
    {
        m_file = m_folder.filePath("image");
        QFile file(m_file);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write("firmware"), qint64(8));
    }
    void init()
    {
        m_log = std::make_unique<LogRecorder>();
        m_server = std::make_unique<ScriptedHttpServer>();
        QVERIFY(m_server->listen(Address));
        client()->setDeviceIp(Address);
    }
    void cleanup()
    {
        m_server.reset();
        QVERIFY(areRepliesGone());
        m_log.reset();
    }

    void uploadTime_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<qint64>("ms");

        QTest::newRow("nothing") << qint64(0) << qint64(120000);
        QTest::newRow("a megabyte") << qint64(1048576) << qint64(128000);
        QTest::newRow("256 MiB") << qint64(268435456) << qint64(2168000);
    }
    void uploadTime()
    {
        QFETCH(qint64, size);
        QTEST(qint64(HttpLimits().upload(size).count()), "ms");
    }

    void goodUpload_data()
    {
        QTest::addColumn<Reaction>("answer");
        QTest::addColumn<QStringList>("log");
        const QString odd("The device answers the file with \"%1\"");

        QTest::newRow("ok") << ScriptedHttpServer::answer("ok") << QStringList();
        QTest::newRow("ok and a line end") << ScriptedHttpServer::answer("ok\r\n") << QStringList();
        QTest::newRow("nothing") << ScriptedHttpServer::answer("") << QStringList(odd.arg(""));
        QTest::newRow("something else")
            << ScriptedHttpServer::answer("\033[2Jdone") << QStringList(odd.arg("\\x1b[2Jdone"));
        QTest::newRow("all that is taken")
            << ScriptedHttpServer::answer("ok" + QByteArray(BodyLimit - 2, ' ')) << QStringList();
    }
    void goodUpload()
    {
        QFETCH(Reaction, answer);
        m_server->queue(UploadPath, answer);
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        QVERIFY(listener.waitForHeard());
        QCOMPARE(listener.heard, QStringList("upload 0"));
        QVERIFY(areRepliesGone());
        QCOMPARE(listener.faults, QStringList());
        QTEST(m_log->texts(QtWarningMsg), "log");
    }

    void goodPoll_data()
    {
        QTest::addColumn<Reaction>("answer");

        QTest::newRow("with its length") << ScriptedHttpServer::answer(Running);
        QTest::newRow("in chunks") << chunked(Running);
        QTest::newRow("until the close") << untilClose(Running);
        QTest::newRow("with an unknown key")
            << ScriptedHttpServer::answer(R"({"rate":42,"result":1,"x":[1]})");
        QTest::newRow("compressed") << ScriptedHttpServer::answer(
            QByteArray::fromHex("1f8b0800000000000203ab562a4a2d2ecd2951b232d4512a4a2c4955b23231aa05"
                                "007787305e16000000"),
            "200 OK", "Content-Encoding: gzip\r\n");
        QTest::newRow("all that is taken") << ScriptedHttpServer::answer(paddedTo(BodyLimit));
        QTest::newRow("all that is taken, inflated") << ScriptedHttpServer::answer(
            qCompress(paddedTo(BodyLimit)).mid(4), "200 OK", "Content-Encoding: deflate\r\n");
        QTest::newRow("another reason") << ScriptedHttpServer::answer(Running, "200 Sure");
        QTest::newRow("old version of the protocol")
            << Reaction { Reaction::Kind::AnswerAndClose, "HTTP/1.0 200 OK\r\n\r\n" + Running };
    }
    void goodPoll()
    {
        QFETCH(Reaction, answer);
        m_server->queue(PollPath, answer);
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        client()->slotRunReply();
        QVERIFY(listener.waitForHeard());
        QCOMPARE(listener.heard, QStringList(QString::fromUtf8(Running)));
        QVERIFY(areRepliesGone());
        QCOMPARE(listener.faults, QStringList());
    }

    void badUpload_data()
    {
        QTest::addColumn<Reaction>("answer");
        QTest::addColumn<QString>("fault");
        const auto status = [](const char *told, const char *headers = "") {
            return ScriptedHttpServer::answer("ok", told, headers);
        };

        QTest::newRow("201") << status("201 Created")
                             << "bad-answer: The device answers the file with 201 Created";
        QTest::newRow("204") << Reaction { Reaction::Kind::Answer,
                                           "HTTP/1.1 204 No Content\r\n\r\n" }
                             << "bad-answer: The device answers the file with 204 No Content";
        QTest::newRow("redirection")
            << status("302 Found", "Location: http://127.0.85.1:8080/getUpgradeRate\r\n")
            << "bad-answer: The device answers the file with 302 Found";
        QTest::newRow("permanent redirection")
            << status("308 Permanent Redirect", "Location: /getUpgradeRate\r\n")
            << "bad-answer: The device answers the file with 308 Permanent Redirect";
        QTest::newRow("password wanted")
            << status("401 Unauthorized", "WWW-Authenticate: Basic realm=\"x\"\r\n")
            << "send-failed: The device refuses the file: 401 Unauthorized";
        QTest::newRow("refused") << status("409 Conflict")
                                 << "send-failed: The device refuses the file: 409 Conflict";
        QTest::newRow("refused, and nothing behind the head")
            << ScriptedHttpServer::endless("HTTP/1.1 500 Internal Server Error\r\n\r\n", "", 1000)
            << "send-failed: The device refuses the file: 500 Internal Server Error";
        QTest::newRow("unknown status, terminal sequence for a reason")
            << status("999 \033[2J") << "send-failed: The device refuses the file: 999 \\x1b[2J";
        QTest::newRow("no text") << ScriptedHttpServer::answer(
            "ok\xFF") << "bad-answer: The device answers the file with bytes that are no text";
        QTest::newRow("too long") << ScriptedHttpServer::answer("ok"
                                                                + QByteArray(BodyLimit - 1, ' '))
                                  << "bad-answer: The device answers with more than 65536 bytes";
        QTest::newRow("never answered")
            << ScriptedHttpServer::silence()
            << "device-lost: The device has not said within 0.06 s whether it has the file";
        QTest::newRow("closed without an answer")
            << ScriptedHttpServer::closeWithoutAnswer()
            << "device-lost: The connection has ended before the device said whether it has the "
               "file: Connection closed";
        QTest::newRow("cut off") << ScriptedHttpServer::truncatedAnswer("okay")
                                 << "device-lost: The connection has ended before the device said "
                                    "whether it has the file: Connection closed";
    }
    void badUpload()
    {
        QFETCH(Reaction, answer);
        QFETCH(QString, fault);
        m_server->always(UploadPath, answer);
        HttpLimits limits;
        if (fault.contains("within"))
            limits.uploadAtLeast = milliseconds(60);
        HttpGuard guard(ProgressForm::Newer, 8, limits);
        Listener listener(&guard);
        upload();
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults, QStringList(fault));
        QVERIFY(areRepliesGone());
        // What does not end by itself is cut; a connection whose answer was whole stays for another.
        if (answer.kind == Reaction::Kind::Endless || answer.kind == Reaction::Kind::Silence)
            QVERIFY(waitUntil([this] { return m_server->openConnections() == 0; }));
        QCOMPARE(listener.faults, QStringList(fault));
        QCOMPARE(listener.heard, QStringList());
        QCOMPARE(m_server->count(PollPath), 0);
    }

    // Qt sends a request once more if the connection ends before an answer. A device that has the first
    // one refuses the second, while it installs.
    void refusedWhenSentAgain()
    {
        m_server->queue(UploadPath, ScriptedHttpServer::closeWithoutAnswer());
        m_server->always(UploadPath, ScriptedHttpServer::answer("", "409 Conflict"));
        // A connection to another test's server would be tried, and count as the first time.
        const auto managers = client()->findChildren<QNetworkAccessManager *>();
        for (QNetworkAccessManager *manager : managers)
            manager->clearConnectionCache();
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        QVERIFY(listener.waitForFault());
        QCOMPARE(
            listener.faults,
            QStringList("device-lost: The device refuses the file, which was sent to it twice: "
                        "409 Conflict"));
        QCOMPARE(m_server->count(UploadPath), 2);
        QCOMPARE(listener.heard, QStringList());
    }

    // An upload is an order, and may be one before Qt tells that it has gone.
    void orderIsToldBeforeItLeaves_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<qint64>("leastLeft");

        // Of a large one, a piece or two: until then the device certainly installs nothing.
        QTest::newRow("small") << 8 << qint64(8);
        QTest::newRow("large") << 4 * 1024 * 1024 << qint64(16384);
    }
    void orderIsToldBeforeItLeaves()
    {
        QFETCH(int, size);
        QFETCH(qint64, leastLeft);
        const QString path = m_folder.filePath("upload");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(size));
        m_server->always(UploadPath, ScriptedHttpServer::answer("ok"));
        HttpGuard guard(ProgressForm::Newer, size);
        Listener listener(&guard);
        QCOMPARE(client()->uploadFiletoDevice(path, "{}"), 0);
        QVERIFY(!guard.isOrdered());
        QVERIFY(listener.waitForHeard());
        QCOMPARE(listener.orders.size(), 1);
        QVERIFY2(listener.orders.constFirst() >= leastLeft && listener.orders.constFirst() <= 65536,
                 qPrintable(QString::number(listener.orders.constFirst())));
        QVERIFY(guard.isOrdered());
        QCOMPARE(listener.faults, QStringList());
    }

    void noService()
    {
        client()->setDeviceIp(EmptyAddress);
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults,
                 QStringList("unreachable: The device's HTTP service cannot be reached: "
                             "Connection refused"));
        QVERIFY(!guard.isOrdered());
        QCOMPARE(listener.heard, QStringList());
    }

    void fileNotTaken()
    {
        const QString large = m_folder.filePath("large");
        QFile file(large);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(64 << 20));
        m_server->setReading(false);
        HttpLimits limits;
        limits.uploadAtLeast = milliseconds(150);
        limits.uploadBytesPerSecond = 1LL << 40;
        HttpGuard guard(ProgressForm::Newer, 64 << 20, limits);
        Listener listener(&guard);
        QCOMPARE(client()->uploadFiletoDevice(large, "{}"), 0);
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults,
                 QStringList("send-failed: The file could not be sent within 0.15 s"));
        QVERIFY(!guard.isOrdered());
        QCOMPARE(listener.orders, QVector<qint64>());
        QCOMPARE(listener.heard, QStringList());
        QVERIFY(areRepliesGone());
    }

    void badPoll_data()
    {
        QTest::addColumn<Reaction>("answer");
        QTest::addColumn<QString>("fault");
        const QByteArray chunkedHead("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        const QByteArray closeHead("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
        const QByteArray deflate("Content-Encoding: deflate\r\n");
        const QString overdue("device-lost: The device has not told its progress within 0.06 s");
        const QString tooLong("bad-answer: The device answers with more than 65536 bytes");
        const QString wrong("bad-answer: The device tells its progress wrongly: it ");
        const QString status("bad-answer: The device answers the question for its progress with ");
        const QString lost(
            "device-lost: The device cannot be asked for its progress any more: Connection closed");

        QTest::newRow("other success") << ScriptedHttpServer::answer(Running, "206 Partial Content")
                                       << status + "206 Partial Content";
        QTest::newRow("redirection") << ScriptedHttpServer::answer(
            R"({"result":2})", "301 Moved Permanently", "Location: /uploadUpgrade\r\n")
                                     << status + "301 Moved Permanently";
        QTest::newRow("not found")
            << ScriptedHttpServer::answer(Running, "404 Not Found") << status + "404 Not Found";
        QTest::newRow("password wanted, endlessly")
            << ScriptedHttpServer::endless("HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic "
                                           "realm=\"x\"\r\nContent-Length: 9999999999\r\n\r\n",
                                           "x", 5)
            << overdue;
        QTest::newRow("nothing") << ScriptedHttpServer::answer("") << wrong + "is empty";
        QTest::newRow("result twice") << ScriptedHttpServer::answer(R"({"result":1,"result":2})")
                                      << wrong + "has the key \"result\" twice";
        QTest::newRow("would keep the library for ever")
            << ScriptedHttpServer::answer(R"({"result":1,"x":[1)")
            << wrong + "is no JSON: invalid termination by number at byte 18";
        QTest::newRow("cut off") << ScriptedHttpServer::truncatedAnswer(Running) << lost;
        QTest::newRow("cut off, closed as told")
            << Reaction { Reaction::Kind::AnswerAndClose,
                          "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: "
                              + QByteArray::number(Running.size()) + "\r\n\r\n" + Running.left(9) }
            << lost;
        QTest::newRow("cut off between two chunks")
            << Reaction { Reaction::Kind::AnswerAndClose,
                          chunkedHead + "9\r\n" + Running.left(9) + "\r\n" }
            << lost;
        QTest::newRow("compression that is none")
            << ScriptedHttpServer::answer("no deflate", "200 OK", deflate)
            << "bad-answer: The device answers with what is no HTTP: Data corrupted";
        QTest::newRow("no HTTP") << Reaction { Reaction::Kind::AnswerAndClose,
                                               "SSH-2.0-OpenSSH_9.2\r\n" }
                                 << lost;
        QTest::newRow("closed") << ScriptedHttpServer::closeWithoutAnswer() << lost;
        QTest::newRow("never answered") << ScriptedHttpServer::silence() << overdue;
        QTest::newRow("head without an end")
            << ScriptedHttpServer::endless("HTTP/1.1 200 OK\r\n", "X: y\r\n", 5) << overdue;
        QTest::newRow("go on without an end")
            << ScriptedHttpServer::endless("", "HTTP/1.1 100 Continue\r\n\r\n", 5) << overdue;
        QTest::newRow("trickles with its length") << ScriptedHttpServer::endless(
            "HTTP/1.1 200 OK\r\nContent-Length: 60000\r\n\r\n{", " ", 5)
                                                  << overdue;
        QTest::newRow("trickles in chunks")
            << ScriptedHttpServer::endless(chunkedHead, "1\r\n \r\n", 5) << overdue;
        QTest::newRow("trickles until the close")
            << ScriptedHttpServer::endless(closeHead, " ", 5) << overdue;
        QTest::newRow("one byte too long")
            << ScriptedHttpServer::answer(paddedTo(BodyLimit + 1)) << tooLong;
        QTest::newRow("endless with its length") << ScriptedHttpServer::endless(
            "HTTP/1.1 200 OK\r\nContent-Length: 9999999999\r\n\r\n", QByteArray(100000, ' '))
                                                 << tooLong;
        QTest::newRow("endless in chunks") << ScriptedHttpServer::endless(
            chunkedHead, "10000\r\n" + QByteArray(65536, ' ') + "\r\n")
                                           << tooLong;
        QTest::newRow("endless until the close")
            << ScriptedHttpServer::endless(closeHead, QByteArray(100000, ' ')) << tooLong;
        QTest::newRow("one byte too long, inflated") << ScriptedHttpServer::answer(
            qCompress(paddedTo(BodyLimit + 1)).mid(4), "200 OK", deflate)
                                                     << tooLong;
    }
    void badPoll()
    {
        QFETCH(Reaction, answer);
        QFETCH(QString, fault);
        m_server->always(PollPath, answer);
        HttpLimits limits;
        if (fault.contains("within"))
            limits.poll = milliseconds(60);
        HttpGuard guard(ProgressForm::Newer, 8, limits);
        Listener listener(&guard);
        client()->slotRunReply();
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults, QStringList(fault));
        QVERIFY(areRepliesGone());
        // What does not end by itself is cut; a connection whose answer was whole stays for another.
        if (answer.kind == Reaction::Kind::Endless || answer.kind == Reaction::Kind::Silence)
            QVERIFY(waitUntil([this] { return m_server->openConnections() == 0; }));
        QCOMPARE(listener.faults, QStringList(fault));
        QCOMPARE(listener.heard, QStringList());
        QCOMPARE(m_server->count(UploadPath), 0);
    }

    // Qt inflates what it has read at a time, here 64 KiB to 15 MiB, before anybody can look at it.
    void inflatedAnswersTakeLittleMemory()
    {
        const QByteArray bomb = qCompress(QByteArray(64 << 20, ' '), 1).mid(4);
        QFile peaks("/proc/self/clear_refs");
        QVERIFY(peaks.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        m_server->always(
            PollPath, ScriptedHttpServer::answer(bomb, "200 OK", "Content-Encoding: deflate\r\n"));
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        QCOMPARE(peaks.write("5\n"), qint64(2)); // sets the peak to what is in use now
        const int before = peakKib();
        client()->slotRunReply();
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults,
                 QStringList("bad-answer: The device answers with more than 65536 bytes"));
        QVERIFY(areRepliesGone());
        const int grownKib = peakKib() - before;
        QCOMPARE(listener.heard, QStringList());
        QVERIFY2(grownKib < PeakKibLimit, qPrintable(QString::number(grownKib)));
    }

    void nothingBehindAFault()
    {
        m_server->always(UploadPath, ScriptedHttpServer::silence());
        m_server->always(PollPath, ScriptedHttpServer::silence());
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        client()->slotRunReply();
        client()->slotRunReply();
        QVERIFY(waitUntil([this] { return m_server->requests().size() == 3; }));
        QVERIFY(
            m_server->answerSilent(ScriptedHttpServer::answer("", "500 Internal Server Error")));
        QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer(Running)));
        QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer("", "404 Not Found")));
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults.size(), 1);
        client()->slotRunReply();
        QVERIFY(waitUntil([this] { return m_server->count(PollPath) == 3; }));
        QVERIFY(m_server->answerSilent(ScriptedHttpServer::answer(Running)));
        QVERIFY(waitUntil(
            [] { return client()->findChildren<QNetworkReply *>().first()->isFinished(); }));
        QCOMPARE(listener.faults.size(), 1);
        QVERIFY(!listener.heard.contains("upload 0"));
    }

    // The client alone would ask again after 1000 ms.
    void onePollAtATime()
    {
        m_server->always(PollPath, ScriptedHttpServer::silence());
        HttpLimits limits;
        limits.poll = milliseconds(1100);
        HttpGuard guard(ProgressForm::Newer, 8, limits);
        Listener listener(&guard);
        client()->slotRunReply();
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults,
                 QStringList("device-lost: The device has not told its progress within 1.1 s"));
        QCOMPARE(m_server->count(PollPath), 1);
    }

    void progressThatNobodyReads_data()
    {
        QTest::addColumn<bool>("isRead");
        QTest::addColumn<QStringList>("faults");

        QTest::newRow("read") << true << QStringList();
        QTest::newRow("not read") << false
                                  << QStringList(
                                         "bad-answer: The device tells its progress wrongly: "
                                         "it is in the form of the other generation");
    }
    void progressThatNobodyReads()
    {
        QFETCH(bool, isRead);
        m_server->always(PollPath, ScriptedHttpServer::answer("[]"));
        HttpGuard guard(ProgressForm::Either, 8);
        Listener listener(&guard);
        connect(client(), &UpgradeClientProxy::signalReplyUpdataSchedule, &listener, [&] {
            if (isRead)
                guard.noteProgressRead();
        });
        client()->slotRunReply();
        QVERIFY(listener.waitForHeard());
        QCOMPARE(listener.heard, QStringList("[]"));
        QTEST(listener.faults, "faults");
    }

    void stopIsSilent()
    {
        m_server->always(UploadPath, ScriptedHttpServer::silence());
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        QVERIFY(waitUntil([this] { return m_server->count(UploadPath) == 1; }));
        guard.stop();
        QVERIFY(waitUntil([this] { return m_server->openConnections() == 0; }));
        QVERIFY(areRepliesGone());
        QCOMPARE(listener.faults, QStringList());
        QCOMPARE(listener.heard, QStringList());
    }

    void canGoFromItsOwnSignals_data()
    {
        QTest::addColumn<Reaction>("answer");

        QTest::newRow("fault") << ScriptedHttpServer::answer("");
        QTest::newRow("endless") << ScriptedHttpServer::endless("HTTP/1.1 200 OK\r\n\r\n",
                                                                QByteArray(100000, ' '));
        QTest::newRow("progress") << ScriptedHttpServer::answer(Running);
    }
    void canGoFromItsOwnSignals()
    {
        QFETCH(Reaction, answer);
        m_server->always(PollPath, answer);
        auto guard = std::make_unique<HttpGuard>(ProgressForm::Either, 8);
        QObject context;
        connect(guard.get(), &HttpGuard::signalFault, &context, [&] { guard.reset(); });
        connect(client(), &UpgradeClientProxy::signalReplyUpdataSchedule, &context,
                [&] { guard.reset(); });
        client()->slotRunReply();
        QVERIFY(waitUntil([&guard] { return !guard; }));
        QVERIFY(areRepliesGone());
    }

    void neitherProxyNorCookies()
    {
        m_server->always(UploadPath,
                         ScriptedHttpServer::answer("ok", "200 OK", "Set-Cookie: a=b; Path=/\r\n"));
        m_server->always(PollPath, ScriptedHttpServer::answer(Running));
        QNetworkProxy::setApplicationProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, EmptyAddress, 8080));
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        QVERIFY(listener.waitForHeard(1));
        client()->slotRunReply();
        QVERIFY(listener.waitForHeard(2));
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
        QCOMPARE(listener.faults, QStringList());
        QVERIFY(!m_server->requests().last().head.toLower().contains("\ncookie:"));
        QVERIFY(m_server->requests().last().head.startsWith("GET /getUpgradeRate "));
    }

    void leavesTheLibraryAsItWas()
    {
        m_server->always(UploadPath, ScriptedHttpServer::answer("", "201 Created"));
        m_server->always(PollPath, ScriptedHttpServer::answer("{\"x\":[", "302 Found"));
        {
            HttpGuard guard(ProgressForm::Newer, 8);
        }
        {
            Listener listener(nullptr);
            upload();
            QVERIFY(listener.waitForHeard());
            QCOMPARE(listener.heard, QStringList("upload 0"));
            client()->slotRunReply();
            QVERIFY(listener.waitForHeard(2));
            QCOMPARE(listener.heard, (QStringList { "upload 0", "{\"x\":[" }));
            client()->stopPostReply();
        }
        HttpGuard guard(ProgressForm::Newer, 8);
        Listener listener(&guard);
        upload();
        QVERIFY(listener.waitForFault());
        QCOMPARE(listener.faults.size(), 1);
        QCOMPARE(listener.heard, QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_HttpGuard)

#include "tst_httpguard.moc"
