#ifndef VELMARHOST_PHASE_H
#define VELMARHOST_PHASE_H

#include <QString>

#include <optional>

namespace Velmar::Host {

/*! What an upgrade is at, in the order in which it happens. */
enum class Phase {
    Copying, //!< the package goes into a private folder
    Checking, //!< the copy is read strictly
    Planning, //!< the device is asked, and what it will get is settled
    Preparing, //!< the image is built; the device is not changed
    Sending,
    Installing,
    Restarting,
    Confirming, //!< the device is asked for its versions
};

/*! The word for \a phase in events and plans, as in "send". Words are stable. */
QString phaseWord(Phase phase);

/*! The phase with that \a word. */
std::optional<Phase> phaseOf(const QString &word);

/*! \a phase for people, as in "Sending". */
QString phaseTitle(Phase phase);

} // namespace Velmar::Host

#endif // VELMARHOST_PHASE_H
