#ifndef VELMARHOST_RUNDISPLAY_H
#define VELMARHOST_RUNDISPLAY_H

#include "show/liveblock.h"
#include "show/outputstyle.h"
#include "show/phasedurations.h"
#include "show/remainingtime.h"
#include "show/runevent.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

namespace Velmar::Host {

/*! How a RunDisplay shows a run. */
struct RunDisplayOptions {
    OutputStyle style; //!< of standard output
    bool coloursErrors = false; //!< standard error is a terminal that may be coloured
    bool isQuiet = false; //!< only warnings and the verdict
    bool isVerbose = false; //!< log lines, too
    QString programName = QStringLiteral("velmar-upgrade"); //!< before the sentence of a bad end
    std::function<std::chrono::milliseconds()> clock = monotonicTime;
};

/*!
    Shows a run to people.

    On a terminal the present phase is a block of lines at the bottom, redrawn in place: its place
    among the phases, a bar where the percentage is known, bytes, the time it has taken, the time
    that remains while that can be told (see RemainingTime), how long it may be silent when there is
    no news, and a line for each part of the device. Messages scroll by above it. Elsewhere there is
    a line when the phase, the tenth of its percentage or the state of a part changes, so that a log
    stays short.

    Warnings, log lines, and the verdict of a run that is not confirmed go to standard error. All
    texts are made printable here. For one thread.
*/
class RunDisplay final : public RunEventSink
{
public:
    using Writer = std::function<void(const QString &text)>;

    /*! \a write and \a writeError take what standard output and standard error are to get at
        once. */
    RunDisplay(RunDisplayOptions options, Writer write, Writer writeError);

    /*! Leaves the block as it stands. */
    ~RunDisplay() override;

    void take(const RunEvent &event) override;

    /*! Brings the times up to date; to be called about once a second. */
    void refresh();

    /*! Shows \a text as a line of its own above the block, unless the display is quiet. */
    void message(const QString &text);

    /*! Shows the present phase as done, though nothing has followed yet. */
    void finishPhase();

    /*! Ends the block where it stands, so that others may write below it; it begins anew with the
        next event or refresh(). */
    void close();

private:
    using Time = std::chrono::milliseconds;

    void takePhase(const RunEvent &event);
    void takeProgress(const RunEvent &event);
    void takeVerdict(const RunSummary &summary);
    void begin(const RunEvent &event);
    void leave();
    void print(const Writer &writer, const QString &line);

    // Lines of the block, and of a log.
    void redraw();
    QStringList block(Time now) const;
    QString head() const;
    QString headLine(Time now) const;
    QString silenceText(Time now) const;
    QStringList partLines(int maximum) const;
    void logProgress(const std::vector<PartProgress> &previous);
    QString logLine() const;

    const RunDisplayOptions m_options;
    const Writer m_write;
    const Writer m_writeError;
    LiveBlock m_block;

    RunEvent m_now; // the present phase, with the latest of each figure
    bool m_isInPhase = false;
    Time m_begin { 0 }; // of the phase
    Time m_lastNews { 0 };
    int m_tenth = -1; // of the percentage, as logged last
    RemainingTime m_remaining;
};

} // namespace Velmar::Host

#endif // VELMARHOST_RUNDISPLAY_H
