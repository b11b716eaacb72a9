#ifndef VELMARUPGRADE_INQUIRY_H
#define VELMARUPGRADE_INQUIRY_H

#include "commandline.h"
#include "device/closablelinks.h"
#include "jsonoutput.h"
#include "logfile.h"
#include "process/hostexitcode.h"
#include "process/interruptwatcher.h"
#include "process/logcapture.h"
#include "show/runevent.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>

/*!
    The output, the log and the interrupts of a verb that asks and changes nothing.

    The first SIGINT or SIGTERM calls off what is waited for, and whatever fails by that, the end is
    that of an interrupt; a second one ends the process at once. The end of a terminal (SIGHUP) or
    of the output stops nothing, so that what has to be removed is removed. For the main thread.
*/
class Inquiry : public QObject
{
public:
    using Work = std::function<void(const std::atomic<bool> &isCancelled)>;

    /*! Of one that \a isQuiet people see the answer and errors alone. */
    explicit Inquiry(const CommandLine &options, bool isQuiet = false);

    /*! False, with the error told, if the log cannot be kept as \a options want it. */
    bool begin();

    /*! Has \a work done on another thread; false if there was an interrupt, or no room for a thread,
        which takes the place of any end, too. */
    bool await(const Work &work);

    /*! Runs \a loop until it is left or until an interrupt, and is false then. */
    bool await(QEventLoop &loop);

    /*! Links on which an interrupt ends all waits. */
    Velmar::Host::ClosableLinks &links() { return m_links; }

    /*! The last lines of the log. */
    QStringList logLines() const { return m_log.lastLines(); }

    void warn(const QString &sentence);

    /*! Tells what was found out: \a text to people, who get it as it is, or \a document as an event
        of \a kind to a program. */
    void tell(Velmar::Host::RunEvent::Kind kind, const QJsonValue &document, const QString &text);

    // The end, once; the exit code. Sentences are made printable.
    Velmar::Host::HostExitCode answered(const QString &sentence);
    Velmar::Host::HostExitCode fail(Velmar::Host::VerdictCode code, const QString &sentence,
                                    const QStringList &causes = {});

private:
    /*! Shows people what goes beside the answer. */
    class Notes final : public Velmar::Host::RunEventSink
    {
    public:
        Notes(bool isVerbose, bool isQuiet);

        void take(const Velmar::Host::RunEvent &event) override;

    private:
        const bool m_isVerbose;
        const bool m_isQuiet;
    };

    void slotInterrupt();
    Velmar::Host::RunSummary end(Velmar::Host::VerdictCode code, const QString &sentence,
                                 const QStringList &causes = {});

    const CommandLine &m_options;
    Notes m_notes;
    JsonOutput m_json;
    LogFile m_logFile;
    Velmar::Host::RunEventFan m_events;
    Velmar::Host::ClosableLinks m_links;
    Velmar::Host::InterruptWatcher m_interrupts;
    Velmar::Host::LogCapture m_log;
    QElapsedTimer m_elapsed;
    bool m_isInterrupted = false;
    QString m_fault; // why something was not done
};

#endif // VELMARUPGRADE_INQUIRY_H
