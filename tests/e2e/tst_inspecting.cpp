#include "deviceprogram.h"
#include "programs.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

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

        const auto json = UpgradeProgram::run(verb + QStringList("--json"));
        QVERIFY(json.out.contains("left\\u202ewall"));
        const auto found = QJsonDocument::fromJson(json.out.toUtf8()).array();
        QCOMPARE(found.size(), 1);
        QCOMPARE(found.at(0).toObject(),
                 QJsonObject({ { "address", device.address() },
                               { "modelId", 0x7701 },
                               { "model", "Strata S8 (0x7701)" },
                               { "serial", "S8-0042" },
                               { "name", "left\u202ewall" } }));
        QCOMPARE(json.exitCode, 0);
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

        const auto json = UpgradeProgram::run(
            { "inspect", file.fileName(), "--device", device.address(), "--json" });
        const auto object = QJsonDocument::fromJson(json.out.toUtf8()).object();
        QCOMPARE(object.value("imageConfiguration").toString(), file.fileName());
        QCOMPARE(object.value("target").toObject().value("address").toString(), device.address());
        QCOMPARE(json.exitCode, 0);
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
