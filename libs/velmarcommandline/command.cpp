#include "velmarcommandline/command.h"

#include <velmarcommandline/helptext.h>

#include <QVector>

#include <algorithm>

namespace Velmar::Cli {

namespace {

const Option *findOption(const std::vector<const Option *> &options, const QString &name)
{
    const auto found = std::find_if(options.begin(), options.end(), [&name](const Option *option) {
        return name == QLatin1String(option->name());
    });
    return found == options.end() ? nullptr : *found;
}

const Option *findLetter(const std::vector<const Option *> &options, QChar letter)
{
    const auto found = std::find_if(options.begin(), options.end(), [letter](const Option *option) {
        return option->letter() != 0 && letter == QLatin1Char(option->letter());
    });
    return found == options.end() ? nullptr : *found;
}

/*! Walks over the words behind a verb, or behind the name of a program without verbs. */
class WordReader
{
public:
    WordReader(const Program &program, const Verb *verb, const QStringList &words)
        : m_options(optionsOf(program, verb))
        , m_words(words)
        , m_command(program, verb)
    {
    }

    void readAll()
    {
        bool isBehindDashes = false;
        while (m_next < m_words.size()) {
            const QString word = m_words.at(m_next++);
            if (isBehindDashes || word == QLatin1String("-") || !word.startsWith(QLatin1Char('-')))
                m_command.addArgument(word);
            else if (word == QLatin1String("--"))
                isBehindDashes = true;
            else if (word.startsWith(QLatin1String("--")))
                readName(word);
            else
                readLetters(word);
        }
    }

    /*! Whether the arguments are those that \a table has. */
    void checkArguments(const Table<Argument> &table)
    {
        const auto given = static_cast<std::size_t>(m_command.arguments().size());
        if (given > table.size())
            fail(QStringLiteral("Unexpected argument %1")
                     .arg(quoted(m_command.arguments().at(static_cast<int>(table.size())))));
        else if (given < table.size() && !(table.begin() + given)->isOptional)
            fail(QStringLiteral("%1 is missing").arg(QLatin1String((table.begin() + given)->name)));
        for (std::size_t i = 0; i < std::min(given, table.size()); ++i) {
            const Argument &argument = *(table.begin() + i);
            if (argument.kind != ValueKind::Text
                && m_command.arguments().at(static_cast<int>(i)).isEmpty())
                fail(QStringLiteral("%1 is empty").arg(QLatin1String(argument.name)));
        }
    }

    const QString &errorText() const { return m_errorText; }
    const Command &command() const { return m_command; }

private:
    void readName(const QString &word)
    {
        const int equals = word.indexOf(QLatin1Char('='));
        const QString shown = word.left(equals);
        const Option *const option = findOption(m_options, shown.mid(2));
        if (option == nullptr) {
            fail(QStringLiteral("There is no option %1").arg(quoted(shown)));
        } else if (!option->hasValue()) {
            if (equals >= 0)
                fail(QStringLiteral("%1 takes no value").arg(shown));
            else
                m_command.addGiven(*option, QString());
        } else if (equals >= 0) {
            take(*option, shown, word.mid(equals + 1));
        } else {
            takeNext(*option, shown);
        }
    }

    void readLetters(const QString &word)
    {
        for (int i = 1; i < word.size(); ++i) {
            const QString shown = QLatin1Char('-') + word.mid(i, 1);
            const Option *const option = findLetter(m_options, word.at(i));
            if (option == nullptr) {
                fail(QStringLiteral("There is no option %1").arg(quoted(shown)));
                return;
            }
            if (!option->hasValue()) {
                m_command.addGiven(*option, QString());
                continue;
            }
            if (i + 1 < word.size())
                take(*option, shown, word.mid(i + 1));
            else
                takeNext(*option, shown);
            return;
        }
    }

    void takeNext(const Option &option, const QString &shown)
    {
        const QString needed =
            QStringLiteral("%1 needs a value, %2").arg(shown, QLatin1String(option.valueName()));
        if (m_next == m_words.size()) {
            fail(needed);
            return;
        }
        // The value was forgotten, rather than being the name of an option.
        const QString word = m_words.at(m_next);
        if (word.startsWith(QLatin1String("--")) && findOption(m_options, word.mid(2)) != nullptr) {
            fail(QStringLiteral("%1. %2 is an option").arg(needed, word));
            return;
        }
        ++m_next;
        take(option, shown, word);
    }

    void take(const Option &option, const QString &shown, const QString &value)
    {
        const QString fault = valueFault(option, value);
        if (!fault.isEmpty())
            fail(QStringLiteral("%1: %2").arg(shown, fault));
        else if (!option.isRepeatable() && m_command.isGiven(option.name())
                 && !m_command.program().isLaterTaken)
            fail(QStringLiteral("%1 is given twice").arg(shown));
        else
            m_command.addGiven(option, value);
    }

    void fail(const QString &sentence)
    {
        if (m_errorText.isEmpty()) // the first is the one to put right first
            m_errorText = sentence;
    }

    const std::vector<const Option *> m_options;
    const QStringList m_words;
    Command m_command;
    int m_next = 0;
    QString m_errorText;
};

bool isAskedFor(const Option &question, const Command &command)
{
    const auto options = optionsOf(command.program(), command.verb());
    return findOption(options, QLatin1String(question.name())) != nullptr
        && command.isGiven(question.name());
}

} // namespace

QString quoted(const QString &text)
{
    constexpr int Longest = 200;
    QString shown;
    const auto codePoints = text.toUcs4();
    for (int i = 0; i < codePoints.size(); ++i) {
        const uint codePoint = codePoints.at(i);
        if (i == Longest) {
            shown += QChar(0x2026);
            break;
        }
        if (QChar::isPrint(codePoint))
            shown += QString::fromUcs4(&codePoint, 1);
        else if (codePoint < 0x100)
            shown += QStringLiteral("\\x%1").arg(codePoint, 2, 16, QLatin1Char('0'));
        else
            shown += QStringLiteral("\\u{%1}").arg(codePoint, 0, 16);
    }
    return QLatin1Char('"') + shown + QLatin1Char('"');
}

QString valueFault(const Option &option, const QString &value)
{
    switch (option.kind()) {
    case ValueKind::Text:
        break;
    case ValueKind::Number: {
        const bool hasDigitsAlone = std::all_of(value.begin(), value.end(), [](QChar letter) {
            return letter >= QLatin1Char('0') && letter <= QLatin1Char('9');
        });
        bool isNumber = false;
        const qint64 number = value.toLongLong(&isNumber);
        if (!isNumber || !hasDigitsAlone || number < option.least() || number > option.greatest())
            return QStringLiteral("%1 is no number from %2 to %3")
                .arg(quoted(value), QString::number(option.least()),
                     QString::number(option.greatest()));
        break;
    }
    case ValueKind::Word: {
        QStringList words;
        for (const char *word : option.words())
            words.append(QLatin1String(word));
        if (!words.contains(value))
            return QStringLiteral("%1 is none of %2")
                .arg(quoted(value), words.join(QStringLiteral(", ")));
        break;
    }
    case ValueKind::File:
    case ValueKind::Folder:
        if (value.isEmpty())
            return QStringLiteral("an empty path names nothing");
        break;
    }
    return {};
}

Command::Command(const Program &program, const Verb *verb)
    : m_program(&program)
    , m_verb(verb)
{
}

bool Command::isGiven(const char *name) const
{
    const auto found = m_given.find(QLatin1String(option(name).name()));
    return found != m_given.end() && !found->second.isSetting;
}

bool Command::isSet(const char *name) const
{
    return m_given.count(QLatin1String(option(name).name())) > 0;
}

QString Command::value(const char *name) const
{
    const Option &asked = option(name);
    const auto found = m_given.find(QLatin1String(name));
    return found != m_given.end() ? found->second.values.constLast()
                                  : QString::fromUtf8(asked.defaultValue());
}

QStringList Command::values(const char *name) const
{
    const auto found = m_given.find(QLatin1String(option(name).name()));
    return found != m_given.end() ? found->second.values : QStringList();
}

qint64 Command::number(const char *name) const
{
    Q_ASSERT(option(name).kind() == ValueKind::Number);
    return value(name).toLongLong();
}

void Command::addGiven(const Option &option, const QString &value)
{
    m_given[QLatin1String(option.name())].values.append(value);
}

void Command::addSetting(const Option &option, const QString &value)
{
    m_given[QLatin1String(option.name())] = { { value }, true };
}

const Option &Command::option(const char *name) const
{
    const Option *found = findOption(optionsOf(*m_program, m_verb), QLatin1String(name));
    if (found == nullptr)
        found = findOption(settingsOf(*m_program), QLatin1String(name));
    if (found == nullptr)
        qFatal("%s has no option %s here", m_program->name, name);
    return *found;
}

ParseResult parse(const Program &program, const QStringList &words)
{
    ParseResult result;
    int behindVerb = 0;
    if (!program.verbs.isEmpty() && !words.isEmpty()
        && !words.constFirst().startsWith(QLatin1Char('-'))) {
        result.verb = findVerb(program, words.constFirst());
        if (result.verb == nullptr) {
            result.errorText = QStringLiteral("There is no verb %1. %2")
                                   .arg(quoted(words.constFirst()), seeHelp(program, nullptr));
            return result;
        }
        behindVerb = 1;
    }
    WordReader reader(program, result.verb, words.mid(behindVerb));
    reader.readAll();
    if (isAskedFor(helpOption(), reader.command())) {
        result.kind = ParseResult::Kind::Help;
        return result;
    }
    if (isAskedFor(versionOption(), reader.command())) {
        result.kind = ParseResult::Kind::Version;
        return result;
    }
    reader.checkArguments(result.verb != nullptr ? result.verb->arguments : program.arguments);
    QString fault = reader.errorText();
    if (fault.isEmpty() && !program.verbs.isEmpty() && result.verb == nullptr)
        fault = QStringLiteral("No verb is given");
    if (!fault.isEmpty()) {
        result.errorText = QStringLiteral("%1. %2").arg(fault, seeHelp(program, result.verb));
        return result;
    }
    result.kind = ParseResult::Kind::Command;
    result.command = reader.command();
    return result;
}

} // namespace Velmar::Cli
