#ifndef VELMARHOST_INTERRUPTWATCHER_H
#define VELMARHOST_INTERRUPTWATCHER_H

#include <QObject>
#include <QSocketNotifier>

#include <csignal>
#include <memory>
#include <utility>
#include <vector>

namespace Velmar::Host {

/*!
    Turns SIGINT and SIGTERM into a signal of the event loop while it lives, and ignores SIGHUP;
    without it they end the process. One that was ignored before stays ignored. One object at a
    time, in the main thread.
*/
class InterruptWatcher : public QObject
{
    Q_OBJECT

public:
    InterruptWatcher();
    ~InterruptWatcher() override;

Q_SIGNALS:
    /*! \a signalNumber, SIGINT or SIGTERM, has arrived. */
    void signalInterrupted(int signalNumber);

private:
    Q_DISABLE_COPY_MOVE(InterruptWatcher)

    void replace(int signalNumber, void (*handler)(int));
    void slotReadable();

    int m_readEnd = -1;
    std::vector<std::pair<int, struct sigaction>> m_previous; // signal number, former action
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace Velmar::Host

#endif // VELMARHOST_INTERRUPTWATCHER_H
