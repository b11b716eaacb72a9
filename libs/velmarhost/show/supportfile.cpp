#include "show/supportfile.h"

#include "show/printable.h"
#include "show/recordedrun.h"
#include "show/redaction.h"
#include "show/runrecord.h"

#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

#include <sys/stat.h>

namespace Velmar::Host {

namespace {

constexpr int Schema = 1;

Redaction redactionOf(const QJsonObject &hidden)
{
    Redaction redaction;
    for (auto texts = hidden.begin(); texts != hidden.end(); ++texts) {
        for (const auto &text : texts.value().toArray())
            redaction.hide(texts.key(), text.toString());
    }
    return redaction;
}

QJsonValue versionsOf(const RecordedRun &run)
{
    const auto verdict = run.verdict();
    if (!verdict)
        return QJsonValue::Null;
    return QJsonObject { { "before", verdict->value("versionsBefore") },
                         { "after", verdict->value("versionsAfter") } };
}

} // namespace

QByteArray supportFile(const RunRecordEntry &entry, QString &errorText)
{
    const auto run = readRunRecord(entry, errorText);
    if (!run)
        return {};
    const auto redaction = redactionOf(run->hidden);
    const QJsonObject content {
        { "schema", Schema },
        { "run", entry.id },
        { "events", redaction.applied(QJsonValue(run->events)) },
        { "versions", redaction.applied(versionsOf(*run)) },
        { "log", redaction.applied(QJsonValue(QJsonArray::fromStringList(run->log))) },
        { "plan", run->plan ? redaction.applied(QJsonValue(*run->plan)) : QJsonValue::Null },
    };
    return printableJson(QJsonDocument(content).toJson());
}

bool writeSupportFile(const QString &path, const QByteArray &content, QString &errorText)
{
    struct stat status = {};
    const bool isThere = ::lstat(QFile::encodeName(path).constData(), &status) == 0;
    if (isThere && !S_ISREG(status.st_mode)) {
        errorText = QStringLiteral("%1 is there and no regular file.").arg(printable(path, 4096));
        return false;
    }
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.commit())
        return true;
    errorText =
        QStringLiteral("Cannot write %1: %2.").arg(printable(path, 4096), file.errorString());
    return false;
}

} // namespace Velmar::Host
