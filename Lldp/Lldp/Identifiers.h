#pragma once
// Chassis, port and management-address identifiers, and the text that show commands and
// event-log messages print for their octets.
#include <cstdint>

#include "Kel/Value.h"
#include "Lldp/Lldp/Enums.h"
#include "Lldp/Lldp/Strings.h"
#include "Platform/AddressFamilyNumbers.h"
#include "Platform/ObjectIdentifier.h"

namespace Lldp {

// "00 1c 73": two lower-case hex digits per byte, separated by blanks.
Kel::String bytesToHex(Kel::String const& bytes);
// A 6-byte MAC address in the separator's style; any other length prints as
// "Invalid MAC address: " and the bytes in hex.
Kel::String formatMacAddress(Kel::String const& bytes, MacSeparator separator);
// An LLDP network address: one octet of IANA address family, then the address.
Kel::String formatAddr(Kel::String const& address, MacSeparator separator);

class ChassisIdentifier : public Kel::ValueBase {
  KEL_RECORD(ChassisIdentifier, "Lldp::ChassisIdentifier", Kel::opLt | Kel::opHash | Kel::opNot,
             (ChassisIdSubtype, chassisIdSubtype, cidReserved), (ChassisId, chassisId, ))

 public:
  Kel::String stringValue(MacSeparator separator, bool quoted) const;
};

class PortIdentifier : public Kel::ValueBase {
  KEL_RECORD(PortIdentifier, "Lldp::PortIdentifier", Kel::opLt | Kel::opHash | Kel::opNot,
             (PortIdSubtype, portIdSubtype, pidReserved), (PortId, portId, ))

 public:
  // The agent circuit ID prints in hex on purpose, not as text.
  Kel::String stringValue(MacSeparator separator, bool quoted) const;
};

class ManagementAddress : public Kel::ValueBase {
 public:
  class Key : public Kel::ValueBase {
    KEL_RECORD(Key, "Lldp::ManagementAddress::Key", Kel::opLt | Kel::opHash | Kel::opNot,
               (Platform::AddressFamilyNumbers, manAddrSubtype, 0), (ManAddress, manAddr, ))

   public:
    // Hands formatAddr the subtype's decimal digits rather than its octet, so the result
    // is always the hex of what follows the first digit; show output depends on it.
    Kel::String stringValue() const;
  };

  KEL_RECORD(ManagementAddress, "Lldp::ManagementAddress", Kel::opNot, (Key, key, ),
             (ManAddrIfSubtype, ifSubtype, unknown), (std::uint32_t, ifId, 0),
             (Platform::ObjectIdentifier, oid, ))

 public:
  explicit ManagementAddress(Key const& key) { keyIs(key); }
  // The TLV's address string length: the address plus its subtype octet.
  std::uint32_t manAddrLen() const { return static_cast<std::uint32_t>(key().manAddr().value().size()) + 1; }
};

}  // namespace Lldp
