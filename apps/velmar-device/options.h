#ifndef VELMARDEVICE_OPTIONS_H
#define VELMARDEVICE_OPTIONS_H

#include "simulateddevice.h"

#include <QStringList>

namespace Velmar::Simulator {

/*! What the command line says. */
struct Options {
    enum class Action { Run, ShowHelp, ShowVersion };

    Action action = Action::Run;
    QString catalogue; //!< file; empty: the built-in catalogue
    QString model; //!< name or id; empty: the catalogue's first
    bool isFullyFitted = true; //!< false: with the cards told, which may be none
    QStringList cards; //!< as Fitting::fromCards() takes them
    DeviceSettings device;

    /*! Without a value, and with \a errorText set, if \a arguments (the program's name first) are
        not understood. */
    static std::optional<Options> parse(const QStringList &arguments, QString &errorText);

    static QString helpText();
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_OPTIONS_H
