#include "velmarcommandline/completions.h"

#include "optiontext.h"

#include <QStringList>

namespace Velmar::Cli {

namespace {

const auto Folders = QStringLiteral("-x -a '(__fish_complete_directories (commandline -ct))'");

/*! \a text in single quotes. */
QString inQuotes(QString text)
{
    text.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    text.replace(QLatin1Char('\''), QLatin1String("\\'"));
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

QString valuePart(const Option &option)
{
    QStringList words = option.suggestions();
    for (const char *word : option.words())
        words.append(QLatin1String(word));
    if (!words.isEmpty())
        return QLatin1String(" -x -a ") + inQuotes(words.join(QLatin1Char(' ')));
    switch (option.kind()) {
    case ValueKind::File:
        return QStringLiteral(" -r -F");
    case ValueKind::Folder:
        return QLatin1Char(' ') + Folders;
    default:
        return QStringLiteral(" -x");
    }
}

/*! The lines for \a options and \a arguments; each begins with \a command, which has the
    condition. */
QString lines(const QString &command, const std::vector<const Option *> &options,
              const Table<Argument> &arguments)
{
    QString text;
    for (const Option *option : options) {
        text += command;
        if (option->letter() != 0)
            text += QStringLiteral(" -s %1").arg(QLatin1Char(option->letter()));
        text += QLatin1String(" -l ") + QLatin1String(option->name());
        if (option->hasValue())
            text += valuePart(*option);
        text += QLatin1String(" -d ") + inQuotes(firstSentence(option->text())) + QLatin1Char('\n');
    }
    for (const Argument &argument : arguments) {
        if (argument.kind == ValueKind::Folder)
            text += command + QLatin1Char(' ') + Folders + QLatin1Char('\n');
        else if (argument.kind == ValueKind::File)
            text += command + QLatin1String(" -F\n");
    }
    return text;
}

} // namespace

QByteArray fishCompletion(const Program &program)
{
    const QString name = QLatin1String(program.name);
    const QString command = QLatin1String("complete -c ") + name;
    QString text =
        QStringLiteral("# fish completion of %1; made of its table of options.\n\n").arg(name);
    if (program.verbs.isEmpty()) {
        text += command + QLatin1String(" -f\n")
            + lines(command, optionsOf(program, nullptr), program.arguments);
        return text.toUtf8();
    }
    const QString function = QString(QLatin1String("__") + name + QLatin1String("_verb"))
                                 .replace(QLatin1Char('-'), QLatin1Char('_'));
    text += QStringLiteral("# Whether the verb, the first word, is $argv; none is an empty one.\n"
                           "function %1\n"
                           "    set -l words (commandline -opc)\n"
                           "    test \"$words[2]\" = \"$argv\"\n"
                           "end\n\n")
                .arg(function)
        + command + QLatin1String(" -f\n");
    const QString first = QStringLiteral("%1 -n %2").arg(command, function);
    for (const Verb &verb : program.verbs) {
        if (!verb.isHidden)
            text +=
                QStringLiteral("%1 -a %2 -d %3\n")
                    .arg(first, QLatin1String(verb.name), inQuotes(firstSentence(verb.summary)));
    }
    text += lines(first, optionsOf(program, nullptr), {});
    for (const Verb &verb : program.verbs) {
        if (!verb.isHidden)
            text += lines(
                QStringLiteral("%1 -n '%2 %3'").arg(command, function, QLatin1String(verb.name)),
                optionsOf(program, &verb), verb.arguments);
    }
    return text.toUtf8();
}

} // namespace Velmar::Cli
