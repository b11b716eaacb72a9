#include "worker/upgradeworker.h"

#include "worker/workermain.h"

#include <QCoreApplication>
#include <QPointer>
#include <QProcess>

#include <csignal>
#include <cstring>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

constexpr int ErrorLineLimit = 4096; // bytes; longer lines of the standard error come in pieces

constexpr bool isMemoryLimitable()
{
#ifdef __SANITIZE_ADDRESS__
    return false; // its shadow takes terabytes of addresses, which count
#else
    return true;
#endif
}

} // namespace

/*! A process with a session, a memory limit and descriptors of its own. */
class UpgradeWorker::Process : public QProcess
{
public:
    Process(qint64 memoryLimit, std::vector<int> descriptors)
        : m_memoryLimit(isMemoryLimitable() ? memoryLimit : 0)
        , m_descriptors(std::move(descriptors))
    {
    }

protected:
    // Runs behind the fork, where other threads' locks may be held for ever: system calls alone.
    void setupChildProcess() override
    {
        setsid();
        setLimit(RLIMIT_CORE, 0); // what is in its memory stays there
        if (m_memoryLimit > 0)
            setLimit(RLIMIT_DATA, static_cast<rlim_t>(m_memoryLimit));
        for (const int descriptor : m_descriptors)
            fcntl(descriptor, F_SETFD, 0);
    }

private:
    static void setLimit(__rlimit_resource resource, rlim_t value)
    {
        rlimit limit = {};
        getrlimit(resource, &limit);
        limit.rlim_cur = limit.rlim_max < value ? limit.rlim_max : value;
        setrlimit(resource, &limit);
    }

    const qint64 m_memoryLimit;
    const std::vector<int> m_descriptors;
};

UpgradeWorker::UpgradeWorker(WorkerLaunch launch)
    : m_launch(std::move(launch))
{
    m_endLimit.setSingleShot(true);
    connect(&m_endLimit, &QTimer::timeout, this, [this] { m_process->kill(); });
}

UpgradeWorker::~UpgradeWorker()
{
    if (!m_process)
        return;
    m_process->disconnect(this);
    m_process->kill();
    m_process->waitForFinished();
    m_process.release()->deleteLater(); // not at once: this may be in a slot of its own signal
}

void UpgradeWorker::start(const WorkerOrder &order, std::vector<int> descriptors)
{
    Q_ASSERT(!m_process && !m_last);
    m_process = std::make_unique<Process>(m_launch.memoryLimit, std::move(descriptors));
    connect(m_process.get(), &QProcess::readyReadStandardOutput, this,
            &UpgradeWorker::readMessages);
    connect(m_process.get(), &QProcess::readyReadStandardError, this, &UpgradeWorker::readErrors);
    connect(m_process.get(), qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            &UpgradeWorker::slotFinished);
    connect(
        m_process.get(), &QProcess::errorOccurred, this,
        [this](QProcess::ProcessError error) {
            if (error != QProcess::FailedToStart)
                return; // the others are told by its end
            m_fault = QStringLiteral("The worker process cannot be started: %1")
                          .arg(m_process->errorString());
            end();
        },
        // Not before start() has returned: whoever called it is not listening yet.
        Qt::QueuedConnection);
    // The running program, also where its file has been replaced since.
    const auto program =
        m_launch.program.isEmpty() ? QStringLiteral("/proc/self/exe") : m_launch.program;
    m_process->start(program, m_launch.arguments);
    write(order.toLine());
}

void UpgradeWorker::go()
{
    write(commandLine(WorkerCommand::Go));
}

void UpgradeWorker::requestStop()
{
    write(commandLine(WorkerCommand::Stop));
}

void UpgradeWorker::kill()
{
    fail(QStringLiteral("The worker process was ended by its host"));
}

void UpgradeWorker::leave()
{
    if (!m_process)
        return;
    m_endLimit.stop();
    m_process->disconnect(this);
    m_process->closeWriteChannel();
    m_process->closeReadChannel(QProcess::StandardOutput);
    m_process->closeReadChannel(QProcess::StandardError);
    // Never destroyed, which would kill the process.
    static auto *const left = new std::vector<std::unique_ptr<Process>>;
    left->push_back(std::move(m_process));
}

bool UpgradeWorker::isRunning() const
{
    return m_process != nullptr;
}

const LinkTraffic &UpgradeWorker::traffic() const
{
    return m_traffic;
}

std::optional<Phase> UpgradeWorker::phase() const
{
    return m_phase;
}

void UpgradeWorker::write(const QByteArray &line)
{
    if (m_process && m_process->state() != QProcess::NotRunning)
        m_process->write(line);
}

void UpgradeWorker::readMessages()
{
    m_lines.add(m_process->readAllStandardOutput());
    // A slot of whoever listens may end this object, or kill the worker.
    const QPointer<UpgradeWorker> self(this);
    while (self && !m_last && m_fault.isEmpty()) {
        const auto line = m_lines.next();
        if (!line) {
            if (m_lines.isOverLimit())
                fail(QStringLiteral("The worker process told a line of more than %1 bytes")
                         .arg(WorkerLineLimit));
            return;
        }
        take(*line);
    }
}

void UpgradeWorker::take(const QByteArray &line)
{
    QString errorText;
    const auto message = readWorkerMessage(line, errorText);
    if (!message) {
        fail(QStringLiteral("The worker process told something that is no message: %1")
                 .arg(errorText));
        return;
    }
    const auto *hello = std::get_if<HelloTell>(&*message);
    if (m_hasGreeted != (hello == nullptr)
        || (hello != nullptr && hello->protocol != WorkerOrder::Protocol)) {
        fail(QStringLiteral("The worker process is of another version than its host"));
        return;
    }
    m_hasGreeted = true;
    tell(*message);
}

void UpgradeWorker::tell(const WorkerMessage &message)
{
    const QPointer<UpgradeWorker> self(this);
    Q_EMIT signalAlive();
    if (!self || !m_fault.isEmpty())
        return;
    std::visit(
        [this](const auto &told) {
            using Tell = std::decay_t<decltype(told)>;
            if constexpr (std::is_same_v<Tell, PhaseTell>) {
                m_phase = told.phase;
                Q_EMIT signalPhase(told.phase);
            } else if constexpr (std::is_same_v<Tell, PlanTell>) {
                Q_EMIT signalPlan(told.plan);
            } else if constexpr (std::is_same_v<Tell, StatusTell>) {
                Q_EMIT signalStatus(told.text);
            } else if constexpr (std::is_same_v<Tell, SendingTell>) {
                Q_EMIT signalSending(told.percent, told.sentBytes, told.totalBytes);
            } else if constexpr (std::is_same_v<Tell, InstallingTell>) {
                Q_EMIT signalInstalling(told.progress);
            } else if constexpr (std::is_same_v<Tell, TrafficTell>) {
                m_traffic = told.traffic;
                Q_EMIT signalTraffic(m_traffic);
            } else if constexpr (std::is_same_v<Tell, LogTell>) {
                Q_EMIT signalLog(told.level, told.text);
            } else if constexpr (std::is_same_v<Tell, StopTell>) {
                Q_EMIT signalStopAnswered(told.isTaken);
            } else if constexpr (std::is_same_v<Tell,
                                                EndTell> || std::is_same_v<Tell, RefusedTell>) {
                m_last = told;
                m_endLimit.start(m_launch.endLimit);
            }
        },
        message);
}

void UpgradeWorker::readErrors()
{
    m_errors += m_process->readAllStandardError();
    const QPointer<UpgradeWorker> self(this);
    while (self) {
        int length = m_errors.left(ErrorLineLimit).indexOf('\n');
        const int feed = length < 0 ? 0 : 1;
        if (length < 0 && m_errors.size() < ErrorLineLimit)
            return;
        if (length < 0)
            length = ErrorLineLimit;
        const auto text = QString::fromLocal8Bit(m_errors.left(length));
        m_errors.remove(0, length + feed);
        Q_EMIT signalLog(QtWarningMsg, text);
    }
}

void UpgradeWorker::fail(const QString &why)
{
    if (!m_process || !m_fault.isEmpty())
        return;
    m_fault = why;
    m_process->kill();
}

// Up to its very end a process that is killed may give an order, which it tells before.
void UpgradeWorker::noteLastTraffic()
{
    m_lines.add(m_process->readAllStandardOutput());
    QString errorText;
    while (const auto line = m_lines.next()) {
        const auto message = readWorkerMessage(*line, errorText);
        if (const auto *told = message ? std::get_if<TrafficTell>(&*message) : nullptr)
            m_traffic = told->traffic;
    }
}

void UpgradeWorker::slotFinished()
{
    const QPointer<UpgradeWorker> self(this);
    readMessages();
    if (self && !m_fault.isEmpty())
        noteLastTraffic();
    if (self)
        readErrors();
    if (self && !m_errors.isEmpty())
        Q_EMIT signalLog(QtWarningMsg, QString::fromLocal8Bit(std::exchange(m_errors, {})));
    if (self)
        end();
}

void UpgradeWorker::end()
{
    m_endLimit.stop();
    auto *const ended = m_process.release();
    ended->disconnect(this);
    ended->deleteLater(); // as in the destructor
    if (!m_last) {
        Q_EMIT signalDied(m_fault.isEmpty() ? deathOf(*ended) : m_fault);
    } else if (const auto *told = std::get_if<EndTell>(&*m_last)) {
        Q_EMIT signalEnded(told->result, told->text);
    } else {
        const auto &refused = std::get<RefusedTell>(*m_last);
        Q_EMIT signalRefused(refused.code, refused.text);
    }
}

QString UpgradeWorker::deathOf(const Process &process) const
{
    const int code = process.exitCode();
    if (process.exitStatus() == QProcess::CrashExit)
        return QStringLiteral("The worker process was ended by signal %1 (%2)")
            .arg(code)
            .arg(QString::fromLocal8Bit(strsignal(code)));
    if (code == static_cast<int>(WorkerExit::OutOfMemory))
        return QStringLiteral("The worker process needed more memory than it may have (%1 MiB)")
            .arg(m_launch.memoryLimit / 1024 / 1024);
    return QStringLiteral("The worker process ended with exit code %1 before it told an end")
        .arg(code);
}

} // namespace Velmar::Host
