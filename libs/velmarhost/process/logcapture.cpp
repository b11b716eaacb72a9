#include "process/logcapture.h"

#include <QMutex>
#include <QMutexLocker>

#include <utility>

namespace Velmar::Host {

namespace {

constexpr int KeptLines = 5;

// Outlive every object: a worker that was left behind may still log.
QBasicMutex mutex; // guards what follows, and the lines of the present object
LogCapture *present = nullptr;
QtMessageHandler previousHandler = nullptr;

} // namespace

LogCapture::LogCapture(std::function<void(const QString &)> echo)
    : m_echo(std::move(echo))
{
    const QMutexLocker locker(&mutex);
    present = this;
    previousHandler = qInstallMessageHandler(&LogCapture::handle);
}

LogCapture::~LogCapture()
{
    const QMutexLocker locker(&mutex);
    qInstallMessageHandler(previousHandler);
    present = nullptr;
}

QStringList LogCapture::lastLines() const
{
    const QMutexLocker locker(&mutex);
    return m_lines;
}

void LogCapture::clear()
{
    const QMutexLocker locker(&mutex);
    m_lines.clear();
}

void LogCapture::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const QMutexLocker locker(&mutex);
    if (present)
        present->keep(text);
    if ((!present || type == QtFatalMsg) && previousHandler)
        previousHandler(type, context, text);
}

void LogCapture::keep(const QString &text)
{
    if (m_lines.size() == KeptLines)
        m_lines.removeFirst();
    m_lines.append(text);
    if (m_echo)
        m_echo(text);
}

} // namespace Velmar::Host
