#include "velmarcommandline/manpage.h"

#include "optiontext.h"

#include <QRegularExpression>

namespace Velmar::Cli {

namespace {

/*! \a text for roff, without a meaning to it. */
QString escaped(const QString &text)
{
    QString result = text;
    result.replace(QLatin1Char('\\'), QLatin1String("\\e"));
    result.replace(QLatin1Char('-'), QLatin1String("\\-"));
    // A dot or quote at the begin of a line would be a macro.
    if (result.startsWith(QLatin1Char('.')) || result.startsWith(QLatin1Char('\'')))
        result.prepend(QLatin1String("\\&"));
    return result;
}

bool endsSentence(const QString &word)
{
    static const QRegularExpression end(QStringLiteral("[.!?](\"|\\)|\\\\fR)*$"));
    return word.contains(end);
}

/*! \a text in lines of at most 80 characters, none of which looks like a macro. A sentence begins a
    line, since only behind the end of one it gets the wider blank of its own. */
QString folded(const QString &text)
{
    constexpr int Width = 80;
    QString lines;
    QString line;
    for (const QString &word : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const bool isMacro =
            word.startsWith(QLatin1Char('.')) || word.startsWith(QLatin1Char('\''));
        if (!line.isEmpty() && !isMacro && line.size() + 1 + word.size() > Width) {
            lines += line + QLatin1Char('\n');
            line = word;
        } else if (line.isEmpty()) {
            line = (isMacro ? QLatin1String("\\&") : QLatin1String()) + word;
        } else {
            line += QLatin1Char(' ') + word;
        }
        if (endsSentence(word)) {
            lines += line + QLatin1Char('\n');
            line.clear();
        }
    }
    lines += line;
    if (lines.endsWith(QLatin1Char('\n')))
        lines.chop(1);
    return lines;
}

/*! Running text: names of options are bold. Hyphens within words stay hyphens. */
QString prose(const QString &text)
{
    static const QRegularExpression option(
        QStringLiteral("(?<![\\w-])(--[a-z][a-z-]*|-[a-z])(?![\\w-])"));
    QString result;
    int behind = 0;
    const auto plain = [&text](int from, int to) {
        QString part = text.mid(from, to - from);
        part.replace(QLatin1Char('\\'), QLatin1String("\\e"));
        return part;
    };
    for (auto matches = option.globalMatch(text); matches.hasNext();) {
        const auto match = matches.next();
        result += plain(behind, match.capturedStart()) + QLatin1String("\\fB")
            + escaped(match.captured()) + QLatin1String("\\fR");
        behind = match.capturedEnd();
    }
    return folded(result + plain(behind, text.size()));
}

/*! What stands behind a program's name: options bold, what stands for a value in italics. */
QString usage(const QString &text)
{
    static const QRegularExpression word(
        QStringLiteral("(--?[a-z][a-z-]*)|([A-Z][A-Z_]*)|([^-A-Z]+|.)"));
    QString result;
    for (auto matches = word.globalMatch(text); matches.hasNext();) {
        const auto match = matches.next();
        if (!match.captured(1).isEmpty())
            result += QLatin1String("\\fB") + escaped(match.captured(1)) + QLatin1String("\\fR");
        else if (!match.captured(2).isEmpty())
            result += QLatin1String("\\fI") + match.captured(2) + QLatin1String("\\fR");
        else
            result += match.captured(3);
    }
    return result;
}

class Page
{
public:
    void line(const QString &text) { m_text += text + QLatin1Char('\n'); }

    void section(const char *title) { line(QLatin1String(".SH ") + QLatin1String(title)); }

    void item(const QString &term, const QString &text)
    {
        line(QLatin1String(".TP"));
        line(term);
        line(prose(text));
    }

    void option(const Option &option) { item(usage(optionTerm(option)), optionText(option)); }

    void description(const char *text)
    {
        bool isFirst = true;
        for (const QString &paragraph : paragraphs(text)) {
            if (!isFirst)
                line(QLatin1String(".PP"));
            isFirst = false;
            line(prose(paragraph));
        }
    }

    QByteArray bytes() const { return m_text.toUtf8(); }

private:
    QString m_text;
};

void addSynopsis(Page &page, const Program &program)
{
    QStringList commands;
    const auto add = [&](const QString &words, const QString &behind) {
        commands.append(QStringLiteral("\\fB%1\\fR %2").arg(escaped(words), usage(behind)));
    };
    const QString name = QLatin1String(program.name);
    for (const Verb &verb : program.verbs) {
        if (verb.isHidden)
            continue;
        for (const char *each : verb.usage)
            add(name + QLatin1Char(' ') + QLatin1String(verb.name), QLatin1String(each));
    }
    if (program.verbs.isEmpty()) {
        for (const char *each : program.usage)
            add(name, QLatin1String(each));
    } else {
        for (const Option &option : program.options)
            add(name, QLatin1String("--") + QLatin1String(option.name()));
    }
    page.section("SYNOPSIS");
    page.line(commands.join(QLatin1String("\n.br\n")));
}

void addVerbs(Page &page, const Program &program)
{
    page.section("VERBS");
    for (const Verb &verb : program.verbs) {
        if (verb.isHidden)
            continue;
        QString heading = QLatin1String(verb.name);
        for (const Argument &argument : verb.arguments)
            heading += QString::fromLatin1(argument.isOptional ? " [%1]" : " %1")
                           .arg(QLatin1String(argument.name));
        page.line(QStringLiteral(".SS \"%1\"").arg(escaped(heading)));
        page.description(verb.description);
        for (const Argument &argument : verb.arguments)
            page.item(usage(QLatin1String(argument.name)), QString::fromUtf8(argument.text));
        for (const Option &option : verb.options)
            page.option(option);
    }
}

void addOptions(Page &page, const Program &program)
{
    page.section("OPTIONS");
    if (!program.verbs.isEmpty())
        page.line(QStringLiteral("These options are taken by every verb; the others stand with "
                                 "their verbs."));
    for (const Argument &argument : program.arguments)
        page.item(usage(QLatin1String(argument.name)), QString::fromUtf8(argument.text));
    for (const Option &option : program.common)
        page.option(option);
    if (!program.verbs.isEmpty()) {
        page.line(QLatin1String(".PP"));
        page.line(QStringLiteral("In place of a verb:"));
    }
    for (const Option &option : program.options)
        page.option(option);
}

void addEnvironment(Page &page, const Program &program)
{
    const auto settings = settingsOf(program);
    if (settings.empty() && program.environment.isEmpty())
        return;
    page.section("ENVIRONMENT");
    if (!settings.empty())
        page.line(prose(QStringLiteral("An option of the command line goes before its variable, "
                                       "and a variable before the configuration file. An empty "
                                       "variable is none.")));
    for (const Option *setting : settings) {
        bool hasOption = true;
        for (const Option &each : program.settings)
            hasOption = hasOption && &each != setting;
        page.item(QStringLiteral("\\fB%1\\fR").arg(QLatin1String(setting->variable())),
                  hasOption ? QStringLiteral("As --%1.").arg(QLatin1String(setting->name()))
                            : optionText(*setting));
    }
    for (const Entry &entry : program.environment)
        page.item(QStringLiteral("\\fB%1\\fR").arg(QLatin1String(entry.term)),
                  QString::fromUtf8(entry.text));
}

void addFiles(Page &page, const Program &program)
{
    if (program.configurationFile == nullptr && program.files.isEmpty())
        return;
    page.section("FILES");
    if (program.configurationFile != nullptr) {
        QStringList names;
        for (const Option *setting : settingsOf(program))
            names.append(QLatin1String(setting->name()));
        page.item(
            QStringLiteral("\\fI%1\\fR")
                .arg(escaped(QLatin1String("~/.config/")
                             + QLatin1String(program.configurationFile))),
            QStringLiteral("The configuration file, with one setting a line, as in "
                           "\"timeout = 600\". Lines that begin with # are comments. Paths "
                           "are absolute. Anything else is an error. The settings are those of "
                           "the environment: %1.")
                .arg(names.join(QStringLiteral(", "))));
    }
    for (const Entry &entry : program.files)
        page.item(QStringLiteral("\\fI%1\\fR").arg(escaped(QLatin1String(entry.term))),
                  QString::fromUtf8(entry.text));
}

void addExamples(Page &page, const Program &program)
{
    if (program.examples.isEmpty())
        return;
    page.section("EXAMPLES");
    bool isFirst = true;
    for (const Example &example : program.examples) {
        if (!isFirst)
            page.line(QLatin1String(".PP"));
        isFirst = false;
        page.line(prose(QString::fromUtf8(example.text)));
        page.line(QLatin1String(".PP"));
        page.line(QLatin1String(".RS 4"));
        page.line(QLatin1String(".nf"));
        for (const QString &command : QString::fromUtf8(example.command).split(QLatin1Char('\n')))
            page.line(escaped(command));
        page.line(QLatin1String(".fi"));
        page.line(QLatin1String(".RE"));
    }
}

void addSeeAlso(Page &page, const Program &program)
{
    if (program.seeAlso.isEmpty())
        return;
    page.section("SEE ALSO");
    QStringList pages;
    for (const char *other : program.seeAlso) {
        const QString name = QLatin1String(other);
        const int bracket = name.indexOf(QLatin1Char('('));
        pages.append(
            QStringLiteral(".BR %1 %2").arg(escaped(name.left(bracket)), name.mid(bracket)));
    }
    page.line(pages.join(QStringLiteral(" ,\n")));
}

} // namespace

QByteArray manPage(const Program &program, const QString &version, const QString &date)
{
    Page page;
    const QString name = QLatin1String(program.name);
    page.line(
        QStringLiteral(".TH %1 1 %2 \"%3 %4\"").arg(escaped(name.toUpper()), date, name, version));
    page.section("NAME");
    QString summary = QString::fromUtf8(program.summary); // as whatis(1) shows it: no sentence
    summary.chop(1);
    page.line(
        QStringLiteral("%1 \\- %2").arg(escaped(name), summary.left(1).toLower() + summary.mid(1)));
    addSynopsis(page, program);
    page.section("DESCRIPTION");
    page.description(program.description);
    if (!program.verbs.isEmpty())
        addVerbs(page, program);
    addOptions(page, program);
    for (const Section &section : program.sections) {
        page.line(QStringLiteral(".SH %1").arg(QString::fromUtf8(section.title).toUpper()));
        for (const Section::Item &item : section.items())
            page.item(QStringLiteral("\\fB%1\\fR").arg(escaped(item.term)), item.text);
    }
    if (!program.exitStatus.isEmpty())
        page.section("EXIT STATUS");
    for (const ExitStatus &status : program.exitStatus)
        page.item(QStringLiteral("\\fB%1\\fR").arg(status.code), QString::fromUtf8(status.text));
    addEnvironment(page, program);
    addFiles(page, program);
    addExamples(page, program);
    addSeeAlso(page, program);
    return page.bytes();
}

} // namespace Velmar::Cli
