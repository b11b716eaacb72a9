#ifndef VELMARCOMMANDLINE_SETTINGS_H
#define VELMARCOMMANDLINE_SETTINGS_H

#include "command.h"

#include <QProcessEnvironment>
#include <QString>

namespace Velmar::Cli {

/*!
    Adds to \a command the settings that its command line does not give: from \a environment, then
    from the configuration file \a path, which need not be there. An empty \a path stands for no
    file, an empty variable for none.

    The file is UTF-8 text of at most 65536 bytes: a line is "name = value", empty, or a comment
    that begins with "#". Every line is checked, also those that the verb does not ask for; a path
    has to be absolute.

    False, with \a errorText set, if a variable that the verb takes or the file is wrong; a sentence
    that begins with the variable, or with the file and the line.
*/
bool addSettings(Command &command, const QProcessEnvironment &environment, const QString &path,
                 QString &errorText);

/*! The path of the configuration file of \a program: below $XDG_CONFIG_HOME if that is absolute,
    otherwise below ~/.config. Empty if there is no home folder, or the program has no such file. */
QString configurationPath(const Program &program, const QProcessEnvironment &environment);

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_SETTINGS_H
