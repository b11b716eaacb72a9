#include "device/servicegeneration.h"

#include "support/scriptedlink.h"

#include <velmarbizmodel/deviceconfig.h>

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

Q_DECLARE_METATYPE(Velmar::Host::ServiceGeneration)

class tst_ServiceGeneration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answers_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<ServiceGeneration>("generation");

        QTest::newRow("no JSON") << QByteArray() << ServiceGeneration::Older;
        QTest::newRow("no object") << QByteArray("[]") << ServiceGeneration::Older;
        QTest::newRow("empty object") << QByteArray("{}") << ServiceGeneration::Newer;
        QTest::newRow("other version")
            << QByteArray(R"({"version":"1.0.0.0","brief":"S1.T1"})") << ServiceGeneration::Newer;
        QTest::newRow("other hardware")
            << QByteArray(R"({"version":"2.0.0.0","brief":"S8"})") << ServiceGeneration::Newer;
        QTest::newRow("no hardware")
            << QByteArray(R"({"version":"2.0.0.0"})") << ServiceGeneration::Newer;
        QTest::newRow("first of the list")
            << QByteArray(R"({"version":"2.0.0.0","brief":"S1.T1"})") << ServiceGeneration::None;
        QTest::newRow("last of the list")
            << QByteArray(R"({"version":"2.0.0.0","brief":"S1.T3"})") << ServiceGeneration::None;
        QTest::newRow("lower case")
            << QByteArray(R"({"version":"2.0.0.0","brief":"s1.t3"})") << ServiceGeneration::Newer;
        QTest::newRow("longer version")
            << QByteArray(R"({"version":"2.0.0.01","brief":"S1.T1"})") << ServiceGeneration::Newer;
    }
    void answers()
    {
        QFETCH(QByteArray, body);
        QFETCH(ServiceGeneration, generation);
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("command"), ScriptedLink::accepted({ { "body", body } }));
        QVERIFY(askServiceGeneration(link, {}) == generation);
        QCOMPARE(link->operations(), QStringList("command"));
    }

    void refusalIsThatOfTheOlderOne()
    {
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("command"), ScriptedLink::refused(1, "no such command"));
        QVERIFY(askServiceGeneration(link, {}) == ServiceGeneration::Older);
    }

    void silenceIsThatOfTheOlderOne()
    {
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("command"),
                     ScriptedLink::failed(BizModel::LinkAnswer::Outcome::TimedOut));
        QVERIFY(askServiceGeneration(link, {}) == ServiceGeneration::Older);
    }

    void timeout_data()
    {
        QTest::addColumn<unsigned short>("group");
        QTest::addColumn<unsigned short>("id");
        QTest::addColumn<int>("timeout");

        QTest::newRow("of the command") << quint16(0xFC) << quint16(0x0A) << 700;
        QTest::newRow("swapped") << quint16(0x0A) << quint16(0xFC) << 3000;
    }
    void timeout()
    {
        QFETCH(unsigned short, group);
        QFETCH(unsigned short, id);
        BizModel::s_DeviceConfig config;
        config.defaultTimeout = 3000;
        config.commandTimeouts = { { group, id, 700 } };
        const auto link = std::make_shared<ScriptedLink>();
        askServiceGeneration(link, config);
        QCOMPARE(link->requests().size(), 1);
        QTEST(link->requests().first().timeout, "timeout");
    }
};

QTEST_APPLESS_MAIN(tst_ServiceGeneration)
#include "tst_servicegeneration.moc"
