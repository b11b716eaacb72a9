#ifndef VELMARHOST_RUNRECORD_H
#define VELMARHOST_RUNRECORD_H

#include "process/descriptor.h"
#include "show/jsonevents.h"
#include "show/runevent.h"

#include <QJsonObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Velmar::Host {

/*! Where records are kept, and how large they may grow. */
struct RunRecordOptions {
    QString baseFolder; //!< empty: runRecordsFolder()
    int keptRuns = 20; //!< with the new one
    qint64 largestLog = 8 * 1024 * 1024; //!< bytes of library.log
    qint64 largestEvents = 8 * 1024 * 1024; //!< bytes of events.jsonl without the verdict
};

/*! A run that has a record. */
struct RunRecordEntry {
    QString id;
    QString folder; //!< absolute
    bool isInUse = false; //!< the run is not at its end
};

/*!
    Keeps what happens in a run in a folder of its own, for "status" and for the support file.

    The folder, named by the run's id, and all in it are the owner's alone: \c events.jsonl has the
    events as lines of JSON (without log lines; progress when it changes), \c library.log the log
    lines, \c plan.json the plan, \c private.json what a support file must not tell. Each line is
    handed to the system at once, so that a host that is killed leaves what it knew. While the
    object lives, the record counts as in use. For one thread.
*/
class RunRecord final : public RunEventSink
{
public:
    /*!
        Begins the record of the run \a runId and removes the oldest ones beyond those kept, never
        one in use.

        Null if the folder cannot be made or is not the user's own: \a errorText is a sentence that
        tells why, and the run can go on without.
    */
    static std::unique_ptr<RunRecord> begin(const QString &runId, const RunRecordOptions &options,
                                            QString &errorText);

    void take(const RunEvent &event) override;

    /*! Has a support file of this run show "<\a placeholder>" in place of \a text, such as the path
        of the package. Home folder, user and host are known without. */
    void hide(const QString &placeholder, const QString &text);

    /*! The folder of this record, absolute. */
    QString folder() const { return m_path; }

    /*! \a handler is called once if something cannot be written, as on a full disk, with a
        sentence; the record ends there. */
    void setFaultHandler(std::function<void(const QString &sentence)> handler);

private:
    RunRecord(const QString &runId, const RunRecordOptions &options);

    bool isWorthALine(const RunEvent &progress);
    void takeEvent(const RunEvent &event);
    void takeLog(const RunEvent &event);
    void append(const Descriptor &file, const QByteArray &bytes, qint64 &size);
    void fail(const QString &what);

    const RunRecordOptions m_options;
    QString m_path;
    Descriptor m_folder;
    Descriptor m_events; // holds the lock
    Descriptor m_log;
    JsonEvents m_lines;
    QJsonObject m_hidden; // arrays of texts by the placeholder
    std::optional<RunEvent> m_lastProgress;
    qint64 m_eventsSize = 0;
    qint64 m_logSize = 0;
    bool m_areEventsFull = false;
    bool m_isLogFull = false;
    bool m_isBroken = false;
    std::function<void(const QString &)> m_faultHandler;
};

/*! $XDG_STATE_HOME/velmar-upgrade/runs, or below ~/.local/state; absolute. */
QString runRecordsFolder();

/*! The runs in \a baseFolder (empty: runRecordsFolder()) that have a record, oldest first. */
std::vector<RunRecordEntry> runRecords(const QString &baseFolder = QString());

/*! The run in \a baseFolder whose id begins with \a prefix; the last one if that is empty. Nothing
    if there is none or more than one: \a errorText is a sentence for the user. */
std::optional<RunRecordEntry> findRunRecord(const QString &prefix, const QString &baseFolder,
                                            QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_RUNRECORD_H
