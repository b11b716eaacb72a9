#include "labels.h"
#include "support/logrecorder.h"
#include "support/waituntil.h"

#include <velmarssproxy/linkmessages.h>
#include <velmarssproxy/socketlink.h>

#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <vector>

using namespace Velmar::SSProxy;
using Velmar::BizModel::LinkAnswer;
using Velmar::BizModel::LinkRequest;
using Outcome = Velmar::BizModel::LinkAnswer::Outcome;

namespace {

constexpr int Patience = 5000;

// The other end of a link, on the test's thread: records each request and does with it what the
// test says.
class Peer : public QObject
{
    Q_OBJECT

public:
    Peer()
    {
        connect(&m_server, &QTcpServer::newConnection, this, &Peer::handleConnection);
        if (!m_server.listen(QHostAddress::LocalHost))
            qFatal("No port to listen on");
    }

    quint16 port() const { return m_server.serverPort(); }
    QTcpSocket *socket() const { return m_sockets.last(); } // of the latest connection
    int connectionCount() const { return m_sockets.size(); }

    int count(const QString &operation) const
    {
        int count = 0;
        for (const RequestMessage &request : requests)
            count += int(request.operation == operation);
        return count;
    }

    void answer(quint32 label, const QCborMap &values = {})
    {
        socket()->write(encodeFrame(AnswerMessage { label, 0, values, {} }.toCbor()));
    }

    QVector<RequestMessage> requests;
    std::function<void(const RequestMessage &)> onRequest;

private:
    void handleConnection()
    {
        QTcpSocket *const socket = m_server.nextPendingConnection();
        auto reader = std::make_shared<FrameReader>();
        m_sockets.append(socket);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, reader] {
            reader->append(socket->readAll());
            QCborMap message;
            while (reader->next(message) == FrameReader::Status::Message) {
                RequestMessage request;
                QString reason;
                if (!request.fromCbor(message, reason))
                    qFatal("%s", qPrintable(reason));
                requests.append(request);
                if (onRequest)
                    onRequest(request);
            }
        });
    }

    QTcpServer m_server;
    QVector<QTcpSocket *> m_sockets;
};

// A port on which nobody ever reads. With a negative backlog, nobody listens either, but no other
// process can get it.
class DeafPort
{
public:
    explicit DeafPort(int backlog)
        : m_listener(::socket(AF_INET, SOCK_STREAM, 0))
    {
        const int smallWindow = 4096;
        ::setsockopt(m_listener, SOL_SOCKET, SO_RCVBUF, &smallWindow, sizeof smallWindow);
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto *const address = reinterpret_cast<sockaddr *>(&m_address);
        socklen_t size = sizeof m_address;
        if (::bind(m_listener, address, size) != 0
            || (backlog >= 0 && ::listen(m_listener, backlog) != 0)
            || ::getsockname(m_listener, address, &size) != 0)
            qFatal("No port to listen on");
    }

    ~DeafPort()
    {
        for (int socket : m_fillers)
            ::close(socket);
        ::close(m_listener);
    }

    quint16 port() const { return ntohs(m_address.sin_port); }

    // Uses up all places for connections that nobody takes up; further ones stay without an answer.
    void fill()
    {
        for (int i = 0; i < 4; ++i) {
            m_fillers.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
            (void)::connect(m_fillers.back(), reinterpret_cast<const sockaddr *>(&m_address),
                            sizeof m_address);
        }
    }

    // Takes the first connection, reads that many requests from it and ends it with all the rest.
    // Answers the argument "number" of the requests.
    QVector<int> readAndCut(int count)
    {
        const int connection = ::accept(m_listener, nullptr, nullptr);
        QVector<int> numbers;
        FrameReader reader;
        while (numbers.size() < count) {
            QByteArray bytes(65536, '\0');
            const ssize_t size = ::read(connection, bytes.data(), std::size_t(bytes.size()));
            if (size <= 0)
                qFatal("The connection has ended");
            reader.append(bytes.left(int(size)));
            QCborMap message;
            while (reader.next(message) == FrameReader::Status::Message)
                numbers.append(int(message.value("args").toMap().value("number").toInteger()));
        }
        const linger atOnce { 1, 0 };
        ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        ::close(connection);
        return numbers;
    }

private:
    int m_listener;
    sockaddr_in m_address {};
    std::vector<int> m_fillers;
};

// A call that blocks, on a thread of its own.
class Call
{
public:
    Call(SocketLink &link, const LinkRequest &request)
        : m_answer(std::async(std::launch::async, [&link, request] { return link.send(request); }))
    {
    }

    bool hasEnded() const
    {
        return m_answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    LinkAnswer answer() { return m_answer.get(); }

private:
    std::future<LinkAnswer> m_answer;
};

LinkRequest request(const QString &operation, int timeout = Patience)
{
    return { operation, {}, timeout };
}

// Sends a request that nobody answers until one has left in its short time.
LinkAnswer sendInVain(SocketLink &link, const QString &operation)
{
    LinkAnswer answer;
    do {
        Call call(link, request(operation, 20));
        if (!waitUntil([&] { return call.hasEnded(); }))
            qFatal("A request has no end");
        answer = call.answer();
    } while (answer.outcome == Outcome::NotDelivered && link.isOpen());
    return answer;
}

} // namespace

class tst_SocketLink : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void labelsCountUpAndWrap();

    void neverOpened();
    void opensAndCloses();
    void opensFromSeveralThreads();
    void nobodyListens();
    void nobodyTakesTheConnection();
    void usesNoProxy();

    void requestAndAnswer();
    void refusal();
    void answersFindTheirCallers();
    void answersInPieces_data();
    void answersInPieces();
    void answerThatNobodyWaitsForIsDropped_data();
    void answerThatNobodyWaitsForIsDropped();
    void requestTooLong();
    void manyCallers();

    void wrongBytesCloseTheLink_data();
    void wrongBytesCloseTheLink();
    void lostConnectionWakesEveryCaller();
    void answerThatCameBeforeTheEndCounts();
    void lostConnectionIsNoticedWithoutCallers();
    void closeWakesEveryCaller();
    void opensAgain();
    void requestThatNeverLeftIsNotDelivered();
    void requestThatCouldNotLeaveInTimeIsNotDelivered();

    void pingsWhenIdle();
    void silenceBehindAPingEndsTheConnection();
    void silentTimeoutIsFollowedByAPing();
    void defaultTimeout();
    void answeredTimeoutIsNotFollowedByAPing();
    void busyDeviceMayBeSilent();
    void pause();
    void resumeEndsPause();
    void pauseEndsWithTheConnection();
    void pauseOfAClosedLinkIsNothing();
};

void tst_SocketLink::labelsCountUpAndWrap()
{
    Internal::Labels labels;
    const auto isFree = [](quint32) {
        return false;
    };
    QCOMPARE(labels.next(isFree), 1u);
    QCOMPARE(labels.next(isFree), 2u);
    QCOMPARE(labels.next([](quint32 label) { return label < 5; }), 5u);

    Internal::Labels last(4294967294);
    QCOMPARE(last.next(isFree), 4294967295u);
    QCOMPARE(last.next(isFree), 1u);
    Internal::Labels busy(4294967294);
    QCOMPARE(busy.next([](quint32 label) { return label == 4294967295 || label == 1; }), 2u);
}

void tst_SocketLink::neverOpened()
{
    SocketLink link("127.0.0.1", 9);
    QVERIFY(!link.isOpen());
    link.close();
    const LinkAnswer answer = link.send(request("version.read"));
    QVERIFY(answer.outcome == Outcome::NotDelivered);
    QCOMPARE(answer.errorText, QString("the link is not open"));
}

void tst_SocketLink::opensAndCloses()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY2(link.open(Patience, errorText), qPrintable(errorText));
    QVERIFY(link.isOpen());
    QVERIFY(link.open(Patience, errorText));
    QVERIFY(waitUntil([&] { return peer.connectionCount() == 1; }));
    QCOMPARE(link.host(), QString("127.0.0.1"));
    QCOMPARE(link.port(), peer.port());

    link.close();
    QVERIFY(!link.isOpen());
    QVERIFY(waitUntil([&] { return peer.socket()->state() == QAbstractSocket::UnconnectedState; }));
    link.close();
}

void tst_SocketLink::opensFromSeveralThreads()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    std::vector<std::future<bool>> opens;
    opens.reserve(4);
    for (int i = 0; i < 4; ++i) {
        opens.push_back(std::async(std::launch::async, [&link] {
            QString errorText;
            return link.open(Patience, errorText);
        }));
    }
    for (std::future<bool> &open : opens)
        QVERIFY(open.get());
    QVERIFY(waitUntil([&] { return peer.connectionCount() == 1; }));
}

void tst_SocketLink::nobodyListens()
{
    const DeafPort nobody(-1);
    SocketLink link("127.0.0.1", nobody.port());
    QString errorText;
    QVERIFY(!link.open(Patience, errorText));
    QCOMPARE(errorText,
             QString("no connection to 127.0.0.1 port %1: Connection refused").arg(nobody.port()));
    QVERIFY(!link.isOpen());
}

void tst_SocketLink::nobodyTakesTheConnection()
{
    DeafPort deaf(0);
    deaf.fill();
    SocketLink link("127.0.0.1", deaf.port());
    QString errorText;
    QVERIFY(!link.open(50, errorText));
    QCOMPARE(
        errorText,
        QString("no connection to 127.0.0.1 port %1: no answer within 50 ms").arg(deaf.port()));
    QVERIFY(!link.isOpen());
}

void tst_SocketLink::usesNoProxy()
{
    Peer peer;
    QNetworkProxy::setApplicationProxy(QNetworkProxy(QNetworkProxy::HttpProxy, "127.0.0.1", 9));
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    const bool isOpen = link.open(Patience, errorText);
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    QVERIFY2(isOpen, qPrintable(errorText));
}

void tst_SocketLink::requestAndAnswer()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label, { { "version", "1.2.3.4" } });
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    for (quint32 label = 1; label <= 2; ++label) {
        Call call(link, { "version.read", { { "part", 3 } }, Patience });
        QVERIFY(waitUntil([&] { return call.hasEnded(); }));
        const LinkAnswer answer = call.answer();
        QVERIFY(answer.isAccepted());
        QCOMPARE(answer.label, label);
        QCOMPARE(answer.values, (QCborMap { { "version", "1.2.3.4" } }));
        QCOMPARE(answer.errorText, QString());
        QCOMPARE(peer.requests.last().label, label);
        QCOMPARE(peer.requests.last().operation, QString("version.read"));
        QCOMPARE(peer.requests.last().arguments, (QCborMap { { "part", 3 } }));
    }
}

void tst_SocketLink::refusal()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        const AnswerMessage refused { request.label, 4, {}, "installing" };
        peer.socket()->write(encodeFrame(refused.toCbor()));
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    Call call(link, request("file.open"));
    QVERIFY(waitUntil([&] { return call.hasEnded(); }));
    const LinkAnswer answer = call.answer();
    QVERIFY(answer.outcome == Outcome::Answered);
    QVERIFY(!answer.isAccepted());
    QCOMPARE(answer.ack, quint16(4));
    QCOMPARE(answer.errorText, QString("installing"));
}

void tst_SocketLink::answersFindTheirCallers()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    std::map<QString, std::unique_ptr<Call>> calls;
    for (const char *operation : { "first", "second", "third" })
        calls[operation] = std::make_unique<Call>(link, request(operation));
    QVERIFY(waitUntil([&] { return peer.requests.size() == 3; }));
    for (int i = 2; i >= 0; --i)
        peer.answer(peer.requests.at(i).label, { { "to", peer.requests.at(i).operation } });
    for (auto &call : calls) {
        QVERIFY(waitUntil([&] { return call.second->hasEnded(); }));
        const LinkAnswer answer = call.second->answer();
        QCOMPARE(answer.values.value("to").toString(), call.first);
    }
}

void tst_SocketLink::answersInPieces_data()
{
    QTest::addColumn<int>("pieceSize");

    QTest::newRow("byte for byte") << 1;
    QTest::newRow("half lengths and half bodies") << 7;
    QTest::newRow("all at once") << 4096;
}

void tst_SocketLink::answersInPieces()
{
    QFETCH(int, pieceSize);
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    Call first(link, request("first"));
    Call second(link, request("second"));
    QVERIFY(waitUntil([&] { return peer.requests.size() == 2; }));
    QByteArray bytes;
    for (const RequestMessage &asked : qAsConst(peer.requests)) {
        const QCborMap values { { "to", asked.operation } };
        bytes += encodeFrame(AnswerMessage { asked.label, 0, values, {} }.toCbor());
    }
    for (int offset = 0; offset < bytes.size(); offset += pieceSize) {
        peer.socket()->write(bytes.mid(offset, pieceSize));
        peer.socket()->flush();
    }
    QVERIFY(waitUntil([&] { return first.hasEnded() && second.hasEnded(); }));
    QCOMPARE(first.answer().values.value("to").toString(), QString("first"));
    QCOMPARE(second.answer().values.value("to").toString(), QString("second"));
}

void tst_SocketLink::answerThatNobodyWaitsForIsDropped_data()
{
    QTest::addColumn<bool>("firstIsAnswered"); // in time
    QTest::addColumn<int>("labelOffset"); // from the label of the first request

    QTest::newRow("late") << false << 0;
    QTest::newRow("doubled") << true << 0;
    QTest::newRow("never asked for") << true << 1000;
}

void tst_SocketLink::answerThatNobodyWaitsForIsDropped()
{
    QFETCH(bool, firstIsAnswered);
    QFETCH(int, labelOffset);
    Peer peer;
    peer.onRequest = [&](const RequestMessage &request) {
        if (firstIsAnswered && request.operation == "first")
            peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    LinkAnswer first;
    if (firstIsAnswered) {
        Call call(link, request("first"));
        QVERIFY(waitUntil([&] { return call.hasEnded(); }));
        first = call.answer();
        QVERIFY(first.isAccepted());
    } else {
        first = sendInVain(link, "first");
        QVERIFY(first.outcome == Outcome::TimedOut);
    }

    Call second(link, request("second"));
    QVERIFY(waitUntil([&] { return peer.count("second") == 1; }));
    peer.answer(first.label + quint32(labelOffset), { { "to", "nobody" } });
    for (const RequestMessage &asked : qAsConst(peer.requests)) {
        if (asked.operation == "second")
            peer.answer(asked.label, { { "to", "second" } });
    }
    QVERIFY(waitUntil([&] { return second.hasEnded(); }));
    QCOMPARE(second.answer().values.value("to").toString(), QString("second"));
    QVERIFY(link.isOpen());
}

void tst_SocketLink::requestTooLong()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    const LinkAnswer answer =
        link.send({ "file.data", { { "bytes", QByteArray(1048576, 'x') } }, Patience });
    QVERIFY(answer.outcome == Outcome::Unsendable);
    QCOMPARE(answer.errorText, QString("the request is longer than a frame may be"));

    Call call(link, request("next"));
    QVERIFY(waitUntil([&] { return call.hasEnded(); }));
    QVERIFY(call.answer().isAccepted());
    QCOMPARE(peer.requests.size(), 1);
}

void tst_SocketLink::manyCallers()
{
    constexpr int Callers = 8;
    constexpr int RequestsEach = 100;
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label, request.arguments);
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    std::vector<std::future<int>> callers;
    callers.reserve(Callers);
    for (int caller = 0; caller < Callers; ++caller) {
        callers.push_back(std::async(std::launch::async, [&link, caller] {
            int right = 0;
            for (int i = 0; i < RequestsEach; ++i) {
                const QCborMap arguments { { "caller", caller }, { "number", i } };
                const LinkAnswer answer = link.send({ "echo", arguments, Patience });
                right += int(answer.isAccepted() && answer.values == arguments);
            }
            return right;
        }));
    }
    for (std::future<int> &caller : callers) {
        QVERIFY(waitUntil(
            [&] { return caller.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
        QCOMPARE(caller.get(), 100);
    }
    std::set<quint32> labels;
    for (const RequestMessage &asked : qAsConst(peer.requests))
        labels.insert(asked.label);
    QCOMPARE(labels.size(), std::size_t(800));
}

void tst_SocketLink::wrongBytesCloseTheLink_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");

    QTest::newRow("garbage") << QByteArray("HTTP/1.1 200 OK\r\n") << "a frame of 1213486160 bytes";
    QTest::newRow("frame too long")
        << QByteArray::fromHex("00100001") << "a frame of 1048577 bytes";
    QTest::newRow("empty frame") << QByteArray::fromHex("00000000") << "a frame of 0 bytes";
    QTest::newRow("not CBOR") << QByteArray::fromHex("00000002a161") << "the message is cut off";
    QTest::newRow("no map") << QByteArray::fromHex("0000000180") << "the message is no map";
    QTest::newRow("no answer") << QByteArray::fromHex("00000001a0") << "the message is no answer";
}

void tst_SocketLink::wrongBytesCloseTheLink()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    Peer peer;
    peer.onRequest = [&](const RequestMessage &) {
        peer.socket()->write(bytes);
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    LogRecorder log;
    Call call(link, request("version.read"));
    QVERIFY(waitUntil([&] { return call.hasEnded(); }));
    const LinkAnswer answer = call.answer();
    QVERIFY(answer.outcome == Outcome::Lost);
    QCOMPARE(answer.errorText, reason);
    QVERIFY(!link.isOpen());
    QVERIFY(waitUntil([&] { return peer.socket()->state() == QAbstractSocket::UnconnectedState; }));
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList(QString("Closed the connection to 127.0.0.1 port %1 : %2")
                             .arg(peer.port())
                             .arg(reason)));
}

void tst_SocketLink::lostConnectionWakesEveryCaller()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    std::vector<std::unique_ptr<Call>> calls;
    calls.reserve(3);
    for (int i = 0; i < 3; ++i)
        calls.push_back(std::make_unique<Call>(link, request("upgrade.progress", 600000)));
    QVERIFY(waitUntil([&] { return peer.requests.size() == 3; }));
    // The beginning of an answer is none.
    peer.socket()->write(QByteArray::fromHex("0000002ca3"));
    peer.socket()->disconnectFromHost();
    for (const auto &call : calls) {
        QVERIFY(waitUntil([&] { return call->hasEnded(); }));
        const LinkAnswer answer = call->answer();
        QVERIFY(answer.outcome == Outcome::Lost);
        QCOMPARE(answer.errorText, QString("The remote host closed the connection"));
    }
    QVERIFY(!link.isOpen());
}

void tst_SocketLink::answerThatCameBeforeTheEndCounts()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label);
        peer.socket()->disconnectFromHost();
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    Call call(link, request("device.shutdown"));
    QVERIFY(waitUntil([&] { return call.hasEnded(); }));
    QVERIFY(call.answer().isAccepted());
    QVERIFY(waitUntil([&] { return !link.isOpen(); }));
}

void tst_SocketLink::lostConnectionIsNoticedWithoutCallers()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    QVERIFY(waitUntil([&] { return peer.connectionCount() == 1; }));
    peer.socket()->disconnectFromHost();
    QVERIFY(waitUntil([&] { return !link.isOpen(); }));
    QVERIFY(link.send(request("version.read")).outcome == Outcome::NotDelivered);
}

void tst_SocketLink::closeWakesEveryCaller()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    Call first(link, request("first", 600000));
    Call second(link, request("second", 600000));
    QVERIFY(waitUntil([&] { return peer.requests.size() == 2; }));
    link.close();
    QVERIFY(waitUntil([&] { return first.hasEnded() && second.hasEnded(); }));
    const LinkAnswer answer = first.answer();
    QVERIFY(answer.outcome == Outcome::Lost);
    QCOMPARE(answer.errorText, QString("the link was closed"));
    QVERIFY(second.answer().outcome == Outcome::Lost);
}

void tst_SocketLink::opensAgain()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port());
    QString errorText;
    for (int connection = 1; connection <= 3; ++connection) {
        QVERIFY2(link.open(Patience, errorText), qPrintable(errorText));
        Call call(link, request("version.read"));
        QVERIFY(waitUntil([&] { return call.hasEnded(); }));
        QVERIFY(call.answer().isAccepted());
        QCOMPARE(peer.connectionCount(), connection);
        QCOMPARE(peer.requests.last().label, quint32(connection));
        if (connection == 1)
            link.close();
        else
            peer.socket()->abort();
        QVERIFY(waitUntil([&] { return !link.isOpen(); }));
    }
}

void tst_SocketLink::requestThatNeverLeftIsNotDelivered()
{
    DeafPort deaf(8);
    SocketLink link("127.0.0.1", deaf.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    // Far more than the network takes in while nobody reads.
    std::vector<std::unique_ptr<Call>> calls;
    calls.reserve(16);
    for (int i = 0; i < 16; ++i) {
        const QCborMap arguments { { "number", i }, { "bytes", QByteArray(1000000, 'x') } };
        calls.push_back(
            std::make_unique<Call>(link, LinkRequest { "file.data", arguments, 600000 }));
    }
    const QVector<int> arrived = deaf.readAndCut(3);
    int notDelivered = 0;
    for (int i = 0; i < 16; ++i) {
        Call &call = *calls.at(std::size_t(i));
        QVERIFY(waitUntil([&] { return call.hasEnded(); }));
        const Outcome outcome = call.answer().outcome;
        QVERIFY(outcome == Outcome::Lost || outcome == Outcome::NotDelivered);
        if (arrived.contains(i))
            QVERIFY(outcome == Outcome::Lost);
        notDelivered += int(outcome == Outcome::NotDelivered);
    }
    QVERIFY(arrived.size() >= 3);
    QVERIFY(notDelivered > 0);
}

void tst_SocketLink::requestThatCouldNotLeaveInTimeIsNotDelivered()
{
    DeafPort deaf(8);
    SocketLink link("127.0.0.1", deaf.port());
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    std::vector<std::unique_ptr<Call>> calls;
    calls.reserve(16);
    for (int i = 0; i < 16; ++i) {
        const QCborMap arguments { { "bytes", QByteArray(1000000, 'x') } };
        calls.push_back(std::make_unique<Call>(link, LinkRequest { "file.data", arguments, 50 }));
    }
    int timedOut = 0;
    int notDelivered = 0;
    for (const auto &call : calls) {
        QVERIFY(waitUntil([&] { return call->hasEnded(); }));
        const Outcome outcome = call->answer().outcome;
        timedOut += int(outcome == Outcome::TimedOut);
        notDelivered += int(outcome == Outcome::NotDelivered);
    }
    QCOMPARE(timedOut + notDelivered, 16);
    QVERIFY(notDelivered > 0);
}

void tst_SocketLink::pingsWhenIdle()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port(), { Patience, 10, Patience });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    QVERIFY(waitUntil([&] { return peer.requests.size() >= 3; }));
    for (const RequestMessage &asked : qAsConst(peer.requests)) {
        QCOMPARE(asked.operation, QString("ping"));
        QVERIFY(asked.arguments.isEmpty());
    }
    QCOMPARE(peer.requests.at(2).label, 3u);
    QVERIFY(link.isOpen());
}

void tst_SocketLink::silenceBehindAPingEndsTheConnection()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port(), { Patience, 10, 20 });
    LogRecorder log;
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    QVERIFY(waitUntil([&] { return !link.isOpen(); }));
    QVERIFY(waitUntil([&] { return peer.socket()->state() == QAbstractSocket::UnconnectedState; }));
    QVERIFY(peer.count("ping") >= 1);
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList(QString("Closed the connection to 127.0.0.1 port %1 : "
                                 "no sign of life for 20 ms")
                             .arg(peer.port())));
}

void tst_SocketLink::silentTimeoutIsFollowedByAPing()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port(), { Patience, 600000, 20 });
    LogRecorder log;
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    const LinkAnswer answer = sendInVain(link, "version.read");
    QVERIFY(answer.outcome == Outcome::TimedOut);
    QCOMPARE(answer.errorText, QString("the time is over"));
    QVERIFY(waitUntil([&] { return peer.count("ping") == 1; }));
    QVERIFY(waitUntil([&] { return !link.isOpen(); }));
    QCOMPARE(log.texts(QtWarningMsg).size(), 1);
}

void tst_SocketLink::defaultTimeout()
{
    Peer peer;
    SocketLink link("127.0.0.1", peer.port(), { 20, 600000, Patience });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    for (const int timeout : { 0, -1 }) {
        Call call(link, request("version.read", timeout));
        QVERIFY(waitUntil([&] { return call.hasEnded(); }));
        QVERIFY(call.answer().outcome != Outcome::Answered);
    }
}

void tst_SocketLink::answeredTimeoutIsNotFollowedByAPing()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        if (request.operation != "slow")
            peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port(), { Patience, 600000, Patience });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    // Until the device was heard while the slow request was waiting, as it should be.
    bool wasHeard = false;
    int pings = 0;
    while (!wasHeard) {
        const int slowOnes = peer.count("slow");
        Call slow(link, request("slow", 100));
        QVERIFY(waitUntil([&] { return peer.count("slow") > slowOnes || slow.hasEnded(); }));
        Call quick(link, request("quick"));
        QVERIFY(waitUntil([&] { return quick.hasEnded(); }));
        pings = peer.count("ping");
        wasHeard = peer.count("slow") > slowOnes && !slow.hasEnded();
        QVERIFY(waitUntil([&] { return slow.hasEnded(); }));
        wasHeard = wasHeard && slow.answer().outcome == Outcome::TimedOut;
    }

    // Whatever the time-out had asked for would stand in front of this.
    Call next(link, request("next"));
    QVERIFY(waitUntil([&] { return next.hasEnded(); }));
    QVERIFY(next.answer().isAccepted());
    QCOMPARE(peer.count("ping"), pings);
}

void tst_SocketLink::busyDeviceMayBeSilent()
{
    Peer peer;
    quint32 longLabel = 0;
    peer.onRequest = [&](const RequestMessage &request) {
        if (request.operation == "file.close")
            longLabel = request.label;
        else if (peer.count("ping") == 5)
            peer.answer(longLabel);
        else if (peer.count("ping") > 5)
            peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port(), { Patience, 10, 10 });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    Call call(link, request("file.close"));
    QVERIFY(waitUntil([&] { return call.hasEnded(); }));
    QVERIFY(call.answer().isAccepted());
}

void tst_SocketLink::pause()
{
    Peer peer;
    QElapsedTimer sinceCall;
    bool isPaused = false;
    qint64 firstPing = -1;
    peer.onRequest = [&](const RequestMessage &request) {
        if (isPaused && firstPing < 0)
            firstPing = sinceCall.elapsed();
        isPaused = isPaused || request.operation == "heartbeat.pause";
        peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port(), { Patience, 10, Patience });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    sinceCall.start();
    auto paused = std::async(std::launch::async, [&link] { link.pauseHeartbeat(200); });
    // The heartbeat comes back by itself, but not before its time.
    QVERIFY(waitUntil([&] { return firstPing >= 0; }));
    QVERIFY2(firstPing >= 180, qPrintable(QString::number(firstPing)));
    paused.get();
    QCOMPARE(peer.count("heartbeat.pause"), 1);
    for (const RequestMessage &asked : qAsConst(peer.requests)) {
        if (asked.operation == "heartbeat.pause")
            QCOMPARE(asked.arguments, (QCborMap { { "milliseconds", 200 } }));
    }
}

void tst_SocketLink::resumeEndsPause()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port(), { Patience, 10, Patience });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    auto resumed = std::async(std::launch::async, [&link] {
        link.pauseHeartbeat(600000);
        link.restartHeartbeat();
    });
    QVERIFY(waitUntil(
        [&] { return resumed.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    QCOMPARE(peer.count("heartbeat.resume"), 1);
    const int pings = peer.count("ping");
    QVERIFY(waitUntil([&] { return peer.count("ping") > pings; }));
}

void tst_SocketLink::pauseEndsWithTheConnection()
{
    Peer peer;
    peer.onRequest = [&peer](const RequestMessage &request) {
        peer.answer(request.label);
    };
    SocketLink link("127.0.0.1", peer.port(), { Patience, 10, Patience });
    QString errorText;
    QVERIFY(link.open(Patience, errorText));
    auto paused = std::async(std::launch::async, [&link] { link.pauseHeartbeat(600000); });
    QVERIFY(waitUntil(
        [&] { return paused.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    link.close();
    QVERIFY(link.open(Patience, errorText));
    const int pings = peer.count("ping");
    QVERIFY(waitUntil([&] { return peer.count("ping") > pings; }));
}

void tst_SocketLink::pauseOfAClosedLinkIsNothing()
{
    LogRecorder log;
    SocketLink link("127.0.0.1", 9);
    link.pauseHeartbeat(1000);
    link.restartHeartbeat();
    QVERIFY(log.lines().isEmpty());
}

QTEST_GUILESS_MAIN(tst_SocketLink)
#include "tst_socketlink.moc"
