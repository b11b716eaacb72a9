#include "show/recordedrun.h"

#include "show/printable.h"
#include "show/recordfolder.h"
#include "show/runrecord.h"

#include <QFileInfo>
#include <QJsonDocument>

namespace Velmar::Host {

namespace {

// Twice what a record keeps of events or log by default: larger files are none of its own.
constexpr qint64 LargestFile = 16 * 1024 * 1024;

std::optional<QJsonObject> readObject(const Descriptor &folder, const char *name)
{
    const auto content = readRecordFile(folder, name, LargestFile);
    if (!content)
        return std::nullopt;
    const auto document = QJsonDocument::fromJson(*content);
    if (!document.isObject())
        return std::nullopt;
    return document.object();
}

} // namespace

std::optional<QJsonObject> RecordedRun::verdict() const
{
    const auto last = events.isEmpty() ? QJsonObject() : events.last().toObject();
    if (last.value("event").toString() != QLatin1String("verdict"))
        return std::nullopt;
    return last.value("data").toObject();
}

std::optional<RecordedRun> readRunRecord(const RunRecordEntry &entry, QString &errorText)
{
    const QFileInfo path(entry.folder);
    QString cause;
    const auto records = openRecordsFolder(path.path(), false, cause);
    const auto folder = openRecordFolder(records, path.fileName());
    const auto events = readRecordFile(folder, RecordFiles::Events, LargestFile);
    const auto log = readRecordFile(folder, RecordFiles::Log, LargestFile);
    const auto hidden = readObject(folder, RecordFiles::Private);
    if (!events || !log || !hidden) {
        errorText =
            QStringLiteral("The record %1 cannot be read.").arg(printable(entry.folder, 4096));
        return std::nullopt;
    }
    RecordedRun run;
    for (const auto &line : events->split('\n')) {
        const auto document = QJsonDocument::fromJson(line);
        if (document.isObject())
            run.events.append(document.object());
    }
    run.log = QString::fromUtf8(*log).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    run.plan = readObject(folder, RecordFiles::Plan);
    run.hidden = *hidden;
    return run;
}

} // namespace Velmar::Host
