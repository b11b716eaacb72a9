#ifndef VELMARHOST_DEADLINES_H
#define VELMARHOST_DEADLINES_H

#include "device/guardedlink.h"
#include "records/devicerecords.h"
#include "run/phase.h"
#include "run/road.h"
#include "run/verdict.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

namespace Velmar::Host {

/*! How long an upgrade may go on without a sign of life. Where "by size" is said, a second for each
    MiB of the package comes on top. */
struct DeadlineLimits {
    /*! The worker is silent while it plans, prepares or restarts the device; by size. */
    std::chrono::milliseconds reading { 60000 };

    /*! The device has taken no byte while there is something to send. */
    std::chrono::milliseconds sending { 60000 };

    /*! No answer behind the last byte, while the device checks and stores; by size. */
    std::chrono::milliseconds storing { 150000 };

    /*! No answer while the device installs. */
    std::chrono::milliseconds installing { 120000 };

    /*! No progress while the device installs, though it answers. */
    std::chrono::milliseconds standstill { 900000 };

    /*! The worker is silent in a stage in which it may not be given up. */
    std::chrono::milliseconds stuck { 300000 };

    /*! Between two looks at the clock. */
    std::chrono::milliseconds check { 500 };
};

/*!
    Watches the time of one upgrade: its silences, its standstills and the whole.

    The upgrade library waits for ever where a device or a disk lets it. What expires here is an end
    of waiting and no order to the device. An expiry that comes while the upgrade must not be given
    up (mayGiveUp()) is put off until it may. An upgrade that came to its end meanwhile is still
    confirmed, in the time which that has of its own.

    All functions and signals are for one thread, which runs an event loop.
*/
class Deadlines : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<std::chrono::milliseconds()>; //!< since any moment; never goes back

    /*! \a whole is for all phases together, while started; 0: no limit. */
    Deadlines(Road road, std::chrono::milliseconds whole, const DeadlineLimits &limits = {},
              Clock clock = {});

    /*! Begins, or goes on behind stop(): the time in between counts for nothing. */
    void start();

    /*! Halts all times. */
    void stop();

    /*! Bytes of the package or image, for the times that go by size. */
    void setSize(qint64 bytes);

    // Signs of life. What repeats an older state is none, but for noteAlive().
    void enter(Phase phase);
    void noteAlive(); //!< of the worker
    void noteTraffic(const LinkTraffic &traffic);
    void notePercent(int percent); //!< of sending
    void noteInstalling(const ProtoModel::Auxiliary::s_UpgradePercent &progress);

    /*! A new worker begins: what the last one told no longer counts. */
    void resetTraffic();

    /*! Takes signalExpired() back: the upgrade was not given up, and the next expiry is told again. */
    void putOff();

    /*! Looks at the clock; called again and again while started. */
    void check();

Q_SIGNALS:
    /*! Something has expired, and the upgrade may be given up; emitted once, unless putOff() takes
        it back. \a text is a sentence without its full stop. */
    void signalExpired(Velmar::Host::VerdictCode code, const QString &text);

    /*! Something has expired, but the upgrade goes on until it may be given up; emitted once. \a text
        says why. */
    void signalPutOff(const QString &text);

private:
    Q_DISABLE_COPY_MOVE(Deadlines)

    struct Expiry {
        VerdictCode code;
        QString text;
    };

    std::chrono::milliseconds now() const; // without the time in which all was halted
    std::chrono::milliseconds bySize(std::chrono::milliseconds limit) const;
    std::optional<Expiry> expiry() const;
    std::optional<Expiry> silence() const;
    std::chrono::milliseconds sendingLimit() const; // of a silence

    const Road m_road;
    const std::chrono::milliseconds m_whole;
    const DeadlineLimits m_limits;
    const Clock m_clock;
    QTimer m_tick;
    bool m_isStarted = false;
    bool m_isOver = false;
    bool m_isPutOff = false;
    std::chrono::milliseconds m_startedAt { 0 }; // by the clock
    std::chrono::milliseconds m_before { 0 }; // of former starts
    qint64 m_size = 0;
    Phase m_phase = Phase::Copying;
    LinkTraffic m_traffic;
    bool m_wasOrdered = false; // by this worker or one before
    int m_percent = -1; // the highest of this phase
    int m_rate = -1; // the highest overall rate of the installation
    int m_rateSum = -1; // the highest sum of all its rates
    std::chrono::milliseconds m_alive { 0 }; // last word of the worker
    std::chrono::milliseconds m_heard { 0 }; // last of the device
    std::chrono::milliseconds m_progressed { 0 }; // last of its installation
};

/*!
    Whether an upgrade on \a road may be given up in \a phase, which means to kill its worker.

    Freely until something is sent; while an image is sent, for a device keeps its firmware until it
    has the whole; while the device installs, for it goes on by itself. Not while registers are
    written, unless the device has left three requests without an answer; \a why then says that in a
    sentence without its full stop.
*/
bool mayGiveUp(Road road, Phase phase, const LinkTraffic &traffic, QString &why);

} // namespace Velmar::Host

#endif // VELMARHOST_DEADLINES_H
