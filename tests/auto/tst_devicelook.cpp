#include "device/devicelook.h"

#include "support/scriptedlink.h"
#include "support/wallgreeting.h"

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;
using BizModel::LinkAnswer;
using Kind = DeviceLook::Kind;

namespace {

constexpr std::chrono::milliseconds Timeout { 750 };

std::shared_ptr<ScriptedLink> deviceLink()
{
    auto link = std::make_shared<ScriptedLink>();
    link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting()));
    link->answer(QStringLiteral("upgrade.progress"),
                 ScriptedLink::accepted({ { QStringLiteral("result"), 2 } }));
    link->answer(
        QStringLiteral("version.read"),
        ScriptedLink::accepted({ { QStringLiteral("version"), QStringLiteral("2.0.0.0") } }));
    return link;
}

DeviceLooker looker(const std::shared_ptr<ScriptedLink> &link)
{
    return { { QStringLiteral("wall"), 9720 }, link, Timeout };
}

} // namespace

Q_DECLARE_METATYPE(Velmar::Host::DeviceLook::Kind)
Q_DECLARE_METATYPE(Velmar::BizModel::LinkAnswer)

class tst_DeviceLook : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deviceThatTellsAll()
    {
        const auto link = deviceLink();
        const auto look = looker(link).look();
        QVERIFY(look.kind == Kind::Versions);
        QVERIFY(!look.isInterrupted);
        QCOMPARE(look.serial, QStringLiteral("S8-0001"));
        QCOMPARE(look.versions.version, std::string("2.0.0.0"));
        QVERIFY(look.installation == 2);
        QVERIFY(link->isOpen());
    }

    void kind_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<LinkAnswer>("answer");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<bool>("isInterrupted");
        QTest::addColumn<QString>("errorText");
        QTest::addColumn<bool>("staysOpen");

        const auto lost = ScriptedLink::failed(LinkAnswer::Outcome::Lost);
        const auto timedOut = ScriptedLink::failed(LinkAnswer::Outcome::TimedOut);
        const auto noDevice = QStringLiteral("What listens at wall:9720 does not answer as a "
                                             "device: scripted failure. Check the address and the "
                                             "port");
        QTest::newRow("greeting lost")
            << "hello" << lost << Kind::Away << false << noDevice << false;
        QTest::newRow("no greeting")
            << "hello" << timedOut << Kind::NoDevice << false << noDevice << false;
        QTest::newRow("greeting that is garbage")
            << "hello" << ScriptedLink::accepted() << Kind::NoDevice << false
            << "The device at wall:9720 speaks version \"unknown\" of the device link, this host "
               "version 1. Use a host of the device's generation"
            << false;
        QTest::newRow("lost over its versions")
            << "version.read" << lost << Kind::Away << true
            << "The device does not tell its versions: scripted failure" << false;
        QTest::newRow("lost over its progress")
            << "upgrade.progress" << lost << Kind::Away << true
            << "The device does not tell its versions: scripted link is closed" << false;
        QTest::newRow("no versions")
            << "version.read" << timedOut << Kind::NoVersions << false
            << "The device does not tell its versions: scripted failure" << true;
        QTest::newRow("versions refused")
            << "version.read" << ScriptedLink::refused(4, QStringLiteral("not now"))
            << Kind::NoVersions << false << "The device does not tell its versions: not now"
            << true;
        QTest::newRow("progress refused")
            << "upgrade.progress" << ScriptedLink::refused(2, QStringLiteral("what?"))
            << Kind::Versions << false << "" << true;
    }
    void kind()
    {
        QFETCH(QString, operation);
        QFETCH(LinkAnswer, answer);
        QFETCH(Kind, kind);
        const auto link = deviceLink();
        link->answer(operation, answer);
        const auto look = looker(link).look();
        QVERIFY(look.kind == kind);
        QTEST(look.isInterrupted, "isInterrupted");
        QTEST(look.errorText, "errorText");
        QTEST(link->isOpen(), "staysOpen");
        const bool isProgressTold =
            operation == QLatin1String("version.read") && look.kind != Kind::Away;
        QCOMPARE(look.installation.has_value(), isProgressTold);
    }

    void nobodyThere()
    {
        const auto link = deviceLink();
        link->close();
        link->setReachable(false);
        const auto look = looker(link).look();
        QVERIFY(look.kind == Kind::Away);
        QVERIFY(!look.isInterrupted); // there was nothing before
        QVERIFY(look.errorText.contains(QStringLiteral("scripted device is unreachable")));
    }

    void connectionThatEndedBetweenTwoLooks()
    {
        const auto link = deviceLink();
        auto eye = looker(link);
        QVERIFY(eye.look().kind == Kind::Versions);
        QVERIFY(!eye.look().isInterrupted);
        QCOMPARE(link->arguments(QStringLiteral("hello")).size(), 1);
        link->close();
        link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting("S8-0002")));
        const auto look = eye.look();
        QVERIFY(look.isInterrupted);
        QVERIFY(look.kind == Kind::Versions);
        QCOMPARE(look.serial, QStringLiteral("S8-0002")); // asked anew: it may be another device
        QVERIFY(!eye.look().isInterrupted);
    }

    void stepsHaveTheirTimeLimit()
    {
        const auto link = deviceLink();
        looker(link).look();
        const auto requests = link->requests();
        QCOMPARE(requests.size(), 3);
        for (const auto &request : requests)
            QCOMPARE(request.timeout, 750);
    }
};

QTEST_GUILESS_MAIN(tst_DeviceLook)
#include "tst_devicelook.moc"
