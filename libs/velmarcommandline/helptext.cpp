#include "velmarcommandline/helptext.h"

#include "optiontext.h"

#include <algorithm>

namespace Velmar::Cli {

namespace {

constexpr int Width = 79;
constexpr int LongestTermBeside = 24; // a longer one has a line of its own

/*! \a text in lines of at most Width characters, each behind \a indent blanks. */
QString wrapped(const QString &text, int indent)
{
    const QString margin(indent, QLatin1Char(' '));
    QString lines;
    lines.reserve(2 * text.size() + indent); // grows in one step: help is to be there at once
    int width = 0; // of the last line
    for (const QStringRef &word : text.splitRef(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (width > indent && width + 1 + word.size() <= Width) {
            lines += QLatin1Char(' ');
            ++width;
        } else {
            if (width > indent)
                lines += QLatin1Char('\n');
            lines += margin;
            width = indent;
        }
        lines += word;
        width += word.size();
    }
    lines += QLatin1Char('\n');
    return lines;
}

/*! A list of terms with their texts beside or below them. */
QString list(const QString &title, const std::vector<Section::Item> &items)
{
    int column = 0;
    for (const auto &item : items) {
        if (item.term.size() <= LongestTermBeside)
            column = std::max(column, item.term.size());
    }
    const int indent = 2 + (column == 0 ? 6 : column + 2);
    QString lines = QLatin1Char('\n') + title + QLatin1String(":\n");
    for (const auto &item : items) {
        const QString text = wrapped(item.text, indent);
        const QString term = QLatin1String("  ") + item.term;
        lines += term.size() + 2 > indent ? term + QLatin1Char('\n') + text
                                          : term + text.mid(term.size());
    }
    return lines;
}

QString usageLines(const QString &command, const Table<const char *> &usage)
{
    QString lines;
    for (const char *each : usage)
        lines += QStringLiteral("%1 %2 %3\n")
                     .arg(lines.isEmpty() ? QStringLiteral("Usage:") : QStringLiteral("      "),
                          command, QLatin1String(each));
    return lines;
}

QString description(const char *text)
{
    QString lines;
    for (const QString &paragraph : paragraphs(text))
        lines += QLatin1Char('\n') + wrapped(paragraph, 0);
    return lines;
}

QString optionList(const QString &title, const Table<Option> &options)
{
    std::vector<Section::Item> items;
    for (const Option &option : options)
        items.push_back({ optionTerm(option), optionText(option) });
    return items.empty() ? QString() : list(title, items);
}

QString argumentList(const Table<Argument> &arguments)
{
    std::vector<Section::Item> items;
    for (const Argument &argument : arguments)
        items.push_back({ QLatin1String(argument.name), QString::fromUtf8(argument.text) });
    return items.empty() ? QString() : list(QStringLiteral("Arguments"), items);
}

QString verbList(const Table<Verb> &verbs)
{
    std::vector<Section::Item> items;
    for (const Verb &verb : verbs) {
        if (verb.isHidden)
            continue;
        QString term = QLatin1String(verb.name);
        for (const Argument &argument : verb.arguments)
            term += QString::fromLatin1(argument.isOptional ? " [%1]" : " %1")
                        .arg(QLatin1String(argument.name));
        items.push_back({ term, QString::fromUtf8(verb.summary) });
    }
    return items.empty() ? QString() : list(QStringLiteral("Verbs"), items);
}

QString exitStatusList(const Table<ExitStatus> &table)
{
    std::vector<Section::Item> items;
    for (const ExitStatus &status : table)
        items.push_back({ QString::number(status.code), QString::fromUtf8(status.text) });
    return items.empty() ? QString() : list(QStringLiteral("Exit status"), items);
}

} // namespace

QString seeHelp(const Program &program, const Verb *verb)
{
    const QString command =
        verb == nullptr ? QString() : QLatin1String(verb->name) + QLatin1Char(' ');
    return QStringLiteral("See %1 %2--help").arg(QLatin1String(program.name), command);
}

QString helpText(const Program &program, const Verb *verb)
{
    const QString name = QLatin1String(program.name);
    if (verb != nullptr)
        return usageLines(name + QLatin1Char(' ') + QLatin1String(verb->name), verb->usage)
            + description(verb->description) + argumentList(verb->arguments)
            + optionList(QStringLiteral("Options"), verb->options)
            + optionList(QStringLiteral("Options of every verb"), program.common);
    QString text = usageLines(name, program.usage) + description(program.description)
        + verbList(program.verbs) + argumentList(program.arguments)
        + optionList(QStringLiteral("Options"), program.options);
    for (const Section &section : program.sections)
        text += list(QLatin1String(section.title), section.items());
    text += exitStatusList(program.exitStatus);
    if (!program.verbs.isEmpty())
        text += QStringLiteral("\n%1 VERB --help explains the options of a verb.\n").arg(name);
    return text;
}

} // namespace Velmar::Cli
