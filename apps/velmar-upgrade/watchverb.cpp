#include "verbs.h"

#include "console.h"
#include "device/devicesession.h"
#include "process/logcapture.h"
#include "run/upgraderun.h"
#include "show/printable.h"
#include "steps.h"
#include "supervise.h"

#include <velmarmodelcontrol/auxiliary.h>

#include <QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <optional>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

// What a device reports of its installation.
constexpr int Running = 1;
constexpr int Installed = 2;
constexpr int InstallationFailed = 3;

/*! The end of \a result without a look at anything else; nothing if the device is to be watched. */
std::optional<HostExitCode> endWithoutWatching(int result, bool mayRestart)
{
    const auto hint = QStringLiteral(" It is not restarted; add --restart for that");
    switch (result) {
    case Running:
        return std::nullopt;
    case Installed:
        if (mayRestart)
            return std::nullopt;
        printLine(QStringLiteral("The device has installed everything.") + hint);
        return HostExitCode::Ok;
    case InstallationFailed:
        if (mayRestart)
            return std::nullopt;
        return complain(HostExitCode::Failed,
                        QStringLiteral("The installation has failed.") + hint);
    default:
        printLine(QStringLiteral("The device is installing nothing."));
        return HostExitCode::Ok;
    }
}

/*! What a device told of its installation. */
struct ToldProgress {
    bool isTold = false;
    ProtoModel::Auxiliary::s_UpgradePercent progress;
    QString errorText;
};

ToldProgress askForProgress(const std::shared_ptr<BizModel::Device> &device)
{
    ToldProgress told;
    told.isTold =
        ModelControl::Auxiliary(device).readUpgradeProgress(told.progress, told.errorText);
    return told;
}

} // namespace

HostExitCode watchVerb(const CommandLine &options)
{
    const auto address = options.deviceAddress();
    if (!address)
        return HostExitCode::Usage;
    const auto timeLimit = options.timeLimit();
    const bool isVerbose = options.isSet("verbose");
    LogCapture log(isVerbose ? printLogLine : nullptr);
    if (!useCatalogue(options))
        return HostExitCode::Usage;
    const auto session = openSession(*address, log);
    if (!session)
        return HostExitCode::Unreachable;

    const auto texts = nativeRoadTexts(address->toString());
    QElapsedTimer watched;
    watched.start();
    // On a thread, since a device that does not answer is asked again and again, and longer than
    // the time limit may be.
    auto answer = std::async(std::launch::async, askForProgress, session->device());
    if (answer.wait_for(timeLimit) != std::future_status::ready) {
        complain(HostExitCode::Unconfirmed,
                 QStringLiteral("The time limit has passed. %1")
                     .arg(texts.leaving(DeviceRun::Stage::Installing)));
        leaveProcess(HostExitCode::Unconfirmed);
    }
    const auto told = answer.get();
    if (!told.isTold)
        return complain(
            HostExitCode::Failed,
            QStringLiteral("The device does not tell its progress: %1. Check that it is "
                           "switched on, and try again")
                .arg(printable(told.errorText)));
    if (const auto code = endWithoutWatching(told.progress.result, options.isSet("restart")))
        return *code;

    log.clear(); // what went before is no cause of how the watching ends
    const auto timeLeft = std::max(timeLimit - std::chrono::milliseconds(watched.elapsed()),
                                   std::chrono::milliseconds(0));
    UpgradeRun run({ session->device(), {}, {}, {}, {} });
    return supervise(
        run, [&] { run.start(Firmware::Enum::UpgradeProcessType::ReadProgressOnly, timeLeft); },
        texts, isVerbose, log);
}
