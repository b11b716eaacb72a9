#include "supervise.h"

#include "console.h"
#include "process/interruptwatcher.h"
#include "show/outputstyle.h"
#include "show/printable.h"
#include "show/progressdisplay.h"

#include <QEventLoop>

#include <algorithm>
#include <csignal>

using namespace Velmar;
using namespace Velmar::Host;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

QString installingLabel(const s_UpgradePercent &progress)
{
    auto label = QStringLiteral("Installing, current progress is %1%").arg(progress.rate);
    if (progress.parts.size() > 1) {
        const auto done = std::count_if(progress.parts.begin(), progress.parts.end(),
                                        [](const auto &part) { return part.rate >= 100; });
        label += QStringLiteral(" (%1 of %2 parts)").arg(done).arg(progress.parts.size());
    }
    return label;
}

} // namespace

HostExitCode supervise(DeviceRun &run, const std::function<void()> &start, const RoadTexts &texts,
                       bool isVerbose, const LogCapture &log)
{
    // A reader of the output that goes away must not take the upgrade with it.
    std::signal(SIGPIPE, SIG_IGN);

    auto style = OutputStyle::of(stdout);
    style.redraws = style.redraws && !isVerbose; // log lines would tear the bar apart
    ProgressDisplay display(style, print);
    QEventLoop loop;
    auto code = HostExitCode::Failed;
    auto stage = DeviceRun::Stage::Idle; // the last one before the end

    QObject::connect(&run, &DeviceRun::signalStatusText, &loop,
                     [&display](const QString &text) { display.message(text); });
    QObject::connect(&run, &DeviceRun::signalSending, &loop,
                     [&display](int percent, const QString &text) {
                         display.progress(ProgressPhase::Sending, percent, text);
                     });
    QObject::connect(
        &run, &DeviceRun::signalInstalling, &loop, [&display](const s_UpgradePercent &progress) {
            display.progress(ProgressPhase::Installing, progress.rate, installingLabel(progress));
        });
    QObject::connect(&run, &DeviceRun::signalStageChanged, &loop, [&stage](DeviceRun::Stage now) {
        if (now != DeviceRun::Stage::Ended)
            stage = now;
    });
    QObject::connect(
        &run, &DeviceRun::signalEnded, &loop, [&](DeviceRun::Outcome outcome, const QString &text) {
            display.close();
            switch (outcome) {
            case DeviceRun::Outcome::Succeeded:
                code = HostExitCode::Ok;
                printLine(printable(text));
                break;
            case DeviceRun::Outcome::Failed:
                code = complain(HostExitCode::Failed, printable(text));
                printCause(log.lastLines());
                printAdvice(texts.advice(stage));
                break;
            case DeviceRun::Outcome::TimedOut:
                code = complain(
                    HostExitCode::Unconfirmed,
                    QStringLiteral("The time limit has passed. %1").arg(texts.leaving(stage)));
                break;
            }
            loop.quit();
        });

    InterruptWatcher interrupts;
    bool isWarned = false;
    QObject::connect(&interrupts, &InterruptWatcher::signalInterrupted, &loop,
                     [&](int signalNumber) {
                         if (signalNumber == SIGINT && !isWarned) {
                             isWarned = true;
                             display.message(QStringLiteral(
                                 "The upgrade goes on: the device is not to be interrupted. "
                                 "Press Ctrl-C again to leave it to itself."));
                             return;
                         }
                         display.close();
                         complain(HostExitCode::Interrupted, texts.leaving(run.stage()));
                         run.giveUp();
                         leaveProcess(HostExitCode::Interrupted);
                     });

    start();
    loop.exec();
    if (run.isWorkerLeftBehind())
        leaveProcess(code);
    return code;
}
