#ifndef VELMARPACKAGE_COMMANDLINE_H
#define VELMARPACKAGE_COMMANDLINE_H

#include <QString>
#include <QStringList>

namespace Velmar::Package {

/*! What the user asked for. */
struct CommandLine {
    enum class Action { Encipher, Decipher, Image, Create, Help, Version };

    Action action = Action::Help;
    QString input;
    QString output; //!< empty for Action::Image
    QString keyFile; //!< empty: the demonstration key
    QString help; //!< for Action::Help: the text
    bool json = false;
    bool force = false;
};

/*! False, with \a errorText set, if \a arguments (the program's name first) make no sense. */
bool parseCommandLine(const QStringList &arguments, CommandLine &commandLine, QString &errorText);

} // namespace Velmar::Package

#endif // VELMARPACKAGE_COMMANDLINE_H
