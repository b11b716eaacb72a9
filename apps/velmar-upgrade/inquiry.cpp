#include "inquiry.h"

#include "console.h"
#include "run/backgroundtask.h"

#include <QCoreApplication>

#include <chrono>
#include <csignal>
#include <utility>

using namespace Velmar::Host;

Inquiry::Notes::Notes(bool isVerbose, bool isQuiet)
    : m_isVerbose(isVerbose)
    , m_isQuiet(isQuiet)
{
}

void Inquiry::Notes::take(const RunEvent &event)
{
    if (event.kind == RunEvent::Kind::Message && !m_isQuiet)
        printWarning(event.text);
    if (event.kind == RunEvent::Kind::Log && m_isVerbose && !m_isQuiet)
        printLogLine(event.text);
}

Inquiry::Inquiry(const CommandLine &options, bool isQuiet)
    : m_options(options)
    , m_notes(options.isGiven("verbose"), isQuiet)
    , m_json(options.isGiven("verbose"))
    , m_log(logTeller(this, m_events))
{
    if (options.isGiven("json"))
        m_events.add(m_json);
    else
        m_events.add(m_notes);
    m_elapsed.start();
    connect(&m_interrupts, &InterruptWatcher::signalInterrupted, this, &Inquiry::slotInterrupt);
}

bool Inquiry::begin()
{
    std::signal(SIGPIPE, SIG_IGN);
    return openLogFile(m_options, m_logFile, m_events);
}

bool Inquiry::await(const Work &work)
{
    if (m_isInterrupted || !m_fault.isEmpty())
        return false;
    BackgroundTask task(work);
    QEventLoop loop;
    connect(&task, &BackgroundTask::signalEnded, &loop, &QEventLoop::quit);
    connect(&m_interrupts, &InterruptWatcher::signalInterrupted, &task, &BackgroundTask::cancel);
    task.start();
    loop.exec();
    m_fault = task.fault();
    return !m_isInterrupted && m_fault.isEmpty();
}

bool Inquiry::await(QEventLoop &loop)
{
    if (m_isInterrupted)
        return false;
    connect(&m_interrupts, &InterruptWatcher::signalInterrupted, &loop, &QEventLoop::quit);
    loop.exec();
    return !m_isInterrupted;
}

void Inquiry::warn(const QString &sentence)
{
    RunEvent event;
    event.kind = RunEvent::Kind::Message;
    event.code = QStringLiteral("warning");
    event.text = sentence;
    m_events.take(event);
}

void Inquiry::tell(RunEvent::Kind kind, const QJsonValue &document, const QString &text)
{
    if (m_isInterrupted || !m_fault.isEmpty())
        return; // it may be half an answer
    RunEvent event;
    event.kind = kind;
    event.data = document;
    m_events.take(event);
    if (!m_options.isGiven("json"))
        print(text);
}

HostExitCode Inquiry::answered(const QString &sentence)
{
    if (m_isInterrupted || !m_fault.isEmpty())
        return fail(VerdictCode::Internal, m_fault);
    return verdictExitCode(end(VerdictCode::Answered, sentence).verdict.code);
}

HostExitCode Inquiry::fail(VerdictCode code, const QString &sentence, const QStringList &causes)
{
    RunSummary summary;
    if (m_isInterrupted)
        summary = end(VerdictCode::Interrupted, QStringLiteral("Interrupted. Nothing was changed"));
    else if (!m_fault.isEmpty())
        summary = end(VerdictCode::Internal, m_fault);
    else
        summary = end(code, sentence, causes);
    printFailure(summary);
    return verdictExitCode(summary.verdict.code);
}

void Inquiry::slotInterrupt()
{
    if (std::exchange(m_isInterrupted, true))
        leaveProcess(fail(VerdictCode::Interrupted, QString()));
    m_links.close();
}

RunSummary Inquiry::end(VerdictCode code, const QString &sentence, const QStringList &causes)
{
    // Lines of the log that are on their way from another thread.
    QCoreApplication::sendPostedEvents(this);
    RunEvent event;
    event.kind = RunEvent::Kind::Verdict;
    event.summary = RunSummary();
    event.summary->verdict = verdict(code, sentence);
    event.summary->causes = causes;
    event.summary->wholeDuration = std::chrono::milliseconds(m_elapsed.elapsed());
    m_events.take(event);
    return *event.summary;
}
