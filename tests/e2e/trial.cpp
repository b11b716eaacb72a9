#include "trial.h"

#include <QDeadlineTimer>
#include <QTest>

namespace {

const QString HttpPort = QStringLiteral(":8080");

QStringList faultArguments(const QStringList &faults)
{
    QStringList arguments;
    for (const QString &fault : faults)
        arguments << QStringLiteral("--fault") << fault;
    return arguments;
}

} // namespace

Trial::Trial(Road road, const Adversity &adversity, int network, int place)
    : m_road(road)
    , m_adversity(adversity)
    , m_network(network)
    , m_place(place)
    , m_device(std::make_unique<DeviceProgram>(
          QStringList { QStringLiteral("--listen"), hostName(1) + QStringLiteral(":0") }
          + commonArguments() + faultArguments(adversity.faults) + adversity.device))
{
    m_isReady = m_device->waitForReady();
    if (!m_isReady || m_adversity.relay.isEmpty())
        return;
    startRelay(m_road == Road::Http ? hostName(2) + HttpPort : hostName(2));
    m_isReady = !m_relay->address().isEmpty();
}

void Trial::startRelay(const QString &address)
{
    const QString device = m_road == Road::Http ? hostName(1) + HttpPort : m_device->address();
    m_relay = std::make_unique<RelayProgram>(address, device, m_adversity.relay);
}

void Trial::renewRelay()
{
    const QString address = m_relay->address();
    m_relay.reset(); // its port is free for the next one
    startRelay(address);
}

QStringList Trial::deviceArguments() const
{
    QStringList arguments { QStringLiteral("--device") };
    if (m_relay != nullptr && m_road != Road::Http)
        arguments << m_relay->address();
    else
        arguments << m_device->address();
    if (m_relay != nullptr && m_road == Road::Http)
        arguments << QStringLiteral("--http-host") << hostName(2);
    return arguments;
}

QStringList Trial::runArguments(const QString &package) const
{
    QStringList arguments { QStringLiteral("run"), package, QStringLiteral("--yes") };
    arguments += deviceArguments();
    switch (m_road) {
    case Road::Native:
        break;
    case Road::Http:
        arguments << QStringLiteral("--road") << QStringLiteral("http");
        break;
    case Road::Registers:
        arguments << QStringLiteral("--road") << QStringLiteral("registers");
        break;
    }
    return arguments;
}

DeviceAftermath Trial::aftermath(int patienceMs) const
{
    const QDeadlineTimer deadline(patienceMs);
    DeviceAftermath aftermath = m_device->aftermath();
    while (aftermath.isInstalling && aftermath.isRunning && !aftermath.isBricked
           && !deadline.hasExpired()) {
        QTest::qWait(20);
        aftermath = m_device->aftermath();
    }
    return aftermath;
}

bool Trial::recover()
{
    m_relay.reset();
    m_device->terminate();
    return m_device->startAgain(commonArguments());
}

/*! An address of this trial alone. */
QString Trial::hostName(int third) const
{
    // The HTTP service has a fixed port: each device and each relay has an address of its own.
    return QStringLiteral("127.%1.%2.%3").arg(m_network).arg(third).arg(m_place);
}

QStringList Trial::commonArguments() const
{
    return m_road == Road::Http
        ? QStringList { QStringLiteral("--generation"), QStringLiteral("newer") }
        : QStringList();
}
