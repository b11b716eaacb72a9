#ifndef VELMARHOST_CONFIRMATION_H
#define VELMARHOST_CONFIRMATION_H

#include "device/confirmationjudge.h"
#include "device/devicefacts.h"
#include "run/verdict.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

namespace Velmar::Host {

class DeviceLooks;

/*!
    Waits for a device behind its upgrade, reads its versions and says what became of it.

    It looks at the device again and again, on a thread of its own, over one connection as long as
    that holds: the end of a connection that was held shows also a restart that is too short to be
    met by a look. What is made of the looks is told at ConfirmationJudge.

    An object works once, and is not destroyed by a slot of its own signals. All functions and signals
    are for one thread, which runs an event loop.
*/
class Confirmation : public QObject
{
    Q_OBJECT

public:
    explicit Confirmation(ConfirmationOrder order, ConfirmationTimes times = {},
                          LinkFactory makeLink = makeSocketLink);

    /*! As stop(), and waits for the look that is under way, whose connection is closed: it ends
        then, or at its time-out at the latest. */
    ~Confirmation() override;

    /*! Has no effect behind stop(). */
    void start();

    /*! Ends without a further signal. Does not wait. */
    void stop();

    /*! As the device told them last; nothing if it did not. */
    const std::optional<ProtoModel::Auxiliary::s_DeviceVersion> &versions() const;

Q_SIGNALS:
    /*! What is waited for; a sentence without its full stop, told when it changes. */
    void signalStatus(const QString &text);

    /*! The device is back from its restart and tells versions. Emitted once at most. */
    void signalReturned();

    /*! Emitted once. Texts are made printable. */
    void signalEnded(const Velmar::Host::Verdict &verdict);

private:
    Q_DISABLE_COPY_MOVE(Confirmation)

    void slotLook(const DeviceLook &look);
    void endUnseen(const QString &cause);
    void judge();

    const DeviceAddress m_device;
    const ConfirmationTimes m_times;
    const LinkFactory m_makeLink;
    ConfirmationJudge m_judge;
    QElapsedTimer m_elapsed; // since the start
    QTimer m_tick; // time alone can bring a verdict
    QString m_status; // as told last
    std::optional<ProtoModel::Auxiliary::s_DeviceVersion> m_versions;
    bool m_hasReturned = false;
    bool m_isOver = false;
    std::unique_ptr<DeviceLooks> m_looks;
};

} // namespace Velmar::Host

#endif // VELMARHOST_CONFIRMATION_H
