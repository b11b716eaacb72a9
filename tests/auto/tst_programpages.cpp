#include "velmar-device/programtable.h"
#include "velmar-package/programtable.h"
#include "velmar-relay/programtable.h"
#include "velmar-upgrade/options.h"

#include <velmarcommandline/command.h>
#include <velmarcommandline/completions.h>
#include <velmarcommandline/helptext.h>
#include <velmarcommandline/manpage.h>

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QtTest>

#include <algorithm>

using namespace Velmar;
using namespace Velmar::Cli;

Q_DECLARE_METATYPE(const Program *)

namespace {

QString nameOf(const Option &option)
{
    return QLatin1String("--") + QLatin1String(option.name());
}

/*! True if \a text has \a word with nothing around it that could belong to it. */
bool hasWord(const QString &text, const QString &word)
{
    const QRegularExpression found(
        QStringLiteral("(?<![\\w-])%1(?![\\w-])").arg(QRegularExpression::escape(word)));
    return text.contains(found);
}

/*! The part of \a text from a line that begins with \a first to one that begins with \a last. */
QString part(const QString &text, const QString &first, const QString &last)
{
    const int begin = text.indexOf(QLatin1Char('\n') + first);
    const int end = text.indexOf(QLatin1Char('\n') + last, begin + 1);
    return begin < 0 ? QString() : text.mid(begin, end < 0 ? -1 : end - begin);
}

/*! \a page as it is read, without the marks of fonts and hyphens. */
QString withoutMarks(const QByteArray &page)
{
    return QString::fromUtf8(page)
        .remove(QStringLiteral("\\fB"))
        .remove(QStringLiteral("\\fI"))
        .remove(QStringLiteral("\\fR"))
        .replace(QStringLiteral("\\-"), QStringLiteral("-"));
}

} // namespace

/*! What is made of the programs' tables: help, manual pages, completions. */
class tst_ProgramPages : public QObject
{
    Q_OBJECT

    void addPrograms()
    {
        QTest::addColumn<const Program *>("program");
        for (const Program *program : { &UpgradeProgram, &Simulator::DeviceProgram,
                                        &Package::PackageProgram, &Relay::RelayProgram })
            QTest::newRow(program->name) << program;
    }

private Q_SLOTS:
    void tableIsSound_data() { addPrograms(); }
    void tableIsSound()
    {
        QFETCH(const Program *, program);
        QSet<QString> verbs;
        const auto check = [](const std::vector<const Option *> &options, const QString &usage) {
            QSet<QString> names;
            QSet<char> letters;
            for (const Option *option : options) {
                QVERIFY2(!names.contains(nameOf(*option)), option->name());
                QVERIFY2(option->letter() == 0 || !letters.contains(option->letter()),
                         option->name());
                names.insert(nameOf(*option));
                letters.insert(option->letter());
                QVERIFY2(QString(option->text()).endsWith('.'), option->name());
                if (option->isSetting())
                    QVERIFY2(option->hasValue() && !option->isRepeatable(), option->name());
                if (option->defaultValue() != nullptr)
                    QCOMPARE(valueFault(*option, option->defaultValue()), QString());
            }
            auto used = QRegularExpression("--[a-z-]+").globalMatch(usage);
            while (used.hasNext()) {
                const QString name = used.next().captured();
                QVERIFY2(names.contains(name), qPrintable(name));
            }
        };
        check(optionsOf(*program, nullptr), QString());
        for (const Verb &verb : program->verbs) {
            QVERIFY2(!verbs.contains(verb.name), verb.name);
            verbs.insert(verb.name);
            QString usage;
            for (const char *each : verb.usage)
                usage += each;
            check(optionsOf(*program, &verb), usage);
        }
        for (const Option *setting : settingsOf(*program)) {
            const QString expected = QString("VELMAR_%1").arg(QString(setting->name()).toUpper());
            QCOMPARE(QString(setting->variable()), QString(expected).replace('-', '_'));
        }
    }

    void help_data() { addPrograms(); }
    void help()
    {
        QFETCH(const Program *, program);
        QStringList texts { helpText(*program) };
        for (const Option *option : optionsOf(*program, nullptr))
            QVERIFY2(hasWord(texts.first(), nameOf(*option)), option->name());
        for (const Verb &verb : program->verbs) {
            QCOMPARE(hasWord(part(texts.first(), "Verbs:", "Options:"), verb.name), !verb.isHidden);
            const QString text = helpText(*program, &verb);
            for (const Option *option : optionsOf(*program, &verb))
                QVERIFY2(hasWord(text, nameOf(*option)), option->name());
            texts.append(text);
        }
        for (const QString &text : texts) {
            QVERIFY(text.endsWith('\n'));
            for (const QString &line : text.split('\n'))
                QVERIFY2(line.size() <= 79, qPrintable(line));
        }
    }

    void manualPage_data() { addPrograms(); }
    void manualPage()
    {
        QFETCH(const Program *, program);
        const QByteArray page = manPage(*program, "1.2.3", "2024-05-06");
        QVERIFY(page.contains(" 1 2024-05-06 \"" + QByteArray(program->name) + " 1.2.3\"\n"));
        for (const char *section : { "NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS",
                                     "EXAMPLES", "SEE ALSO" })
            QVERIFY2(page.contains(QByteArray("\n.SH ") + section + '\n'), section);
        const QString text = withoutMarks(page);
        for (const Option *option : optionsOf(*program, nullptr))
            QVERIFY2(hasWord(part(text, ".SH OPTIONS", ".SH EXIT"), nameOf(*option)),
                     option->name());
        for (const Option &option : program->common)
            QVERIFY2(hasWord(part(text, ".SH OPTIONS", ".SH EXIT"), nameOf(option)), option.name());
        const QString verbs = part(text, ".SH VERBS", ".SH OPTIONS");
        for (const Verb &verb : program->verbs) {
            const QString own = part(verbs, QString(".SS \"%1").arg(verb.name), ".SS");
            QCOMPARE(own.isEmpty(), verb.isHidden);
            for (const Option &option : verb.options)
                QVERIFY2(verb.isHidden || hasWord(own, nameOf(option)), option.name());
            for (const Argument &argument : verb.arguments)
                QVERIFY2(verb.isHidden || hasWord(own, argument.name), argument.name);
        }
        for (const Option *setting : settingsOf(*program)) {
            QVERIFY2(hasWord(part(text, ".SH ENVIRONMENT", ".SH FILES"), setting->variable()),
                     setting->variable());
            QVERIFY2(hasWord(part(text, ".SH FILES", ".SH EXAMPLES"), setting->name()),
                     setting->name());
        }
        for (const ExitStatus &status : program->exitStatus)
            QVERIFY(part(text, ".SH EXIT STATUS", ".SH E")
                        .contains(QString("\n.TP\n%1\n").arg(status.code)));
        for (const Section &section : program->sections) {
            for (const auto &item : section.items())
                QVERIFY2(text.contains("\n.TP\n" + item.term + '\n'), qPrintable(item.term));
        }
    }

    void settingsOfThePage()
    {
        QFile page(QStringLiteral(VELMAR_DOCS "/host/command-line.md"));
        QVERIFY(page.open(QIODevice::ReadOnly));
        const auto table =
            QString::fromUtf8(page.readAll()).section("| Setting |", 1).section("\n\n", 0, 0);
        QStringList told = table.split('\n').mid(2);
        QStringList known;
        for (const Option *setting : settingsOf(UpgradeProgram)) {
            const bool isOption =
                std::none_of(UpgradeProgram.settings.begin(), UpgradeProgram.settings.end(),
                             [setting](const Option &other) {
                                 return qstrcmp(other.name(), setting->name()) == 0;
                             });
            known.append(QString("| `%1` | `%2` | %3|")
                             .arg(setting->name(), setting->variable(),
                                  isOption ? QString("`%1` ").arg(nameOf(*setting)) : QString()));
        }
        told.sort();
        known.sort();
        QCOMPARE(told, known);
    }

    void bash_data() { addPrograms(); }
    void bash()
    {
        QFETCH(const Program *, program);
        const QString text = bashCompletion(*program);
        QVERIFY(text.endsWith(QString(" %1\n").arg(program->name)));
        if (program->verbs.isEmpty())
            checkOptions(text, optionsOf(*program, nullptr));
        for (const Verb &verb : program->verbs) {
            const QString own = part(text, QString("    %1)").arg(verb.name), "        ;;");
            QCOMPARE(own.isEmpty(), verb.isHidden);
            QCOMPARE(hasWord(part(text, "    '')", "        ;;"), verb.name), !verb.isHidden);
            if (!verb.isHidden)
                checkOptions(own, optionsOf(*program, &verb));
        }
    }

    void zsh_data() { addPrograms(); }
    void zsh()
    {
        QFETCH(const Program *, program);
        const QString text = zshCompletion(*program);
        QVERIFY(text.startsWith(QString("#compdef %1\n").arg(program->name)));
        if (program->verbs.isEmpty())
            checkOptions(text, optionsOf(*program, nullptr));
        for (const Verb &verb : program->verbs) {
            const QString own = part(text, QString("    %1)\n").arg(verb.name), "        ;;");
            QCOMPARE(own.isEmpty(), verb.isHidden);
            QCOMPARE(text.contains(QString("\n        '%1:").arg(verb.name)), !verb.isHidden);
            if (!verb.isHidden)
                checkOptions(own, optionsOf(*program, &verb));
        }
    }

    void fish_data() { addPrograms(); }
    void fish()
    {
        QFETCH(const Program *, program);
        const QStringList lines = QString(fishCompletion(*program)).split('\n');
        if (program->verbs.isEmpty()) {
            for (const Option *option : optionsOf(*program, nullptr))
                QCOMPARE(lines.filter(QString(" -l %1 ").arg(option->name())).size(), 1);
        }
        for (const Verb &verb : program->verbs) {
            QCOMPARE(lines.filter(QString("_verb -a %1 ").arg(verb.name)).size(),
                     verb.isHidden ? 0 : 1);
            const QStringList own = lines.filter(QString("_verb %1' ").arg(verb.name));
            QCOMPARE(own.isEmpty(), verb.isHidden);
            for (const Option *option : optionsOf(*program, &verb)) {
                QVERIFY2(verb.isHidden
                             || own.filter(QString(" -l %1 ").arg(option->name())).size() == 1,
                         option->name());
            }
        }
    }

private:
    static void checkOptions(const QString &text, const std::vector<const Option *> &options)
    {
        for (const Option *option : options) {
            QVERIFY2(hasWord(text, nameOf(*option)), option->name());
            QStringList words = option->suggestions();
            for (const char *word : option->words())
                words.append(word);
            for (const QString &word : words)
                QVERIFY2(hasWord(text, word), qPrintable(word));
        }
    }
};

QTEST_GUILESS_MAIN(tst_ProgramPages)
#include "tst_programpages.moc"
