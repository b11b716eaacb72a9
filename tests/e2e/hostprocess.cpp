#include "hostprocess.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QThread>

#include <algorithm>

namespace {

constexpr int PatienceMs = 60000;
constexpr int LookPauseMs = 20;

/*! Name, state and parent, as the system tells them of a process. */
struct ProcessStatus {
    QByteArray name;
    QByteArray state; //!< empty: there is no such process
    pid_t parent = 0;
};

ProcessStatus statusOf(const QString &id)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(id));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray text = file.readAll(); // "ID (NAME) STATE PARENT ...", any NAME
    const int begin = text.indexOf('(');
    const int end = text.lastIndexOf(')');
    const auto fields = text.mid(end + 2).split(' ');
    return { text.mid(begin + 1, end - begin - 1), fields.value(0), fields.value(1).toInt() };
}

} // namespace

HostFolders::HostFolders()
{
    const QDir folder(m_folder.path());
    for (const char *name : { "cache", "config", "runtime", "state", "temporary" })
        folder.mkdir(QLatin1String(name));
}

QProcessEnvironment HostFolders::environment() const
{
    auto environment = QProcessEnvironment::systemEnvironment();
    const auto set = [&](const char *variable, const char *folder) {
        environment.insert(QLatin1String(variable), m_folder.filePath(QLatin1String(folder)));
    };
    set("XDG_CACHE_HOME", "cache");
    set("XDG_CONFIG_HOME", "config");
    set("XDG_RUNTIME_DIR", "runtime");
    set("XDG_STATE_HOME", "state");
    set("TMPDIR", "temporary");
    return environment;
}

QString HostFolders::cache() const
{
    return m_folder.filePath(QStringLiteral("cache"));
}

QStringList HostFolders::left() const
{
    QStringList left;
    for (const char *name : { "cache/velmar-upgrade/packages", "runtime", "temporary" }) {
        QDirIterator entries(m_folder.filePath(QLatin1String(name)),
                             QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext())
            left.append(QDir(m_folder.path()).relativeFilePath(entries.next()));
    }
    left.sort();
    return left;
}

HostProcess::HostProcess(const QStringList &arguments, const HostFolders &folders,
                         const QStringList &before)
{
    const QStringList words = before + QStringList { QStringLiteral(VELMAR_UPGRADE) } + arguments;
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.setProcessEnvironment(folders.environment());
    m_process.start(words.constFirst(), words.mid(1));
    m_process.waitForStarted();
}

pid_t HostProcess::id() const
{
    return static_cast<pid_t>(m_process.processId());
}

pid_t HostProcess::workerId() const
{
    const auto ids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    const auto worker = std::find_if(ids.cbegin(), ids.cend(), [this](const QString &candidate) {
        const auto status = statusOf(candidate);
        return status.parent == id() && status.name == "velmar-worker" && status.state != "Z";
    });
    return worker == ids.cend() ? 0 : worker->toInt();
}

bool HostProcess::waitForPhase(const QString &word, int percent)
{
    const QDeadlineTimer deadline(PatienceMs);
    const auto isIt = [&](const QJsonObject &event) {
        return event.value(QLatin1String("phase")).toString() == word
            && event.value(QLatin1String("percent")).toInt() >= percent;
    };
    for (;;) {
        readEvents();
        if (std::any_of(m_events.cbegin(), m_events.cend(), isIt))
            return true;
        if (!m_process.waitForReadyRead(static_cast<int>(deadline.remainingTime())))
            return false;
    }
}

void HostProcess::finish(int patienceMs)
{
    const bool isOver =
        m_process.state() == QProcess::NotRunning || m_process.waitForFinished(patienceMs);
    if (!isOver) {
        m_process.kill();
        m_process.waitForFinished();
    } else if (m_process.exitStatus() == QProcess::NormalExit
               && m_process.error() != QProcess::FailedToStart) {
        m_exitCode = m_process.exitCode();
    }
    readEvents();
}

int HostProcess::exitCode() const
{
    return m_exitCode;
}

QString HostProcess::verdict() const
{
    if (m_events.isEmpty()
        || m_events.constLast().value(QLatin1String("event")) != QLatin1String("verdict"))
        return QString();
    return m_events.constLast().value(QLatin1String("code")).toString();
}

QString HostProcess::output() const
{
    QString text;
    for (const auto &event : m_events) {
        const QString said = event.value(QLatin1String("text")).toString();
        if (!said.isEmpty())
            text += QStringLiteral("%1 %2 %3: %4\n")
                        .arg(event.value(QLatin1String("time")).toString(),
                             event.value(QLatin1String("phase")).toString(),
                             event.value(QLatin1String("code")).toString(), said);
    }
    return text + QString::fromUtf8(m_errors);
}

void HostProcess::readEvents()
{
    m_unread += m_process.readAllStandardOutput();
    for (int end = m_unread.indexOf('\n'); end >= 0; end = m_unread.indexOf('\n')) {
        m_events.append(QJsonDocument::fromJson(m_unread.left(end)).object());
        m_unread.remove(0, end + 1);
    }
    m_errors += m_process.readAllStandardError();
}

bool waitForEndOf(pid_t id)
{
    const QDeadlineTimer deadline(PatienceMs);
    const auto isOver = [id] {
        const auto state = statusOf(QString::number(id)).state;
        return state.isEmpty() || state == "Z";
    };
    // Nobody is told of the end of a process that is not their child.
    while (!isOver() && !deadline.hasExpired())
        QThread::msleep(LookPauseMs);
    return isOver();
}
