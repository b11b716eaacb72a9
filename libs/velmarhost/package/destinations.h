#ifndef VELMARHOST_DESTINATIONS_H
#define VELMARHOST_DESTINATIONS_H

#include <QHash>
#include <QString>

namespace Velmar::Host {

/*!
    The places on a device that the files of one image take.

    A device keeps one file at a place and no files below a file. "/" parts the names of a path;
    empty ones and "." count for nothing, so that "/a", "a" and "./a/" are one place.
*/
class Destinations
{
public:
    /*! Adds \a path, which \a where leads to: a file, or a place in what names it. Empty, or what is
        wrong with it. */
    QString add(const QString &path, const QString &where);

    /*! What would be wrong with \a path here; empty if nothing is. */
    QString clash(const QString &path) const;

private:
    // Both by the path on the device, with what first led there.
    QHash<QString, QString> m_files;
    QHash<QString, QString> m_folders;
};

} // namespace Velmar::Host

#endif // VELMARHOST_DESTINATIONS_H
