#include "logrecorder.h"

namespace {

// Guards the two below: a thread may still log while a recorder comes or goes.
std::mutex recorderMutex;
LogRecorder *activeRecorder = nullptr;
QtMessageHandler handlerBefore = nullptr;

} // namespace

LogRecorder::LogRecorder()
{
    const std::lock_guard<std::mutex> lock(recorderMutex);
    Q_ASSERT(activeRecorder == nullptr);
    activeRecorder = this;
    handlerBefore = qInstallMessageHandler(&LogRecorder::record);
}

LogRecorder::~LogRecorder()
{
    const std::lock_guard<std::mutex> lock(recorderMutex);
    qInstallMessageHandler(handlerBefore);
    activeRecorder = nullptr;
}

QVector<LogRecorder::Line> LogRecorder::lines() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

QStringList LogRecorder::texts(QtMsgType type) const
{
    QStringList texts;
    const auto recorded = lines();
    for (const Line &line : recorded) {
        if (line.first == type)
            texts.append(line.second);
    }
    return texts;
}

void LogRecorder::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

void LogRecorder::record(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const std::lock_guard<std::mutex> lock(recorderMutex);
    if (activeRecorder != nullptr && type != QtFatalMsg) {
        const std::lock_guard<std::mutex> linesLock(activeRecorder->m_mutex);
        activeRecorder->m_lines.append(qMakePair(type, text));
    } else if (handlerBefore != nullptr) {
        handlerBefore(type, context, text);
    }
}
