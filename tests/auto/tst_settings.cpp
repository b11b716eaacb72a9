#include <velmarcommandline/settings.h>

#include <QTemporaryDir>
#include <QtTest>

using namespace Velmar::Cli;

namespace {

constexpr const char *Usage[] = { "[options]" };
constexpr Option GoOptions[] = {
    Option("device", "The device.").value("HOST").setting("GO_DEVICE"),
    Option("timeout", "A limit.").number("SECONDS", 1, 86400).orElse("3600").setting("GO_TIMEOUT"),
    Option("note", "No setting.").value("TEXT"),
};
constexpr Option StayOptions[] = {
    Option("wait", "A time.").number("MS", 1, 10).setting("GO_WAIT"),
};
constexpr Verb Verbs[] = {
    { "go", "Go.", "Goes.", Usage, {}, GoOptions },
    { "stay", "Stay.", "Stays.", Usage, {}, StayOptions },
};
constexpr Option Common[] = {
    Option("key-file", "A key.").file("FILE").setting("GO_KEY_FILE"),
};
constexpr Option Settings[] = {
    Option("memory", "Memory.").number("MIB", 64, 1024).orElse("512").setting("GO_MEMORY"),
};
constexpr Program Journey = { "journey", "Goes.", "Goes.", Usage,    {},
                              {},        Verbs,   Common,  Settings, "journey/journey.conf",
                              {},        {},      {},      {},       {},
                              {} };

Command command(const QStringList &words)
{
    return *parse(Journey, words).command;
}

QProcessEnvironment environment(const QStringList &variables)
{
    QProcessEnvironment result;
    for (const QString &variable : variables)
        result.insert(variable.section('=', 0, 0), variable.section('=', 1));
    return result;
}

} // namespace

/*! Settings of the environment and of the configuration file. */
class tst_Settings : public QObject
{
    Q_OBJECT

    QTemporaryDir m_folder;
    QString m_file;

    bool writeFile(const QByteArray &text)
    {
        QFile file(m_file);
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_folder.isValid());
        m_file = m_folder.filePath("go.conf");
        QFile::remove(m_file);
    }

    void order_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QStringList>("variables");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<qint64>("timeout");
        QTest::addColumn<bool>("isGiven");
        QTest::addColumn<bool>("isSet");

        const QByteArray line("timeout = 30\n");
        QTest::newRow("command line")
            << QStringList { "--timeout", "10" } << QStringList { "GO_TIMEOUT=20" } << line
            << qint64(10) << true << true;
        QTest::newRow("environment") << QStringList {} << QStringList { "GO_TIMEOUT=20" } << line
                                     << qint64(20) << false << true;
        QTest::newRow("file") << QStringList {} << QStringList {} << line << qint64(30) << false
                              << true;
        QTest::newRow("default") << QStringList {} << QStringList {} << QByteArray() << qint64(3600)
                                 << false << false;
        QTest::newRow("empty variable") << QStringList {} << QStringList { "GO_TIMEOUT=" } << line
                                        << qint64(30) << false << true;
        // The command line is what the user has just said; what it replaces is not looked at.
        QTest::newRow("wrong variable behind the command line")
            << QStringList { "--timeout", "10" } << QStringList { "GO_TIMEOUT=x" } << line
            << qint64(10) << true << true;
    }
    void order()
    {
        QFETCH(QStringList, words);
        QFETCH(QStringList, variables);
        QFETCH(QByteArray, file);
        QVERIFY(writeFile(file));
        Command read = command(QStringList { "go" } + words);
        QString errorText;
        QVERIFY2(addSettings(read, environment(variables), m_file, errorText),
                 qPrintable(errorText));
        QTEST(read.number("timeout"), "timeout");
        QTEST(read.isGiven("timeout"), "isGiven");
        QTEST(read.isSet("timeout"), "isSet");
    }

    void everyLineOfAFile()
    {
        QVERIFY(writeFile("# a comment\n\n  device=wall = north \r\n"
                          "\tkey-file = /keys/our key.txt\n   # another\n"
                          "wait = 10\nmemory = 64"));
        Command read = command({ "go" });
        QString errorText;
        QVERIFY2(addSettings(read, {}, m_file, errorText), qPrintable(errorText));
        QCOMPARE(read.value("device"), QString("wall = north"));
        QCOMPARE(read.value("key-file"), QString("/keys/our key.txt"));
        QCOMPARE(read.number("memory"), 64);
    }

    void settingWithoutAnOption()
    {
        Command read = command({ "go" });
        QString errorText;
        QVERIFY(addSettings(read, environment({ "GO_MEMORY=100" }), QString(), errorText));
        QCOMPARE(read.number("memory"), 100);
        QVERIFY(parse(Journey, { "go", "--memory", "100" }).kind == ParseResult::Kind::Error);
    }

    void noFile()
    {
        Command read = command({ "go" });
        QString errorText;
        QVERIFY(addSettings(read, {}, m_folder.filePath("none"), errorText));
        QVERIFY(writeFile("nonsense"));
        QVERIFY(addSettings(read, {}, QString(), errorText));
        QVERIFY(!read.isSet("device"));
    }

    void variableOfAnotherVerb()
    {
        Command read = command({ "go" });
        QString errorText;
        QVERIFY(addSettings(read, environment({ "GO_WAIT=x" }), QString(), errorText));
    }

    void wrongVariable()
    {
        Command read = command({ "go" });
        QString errorText;
        QVERIFY(!addSettings(read, environment({ "GO_TIMEOUT=1 h" }), QString(), errorText));
        QCOMPARE(errorText,
                 QString("The environment variable GO_TIMEOUT: \"1 h\" is no number "
                         "from 1 to 86400"));
    }

    void wrongFiles_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("fault");

        const auto row = [](const char *name, const QByteArray &file, const char *fault) {
            QTest::newRow(name) << file << QString::fromUtf8(fault);
        };
        row("no sign", "timeout 5", ", line 1: \"timeout 5\" is not of the form name = value");
        row("unknown name", "\n# x\nspeed = 5", ", line 3: there is no setting \"speed\"");
        row("no setting", "note = 5", ", line 1: there is no setting \"note\"");
        row("name in capitals", "Timeout = 5", ", line 1: there is no setting \"Timeout\"");
        row("variable's name", "GO_TIMEOUT = 5", ", line 1: there is no setting \"GO_TIMEOUT\"");
        row("no name", "= 5", ", line 1: there is no setting \"\"");
        row("no value", "device =", ", line 1: device: the value is empty");
        row("wrong value", "timeout = 5 # s",
            ", line 1: timeout: \"5 # s\" is no number from 1 to 86400");
        row("wrong value of another verb", "wait = 11",
            ", line 1: wait: \"11\" is no number from 1 to 10");
        row("set twice", "timeout = 5\ntimeout = 5", ", line 2: timeout is set twice");
        row("relative path", "key-file = keys", ", line 1: key-file: \"keys\" is no absolute path");
        row("path from home", "key-file = ~/k", ", line 1: key-file: \"~/k\" is no absolute path");
        row("no UTF-8", "device = \xff", ", line 1: this is no text in UTF-8");
        row("null byte", QByteArray("device = a\0b", 12), ", line 1: this is no text in UTF-8");
        row("control character", "device = a\x1b", ", line 1: this is no text in UTF-8");
        row("too long", "#" + QByteArray(65536, 'x'), " has more than 65536 bytes");
    }
    void wrongFiles()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, fault);
        QVERIFY(writeFile(file));
        Command read = command({ "go" });
        QString errorText;
        QVERIFY(!addSettings(read, {}, m_file, errorText));
        QCOMPARE(errorText, QString("The configuration file \"%1\"%2").arg(m_file, fault));
    }

    void longestFile()
    {
        QVERIFY(writeFile("timeout=5\n#" + QByteArray(65536 - 11, 'x')));
        Command read = command({ "go" });
        QString errorText;
        QVERIFY2(addSettings(read, {}, m_file, errorText), qPrintable(errorText));
        QCOMPARE(read.number("timeout"), 5);
    }

    void folderForAFile()
    {
        Command read = command({ "go" });
        QString errorText;
        QVERIFY(!addSettings(read, {}, m_folder.path(), errorText));
        QCOMPARE(errorText,
                 QString("The configuration file \"%1\" is no file").arg(m_folder.path()));
    }

    void path_data()
    {
        QTest::addColumn<QStringList>("variables");
        QTest::addColumn<QString>("path");

        QTest::newRow("told") << QStringList { "XDG_CONFIG_HOME=/etc/x", "HOME=/home/a" }
                              << "/etc/x/journey/journey.conf";
        QTest::newRow("relative: not heeded") << QStringList { "XDG_CONFIG_HOME=x", "HOME=/home/a" }
                                              << "/home/a/.config/journey/journey.conf";
        QTest::newRow("home") << QStringList { "HOME=/home/a" }
                              << "/home/a/.config/journey/journey.conf";
        QTest::newRow("nowhere") << QStringList {} << "";
    }
    void path()
    {
        QFETCH(QStringList, variables);
        QTEST(configurationPath(Journey, environment(variables)), "path");
    }
};

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
