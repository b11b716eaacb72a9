#ifndef VELMARUPGRADE_COMMANDLINE_H
#define VELMARUPGRADE_COMMANDLINE_H

#include "device/deviceaddress.h"
#include "process/hostexitcode.h"

#include <velmarcommandline/command.h>

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/*!
    The options of one verb, read: those on the command line, and the settings behind them.

    An accessor for an option that the verb does not take is an error in the program.
*/
class CommandLine : public Velmar::Cli::Command
{
public:
    explicit CommandLine(const Velmar::Cli::Command &command);

    /*! The one argument, as PACKAGE; empty if there is none. */
    QString argument() const;

    /*! The value of --device, or nothing with the error told. */
    std::optional<Velmar::Host::DeviceAddress> deviceAddress() const;

    /*! The value of --timeout. */
    std::chrono::milliseconds timeLimit() const;
};

/*!
    Reads \a words, which stand behind the program's name, and the settings.

    Nothing if the program is to end with \a code: help or the version was asked for and is
    printed, or there is an error, which is told. The configuration file is read for a verb alone.
*/
std::optional<CommandLine> readCommandLine(const QStringList &words,
                                           Velmar::Host::HostExitCode &code);

#endif // VELMARUPGRADE_COMMANDLINE_H
