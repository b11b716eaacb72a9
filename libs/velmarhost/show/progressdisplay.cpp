#include "show/progressdisplay.h"

#include "show/printable.h"

#include <QtGlobal>

#include <utility>

namespace Velmar::Host {

namespace {

constexpr int NarrowestBar = 10;
constexpr int WidestBar = 40;

} // namespace

ProgressDisplay::ProgressDisplay(OutputStyle style, std::function<void(const QString &)> write)
    : m_style(std::move(style))
    , m_write(std::move(write))
{
}

ProgressDisplay::~ProgressDisplay()
{
    close();
}

void ProgressDisplay::message(const QString &text)
{
    if (m_line.isEmpty())
        m_write(printable(text) + QLatin1Char('\n'));
    else
        m_write(QStringLiteral("\r\x1b[K%1\n%2").arg(printable(text), m_line));
}

void ProgressDisplay::progress(ProgressPhase phase, int percent, const QString &label)
{
    percent = qBound(0, percent, 100);
    if (m_style.redraws) {
        if (phase != m_phase)
            close();
        const QString line = barLine(percent, printable(label));
        if (line != m_line)
            m_write(QStringLiteral("\r%1\x1b[K").arg(line));
        m_line = line;
    } else if (phase != m_phase || percent / 10 != m_tenth) {
        m_write(printable(label) + QLatin1Char('\n'));
    }
    m_phase = phase;
    m_tenth = percent / 10;
}

void ProgressDisplay::close()
{
    if (m_line.isEmpty())
        return;
    m_write(QStringLiteral("\n"));
    m_line.clear();
}

QString ProgressDisplay::barLine(int percent, const QString &label) const
{
    // The last column stays free: a character there makes some terminals start a new line.
    const int columns = m_style.columns() - 1;
    const int width = qMin(columns - label.size() - 3, WidestBar); // a blank and the two brackets
    if (width < NarrowestBar)
        return label.left(columns);
    const int filled = width * percent / 100;
    QString bar(filled, QLatin1Char('#'));
    if (m_style.colours)
        bar = QStringLiteral("\x1b[32m%1\x1b[0m").arg(bar);
    return QStringLiteral("%1 [%2%3]").arg(label, bar, QString(width - filled, QLatin1Char('.')));
}

} // namespace Velmar::Host
