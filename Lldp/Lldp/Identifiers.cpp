#include "Lldp/Lldp/Identifiers.h"

#include <arpa/inet.h>

namespace Lldp {

Kel::String bytesToHex(Kel::String const& bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 3);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i) out += ' ';
    out += digits[bytes[i] >> 4];
    out += digits[bytes[i] & 0xf];
  }
  return Kel::String(std::move(out));
}

Kel::String formatMacAddress(Kel::String const& bytes, MacSeparator separator) {
  if (bytes.size() != 6) return Kel::String("Invalid MAC address: ") + bytesToHex(bytes);
  auto const* b = reinterpret_cast<unsigned char const*>(bytes.data());
  if (separator == period)
    return Kel::format("%02hhx%02hhx.%02hhx%02hhx.%02hhx%02hhx", b[0], b[1], b[2], b[3], b[4], b[5]);
  return Kel::format("%02hhx:%02hhx:%02hhx:%02hhx:%02hhx:%02hhx", b[0], b[1], b[2], b[3], b[4], b[5]);
}

Kel::String formatAddr(Kel::String const& address, MacSeparator separator) {
  unsigned family = address.empty() ? 0 : address[0];
  Kel::String rest = address.empty() ? Kel::String() : Kel::String(address.data() + 1, address.size() - 1);
  char text[INET6_ADDRSTRLEN];
  switch (family) {
    case 1:
      if (rest.size() != 4) return Kel::String("Invalid IPv4 address: ") + bytesToHex(rest);
      return Kel::String(inet_ntop(AF_INET, rest.data(), text, sizeof text));
    case 2:
      if (rest.size() != 16) return Kel::String("Invalid IPv6 address: ") + bytesToHex(rest);
      return Kel::String(inet_ntop(AF_INET6, rest.data(), text, sizeof text));
    case 6:
      return formatMacAddress(rest, separator);
    default:
      return bytesToHex(rest);
  }
}

namespace {

Kel::String textValue(Kel::String const& bytes, bool quoted) {
  return quoted ? Kel::String("\"") + bytes + Kel::String("\"") : bytes;
}

}  // namespace

Kel::String ChassisIdentifier::stringValue(MacSeparator separator, bool quoted) const {
  Kel::String const& id = chassisId().value();
  switch (chassisIdSubtype()) {
    case cidChassisComponent:
    case cidInterfaceAlias:
    case cidPortComponent:
    case cidInterfaceName:
    case cidLocal:
      return textValue(id, quoted);
    case cidMacAddress:
      return formatMacAddress(id, separator);
    case cidNetworkAddress:
      return formatAddr(id, separator);
    default:
      return bytesToHex(id);
  }
}

Kel::String PortIdentifier::stringValue(MacSeparator separator, bool quoted) const {
  Kel::String const& id = portId().value();
  switch (portIdSubtype()) {
    case pidInterfaceAlias:
    case pidPortComponent:
    case pidInterfaceName:
    case pidLocal:
      return textValue(id, quoted);
    case pidMacAddress:
      return formatMacAddress(id, separator);
    case pidNetworkAddress:
      return formatAddr(id, separator);
    default:
      return bytesToHex(id);
  }
}

Kel::String ManagementAddress::Key::stringValue() const {
  return formatAddr(Kel::format("%d", manAddrSubtype().value()) + manAddr().value(), period);
}

}  // namespace Lldp
