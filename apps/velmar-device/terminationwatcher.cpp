#include "terminationwatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace Velmar::Simulator {

TerminationWatcher::TerminationWatcher()
{
    sigset_t signalSet;
    sigemptyset(&signalSet);
    sigaddset(&signalSet, SIGTERM);
    sigaddset(&signalSet, SIGINT);
    // Blocked, they are kept for the descriptor.
    pthread_sigmask(SIG_BLOCK, &signalSet, nullptr);
    m_descriptor = ::signalfd(-1, &signalSet, SFD_CLOEXEC | SFD_NONBLOCK);
    m_notifier = std::make_unique<QSocketNotifier>(m_descriptor, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &TerminationWatcher::terminated);
}

TerminationWatcher::~TerminationWatcher()
{
    m_notifier.reset();
    ::close(m_descriptor);
}

} // namespace Velmar::Simulator
