#pragma once
// The text that show commands and event-log messages print for identifier octets.
#include "Lldp/Lldp/Values.h"

namespace Lldp {

// "00 1c 73": two lower-case hex digits per byte, separated by blanks.
Kel::String bytesToHex(Kel::String const& bytes);
// A 6-byte MAC address in the separator's style; any other length prints as
// "Invalid MAC address: " and the bytes in hex.
Kel::String formatMacAddress(Kel::String const& bytes, MacSeparator separator);
// An LLDP network address: one octet of IANA address family, then the address.
Kel::String formatAddr(Kel::String const& address, MacSeparator separator);

}  // namespace Lldp
