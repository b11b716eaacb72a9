#ifndef VELMARHOST_LOGCAPTURE_H
#define VELMARHOST_LOGCAPTURE_H

#include <QString>
#include <QStringList>

#include <functional>

namespace Velmar::Host {

/*!
    Takes Qt's log for itself while it lives, and keeps the last lines.

    The upgrade library logs the cause of a failure, some causes at debug level, and words only the
    step that failed for the user: a host that wants to tell the cause has to have listened. One
    object at a time; lines may come from any thread.
*/
class LogCapture
{
public:
    /*! \a echo, if given, gets each line at once, one call at a time, from the thread that logs. */
    explicit LogCapture(std::function<void(const QString &line)> echo = {});
    ~LogCapture();

    /*! The last lines of all threads, oldest first, at most five. */
    QStringList lastLines() const;

    /*! Forgets the lines so far. */
    void clear();

private:
    Q_DISABLE_COPY_MOVE(LogCapture)

    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);
    void keep(const QString &text);

    const std::function<void(const QString &)> m_echo;
    QStringList m_lines; // guarded by the mutex of the message handler
};

} // namespace Velmar::Host

#endif // VELMARHOST_LOGCAPTURE_H
