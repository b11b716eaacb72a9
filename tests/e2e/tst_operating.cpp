#include "deviceprogram.h"
#include "programs.h"

#include "support/unprivileged.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTcpServer>
#include <QtTest>

#include <algorithm>
#include <csignal>

namespace {

const QString Confirmed = "0 confirmed";
const QString Outdated = "3 plan-outdated";
const QString Usage = "2 usage";

bool writeFile(const QString &path, const QByteArray &content,
               QIODevice::OpenMode mode = QIODevice::WriteOnly)
{
    QFile file(path);
    return file.open(mode) && file.write(content) == content.size();
}

QJsonObject object(const ProgramRun &run)
{
    return QJsonDocument::fromJson(run.out.toUtf8()).object();
}

/*! Private copies that are still there. */
QStringList copies()
{
    return QDir(hostFolder("cache") + "/velmar-upgrade/packages")
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

/*! A program with the settings of a file and of variables. */
ProgramRun withSettings(const QByteArray &file, const QMap<QString, QString> &variables,
                        const QStringList &arguments)
{
    const QTemporaryDir folder;
    if (!QDir(folder.path()).mkdir("velmar")
        || !writeFile(folder.filePath("velmar/upgrade.conf"), file))
        qFatal("There is no configuration file to test with");
    auto environment = hostEnvironment();
    environment.insert("XDG_CONFIG_HOME", folder.path());
    for (auto variable = variables.cbegin(); variable != variables.cend(); ++variable)
        environment.insert(variable.key(), *variable);
    return UpgradeProgram::run(arguments, environment);
}

} // namespace

/*! What an operator does around an upgrade: planning, asking, reporting, settings. */
class tst_Operating : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;

    QString path(const char *name) const { return m_folder.filePath(QLatin1String(name)); }

    static QStringList withDevice(const QStringList &words, const DeviceProgram &device)
    {
        return words + QStringList { "--device", device.address() };
    }

    ToldRun runPlan(const char *name) const
    {
        return UpgradeProgram::told({ "run", "--plan", path(name), "--yes" });
    }

private Q_SLOTS:
    void planThatCannotBeKept()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto run = UpgradeProgram::told(
            withDevice({ "plan", package.path(), "-o", path("none/plan") }, device));
        QCOMPARE(run.end(), QStringLiteral("2 usage"));
    }

    void plan()
    {
        DeviceProgram device({ "--card", "2=0x7802:2" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        const auto shown = UpgradeProgram::run(withDevice(
            { "plan", package.path(), "-o", path("plan"), "--section", "Kernel" }, device));
        QCOMPARE(shown.exitCode, 0);
        QVERIFY(shown.out.contains("  main control: Kernel (1.0.0.0 -> 1.1.0.0)\n"
                                   "What is sent, in this order:\n"));
        QVERIFY(shown.out.contains(" bytes  -> /boot/kernel.bin  (Kernel, main control)\n"));
        QVERIFY(shown.out.contains("\nWhat is left out:\n"));
        QVERIFY(shown.out.contains("\n  not-chosen: "));
        QVERIFY(!device.operations().contains("file.announce"));
        QCOMPARE(copies(), QStringList());

        const auto run = runPlan("plan");
        QCOMPARE(run.end(), Confirmed);
        QCOMPARE(device.installedFiles().keys(),
                 QStringList({ "/boot/kernel-recovery.bin", "/boot/kernel.bin" }));
        QCOMPARE(package.files(), before);

        // The versions from before are no more.
        QVERIFY(device.waitForReady(2));
        QCOMPARE(runPlan("plan").end(), Outdated);
        QCOMPARE(device.operations().count("file.announce"), 1);
    }

    void planOfAChangedPackage()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto planned = UpgradeProgram::told(
            withDevice({ "plan", package.path(), "-o", path("of-package") }, device));
        QCOMPARE(planned.end(), QStringLiteral("0 nothing-to-do"));
        QCOMPARE(planned.phases(), QStringList({ "copy", "check", "plan" }));
        QVERIFY(writeFile(package.path() + "/hdmi-input/edid.bin", "1", QIODevice::Append));
        const auto run = runPlan("of-package");
        QCOMPARE(run.end(), Outdated);
        QVERIFY2(run.texts("message").filter("edid.bin").size() == 1,
                 qPrintable(run.texts("message").join('\n')));
        QVERIFY(!device.operations().contains("file.announce"));
    }

    void planOfAChangedDevice()
    {
        DeviceProgram device({ "--card", "2=0x7802:2" });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QCOMPARE(UpgradeProgram::told(
                     withDevice({ "plan", package.path(), "-o", path("of-device") }, device))
                     .exitCode,
                 0);
        device.terminate();
        QVERIFY(device.startAgain({ "--card", "3=0x7802:2" }));
        QCOMPARE(runPlan("of-device").end(), Outdated);
        QVERIFY(!device.operations().contains("file.announce"));
    }

    void plansThatAreNone_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("arguments");

        QTest::newRow("no JSON") << QByteArray("plan") << QStringList();
        QTest::newRow("other JSON") << QByteArray("{\"format\":1}") << QStringList();
        QTest::newRow("with a choice") << QByteArray("{}") << QStringList { "--section", "MCU" };
        QTest::newRow("with a road") << QByteArray("{}") << QStringList { "--road", "http" };
    }
    void plansThatAreNone()
    {
        QFETCH(QByteArray, content);
        QFETCH(QStringList, arguments);
        QVERIFY(writeFile(path("none"), content));
        QCOMPARE(
            UpgradeProgram::told(QStringList { "run", "--plan", path("none"), "--yes" } + arguments)
                .end(),
            Usage);
    }

    void versionsAndStatus()
    {
        DeviceProgram device({ "--serial", "S8-0042", "--fault", "refuse-restart" });
        QVERIFY(device.waitForReady());
        const auto text = UpgradeProgram::run(withDevice({ "versions" }, device));
        QVERIFY(text.out.startsWith("Strata S8 (0x7701) \"Strata S8\", serial S8-0042, at "
                                    + device.address() + "\n"));
        QVERIFY(text.out.contains("  Kernel            1.0.0.0 "));
        QCOMPARE(text.exitCode, 0);
        const auto told = UpgradeProgram::told(withDevice({ "versions" }, device));
        QCOMPARE(told.end(), QStringLiteral("0 answered"));
        const auto versions = told.answer("versions");
        QCOMPARE(versions.value("serial").toString(), QStringLiteral("S8-0042"));
        const auto main = versions.value("parts").toArray().at(0).toObject();
        QCOMPARE(main.value("modelId").toInt(), 0x7701);
        QCOMPARE(main.value("sections").toArray().at(0).toObject().value("name").toString(),
                 QStringLiteral("MCU"));

        const auto state = [&device] {
            const auto run = UpgradeProgram::told(withDevice({ "status" }, device));
            return run.end() + ' ' + run.answer("status").value("state").toString();
        };
        QCOMPARE(state(), QStringLiteral("0 answered idle"));
        const ExamplePackage package;
        UpgradeProgram::run(withDevice(
            { "run", package.path(), "--yes", "--section", "Kernel", "--return-timeout", "1" },
            device));
        QCOMPARE(state(), QStringLiteral("0 answered installed"));
        QCOMPARE(device.operations().count("device.shutdown"), 1); // asked for by the upgrade alone
    }

    void report()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto run = UpgradeProgram::told(
            withDevice({ "run", package.path(), "--yes", "--section", "EDID" }, device));
        QCOMPARE(run.end(), Confirmed);
        const auto id = run.events.constFirst().value("run").toString();

        const auto last = UpgradeProgram::run({ "report" });
        const auto file = UpgradeProgram::run({ "report", id, "-o", path("report.json") });
        QCOMPARE(file.out, QStringLiteral("The run %1 is in %2\n").arg(id, path("report.json")));
        QFile written(path("report.json"));
        QVERIFY(written.open(QIODevice::ReadOnly));
        const auto content = QString::fromUtf8(written.readAll());
        QCOMPARE(content, last.out);

        const auto told = object(last);
        QCOMPARE(told.keys(),
                 QStringList({ "events", "log", "plan", "run", "schema", "versions" }));
        QCOMPARE(told.value("run").toString(), id);
        QVERIFY(!told.value("log").toArray().isEmpty());
        const auto events = told.value("events").toArray();
        QCOMPARE(events.at(events.size() - 1).toObject().value("code").toString(),
                 QStringLiteral("confirmed"));
        for (const auto &name : { package.path(), hostFolder("home"), hostFolder("cache"),
                                  hostFolder("state"), m_folder.path() })
            QVERIFY2(!content.contains(name), qPrintable(name));
        const auto user = QDir(QDir::homePath()).dirName();
        for (const auto &name : { user, QSysInfo::machineHostName() }) {
            const QRegularExpression word("\\b" + QRegularExpression::escape(name) + "\\b");
            QVERIFY2(!word.match(content).hasMatch(), qPrintable(name));
        }

        const auto none = UpgradeProgram::run({ "report", "20000101" });
        QCOMPARE(none.exitCode, 2);
        QCOMPARE(none.out, QString());
    }

    void quietWithALogFile()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto run =
            UpgradeProgram::run(withDevice({ "run", package.path(), "--yes", "--section", "EDID",
                                             "--quiet", "--log-file", path("log") },
                                           device));
        QCOMPARE(run.out, QStringLiteral("The device has the new firmware\n"));
        QCOMPARE(run.err, QString());
        QFile log(path("log"));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const auto lines = log.readAll().split('\n');
        QVERIFY(lines.first().endsWith("Z phase copy"));
        QVERIFY(lines.at(lines.size() - 2)
                    .endsWith("Z verdict confirmed: The device has the new firmware"));
        const auto isOfTheLibrary = [](const QByteArray &line) {
            return line.contains("Z debug: ");
        };
        QVERIFY(std::any_of(lines.cbegin(), lines.cend(), isOfTheLibrary));

        const auto nowhere = UpgradeProgram::told(
            withDevice({ "run", package.path(), "--yes", "--log-file", path("none/log") }, device));
        QCOMPARE(nowhere.end(), Usage);
    }

    void settings()
    {
        DeviceProgram device({ "--serial", "right" });
        DeviceProgram other({ "--serial", "wrong" });
        QVERIFY(device.waitForReady());
        QVERIFY(other.waitForReady());
        const QMap<QString, QString> noVariables;
        const QMap<QString, QString> right { { "VELMAR_DEVICE", device.address() } };
        const QMap<QString, QString> wrong { { "VELMAR_DEVICE", other.address() } };
        const auto fileRight = "# of the test\ndevice = " + device.address().toUtf8() + '\n';
        const auto fileWrong = "device = " + other.address().toUtf8() + '\n';
        const QStringList status { "status", "--json" };
        const auto serial = [](const ProgramRun &run) {
            const auto first = run.out.section('\n', 0, 0).toUtf8();
            return QJsonDocument::fromJson(first).object().value("data").toObject().value("serial");
        };

        QCOMPARE(serial(withSettings(fileRight, noVariables, status)), QJsonValue("right"));
        QCOMPARE(serial(withSettings(fileWrong, right, status)), QJsonValue("right"));
        QCOMPARE(serial(withSettings(fileWrong, wrong, withDevice(status, device))),
                 QJsonValue("right"));
        const auto without =
            withSettings(fileRight, noVariables, QStringList { "status", "--no-config" });
        QCOMPARE(without.err,
                 QStringLiteral("velmar-upgrade: No device is named. Add --device HOST[:PORT]\n"));
        QCOMPARE(without.exitCode, 2);
        const auto bad = withSettings("device = wall\ncolour = blue\n", noVariables, status);
        QVERIFY2(bad.err.contains("upgrade.conf\", line 2: "), qPrintable(bad.err));
        QCOMPARE(bad.exitCode, 2);
    }

    void textsInALocaleWithoutThem()
    {
        const QString name = QStringLiteral("W\u00e4nd \u4e2d \U0001f5bc");
        DeviceProgram device({ "--name", name });
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const QDir folder(m_folder.filePath(QStringLiteral("w\u00e4nde")));
        QVERIFY(QDir().mkpath(folder.filePath("velmar")));
        QVERIFY(QFile::rename(package.path(), folder.filePath(name)));
        const auto log = folder.filePath("l\u00f6g");
        QVERIFY(writeFile(folder.filePath("velmar/upgrade.conf"),
                          "device = " + device.address().toUtf8() + '\n'));
        auto environment = hostEnvironment();
        environment.insert("LC_ALL", "C");
        for (const char *variable : { "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME" })
            environment.insert(variable, folder.path());
        environment.insert("VELMAR_LOG_FILE", log);

        const auto text = UpgradeProgram::run({ "status" }, environment);
        QVERIFY2(text.out.startsWith("Strata S8 (0x7701) \"" + name + "\", "),
                 qPrintable(text.out + text.err));
        const auto run = UpgradeProgram::told(
            { "plan", folder.filePath(name), "--section", "EDID" }, environment);
        QCOMPARE(run.end(), QStringLiteral("0 nothing-to-do"));
        const auto plan = run.answer("plan");
        QCOMPARE(plan.value("device").toObject().value("name").toString(), name);
        QCOMPARE(plan.value("package").toObject().value("path").toString(), folder.filePath(name));
        QFile lines(log);
        QVERIFY(lines.open(QIODevice::ReadOnly));
        QVERIFY(lines.readAll().endsWith("Z verdict nothing-to-do: The plan is made\n"));
        const auto refused =
            UpgradeProgram::told({ "inspect", folder.filePath(name + "\u00df") }, environment);
        QCOMPARE(refused.end(), QStringLiteral("3 no-package"));
        QCOMPARE(refused.err,
                 QStringLiteral("velmar-upgrade: There is no package at \"%1\u00df\".\n")
                     .arg(folder.filePath(name)));
        const auto unknown = UpgradeProgram::run({ "W\u00e4nd" }, environment);
        QVERIFY2(unknown.err.contains("\"W\u00e4nd\""), qPrintable(unknown.err));
    }

    void readOnlyPackage()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        const auto before = package.files();
        QDirIterator entries(package.path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        const auto readable = QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther;
        const auto enterable = readable | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
        while (entries.hasNext()) {
            const auto name = entries.next();
            QVERIFY(QFile::setPermissions(name, QFileInfo(name).isDir() ? enterable : readable));
        }
        QVERIFY(QFile::setPermissions(package.path(), enterable));
        QVERIFY(
            QFile::setPermissions(QFileInfo(package.path()).path(), enterable | QFile::WriteOwner));

        // Everybody may read, and the user of the program owns its own folders alone.
        const QTemporaryDir home;
        QVERIFY(Unprivileged::own(home.path().toLocal8Bit()));
        auto environment = hostEnvironment();
        for (const char *name :
             { "HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME", "XDG_RUNTIME_DIR" })
            environment.insert(name, home.path());
        QProcess upgrade;
        upgrade.setProcessEnvironment(environment);
        upgrade.setWorkingDirectory(home.path());
        const auto arguments =
            withDevice({ "run", package.path(), "--yes", "--section", "SDI", "--json" }, device);
        const auto user = QString::number(Unprivileged::UserId);
        if (::geteuid() == 0)
            upgrade.start("setpriv",
                          QStringList { "--reuid", user, "--regid", user, "--clear-groups",
                                        QStringLiteral(VELMAR_UPGRADE) }
                              + arguments);
        else
            upgrade.start(QStringLiteral(VELMAR_UPGRADE), arguments);
        const auto run = finishProgram(upgrade);
        QVERIFY2(run.exitCode == 0, qPrintable(run.out + run.err));
        QCOMPARE(package.files(), before);
        QCOMPARE(device.installedFiles().keys(),
                 QStringList("/firmware/cards/7802/board2-sdi.bin"));
        QCOMPARE(QDir(home.filePath("velmar-upgrade/packages"))
                     .entryList(QDir::Dirs | QDir::NoDotAndDotDot),
                 QStringList());
        // So that it can be removed.
        QVERIFY(QFile::setPermissions(package.path(), enterable | QFile::WriteOwner));
        QDirIterator folders(package.path(), QDir::Dirs | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (folders.hasNext())
            QVERIFY(QFile::setPermissions(folders.next(), enterable | QFile::WriteOwner));
    }

    void question_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("end");

        QTest::newRow("yes") << QByteArray("y\n") << 0 << "The device has the new firmware";
        QTest::newRow("no") << QByteArray("n\n") << 130 << "The device stays as it was";
        QTest::newRow("nothing") << QByteArray("\n") << 130 << "The device stays as it was";
        QTest::newRow("Ctrl-C") << QByteArray("\x03") << 130 << "The device stays as it was";
    }
    void question()
    {
        QFETCH(QByteArray, answer);
        QFETCH(QString, end);
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        auto environment = hostEnvironment();
        environment.insert("TERM", "xterm");
        environment.insert("NO_COLOR", "1");
        QProcess terminal; // of which script is one end, and the program has the other
        terminal.setProcessEnvironment(environment);
        terminal.start(
            "script",
            { "--quiet", "--return", "--command",
              QStringLiteral("stty cols 100; exec '%1' run '%2' --section EDID --device %3")
                  .arg(QStringLiteral(VELMAR_UPGRADE), package.path(), device.address()),
              "/dev/null" });
        QByteArray shown;
        while (!shown.contains("[y/N] ") && terminal.waitForReadyRead(50000))
            shown += terminal.readAll();
        QVERIFY2(shown.contains("[3/8] Planning: done, "), shown.constData());
        QVERIFY2(shown.endsWith("Upgrade and restart the device? [y/N] "), shown.constData());
        terminal.write(answer);
        const auto run = finishProgram(terminal);
        QVERIFY2(run.out.contains("\n" + end + "\r\n")
                     || run.out.contains("\nvelmar-upgrade: " + end + "\r\n"),
                 qPrintable(run.out));
        QTEST(run.exitCode, "exitCode");
    }

    void interruptWhileCopying()
    {
        DeviceProgram device;
        QVERIFY(device.waitForReady());
        const ExamplePackage package;
        QFile large(package.path() + "/controller/large");
        QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(1LL << 29));
        UpgradeProgram upgrade(withDevice({ "run", package.path(), "--yes", "--json" }, device));
        QVERIFY(upgrade.waitForPhase("copy"));
        upgrade.interrupt(SIGINT);
        const auto run = upgrade.finishTold();
        QCOMPARE(run.end(), QStringLiteral("130 interrupted"));
        QCOMPARE(run.phases(), QStringList("copy"));
        QCOMPARE(copies(), QStringList());
        QCOMPARE(device.operations(), QStringList());
    }

    void interruptWhilePlanning_data()
    {
        QTest::addColumn<QString>("verb");

        for (const char *verb : { "run", "plan", "watch" })
            QTest::newRow(verb) << verb;
    }
    void interruptWhilePlanning()
    {
        QFETCH(QString, verb);
        QTcpServer silent; // connections are taken by the system, and nobody answers
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        const ExamplePackage package;
        QStringList words { verb, "--json", "--device",
                            QStringLiteral("127.0.0.1:%1").arg(silent.serverPort()) };
        if (verb != "watch")
            words.append(package.path());
        if (verb == "run")
            words.append("--yes");
        UpgradeProgram upgrade(words);
        QVERIFY(upgrade.waitForPhase("plan"));
        upgrade.interrupt(SIGINT);
        QCOMPARE(upgrade.finishTold().end(), QStringLiteral("130 interrupted"));
        QCOMPARE(copies(), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_Operating)
#include "tst_operating.moc"
