#ifndef VELMARDEVICE_STATEFOLDER_H
#define VELMARDEVICE_STATEFOLDER_H

#include <QString>

#include <memory>

namespace Velmar::Simulator {

/*!
    The folder in which one device keeps everything, and the right to it.

    The lock is the kernel's: it ends with the process, however that dies.
*/
class StateFolder
{
public:
    /*! Takes \a path, which is made if it is not there, and its subfolders. Null, with \a errorText
        set, if that cannot be done or another device has it. */
    static std::unique_ptr<StateFolder> open(const QString &path, QString &errorText);

    ~StateFolder();

    const QString &path() const { return m_path; } //!< absolute
    QString stateFile() const;
    QString files() const; //!< the installed files, by destination path
    QString firmware() const; //!< of MCUs, as it came register by register
    QString images() const; //!< images that were received whole
    QString incoming() const; //!< files on their way; worth nothing after a stop
    QString staging() const; //!< files of the running installation

private:
    StateFolder(const QString &path, int lock);
    Q_DISABLE_COPY_MOVE(StateFolder)

    const QString m_path;
    const int m_lock;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_STATEFOLDER_H
