#ifndef VELMARRELAY_OPTIONS_H
#define VELMARRELAY_OPTIONS_H

#include "relay.h"

#include <QStringList>

#include <optional>

namespace Velmar::Relay {

/*! What the command line says. */
struct Options {
    enum class Action { Run, ShowHelp, ShowVersion };

    Action action = Action::Run;
    Settings settings;

    /*! Without a value, and with \a errorText set, if \a arguments (the program's name first) are
        not understood. */
    static std::optional<Options> parse(const QStringList &arguments, QString &errorText);

    static QString helpText();
};

} // namespace Velmar::Relay

#endif // VELMARRELAY_OPTIONS_H
