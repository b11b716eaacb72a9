#include "device/devicefacts.h"

#include "support/scriptedlink.h"

#include <velmarbizmodel/devicelist.h>

#include <QCborArray>
#include <QTcpServer>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;
using BizModel::LinkAnswer;

namespace {

const DeviceAddress Wall { QStringLiteral("wall"), 9720 };
constexpr std::chrono::milliseconds Timeout { 750 };

QCborMap greeting()
{
    const QCborMap late { { QStringLiteral("slotId"), 3 },
                          { QStringLiteral("modelId"), 0x7802 },
                          { QStringLiteral("boardId"), 2 } };
    const QCborMap early { { QStringLiteral("slotId"), 1 },
                           { QStringLiteral("modelId"), 0x7801 },
                           { QStringLiteral("boardId"), 1 } };
    return { { QStringLiteral("protocol"), 1 },
             { QStringLiteral("modelId"), 0x0abc }, // in no catalogue
             { QStringLiteral("serial"), QStringLiteral("S8-0001") },
             { QStringLiteral("name"), QStringLiteral("left wall") },
             { QStringLiteral("cards"), QCborArray { late, early } } };
}

QCborMap versions()
{
    const QCborMap section { { QStringLiteral("code"), 0x0102 },
                             { QStringLiteral("version"), QStringLiteral("1.2.3.4") } };
    const QCborMap part { { QStringLiteral("type"), 1 },
                          { QStringLiteral("slotId"), 0 },
                          { QStringLiteral("section"), QCborArray { section } } };
    return { { QStringLiteral("version"), QStringLiteral("2.0.0.0") },
             { QStringLiteral("parts"), QCborArray { part } } };
}

std::shared_ptr<ScriptedLink> deviceLink()
{
    auto link = std::make_shared<ScriptedLink>();
    link->answer(QStringLiteral("hello"), ScriptedLink::accepted(greeting()));
    link->answer(QStringLiteral("version.read"), ScriptedLink::accepted(versions()));
    link->answer(QStringLiteral("upgrade.progress"),
                 ScriptedLink::accepted({ { QStringLiteral("run"), 7 },
                                          { QStringLiteral("result"), 2 },
                                          { QStringLiteral("rate"), 100 } }));
    return link;
}

LinkFactory over(const std::shared_ptr<ScriptedLink> &link)
{
    return [link](const DeviceAddress &) {
        return link;
    };
}

} // namespace

class tst_DeviceFacts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void factsOfADevice()
    {
        const auto link = deviceLink();
        DeviceAddress asked;
        QString errorText;
        const auto facts = readDeviceFacts(Wall, Timeout, errorText, [&](const auto &address) {
            asked = address;
            return link;
        });
        QVERIFY2(facts, qPrintable(errorText));
        QCOMPARE(asked.toString(), QStringLiteral("wall:9720"));
        QCOMPARE(facts->address.toString(), QStringLiteral("wall:9720"));
        QCOMPARE(int(facts->modelId), 0x0abc);
        QCOMPARE(facts->serial, QStringLiteral("S8-0001"));
        QCOMPARE(facts->name, QStringLiteral("left wall"));
        QCOMPARE(int(facts->cards.size()), 2); // in slot order
        QCOMPARE(int(facts->cards.at(0).slotId), 1);
        QCOMPARE(int(facts->cards.at(0).modelId), 0x7801);
        QCOMPARE(int(facts->cards.at(0).boardId), 1);
        QCOMPARE(int(facts->cards.at(1).slotId), 3);
        QCOMPARE(facts->versions.version, std::string("2.0.0.0"));
        QCOMPARE(facts->versions.parts.at(0).section.at(0).version, std::string("1.2.3.4"));
        QCOMPARE(link->operations(),
                 QStringList({ QStringLiteral("hello"), QStringLiteral("version.read") }));
        QCOMPARE(link->requests().constLast().timeout, 750);
        QVERIFY(BizModel::DeviceList::instance()->activedDevice().expired());
    }

    void noFacts_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("outcome"); // of a LinkAnswer; -1: refused, -2: garbage
        QTest::addColumn<QString>("errorText");

        const auto versionText = QStringLiteral("The device does not tell its versions: %1");
        const auto scripted = QStringLiteral("scripted failure");
        QTest::newRow("no hello") << "hello" << int(LinkAnswer::Outcome::TimedOut)
                                  << "What listens at wall:9720 does not answer as a device: "
                                     "scripted failure. Check the address and the port";
        QTest::newRow("lost") << "version.read" << int(LinkAnswer::Outcome::Lost)
                              << versionText.arg(scripted);
        QTest::newRow("timed out")
            << "version.read" << int(LinkAnswer::Outcome::TimedOut) << versionText.arg(scripted);
        QTest::newRow("not delivered") << "version.read" << int(LinkAnswer::Outcome::NotDelivered)
                                       << versionText.arg(scripted);
        QTest::newRow("refused") << "version.read" << -1 << versionText.arg("not \\x1b[31mnow");
        QTest::newRow("garbage") << "version.read" << -2
                                 << versionText.arg("the answer has no valid \"parts\"");
    }
    void noFacts()
    {
        QFETCH(QString, operation);
        QFETCH(int, outcome);
        const auto link = deviceLink();
        if (outcome == -1)
            link->answer(operation, ScriptedLink::refused(4, QStringLiteral("not \x1b[31mnow")));
        else if (outcome == -2)
            link->answer(operation, ScriptedLink::accepted({ { QStringLiteral("parts"), 1 } }));
        else
            link->answer(operation, ScriptedLink::failed(LinkAnswer::Outcome(outcome)));
        QString errorText;
        QVERIFY(!readDeviceFacts(Wall, Timeout, errorText, over(link)));
        QTEST(errorText, "errorText");
        QCOMPARE(link->operations().count(operation), 1); // and no second try
    }

    void unreachableDevice()
    {
        const auto link = deviceLink();
        link->close();
        link->setReachable(false);
        QString errorText;
        QVERIFY(!readDeviceFacts(Wall, Timeout, errorText, over(link)));
        QCOMPARE(errorText,
                 QStringLiteral("wall:9720 cannot be reached: scripted device is unreachable. "
                                "Check the address, and that the device is switched on"));
        QVERIFY(link->operations().isEmpty());
    }

    void nobodyListens()
    {
        QTcpServer server; // takes a free port and gives it back
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const DeviceAddress address { QStringLiteral("127.0.0.1"), server.serverPort() };
        server.close();
        QString errorText;
        QVERIFY(!readDeviceFacts(address, Timeout, errorText));
        QVERIFY2(errorText.startsWith(address.toString() + QStringLiteral(" cannot be reached: ")),
                 qPrintable(errorText));
    }

    void installationOfADevice()
    {
        const auto link = deviceLink();
        QString errorText;
        const auto progress = readInstallation(Wall, Timeout, errorText, over(link));
        QVERIFY2(progress, qPrintable(errorText));
        QCOMPARE(progress->result, 2); // as told, whichever installation it is of
        QCOMPARE(int(progress->rate), 100);
        QCOMPARE(link->operations(),
                 QStringList({ QStringLiteral("hello"), QStringLiteral("upgrade.progress") }));
    }

    void noInstallation_data()
    {
        QTest::addColumn<QCborMap>("values");

        QTest::newRow("no result") << QCborMap { { QStringLiteral("rate"), 1 } };
        QTest::newRow("result in words")
            << QCborMap { { QStringLiteral("result"), QStringLiteral("good") } };
    }
    void noInstallation()
    {
        QFETCH(QCborMap, values);
        const auto link = deviceLink();
        link->answer(QStringLiteral("upgrade.progress"), ScriptedLink::accepted(values));
        QString errorText;
        QVERIFY(!readInstallation(Wall, Timeout, errorText, over(link)));
        QVERIFY2(errorText.startsWith(QStringLiteral("The device does not tell its progress: ")),
                 qPrintable(errorText));
    }

    void installationOfNoDevice()
    {
        const auto link = deviceLink();
        link->answer(QStringLiteral("hello"), ScriptedLink::refused(2, QStringLiteral("what?")));
        QString errorText;
        QVERIFY(!readInstallation(Wall, Timeout, errorText, over(link)));
        QCOMPARE(errorText,
                 QStringLiteral("What listens at wall:9720 does not answer as a device: what?. "
                                "Check the address and the port"));
    }
};

QTEST_GUILESS_MAIN(tst_DeviceFacts)
#include "tst_devicefacts.moc"
