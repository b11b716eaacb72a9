#include "worker/workermain.h"

#include "worker/workerline.h"
#include "worker/workerorder.h"
#include "worker/workerrun.h"
#include "worker/workervoice.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace Velmar::Host {

namespace {

WorkerVoice *logVoice = nullptr; // set once, before there is another thread that logs

[[noreturn]] void endWithoutMemory()
{
    _exit(static_cast<int>(WorkerExit::OutOfMemory));
}

void tellLog(QtMsgType level, const QMessageLogContext & /*context*/, const QString &text)
{
    logVoice->tell(LogTell { level, text });
    // Qt says no more than this, and whoever waits for that thread would wait for ever.
    if (text.startsWith(QLatin1String("QThread::start: Thread creation error")))
        endWithoutMemory();
    if (level == QtFatalMsg)
        logVoice->flush(std::chrono::seconds(2)); // Qt ends the process next
}

// An exception that nobody has caught: memory is short, also where there is no room for a thread.
[[noreturn]] void endAtException()
{
    try {
        if (const auto exception = std::current_exception())
            std::rethrow_exception(exception);
    } catch (const std::bad_alloc &) {
        endWithoutMemory();
    } catch (const std::system_error &error) {
        if (error.code() == std::errc::resource_unavailable_try_again)
            endWithoutMemory();
    } catch (...) {
        std::abort();
    }
    std::abort();
}

/*! A descriptor for the messages; what else is printed goes to standard error instead. */
int takeOutput()
{
    const int descriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (descriptor < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        _exit(static_cast<int>(WorkerExit::BadOrder));
    return descriptor;
}

/*! Reads what the host says, and has it carried out. */
class HostListener : public QObject
{
public:
    explicit HostListener(WorkerVoice &voice)
        : m_voice(voice)
        , m_notifier(STDIN_FILENO, QSocketNotifier::Read)
    {
        connect(&m_notifier, &QSocketNotifier::activated, this, &HostListener::read);
    }

private:
    void read()
    {
        std::array<char, 65536> bytes = {};
        const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            return;
        if (count <= 0) {
            lose();
            return;
        }
        m_lines.add(QByteArray(bytes.data(), static_cast<int>(count)));
        while (const auto line = m_lines.next()) {
            if (!take(*line)) {
                lose();
                return;
            }
        }
        if (m_lines.isOverLimit())
            lose();
    }

    bool take(const QByteArray &line)
    {
        if (m_run) {
            const auto command = readCommandLine(line);
            if (command)
                run([this, command] { m_run->take(*command); });
            return command.has_value();
        }
        QString errorText;
        auto order = WorkerOrder::fromLine(line, errorText);
        if (!order)
            leaveWorker(m_voice, WorkerExit::BadOrder,
                        RefusedTell { VerdictCode::Internal,
                                      QStringLiteral("The worker process does not understand its "
                                                     "order: %1")
                                          .arg(errorText) });
        m_run = std::make_unique<WorkerRun>(std::move(*order), m_voice);
        run([this] { m_run->begin(); });
        return true;
    }

    // From the event loop: a step may wait in one of its own, and has to hear of a stop meanwhile.
    template<typename Step> void run(Step step)
    {
        QMetaObject::invokeMethod(this, std::move(step), Qt::QueuedConnection);
    }

    // A host that talks nonsense is as good as gone.
    void lose()
    {
        m_notifier.setEnabled(false);
        if (!m_run)
            leaveWorker(m_voice, WorkerExit::BadOrder, EndTell { false, QString() });
        run([this] { m_run->loseHost(); });
    }

    WorkerVoice &m_voice;
    QSocketNotifier m_notifier;
    LineCutter m_lines { OrderLineLimit };
    std::unique_ptr<WorkerRun> m_run;
};

} // namespace

void workerMain()
{
    prctl(PR_SET_NAME, "velmar-worker"); // the file's own name says nothing: it is /proc/self/exe
    std::signal(SIGPIPE, SIG_IGN);
    std::set_terminate(endAtException);
    WorkerVoice voice(takeOutput());
    logVoice = &voice;
    qInstallMessageHandler(tellLog);
    voice.tell(HelloTell { WorkerOrder::Protocol });
    const HostListener listener(voice);
    QCoreApplication::exec();
    leaveWorker(voice, WorkerExit::Told, EndTell { false, QString() });
}

} // namespace Velmar::Host
