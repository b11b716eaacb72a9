#ifndef TESTS_SUPPORT_LOGRECORDER_H
#define TESTS_SUPPORT_LOGRECORDER_H

#include <QPair>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include <mutex>

/*!
    Records all that is logged, by any thread, as long as the object is there; nothing of it is
    shown.

    One at a time. Fatal messages go to the handler from before.
*/
class LogRecorder
{
public:
    using Line = QPair<QtMsgType, QString>;

    LogRecorder();
    ~LogRecorder();

    QVector<Line> lines() const;
    QStringList texts(QtMsgType type) const; //!< of the lines at one level, in order
    void clear();

private:
    Q_DISABLE_COPY_MOVE(LogRecorder)

    static void record(QtMsgType type, const QMessageLogContext &context, const QString &text);

    mutable std::mutex m_mutex; // guards m_lines
    QVector<Line> m_lines;
};

#endif // TESTS_SUPPORT_LOGRECORDER_H
