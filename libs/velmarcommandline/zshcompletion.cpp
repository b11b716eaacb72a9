#include "velmarcommandline/completions.h"

#include "optiontext.h"

#include <QStringList>

namespace Velmar::Cli {

namespace {

/*! \a text in single quotes. */
QString inQuotes(QString text)
{
    text.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

/*! \a text without a meaning in what _arguments and _describe take. */
QString escaped(QString text)
{
    for (const char letter : { '\\', ':', '[', ']' })
        text.replace(QLatin1Char(letter), QString::fromLatin1("\\%1").arg(QLatin1Char(letter)));
    return text;
}

QString action(ValueKind kind, const QStringList &words)
{
    if (!words.isEmpty())
        return QStringLiteral("(%1)").arg(words.join(QLatin1Char(' ')));
    switch (kind) {
    case ValueKind::File:
        return QStringLiteral("_files");
    case ValueKind::Folder:
        return QStringLiteral("_directories");
    default:
        return QStringLiteral(" "); // there is something, which nobody can guess
    }
}

QString optionEntry(const Option &option)
{
    const QString name = QLatin1String("--") + QLatin1String(option.name());
    const QString sign = option.hasValue() ? QStringLiteral("=") : QString();
    QString text = QStringLiteral("[%1]").arg(escaped(firstSentence(option.text())));
    if (option.hasValue()) {
        QStringList words = option.suggestions();
        for (const char *word : option.words())
            words.append(QLatin1String(word));
        text += QStringLiteral(":%1:%2").arg(escaped(QLatin1String(option.valueName())),
                                             action(option.kind(), words));
    }
    const QString front = option.isRepeatable() ? QStringLiteral("*") : QString();
    if (option.letter() == 0)
        return inQuotes(front + name + sign + text);
    const QString letter = QLatin1Char('-') + QString(QLatin1Char(option.letter()));
    return QStringLiteral("'(%1 %2)'{%1%3,%2%4}%5")
        .arg(letter, name, option.hasValue() ? QStringLiteral("+") : QString(), sign,
             inQuotes(text));
}

QString argumentsCall(const std::vector<const Option *> &options, const Table<Argument> &arguments,
                      const QString &indent)
{
    QStringList lines;
    for (const Option *option : options)
        lines.append(optionEntry(*option));
    int place = 0;
    for (const Argument &argument : arguments)
        lines.append(
            inQuotes(QStringLiteral("%1%2%3:%4")
                         .arg(QString::number(++place),
                              argument.isOptional ? QStringLiteral("::") : QStringLiteral(":"),
                              escaped(QLatin1String(argument.name)), action(argument.kind, {}))));
    return QLatin1String("_arguments -s -S : \\\n") + indent
        + lines.join(QLatin1String(" \\\n") + indent);
}

} // namespace

QByteArray zshCompletion(const Program &program)
{
    const QString name = QLatin1String(program.name);
    QString text =
        QStringLiteral("#compdef %1\n# Made of the program's table of options.\n\n").arg(name);
    if (program.verbs.isEmpty()) {
        text +=
            argumentsCall(optionsOf(program, nullptr), program.arguments, QStringLiteral("    "))
            + QLatin1Char('\n');
        return text.toUtf8();
    }
    text += QLatin1String("local curcontext=$curcontext state line ret=1\n"
                          "typeset -A opt_args\n"
                          "_arguments -C \\\n");
    for (const Option &option : program.options)
        text += QLatin1String("    ") + optionEntry(option) + QLatin1String(" \\\n");
    text += QLatin1String("    '1: :->verb' '*:: :->behind' && ret=0\n"
                          "case $state in\n"
                          "verb)\n"
                          "    local -a verbs=(\n");
    QString cases;
    for (const Verb &verb : program.verbs) {
        if (verb.isHidden)
            continue;
        const QString verbName = QLatin1String(verb.name);
        text += QLatin1String("        ")
            + inQuotes(verbName + QLatin1Char(':') + escaped(firstSentence(verb.summary)))
            + QLatin1Char('\n');
        cases += QStringLiteral("    %1)\n        %2 && ret=0\n        ;;\n")
                     .arg(verbName,
                          argumentsCall(optionsOf(program, &verb), verb.arguments,
                                        QStringLiteral("            ")));
    }
    text += QLatin1String("    )\n"
                          "    _describe -t verbs verb verbs && ret=0\n"
                          "    ;;\n"
                          "behind)\n"
                          "    case $words[1] in\n")
        + cases
        + QLatin1String("    esac\n"
                        "    ;;\n"
                        "esac\n"
                        "return ret\n");
    return text.toUtf8();
}

} // namespace Velmar::Cli
