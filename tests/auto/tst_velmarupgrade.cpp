#include "support/eventcheck.h"
#include "support/packagebuilder.h"
#include "support/programrun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <algorithm>

namespace {

ProgramRun upgrade(const QStringList &arguments)
{
    return runProgram(QStringLiteral(VELMAR_UPGRADE), arguments);
}

/*! The events of a run with --json. */
QVector<QJsonObject> eventsOf(const ProgramRun &run)
{
    QVector<QJsonObject> events;
    for (const auto &line : run.out.split('\n', Qt::SkipEmptyParts))
        events.append(QJsonDocument::fromJson(line.toUtf8()).object());
    return events;
}

QStringList wordsOf(const QVector<QJsonObject> &events)
{
    QStringList words;
    for (const auto &event : events)
        words.append(event.value("event").toString());
    return words;
}

QStringList linesOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

const QString MissingFile =
    "warning: main/unit.xml:1: There is no file main/none.bin. (missing-file)\n";

} // namespace

/*! The program without a device: its options, errors and exit codes. */
class tst_VelmarUpgrade : public QObject
{
    Q_OBJECT

    PackageBuilder m_package;
    QTemporaryDir m_folder; // in place of the user's

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        for (const char *name : { "HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME" })
            qputenv(name, m_folder.path().toLocal8Bit());
        QVERIFY(m_package.index({ "main", "card" }));
        QVERIFY(m_package.unit("main", "ModuleID='7701' StepType='0' Version='3.2.1.0'",
                               "<FileInfo FileLabel='MCU' FileName='mcu.bin'/>"
                               "<FileInfo FileLabel='FPGA' FileName='none.bin'/>"
                               "<FileInfo FileLabel='Fan' FileName='mcu.bin'/>"));
        QVERIFY(m_package.file("main/mcu.bin", QByteArray(1234, 'm')));
        QVERIFY(m_package.unit("card", "ModuleID='7801' StepType='1'",
                               "<FileInfo FileLabel='EDID' FileName='edid.bin' ExtendNum='1'/>"));
        QVERIFY(m_package.file("card/edid.bin", "edid"));
        QVERIFY(m_package.paths({ { "main/mcu.bin", "/fw/mcu" } }));
    }

    void version()
    {
        const auto run = upgrade({ "--version" });
        QCOMPARE(run.out, QStringLiteral("velmar-upgrade " VELMAR_VERSION "\n"));
        QCOMPARE(run.err, QString());
        QCOMPARE(run.exitCode, 0);
    }

    void help_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("usage");
        QTest::addColumn<QStringList>("mentioned");

        QTest::newRow("program") << QStringList { "--help" }
                                 << "Usage: velmar-upgrade VERB [options]"
                                 << QStringList { "inspect", "run",      "watch",  "devices",
                                                  "plan",    "versions", "status", "report" };
        QTest::newRow("short option")
            << QStringList { "-h" } << "Usage: velmar-upgrade VERB [options]" << QStringList {};
        QTest::newRow("inspect") << QStringList { "inspect", "--help" }
                                 << "Usage: velmar-upgrade inspect PACKAGE [options]"
                                 << QStringList { "--device HOST[:PORT]", "--model", "--json",
                                                  "--catalogue", "--verbose" };
        QTest::newRow("run") << QStringList { "run", "-h" }
                             << "Usage: velmar-upgrade run PACKAGE --device HOST[:PORT] [options]"
                             << QStringList { "--section",   "--card",     "--road",
                                              "--yes",       "--timeout",  "--key-file",
                                              "--catalogue", "restarts it" };
        QTest::newRow("watch") << QStringList { "watch", "--help" }
                               << "Usage: velmar-upgrade watch --device HOST[:PORT] [options]"
                               << QStringList { "the device is restarted, as", "--restart" };
        QTest::newRow("devices") << QStringList { "devices", "--help" }
                                 << "Usage: velmar-upgrade devices [options]"
                                 << QStringList { "--probe-address", "--wait", "--json" };
        QTest::newRow("help goes before errors")
            << QStringList { "run", "--help", "--nonsense" }
            << "Usage: velmar-upgrade run PACKAGE --device HOST[:PORT] [options]" << QStringList {};
    }
    void help()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, mentioned);
        const auto run = upgrade(arguments);
        QTEST(run.out.section('\n', 0, 0), "usage");
        for (const auto &text : mentioned)
            QVERIFY2(run.out.contains(text), qPrintable(text));
        QCOMPARE(run.err, QString());
        QCOMPARE(run.exitCode, 0);
    }

    void manualKnowsEveryOption()
    {
        QFile manual(QStringLiteral(VELMAR_DOCS "/velmar-upgrade.md"));
        QVERIFY(manual.open(QIODevice::ReadOnly));
        const auto sections = QString::fromUtf8(manual.readAll()).split("\n## ");
        const QStringList common { "help",    "device", "json",     "catalogue",
                                   "verbose", "quiet",  "log-file", "no-config" };
        const auto textOf = [&sections](const QString &verb) {
            const auto found =
                std::find_if(sections.cbegin(), sections.cend(), [&verb](const QString &section) {
                    const auto title = section.section('\n', 0, 0);
                    return title.split(QRegularExpression(", | and ")).contains(verb);
                });
            return found == sections.cend() ? QString() : *found;
        };
        for (const QString verb :
             { "inspect", "plan", "run", "watch", "versions", "status", "report", "devices" }) {
            auto text = textOf(verb);
            QVERIFY2(!text.isEmpty(), qPrintable(verb));
            if (text.contains("The other options are those of `run`"))
                text += textOf("run");
            const auto help = upgrade({ verb, "--help" }).out;
            auto options = QRegularExpression("^ +(?:-([a-z]), )?--([a-z-]+)",
                                              QRegularExpression::MultilineOption)
                               .globalMatch(help);
            QVERIFY(options.hasNext());
            while (options.hasNext()) {
                const auto option = options.next();
                const auto letter = option.captured(1);
                const bool isTold = common.contains(option.captured(2))
                    || text.contains("`--" + option.captured(2))
                    || (!letter.isEmpty() && text.contains("`-" + letter));
                QVERIFY2(isTold, qPrintable(verb + ' ' + option.captured(2)));
            }
        }
    }

    void errors_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("err");

        const auto row = [](const char *name, const QStringList &arguments, int exitCode,
                            const QString &err) {
            QTest::newRow(name) << arguments << exitCode
                                << QStringLiteral("velmar-upgrade: %1\n").arg(err);
        };
        const QString package = m_package.path();
        row("no verb", {}, 2, "No verb is given. See velmar-upgrade --help");
        row("unknown verb", { "upgrade" }, 2,
            "There is no verb \"upgrade\". See velmar-upgrade --help");
        row("verb with control characters", { "a\x1b" }, 2,
            "There is no verb \"a\\x1b\". See velmar-upgrade --help");
        row("unknown option", { "run", package, "--nonsense" }, 2,
            "There is no option \"--nonsense\". See velmar-upgrade run --help");
        row("option without its value", { "watch", "--device" }, 2,
            "--device needs a value, HOST[:PORT]. See velmar-upgrade watch --help");
        row("no package", { "inspect" }, 2,
            "PACKAGE is missing. See velmar-upgrade inspect --help");
        row("run without a package", { "run", "--device", "wall" }, 2,
            "No package is named: give PACKAGE, or --plan FILE. See velmar-upgrade run --help");
        row("two packages", { "inspect", package, "other" }, 2,
            "Unexpected argument \"other\". See velmar-upgrade inspect --help");
        row("argument for a verb without", { "devices", "wall" }, 2,
            "Unexpected argument \"wall\". See velmar-upgrade devices --help");
        row("run without a device", { "run", package }, 2,
            "No device is named. Add --device HOST[:PORT]");
        row("watch without a device", { "watch" }, 2,
            "No device is named. Add --device HOST[:PORT]");
        row("bad port", { "watch", "--device", "wall:port" }, 2,
            "--device: \"port\" is no port: give a number from 1 to 65535");
        row("time limit 0", { "run", package, "--device", "wall", "--timeout", "0" }, 2,
            "--timeout: \"0\" is no number from 1 to 86400. See velmar-upgrade run --help");
        row("time limit beyond a day", { "watch", "--device", "wall", "--timeout", "86401" }, 2,
            "--timeout: \"86401\" is no number from 1 to 86400. See velmar-upgrade watch --help");
        row("unknown road", { "run", package, "--device", "wall", "--road", "sea" }, 2,
            "--road: \"sea\" is none of native, http, registers. See velmar-upgrade run --help");
        row("image for another road", { "run", package, "--device", "wall", "--file", "x" }, 2,
            "--file is for --road http alone");
        row("compatibility for another road",
            { "run", package, "--device", "wall", "--compatibility" }, 2,
            "--compatibility is for --road http alone");
        row("stall limit that is none",
            { "run", package, "--device", "wall", "--road", "http", "--file", "x",
              "--stall-timeout", "0" },
            2,
            "--stall-timeout: \"0\" is no number from 1 to 86400. See velmar-upgrade run --help");
        row("section on the register road",
            { "run", package, "--device", "wall", "--road", "registers", "--section", "MCU" }, 2,
            "Nothing but the main control's MCU goes register by register. Leave --section and "
            "--card out");
        row("card on the register road",
            { "run", package, "--device", "wall", "--road", "registers", "--card", "main" }, 2,
            "Nothing but the main control's MCU goes register by register. Leave --section and "
            "--card out");
        row("nobody to ask", { "run", package, "--device", "wall" }, 2,
            "Nobody can be asked: the input is no terminal. Add --yes to upgrade without a "
            "question");
        row("catalogue that is not there",
            { "run", package, "--device", "wall", "--yes", "--catalogue", "none.json" }, 2,
            "--catalogue: none.json: cannot be read: No such file or directory");
        row("key file that is not there",
            { "run", package, "--device", "wall", "--yes", "--key-file", "none.key" }, 2,
            "--key-file: none.key: No such file or directory");
        row("device and model", { "inspect", package, "--device", "wall", "--model", "1" }, 2,
            "--device and --model exclude each other. Give one of them");
        row("unknown model", { "inspect", package, "--model", "Strata S9" }, 2,
            "--model: there is no device model \"Strata S9\". There are: Strata S8 (0x7701), "
            "Strata S16 (0x7702)");
        row("image configuration file without a device", { "inspect", package + "/main/mcu.bin" },
            2, "An image configuration file is read against a device. Add --device HOST[:PORT]");
        row("no such folder", { "inspect", package + "/none" }, 3,
            "There is no package at \"" + package + "/none\".");
        row("probe of a name", { "devices", "--probe-address", "wall" }, 2,
            "--probe-address: \"wall\" is no numeric address");
        row("probe of no address", { "devices", "--probe-address", ":1" }, 2,
            "--probe-address: \":1\" is no address: give HOST or HOST:PORT");
        row("address of control characters", { "status", "--device", "a\x1b[2J" }, 2,
            "--device: \"a\\x1b[2J\" is no address: give HOST or HOST:PORT");
        row("log file of control characters",
            { "inspect", package, "--log-file", "none\x1b\u202e/log" }, 2,
            "--log-file: none\\x1b\\u{202e}/log cannot be written: No such file or directory");
        row("plan of control characters", { "run", "--plan", "none\x1b" }, 2,
            "--plan: none\\x1b is no file");
        row("catalogue of control characters",
            { "devices", "--catalogue", QString(300, 'n') + "/none\x1b" }, 2,
            "--catalogue: " + QString(300, 'n') + "/none\\x1b: cannot be read: File name too long");
        row("nothing to be quiet about", { "status", "--quiet" }, 2,
            "There is no option \"--quiet\". See velmar-upgrade status --help");
        row("no log of a report", { "report", "--log-file", "log" }, 2,
            "There is no option \"--log-file\". See velmar-upgrade report --help");
        row("no events of a report", { "report", "-v" }, 2,
            "There is no option \"-v\". See velmar-upgrade report --help");
        row("no time to wait", { "devices", "--wait", "0" }, 2,
            "--wait: \"0\" is no number from 1 to 60000. See velmar-upgrade devices --help");
    }
    void errors()
    {
        QFETCH(QStringList, arguments);
        const auto run = upgrade(arguments);
        QTEST(run.err, "err");
        QTEST(run.exitCode, "exitCode");
        QCOMPARE(run.out, QString());
    }

    void inspectRaw()
    {
        const auto run = upgrade({ "inspect", m_package.path() });
        QCOMPARE(run.out,
                 QStringLiteral("Package %1\n"
                                "\n"
                                "Unit main: main control Strata S8 (0x7701), version 3.2.1.0\n"
                                "  MCU          mcu.bin                            1234\n"
                                "  FPGA         none.bin                        missing\n"
                                "  Fan          mcu.bin                            1234\n"
                                "\n"
                                "Unit card: card SI-H4 HDMI input card (0x7801)\n"
                                "  EDID         edid.bin                              4  board 1\n")
                     .arg(m_package.path()));
        QCOMPARE(run.err, MissingFile);
        QCOMPARE(run.exitCode, 0);
    }

    void inspectForAModel()
    {
        const auto run = upgrade({ "inspect", m_package.path(), "--model", "strata s8" });
        const auto lines = run.out.split('\n');
        QVERIFY2(lines.contains("  MCU          mcu.bin                            1234  fits main "
                                "control -> /fw/mcu"),
                 qPrintable(run.out));
        QVERIFY(
            lines.contains("  FPGA         none.bin                        missing  does not fit"));
        QVERIFY(
            lines.contains("  Fan          mcu.bin                            1234  does not fit"));
        QVERIFY(lines.contains("Unit card: card SI-H4 HDMI input card (0x7801); whether it fits is "
                               "known with a device alone"));
        QVERIFY(lines.contains("  EDID         edid.bin                              4  board 1"));
        QVERIFY(lines.contains("What fits Strata S8 (0x7701):"));
        QVERIFY(lines.contains("  main control: MCU"));
        QCOMPARE(run.err, MissingFile);
        QCOMPARE(run.exitCode, 0);
    }

    void inspectForAModelThatNothingFits()
    {
        PackageBuilder package;
        QVERIFY(package.index({ "main" }));
        QVERIFY(package.unit("main", "ModuleID='7702' StepType='0'",
                             "<FileInfo FileLabel='MCU' FileName='mcu.bin'/>"));
        QVERIFY(package.file("main/mcu.bin"));
        QVERIFY(package.paths({ { "main/mcu.bin", "/fw/mcu" } }));
        const auto run = upgrade({ "inspect", package.path(), "--model", "0x7701" });
        QVERIFY(run.out.endsWith("What fits Strata S8 (0x7701):\n  nothing\n"));
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The upgrade package configuration does not match "
                                "the device configuration.\n"
                                "  cause: The upgrade package configuration does not match the "
                                "device configuration.\n"));
        QCOMPARE(run.exitCode, 3);
    }

    void inspectAsJson()
    {
        const auto run = upgrade({ "inspect", m_package.path(), "--model", "0x7701", "--json" });
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.err, QString());
        QCOMPARE(eventFaults(run.out.toUtf8()), QByteArray());
        const auto events = eventsOf(run);
        QCOMPARE(wordsOf(events), QStringList({ "message", "inspect", "verdict" }));
        QCOMPARE("warning: " + events.at(0).value("text").toString() + '\n', MissingFile);
        QCOMPARE(events.at(2).value("code").toString(), QStringLiteral("answered"));
        const auto object = events.at(1).value("data").toObject();
        QCOMPARE(object.value("package").toString(), m_package.path());
        QCOMPARE(object.value("target").toObject().value("modelId").toInt(), 0x7701);
        const auto units = object.value("units").toArray();
        QCOMPARE(units.size(), 2);
        const auto file = units.at(0).toObject().value("files").toArray().at(0).toObject();
        QCOMPARE(file.value("section").toString(), QStringLiteral("MCU"));
        QCOMPARE(file.value("bytes").toInt(), 1234);
        QCOMPARE(file.value("fits").toArray(), QJsonArray { "main control" });
        QCOMPARE(file.value("targetPaths").toArray(), QJsonArray { "/fw/mcu" });
        const auto missing = units.at(0).toObject().value("files").toArray().at(1).toObject();
        QVERIFY(missing.value("bytes").isNull());
        QCOMPARE(missing.value("fits").toArray(), QJsonArray());
        const auto card = units.at(1).toObject().value("files").toArray().at(0).toObject();
        QVERIFY(!card.contains("fits"));
        const auto part = object.value("parts").toArray().at(0).toObject();
        QCOMPARE(part.value("part").toString(), QStringLiteral("main control"));
        QCOMPARE(part.value("sections").toArray().at(0).toObject().value("code").toInt(), 0x101);
    }

    void logOnRequest()
    {
        const auto run = upgrade({ "inspect", m_package.path(), "--model", "0x7702", "-v" });
        QVERIFY2(run.err.startsWith(MissingFile + "log: "), qPrintable(run.err));
        const auto json =
            upgrade({ "inspect", m_package.path(), "--model", "0x7702", "-v", "--json" });
        QCOMPARE(eventFaults(json.out.toUtf8()), QByteArray());
        QCOMPARE(wordsOf(eventsOf(json)), QStringList({ "message", "log", "inspect", "verdict" }));
    }

    void quietInspection()
    {
        const auto run = upgrade({ "inspect", m_package.path(), "--model", "0x7702", "-qv" });
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The upgrade package configuration does not match "
                                "the device configuration.\n"
                                "  cause: The upgrade package configuration does not match the "
                                "device configuration.\n"));
        QVERIFY(run.out.startsWith("Package " + m_package.path() + '\n'));
        QCOMPARE(run.exitCode, 3);
    }

    void logFileOfAnInspection()
    {
        const auto path = m_folder.filePath("inspect.log");
        const auto run =
            upgrade({ "inspect", m_package.path(), "--model", "0x7702", "--log-file", path });
        QCOMPARE(run.exitCode, 3);
        auto lines = linesOf(path);
        for (auto &line : lines)
            line.remove(QRegularExpression("^[0-9-]{10}T[0-9:.]{12}Z "));
        const QString mismatch =
            "The upgrade package configuration does not match the device configuration.";
        QCOMPARE(lines,
                 QStringList({ MissingFile.trimmed(), "debug: " + mismatch,
                               "verdict nothing-fits: " + mismatch }));
    }

    void packageThatBreaksARule()
    {
        PackageBuilder package;
        QVERIFY(package.index({ "gone\u009b31m" }));
        QVERIFY(package.paths({}));
        const auto run = upgrade({ "inspect", package.path() });
        QCOMPARE(run.err,
                 QStringLiteral("velmar-upgrade: The package breaks a rule\n"
                                "  cause: PackageCfg.xml: The name of the unit's folder, "
                                "\"gone\\x9b31m\", has a control character. (unit-name)\n"));
        QCOMPARE(run.out, QString());
        QCOMPARE(run.exitCode, 3);
    }

    void usageErrorAsJson_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("code");

        QTest::newRow("no device") << QStringList { "run", "package" } << 2 << "usage";
        QTest::newRow("unknown option") << QStringList { "run", "--nonsense" } << 2 << "usage";
        QTest::newRow("nobody is asked")
            << QStringList { "run", "package", "--device", "wall" } << 2 << "usage";
        QTest::newRow("run of a file") << QStringList { "run", m_package.path() + "/main/mcu.bin",
                                                        "--device", "wall", "--yes" }
                                       << 3 << "no-package";
        QTest::newRow("inspection of nothing")
            << QStringList { "inspect", m_package.path() + "/none" } << 3 << "no-package";
        QTest::newRow("status without a device") << QStringList { "status" } << 2 << "usage";
        QTest::newRow("inspect for a model that nothing fits")
            << QStringList { "inspect", m_package.path(), "--model", "0x7702" } << 3
            << "nothing-fits";
        QTest::newRow("report") << QStringList { "report" } << 2 << "usage";
    }
    void usageErrorAsJson()
    {
        QFETCH(QStringList, arguments);
        const auto run = upgrade(arguments + QStringList("--json"));
        QCOMPARE(eventFaults(run.out.toUtf8()), QByteArray());
        const auto last = run.out.trimmed().section('\n', -1).toUtf8();
        const auto verdict = QJsonDocument::fromJson(last).object();
        QTEST(verdict.value("code").toString(), "code");
        QCOMPARE(verdict.value("data").toObject().value("exitCode").toInt(), run.exitCode);
        QTEST(run.exitCode, "exitCode");
    }

    // Each thread would get a stack that is larger than all addresses.
    void noRoomForAThread()
    {
        const auto run = runProgram(QStringLiteral("sh"),
                                    { "-c", "ulimit -s 137438953472 && exec \"$@\"", "sh",
                                      QStringLiteral(VELMAR_UPGRADE), "status", "--no-config",
                                      "--device", "127.0.0.1:1", "--json" });
        if (run.exitCode == 2 && run.err.contains(QLatin1String("ulimit")))
            QSKIP("The system has a limit for stacks");
        QCOMPARE(eventFaults(run.out.toUtf8()), QByteArray());
        QVERIFY2(run.err.startsWith("velmar-upgrade: The system has no room for a thread: "),
                 qPrintable(run.err));
        QCOMPARE(run.exitCode, 1);
    }

    void nobodyListens()
    {
        QTcpServer server; // takes a free port and gives it back
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const auto address = QStringLiteral("127.0.0.1:%1").arg(server.serverPort());
        server.close();
        const auto run = upgrade({ "run", m_package.path(), "--device", address, "--yes" });
        QVERIFY2(run.err.contains("\nvelmar-upgrade: " + address + " cannot be reached: "),
                 qPrintable(run.err));
        QCOMPARE(run.exitCode, 4);
    }

    void noDeviceAnswers()
    {
        QUdpSocket socket; // somebody is there, but says nothing
        QVERIFY(socket.bind(QHostAddress::LocalHost));
        const auto address = QStringLiteral("127.0.0.1:%1").arg(socket.localPort());
        const auto run =
            upgrade({ "devices", "--probe-address", address, "--wait", "100", "--json" });
        QCOMPARE(eventFaults(run.out.toUtf8()), QByteArray());
        QCOMPARE(eventsOf(run).constLast().value("code").toString(), QStringLiteral("unreachable"));
        QCOMPARE(
            run.err,
            QStringLiteral("velmar-upgrade: No device has answered at %1. Check the network, or "
                           "name a device's address with --probe-address\n")
                .arg(address));
        QCOMPARE(run.exitCode, 4);
    }
};

QTEST_GUILESS_MAIN(tst_VelmarUpgrade)
#include "tst_velmarupgrade.moc"
