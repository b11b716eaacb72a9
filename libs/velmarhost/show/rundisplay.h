#ifndef VELMARHOST_RUNDISPLAY_H
#define VELMARHOST_RUNDISPLAY_H

#include "show/liveblock.h"
#include "show/outputstyle.h"
#include "show/remainingtime.h"
#include "show/runevent.h"

#include <QString>

#include <functional>
#include <optional>

namespace Velmar::Host {

/*! How a RunDisplay shows a run. */
struct RunDisplayOptions {
    OutputStyle style; //!< of standard output
    bool isQuiet = false; //!< only the verdict, and errors
    bool isVerbose = false; //!< log lines, too
    QString programName = QStringLiteral("velmar-upgrade"); //!< before the sentence of a bad end
    std::function<std::chrono::milliseconds()> clock; //!< monotonic; empty: the system's
};

/*!
    Shows a run to people.

    On a terminal the present phase is a block of lines at the bottom, redrawn in place: its place
    among the phases, a bar where the percentage is known, bytes, the time it has taken, the time
    that remains while that can be told (see RemainingTime), how long the silence may last when
    there is no news, and a line for each part of the device. Messages scroll by above it.
    Elsewhere there is a line when the phase, the tenth of its percentage or the state of a part
    changes, so that a log stays short.

    The verdict and warnings go to the error stream unless the run is confirmed. All texts are made
    printable here. For one thread.
*/
class RunDisplay final : public RunEventSink
{
public:
    using Writer = std::function<void(const QString &text)>;

    /*! \a write and \a writeError take what standard output and standard error are to get, at once;
        each is called with whole updates. */
    RunDisplay(RunDisplayOptions options, Writer write, Writer writeError);
    ~RunDisplay() override; // the block stays as it is

    void take(const RunEvent &event) override;

    /*! Brings the times up to date; to be called about once a second. */
    void refresh();

    /*! Shows \a text as a line of its own above the block, unless the display is quiet. */
    void message(const QString &text);

    /*! Ends the block where it stands, so that others may write below it; it begins anew with the
        next event. */
    void close();
};

} // namespace Velmar::Host

#endif // VELMARHOST_RUNDISPLAY_H
