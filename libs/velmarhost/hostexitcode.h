#ifndef VELMARHOST_HOSTEXITCODE_H
#define VELMARHOST_HOSTEXITCODE_H

namespace Velmar::Host {

/*! How a host program ends. Scripts rely on the numbers: new ones are added, none changes. */
enum class HostExitCode {
    Ok = 0, //!< done, or there was nothing to do
    Failed = 1, //!< the upgrade, or what else was asked, failed
    Usage = 2, //!< wrong options, or a file named by an option cannot be used
    NothingFits = 3, //!< the package cannot be used, or nothing of it fits the device
    Unreachable = 4, //!< no device there, or not one that this host can talk to
    OutcomeUnknown = 5, //!< the time limit passed: the device may still be at work
    Interrupted = 130, //!< ended by the user or by a signal
};

} // namespace Velmar::Host

#endif // VELMARHOST_HOSTEXITCODE_H
