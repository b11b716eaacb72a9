#ifndef VELMARHOST_RECORDEDRUN_H
#define VELMARHOST_RECORDEDRUN_H

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace Velmar::Host {

struct RunRecordEntry;

/*! What the record of a run holds. */
struct RecordedRun {
    QJsonArray events; //!< as on the lines of events.jsonl; a line cut by a kill is left out
    QStringList log; //!< the library's lines
    std::optional<QJsonObject> plan;
    QJsonObject hidden; //!< what a support file must not tell: arrays of texts by the placeholder

    /*! The data of the verdict; nothing if the run has not told one. */
    std::optional<QJsonObject> verdict() const;
};

/*! Reads the record \a entry. Nothing if that cannot be read: \a errorText is a sentence. */
std::optional<RecordedRun> readRunRecord(const RunRecordEntry &entry, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_RECORDEDRUN_H
