#ifndef VELMARHOST_PROGRESSDISPLAY_H
#define VELMARHOST_PROGRESSDISPLAY_H

#include "show/outputstyle.h"

#include <QString>

#include <functional>

namespace Velmar::Host {

/*! What a progress bar stands for. */
enum class ProgressPhase {
    None,
    Sending,
    Installing,
};

/*!
    Shows the progress of one upgrade as text.

    On a terminal each phase has a bar, redrawn in place, and messages scroll by above it. Elsewhere
    there is one line when the phase changes and one when the tenth of the percentage does, so that
    a log stays short. All texts are made printable here. For one thread.
*/
class ProgressDisplay
{
public:
    /*! \a write takes what is to be written; it is called with whole updates. */
    ProgressDisplay(OutputStyle style, std::function<void(const QString &)> write);
    ~ProgressDisplay();

    /*! Shows \a text as a line of its own. */
    void message(const QString &text);

    /*! Shows \a percent (clamped to 0 to 100) of \a phase; \a label, which has the number in it,
        stands before the bar. */
    void progress(ProgressPhase phase, int percent, const QString &label);

    /*! Ends the line of the bar, if there is one. */
    void close();

private:
    Q_DISABLE_COPY_MOVE(ProgressDisplay)

    QString barLine(int percent, const QString &label) const;

    const OutputStyle m_style;
    const std::function<void(const QString &)> m_write;
    ProgressPhase m_phase = ProgressPhase::None;
    int m_tenth = 0;
    QString m_line; // the bar as it stands on the terminal; empty if there is none
};

} // namespace Velmar::Host

#endif // VELMARHOST_PROGRESSDISPLAY_H
