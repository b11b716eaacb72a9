#ifndef VELMARHOST_GUARDEDLINK_H
#define VELMARHOST_GUARDEDLINK_H

#include <velmarbizmodel/devicelink.h>

#include <QDeadlineTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

namespace Velmar::Host {

/*! What has gone over a device's link so far. */
struct LinkTraffic {
    static constexpr int NoResult = -1;

    qint64 requests = 0; //!< handed to the link
    qint64 answers = 0; //!< of the device, refusals too
    qint64 sentBytes = 0; //!< of files and register writes, as far as the device has taken them
    qint64 totalBytes = -1; //!< of the file that is sent; -1: not known
    int overdue = 0; //!< requests without an answer since the last answer; one that is under way
        //!< counts once for each minute
    int result = NoResult; //!< of the last \c upgrade.progress, as the device told it
    bool isOrdered = false; //!< the device may have got the order to install
    bool isEndTold = false; //!< the device has told the end of what was ordered, or is watched
    bool isIdle = false; //!< the device installs nothing, though it should
    bool isRestartOrdered = false; //!< the device may have got the order to restart

    bool operator==(const LinkTraffic &other) const;
    bool operator!=(const LinkTraffic &other) const { return !(*this == other); }
};

/*!
    A link that never restarts a device while that may be installing.

    Everything that the upgrade library does to a device goes through one of these. The library
    restarts the device behind each of its failures, also where only the network is at fault and the
    device is at work, and a device that is restarted then may never start again. So
    \c device.shutdown passes only behind an \c upgrade.progress in which the device told the end (2
    or 3) of the installation; otherwise it is refused here. Such a word holds for the connection on
    which it was given: behind a new one, the device is asked again first.

    The end of an older installation is none of what was ordered. A device that numbers its
    installations tells them apart by itself. One that does not shows the old end until it has begun,
    and so an end counts only once it has told something else; until then it is turned into "still
    running", for a minute.

    Any thread may call anything.
*/
class GuardedLink : public BizModel::DeviceLink
{
public:
    /*! All of these are optional. They run on the thread that sends, with no lock held. */
    struct Hooks {
        /*! Before a file is announced: why it must not be, or an empty text. */
        std::function<QString()> announcementFault;

        /*! Before the request goes out by which \c isOrdered or \c isRestartOrdered becomes true. */
        std::function<void(const LinkTraffic &traffic)> ordering;
    };

    explicit GuardedLink(std::shared_ptr<BizModel::DeviceLink> link, Hooks hooks = {});

    LinkTraffic traffic() const;

    /*! Text by which the announcement hook refused; empty if it did not. */
    QString announcementFault() const;

    /*!
        Refuses every request from now on; one that is under way keeps its answer. The link seems
        open for ever, so that nobody waits for a connection.
    */
    void stop();

    /*! As stop(), and ends what is under way, unless the device may have got the order to install:
        false then, and nothing is changed. */
    bool stopBeforeOrder();

    /*! Time for which an old end is turned into "still running"; a minute unless set. */
    void setOldEndLimit(std::chrono::milliseconds limit);

    bool open(int timeout, QString &errorText) override;
    void close() override;
    bool isOpen() const override;
    BizModel::LinkAnswer send(const BizModel::LinkRequest &request) override;
    void pauseHeartbeat(int milliseconds) override;
    void restartHeartbeat() override;

private:
    using Clock = std::chrono::steady_clock;

    /*! What a device shows of an installation. */
    struct Shown {
        int result = LinkTraffic::NoResult;
        std::optional<qint64> run; //!< its number, of a device that numbers them

        bool isEnd() const;
    };

    static std::optional<Shown> readShown(const BizModel::LinkAnswer &answer);

    BizModel::LinkAnswer announce(const BizModel::LinkRequest &request);
    BizModel::LinkAnswer order(const BizModel::LinkRequest &request);
    BizModel::LinkAnswer askForProgress(const BizModel::LinkRequest &request);
    BizModel::LinkAnswer restart(const BizModel::LinkRequest &request);
    BizModel::LinkAnswer writeRegister(const BizModel::LinkRequest &request);
    BizModel::LinkAnswer pass(const BizModel::LinkRequest &request);
    void countContents(const BizModel::LinkRequest &request, const BizModel::LinkAnswer &answer);
    void noteShown(const Shown &shown, int connection);
    bool isOld(const Shown &shown) const;
    void tellOrdering(const LinkTraffic &traffic) const;

    const std::shared_ptr<BizModel::DeviceLink> m_link;
    const Hooks m_hooks;

    mutable std::mutex m_mutex; // guards what follows, and is never held during a request
    LinkTraffic m_traffic;
    std::multiset<Clock::time_point> m_underWay; // when the open requests were sent
    QString m_announcementFault;
    std::chrono::milliseconds m_oldEndLimit { std::chrono::minutes(1) };
    QDeadlineTimer m_oldEnd; // how long an old end is turned into "still running"
    std::optional<qint64> m_run; // the number that the device gave to what was ordered
    int m_connection = 0; // counts tries to connect, each of which may have made a new one
    int m_endConnection = 0; // the one on which the end was told
    bool m_isBeginningShown = false; // something else than an end was told since the order
    bool m_isRunningShown = false;
    bool m_isStopped = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_GUARDEDLINK_H
