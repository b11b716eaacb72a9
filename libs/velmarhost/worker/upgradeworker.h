#ifndef VELMARHOST_UPGRADEWORKER_H
#define VELMARHOST_UPGRADEWORKER_H

#include "worker/workermessage.h"
#include "worker/workerorder.h"

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace Velmar::Host {

/*! How a worker process is started. */
struct WorkerLaunch {
    QString program; //!< empty: the running program itself
    QStringList arguments { QStringLiteral("worker") };
    qint64 memoryLimit = 512LL * 1024 * 1024; //!< bytes of data (RLIMIT_DATA); 0: none
    std::chrono::milliseconds endLimit { 5000 }; //!< from its last message to its end
};

/*!
    One upgrade in a process of its own, seen from the host that started it.

    The upgrade library keeps state for the whole process, has no way to be stopped, and can be
    killed by a package or a lack of memory. So each upgrade gets a fresh process: it dies with that,
    and the host tells the end. The process has a session of its own, so that a Ctrl-C at the
    terminal reaches the host alone, a limit to its memory, and leaves no core file.

    An object runs once. Everything belongs to one thread with an event loop. Exactly one of
    signalEnded(), signalRefused() and signalDied() is emitted, behind the end of the process, and
    nothing behind it.
*/
class UpgradeWorker : public QObject
{
    Q_OBJECT

public:
    explicit UpgradeWorker(WorkerLaunch launch = {});

    /*! Kills the process if it runs. */
    ~UpgradeWorker() override;

    /*! Starts the process with \a order. It gets \a descriptors as well, open under their own
        numbers: locks that have to live as long as it does. */
    void start(const WorkerOrder &order, std::vector<int> descriptors = {});

    /*! Agrees to the plan that was told. */
    void go();

    /*! Asks the worker to end at the next safe point; signalStopAnswered() follows unless it ends
        before. Without effect before start() and behind the end. */
    void requestStop();

    /*! Ends the process at once; the device is left as it is. signalDied() follows, unless the
        worker had told its end before. */
    void kill();

    /*! Lets the process go on without this object and beyond its end. It hears that its host is
        gone, and no signal comes any more. */
    void leave();

    bool isRunning() const; //!< from start() until the signal of the end

    /*! As told last. What it says of orders was told before the device got them. */
    const LinkTraffic &traffic() const;

    /*! As told last; nothing before the first. */
    std::optional<Phase> phase() const;

Q_SIGNALS:
    /*! Any message has come. */
    void signalAlive();

    void signalPhase(Velmar::Host::Phase phase);
    void signalPlan(const Velmar::Host::Plan &plan);
    void signalStatus(const QString &text);
    void signalSending(int percent, qint64 sentBytes, qint64 totalBytes);
    void signalInstalling(const Velmar::ProtoModel::Auxiliary::s_UpgradePercent &progress);
    void signalTraffic(const Velmar::Host::LinkTraffic &traffic);

    /*! A line of the library's log, or of the process's standard error. */
    void signalLog(QtMsgType level, const QString &text);

    void signalStopAnswered(bool isTaken);

    /*! The run has ended with the library's \a result. */
    void signalEnded(bool result, const QString &text);

    /*! The worker knows why it could not go on. */
    void signalRefused(Velmar::Host::VerdictCode code, const QString &text);

    /*! The process has ended in any other way; \a why is a sentence without its full stop. */
    void signalDied(const QString &why);

private:
    Q_DISABLE_COPY_MOVE(UpgradeWorker)

    class Process;

    /*! The last word of the worker itself. */
    using Last = std::variant<EndTell, RefusedTell>;

    void write(const QByteArray &line);
    void readMessages();
    void readErrors();
    void take(const QByteArray &line);
    void noteLastTraffic();
    void tell(const WorkerMessage &message);
    void fail(const QString &why);
    void slotFinished();
    void end();
    QString deathOf(const Process &process) const;

    const WorkerLaunch m_launch;
    std::unique_ptr<Process> m_process; // from start() to the end
    LineCutter m_lines { WorkerLineLimit };
    QByteArray m_errors; // of the process's standard error, up to the end of a line
    QTimer m_endLimit;
    LinkTraffic m_traffic;
    std::optional<Phase> m_phase;
    std::optional<Last> m_last;
    QString m_fault; // why the process was killed, if it was
    bool m_hasGreeted = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_UPGRADEWORKER_H
