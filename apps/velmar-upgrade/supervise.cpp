#include "supervise.h"

#include "console.h"
#include "interruptwatcher.h"
#include "outputstyle.h"
#include "printable.h"
#include "progressdisplay.h"

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

/*! What becomes of the device when the host leaves it at \a stage. */
QString leavingText(UpgradeRun::Stage stage, const QString &address)
{
    const auto watch = QStringLiteral("velmar-upgrade watch --device ") + address;
    switch (stage) {
    case UpgradeRun::Stage::Idle:
    case UpgradeRun::Stage::Preparing:
        return QStringLiteral("Nothing had been sent: the device stays as it was");
    case UpgradeRun::Stage::Sending:
        return QStringLiteral(
                   "The image was being sent: a device does not install an image that is "
                   "not complete. If it was, see the installation with: %1")
            .arg(watch);
    case UpgradeRun::Stage::Installing:
    case UpgradeRun::Stage::Ended:
        break;
    }
    return QStringLiteral("The device goes on by itself. See it with: %1").arg(watch);
}

/*! What to do about a run that failed at \a stage. */
QString advice(UpgradeRun::Stage stage)
{
    return stage <= UpgradeRun::Stage::Preparing
        ? QStringLiteral(
            "the device has installed nothing; upgrade again once the cause is removed")
        : QStringLiteral("upgrade again when the device is back");
}

} // namespace

HostExitCode supervise(UpgradeRun &run, Firmware::Enum::UpgradeProcessType type,
                       std::chrono::milliseconds timeLimit, const QString &address, bool isVerbose,
                       const LogCapture &log)
{
    // A reader of the output that goes away must not take the upgrade with it.
    std::signal(SIGPIPE, SIG_IGN);

    auto style = OutputStyle::of(stdout);
    style.redraws = style.redraws && !isVerbose; // log lines would tear the bar apart
    ProgressDisplay display(style, print);
    QEventLoop loop;
    auto code = HostExitCode::Failed;
    auto stage = UpgradeRun::Stage::Idle; // the last one before the end

    QObject::connect(&run, &UpgradeRun::signalStatusText, &loop,
                     [&display](const QString &text) { display.message(text); });
    QObject::connect(&run, &UpgradeRun::signalSending, &loop,
                     [&display](int percent, const QString &text) {
                         display.progress(ProgressPhase::Sending, percent, text);
                     });
    QObject::connect(
        &run, &UpgradeRun::signalInstalling, &loop, [&display](const s_UpgradePercent &progress) {
            display.progress(ProgressPhase::Installing, progress.rate, installingLabel(progress));
        });
    QObject::connect(&run, &UpgradeRun::signalStageChanged, &loop, [&stage](UpgradeRun::Stage now) {
        if (now != UpgradeRun::Stage::Ended)
            stage = now;
    });
    QObject::connect(&run, &UpgradeRun::signalEnded, &loop,
                     [&](UpgradeRun::Outcome outcome, const QString &text) {
                         display.close();
                         switch (outcome) {
                         case UpgradeRun::Outcome::Succeeded:
                             code = HostExitCode::Ok;
                             printLine(printable(text));
                             break;
                         case UpgradeRun::Outcome::Failed:
                             code = complain(HostExitCode::Failed, printable(text));
                             printCause(log.lastLines());
                             printAdvice(advice(stage));
                             break;
                         case UpgradeRun::Outcome::TimedOut:
                             code = complain(HostExitCode::OutcomeUnknown,
                                             QStringLiteral("The time limit has passed. %1")
                                                 .arg(leavingText(stage, address)));
                             break;
                         }
                         loop.quit();
                     });

    InterruptWatcher interrupts;
    bool isWarned = false;
    QObject::connect(
        &interrupts, &InterruptWatcher::signalInterrupted, &loop, [&](int signalNumber) {
            if (signalNumber == SIGINT && !isWarned) {
                isWarned = true;
                display.message(
                    QStringLiteral("The upgrade goes on: the device is not to be interrupted. "
                                   "Press Ctrl-C again to leave it to itself."));
                return;
            }
            display.close();
            leaveProcess(complain(HostExitCode::Interrupted, leavingText(run.stage(), address)));
        });

    run.start(type, timeLimit);
    loop.exec();
    if (run.isWorkerLeftBehind())
        leaveProcess(code);
    return code;
}
