#ifndef VELMARPACKAGE_INTERRUPTION_H
#define VELMARPACKAGE_INTERRUPTION_H

#include <csignal>
#include <utility>
#include <vector>

namespace Velmar::Package {

/*!
    While it lives, SIGINT, SIGTERM and SIGHUP do not end the process but make mayGoOn() answer
    false, so that the work in hand can clear up behind itself. A signal that was ignored before
    stays ignored. One object at a time.
*/
class Interruption
{
public:
    Interruption();
    ~Interruption();

    /*! Ends the process by the signal that arrived, as its parent expects; does nothing if none
        did. */
    void endProcessIfInterrupted() const;

private:
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    std::vector<std::pair<int, struct sigaction>> m_previous; // signal number, former action
};

/*! False once a signal has asked the process to end. */
bool mayGoOn();

} // namespace Velmar::Package

#endif // VELMARPACKAGE_INTERRUPTION_H
