#include "interruption.h"

#include <atomic>

namespace Velmar::Package {

namespace {

std::atomic<int> arrivedSignal { 0 };
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

void keep(int signalNumber)
{
    arrivedSignal = signalNumber;
}

} // namespace

Interruption::Interruption()
{
    arrivedSignal = 0;
    for (const int signalNumber : { SIGINT, SIGTERM, SIGHUP }) {
        struct sigaction previous = {};
        sigaction(signalNumber, nullptr, &previous);
        if (previous.sa_handler == SIG_IGN)
            continue;
        struct sigaction action = {};
        action.sa_handler = keep;
        action.sa_flags = SA_RESTART;
        sigaction(signalNumber, &action, nullptr);
        m_previous.emplace_back(signalNumber, previous);
    }
}

Interruption::~Interruption()
{
    for (const auto &[signalNumber, action] : m_previous)
        sigaction(signalNumber, &action, nullptr);
}

void Interruption::endProcessIfInterrupted() const
{
    const int signalNumber = arrivedSignal;
    if (signalNumber == 0)
        return;
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signalNumber, &action, nullptr);
    raise(signalNumber);
}

bool mayGoOn()
{
    return arrivedSignal == 0;
}

} // namespace Velmar::Package
