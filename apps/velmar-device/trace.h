#ifndef VELMARDEVICE_TRACE_H
#define VELMARDEVICE_TRACE_H

#include <velmarssproxy/linkmessages.h>

#include <QFile>
#include <QJsonObject>

namespace Velmar::Simulator {

/*!
    Writes what comes in and goes out, one JSON object a line, to the end of a file.

    Each line is in the file when the function returns, so that nothing is missing after a kill. A
    trace that was not opened writes nothing.
*/
class Trace
{
public:
    /*! False, with \a errorText set, if the file cannot be written. */
    bool open(const QString &path, QString &errorText);

    void request(const QString &peer, const SSProxy::RequestMessage &request);

    /*! \a operation is that of the request. */
    void answer(const QString &peer, const QString &operation,
                const SSProxy::AnswerMessage &answer);

    /*! A datagram of the probe. */
    void probe(const QString &peer, const QString &direction, const QCborMap &message);

    /*! A request of the HTTP service and how it was answered. */
    void http(const QString &peer, const QJsonObject &exchange);

private:
    void write(const QString &road, const QString &direction, const QString &peer,
               QJsonObject fields);

    QFile m_file;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_TRACE_H
