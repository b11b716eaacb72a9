#include "support/scriptedlink.h"

#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/devicecommand.h>

#include <QCborValue>
#include <QtTest>

#include <type_traits>

using namespace Velmar::SSProxy;
using Velmar::BizModel::LinkAnswer;
using Outcome = Velmar::BizModel::LinkAnswer::Outcome;

// Whoever derives from them may delete by the base.
static_assert(std::has_virtual_destructor_v<IDeviceCommand>);
static_assert(std::has_virtual_destructor_v<DeviceRequestCommand>);

class tst_DeviceChannel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void requestDefaults();
    void buffer();
    void registerWrite();
    void registerWriteOfNothing();
    void command();
    void answer_data();
    void answer();
    void noAnswer_data();
    void noAnswer();
    void labelIsTheLowByte();
    void labelOfAnUnansweredRequest();
    void noRequest();
    void readyWhileOpen();
    void heartbeat();

private:
    std::shared_ptr<ScriptedLink> m_link;
    std::shared_ptr<DeviceRequestCommand> m_request;
};

void tst_DeviceChannel::init()
{
    m_link = std::make_shared<ScriptedLink>();
    m_link->answer("register.write", ScriptedLink::accepted());
    m_link->answer("command", ScriptedLink::accepted());
    m_request = std::make_shared<DeviceRequestCommand>();
}

void tst_DeviceChannel::requestDefaults()
{
    QCOMPARE(int(m_request->commandKind), 0);
    QCOMPARE(int(m_request->commandId), 0);
    QCOMPARE(int(m_request->commandGroup), 0);
    QCOMPARE(int(m_request->isScannerTarget), 0);
    QCOMPARE(int(m_request->writeFlag), 0);
    QCOMPARE(int(m_request->reservedFlag), 0);
    QCOMPARE(m_request->address, 0u);
    QCOMPARE(int(m_request->dataLength), 0);
    QCOMPARE(int(m_request->trailingFlag), 0);
    QCOMPARE(int(m_request->label), 0);
    QCOMPARE(m_request->timeout(), 0);
    QVERIFY(m_request->body().empty());
}

void tst_DeviceChannel::buffer()
{
    m_request->setBuffer("raw");
    m_request->setBufferLen(3);
    m_request->buffer() += "!";
    const DeviceRequestCommand &request = *m_request;
    QCOMPARE(request.buffer(), std::string("raw!"));
    QCOMPARE(request.bufferLen(), 3ull);
}

void tst_DeviceChannel::registerWrite()
{
    m_request->isScannerTarget = 1;
    m_request->writeFlag = 1;
    m_request->address = 0xF1234567;
    m_request->dataLength = 4;
    m_request->setTimeout(1500);
    m_request->setBody(std::string("\x01\x00\xff\x00", 4));

    const auto response = DeviceChannel(m_link).sendSyncRequest(m_request);

    QVERIFY(response);
    QCOMPARE(response->ack, std::uint16_t(0));
    QVERIFY(response->body().empty());
    QCOMPARE(m_link->operations(), QStringList("register.write"));
    const auto sent = m_link->requests().first();
    QCOMPARE(sent.timeout, 1500);
    QCOMPARE(QCborValue(sent.arguments).toDiagnosticNotation(),
             QString("{\"scanner\": 1, \"write\": 1, \"reserved\": 0, \"address\": 4045620583, "
                     "\"length\": 4, \"trailing\": 0, \"body\": h'0100ff00'}"));
}

void tst_DeviceChannel::registerWriteOfNothing()
{
    m_request->writeFlag = 1;
    QVERIFY(DeviceChannel(m_link).sendSyncRequest(m_request));
    QCOMPARE(QCborValue(m_link->requests().first().arguments).toDiagnosticNotation(),
             QString("{\"scanner\": 0, \"write\": 1, \"reserved\": 0, \"address\": 0, "
                     "\"length\": 0, \"trailing\": 0, \"body\": h''}"));
}

void tst_DeviceChannel::command()
{
    m_request->commandKind = 1;
    m_request->commandId = 0x0A;
    m_request->commandGroup = 0xFC;
    m_request->setTimeout(700);
    m_link->answer("command", ScriptedLink::accepted({ { "body", QByteArray("{\"a\0b\"}", 7) } }));

    const auto response = DeviceChannel(m_link).sendSyncRequest(m_request);

    QVERIFY(response);
    QCOMPARE(response->body(), std::string("{\"a\0b\"}", 7));
    QCOMPARE(m_link->operations(), QStringList("command"));
    QCOMPARE(m_link->requests().first().timeout, 700);
    QCOMPARE(QCborValue(m_link->requests().first().arguments).toDiagnosticNotation(),
             QString("{\"kind\": 1, \"id\": 10, \"group\": 252, \"body\": h''}"));
}

void tst_DeviceChannel::answer_data()
{
    QTest::addColumn<int>("ack");
    QTest::addColumn<QCborMap>("values");
    QTest::addColumn<QByteArray>("body");

    QTest::newRow("accepted") << 0 << QCborMap() << QByteArray();
    QTest::newRow("accepted, with a body")
        << 0 << QCborMap { { "body", QByteArray("\x00\x01", 2) } } << QByteArray("\x00\x01", 2);
    QTest::newRow("refused") << 1 << QCborMap() << QByteArray();
    QTest::newRow("refused with the largest word") << 65535 << QCborMap() << QByteArray();
    QTest::newRow("refused, with a body")
        << 3 << QCborMap { { "body", QByteArray("why") } } << QByteArray("why");
}

void tst_DeviceChannel::answer()
{
    QFETCH(int, ack);
    QFETCH(QCborMap, values);
    QFETCH(QByteArray, body);
    LinkAnswer scripted = ScriptedLink::refused(quint16(ack), "register bank");
    scripted.values = values;
    m_link->answer("register.write", scripted);

    const auto response = DeviceChannel(m_link).sendSyncRequest(m_request);

    QVERIFY(response);
    QCOMPARE(int(response->ack), ack);
    QCOMPARE(QByteArray::fromStdString(response->body()), body);
    QCOMPARE(int(response->label), 1);
}

void tst_DeviceChannel::noAnswer_data()
{
    QTest::addColumn<int>("outcome");

    QTest::newRow("not delivered") << int(Outcome::NotDelivered);
    QTest::newRow("timed out") << int(Outcome::TimedOut);
    QTest::newRow("lost") << int(Outcome::Lost);
    QTest::newRow("body of the wrong type") << int(Outcome::Answered);
}

void tst_DeviceChannel::noAnswer()
{
    QFETCH(int, outcome);
    LinkAnswer scripted = ScriptedLink::failed(Outcome(outcome));
    scripted.values = { { "body", "text" } };
    m_link->answer("register.write", scripted);

    QVERIFY(!DeviceChannel(m_link).sendSyncRequest(m_request));
    QCOMPARE(m_link->requests().size(), 1);
}

void tst_DeviceChannel::labelIsTheLowByte()
{
    DeviceChannel channel(m_link);
    for (int i = 1; i <= 258; ++i) {
        const auto response = channel.sendSyncRequest(m_request);
        QVERIFY(response);
        QCOMPARE(response->label, m_request->label);
    }
    QCOMPARE(int(m_request->label), 2);
}

void tst_DeviceChannel::labelOfAnUnansweredRequest()
{
    m_link->answer("command", ScriptedLink::failed(Outcome::TimedOut));
    m_request->commandKind = 1;
    DeviceChannel channel(m_link);
    QVERIFY(!channel.sendSyncRequest(m_request));
    QVERIFY(!channel.sendSyncRequest(m_request));
    QCOMPARE(int(m_request->label), 2);
}

void tst_DeviceChannel::noRequest()
{
    QVERIFY(!DeviceChannel(m_link).sendSyncRequest(nullptr));
    QVERIFY(m_link->requests().isEmpty());
}

void tst_DeviceChannel::readyWhileOpen()
{
    DeviceChannel channel(m_link);
    QVERIFY(channel.isHardwareReadFinished());
    m_link->close();
    QVERIFY(!channel.isHardwareReadFinished());
    QVERIFY(!channel.sendSyncRequest(m_request));
}

void tst_DeviceChannel::heartbeat()
{
    m_link->answer("heartbeat.pause", ScriptedLink::accepted());
    m_link->answer("heartbeat.resume", ScriptedLink::accepted());
    DeviceChannel channel(m_link);
    channel.pauseHeartbeat(180000);
    channel.restartHeartbeat();
    QCOMPARE(m_link->operations(), QStringList({ "heartbeat.pause", "heartbeat.resume" }));
    QCOMPARE(m_link->requests().first().arguments, (QCborMap { { "milliseconds", 180000 } }));
}

QTEST_GUILESS_MAIN(tst_DeviceChannel)
#include "tst_devicechannel.moc"
