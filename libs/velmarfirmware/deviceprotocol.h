#ifndef VELMARFIRMWARE_DEVICEPROTOCOL_H
#define VELMARFIRMWARE_DEVICEPROTOCOL_H

namespace Velmar::Firmware {

/*! The one protocol version of a device for which its hardware decides on the HTTP road. */
inline constexpr char DeviceProtocolVersion[] = "2.0.0.0";

/*! Hardware, separated by ";", that devices of that version cannot upgrade over HTTP on. */
inline constexpr char UnsupportedHardware[] = "S1.T1;S1.T2;S1.T3";

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_DEVICEPROTOCOL_H
