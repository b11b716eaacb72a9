#include "registermap.h"

namespace Velmar::Simulator {

namespace {

constexpr quint32 CommonBase = 0x01000000;

/*! Models whose registers are not at the common place. */
constexpr struct {
    quint16 modelId;
    quint32 base;
} Bases[] = {
    { 0x7702, 0x01100000 },
};

constexpr struct {
    quint32 offset;
    FirmwareRegister which;
} Registers[] = {
    { 0x0010, FirmwareRegister::Card },        { 0x0014, FirmwareRegister::FileType },
    { 0x0020, FirmwareRegister::TotalLength }, { 0x0024, FirmwareRegister::LengthLock },
    { 0x002C, FirmwareRegister::FileLength },  { 0x0030, FirmwareRegister::FileCount },
    { 0x1000, FirmwareRegister::Data },
};

} // namespace

RegisterMap::RegisterMap(quint32 base)
    : m_base(base)
{
}

RegisterMap RegisterMap::ofModel(quint16 modelId)
{
    for (const auto &entry : Bases) {
        if (entry.modelId == modelId)
            return RegisterMap(entry.base);
    }
    return RegisterMap(CommonBase);
}

std::optional<FirmwareRegister> RegisterMap::at(quint32 address) const
{
    for (const auto &entry : Registers) {
        if (address == m_base + entry.offset)
            return entry.which;
    }
    return {};
}

} // namespace Velmar::Simulator
