#include "run/verdict.h"

#include <algorithm>
#include <iterator>

namespace Velmar::Host {

namespace {

struct CodeText {
    VerdictCode code;
    VerdictKind kind;
    HostExitCode exitCode;
    const char *word;
    const char *advice;
};

constexpr auto Confirmed = VerdictKind::Confirmed;
constexpr auto Unconfirmed = VerdictKind::Unconfirmed;
constexpr auto Failed = VerdictKind::Failed;

constexpr auto UpgradeAgain = "Upgrade again once the cause is removed; the device has installed "
                              "nothing.";
constexpr auto LookAtVersions =
    "Look with \"velmar-upgrade versions\" when the device is back, and "
    "upgrade again if they are not those planned.";
constexpr auto Watch = "See what it does with \"velmar-upgrade watch\", and do not switch it off.";
constexpr auto NewPlan = "Make a new plan with \"velmar-upgrade plan\".";
constexpr auto Inspect = "Look at the package with \"velmar-upgrade inspect\".";

constexpr CodeText Texts[] = {
    { VerdictCode::Confirmed, Confirmed, HostExitCode::Ok, "confirmed", "" },
    { VerdictCode::NothingToDo, Confirmed, HostExitCode::Ok, "nothing-to-do", "" },
    { VerdictCode::Answered, Confirmed, HostExitCode::Ok, "answered", "" },
    { VerdictCode::NotReturned, Unconfirmed, HostExitCode::Unconfirmed, "not-returned",
      "Look at the device itself; it may still be starting. Do not switch it off before it is." },
    { VerdictCode::NotRestarted, Unconfirmed, HostExitCode::Unconfirmed, "not-restarted",
      "Look with \"velmar-upgrade status\" whether it installs; if it does not, restart it, and "
      "look at its versions." },
    { VerdictCode::VersionsDiffer, Unconfirmed, HostExitCode::Unconfirmed, "versions-differ",
      "Compare the versions with those of the package, and upgrade again if they are not meant." },
    { VerdictCode::VersionsUnreadable, Unconfirmed, HostExitCode::Unconfirmed,
      "versions-unreadable", LookAtVersions },
    { VerdictCode::NotComparable, Unconfirmed, HostExitCode::Unconfirmed, "not-comparable",
      "Compare the versions of the device with those that its maker names for the package." },
    { VerdictCode::OtherDevice, Unconfirmed, HostExitCode::Unconfirmed, "other-device",
      "Find the upgraded device with \"velmar-upgrade devices\", and look at its versions." },
    { VerdictCode::NoProgress, Unconfirmed, HostExitCode::Unconfirmed, "no-progress", Watch },
    { VerdictCode::DeviceLost, Unconfirmed, HostExitCode::Unconfirmed, "device-lost", Watch },
    { VerdictCode::TimeLimit, Unconfirmed, HostExitCode::Unconfirmed, "time-limit", Watch },
    { VerdictCode::WorkerLost, Unconfirmed, HostExitCode::Unconfirmed, "worker-lost", Watch },
    { VerdictCode::Left, Unconfirmed, HostExitCode::Interrupted, "left", Watch },
    { VerdictCode::Usage, Failed, HostExitCode::Usage, "usage", "See \"velmar-upgrade --help\"." },
    { VerdictCode::CopyFailed, Failed, HostExitCode::Failed, "copy-failed", UpgradeAgain },
    { VerdictCode::DiskFull, Failed, HostExitCode::Failed, "disk-full",
      "Make room, and upgrade again; the device has installed nothing." },
    { VerdictCode::NoPackage, Failed, HostExitCode::PackageRefused, "no-package",
      "Check the path of the package." },
    { VerdictCode::PackageRefused, Failed, HostExitCode::PackageRefused, "package-refused",
      "Have the package's maker mend it." },
    { VerdictCode::NothingFits, Failed, HostExitCode::PackageRefused, "nothing-fits", Inspect },
    { VerdictCode::NotPlanned, Failed, HostExitCode::PackageRefused, "not-planned", Inspect },
    { VerdictCode::PlanOutdated, Failed, HostExitCode::PackageRefused, "plan-outdated", NewPlan },
    { VerdictCode::OutOfTime, Failed, HostExitCode::Failed, "out-of-time", UpgradeAgain },
    { VerdictCode::Unreachable, Failed, HostExitCode::Unreachable, "unreachable",
      "Check the address, and that the device is switched on." },
    { VerdictCode::DeviceBusy, Failed, HostExitCode::TryAgain, "device-busy",
      "Wait for the other run to end, and try again." },
    { VerdictCode::WorkerDied, Failed, HostExitCode::Failed, "worker-died", UpgradeAgain },
    { VerdictCode::PrepareFailed, Failed, HostExitCode::Failed, "prepare-failed", UpgradeAgain },
    { VerdictCode::PlanMismatch, Failed, HostExitCode::Failed, "plan-mismatch", UpgradeAgain },
    { VerdictCode::SendFailed, Failed, HostExitCode::Failed, "send-failed", UpgradeAgain },
    { VerdictCode::SilentDevice, Failed, HostExitCode::Failed, "silent-device", UpgradeAgain },
    { VerdictCode::BadAnswer, Failed, HostExitCode::Failed, "bad-answer",
      "Look at the versions of the device before you upgrade again: it may have installed." },
    { VerdictCode::NothingSent, Failed, HostExitCode::Failed, "nothing-sent", UpgradeAgain },
    { VerdictCode::InstallFailed, Failed, HostExitCode::Failed, "install-failed",
      "Upgrade again when the device is back; \"velmar-upgrade report\" has what support needs." },
    { VerdictCode::NotInstalled, Failed, HostExitCode::Failed, "not-installed",
      "Upgrade again; if that ends alike, send support the file of \"velmar-upgrade report\"." },
    { VerdictCode::Interrupted, Failed, HostExitCode::Interrupted, "interrupted", "" },
    { VerdictCode::Internal, Failed, HostExitCode::Failed, "internal",
      "Send support the file of \"velmar-upgrade report\"." },
};

const CodeText &textOf(VerdictCode code)
{
    return *std::find_if(std::begin(Texts), std::end(Texts),
                         [code](const CodeText &text) { return text.code == code; });
}

} // namespace

Verdict verdict(VerdictCode code, const QString &sentence)
{
    return { code, sentence, QString::fromUtf8(textOf(code).advice) };
}

VerdictKind verdictKind(VerdictCode code)
{
    return textOf(code).kind;
}

QString verdictKindWord(VerdictKind kind)
{
    switch (kind) {
    case VerdictKind::Confirmed:
        return QStringLiteral("confirmed");
    case VerdictKind::Unconfirmed:
        return QStringLiteral("unconfirmed");
    case VerdictKind::Failed:
        return QStringLiteral("failed");
    }
    return {};
}

QString verdictWord(VerdictCode code)
{
    return QLatin1String(textOf(code).word);
}

std::optional<VerdictCode> verdictOf(const QString &word)
{
    const auto *text =
        std::find_if(std::begin(Texts), std::end(Texts), [&word](const CodeText &candidate) {
            return word == QLatin1String(candidate.word);
        });
    if (text == std::end(Texts))
        return std::nullopt;
    return text->code;
}

HostExitCode verdictExitCode(VerdictCode code)
{
    return textOf(code).exitCode;
}

} // namespace Velmar::Host
