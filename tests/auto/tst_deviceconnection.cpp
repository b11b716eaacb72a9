#include "connection.h"
#include "support/logrecorder.h"
#include "trace.h"

#include <QElapsedTimer>
#include <QNetworkProxy>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace Velmar::Simulator;
using Velmar::SSProxy::AnswerMessage;
using Velmar::SSProxy::encodeFrame;
using Velmar::SSProxy::FrameReader;
using Velmar::SSProxy::RequestMessage;

namespace {

QByteArray frame(quint32 label, const QString &operation, const QCborMap &arguments = {})
{
    RequestMessage request;
    request.label = label;
    request.operation = operation;
    request.arguments = arguments;
    return encodeFrame(request.toCbor());
}

const QRegularExpression SilentHost(
    QStringLiteral("^The connection of 127\\.0\\.0\\.1:\\d+ is dropped: the host is silent\\.$"));

} // namespace

/*! One connection of the simulated device, with both of its ends on this thread: whatever holds one
    up holds the other up as well. */
class tst_DeviceConnection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_operations = std::make_unique<OperationTable>();
        m_operations->add("ping",
                          [](const QCborMap &, LinkSession &) { return Reply::accepted(); });
        m_operations->add("echo", [](const QCborMap &arguments, LinkSession &) {
            return Reply::accepted(arguments);
        });
        m_operations->add("drop", [](const QCborMap &, LinkSession &) { return Reply::dropped(); });
        m_operations->add("pause", [](const QCborMap &arguments, LinkSession &session) {
            session.pauseSilenceLimit(arguments.value(QLatin1String("ms")).toInteger());
            return Reply::accepted();
        });
        m_operations->add("resume", [](const QCborMap &, LinkSession &session) {
            session.resumeSilenceLimit();
            return Reply::accepted();
        });
        m_operations->add("follow", [this](const QCborMap &, LinkSession &) {
            Reply reply = Reply::accepted();
            reply.afterwards = [this] {
                ++m_followed;
            };
            return reply;
        });
        m_operations->add("leave", [](const QCborMap &, LinkSession &session) {
            Reply reply = Reply::accepted();
            reply.delayMs = 3600000;
            reply.afterwards = [&session] {
                session.endConnection();
            };
            return reply;
        });
        m_operations->add("swell", [](const QCborMap &, LinkSession &) {
            return Reply::accepted({ { QLatin1String("padding"), QByteArray(1048576, 'p') } });
        });
        m_ends = 0;
        m_followed = 0;
    }
    void cleanup()
    {
        m_connection.reset();
        m_host.reset();
        m_operations.reset();
    }

    void frameInSingleBytes()
    {
        connectHost({});
        const QByteArray bytes = frame(7, "echo", { { QLatin1String("a"), 1 } });
        for (const char byte : bytes) {
            QCOMPARE(m_answers.size(), 0);
            m_host->write(&byte, 1);
            m_host->flush();
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(m_answers.size(), 1);
        QCOMPARE(m_answers.first().label, quint32(7));
        QCOMPARE(m_answers.first().values, (QCborMap { { QLatin1String("a"), 1 } }));
    }

    void manyFramesAtOnce()
    {
        connectHost({});
        m_host->write(frame(1, "ping") + frame(2, "nonsense") + frame(3, "ping"));
        QTRY_COMPARE(m_answers.size(), 3);
        QCOMPARE(m_answers.at(0).ack, quint16(0));
        QCOMPARE(m_answers.at(1).ack, quint16(2));
        QCOMPARE(m_answers.at(1).label, quint32(2));
        QCOMPARE(m_answers.at(2).ack, quint16(0));
    }

    void dropLeavesTheRestUndone()
    {
        connectHost({});
        QTest::ignoreMessage(QtInfoMsg,
                             QRegularExpression(": a fault drops the connection at drop\\.$"));
        m_host->write(frame(1, "ping") + frame(2, "drop") + frame(3, "follow"));
        QTRY_COMPARE(m_ends, 1);
        QTRY_COMPARE(m_host->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(m_answers.size(), 1);
        QCOMPARE(m_followed, 0);
    }

    void brokenFrameLeavesTheRestUndone()
    {
        connectHost({});
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression(": the message is no map\\.$"));
        m_host->write(QByteArray::fromHex("0000000101") + frame(3, "follow"));
        QTRY_COMPARE(m_ends, 1);
        QCOMPARE(m_followed, 0);
    }

    void sequelComesBehindTheAnswer()
    {
        connectHost({});
        m_host->write(frame(1, "follow"));
        QTRY_COMPARE(m_followed, 1);
        QTRY_COMPARE(m_answers.size(), 1);
        m_host->write(frame(2, "ping"));
        QTRY_COMPARE(m_answers.size(), 2);
        QCOMPARE(m_followed, 1);
    }

    void sequelComesEvenIfNobodyWaits()
    {
        connectHost({});
        m_host->write(frame(1, "follow"));
        m_host->disconnectFromHost();
        QTRY_COMPARE(m_ends, 1);
        QCOMPARE(m_followed, 1);
    }

    void everySequelComesHoweverLateAnswersAreRead()
    {
        connectHost({});
        m_host->setReadBufferSize(1); // what it does not read stays on the way
        const QByteArray wide =
            frame(1, "echo", { { QLatin1String("padding"), QByteArray(60000, 'p') } });
        constexpr int Count = 400; // 24 MB of answers, more than the sockets hold
        for (int i = 0; i < Count; ++i)
            m_host->write(wide + frame(2, "follow") + frame(3, "ping"));
        QVERIFY(unsentWhenStuck() > 0);
        m_host->setReadBufferSize(0);
        readAnswers();
        QTRY_COMPARE(m_answers.size(), 3 * Count);
        QCOMPARE(m_followed, Count);
    }

    void hostThatLeftIsNotDropped()
    {
        const LogRecorder log;
        connectHost({});
        m_host->write(frame(1, "leave"));
        m_host->disconnectFromHost();
        QTRY_COMPARE(m_ends, 1);
        QCOMPARE(log.texts(QtInfoMsg), QStringList());
    }

    void answerThatFitsNoFrame()
    {
        connectHost({});
        QTest::ignoreMessage(QtInfoMsg,
                             QRegularExpression(": the answer to swell fits no frame\\.$"));
        m_host->write(frame(1, "ping") + frame(2, "swell") + frame(3, "follow"));
        QTRY_COMPARE(m_ends, 1);
        QTRY_COMPARE(m_host->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(m_answers.size(), 1);
        QCOMPARE(m_followed, 0);
    }

    void hostThatLeavesIsForgotten()
    {
        connectHost({});
        m_host->abort();
        QTRY_COMPARE(m_ends, 1);
    }

    void silentHostIsDropped()
    {
        LinkPolicy policy;
        policy.silenceLimitMs = 20;
        connectHost(policy);
        QTest::ignoreMessage(QtInfoMsg, SilentHost);
        QTRY_COMPARE(m_ends, 1);
        QTRY_COMPARE(m_host->state(), QAbstractSocket::UnconnectedState);
    }

    void everyRequestBreaksTheSilence()
    {
        LinkPolicy policy;
        policy.silenceLimitMs = 100;
        QElapsedTimer sinceRequest;
        bool wasInTime = false;
        while (!wasInTime) { // a busy machine may make this host too slow
            QTest::ignoreMessage(QtInfoMsg, SilentHost);
            connectHost(policy);
            sinceRequest.start();
            m_host->write(frame(1, "ping"));
            m_host->flush();
            QTRY_VERIFY(sinceRequest.elapsed() >= 30);
            wasInTime = sinceRequest.restart() < 95;
            m_host->write(frame(2, "ping"));
            m_host->flush();
            QTRY_COMPARE(m_ends, 1);
            m_ends = 0;
        }
        QVERIFY(sinceRequest.elapsed() >= 95); // timers may be 5 % early
        QCOMPARE(m_answers.size(), 2);
    }

    void pauseSuspendsTheLimit()
    {
        LinkPolicy policy;
        policy.silenceLimitMs = 20;
        connectHost(policy);
        m_host->write(frame(1, "pause", { { QLatin1String("ms"), 3600000 } }));
        m_host->flush();
        QTRY_COMPARE(m_answers.size(), 1);
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY(clock.elapsed() > 60);
        QCOMPARE(m_ends, 0);
        m_host->write(frame(2, "ping")); // does not end the pause
        QTRY_COMPARE(m_answers.size(), 2);
        clock.start();
        QTRY_VERIFY(clock.elapsed() > 60);
        QCOMPARE(m_ends, 0);
        m_host->write(frame(3, "resume"));
        QTest::ignoreMessage(QtInfoMsg, SilentHost);
        QTRY_COMPARE(m_ends, 1);
        QCOMPARE(m_answers.size(), 3);
    }

    void pauseEndsByItself()
    {
        LinkPolicy policy;
        policy.silenceLimitMs = 20;
        connectHost(policy);
        QElapsedTimer clock;
        clock.start();
        m_host->write(frame(1, "pause", { { QLatin1String("ms"), 60 } }));
        m_host->flush();
        QTest::ignoreMessage(QtInfoMsg, SilentHost);
        QTRY_COMPARE(m_ends, 1);
        QVERIFY(clock.elapsed() >= 76); // 80, but timers may be 5 % early
    }

    void pauseOfManyDays()
    {
        LinkPolicy policy;
        policy.silenceLimitMs = 20;
        connectHost(policy);
        m_host->write(frame(1, "pause", { { QLatin1String("ms"), qint64(4294967295) } }));
        m_host->flush();
        QTRY_COMPARE(m_answers.size(), 1);
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY(clock.elapsed() > 40);
        QCOMPARE(m_ends, 0);
    }

    void slowLinkKeepsItsPace()
    {
        LinkPolicy policy;
        policy.bytesPerSecond = 10000;
        connectHost(policy);
        QElapsedTimer clock;
        clock.start();
        m_host->write(frame(1, "ping", { { QLatin1String("padding"), QByteArray(1000, 'p') } }));
        QTRY_COMPARE(m_answers.size(), 1);
        QVERIFY(clock.elapsed() >= 95); // 1000 bytes take 100 ms, but timers may be 5 % early
    }

    void slowLinkDoesNotMakeHostsSilent()
    {
        LinkPolicy policy;
        policy.bytesPerSecond = 10000;
        policy.silenceLimitMs = 20;
        connectHost(policy);
        const QCborMap wide { { QLatin1String("padding"), QByteArray(700, 'p') } };
        m_host->write(frame(1, "ping", wide));
        m_host->flush();
        QTRY_COMPARE(m_answers.size(), 1);
        QCOMPARE(m_ends, 0);
    }

    void hostThatDoesNotReadIsNotReadFrom()
    {
        connectHost({});
        m_host->setReadBufferSize(1); // what it does not read stays on the way
        const QByteArray request =
            frame(1, "echo", { { QLatin1String("padding"), QByteArray(60000, 'p') } });
        constexpr int Count = 400; // 24 MB of answers, more than the sockets hold
        for (int i = 0; i < Count; ++i)
            m_host->write(request);
        QVERIFY(unsentWhenStuck() > 0); // the host gets rid of a part of its requests only
        m_host->setReadBufferSize(0);
        readAnswers();
        QTRY_COMPARE(m_answers.size(), Count);
    }

private:
    void connectHost(const LinkPolicy &policy)
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        m_host = std::make_unique<QTcpSocket>();
        m_host->setProxy(QNetworkProxy::NoProxy);
        m_host->connectToHost(server.serverAddress(), server.serverPort());
        QVERIFY(server.waitForNewConnection(5000));
        m_frames = FrameReader();
        m_answers.clear();
        connect(m_host.get(), &QTcpSocket::readyRead, this, [this] { readAnswers(); });
        m_connection = std::make_unique<Connection>(
            std::unique_ptr<QTcpSocket>(server.nextPendingConnection()), *m_operations, m_trace,
            policy);
        connect(m_connection.get(), &Connection::ended, this, [this] { ++m_ends; });
        QVERIFY(m_host->waitForConnected(5000));
    }

    /*! Bytes of requests that the host does not get rid of. */
    qint64 unsentWhenStuck() const
    {
        qint64 unsent = -1;
        QElapsedTimer unchanged;
        unchanged.start();
        while (unchanged.elapsed() < 100) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
            if (m_host->bytesToWrite() != unsent)
                unchanged.restart();
            unsent = m_host->bytesToWrite();
        }
        return unsent;
    }

    void readAnswers()
    {
        m_frames.append(m_host->readAll());
        QCborMap message;
        while (m_frames.next(message) == FrameReader::Status::Message) {
            AnswerMessage answer;
            QString fault;
            QVERIFY(answer.fromCbor(message, fault));
            m_answers.append(answer);
        }
    }

    Trace m_trace; // not opened
    std::unique_ptr<OperationTable> m_operations;
    std::unique_ptr<QTcpSocket> m_host;
    std::unique_ptr<Connection> m_connection;
    FrameReader m_frames;
    QVector<AnswerMessage> m_answers;
    int m_ends = 0;
    int m_followed = 0;
};

QTEST_GUILESS_MAIN(tst_DeviceConnection)
#include "tst_deviceconnection.moc"
