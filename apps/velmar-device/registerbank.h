#ifndef VELMARDEVICE_REGISTERBANK_H
#define VELMARDEVICE_REGISTERBANK_H

#include "devicerecord.h"
#include "registermap.h"

#include <QByteArray>

#include <optional>

namespace Velmar::Simulator {

class FirmwareStore;
class Fitting;

/*! What a register says to a write. */
enum class RegisterAck : quint16 {
    Accepted = 0,
    UnknownAddress = 101,
    WrongFlags = 102,
    WrongPayloadLength = 103,
    WrongCard = 104, //!< not in this device, or of another model
    WrongFileType = 105,
    LengthLocked = 106,
    WrongLength = 107, //!< a length that no file can have, or that contradicts the other
    WrongCount = 108,
    OutOfSequence = 109,
    TooMuchData = 110, //!< more than was announced
    Busy = 111,
    WrongContents = 112,
    NotStored = 113, //!< the device's disk did not take it
};

/*! One write, as it comes over the link. */
struct RegisterWrite {
    quint8 scanner = 0;
    quint8 write = 0;
    quint8 reserved = 0;
    quint32 address = 0;
    quint16 length = 0; //!< bytes of the body, as the host has it
    quint8 trailing = 0;
    QByteArray body;
};

/*! How a write ended. */
struct RegisterAnswer {
    RegisterAck ack = RegisterAck::Accepted;
    QString errorText; //!< for people; empty if accepted

    bool isAccepted() const { return ack == RegisterAck::Accepted; }
};

/*!
    The registers of a device, by which it takes firmware for an MCU, one file at a time.

    The card is chosen first, which drops what was received before; file type, lengths and count
    follow, then the data, whose place the bank counts by itself. A write that is refused changes
    nothing, but for a file that turns out to be no good with its last byte. The transfer belongs to
    the device and not to a connection.
*/
class RegisterBank
{
public:
    static constexpr int MaxDataSize = 4096; //!< bytes of one write
    static constexpr quint32 MaxFileLength = 64 * 1024 * 1024; //!< bytes; the room for firmware

    /*! \a fitting and \a store have to outlive this object. If \a isLying, a file that was taken
        whole is not stored: the firmware before stays. */
    RegisterBank(const Fitting &fitting, FirmwareStore &store, bool isLying = false);

    RegisterAnswer write(const RegisterWrite &write);

    /*! The percentage of the announced file that will have arrived if \a write is accepted: 100 if it
        brings the end. 0 for a write that brings no data, or more than is missing. */
    int percentWith(const RegisterWrite &write) const;

    /*! A file was taken whole and waits for the restart; until then all writes are refused. */
    bool isComplete() const { return m_isComplete; }

    /*! Drops what was received and forgets what was written, as a restart does. */
    void reset();

private:
    RegisterAnswer checkFrame(const RegisterWrite &write) const;
    RegisterAnswer checkSequence(FirmwareRegister which) const;
    RegisterAnswer chooseCard(const QByteArray &body);
    RegisterAnswer setFileType(const QByteArray &body);
    RegisterAnswer setLength(const QByteArray &body, quint32 &length);
    RegisterAnswer unlockLength(const QByteArray &body);
    RegisterAnswer setFileCount(const QByteArray &body);
    RegisterAnswer takeData(const QByteArray &body);
    RegisterAnswer finish();

    const Fitting &m_fitting;
    FirmwareStore &m_store;
    const RegisterMap m_map;
    const bool m_isLying;
    std::optional<SectionKey> m_target; // none: no card is chosen
    bool m_hasFileType = false;
    bool m_isLengthUnlocked = false;
    quint32 m_totalLength = 0; // bytes; 0: not written yet
    quint32 m_fileLength = 0; // bytes; 0: not written yet
    bool m_hasFileCount = false;
    quint32 m_received = 0; // bytes
    bool m_isComplete = false;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_REGISTERBANK_H
