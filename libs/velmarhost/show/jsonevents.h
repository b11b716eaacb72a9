#ifndef VELMARHOST_JSONEVENTS_H
#define VELMARHOST_JSONEVENTS_H

#include "show/runevent.h"

#include <QByteArray>

#include <functional>

namespace Velmar::Host {

/*!
    Writes the events of a run as JSON, an object a line, of the form that
    docs/velmar-upgrade-events.schema.json describes.

    Texts are made printable and cut; other strings, such as file names of a plan, have their
    unprintable characters as \c \u escapes, so that no byte of a line can disturb a terminal.
    The verdict is the last line: what comes behind it is not written.
*/
class JsonEvents final : public RunEventSink
{
public:
    /*! \a write takes whole lines with the line break. */
    JsonEvents(const QString &runId, std::function<void(const QByteArray &line)> write);

    void take(const RunEvent &event) override;

    /*! The number of lines written so far. */
    qint64 sequence() const { return m_sequence; }

private:
    const QString m_runId;
    const std::function<void(const QByteArray &)> m_write;
    qint64 m_sequence = 0;
    bool m_isEnded = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_JSONEVENTS_H
