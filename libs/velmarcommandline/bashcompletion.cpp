#include "velmarcommandline/completions.h"

#include <QStringList>

namespace Velmar::Cli {

namespace {

QStringList namesOf(const Option &option)
{
    QStringList names { QLatin1String("--") + QLatin1String(option.name()) };
    if (option.letter() != 0)
        names.prepend(QLatin1Char('-') + QString(QLatin1Char(option.letter())));
    return names;
}

QStringList wordsOf(const Option &option)
{
    QStringList words = option.suggestions();
    for (const char *word : option.words())
        words.append(QLatin1String(word));
    return words;
}

/*! The kind of completion that readline does by itself: it quotes what it finds. */
QString pathsOf(ValueKind kind)
{
    switch (kind) {
    case ValueKind::File:
        return QStringLiteral("default");
    case ValueKind::Folder:
        return QStringLiteral("dirnames");
    default:
        return {};
    }
}

/*! The branches of "case $previous": what stands behind an option with a value, and all else. */
QString branches(const std::vector<const Option *> &options, const Table<Argument> &arguments,
                 const QStringList &verbs, const QString &indent)
{
    QString text;
    QStringList words = verbs;
    for (const Option *option : options) {
        words += namesOf(*option);
        if (!option->hasValue())
            continue;
        const QString paths = pathsOf(option->kind());
        const QStringList offered = wordsOf(*option);
        text += indent + namesOf(*option).join(QLatin1Char('|')) + QLatin1String(") ");
        if (!paths.isEmpty())
            text += QStringLiteral("paths=%1 ;;\n").arg(paths);
        else
            text += QStringLiteral("words='%1' ;;\n").arg(offered.join(QLatin1Char(' ')));
    }
    text += indent + QStringLiteral("*) words='%1'").arg(words.join(QLatin1Char(' ')));
    // A file is offered wherever a folder may stand, too.
    QString paths;
    for (const Argument &argument : arguments) {
        const QString own = pathsOf(argument.kind);
        if (!own.isEmpty() && paths != QLatin1String("default"))
            paths = own;
    }
    if (!paths.isEmpty())
        text += QLatin1String(" paths=") + paths;
    return text + QLatin1String(" ;;\n");
}

} // namespace

QByteArray bashCompletion(const Program &program)
{
    const QString name = QLatin1String(program.name);
    const QString function =
        QString(QLatin1Char('_') + name).replace(QLatin1Char('-'), QLatin1Char('_'));
    QString text = QStringLiteral(R"(# bash completion of %1; made of its table of options.

%2()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local verb= words= paths= i
    COMPREPLY=()
    # "--name=value" comes as three words.
    if [[ $current == '=' ]]; then
        current=
    elif [[ $previous == '=' ]] && ((COMP_CWORD > 2)); then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -- ]] && previous=--
    done
)")
                       .arg(name, function);
    if (program.verbs.isEmpty()) {
        text += QLatin1String("    case $previous in\n")
            + branches(optionsOf(program, nullptr), program.arguments, {}, QStringLiteral("    "))
            + QLatin1String("    esac\n");
    } else {
        QStringList verbs;
        QString cases;
        for (const Verb &verb : program.verbs) {
            if (verb.isHidden)
                continue;
            verbs.append(QLatin1String(verb.name));
            cases +=
                QStringLiteral("    %1)\n        case $previous in\n").arg(QLatin1String(verb.name))
                + branches(optionsOf(program, &verb), verb.arguments, {},
                           QStringLiteral("        "))
                + QLatin1String("        esac\n        ;;\n");
        }
        text += QLatin1String("    ((COMP_CWORD > 1)) && verb=${COMP_WORDS[1]}\n"
                              "    case $verb in\n    '')\n        case $previous in\n")
            + branches(optionsOf(program, nullptr), {}, verbs, QStringLiteral("        "))
            + QLatin1String("        esac\n        ;;\n") + cases + QLatin1String("    esac\n");
    }
    text += QStringLiteral(R"(    if [[ -n $paths && $current != -* ]]; then
        compopt -o "$paths" # readline looks for them, and quotes what it finds
    elif [[ $previous != -- ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    fi
}
complete -F %1 %2
)")
                .arg(function, name);
    return text.toUtf8();
}

} // namespace Velmar::Cli
