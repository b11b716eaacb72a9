#ifndef VELMARCOMMANDLINE_COMMAND_H
#define VELMARCOMMANDLINE_COMMAND_H

#include "program.h"

#include <QString>
#include <QStringList>

#include <map>
#include <optional>

namespace Velmar::Cli {

/*!
    What a command line says, with the settings and defaults behind it.

    Asking for an option that the verb does not take is an error in the program.
*/
class Command
{
public:
    Command(const Program &program, const Verb *verb);

    const Program &program() const { return *m_program; }
    const Verb *verb() const { return m_verb; } //!< null: the program has none

    /*! True if the option \a name is on the command line. */
    bool isGiven(const char *name) const;

    /*! True if the option or setting \a name is on the command line, in the environment or in the
        configuration file. */
    bool isSet(const char *name) const;

    /*! The value of \a name: of the command line, a setting, or the default; empty if there is
        none. */
    QString value(const char *name) const;

    /*! The values of a repeatable option, in the order given. */
    QStringList values(const char *name) const;

    /*! The value of an option that takes a number and is set or has a default. */
    qint64 number(const char *name) const;

    QStringList arguments() const { return m_arguments; }

    // For the parser and the settings.
    void addGiven(const Option &option, const QString &value);
    void addSetting(const Option &option, const QString &value);
    void addArgument(const QString &word) { m_arguments.append(word); }

private:
    struct Given {
        QStringList values;
        bool isSetting = false;
    };

    const Option &option(const char *name) const;

    const Program *m_program;
    const Verb *m_verb;
    std::map<QString, Given> m_given;
    QStringList m_arguments;
};

/*! What parse() made of a command line. */
struct ParseResult {
    enum class Kind {
        Command, //!< \a command says what to do
        Help, //!< helpText() of \a verb, or of the program, is asked for
        Version,
        Error, //!< \a errorText says what is wrong
    };

    Kind kind = Kind::Error;
    const Verb *verb = nullptr; //!< null: none is named, or there are none
    std::optional<Command> command; //!< for Kind::Command
    QString errorText; //!< sentences; the last is "See PROGRAM VERB --help"
};

/*!
    Reads \a words, which stand behind the program's name, against the table \a program.

    A verb is the first word. Values stand behind "=" or as the next word; letters may be joined, as
    in "-qo FILE". Behind "--" there are arguments alone. An option that takes a value and is not
    repeatable is an error if it is given twice, or the later one counts, as \a program has it. Numbers, words and paths are checked. A call for
    help goes before errors. Reads nothing but \a words.
*/
ParseResult parse(const Program &program, const QStringList &words);

/*! An error text if \a value is none that \a option takes, empty otherwise. */
QString valueFault(const Option &option, const QString &value);

/*! \a text in quotation marks for an error text: on one line, printable, and cut if it is long. */
QString quoted(const QString &text);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_COMMAND_H
