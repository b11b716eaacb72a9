#ifndef VELMARCOMMANDLINE_PROGRAM_H
#define VELMARCOMMANDLINE_PROGRAM_H

#include "option.h"

#include <QString>

#include <vector>

namespace Velmar::Cli {

/*! What a program does, as the first word of its command line. */
struct Verb {
    const char *name;
    const char *summary; //!< one sentence, in the imperative
    const char *description; //!< paragraphs, parted by an empty line
    Table<const char *> usage; //!< what may stand behind the verb, as in "PACKAGE [options]"
    Table<Argument> arguments;
    Table<Option> options; //!< beside those that every verb has
    bool isHidden = false; //!< for the program itself: in no help, page or completion
};

struct ExitStatus {
    int code;
    const char *text;
};

/*! A term and what it is: a file, an environment variable. */
struct Entry {
    const char *term;
    const char *text;
};

struct Example {
    const char *text;
    const char *command;
};

/*! A list of its own in help and manual page, made when it is asked for. */
struct Section {
    struct Item {
        QString term;
        QString text;
    };

    const char *title; //!< as in "Faults"
    std::vector<Item> (*items)();
};

/*!
    All that is to know of a program's command line; the parser, the help, the manual page and the
    completions follow from it.

    A program without verbs has its arguments and all its options here.
*/
struct Program {
    const char *name;
    const char *summary; //!< one sentence
    const char *description; //!< paragraphs, parted by an empty line
    Table<const char *> usage; //!< what may stand behind the name
    Table<Argument> arguments;
    Table<Option> options; //!< with verbs: those in place of a verb
    Table<Verb> verbs;
    Table<Option> common; //!< options of every verb
    Table<Option> settings; //!< that have no option: from environment or configuration file alone
    const char *configurationFile; //!< below the user's configuration folder; null: there is none
    Table<ExitStatus> exitStatus;
    Table<Entry> environment; //!< variables that are no settings
    Table<Entry> files;
    Table<Section> sections;
    Table<Example> examples;
    Table<const char *> seeAlso; //!< as in "velmar-device(1)"
    bool isLaterTaken = false; //!< of two values of one option; an error otherwise
};

/*! The options "help" and "version", which parse() answers itself. */
constexpr Option helpOption()
{
    return Option("help", "Show this help.").letter('h');
}
constexpr Option versionOption()
{
    return Option("version", "Show the version.");
}

/*! The verb called \a name, also if it is hidden; null if there is none. */
const Verb *findVerb(const Program &program, const QString &name);

/*! The options that \a verb takes, its own first; those of the program if \a verb is null. */
std::vector<const Option *> optionsOf(const Program &program, const Verb *verb);

/*! All options of \a program that are settings, each once, and its settings without an option. */
std::vector<const Option *> settingsOf(const Program &program);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_PROGRAM_H
