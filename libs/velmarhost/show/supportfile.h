#ifndef VELMARHOST_SUPPORTFILE_H
#define VELMARHOST_SUPPORTFILE_H

#include <QByteArray>
#include <QString>

namespace Velmar::Host {

struct RunRecordEntry;

/*!
    The support file of the recorded run \a entry: a JSON object with \c schema (1), \c run,
    \c events, \c versions (\c before and \c after; null without a verdict), \c log (lines) and
    \c plan (null without one).

    It tells nothing else of the machine: home folder, paths of the package and of its private copy,
    user and host are replaced by "<home>", "<package>", "<copy>", "<user>" and "<host>". Lines that
    were cut by a kill are left out. Empty if the record cannot be read; \a errorText tells why.
*/
QByteArray supportFile(const RunRecordEntry &entry, QString &errorText);

/*!
    Writes \a content to \a path in one step: on an error, of which \a errorText tells, the file
    that was there before is as it was. Links, folders and devices are refused.
*/
bool writeSupportFile(const QString &path, const QByteArray &content, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_SUPPORTFILE_H
