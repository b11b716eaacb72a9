#include "mishaps.h"

namespace Velmar::Simulator {

namespace {

constexpr int HalfWay = 50; // percent

} // namespace

Mishaps::Mishaps(const Faults &faults)
    : m_faults(faults)
{
}

bool Mishaps::watchesTransfers() const
{
    return m_faults.isSet(Fault::Silent) || m_faults.isSet(Fault::Gone)
        || m_faults.isSet(Fault::RestartsSending);
}

void Mishaps::noteSending(int percent)
{
    if (percent >= HalfWay)
        reach(Point::Send);
    restartOnce(Fault::RestartsSending, percent, m_hasRestartedSending);
}

bool Mishaps::noteInstalling(int percent)
{
    if (percent >= HalfWay)
        reach(Point::Install);
    restartOnce(Fault::Restarts, percent, m_hasRestartedInstalling);
    return !m_isStopped; // a silent device goes on with its work
}

void Mishaps::noteInstalled()
{
    reach(Point::Done);
}

void Mishaps::noteRestartOrdered()
{
    reach(Point::Restart);
}

void Mishaps::noteReturned()
{
    reach(Point::Return);
}

void Mishaps::endMuteness()
{
    m_isMute = false;
    m_isStopped = false;
}

void Mishaps::reach(Point point)
{
    if (m_isMute)
        return;
    if (m_faults.value(Fault::Silent, -1) == int(point)) {
        m_isMute = true;
        Q_EMIT fellSilent();
    } else if (m_faults.value(Fault::Gone, -1) == int(point)) {
        m_isMute = true;
        m_isStopped = true;
        Q_EMIT wentAway();
    }
}

void Mishaps::restartOnce(Fault fault, int percent, bool &hasHappened)
{
    if (m_isMute || hasHappened || !m_faults.isSet(fault) || percent < m_faults.value(fault, 0))
        return;
    hasHappened = true;
    m_isMute = true;
    m_isStopped = true;
    Q_EMIT restarts();
}

} // namespace Velmar::Simulator
