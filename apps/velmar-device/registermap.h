#ifndef VELMARDEVICE_REGISTERMAP_H
#define VELMARDEVICE_REGISTERMAP_H

#include <QtGlobal>

#include <optional>

namespace Velmar::Simulator {

/*! The registers through which a device takes firmware for an MCU. */
enum class FirmwareRegister {
    Card, //!< which card of which model; begins a transfer
    FileType,
    TotalLength, //!< of all files together; locked
    LengthLock, //!< unlocks one write of a length
    FileLength, //!< of the file that follows; locked
    FileCount,
    Data,
};

/*! Where the registers of one device model are. */
class RegisterMap
{
public:
    static RegisterMap ofModel(quint16 modelId);

    std::optional<FirmwareRegister> at(quint32 address) const;

private:
    explicit RegisterMap(quint32 base);

    quint32 m_base;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_REGISTERMAP_H
