#ifndef VELMARHOST_VERDICT_H
#define VELMARHOST_VERDICT_H

#include "process/hostexitcode.h"

#include <QString>

#include <optional>

namespace Velmar::Host {

/*! How sure a host is of the end of an upgrade. */
enum class VerdictKind {
    /*! The device itself says that it has what was planned, there was nothing to do, or what was
        asked is told. */
    Confirmed,
    Unconfirmed, //!< the device may have it, or may still get it
    Failed, //!< the device does not have it
};

/*! Why an upgrade ended as it did. */
enum class VerdictCode {
    // Confirmed.
    Confirmed,
    NothingToDo,
    Answered, //!< nothing but a question was asked, and it is answered
    // Unconfirmed: the device had begun, or may have.
    NotReturned, //!< it did not come back in time
    NotRestarted, //!< it has not, as far as is known, so that its versions say nothing yet
    VersionsDiffer, //!< it is back with other versions than planned, but not those from before
    VersionsUnreadable, //!< it is back and does not tell its versions
    NotComparable, //!< no version tells the old firmware from the new
    OtherDevice, //!< another device answers at the address
    NoProgress, //!< its installation stands still
    DeviceLost, //!< nothing is heard of it while it installs
    TimeLimit, //!< the whole took too long
    WorkerLost, //!< the worker process died behind the order to install
    Left, //!< the user left it to itself
    // Failed.
    Usage, //!< wrong options, or a file named by an option cannot be used
    CopyFailed, //!< the package cannot be copied
    DiskFull,
    NoPackage, //!< the path of the package leads to no folder
    PackageRefused, //!< the package breaks a rule
    NothingFits, //!< nothing of the package fits the device
    NotPlanned, //!< something that was picked would not be sent
    PlanOutdated, //!< package or device have changed since the plan was made
    OutOfTime, //!< the whole took too long, and the device was not told to install
    Unreachable, //!< no device there, or not one that this host can talk to
    DeviceBusy, //!< another run on this machine has the device
    WorkerDied, //!< the worker process died before the order to install
    PrepareFailed, //!< the image cannot be built
    PlanMismatch, //!< the image is not what was planned
    SendFailed,
    SilentDevice, //!< no answer before the order to install
    BadAnswer, //!< an answer over HTTP that is none
    NothingSent, //!< success was told without a byte sent
    InstallFailed, //!< the device says so
    NotInstalled, //!< the device has restarted, and has its versions from before
    Interrupted, //!< by the user, before the device was changed
    Internal, //!< the host itself is at fault
};

/*! The end of an upgrade. */
struct Verdict {
    VerdictCode code = VerdictCode::Internal;
    QString sentence; //!< what happened, for people; made printable
    QString advice; //!< what to do next, for people; empty if there is nothing to do
};

/*! \a sentence with the usual advice for \a code. */
Verdict verdict(VerdictCode code, const QString &sentence);

VerdictKind verdictKind(VerdictCode code);

/*! "confirmed", "unconfirmed" or "failed". Words are stable. */
QString verdictKindWord(VerdictKind kind);

/*! The word for \a code, as in "install-failed". Words are stable. */
QString verdictWord(VerdictCode code);

/*! The code with that \a word. */
std::optional<VerdictCode> verdictOf(const QString &word);

HostExitCode verdictExitCode(VerdictCode code);

} // namespace Velmar::Host

#endif // VELMARHOST_VERDICT_H
