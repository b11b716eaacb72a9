#ifndef VELMARHOST_PACKAGELISTING_H
#define VELMARHOST_PACKAGELISTING_H

#include "package/strictxml.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace Velmar::Host {

/*! One file that a unit's description names. */
struct ListedFile {
    QString sectionName;
    QString fileName; //!< relative to the unit's folder
    QString filePath; //!< on disk, in the form that the upgrade library gives it
    int boardId = 0; //!< 0: any board of the model; otherwise the one board that it is for
    qint64 size = -1; //!< bytes; -1: there is no such file
    QStringList commands; //!< names of the commands that send it register by register
    int line = 0; //!< of the description
};

/*! One command in a unit's description, wherever it stands there. */
struct ListedCommand {
    QString name;
    int line = 0; //!< of the description
};

/*! One entry of the file that tells where the package's files belong on a device. */
struct ListedPath {
    QString source; //!< relative to the package
    QString target; //!< on the device
    int line = 0;
};

/*! One unit of a package as its description has it. */
struct ListedUnit {
    QString folder; //!< as the index names it, relative to the package
    QString path; //!< of the folder on disk, in the form that the upgrade library gives it
    QString problem; //!< why the unit cannot be read; empty if it can
    int modelId = 0; //!< 0 if the description names none that is a number
    int stepType = 0; //!< 0: for the main device; 1: for a sub-card
    QString version;
    QVector<ListedFile> files;
    QString description; //!< the file that was read, relative to the package; empty: none was
    int descriptionCount = 0; //!< entries of the folder that the upgrade library might take for it
    QVector<ListedCommand> commands;
    QVector<ListedFault> faults; //!< rules that the description breaks
};

/*!
    What a package folder says that it holds, whether it fits a device or not.

    Read from the files alone, which may be read-only, and not through the upgrade library, which
    tells only what fits. What readStrictXml() refuses makes a file unreadable.
*/
class PackageListing
{
public:
    /*! Reads the folder at \a path. False, with \a errorText set, if it has no readable index or
        its XML files go beyond \a allowance, which ends the list; a unit that cannot be read is
        listed with its problem. */
    bool read(const QString &path, QString &errorText, const XmlAllowance &allowance = {});

    const QVector<ListedUnit> &units() const; //!< in the index's order

    /*! What the file of destinations says, up to its first fault, which ends what the upgrade
        library takes of it; empty if there is none. */
    const QVector<ListedPath> &paths() const;

    /*! Why the index, or the file of destinations, cannot be read as a whole. A missing file of
        destinations is told, too. */
    const QVector<ListedFault> &faults() const;

private:
    void readUnit(const QString &path, XmlAccount &account, ListedUnit &unit);
    void readPaths(const QString &path, XmlAccount &account);

    QVector<ListedUnit> m_units;
    QVector<ListedPath> m_paths;
    QVector<ListedFault> m_faults;
};

} // namespace Velmar::Host

#endif // VELMARHOST_PACKAGELISTING_H
