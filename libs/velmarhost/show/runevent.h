#ifndef VELMARHOST_RUNEVENT_H
#define VELMARHOST_RUNEVENT_H

#include "run/phase.h"
#include "run/verdict.h"

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <chrono>
#include <map>
#include <optional>
#include <vector>

namespace Velmar::Host {

/*! How far one card, or another part of the device, is. */
struct PartProgress {
    QString name; //!< for people, as in "Slot 3"
    int percent = 0; //!< 0 to 100
    QString state; //!< a word or two for people, as in "installing"; may be empty
};

/*! A section of the device with its version before and after the run. */
struct SectionVersion {
    QString part; //!< the part of the device that has the section, for people, as in "Slot 3"
    QString section; //!< the section's name
    QString before; //!< empty: not known
    QString expected; //!< what the package brings; empty: not known
    QString after; //!< empty: not known
};

/*! How a run ended, with all that is told about it at its end. */
struct RunSummary {
    Verdict verdict;
    QStringList causes; //!< lines of the library's log behind a bad end, oldest first
    std::vector<SectionVersion> versions;
    qint64 bytesSent = 0; //!< to the device, of the firmware alone
    std::map<Phase, std::chrono::milliseconds> durations; //!< of the phases that were entered
    std::chrono::milliseconds wholeDuration { 0 };

    /*!
        The summary as a JSON object: \c kind, \c code, \c sentence, \c advice, \c exitCode,
        \c causes, \c versionsBefore and \c versionsAfter (arrays of \c part, \c section,
        \c version; sections whose version is not known are left out), \c bytesSent, \c durations
        (milliseconds by the word of the phase, and \c whole) and, if there is one, \c record.
    */
    QJsonObject toJson() const;
};

/*! Something that happens in a run, or while a question is answered, as a host tells it. */
struct RunEvent {
    enum class Kind {
        Phase, //!< a phase begins
        Progress, //!< of the phase: percent, bytes, parts
        Message, //!< text for people; code "warning" if it is one
        Plan, //!< data is the plan
        // What a question was answered with, as data; text is a sentence about it.
        Devices,
        Versions,
        Status,
        Inspection,
        Log, //!< a line of a log; code is its level, as in "debug"
        Verdict, //!< the end: summary is set
    };

    Kind kind = Kind::Message;
    Phase phase = Phase::Copying; //!< the one that begins, or that the run is in
    int place = 0; //!< of the phase among those of this run, from 1; 0: not in any phase
    int places = 0; //!< how many phases this run has
    std::optional<int> percent; //!< of the phase, 0 to 99: only the verdict is the whole
    qint64 bytesSent = -1; //!< -1: not known
    qint64 bytesTotal = -1; //!< -1: not known
    std::vector<PartProgress> parts; //!< with Progress: the state of all parts
    std::chrono::seconds silence { 0 }; //!< with Phase: the longest time without news; 0: not told
    QString code; //!< a stable word
    QString text; //!< for people; made printable by those who show it
    QJsonValue data; //!< with Plan, and with what a question was answered with
    std::optional<RunSummary> summary; //!< with Verdict
    QDateTime time = QDateTime::currentDateTimeUtc();
};

/*! The word for \a kind in a line of JSON, as in "progress". Words are stable. */
QString runEventWord(RunEvent::Kind kind);

/*! Takes the events of one run, in order, in one thread. Behind a verdict none follows. */
class RunEventSink
{
public:
    RunEventSink() = default;
    virtual ~RunEventSink();

    virtual void take(const RunEvent &event) = 0;

private:
    Q_DISABLE_COPY_MOVE(RunEventSink)
};

/*! Passes each event on to several sinks. */
class RunEventFan final : public RunEventSink
{
public:
    /*! \a sink, which must live as long as events come, gets each event behind those added before. */
    void add(RunEventSink &sink);

    void take(const RunEvent &event) override;

private:
    std::vector<RunEventSink *> m_sinks;
};

/*! A new id for a run: UTC time to the millisecond and a random number, as in
    "20261121T035554123Z-5e0c91b7". Ids sort by time and are safe as names of files. */
QString makeRunId();

/*! True if \a text has the form of an id. */
bool isRunId(const QString &text);

} // namespace Velmar::Host

#endif // VELMARHOST_RUNEVENT_H
