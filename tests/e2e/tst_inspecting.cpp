#include "deviceprogram.h"
#include "programs.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUdpSocket>
#include <QtTest>

#include <csignal>

namespace {

/*! Private copies that are still there. */
QStringList copies()
{
    return QDir(hostFolder("cache") + "/velmar-upgrade/packages")
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

} // namespace

/*! What an operator learns before an upgrade: devices, what fits them, and why nothing does. */
class tst_Inspecting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void devices()
    {
        DeviceProgram device({ "--serial", "S8-0042", "--name", "left\u202ewall" });
        QVERIFY(device.waitForReady());
        const QStringList verb { "devices", "--probe-address", device.probeAddress(), "--wait",
                                 "1000" };
        const auto text = UpgradeProgram::run(verb);
        QCOMPARE(text.out,
                 device.address().leftJustified(21)
                     + "  Strata S8 (0x7701)    S8-0042           left\\u{202e}wall\n");
        QCOMPARE(text.err, QString());
        QCOMPARE(text.exitCode, 0);

        const auto json = UpgradeProgram::told(verb);
        QCOMPARE(json.end(), QStringLiteral("0 answered"));
        QCOMPARE(json.events.size(), 2);
        QCOMPARE(json.events.at(0).value("event").toString(), QStringLiteral("devices"));
        const auto found = json.events.at(0).value("data").toArray();
        QCOMPARE(found.size(), 1);
        QCOMPARE(found.at(0).toObject(),
                 QJsonObject({ { "address", device.address() },
                               { "modelId", 0x7701 },
                               { "model", "Strata S8 (0x7701)" },
                               { "serial", "S8-0042" },
                               { "name", "left\u202ewall" } }));
    }

    void inspectForADevice()
    {
        DeviceProgram device({ "--card", "2=0x7802:2" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        const auto run =
            UpgradeProgram::run({ "inspect", package.path(), "--device", device.address() });
        QVERIFY2(run.out.endsWith("What fits Strata S8 (0x7701) at " + device.address()
                                  + ":\n  main control: MCU, FPGA, Kernel, MCU_Back\n"
                                    "  card 2: FPGA, SDI\n"),
                 qPrintable(run.out));
        QVERIFY(run.out.contains("  board 1  does not fit\n"));
        QVERIFY(
            run.out.contains("  board 2  fits card 2 -> /firmware/cards/7802/board2-sdi.bin\n"));
        QCOMPARE(run.err, QString());
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(package.files(), before);
        QCOMPARE(device.operations(), QStringList("hello"));
    }

    void imageConfigurationFile()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        QTemporaryDir folder;
        QFile file(folder.filePath("image.cfg"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QByteArray text =
            QByteArray(R"([{"mainControl":[{"modelId":30465,"sections":[{"code":257}]}]}])")
                .toBase64();
        file.write(QByteArray(1, char(text.size())) + QByteArray(3, '\0') + text);
        file.close();
        const auto run =
            UpgradeProgram::run({ "inspect", file.fileName(), "--device", device.address() });
        QCOMPARE(run.out,
                 QStringLiteral("%1 is an image configuration file that %2 takes\n")
                     .arg(file.fileName(), device.address()));
        QCOMPARE(run.exitCode, 0);

        const auto json =
            UpgradeProgram::told({ "inspect", file.fileName(), "--device", device.address() });
        QCOMPARE(json.end(), QStringLiteral("0 answered"));
        const auto object = json.answer("inspect");
        QCOMPARE(object.value("imageConfiguration").toString(), file.fileName());
        QCOMPARE(object.value("target").toObject().value("address").toString(), device.address());
    }

    void nothingFits_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("err");

        QTest::newRow("section")
            << QStringList { "--section", "EDID" }
            << "velmar-upgrade: Nothing fits for section \"EDID\". What fits: main control: MCU, "
               "FPGA, Kernel, MCU_Back";
        QTest::newRow("card") << QStringList { "--card", "7" }
                              << "velmar-upgrade: Nothing fits for card \"7\". What fits: main "
                                 "control: MCU, FPGA, Kernel, MCU_Back";
    }
    void nothingFits()
    {
        QFETCH(QStringList, arguments);
        DeviceProgram device({ "--no-cards" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto run = UpgradeProgram::run(
            QStringList { "run", package.path(), "--device", device.address(), "--yes" }
            + arguments);
        QTEST(run.err.section('\n', 0, 0), "err");
        QVERIFY(run.err.contains("\n  verdict: failed (not-planned)\n"));
        QCOMPARE(run.exitCode, 3);
        QVERIFY(!device.operations().contains("file.announce"));
    }

    void packageForAnotherModel()
    {
        DeviceProgram device({ "--model", "0x7702", "--no-cards" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto run =
            UpgradeProgram::run({ "run", package.path(), "--device", device.address(), "--yes" });
        QCOMPARE(run.err.section('\n', 0, 0),
                 QStringLiteral("velmar-upgrade: The upgrade package configuration does not match "
                                "the device configuration."));
        QCOMPARE(run.exitCode, 3);
    }

    void interruptedQuestion_data()
    {
        QTest::addColumn<QStringList>("verb");
        QTest::addColumn<int>("signalNumber");

        QTest::newRow("versions") << QStringList("versions") << SIGINT;
        QTest::newRow("status, terminated") << QStringList("status") << SIGTERM;
        QTest::newRow("inspect") << QStringList { "inspect", QStringLiteral(VELMAR_EXAMPLE) }
                                 << SIGINT;
    }
    void interruptedQuestion()
    {
        QFETCH(QStringList, verb);
        QFETCH(int, signalNumber);
        const ExamplePackage package;
        verb.replaceInStrings(QStringLiteral(VELMAR_EXAMPLE), package.path());
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        const auto device = QStringLiteral("127.0.0.1:%1").arg(silent.serverPort());
        UpgradeProgram upgrade(verb + QStringList { "--device", device, "--json" });
        QVERIFY(silent.waitForNewConnection(50000));
        auto *connection = silent.nextPendingConnection();
        QVERIFY(connection->bytesAvailable() > 0 || connection->waitForReadyRead(50000));
        upgrade.interrupt(signalNumber);
        QCOMPARE(upgrade.finishTold().end(), QStringLiteral("130 interrupted"));
        QCOMPARE(copies(), QStringList());
    }

    void interruptedSearch()
    {
        QUdpSocket silent;
        QVERIFY(silent.bind(QHostAddress::LocalHost));
        UpgradeProgram upgrade({ "devices", "--wait", "60000", "--probe-address",
                                 QStringLiteral("127.0.0.1:%1").arg(silent.localPort()) });
        QVERIFY(silent.hasPendingDatagrams() || silent.waitForReadyRead(50000));
        upgrade.interrupt(SIGINT);
        const auto run = upgrade.finish();
        QCOMPARE(run.err, QStringLiteral("velmar-upgrade: Interrupted. Nothing was changed\n"));
        QCOMPARE(run.out, QString());
        QCOMPARE(run.exitCode, 130);
    }

    void interruptedCopy()
    {
        const ExamplePackage package;
        QFile large(package.path() + "/controller/large");
        QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(1LL << 29));
        UpgradeProgram upgrade({ "inspect", package.path(), "--json" });
        QTRY_VERIFY_WITH_TIMEOUT(!copies().isEmpty(), 50000);
        upgrade.interrupt(SIGINT);
        QCOMPARE(upgrade.finishTold().end(), QStringLiteral("130 interrupted"));
        QCOMPARE(copies(), QStringList());
    }

    void logFiles_data()
    {
        QTest::addColumn<QStringList>("verb");
        QTest::addColumn<QString>("verdict");

        QTest::newRow("devices") << QStringList { "devices", "--wait", "1000" }
                                 << "Z verdict answered: 1 device has answered";
        QTest::newRow("versions") << QStringList("versions")
                                  << "Z verdict answered: The device has told its versions";
        QTest::newRow("status") << QStringList("status")
                                << "Z verdict answered: It installs nothing";
        QTest::newRow("no device") << QStringList { "status", "--device", "127.0.0.1:1" }
                                   << "Z verdict unreachable: 127.0.0.1:1 cannot be reached: no "
                                      "connection to 127.0.0.1 port 1: Connection refused. Check "
                                      "the address, and that the device is switched on";
    }
    void logFiles()
    {
        QFETCH(QStringList, verb);
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const QTemporaryDir folder;
        QFile log(folder.filePath("log"));
        if (verb.constFirst() == "devices")
            verb += QStringList { "--probe-address", device.probeAddress() };
        else if (!verb.contains("--device"))
            verb += QStringList { "--device", device.address() };
        UpgradeProgram::run(verb + QStringList { "--log-file", log.fileName() });
        QVERIFY(log.open(QIODevice::ReadOnly));
        const auto last = QString::fromUtf8(log.readAll()).trimmed().section('\n', -1);
        QTEST(last.mid(last.indexOf("Z ")), "verdict");
    }

    void catalogue()
    {
        QTemporaryDir folder;
        QFile builtin(QStringLiteral(VELMAR_CATALOGUE));
        QVERIFY(builtin.open(QIODevice::ReadOnly));
        QFile changed(folder.filePath("models.json"));
        QVERIFY(changed.open(QIODevice::WriteOnly));
        changed.write(builtin.readAll().replace("\"0x7701\"", "\"0x7791\""));
        changed.close();
        DeviceProgram device({ "--catalogue", changed.fileName() });
        QVERIFY(device.waitForReady());

        const auto without = UpgradeProgram::run({ "watch", "--device", device.address() });
        QCOMPARE(without.err.section('\n', 0, 0),
                 QStringLiteral("velmar-upgrade: The device at %1 is of model 0x7791, which the "
                                "catalogue does not know. Use a catalogue that describes it")
                     .arg(device.address()));
        QCOMPARE(without.exitCode, 4);
        const auto with = UpgradeProgram::told(
            { "watch", "--device", device.address(), "--catalogue", changed.fileName() });
        QCOMPARE(with.end(), QStringLiteral("0 nothing-to-do"));
    }
};

QTEST_GUILESS_MAIN(tst_Inspecting)
#include "tst_inspecting.moc"
