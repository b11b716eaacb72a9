#ifndef VELMARHOST_PREPARATION_H
#define VELMARHOST_PREPARATION_H

#include "device/closablelinks.h"
#include "device/deviceaddress.h"
#include "device/devicefacts.h"
#include "package/packagecopy.h"
#include "run/backgroundtask.h"
#include "run/phase.h"
#include "run/verdict.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace Velmar::Host {

class DeviceLock;

/*! What has to stand ready before anything is asked of the upgrade library. */
struct PreparationOrder {
    QString packagePath; //!< absolute; empty if no package is needed
    QString workFolder; //!< for private copies; empty: the default one
    DeviceAddress device;
    bool isExclusive = true; //!< lock the device
};

/*!
    Copies and checks a package, asks the device what it is, and locks it.

    All of it blocks, and is done on a thread of its own. All functions and signals are for one
    thread, which runs an event loop. An object works once; it keeps copy and lock as long as it
    lives.
*/
class Preparation : public QObject
{
    Q_OBJECT

public:
    explicit Preparation(PreparationOrder order, LinkFactory makeLink = makeSocketLink);
    ~Preparation() override;

    void start();

    /*! Makes an end soon, whatever the device does; signalRefused() tells Interrupted then, unless there was a refusal. */
    void cancel();

    /*! Leaves the copy to a worker that goes on without this process; see PackageCopy::leave(). */
    void leaveCopy();

    // Of use behind signalReady().
    const PackageCopy *copy() const; //!< null if no package was needed
    const DeviceLock *lock() const; //!< null if the device was not to be locked
    const DeviceFacts &facts() const;

Q_SIGNALS:
    void signalPhase(Velmar::Host::Phase phase);

    /*! \a done of \a total bytes of the package are copied. */
    void signalCopied(qint64 done, qint64 total);

    /*! The check has found something that is no reason to refuse the package. */
    void signalFinding(const QString &code, const QString &text);

    /*! All stands ready. Either this or signalRefused() comes, once. */
    void signalReady();

    void signalRefused(const Velmar::Host::Verdict &verdict);

private:
    Q_DISABLE_COPY_MOVE(Preparation)

    /*! Has \a signal emitted in the object's thread. */
    void tell(const std::function<void()> &signal);

    void work(const std::atomic<bool> &isCancelled);
    bool copyPackage(const std::atomic<bool> &isCancelled);
    bool checkCopy(const std::atomic<bool> &isCancelled);
    bool askDevice();
    bool lockDevice();
    void slotEnded();

    const PreparationOrder m_order;
    ClosableLinks m_links;
    bool m_isCancelled = false;
    // Written by the task, read behind its end.
    std::unique_ptr<PackageCopy> m_copy;
    std::optional<DeviceFacts> m_facts;
    std::unique_ptr<DeviceLock> m_lock;
    std::optional<Verdict> m_refusal;
    BackgroundTask m_task; // the last member: its end comes before that of what it writes
};

} // namespace Velmar::Host

#endif // VELMARHOST_PREPARATION_H
