#ifndef VELMARDEVICE_FIRMWARESTORE_H
#define VELMARDEVICE_FIRMWARESTORE_H

#include "devicerecord.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>

namespace Velmar::Simulator {

class DeviceState;
class StateFolder;

/*!
    Keeps the firmware of MCUs that came register by register, byte for byte.

    What is received goes to a file of its own. Installing it puts that file among the others under
    a name made from its contents and then notes the name in the record, which is the moment that
    counts: a device that stops before has the old firmware, and what it has no note of is removed.
*/
class FirmwareStore
{
public:
    /*! Both arguments have to outlive this object. Removes what the record has no note of. */
    FirmwareStore(const StateFolder &folder, DeviceState &state);
    ~FirmwareStore();

    /*! Takes the bytes that follow those received so far. False, with \a errorText set and the
        bytes not taken, if the disk does not take them. */
    bool append(const QByteArray &bytes, QString &errorText);

    /*! Whether what was received begins like a file of an upgrade package, not like firmware. */
    bool isEnciphered() const;

    /*!
        Makes what was received the firmware of the MCU \a target, which runs it from the next
        restart on.

        Its version is the last word of the first line, if that is dotted and has four parts;
        otherwise one made from the contents. False, with \a errorText set and the former firmware
        still there, if the disk does not take it.
    */
    bool install(const SectionKey &target, QString &errorText);

    /*! Drops what was received. */
    void discard();

private:
    QString incomingPath() const;
    QString version() const;
    void removeUnknown();

    const StateFolder &m_folder;
    DeviceState &m_state;
    QFile m_file;
    QByteArray m_head; // of what was received
    QCryptographicHash m_hash { QCryptographicHash::Sha256 };
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_FIRMWARESTORE_H
