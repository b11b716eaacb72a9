#include "process/interruptwatcher.h"

#include <atomic>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

// A signal handler may do little more than write(): it passes the number on through a pipe.
std::atomic<int> writeEnd { -1 };
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

void passOn(int signalNumber)
{
    const int savedErrno = errno;
    const auto byte = static_cast<unsigned char>(signalNumber);
    // A full pipe already holds more interrupts than anybody counts.
    [[maybe_unused]] const auto written = write(writeEnd, &byte, 1);
    errno = savedErrno;
}

} // namespace

InterruptWatcher::InterruptWatcher()
{
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return; // no descriptor left: the signals go on ending the process
    m_readEnd = ends[0];
    writeEnd = ends[1];
    m_notifier = std::make_unique<QSocketNotifier>(m_readEnd, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &InterruptWatcher::slotReadable);

    replace(SIGINT, passOn);
    replace(SIGTERM, passOn);
    replace(SIGHUP, SIG_IGN); // a connection to the terminal that breaks is no interrupt
}

InterruptWatcher::~InterruptWatcher()
{
    for (const auto &[signalNumber, action] : m_previous)
        sigaction(signalNumber, &action, nullptr);
    m_notifier.reset();
    if (m_readEnd == -1)
        return;
    ::close(m_readEnd);
    ::close(writeEnd.exchange(-1));
}

void InterruptWatcher::replace(int signalNumber, void (*handler)(int))
{
    struct sigaction previous = {};
    sigaction(signalNumber, nullptr, &previous);
    if (previous.sa_handler == SIG_IGN)
        return;
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signalNumber, &action, nullptr);
    m_previous.emplace_back(signalNumber, previous);
}

void InterruptWatcher::slotReadable()
{
    unsigned char signalNumber = 0;
    while (read(m_readEnd, &signalNumber, 1) == 1)
        Q_EMIT signalInterrupted(signalNumber);
}

} // namespace Velmar::Host
