#ifndef VELMARFIRMWARE_BYTESUM_H
#define VELMARFIRMWARE_BYTESUM_H

#include <cstddef>
#include <cstdint>

namespace Velmar::Firmware {

/*! Sum of \a count bytes from \a bytes on, each taken as unsigned. Wraps at 32 bits. */
std::uint32_t byteSum(const unsigned char *bytes, std::size_t count);

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_BYTESUM_H
