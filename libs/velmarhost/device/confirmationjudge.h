#ifndef VELMARHOST_CONFIRMATIONJUDGE_H
#define VELMARHOST_CONFIRMATIONJUDGE_H

#include "device/devicelook.h"
#include "device/versioncomparison.h"
#include "package/plan.h"
#include "run/road.h"
#include "run/verdict.h"

#include <QString>

#include <chrono>
#include <optional>
#include <vector>

namespace Velmar::Host {

/*! What is known of a device's restart before the first look at it. */
enum class RestartNews {
    Taken, //!< it was ordered to restart, or does so by itself behind the end that it told
    NotTaken, //!< it was not, or refused to
    Unknown, //!< it restarts by itself, and was lost while it may have been installing
};

/*! What a device is to be confirmed to have. */
struct ConfirmationOrder {
    DeviceAddress device;
    QString serial; //!< of the device that was upgraded; empty: it tells none
    std::vector<PlannedSection> sections; //!< empty: nothing is known of what it should get
    RestartNews restart = RestartNews::Taken;
    Road road = Road::Native;
    std::chrono::milliseconds limit { std::chrono::minutes(5) }; //!< for it to come back, from the
        //!< start or since it was first seen to go away; then it gets grace and settle of the
        //!< times to tell steady versions
};

/*! How patient a host is behind an upgrade. */
struct ConfirmationTimes {
    std::chrono::milliseconds poll { 500 }; //!< between two looks
    std::chrono::milliseconds answer { 5000 }; //!< for each step of a look
    std::chrono::milliseconds steady { 2000 }; //!< good versions have to stay so long
    std::chrono::milliseconds settle { 15000 }; //!< others; cards may start later than the device
    std::chrono::milliseconds grace { 30000 }; //!< for a restart to begin, and for a device that
        //!< is back to tell its versions
};

/*!
    Makes a verdict of what a host saw of a device since its upgrade ended.

    That a device has restarted is known for certain if it installs over its link and has forgotten
    the result of its installation (\c upgrade.progress 0). Otherwise a connection that ended, or a
    time in which the device was away, counts for one. A device that took the order to restart and
    was never seen away has restarted before the first look, once the grace is over. Of one that was
    lost on the way nothing counts but new versions: what it was lost by may also end a connection, and
    with its old versions it may still be installing.

    Good versions are believed after a short while. Bad ones have to stay longer, and where the
    restart is not certain, the grace has to be over as well: a connection may end for other reasons,
    a device may restart twice, and its cards may start later than itself.

    All times count from the start, and never go back. A value, without threads.
*/
class ConfirmationJudge
{
public:
    using Time = std::chrono::milliseconds;

    ConfirmationJudge(const ConfirmationOrder &order, const ConfirmationTimes &times);

    /*! The next look, which ended at \a now. */
    void note(const DeviceLook &look, Time now);

    /*! The verdict at \a now, if it can be told already; its texts are made printable. Always one
        when the order's limit has passed and no device answers, and some time later if it does. */
    std::optional<Verdict> verdictAt(Time now) const;

    /*! The device has restarted, as far as that is known at \a now, and tells versions. */
    bool hasReturnedAt(Time now) const;

    /*! The last look has met the device that was upgraded. */
    bool isOwnDevice() const;

    /*! What is waited for; a sentence without its full stop. */
    QString statusAt(Time now) const;

private:
    bool isInstalling() const; // at the last look
    bool hasRestartedAt(Time now) const;
    std::optional<Verdict> readyVerdictAt(Time now) const;
    Verdict finalVerdictAt(Time now) const;
    Verdict verdictOnVersions() const;

    ConfirmationOrder m_order;
    ConfirmationTimes m_times;
    std::optional<DeviceLook> m_look; // the last one
    ToldVersions m_versions; // of it, if it has some
    VersionComparison m_comparison; // of its versions, if it has some
    Time m_since { 0 }; // since when all looks have been alike
    Time m_answering { 0 }; // since when the device has answered as itself without a break
    std::optional<Time> m_leaving; // when it was first seen to go away
    bool m_wasInterrupted = false; // a connection ended, or the device was away
    bool m_hasForgotten = false; // for certain: the device has restarted
    bool m_remembers = false; // for certain, at the last look: it has not
};

} // namespace Velmar::Host

#endif // VELMARHOST_CONFIRMATIONJUDGE_H
