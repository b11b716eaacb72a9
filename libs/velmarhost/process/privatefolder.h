#ifndef VELMARHOST_PRIVATEFOLDER_H
#define VELMARHOST_PRIVATEFOLDER_H

#include "process/descriptor.h"

#include <QString>

#include <memory>

namespace Velmar::Host {

/*!
    A new folder that only this user may enter, removed with the object.

    It lies in a base folder beside others of its kind. A lock on a file beside it tells that its
    maker is alive, or a process that inherited the lock's descriptor: sweep() removes those of
    which nobody holds the lock, as a killed process leaves them.

    Everything is done by descriptor, below the base, and no link is followed there. The way to the
    base may lead over links; whoever may change that way is trusted. All functions: any thread, one
    at a time for an object.
*/
class PrivateFolder
{
public:
    /*!
        Makes a folder in \a base, which is made if it is not there, with the folders on the way
        to it. An existing \a base has to be this user's and is closed to all others.

        A null pointer, with \a errorText and \a errorNumber (of errno) set, if that fails.
    */
    static std::unique_ptr<PrivateFolder> make(const QString &base, int &errorNumber,
                                               QString &errorText);

    /*! Removes the folder with all in it. What cannot be removed stays for a sweep. */
    ~PrivateFolder();

    /*! Leaves the folder to whoever has inherited the lock: the destructor does not remove it, but
        a sweep does, once nobody holds the lock any more. */
    void leave();

    QString path() const; //!< absolute

    /*! Of the folder, open for reading. */
    int descriptor() const;

    /*! A process that has inherited it keeps the folder from being swept. It is closed on exec:
        whoever wants it inherited clears that in the child. */
    int lockDescriptor() const;

    /*!
        Removes the folders in \a base of which nobody holds the lock, and returns their number.
        Another user's base, or another name than make() gives, is left alone; and so is what lies
        on another file system.
    */
    static int sweep(const QString &base);

private:
    Q_DISABLE_COPY_MOVE(PrivateFolder)

    PrivateFolder(QString path, QByteArray name, Descriptor base, Descriptor folder,
                  Descriptor lock);

    const QString m_path;
    const QByteArray m_name; // in the base
    const Descriptor m_base;
    const Descriptor m_folder;
    const Descriptor m_lock;
    bool m_isLeft = false;
};

/*! The folder \a name of the program's cache: below $XDG_CACHE_HOME if that is an absolute path,
    otherwise below ".cache" in the user's home. */
QString cacheFolder(const QString &name);

} // namespace Velmar::Host

#endif // VELMARHOST_PRIVATEFOLDER_H
