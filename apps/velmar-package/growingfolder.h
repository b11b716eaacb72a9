#ifndef VELMARPACKAGE_GROWINGFOLDER_H
#define VELMARPACKAGE_GROWINGFOLDER_H

#include <QFileInfo>
#include <QString>

namespace Velmar::Package {

/*!
    The hidden folder beside a package's place in which the package is built. What stands at its
    path is removed with the object.

    The name tells the place, in a hash, and a lock on the folder tells that its maker is alive:
    what a killed process left is known by both, and nobody else's folder is touched.
*/
class GrowingFolder
{
public:
    explicit GrowingFolder(const QFileInfo &place);
    ~GrowingFolder();

    /*! Removes the folders for the same place whose makers are gone. */
    void removeLeftovers() const;

    /*! False if no folder can be made there. */
    bool make();

    QString path() const { return m_path; }

private:
    Q_DISABLE_COPY(GrowingFolder)

    bool lock();

    const QString m_parent;
    const QString m_prefix; // of the name
    QString m_path; // empty without a folder
    int m_descriptor = -1; // holds the lock
};

} // namespace Velmar::Package

#endif // VELMARPACKAGE_GROWINGFOLDER_H
