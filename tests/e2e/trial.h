#ifndef TESTS_E2E_TRIAL_H
#define TESTS_E2E_TRIAL_H

#include "deviceprogram.h"
#include "relayprogram.h"

#include <QString>
#include <QStringList>

#include <memory>

/*! What stands against an upgrade: faults of the device, and of the way to it. */
struct Adversity {
    QStringList faults; //!< of the device, each as --fault takes it
    QStringList relay; //!< arguments of the relay's fault; empty: no relay
    QStringList device; //!< further arguments of the device
};

/*!
    A device with its faults and, if there are any on the way, a relay in front of it, for one
    upgrade over one road and a clean one behind it.

    Over HTTP the relay is in front of the HTTP service, otherwise in front of the device link.
*/
class Trial
{
public:
    enum class Road { Native, Http, Registers };

    /*! Starts both and waits until hosts can connect. \a place, 1 to 254, is a part of the addresses:
        two trials at one time in one \a network, 1 to 254, have two. */
    Trial(Road road, const Adversity &adversity, int network, int place);

    bool isReady() const { return m_isReady; }

    /*! The words that all verbs need for the device: --device and, over HTTP, --http-host. */
    QStringList deviceArguments() const;

    /*! Of velmar-upgrade, to upgrade with \a package: "run", the package, --yes, the device and the
        road. */
    QStringList runArguments(const QString &package) const;

    /*! Ends the relay, with every connection through it, and starts it again at its address, with its
        fault. */
    void renewRelay();

    DeviceProgram &device() { return *m_device; }
    const DeviceProgram &device() const { return *m_device; }

    /*! What is left of the device, once it is at rest: not before an installation that it goes on
        with is over, unless that takes longer than \a patienceMs. */
    DeviceAftermath aftermath(int patienceMs = 20000) const;

    /*! Ends device and relay and starts the device again on its address and state, without a fault.
        False if it does not come back: it is bricked. */
    bool recover();

private:
    QString hostName(int third) const;
    void startRelay(const QString &address);
    QStringList commonArguments() const;

    const Road m_road;
    const Adversity m_adversity;
    const int m_network;
    const int m_place;
    std::unique_ptr<DeviceProgram> m_device;
    std::unique_ptr<RelayProgram> m_relay; // null without one
    bool m_isReady = false;
};

#endif // TESTS_E2E_TRIAL_H
