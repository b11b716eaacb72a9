#include "conduct.h"

#include "console.h"
#include "jsonoutput.h"
#include "logfile.h"
#include "plantext.h"
#include "process/interruptwatcher.h"
#include "process/logcapture.h"
#include "run/upgrade.h"
#include "show/rundisplay.h"
#include "show/runrecord.h"

#include <QDir>
#include <QEventLoop>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

using namespace Velmar::Host;

namespace {

UpgradeSettings settingsOf(const CommandLine &options, Goal goal)
{
    UpgradeSettings settings;
    settings.workerMemory = options.number("worker-memory") * 1024 * 1024;
    settings.workFolder = options.value("work-folder");
    if (goal == Goal::Plan)
        return settings;
    settings.timeLimit = options.timeLimit();
    settings.returnLimit = std::chrono::seconds(options.number("return-timeout"));
    if (options.isSet("stall-timeout"))
        settings.silenceLimit = std::chrono::seconds(options.number("stall-timeout"));
    return settings;
}

/*! The screen, the files and the keyboard of one upgrade. */
class Conductor : public QObject
{
public:
    Conductor(UpgradeWish wish, const CommandLine &options, PlanHandler takePlan);

    /*! False with the error told. */
    bool openLogFile();

    HostExitCode run();

private:
    void makeRecord();
    void connectUpgrade();
    void takePlan(const Plan &plan);
    void ask(const Plan &plan);
    void slotAnswer();
    void slotInterrupt(int signalNumber);

    const UpgradeWish m_wish;
    const CommandLine &m_options;
    const PlanHandler m_takePlan;
    RunEventFan m_events;
    JsonOutput m_json;
    RunDisplay m_display;
    LogFile m_logFile;
    std::unique_ptr<RunRecord> m_record;
    Upgrade m_upgrade;
    InterruptWatcher m_interrupts;
    QTimer m_refresh;
    std::unique_ptr<QSocketNotifier> m_answer; // while a question is open
    QEventLoop m_loop;
    HostExitCode m_code = HostExitCode::Failed;
    bool m_isInterrupted = false;
};

RunDisplayOptions displayOptions(const CommandLine &options, Goal goal)
{
    RunDisplayOptions display;
    display.style = OutputStyle::of(goal == Goal::Plan ? stderr : stdout);
    display.coloursErrors = OutputStyle::of(stderr).colours;
    display.isQuiet = options.isGiven("quiet");
    display.isVerbose = options.isGiven("verbose");
    return display;
}

Conductor::Conductor(UpgradeWish wish, const CommandLine &options, PlanHandler takePlan)
    : m_wish(std::move(wish))
    , m_options(options)
    , m_takePlan(std::move(takePlan))
    , m_json(options.isGiven("verbose"))
    // The plan itself is what the verb plan writes to standard output.
    , m_display(displayOptions(options, m_wish.goal),
                m_wish.goal == Goal::Plan ? printError : print, printError)
    , m_upgrade(m_wish, settingsOf(options, m_wish.goal), m_events)
{
    if (options.isGiven("json"))
        m_events.add(m_json);
    else
        m_events.add(m_display);
    connectUpgrade();
    m_refresh.setInterval(std::chrono::seconds(1));
    connect(&m_refresh, &QTimer::timeout, this, [this] { m_display.refresh(); });
    connect(&m_interrupts, &InterruptWatcher::signalInterrupted, this, &Conductor::slotInterrupt);
}

bool Conductor::openLogFile()
{
    return ::openLogFile(m_options, m_logFile, m_events);
}

HostExitCode Conductor::run()
{
    // A reader of the output that goes away must not take the upgrade with it.
    std::signal(SIGPIPE, SIG_IGN);
    if (m_wish.goal != Goal::Plan)
        makeRecord();
    const LogCapture log(logTeller(this, m_events));
    m_refresh.start();
    m_upgrade.start();
    m_loop.exec();
    m_display.close();
    if (m_upgrade.isWorkerLeft())
        leaveProcess(m_code);
    return m_code;
}

void Conductor::makeRecord()
{
    QString errorText;
    m_record = RunRecord::begin(runId(), {}, errorText);
    if (!m_record) {
        printWarning(errorText);
        return;
    }
    m_record->hide(QStringLiteral("package"), m_wish.packagePath);
    connect(&m_upgrade, &Upgrade::signalCopied, this,
            [this](const QString &path) { m_record->hide(QStringLiteral("copy"), path); });
    m_record->setFaultHandler([this](const QString &sentence) {
        m_display.close();
        printWarning(sentence);
    });
    m_events.add(*m_record);
}

void Conductor::connectUpgrade()
{
    connect(&m_upgrade, &Upgrade::signalPlanned, this, &Conductor::takePlan);
    connect(&m_upgrade, &Upgrade::signalEnded, this, [this](const Verdict &verdict) {
        m_answer.reset();
        m_code = verdictExitCode(verdict.code);
        m_loop.quit();
    });
}

void Conductor::takePlan(const Plan &plan)
{
    const auto refusal = m_takePlan ? m_takePlan(plan) : std::nullopt;
    if (refusal) {
        m_upgrade.refuse(*refusal);
        return;
    }
    if (m_wish.goal == Goal::Plan || m_options.isGiven("yes")) {
        if (m_wish.goal == Goal::Upgrade && !m_options.isGiven("json")) {
            for (const auto &line : planSummary(plan))
                m_display.message(line);
        }
        m_upgrade.agree();
        return;
    }
    ask(plan);
}

void Conductor::ask(const Plan &plan)
{
    m_refresh.stop(); // nothing may be drawn over the question
    m_display.finishPhase();
    print(planSummary(plan).join(QLatin1Char('\n')) + QLatin1Char('\n'));
    print(QStringLiteral("Upgrade and restart the device? [y/N] "));
    m_answer = std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read);
    connect(m_answer.get(), &QSocketNotifier::activated, this, &Conductor::slotAnswer);
}

void Conductor::slotAnswer()
{
    m_answer->setEnabled(false);
    std::string answer;
    std::getline(std::cin, answer);
    m_refresh.start();
    if (!answer.empty() && (answer.front() == 'y' || answer.front() == 'Y'))
        m_upgrade.agree();
    else
        m_upgrade.decline();
}

void Conductor::slotInterrupt(int signalNumber)
{
    const bool isFirst = !std::exchange(m_isInterrupted, true);
    if (m_answer && m_answer->isEnabled())
        print(QStringLiteral("\n")); // what follows is not to stand behind the question
    if (isFirst && signalNumber == SIGINT)
        m_upgrade.interrupt();
    else
        m_upgrade.leave();
}

} // namespace

HostExitCode conduct(const UpgradeWish &wish, const CommandLine &options,
                     const PlanHandler &takePlan)
{
    Conductor conductor(wish, options, takePlan);
    if (!conductor.openLogFile())
        return HostExitCode::Usage;
    return conductor.run();
}
