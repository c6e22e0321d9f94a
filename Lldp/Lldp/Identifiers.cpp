#include "Lldp/Lldp/AddressText.h"

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
  // By hand rather than through printf: every new neighbour's event text has one or two.
  static constexpr char digits[] = "0123456789abcdef";
  auto const* b = reinterpret_cast<unsigned char const*>(bytes.data());
  char text[17];
  std::size_t n = 0;
  for (std::size_t i = 0; i < 6; ++i) {
    if (separator == period ? i % 2 == 0 && i : i) text[n++] = separator == period ? '.' : ':';
    text[n++] = digits[b[i] >> 4];
    text[n++] = digits[b[i] & 0xf];
  }
  return Kel::String(text, n);
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

// How an identifier's octets read, by its subtype.
enum class IdForm { text, mac, network, hex };

template <std::size_t n>
Kel::String identifierText(Kel::String const& id, std::uint32_t subtype, IdForm const (&forms)[n],
                           MacSeparator separator, bool quoted) {
  switch (subtype < n ? forms[subtype] : IdForm::hex) {
    case IdForm::text:
      return quoted ? Kel::String("\"") + id + Kel::String("\"") : id;
    case IdForm::mac:
      return formatMacAddress(id, separator);
    case IdForm::network:
      return formatAddr(id, separator);
    case IdForm::hex:
      break;
  }
  return bytesToHex(id);
}

using enum IdForm;
// Indexed by ChassisIdSubtype: reserved, chassis component, interface alias, port
// component, MAC address, network address, interface name, local.
constexpr IdForm chassisIdForms[] = {hex, text, text, text, mac, network, text, text};
// Indexed by PortIdSubtype: reserved, interface alias, port component, MAC address,
// network address, interface name, agent circuit ID (hex on purpose), local.
constexpr IdForm portIdForms[] = {hex, text, text, mac, network, text, hex, text};

}  // namespace

Kel::String ChassisIdentifier::stringValue(MacSeparator separator, bool quoted) const {
  return identifierText(chassisId().value(), chassisIdSubtype(), chassisIdForms, separator, quoted);
}

Kel::String PortIdentifier::stringValue(MacSeparator separator, bool quoted) const {
  return identifierText(portId().value(), portIdSubtype(), portIdForms, separator, quoted);
}

Kel::String ManagementAddress::Key::stringValue() const {
  return formatAddr(Kel::format("%d", manAddrSubtype().value()) + manAddr().value(), period);
}

std::uint32_t ManagementAddress::manAddrLen() const {
  return static_cast<std::uint32_t>(key().manAddr().value().size()) + 1;
}

}  // namespace Lldp
