#include "device/devicesession.h"

#include "support/scriptedlink.h"
#include "support/wallgreeting.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelist.h>

#include <QCborArray>
#include <QTcpServer>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

const auto Name = QStringLiteral("wall:9720");

QCborMap card(int slotId, int modelId, int boardId)
{
    return { { QStringLiteral("slotId"), slotId },
             { QStringLiteral("modelId"), modelId },
             { QStringLiteral("boardId"), boardId } };
}

QCborMap greeting()
{
    return wallGreeting(QStringLiteral("S8-0001"), { card(3, 0x7802, 2), card(1, 0x7801, 1) });
}

QCborMap changed(const QString &key, const QCborValue &value)
{
    auto values = greeting();
    values[key] = value;
    return values;
}

QCborMap without(const QString &key)
{
    auto values = greeting();
    values.remove(key);
    return values;
}

} // namespace

class tst_DeviceSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void describesTheDevice()
    {
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("hello"), ScriptedLink::accepted(greeting()));
        QString errorText;
        auto session = DeviceSession::open(link, Name, errorText);
        QVERIFY2(session, qPrintable(errorText));
        QCOMPARE(session->serial(), QStringLiteral("S8-0001"));
        QCOMPARE(session->name(), QStringLiteral("left wall"));
        QCOMPARE(int(session->device()->modelId()), 0x7701);
        QCOMPARE(session->device()->deviceConfig().name, QStringLiteral("Strata S8"));
        QCOMPARE(session->device()->link(), std::shared_ptr<BizModel::DeviceLink>(link));
        const auto &cards = session->device()->subcards(); // in slot order
        QCOMPARE(int(cards.size()), 2);
        QCOMPARE(int(cards.at(0)->slotId()), 1);
        QCOMPARE(int(cards.at(0)->modelId()), 0x7801);
        QCOMPARE(int(cards.at(0)->boardId()), 1);
        QCOMPARE(int(cards.at(1)->slotId()), 3);
        QCOMPARE(int(cards.at(1)->boardId()), 2);
    }

    void ownsTheActiveDevice()
    {
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("hello"), ScriptedLink::accepted(greeting()));
        QString errorText;
        auto session = DeviceSession::open(link, Name, errorText);
        QVERIFY(session);
        QCOMPARE(BizModel::DeviceList::instance()->activedDevice().lock(), session->device());
        session.reset();
        QVERIFY(BizModel::DeviceList::instance()->activedDevice().expired());
        QVERIFY(!link->isOpen());
    }

    void refusedGreeting_data()
    {
        QTest::addColumn<QCborMap>("values");
        QTest::addColumn<QString>("errorText");

        const auto protocol = QStringLiteral(
            "The device at wall:9720 speaks version %1 of the device link, this host "
            "version 1. Use a host of the device's generation");
        const auto shape =
            QStringLiteral("The device at wall:9720 describes itself in a way that this host does "
                           "not understand. Use a host of the device's generation");
        QTest::newRow("later protocol") << changed("protocol", 2) << protocol.arg("2");
        QTest::newRow("no protocol") << without("protocol") << protocol.arg("\"unknown\"");
        QTest::newRow("protocol in words")
            << changed("protocol", "one") << protocol.arg("\"unknown\"");
        QTest::newRow("no model") << without("modelId") << shape;
        QTest::newRow("model beyond 16 bits") << changed("modelId", 0x17701) << shape;
        QTest::newRow("negative model") << changed("modelId", -1) << shape;
        QTest::newRow("no serial") << without("serial") << shape;
        QTest::newRow("name that is a number") << changed("name", 8) << shape;
        QTest::newRow("no cards") << without("cards") << shape;
        QTest::newRow("card that is no map") << changed("cards", QCborArray { 1 }) << shape;
        QTest::newRow("card beyond 8 bits")
            << changed("cards", QCborArray { card(256, 0x7801, 1) }) << shape;
        QTest::newRow("unknown model") << changed("modelId", 0x0abc)
                                       << "The device at wall:9720 is of model 0x0abc, which the "
                                          "catalogue does not know. Use a "
                                          "catalogue that describes it";
    }
    void refusedGreeting()
    {
        QFETCH(QCborMap, values);
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("hello"), ScriptedLink::accepted(values));
        QString errorText;
        QVERIFY(!DeviceSession::open(link, Name, errorText));
        QTEST(errorText, "errorText");
        QVERIFY(BizModel::DeviceList::instance()->activedDevice().expired());
    }

    void deviceThatDoesNotAnswer()
    {
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("hello"),
                     ScriptedLink::refused(2, QStringLiteral("no \x1b[31mhello")));
        QString errorText;
        QVERIFY(!DeviceSession::open(link, Name, errorText));
        QCOMPARE(errorText,
                 QStringLiteral("What listens at wall:9720 does not answer as a device: no "
                                "\\x1b[31mhello. Check the address and the port"));
    }

    void questionHasItsTimeLimit()
    {
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("hello"), ScriptedLink::accepted(greeting()));
        QString errorText;
        QVERIFY(DeviceSession::open(link, Name, errorText, std::chrono::milliseconds(750)));
        QCOMPARE(link->requests().constFirst().timeout, 750);
    }

    void nobodyListens()
    {
        QTcpServer server; // takes a free port and gives it back
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const auto port = server.serverPort();
        server.close();
        QString errorText;
        QVERIFY(
            !DeviceSession::open(DeviceAddress { QStringLiteral("127.0.0.1"), port }, errorText));
        QVERIFY2(errorText.startsWith(QStringLiteral("127.0.0.1:%1 cannot be reached: ").arg(port)),
                 qPrintable(errorText));
        QVERIFY2(errorText.endsWith(". Check the address, and that the device is switched on"),
                 qPrintable(errorText));
    }

    void listenerThatIsNoDevice()
    {
        QTcpServer server; // accepts, and says nothing
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QString errorText;
        QVERIFY(
            !DeviceSession::open(DeviceAddress { QStringLiteral("127.0.0.1"), server.serverPort() },
                                 errorText, std::chrono::milliseconds(300)));
        QVERIFY2(errorText.startsWith(QStringLiteral("What listens at 127.0.0.1:%1 does not answer "
                                                     "as a device: ")
                                          .arg(server.serverPort())),
                 qPrintable(errorText));
    }
};

QTEST_GUILESS_MAIN(tst_DeviceSession)
#include "tst_devicesession.moc"
