#include <velmarcommandline/command.h>
#include <velmarcommandline/completions.h>
#include <velmarcommandline/helptext.h>
#include <velmarcommandline/manpage.h>

#include <QtTest>

#include <limits>

using namespace Velmar::Cli;

namespace {

QStringList ports()
{
    return { QStringLiteral("off") };
}

constexpr const char *Roads[] = { "sea", "air" };
constexpr Option GoOptions[] = {
    Option("device", "The device.").value("HOST").letter('d'),
    Option("section", "A section.").value("NAME").repeatable(),
    Option("road", "It's a [road]: C:\\.").word("ROAD", Roads).orElse("sea"),
    Option("timeout", "A limit.").number("SECONDS", 1, 86400).orElse("3600"),
    Option("bytes", "A size.").number("BYTES", 0, std::numeric_limits<qint64>::max()),
    Option("output", "A file.").file("FILE").letter('o'),
    Option("port", "A port.").value("PORT").suggest(ports),
    Option("yes", "Do not ask.").letter('y'),
};
constexpr Argument GoArguments[] = {
    { "PACKAGE", "A folder.", ValueKind::Folder },
    { "NOTE", "A text.", ValueKind::Text, true },
};
constexpr const char *GoUsage[] = { "PACKAGE [NOTE]" };
constexpr const char *StayUsage[] = { "[options]" };
constexpr Verb Verbs[] = {
    { "go", "Go.", "Goes.\n\nAnd does not stop.", GoUsage, GoArguments, GoOptions },
    { "stay", "Stay.", "Stays.", StayUsage, {}, {} },
    { "work", "Work.", "Works.", StayUsage, {}, {}, true },
};
constexpr Option Common[] = { Option("verbose", "Say more.").letter('v'), helpOption() };
constexpr Option Front[] = { helpOption(), versionOption() };
constexpr const char *Usage[] = { "VERB [options]" };
constexpr ExitStatus Statuses[] = { { 0, "Done." } };

constexpr Program Journey = {
    "journey", "Goes and stays.", "Goes and stays.", Usage, {}, Front, Verbs, Common,
    {},        nullptr,           Statuses,          {},    {}, {},    {},    {}
};

constexpr Argument Files[] = { { "FILE", "A file.", ValueKind::File } };
constexpr const char *ShowUsage[] = { "FILE" };
constexpr Option ShowOptions[] = {
    Option("size", "A size.").number("N", 1, 9),
    helpOption(),
    versionOption(),
};
constexpr Program Show = { "show",  "Shows.", "Shows.", ShowUsage, Files, ShowOptions, {}, {},  {},
                           nullptr, {},       {},       {},        {},    {},          {}, true };

} // namespace

/*! What is made of a table: the reading of a command line, and the texts. */
class tst_CommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyForm()
    {
        const auto result = parse(Journey,
                                  { "go", "--device", "wall", "-yv", "--section=MCU", "package",
                                    "--section", "FPGA", "-oplan", "--", "--yes" });
        QCOMPARE(result.errorText, QString());
        QVERIFY(result.kind == ParseResult::Kind::Command);
        const Command &command = *result.command;
        QCOMPARE(command.verb()->name, "go");
        QCOMPARE(command.value("device"), QString("wall"));
        QCOMPARE(command.values("section"), (QStringList { "MCU", "FPGA" }));
        QCOMPARE(command.value("output"), QString("plan"));
        QVERIFY(command.isGiven("yes"));
        QVERIFY(command.isSet("verbose"));
        QVERIFY(!command.isSet("road"));
        QCOMPARE(command.value("road"), QString("sea"));
        QCOMPARE(command.number("timeout"), 3600);
        QCOMPARE(command.arguments(), (QStringList { "package", "--yes" }));
    }

    void values_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("device");

        QTest::newRow("next word") << QStringList { "--device", "a" } << "a";
        QTest::newRow("behind the sign") << QStringList { "--device=a=b" } << "a=b";
        QTest::newRow("empty behind the sign") << QStringList { "--device=" } << "";
        QTest::newRow("empty word") << QStringList { "--device", "" } << "";
        QTest::newRow("letter") << QStringList { "-d", "a" } << "a";
        QTest::newRow("behind the letter") << QStringList { "-da" } << "a";
        QTest::newRow("begins with a dash") << QStringList { "--device", "-1" } << "-1";
        QTest::newRow("as an option, behind the sign")
            << QStringList { "--device=--yes" } << "--yes";
        QTest::newRow("two dashes") << QStringList { "--device", "--" } << "--";
        QTest::newRow("letters, the last with a value") << QStringList { "-yvd", "a" } << "a";
    }
    void values()
    {
        QFETCH(QStringList, words);
        const auto result = parse(Journey, QStringList { "go", "package" } + words);
        QCOMPARE(result.errorText, QString());
        QTEST(result.command->value("device"), "device");
    }

    void numbers()
    {
        const auto result = parse(Journey, { "go", "p", "--bytes", "9223372036854775807" });
        QCOMPARE(result.command->number("bytes"), std::numeric_limits<qint64>::max());
    }

    void oneDashIsAnArgument()
    {
        const auto result = parse(Journey, { "go", "-" });
        QCOMPARE(result.command->arguments(), QStringList { "-" });
    }

    void faults_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("sentence");

        const auto row = [](const char *name, const QStringList &words, const char *sentence) {
            QTest::newRow(name) << words << QString::fromUtf8(sentence);
        };
        row("nothing", {}, "No verb is given. See journey --help");
        row("unknown verb", { "run" }, "There is no verb \"run\". See journey --help");
        row("verb with control characters", { "a\x1b[1m\n" },
            "There is no verb \"a\\x1b[1m\\x0a\". See journey --help");
        row("turned words", { QString::fromUtf8("a\u202eb") },
            "There is no verb \"a\\u{202e}b\". See journey --help");
        row("option in front of the verb", { "--yes", "go" },
            "There is no option \"--yes\". See journey --help");
        row("unknown option", { "go", "p", "--no=1" },
            "There is no option \"--no\". See journey go --help");
        row("option of another verb", { "stay", "--yes" },
            "There is no option \"--yes\". See journey stay --help");
        row("part of a name", { "go", "p", "--dev", "a" },
            "There is no option \"--dev\". See journey go --help");
        row("unknown letter", { "go", "p", "-yx" },
            "There is no option \"-x\". See journey go --help");
        row("value missing at the end", { "go", "p", "--device" },
            "--device needs a value, HOST. See journey go --help");
        row("letter's value missing", { "go", "p", "-d" },
            "-d needs a value, HOST. See journey go --help");
        row("option for a value", { "go", "p", "--device", "--yes" },
            "--device needs a value, HOST. --yes is an option. See journey go --help");
        row("value of a flag", { "go", "p", "--yes=1" },
            "--yes takes no value. See journey go --help");
        row("given twice", { "go", "p", "-d", "a", "--device=b" },
            "--device is given twice. See journey go --help");
        row("none of the words", { "go", "p", "--road", "Sea" },
            "--road: \"Sea\" is none of sea, air. See journey go --help");
        row("number below", { "go", "p", "--timeout=0" },
            "--timeout: \"0\" is no number from 1 to 86400. See journey go --help");
        row("number above", { "go", "p", "--timeout=86401" },
            "--timeout: \"86401\" is no number from 1 to 86400. See journey go --help");
        row("number with a sign", { "go", "p", "--timeout=+5" },
            "--timeout: \"+5\" is no number from 1 to 86400. See journey go --help");
        row("number with a blank", { "go", "p", "--timeout= 5" },
            "--timeout: \" 5\" is no number from 1 to 86400. See journey go --help");
        row("no number", { "go", "p", "--timeout=" },
            "--timeout: \"\" is no number from 1 to 86400. See journey go --help");
        row("number beyond 64 bits", { "go", "p", "--bytes=9223372036854775808" },
            "--bytes: \"9223372036854775808\" is no number from 0 to 9223372036854775807. See "
            "journey go --help");
        row("digits of another script", { "go", "p", QString::fromUtf8("--timeout=\u0665") },
            "--timeout: \"\u0665\" is no number from 1 to 86400. See journey go --help");
        row("empty path", { "go", "p", "--output=" },
            "--output: an empty path names nothing. See journey go --help");
        row("argument missing", { "go" }, "PACKAGE is missing. See journey go --help");
        row("argument empty", { "go", "" }, "PACKAGE is empty. See journey go --help");
        row("too many arguments", { "go", "a", "b", "c" },
            "Unexpected argument \"c\". See journey go --help");
        row("argument of a verb without", { "stay", "a" },
            "Unexpected argument \"a\". See journey stay --help");
        row("first of two faults", { "go", "--timeout=0", "--no" },
            "--timeout: \"0\" is no number from 1 to 86400. See journey go --help");
    }
    void faults()
    {
        QFETCH(QStringList, words);
        const auto result = parse(Journey, words);
        QVERIFY(result.kind == ParseResult::Kind::Error);
        QTEST(result.errorText, "sentence");
        QVERIFY(!result.command);
    }

    void longWordIsCut()
    {
        const auto result = parse(Journey, { QString(1000000, 'x') });
        QCOMPARE(result.errorText,
                 QString::fromUtf8("There is no verb \"%1\u2026\". See journey --help")
                     .arg(QString(200, 'x')));
    }

    void questions_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<bool>("isHelp");
        QTest::addColumn<QString>("verb");

        QTest::newRow("help") << QStringList { "--help" } << true << "";
        QTest::newRow("letter") << QStringList { "-h" } << true << "";
        QTest::newRow("of a verb") << QStringList { "go", "--help" } << true << "go";
        QTest::newRow("before errors")
            << QStringList { "go", "--no", "--timeout=0", "-h" } << true << "go";
        QTest::newRow("version") << QStringList { "--version" } << false << "";
    }
    void questions()
    {
        QFETCH(QStringList, words);
        QFETCH(bool, isHelp);
        const auto result = parse(Journey, words);
        QVERIFY(result.kind == (isHelp ? ParseResult::Kind::Help : ParseResult::Kind::Version));
        QTEST(QString(result.verb ? result.verb->name : ""), "verb");
    }

    void questionsThatAreNone()
    {
        const auto value = parse(Journey, { "go", "p", "--section", "-h" });
        QVERIFY(value.kind == ParseResult::Kind::Command);
        QCOMPARE(value.command->value("section"), QString("-h"));
        const auto argument = parse(Journey, { "go", "p", "--", "--help" });
        QVERIFY(argument.kind == ParseResult::Kind::Command);
        QVERIFY(parse(Journey, { "go", "--version" }).kind == ParseResult::Kind::Error);
    }

    void hiddenVerb()
    {
        const auto result = parse(Journey, { "work" });
        QCOMPARE(result.command->verb()->name, "work");
        QVERIFY(parse(Journey, { "work", "--verbose" }).kind == ParseResult::Kind::Error);
        QVERIFY(!helpText(Journey).contains("work"));
        QVERIFY(!manPage(Journey, "1", "2024-05-06").contains("work"));
        for (const auto &text :
             { bashCompletion(Journey), zshCompletion(Journey), fishCompletion(Journey) })
            QVERIFY(!text.contains("work"));
    }

    void programWithoutVerbs()
    {
        const auto result = parse(Show, { "a" });
        QVERIFY(result.kind == ParseResult::Kind::Command);
        QCOMPARE(result.command->verb(), nullptr);
        QCOMPARE(result.command->arguments(), QStringList { "a" });
        QCOMPARE(parse(Show, {}).errorText, QString("FILE is missing. See show --help"));
        QCOMPARE(parse(Show, { "--no" }).errorText,
                 QString("There is no option \"--no\". See show --help"));
    }

    void laterIsTaken()
    {
        QCOMPARE(parse(Show, { "--size", "1", "a", "--size=2" }).command->number("size"), 2);
        QCOMPARE(parse(Show, { "--size", "0", "a", "--size=2" }).errorText,
                 QString("--size: \"0\" is no number from 1 to 9. See show --help"));
    }

    void helpOfAVerb()
    {
        QCOMPARE(helpText(Journey, findVerb(Journey, "go")),
                 QString("Usage: journey go PACKAGE [NOTE]\n"
                         "\n"
                         "Goes.\n"
                         "\n"
                         "And does not stop.\n"
                         "\n"
                         "Arguments:\n"
                         "  PACKAGE  A folder.\n"
                         "  NOTE     A text.\n"
                         "\n"
                         "Options:\n"
                         "  -d, --device HOST  The device.\n"
                         "  --section NAME     A section. Repeatable.\n"
                         "  --road ROAD        It's a [road]: C:\\. ROAD is sea or air. Default: "
                         "sea.\n"
                         "  --timeout SECONDS  A limit. From 1 to 86400. Default: 3600.\n"
                         "  --bytes BYTES      A size. From 0 to 9223372036854775807.\n"
                         "  -o, --output FILE  A file.\n"
                         "  --port PORT        A port.\n"
                         "  -y, --yes          Do not ask.\n"
                         "\n"
                         "Options of every verb:\n"
                         "  -v, --verbose  Say more.\n"
                         "  -h, --help     Show this help.\n"));
    }

    void helpOfTheProgram()
    {
        QCOMPARE(helpText(Journey),
                 QString("Usage: journey VERB [options]\n"
                         "\n"
                         "Goes and stays.\n"
                         "\n"
                         "Verbs:\n"
                         "  go PACKAGE [NOTE]  Go.\n"
                         "  stay               Stay.\n"
                         "\n"
                         "Options:\n"
                         "  -h, --help  Show this help.\n"
                         "  --version   Show the version.\n"
                         "\n"
                         "Exit status:\n"
                         "  0  Done.\n"
                         "\n"
                         "journey VERB --help explains the options of a verb.\n"));
    }

    void manualPage()
    {
        const QByteArray page = manPage(Journey, "1.2", "2024-05-06");
        QVERIFY(page.startsWith(".TH JOURNEY 1 2024-05-06 \"journey 1.2\"\n"
                                ".SH NAME\njourney \\- goes and stays\n"
                                ".SH SYNOPSIS\n\\fBjourney go\\fR \\fIPACKAGE\\fR "
                                "[\\fINOTE\\fR]\n.br\n\\fBjourney stay\\fR [options]\n"));
        QVERIFY(page.contains("\n.TP\n\\fB\\-\\-road\\fR \\fIROAD\\fR\nIt's a [road]: C:\\e.\n"
                              "ROAD is sea or air.\nDefault: sea.\n.TP\n"));
        QVERIFY(page.contains(".SH OPTIONS\n"
                              "These options are taken by every verb; the others stand with their "
                              "verbs.\n"
                              ".TP\n\\fB\\-v\\fR, \\fB\\-\\-verbose\\fR\nSay more.\n"
                              ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nShow this help.\n"
                              ".PP\nIn place of a verb:\n"
                              ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nShow this help.\n"
                              ".TP\n\\fB\\-\\-version\\fR\nShow the version.\n"));
    }

    void marksOfTheShells()
    {
        QVERIFY(zshCompletion(Journey).contains(
            "'--road=[It'\\''s a \\[road\\]\\: C\\:\\\\]:ROAD:(sea air)'"));
        QVERIFY(zshCompletion(Journey).contains(
            "'(-o --output)'{-o+,--output=}'[A file]:FILE:_files'"));
        QVERIFY(zshCompletion(Journey).contains("'*--section=[A section]:NAME: '"));
        QVERIFY(fishCompletion(Journey).contains(
            " -l road -x -a 'sea air' -d 'It\\'s a [road]: C:\\\\'\n"));
        QVERIFY(fishCompletion(Journey).contains(" -s o -l output -r -F -d 'A file'\n"));
        QVERIFY(bashCompletion(Journey).contains("\n        --road) words='sea air' ;;\n"));
        QVERIFY(bashCompletion(Journey).contains("\n        -o|--output) paths=default ;;\n"));
        QVERIFY(bashCompletion(Journey).contains("\n        --port) words='off' ;;\n"));
    }
};

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
