#include "show/rundisplay.h"

#include "show/printable.h"
#include "show/quantities.h"
#include "show/textcolumns.h"
#include "show/verdicttext.h"

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int NarrowestBar = 10; // columns
constexpr int WidestBar = 40;
constexpr int LongestName = 24; // of a part
constexpr milliseconds NoNews = seconds(5); // from then on it is worth a word
constexpr QLatin1String PartIndent("      ", 6);
constexpr QLatin1String Green("\x1b[32m", 5);
constexpr QLatin1String Yellow("\x1b[33m", 5);
constexpr QLatin1String Red("\x1b[31m", 5);
constexpr QLatin1String Plain("\x1b[0m", 4);

int shownPercent(int percent)
{
    return qBound(0, percent, 99); // the verdict alone says that all is done
}

std::optional<int> percentOf(const RunEvent &event)
{
    if (event.percent)
        return shownPercent(*event.percent);
    if (event.bytesSent >= 0 && event.bytesTotal > 0)
        return shownPercent(int(double(event.bytesSent) / double(event.bytesTotal) * 100));
    return std::nullopt;
}

std::optional<double> shareOf(const RunEvent &event)
{
    if (event.bytesSent >= 0 && event.bytesTotal > 0)
        return double(event.bytesSent) / double(event.bytesTotal);
    if (event.percent)
        return double(*event.percent) / 100;
    return std::nullopt;
}

QString bytesText(const RunEvent &event)
{
    if (event.bytesSent < 0)
        return {};
    return event.bytesTotal > 0 ? amountText(event.bytesSent, event.bytesTotal)
                                : amountText(event.bytesSent);
}

QString withoutEmpty(const QStringList &texts)
{
    QStringList told;
    for (const auto &text : texts) {
        if (!text.isEmpty())
            told.append(text);
    }
    return told.join(QStringLiteral(", "));
}

QString partName(const PartProgress &part)
{
    return printable(part.name, LongestName);
}

QString partState(const PartProgress &part)
{
    return printable(part.state, LongestName);
}

} // namespace

RunDisplay::RunDisplay(RunDisplayOptions options, Writer write, Writer writeError)
    : m_options(std::move(options))
    , m_write(std::move(write))
    , m_writeError(std::move(writeError))
    , m_block(m_options.style, m_write)
{
}

RunDisplay::~RunDisplay()
{
    close();
}

void RunDisplay::take(const RunEvent &event)
{
    switch (event.kind) {
    case RunEvent::Kind::Phase:
        takePhase(event);
        break;
    case RunEvent::Kind::Progress:
        takeProgress(event);
        break;
    case RunEvent::Kind::Message:
        m_lastNews = m_options.clock();
        if (event.code == QLatin1String("warning"))
            print(m_writeError, QStringLiteral("warning: ") + printable(event.text));
        else
            message(event.text);
        break;
    case RunEvent::Kind::Plan:
        if (!event.text.isEmpty())
            message(event.text);
        break;
    case RunEvent::Kind::Devices:
    case RunEvent::Kind::Versions:
    case RunEvent::Kind::Status:
    case RunEvent::Kind::Inspection:
        break; // no part of a run
    case RunEvent::Kind::Log:
        if (m_options.isVerbose && !m_options.isQuiet)
            print(m_writeError, QStringLiteral("log: ") + printable(event.text));
        break;
    case RunEvent::Kind::Verdict:
        if (event.summary)
            takeVerdict(*event.summary);
        break;
    }
}

void RunDisplay::refresh()
{
    if (m_isInPhase)
        redraw();
}

void RunDisplay::message(const QString &text)
{
    if (!m_options.isQuiet)
        print(m_write, printable(text));
}

void RunDisplay::close()
{
    m_block.close();
}

void RunDisplay::takePhase(const RunEvent &event)
{
    if (m_isInPhase && event.phase == m_now.phase) {
        m_now.silence = event.silence;
    } else {
        finishPhase();
        begin(event);
    }
    if (!event.text.isEmpty())
        message(event.text);
    redraw();
}

void RunDisplay::takeProgress(const RunEvent &event)
{
    if (!m_isInPhase || event.phase != m_now.phase) {
        finishPhase();
        begin(event);
    }
    const auto now = m_options.clock();
    m_lastNews = now;
    if (event.percent)
        m_now.percent = event.percent;
    if (event.bytesSent >= 0) {
        m_now.bytesSent = event.bytesSent;
        m_now.bytesTotal = event.bytesTotal;
    }
    const auto previousParts = m_now.parts;
    if (!event.parts.empty())
        m_now.parts = event.parts;
    if (const auto share = shareOf(m_now))
        m_remaining.take(*share, now);
    logProgress(previousParts);
    redraw();
}

void RunDisplay::takeVerdict(const RunSummary &summary)
{
    const auto kind = verdictKind(summary.verdict.code);
    const bool isConfirmed = kind == VerdictKind::Confirmed;
    if (isConfirmed)
        finishPhase();
    else
        leave();

    QString sentence = printable(summary.verdict.sentence);
    if (isConfirmed ? m_options.style.colours : m_options.coloursErrors) {
        const auto &colour = isConfirmed ? Green : kind == VerdictKind::Failed ? Red : Yellow;
        sentence = colour + sentence + Plain;
    }
    if (isConfirmed && m_options.isQuiet) {
        m_write(sentence + QLatin1Char('\n'));
        return;
    }
    if (!isConfirmed)
        sentence = m_options.programName + QStringLiteral(": ") + sentence;
    const auto lines = QStringList(sentence) + verdictLines(summary);
    (isConfirmed ? m_write : m_writeError)(lines.join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

void RunDisplay::begin(const RunEvent &event)
{
    m_now = event;
    m_now.percent.reset();
    m_now.parts.clear();
    m_now.bytesSent = -1;
    m_now.bytesTotal = -1;
    m_isInPhase = true;
    m_begin = m_options.clock();
    m_lastNews = m_begin;
    m_tenth = -1;
    m_remaining.clear();
    if (!m_options.style.redraws && !m_options.isQuiet)
        print(m_write, withoutEmpty({ head(), silenceText(m_begin) }));
}

// What stays of a phase on a terminal: how long it took, and all of its parts.
void RunDisplay::finishPhase()
{
    if (!m_isInPhase)
        return;
    m_isInPhase = false;
    if (!m_options.style.redraws || m_options.isQuiet)
        return;
    const int columns = m_options.style.columns() - 1;
    const QString bytes = m_now.bytesSent < 0 ? QString() : amountText(m_now.bytesSent);
    const QString line = withoutEmpty(
        { head() + QStringLiteral(": done"), bytes, clockText(m_options.clock() - m_begin) });
    m_block.show(QStringList(cutToColumns(line, columns)) + partLines(int(m_now.parts.size())));
    m_block.close();
}

// What stays of a phase that the run ended in: how far it came.
void RunDisplay::leave()
{
    if (!m_isInPhase)
        return;
    m_isInPhase = false;
    m_remaining.clear();
    m_now.silence = seconds(0);
    m_lastNews = m_options.clock();
    redraw();
    close();
}

void RunDisplay::print(const Writer &writer, const QString &line)
{
    m_block.above([&writer, &line] { writer(line + QLatin1Char('\n')); });
}

void RunDisplay::redraw()
{
    if (m_options.style.redraws && !m_options.isQuiet)
        m_block.show(block(m_options.clock()));
}

QStringList RunDisplay::block(Time now) const
{
    // A row for the line of the phase, and one so that the line above can still be read.
    return QStringList(headLine(now)) + partLines(qMax(1, m_options.style.rows() - 2));
}

QString RunDisplay::head() const
{
    const QString title = phaseTitle(m_now.phase);
    if (m_now.place <= 0)
        return title;
    return QStringLiteral("[%1/%2] %3").arg(m_now.place).arg(m_now.places).arg(title);
}

QString RunDisplay::headLine(Time now) const
{
    // The last column stays free: a character there makes some terminals start a new line.
    const int columns = m_options.style.columns() - 1;
    const auto percent = percentOf(m_now);
    const QString percentText = percent ? QStringLiteral("%1%").arg(*percent) : QString();
    const QString elapsed = clockText(now - m_begin);
    const auto forecast = m_remaining.forecast(now);
    const QString remaining =
        forecast ? QStringLiteral("about %1 left").arg(clockText(*forecast)) : QString();

    // What does not fit goes, the least needed first.
    const QStringList tails = {
        withoutEmpty({ percentText, bytesText(m_now), elapsed, remaining, silenceText(now) }),
        withoutEmpty({ percentText, bytesText(m_now), elapsed, remaining }),
        withoutEmpty({ percentText, elapsed, remaining }),
    };
    for (const auto &tail : tails) {
        const int room = columns - columnsOf(head()) - columnsOf(tail) - 2; // the two blanks
        if (!percent && room >= 0)
            return head() + QStringLiteral("  ") + tail;
        const int width = qMin(room - 3, WidestBar); // the brackets and one more blank
        if (!percent || width < NarrowestBar)
            continue;
        const int filled = width * *percent / 100;
        QString bar(filled, QLatin1Char('#'));
        if (m_options.style.colours && filled > 0)
            bar = Green + bar + Plain;
        return QStringLiteral("%1 [%2%3]  %4")
            .arg(head(), bar, QString(width - filled, QLatin1Char('.')), tail);
    }
    return cutToColumns(head() + QStringLiteral("  ") + withoutEmpty({ percentText, elapsed }),
                        columns);
}

QString RunDisplay::silenceText(Time now) const
{
    const auto limit = m_now.silence;
    const auto silent = now - m_lastNews;
    if (silent >= NoNews) {
        const QString text = QStringLiteral("no news for %1").arg(clockText(silent));
        return limit.count() > 0 ? text + QStringLiteral(" of at most ") + limitText(limit) : text;
    }
    if (limit.count() > 0 && !percentOf(m_now))
        return QStringLiteral("may be silent for up to ") + limitText(limit);
    return {};
}

QStringList RunDisplay::partLines(int maximum) const
{
    const auto &parts = m_now.parts;
    int nameColumns = 0;
    for (const auto &part : parts)
        nameColumns = qMax(nameColumns, columnsOf(partName(part)));

    const auto isReady = [](const PartProgress &part) {
        return part.percent >= 100;
    };
    // Where not all fit, those at work matter most; the order stays.
    const bool isWhole = int(parts.size()) <= maximum;
    int room = isWhole ? maximum : maximum - 1;
    const int unready = int(parts.size()) - int(std::count_if(parts.begin(), parts.end(), isReady));
    int roomForReady = qMax(0, room - unready);
    QStringList lines;
    int leftOut = 0;
    int leftOutReady = 0;
    for (const auto &part : parts) {
        int &roomForThis = isReady(part) ? roomForReady : room;
        if (roomForThis == 0) {
            ++leftOut;
            leftOutReady += isReady(part) ? 1 : 0;
            continue;
        }
        --roomForThis;
        lines.append(PartIndent
                     + QStringLiteral("%1 %2%  %3")
                           .arg(filledToColumns(partName(part), nameColumns),
                                QString::number(qBound(0, part.percent, 100)).rightJustified(3),
                                partState(part)));
    }
    if (leftOut > 0) {
        const QString ready =
            leftOutReady == 0 ? QString() : QStringLiteral("%1 of them at 100%").arg(leftOutReady);
        lines.append(PartIndent
                     + withoutEmpty({ QStringLiteral("and %1 more").arg(leftOut), ready }));
    }
    const int columns = m_options.style.columns() - 1;
    for (auto &line : lines)
        line = cutToColumns(line, columns);
    return lines;
}

void RunDisplay::logProgress(const std::vector<PartProgress> &previous)
{
    if (m_options.style.redraws || m_options.isQuiet)
        return;
    for (std::size_t i = 0; i < m_now.parts.size(); ++i) {
        const auto &part = m_now.parts[i];
        const bool isKnown = i < previous.size() && previous[i].name == part.name;
        if (!part.state.isEmpty() && !(isKnown && previous[i].state == part.state))
            print(m_write, PartIndent + partName(part) + QStringLiteral(": ") + partState(part));
    }
    const auto percent = percentOf(m_now);
    if (!percent || *percent / 10 == m_tenth)
        return;
    m_tenth = *percent / 10;
    print(m_write, logLine());
}

QString RunDisplay::logLine() const
{
    return head()
        + QStringLiteral(" %1").arg(
            withoutEmpty({ QStringLiteral("%1%").arg(*percentOf(m_now)), bytesText(m_now),
                           clockText(m_options.clock() - m_begin) }));
}

} // namespace Velmar::Host
