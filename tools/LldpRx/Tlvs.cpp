#include "tools/LldpRx/Tlvs.h"

namespace LldpRx::Detail {

namespace {

// An object identifier in its BER encoding (X.690 8.19): the first octet holds the first
// two arcs, every arc is base 128 with the high bit marking a continuation.
bool decodeOid(unsigned char const* p, std::size_t n, std::vector<std::uint32_t>& arcs) {
  arcs.clear();
  std::uint64_t v = 0;
  bool open = false;
  for (std::size_t i = 0; i < n; ++i) {
    if (!open && p[i] == 0x80) return false;  // an arc with a leading zero digit
    v = (v << 7) | (p[i] & 0x7f);
    if (v > 0xffffffffu + 80ull) return false;
    open = p[i] & 0x80;
    if (open) continue;
    if (arcs.empty()) {
      std::uint32_t const first = v < 40 ? 0 : v < 80 ? 1 : 2;
      arcs.push_back(first);
      v -= 40ull * first;
    }
    if (v > 0xffffffffu) return false;
    arcs.push_back(static_cast<std::uint32_t>(v));
    v = 0;
  }
  return !open && arcs.size() <= Platform::ObjectIdentifier::maxSubIds;
}

}  // namespace

bool decodeText255(Tlv const& t, std::string_view& out) {
  out = text(t.value(), t.length);
  return Lldp::BoundedString255::valueValid(out);
}

bool decodeSystemCapabilities(Tlv const& t, Lldp::SystemCapabilitiesTlv& out) {
  // supported, enabled
  if (t.length != 4) return false;
  out = Lldp::SystemCapabilitiesTlv::create(Lldp::SystemCapabilitiesMap(be16(t.value())),
                                            Lldp::SystemCapabilitiesMap(be16(t.value() + 2)));
  return true;
}

bool decodeVlanIdOrNone(Tlv const& t, Platform::VlanIdOrNone& out) {
  if (t.orgLength() < 2 || be16(t.orgInfo()) > Platform::VlanIdOrNone::max) return false;
  out = Platform::VlanIdOrNone(be16(t.orgInfo()));
  return true;
}

bool decodeVidUsageDigest(Tlv const& t, std::uint32_t& out) {
  if (t.orgLength() < 4) return false;
  out = be32(t.orgInfo());
  return true;
}

bool decodeLinkAggregationDot1(Tlv const& t, Lldp::LinkAggregationInfo& out) {
  // The 802.3 form's layout: status, then the port id.
  if (t.orgLength() < 5) return false;
  out.statusIs(Lldp::LinkAggStatusMap(t.orgInfo()[0]));
  out.portIdIs(static_cast<std::int32_t>(be32(t.orgInfo() + 1)));
  return true;
}

bool decodeMedCapabilities(Tlv const& t, Lldp::MedCapabilitiesInfo& out) {
  // capabilities, device type
  using Info = Lldp::MedCapabilitiesInfo;
  if (t.orgLength() < 3 || !Info::Capability::valueValid(be16(t.orgInfo()))) return false;
  out.capabilityIs(Info::Capability(be16(t.orgInfo())));
  std::uint8_t const type = t.orgInfo()[2];
  out.deviceTypeIs(type < Info::MedDeviceType_Reserved ? static_cast<Info::MedDeviceType>(type) : Info::MedDeviceType_Reserved);
  return true;
}

bool decodeInventory(Tlv const& t, std::string_view& out) {
  out = text(t.orgInfo(), t.orgLength());
  return Lldp::BoundedString32::valueValid(out);
}

bool decodeManagementAddress(Tlv const& t, Lldp::ManagementAddress& out) {
  // address string length, subtype, address, interface subtype, interface number, OID
  // string length, OID
  unsigned char const* v = t.value();
  std::size_t const n = t.length;
  if (n < 9) return false;
  std::size_t const addrLen = v[0];  // the subtype and the address
  if (addrLen < 2 || addrLen > 32 || n < 1 + addrLen + 6) return false;
  std::uint8_t const ifSubtype = v[1 + addrLen];
  if (ifSubtype < Lldp::unknown || ifSubtype > Lldp::systemPortNumber) return false;
  std::size_t const oidLen = v[1 + addrLen + 5];
  if (oidLen > 128 || n < 1 + addrLen + 6 + oidLen) return false;
  static thread_local std::vector<std::uint32_t> arcs;
  if (!decodeOid(v + 1 + addrLen + 6, oidLen, arcs)) return false;
  // Every field is set, the address in place (31 bytes at most).
  auto& key = fieldOf<Lldp::ManagementAddress::Key>(out);
  key.manAddrSubtypeIs(Platform::AddressFamilyNumbers(static_cast<std::int32_t>(v[1])));
  fieldOf<Kel::String>(fieldOf<Lldp::ManAddress>(key)) = Kel::String(text(v + 2, addrLen - 1));
  out.ifSubtypeIs(static_cast<Lldp::ManAddrIfSubtype>(ifSubtype));
  out.ifIdIs(be32(v + 1 + addrLen + 1));
  out.oidIs(arcs.empty() ? Platform::ObjectIdentifier() : Platform::ObjectIdentifier(arcs));
  return true;
}

bool decodePortAndProtocolVlan(Tlv const& t, Lldp::PortAndProtocolVlan& out) {
  // flags (bit 1 supported, bit 2 enabled), PPVID
  if (t.orgLength() < 3) return false;
  std::uint16_t const id = be16(t.orgInfo() + 1);
  if (id > Platform::VlanIdOrNone::max) return false;
  out.portAndProtocolVlanIdIs(Platform::VlanIdOrNone(id));
  out.supportedIs(t.orgInfo()[0] & 0x02);
  out.enabledIs(t.orgInfo()[0] & 0x04);
  return true;
}

bool decodeVlanName(Tlv const& t, std::uint16_t& vlanId, std::string_view& name) {
  // VID, name length, name
  if (t.orgLength() < 3) return false;
  vlanId = be16(t.orgInfo());
  std::size_t const nameLen = t.orgInfo()[2];
  if (vlanId < Platform::VlanId::min || vlanId > Platform::VlanId::max) return false;
  if (t.orgLength() < 3 + nameLen || !Lldp::BoundedString32::valueValid(text(t.orgInfo() + 3, nameLen))) return false;
  name = text(t.orgInfo() + 3, nameLen);
  return true;
}

bool decodeProtocolIdentity(Tlv const& t, std::string_view& protocol) {
  // length, identity
  if (t.orgLength() < 1) return false;
  std::size_t const len = t.orgInfo()[0];
  if (t.orgLength() < 1 + len) return false;
  protocol = text(t.orgInfo() + 1, len);
  return Lldp::BoundedString255::valueValid(protocol);
}

bool decodeNetworkPolicy(Tlv const& t, Lldp::NetworkPolicyTlv& out) {
  // application type; then 24 bits: unknown policy, tagged, reserved, VLAN id (12),
  // layer 2 priority (3), DSCP (6)
  if (t.orgLength() < 4) return false;
  unsigned char const* v = t.orgInfo();
  std::uint32_t const bits = (std::uint32_t{v[1]} << 16) | (std::uint32_t{v[2]} << 8) | v[3];
  out = Lldp::NetworkPolicyTlv();
  out.appValueIs(v[0]);
  out.unknownPolicyIs(bits >> 23 & 1);
  out.taggedIs(bits >> 22 & 1);
  out.vlanIdIs(static_cast<std::uint16_t>(bits >> 9 & 0xfff));
  out.cosValueIs(static_cast<std::uint8_t>(bits >> 6 & 0x7));
  out.dscpValueIs(static_cast<std::uint8_t>(bits & 0x3f));
  return true;
}

namespace {

// A two's complement field of `bits` bits.
std::int64_t signExtend(std::uint64_t v, unsigned bits) noexcept {
  std::uint64_t const sign = std::uint64_t{1} << (bits - 1);
  return static_cast<std::int64_t>((v ^ sign) - sign);
}

}  // namespace

int decodeLocation(Tlv const& t, Lldp::LocationId& into) {
  if (t.orgLength() < 1) return 0;
  unsigned char const* v = t.orgInfo() + 1;
  std::size_t const n = t.orgLength() - 1;
  switch (t.orgInfo()[0]) {
    case Lldp::CoordinateBased: {
      // The 16-octet LCI of RFC 3825: latitude and longitude resolutions (6 bits) and
      // values (34 bits), altitude type (4), resolution (6) and value (30), datum.
      if (n < 16) return 0;
      std::uint64_t const lat = (std::uint64_t{v[0]} << 32) | be32(v + 1);
      std::uint64_t const lon = (std::uint64_t{v[5]} << 32) | be32(v + 6);
      std::uint64_t const alt = (std::uint64_t{v[10]} << 32) | be32(v + 11);
      Lldp::LocationId::CoordinateBasedLCI c;
      c.laResIs(static_cast<std::uint8_t>(v[0] >> 2));
      c.latitudeIs(signExtend(lat & 0x3ffffffffull, 34));
      c.loResIs(static_cast<std::uint8_t>(v[5] >> 2));
      c.longitudeIs(signExtend(lon & 0x3ffffffffull, 34));
      c.aTIs(static_cast<std::uint8_t>(v[10] >> 4));
      c.altResIs(static_cast<std::uint8_t>(alt >> 30 & 0x3f));
      c.altitudeIs(static_cast<std::int32_t>(signExtend(alt & 0x3fffffff, 30)));
      c.datumIs(v[15]);
      c.receivedIs(true);
      into.coordinateBasedLCIIs(c);
      return Lldp::CoordinateBased;
    }
    case Lldp::CivicAddress: {
      // LCI length, what, country code (2), then CA type, length, value, ... (RFC 4776);
      // the LCI length covers what follows it and may end before the TLV does.
      if (n < 1) return 0;
      std::size_t const lciLen = v[0];
      if (lciLen < 3 || n < 1 + lciLen) return 0;
      Lldp::LocationId::CivicAddressLCI c;
      c.lciLengthIs(static_cast<std::uint8_t>(lciLen));
      c.whatIs(v[1]);
      c.countryCodeIs(Kel::String(text(v + 2, 2)));
      for (std::size_t pos = 4; pos < 1 + lciLen;) {
        if (pos + 2 > 1 + lciLen || pos + 2 + v[pos + 1] > 1 + lciLen) return 0;
        std::uint8_t const caType = v[pos];
        // CA type 0 (the language) keys nothing in the model: its collections cannot
        // carry the default key. The first element of a type wins, as for TLVs.
        if (caType != 0 && !c.caElementsHas(caType)) {
          Lldp::LocationId::CivicAddressLCI::CaElement e;
          e.caTypeIs(caType);
          e.caValueIs(Kel::String(text(v + pos + 2, v[pos + 1])));
          c.caElementsIs(caType, std::move(e));
        }
        pos += 2u + v[pos + 1];
      }
      c.receivedIs(true);
      into.civicAddressLCIIs(std::move(c));
      return Lldp::CivicAddress;
    }
    case Lldp::EcsElin: {
      // 10 to 25 digits
      if (n < 10 || n > 25) return 0;
      Lldp::LocationId::EcsElin e;
      e.elinIs(Kel::String(text(v, n)));
      e.receivedIs(true);
      into.ecsElinIs(std::move(e));
      return Lldp::EcsElin;
    }
    default: return 0;
  }
}

}  // namespace LldpRx::Detail
