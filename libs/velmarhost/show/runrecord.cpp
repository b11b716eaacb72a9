#include "show/runrecord.h"

#include "show/printable.h"
#include "show/quantities.h"
#include "show/recordfolder.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSysInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <pwd.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

constexpr int LongestLogLine = 4000; // characters

QString userName()
{
    const passwd *entry = ::getpwuid(::geteuid());
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString();
}

bool isSame(const PartProgress &left, const PartProgress &right)
{
    return left.name == right.name && left.percent == right.percent && left.state == right.state;
}

QString withBase(const QString &baseFolder)
{
    return baseFolder.isEmpty() ? runRecordsFolder() : QDir::cleanPath(baseFolder);
}

void removeOldest(const Descriptor &records, int keptRuns)
{
    const auto names = recordFolderNames(records);
    int excess = names.size() - keptRuns;
    for (const auto &name : names) {
        if (excess <= 0)
            return;
        if (removeRecordFolder(records, name))
            --excess;
    }
}

} // namespace

RunRecord::RunRecord(const QString &runId, const RunRecordOptions &options)
    : m_options(options)
    , m_lines(runId, [this](const QByteArray &line) { append(m_events, line, m_eventsSize); })
{
}

std::unique_ptr<RunRecord> RunRecord::begin(const QString &runId, const RunRecordOptions &options,
                                            QString &errorText)
{
    const QString base = withBase(options.baseFolder);
    std::unique_ptr<RunRecord> record(new RunRecord(runId, options));
    QString cause;
    const auto records = openRecordsFolder(base, true, cause);
    if (records.isOpen()) {
        record->m_path = base + QLatin1Char('/') + runId;
        record->m_folder = makeRecordFolder(records, runId, cause);
    }
    if (record->m_folder.isOpen())
        record->m_events = makeRecordFile(record->m_folder, RecordFiles::Events, cause);
    if (record->m_events.isOpen() && lockRecord(record->m_events))
        record->m_log = makeRecordFile(record->m_folder, RecordFiles::Log, cause);
    if (!record->m_log.isOpen()) {
        errorText = QStringLiteral("There will be no record of this run: %1.").arg(cause);
        return nullptr;
    }
    record->hide(QStringLiteral("home"), QDir::homePath());
    record->hide(QStringLiteral("user"), userName());
    record->hide(QStringLiteral("host"), QSysInfo::machineHostName());
    removeOldest(records, options.keptRuns);
    return record;
}

void RunRecord::take(const RunEvent &event)
{
    if (m_isBroken)
        return;
    switch (event.kind) {
    case RunEvent::Kind::Log:
        takeLog(event);
        return;
    case RunEvent::Kind::Progress:
        if (!isWorthALine(event))
            return;
        break;
    case RunEvent::Kind::Plan:
        if (!replaceRecordFile(m_folder, RecordFiles::Plan,
                               printableJson(QJsonDocument(event.data.toObject()).toJson())))
            fail(QLatin1String(RecordFiles::Plan));
        break;
    case RunEvent::Kind::Phase:
    case RunEvent::Kind::Message:
    case RunEvent::Kind::Devices:
    case RunEvent::Kind::Versions:
    case RunEvent::Kind::Status:
    case RunEvent::Kind::Inspection:
    case RunEvent::Kind::Verdict:
        break;
    }
    takeEvent(event);
}

void RunRecord::hide(const QString &placeholder, const QString &text)
{
    if (text.isEmpty())
        return;
    auto texts = m_hidden.value(placeholder).toArray();
    texts.append(text);
    m_hidden.insert(placeholder, texts);
    if (!m_isBroken
        && !replaceRecordFile(m_folder, RecordFiles::Private,
                              QJsonDocument(m_hidden).toJson(QJsonDocument::Compact)))
        fail(QLatin1String(RecordFiles::Private));
}

void RunRecord::setFaultHandler(std::function<void(const QString &)> handler)
{
    m_faultHandler = std::move(handler);
}

bool RunRecord::isWorthALine(const RunEvent &progress)
{
    const bool isNews = !m_lastProgress || m_lastProgress->phase != progress.phase
        || m_lastProgress->percent != progress.percent
        || !std::equal(m_lastProgress->parts.begin(), m_lastProgress->parts.end(),
                       progress.parts.begin(), progress.parts.end(), isSame);
    if (isNews)
        m_lastProgress = progress;
    return isNews;
}

void RunRecord::takeEvent(const RunEvent &event)
{
    if (m_eventsSize >= m_options.largestEvents && event.kind != RunEvent::Kind::Verdict) {
        if (m_areEventsFull)
            return;
        m_areEventsFull = true;
        RunEvent last;
        last.code = QStringLiteral("warning");
        last.text = QStringLiteral("The record has reached %1: only the verdict follows.")
                        .arg(amountText(m_options.largestEvents));
        last.time = event.time;
        m_lines.take(last);
        return;
    }
    m_lines.take(event);
}

void RunRecord::takeLog(const RunEvent &event)
{
    if (m_isLogFull)
        return;
    const QString time = event.time.toUTC().toString(Qt::ISODateWithMs);
    QByteArray line = QStringLiteral("%1 %2 %3\n")
                          .arg(time, printable(event.code), printable(event.text, LongestLogLine))
                          .toUtf8();
    if (m_logSize + line.size() > m_options.largestLog) {
        m_isLogFull = true;
        line = QStringLiteral("%1 warning The log has reached %2: no more follows.\n")
                   .arg(time, amountText(m_options.largestLog))
                   .toUtf8();
    }
    append(m_log, line, m_logSize);
}

void RunRecord::append(const Descriptor &file, const QByteArray &bytes, qint64 &size)
{
    if (m_isBroken)
        return;
    if (appendWhole(file, bytes))
        size += bytes.size();
    else
        fail(QStringLiteral("a line"));
}

void RunRecord::fail(const QString &what)
{
    const QString cause = QString::fromLocal8Bit(std::strerror(errno));
    m_isBroken = true;
    if (m_faultHandler)
        m_faultHandler(
            QStringLiteral("The record of this run ends here: cannot write %1 in %2: %3.")
                .arg(what, m_path, cause));
}

QString runRecordsFolder()
{
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    if (!QDir::isAbsolutePath(state))
        state = QDir::homePath() + QStringLiteral("/.local/state");
    return QDir::cleanPath(state + QStringLiteral("/velmar-upgrade/runs"));
}

std::vector<RunRecordEntry> runRecords(const QString &baseFolder)
{
    const QString base = withBase(baseFolder);
    QString errorText;
    const auto records = openRecordsFolder(base, false, errorText);
    std::vector<RunRecordEntry> entries;
    if (!records.isOpen())
        return entries;
    for (const auto &name : recordFolderNames(records))
        entries.push_back({ name, base + QLatin1Char('/') + name,
                            isRecordInUse(openRecordFolder(records, name)) });
    return entries;
}

std::optional<RunRecordEntry> findRunRecord(const QString &prefix, const QString &baseFolder,
                                            QString &errorText)
{
    const auto entries = runRecords(baseFolder);
    if (entries.empty()) {
        errorText = QStringLiteral("There is no record of any run.");
        return std::nullopt;
    }
    if (prefix.isEmpty())
        return entries.back();
    const auto fits = [&prefix](const RunRecordEntry &entry) {
        return entry.id.startsWith(prefix);
    };
    const auto found = std::find_if(entries.begin(), entries.end(), fits);
    if (found == entries.end()) {
        errorText = QStringLiteral("There is no record of a run \"%1\".").arg(printable(prefix));
        return std::nullopt;
    }
    if (std::any_of(std::next(found), entries.end(), fits)) {
        errorText = QStringLiteral("More than one run begins with \"%1\".").arg(printable(prefix));
        return std::nullopt;
    }
    return *found;
}

} // namespace Velmar::Host
