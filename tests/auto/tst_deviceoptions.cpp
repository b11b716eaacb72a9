#include "fitting.h"
#include "options.h"

#include <velmarbizmodel/catalogue.h>

#include <QTest>

using namespace Velmar::Simulator;
using Velmar::BizModel::Catalogue;

namespace {

QString describe(const Fitting &fitting)
{
    QStringList cards;
    for (const FittedCard &card : fitting.cards())
        cards.append(
            QString("%1=0x%2:%3").arg(card.slotId).arg(card.modelId, 0, 16).arg(card.boardId));
    return cards.join(' ');
}

} // namespace

/*! The command line of the simulated device, its faults and its cards. */
class tst_DeviceOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaults()
    {
        QString errorText;
        const auto options = Options::parse({ "velmar-device" }, errorText);
        QVERIFY(options);
        QCOMPARE(options->action, Options::Action::Run);
        QVERIFY(options->isFullyFitted);
        QCOMPARE(options->device.address, QHostAddress("127.0.0.1"));
        QCOMPARE(options->device.port, quint16(9720));
        QCOMPARE(options->device.probePort, std::optional<quint16>(9721));
        QCOMPARE(options->device.installMs, 10000);
        QCOMPARE(options->device.restartMs, 5000);
        QCOMPARE(options->device.heartbeatMs, 15000);
        QVERIFY(options->device.statePath.isEmpty());
        QVERIFY(options->device.tracePath.isEmpty());
    }

    void everythingTold()
    {
        QString errorText;
        const auto options =
            Options::parse({ "velmar-device",  "--listen",  "127.1.2.3:81",   "--probe-port=0",
                             "--model",        "M",         "--catalogue",    "c.json",
                             "--card",         "1=A",       "--card",         "2=B:2",
                             "--serial",       "S",         "--name",         "N",
                             "--file-version", "1.2.3.255", "--state",        "dir",
                             "--trace",        "t",         "--install-ms",   "0",
                             "--restart-ms",   "7",         "--heartbeat-ms", "1",
                             "--fault",        "no-return", "--fault",        "slow-link=5" },
                           errorText);
        QVERIFY2(options, qPrintable(errorText));
        const DeviceSettings &device = options->device;
        QCOMPARE(device.address, QHostAddress("127.1.2.3"));
        QCOMPARE(device.port, quint16(81));
        QCOMPARE(device.probePort, std::optional<quint16>(0));
        QCOMPARE(options->model, QString("M"));
        QCOMPARE(options->catalogue, QString("c.json"));
        QCOMPARE(options->cards, (QStringList { "1=A", "2=B:2" }));
        QVERIFY(!options->isFullyFitted);
        QCOMPARE(device.serial, QString("S"));
        QCOMPARE(device.name, QString("N"));
        QCOMPARE(device.fileVersion, QString("1.2.3.255"));
        QCOMPARE(device.statePath, QString("dir"));
        QCOMPARE(device.tracePath, QString("t"));
        QCOMPARE(device.installMs, 0);
        QCOMPARE(device.restartMs, 7);
        QCOMPARE(device.heartbeatMs, 1);
        QVERIFY(device.faults.isSet(Fault::NoReturn));
        QCOMPARE(device.faults.value(Fault::SlowLink, 0), qint64(5));
        QVERIFY(!device.faults.isSet(Fault::RefuseRestart));
    }

    void addressWithoutPort()
    {
        QString errorText;
        const auto options =
            Options::parse({ "velmar-device", "--listen", "127.0.0.9" }, errorText);
        QVERIFY(options);
        QCOMPARE(options->device.address, QHostAddress("127.0.0.9"));
        QCOMPARE(options->device.port, quint16(9720));
    }

    void probeOff()
    {
        QString errorText;
        const auto options = Options::parse({ "velmar-device", "--probe-port", "off" }, errorText);
        QVERIFY(options);
        QVERIFY(!options->device.probePort);
    }

    void noCards()
    {
        QString errorText;
        const auto options = Options::parse({ "velmar-device", "--no-cards" }, errorText);
        QVERIFY(options);
        QVERIFY(!options->isFullyFitted);
        QVERIFY(options->cards.isEmpty());
    }

    void wrongOptions_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("sentence");

        const QString listen("--listen: \"%1\" is not an IPv4 loopback address (127.0.0.0/8), with "
                             "or without a port.");
        const auto addListen = [&listen](const char *row, const QString &value) {
            QTest::newRow(row) << QStringList { "--listen", value } << listen.arg(value);
        };
        addListen("any address", "0.0.0.0");
        addListen("address of the network", "10.0.0.1:9720");
        addListen("IPv6", "::1");
        addListen("name", "localhost");
        addListen("port alone", "9720");
        addListen("port out of range", "127.0.0.1:65536");
        addListen("negative port", "127.0.0.1:-1");
        addListen("empty port", "127.0.0.1:");
        QTest::newRow("probe port that is a word")
            << QStringList { "--probe-port", "on" }
            << "--probe-port: \"on\" is not a port from 0 to 65535 or \"off\".";
        QTest::newRow("negative time") << QStringList { "--install-ms", "-1" }
                                       << "--install-ms: \"-1\" is no number from 0 to 2147483647.";
        QTest::newRow("time of three years")
            << QStringList { "--install-ms", "99999999999" }
            << "--install-ms: \"99999999999\" is no number from 0 to 2147483647.";
        QTest::newRow("time with a sign")
            << QStringList { "--restart-ms", "+5" }
            << "--restart-ms: \"+5\" is no number from 0 to 2147483647.";
        addListen("port with a sign", "127.0.0.1:+80");
        QTest::newRow("time with a unit")
            << QStringList { "--restart-ms", "5s" }
            << "--restart-ms: \"5s\" is no number from 0 to 2147483647.";
        QTest::newRow("no time to answer")
            << QStringList { "--heartbeat-ms", "0" }
            << "--heartbeat-ms: \"0\" is no number from 1 to 2147483647.";
        for (const char *version :
             { "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.x", "1..3.4", "1.2.3.+4", "1.2.3. 4", "" })
            QTest::newRow(qPrintable(QString("version \"%1\"").arg(version)))
                << QStringList { "--file-version", version }
                << QString(
                       "--file-version: \"%1\" is not a version such as 1.2.3.4, each part up to "
                       "255.")
                       .arg(version);
        QTest::newRow("long name") << QStringList { "--name", QString(201, 'n') }
                                   << QString("--name: \"%1\u2026\" is not a text of at most "
                                              "200 characters.")
                                          .arg(QString(200, 'n'));
        QTest::newRow("value missing")
            << QStringList { "--state" } << "--state needs a value, FOLDER.";
        QTest::newRow("cards and no cards") << QStringList { "--no-cards", "--card", "1=A" }
                                            << "--card and --no-cards exclude each other.";
        QTest::newRow("first of two faults is told")
            << QStringList { "--listen", "::1", "--probe-port", "x" } << listen.arg("::1");
        QTest::newRow("fault out of range")
            << QStringList { "--fault", "cut-transfer=101" }
            << "--fault: The value of the fault \"cut-transfer\" is a number from 0 to 100.";
    }
    void wrongOptions()
    {
        QFETCH(QStringList, options);
        QString errorText;
        QVERIFY(!Options::parse(QStringList { "velmar-device" } + options, errorText));
        QFETCH(QString, sentence);
        QCOMPARE(errorText, sentence + " See velmar-device --help");
    }

    void helpNamesEveryFault()
    {
        const QString help = Options::helpText();
        for (const FaultDescription &fault : Faults::descriptions())
            QVERIFY2(help.contains(QString("\n  %1").arg(fault.name)), fault.name);
        for (const QString &line : help.split('\n'))
            QVERIFY2(line.size() < 80, qPrintable(line));
    }

    void faultValues_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("fault");
        QTest::addColumn<qint64>("value");

        QTest::newRow("default") << "cut-transfer" << int(Fault::CutTransfer) << qint64(50);
        QTest::newRow("least") << "cut-transfer=0" << int(Fault::CutTransfer) << qint64(0);
        QTest::newRow("most") << "cut-transfer=100" << int(Fault::CutTransfer) << qint64(100);
        QTest::newRow("first read") << "drop-progress" << int(Fault::DropProgress) << qint64(1);
        QTest::newRow("third read")
            << "refuse-progress=3" << int(Fault::RefuseProgress) << qint64(3);
        QTest::newRow("pace") << "slow-link=1" << int(Fault::SlowLink) << qint64(1);
        QTest::newRow("step") << "power-cut=8" << int(Fault::PowerCut) << qint64(8);
        QTest::newRow("default word") << "silent" << int(Fault::Silent) << qint64(1);
        QTest::newRow("first word") << "silent=send" << int(Fault::Silent) << qint64(0);
        QTest::newRow("last word") << "silent=return" << int(Fault::Silent) << qint64(4);
        QTest::newRow("last of fewer words") << "gone=done" << int(Fault::Gone) << qint64(2);
    }
    void faultValues()
    {
        QFETCH(QString, text);
        QFETCH(int, fault);
        Faults faults;
        QString errorText;
        QVERIFY2(faults.add(text, errorText), qPrintable(errorText));
        QVERIFY(faults.isSet(Fault(fault)));
        QTEST(faults.value(Fault(fault), -7), "value");
        QCOMPARE(faults.value(Fault::NoReturn, -7), qint64(-7));
    }

    void secondValues_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint64>("first");
        QTest::addColumn<qint64>("second");

        QTest::newRow("neither told") << "register-ack" << qint64(1) << qint64(1);
        QTest::newRow("first told") << "register-ack=9" << qint64(9) << qint64(1);
        QTest::newRow("both told") << "register-ack=9:65535" << qint64(9) << qint64(65535);
    }
    void secondValues()
    {
        QFETCH(QString, text);
        Faults faults;
        QString errorText;
        QVERIFY2(faults.add(text, errorText), qPrintable(errorText));
        QTEST(faults.value(Fault::RegisterAck, -7), "first");
        QTEST(faults.secondValue(Fault::RegisterAck), "second");
    }

    void laterFaultCounts()
    {
        Faults faults;
        QString errorText;
        QVERIFY(faults.add("never-ends=10", errorText));
        QVERIFY(faults.add("never-ends=20", errorText));
        QCOMPARE(faults.value(Fault::NeverEnds, 0), qint64(20));
    }

    void wrongFaults_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("sentence");

        QTest::newRow("value that has no meaning") << "no-return=1"
                                                   << "The fault \"no-return\" takes no value.";
        QTest::newRow("missing value") << "slow-link"
                                       << "The fault \"slow-link\" needs a value, as in "
                                          "\"slow-link=BYTES_PER_SECOND\".";
        QTest::newRow("word for a number")
            << "never-ends=soon"
            << "The value of the fault \"never-ends\" is a number from 0 to "
               "99.";
        QTest::newRow("read number nought")
            << "drop-progress=0"
            << "The value of the fault \"drop-progress\" is a number from 1 to 2147483647.";
        QTest::newRow("second value that has no meaning")
            << "register-cut=1:2"
            << "The value of the fault \"register-cut\" is a number from 1 to 2147483647.";
        QTest::newRow("first value left out")
            << "register-ack=:2"
            << "The value of the fault \"register-ack\" is a number from 1 to 2147483647.";
        QTest::newRow("second value left out")
            << "register-ack=1:"
            << "The ACK of the fault \"register-ack\" is a number from 1 to 65535.";
        QTest::newRow("second value out of range")
            << "register-ack=1:65536"
            << "The ACK of the fault \"register-ack\" is a number from 1 to 65535.";
        QTest::newRow("second value nought")
            << "register-ack=1:0"
            << "The ACK of the fault \"register-ack\" is a number from 1 to 65535.";
        QTest::newRow("plus sign")
            << "drop-progress=+1"
            << "The value of the fault \"drop-progress\" is a number from 1 to 2147483647.";
        QTest::newRow("minus sign")
            << "never-ends=-0"
            << "The value of the fault \"never-ends\" is a number from 0 to 99.";
        QTest::newRow("blank") << "never-ends= 1"
                               << "The value of the fault \"never-ends\" is a number from 0 to 99.";
        QTest::newRow("no digit")
            << "never-ends="
            << "The value of the fault \"never-ends\" is a number from 0 to 99.";
        QTest::newRow("sign of the second value")
            << "register-ack=1:+1"
            << "The ACK of the fault \"register-ack\" is a number from 1 to 65535.";
        QTest::newRow("unknown word")
            << "gone=restart"
            << "The value of the fault \"gone\" is one of send, install, done.";
        QTest::newRow("number for a word")
            << "silent=1"
            << "The value of the fault \"silent\" is one of send, install, done, restart, return.";
        QTest::newRow("step beyond the last")
            << "power-cut=9"
            << "The value of the fault \"power-cut\" is a number from 1 to 8.";
    }
    void wrongFaults()
    {
        QFETCH(QString, text);
        Faults faults;
        QString errorText;
        QVERIFY(!faults.add(text, errorText));
        QTEST(errorText, "sentence");
    }

    void fullyFitted_data()
    {
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("cards");

        QTest::newRow("first of the catalogue") << ""
                                                << "1=0x7801:1 2=0x7802:1 3=0x7802:2 4=0x7811:1";
        QTest::newRow("by name") << "Strata S16"
                                 << "1=0x7801:1 2=0x7802:1 3=0x7802:2 4=0x7811:1 5=0x7812:1";
        QTest::newRow("by decimal id") << "30466"
                                       << "1=0x7801:1 2=0x7802:1 3=0x7802:2 4=0x7811:1 5=0x7812:1";
    }
    void fullyFitted()
    {
        QFETCH(QString, model);
        QString errorText;
        const auto fitting = Fitting::fullyFitted(Catalogue::builtin(), model, errorText);
        QVERIFY(fitting);
        QTEST(describe(*fitting), "cards");
    }

    void fullyFittedWithFewSlots()
    {
        const auto catalogue = Catalogue::fromJson(smallCatalogue(), "test", m_errorText);
        QVERIFY2(catalogue, qPrintable(m_errorText));
        const auto fitting = Fitting::fullyFitted(*catalogue, "", m_errorText);
        QVERIFY(fitting);
        QCOMPARE(describe(*fitting), QString("1=0x2:3")); // one slot, two boards
    }

    void chosenCards()
    {
        const auto fitting = Fitting::fromCards(
            Catalogue::builtin(), "0x7701",
            { "200=SI-H4 HDMI input card", "7=30722:2", "8=0x7802" }, m_errorText);
        QVERIFY2(fitting, qPrintable(m_errorText));
        QCOMPARE(describe(*fitting), QString("7=0x7802:2 8=0x7802:1 200=0x7801:1"));
        QCOMPARE(fitting->boardInSlot(7), std::optional<quint8>(2));
        QCOMPARE(fitting->boardInSlot(0), std::optional<quint8>(0));
        QVERIFY(!fitting->boardInSlot(9));
    }

    void cardWithAColonInItsName()
    {
        const auto catalogue = Catalogue::fromJson(smallCatalogue(), "test", m_errorText);
        QVERIFY(catalogue);
        for (const char *card : { "1=In:5", "1=In:5:3" }) {
            const auto fitting = Fitting::fromCards(*catalogue, "", { card }, m_errorText);
            QVERIFY2(fitting, qPrintable(m_errorText));
            QCOMPARE(describe(*fitting), QString("1=0x2:3"));
        }
    }

    void wrongCards_data()
    {
        QTest::addColumn<QStringList>("cards");
        QTest::addColumn<QString>("sentence");

        const QString shape("The card \"%1\" is not told as SLOT=MODEL[:BOARD] with a slot from 1 "
                            "to 255.");
        for (const char *card : { "0x7801", "0=0x7801", "256=0x7801", "x=0x7801", "" })
            QTest::newRow(qPrintable(QString("\"%1\"").arg(card)))
                << QStringList { card } << shape.arg(card);
        QTest::newRow("unknown model")
            << QStringList { "1=0x7899" }
            << "There is no card model \"0x7899\"; the catalogue has SI-H4 HDMI input card "
               "(0x7801), SI-D2S4 DisplayPort and SDI input card (0x7802), SO-E16 Ethernet output "
               "card (0x7811), SO-F4 fibre output card (0x7812).";
        QTest::newRow("board that is a word")
            << QStringList { "1=0x7801:a" }
            << "The board of the card \"1=0x7801:a\" is not a number from 1 to 255.";
        QTest::newRow("board nought")
            << QStringList { "1=0x7801:0" }
            << "The board of the card \"1=0x7801:0\" is not a number from 1 to 255.";
        QTest::newRow("board that the model has not")
            << QStringList { "1=0x7801:2" }
            << "The card model \"SI-H4 HDMI input card\" has no board 2.";
        QTest::newRow("card that the device does not take")
            << QStringList { "1=0x7812" }
            << "The device \"Strata S8\" takes 0 cards of model \"SO-F4 fibre output card\".";
        QTest::newRow("one card too many")
            << QStringList { "1=0x7801", "2=0x7801", "3=0x7801", "4=0x7801", "5=0x7801" }
            << "The device \"Strata S8\" takes 4 cards of model \"SI-H4 HDMI input card\".";
        QTest::newRow("slot told twice")
            << QStringList { "1=0x7801", "1=0x7802" } << "Slot 1 is told twice.";
    }
    void wrongCards()
    {
        QFETCH(QStringList, cards);
        QString errorText;
        QVERIFY(!Fitting::fromCards(Catalogue::builtin(), "Strata S8", cards, errorText));
        QTEST(errorText, "sentence");
    }

    void sectionsOfOneSlotUnderOneKind()
    {
        const auto fitting = Fitting::fromCards(Catalogue::builtin(), "Strata S8", {}, m_errorText);
        QVERIFY(fitting);
        // The back plane's section is of kind 2; a host may order it under kind 1.
        const FittedPart *const part = fitting->findPart(1, 0, 0x0105);
        QVERIFY(part != nullptr);
        QCOMPARE(part->type, quint8(2));
        QCOMPARE(part->modelId, quint32(0x7721));
        QVERIFY(fitting->findPart(1, 1, 0x0105) == nullptr);
        QCOMPARE(fitting->findPart(1, 0, 0x0101)->modelId, quint32(0x7701));
    }

    void fileVersionSection()
    {
        const auto fitting = Fitting::fromCards(Catalogue::builtin(), "Strata S8", {}, m_errorText);
        QVERIFY(fitting);
        const auto section = fitting->fileVersionSection();
        QVERIFY(section);
        QCOMPARE(section->code, quint16(0x0110));
        const auto catalogue = Catalogue::fromJson(smallCatalogue(), "test", m_errorText);
        QVERIFY(catalogue);
        QVERIFY(!Fitting::fromCards(*catalogue, "", {}, m_errorText)->fileVersionSection());
    }

private:
    /*! A device without any section, and a card that has a section of that name. */
    static QByteArray smallCatalogue()
    {
        return R"({
            "catalogueVersion": 1,
            "deviceModels": [ { "modelId": "0x0001", "name": "Box", "series": "B",
                "backPlaneModelId": "0x0000", "defaultTimeout": 1, "commandTimeouts": [],
                "sections": [], "subCards": [ { "modelId": "0x0002", "slotCount": 1 } ] } ],
            "subCardModels": [ { "modelId": "0x0002", "name": "In:5", "boards": [
                { "boardId": 3, "sections": [ { "name": "fileVersion", "type": 3,
                  "upgradeCode": "0x0001", "compatibilityCode": "0x0001", "order": 1 } ] },
                { "boardId": 4, "sections": [] } ] } ]
        })";
    }

    QString m_errorText;
};

QTEST_GUILESS_MAIN(tst_DeviceOptions)
#include "tst_deviceoptions.moc"
