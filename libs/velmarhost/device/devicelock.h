#ifndef VELMARHOST_DEVICELOCK_H
#define VELMARHOST_DEVICELOCK_H

#include "device/devicefacts.h"
#include "process/descriptor.h"

#include <QByteArray>
#include <QString>

#include <memory>

namespace Velmar::Host {

/*!
    Keeps a user's other runs on this machine away from one device.

    A lock on a file (\c flock), which the system takes back however the process ends, and which a
    process that inherits the descriptor holds as well. The file stays when the lock goes.
*/
class DeviceLock
{
public:
    /*!
        Takes the lock of the device with \a facts: by model and serial number, so that one device
        has one lock under all its addresses; by address if it tells no serial number.

        Null if another process has it (\a isHeld is true then) or if there is no place for locks;
        \a errorText is a sentence without its full stop. Does not wait. Any thread.
    */
    static std::unique_ptr<DeviceLock> take(const DeviceFacts &facts, QString &errorText,
                                            bool &isHeld);

    /*! The same for a device by any \a key, in a \a folder that is made if it is not there. The
        folder is this user's own and is closed to all others. */
    static std::unique_ptr<DeviceLock> take(const QByteArray &key, const QString &folder,
                                            QString &errorText, bool &isHeld);

    /*! Holds the lock as long as it is open in any process. Closed on exec: whoever wants it
        inherited clears that in the child. */
    int descriptor() const;

private:
    Q_DISABLE_COPY_MOVE(DeviceLock)

    explicit DeviceLock(Descriptor file);

    const Descriptor m_file;
};

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICELOCK_H
