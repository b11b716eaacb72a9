#ifndef VELMARDEVICE_TERMINATIONWATCHER_H
#define VELMARDEVICE_TERMINATIONWATCHER_H

#include <QObject>

#include <memory>

class QSocketNotifier;

namespace Velmar::Simulator {

/*! Turns SIGTERM and SIGINT into a signal of the event loop. One for the process. */
class TerminationWatcher : public QObject
{
    Q_OBJECT

public:
    TerminationWatcher();
    ~TerminationWatcher() override;

Q_SIGNALS:
    void terminated();

private:
    int m_descriptor = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_TERMINATIONWATCHER_H
