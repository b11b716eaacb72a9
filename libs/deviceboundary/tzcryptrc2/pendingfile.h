#ifndef TZCRYPTRC2_PENDINGFILE_H
#define TZCRYPTRC2_PENDINGFILE_H

#include <QFile>
#include <QString>

namespace TZ::Internal {

/*!
    A file that gets its name when it is whole, so that nobody finds a part of it there, even if the
    process is killed. Without commit() nothing is left of it.
*/
class PendingFile
{
public:
    /*! How the file is kept until then. */
    enum class Naming {
        Late, //!< without any name, where the file system can do that; otherwise as Hidden
        Hidden, //!< under a name of its own beside the target, which a killed process leaves
    };

    enum class Result {
        Done,
        PlaceRefused, //!< there can be no such file at that place
        Failed, //!< the disk is full or broken, or the process has too many files open
    };

    explicit PendingFile(const QString &target);
    ~PendingFile();

    Result open(QString &cause, Naming naming = Naming::Late);

    /*! Where the contents go, unbuffered. */
    QIODevice &device() { return m_file; }

    /*! Gives the file its name. A file or link that stands there is replaced in one step. */
    Result commit(QString &cause);

private:
    Q_DISABLE_COPY(PendingFile)

    bool openUnnamed();
    bool openHidden();
    bool giveName(const QByteArray &path) const;
    Result fail(QString &cause) const;

    const QString m_target;
    QFile m_file;
    QByteArray m_hiddenPath; // empty while the file has no name
};

} // namespace TZ::Internal

#endif // TZCRYPTRC2_PENDINGFILE_H
