#ifndef VELMARHOST_HOSTEXITCODE_H
#define VELMARHOST_HOSTEXITCODE_H

namespace Velmar::Host {

/*! How a host program ends. Scripts rely on the numbers: new ones are added, none changes. */
enum class HostExitCode {
    Ok = 0, //!< confirmed, or there was nothing to do
    Failed = 1, //!< the upgrade, or what else was asked, failed
    Usage = 2, //!< wrong options, or a file named by an option cannot be used
    PackageRefused = 3, //!< the package cannot be used, or nothing of it fits the device
    Unreachable = 4, //!< no device there, or not one that this host can talk to
    Unconfirmed = 5, //!< the device may have it, or may still be at work
    TryAgain = 75, //!< another run has the device: try again later
    Interrupted = 130, //!< ended by the user or by a signal
};

} // namespace Velmar::Host

#endif // VELMARHOST_HOSTEXITCODE_H
