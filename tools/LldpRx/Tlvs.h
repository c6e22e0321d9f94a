#pragma once
// Inside the receive path: the TLVs of one LLDPDU, what each one is, and their decoders:
// bytes in, values out, nothing stored. Decoders never throw: a TLV that breaks its layout
// or a field's limit makes them return false.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Lldp/Lldp.h"
#include "Lldp/LldpExtDot3Parser.h"

namespace LldpRx::Detail {

inline constexpr std::uint32_t ouiDot1 = 0x0080c2;  // IEEE 802.1
inline constexpr std::uint32_t ouiDot3 = 0x00120f;  // IEEE 802.3
inline constexpr std::uint32_t ouiMed = 0x0012bb;   // ANSI/TIA-1057 (LLDP-MED)

// What a TLV feeds. Single kinds set one attribute (or a flag and its record) and only
// their first TLV in an LLDPDU counts; collection kinds gather every TLV of the kind.
enum Kind : std::uint8_t {
  // single
  kPortDesc, kSysName, kSysDesc, kSysCap, kPortVlanId, kVidUsageDigest, kManagementVid, kLinkAggregation,
  kMacPhy, kPowerViaMdi, kMaxFrameSize, kMedCapabilities, kHardwareRev, kFirmwareRev, kSoftwareRev,
  kSerialNumber, kManufacturer, kModelName, kAssetId,
  singleKinds,
  // collections
  kManagementAddress = singleKinds, kUnknownTlv, kUnknownOrgDefTlv, kPortAndProtocolVlan, kVlanName,
  kProtocolIdentity, kNetworkPolicy, kLocation,
  kindCount,
  // an organizationally specific TLV too short for its OUI and subtype
  kMalformedOrg = kindCount,
  // the three mandatory TLVs
  kMandatory,
};
inline constexpr bool isSingle(Kind k) noexcept { return k < singleKinds; }
inline constexpr bool isCollection(Kind k) noexcept { return k >= singleKinds && k < kindCount; }

// How a TLV counted.
enum Outcome : std::uint8_t { accepted, unrecognized, discarded };

// One TLV of an LLDPDU in 8 bytes: where it sits, what it is and how it counted. A
// neighbour keeps these for the TLVs of its last LLDPDU.
struct Slot {
  std::uint16_t offset;  // of the TLV header, from the start of the LLDPDU
  std::uint16_t length;  // of the information string
  std::uint8_t type;
  Kind kind;
  Outcome outcome;
  bool repeat;  // a single kind an earlier TLV of the LLDPDU carried already
};
static_assert(sizeof(Slot) == 8);

// A TLV of the LLDPDU at hand: its slot, and where its bytes are.
struct Tlv : Slot {
  unsigned char const* at;  // the TLV header
  unsigned char const* value() const noexcept { return at + 2; }
  std::string_view bytes() const noexcept { return {reinterpret_cast<const char*>(at), std::size_t{length} + 2u}; }
  // Organizationally specific TLVs (length at least 4): OUI, subtype, then the rest.
  std::uint32_t oui() const noexcept { return (std::uint32_t{at[2]} << 16) | (std::uint32_t{at[3]} << 8) | at[4]; }
  std::uint8_t subtype() const noexcept { return at[5]; }
  unsigned char const* orgInfo() const noexcept { return at + 6; }
  std::size_t orgLength() const noexcept { return std::size_t{length} - 4u; }
  // Equal for two TLVs that feed the same attributes in the same way.
  std::uint64_t shape() const noexcept {
    std::uint64_t s = (std::uint64_t{type} << 32) | kind;
    if (type == 127 && length >= 4) s |= (std::uint64_t{oui()} << 8 | subtype()) << 8;
    return s;
  }
};

// The TLVs of one LLDPDU. Keeps its storage from LLDPDU to LLDPDU, and a resize leaves
// the new elements unwritten: whoever sizes it writes each element once.
class TlvList {
 public:
  std::size_t size() const noexcept { return size_; }
  Tlv* data() noexcept { return p_.get(); }
  Tlv const* data() const noexcept { return p_.get(); }
  Tlv& operator[](std::size_t i) noexcept { return p_[i]; }
  Tlv const& operator[](std::size_t i) const noexcept { return p_[i]; }
  void clear() noexcept { size_ = 0; }
  void resize(std::size_t n) {
    reserve(n);
    size_ = n;
  }
  void reserve(std::size_t n) {
    if (n <= cap_) return;
    auto grown = std::make_unique_for_overwrite<Tlv[]>(n);
    std::copy(p_.get(), p_.get() + size_, grown.get());
    p_ = std::move(grown);
    cap_ = n;
  }

 private:
  std::unique_ptr<Tlv[]> p_;
  std::size_t size_ = 0, cap_ = 0;
};

// Walks an LLDPDU of at most 65535 bytes: the three mandatory TLVs in order and with valid
// lengths, then the others, up to the End TLV or the end of the data. On success `tlvs`
// holds every TLV but End, each with its kind and repeat flag, counted as accepted.
// Otherwise returns why the LLDPDU is invalid.
const char* splitLldpdu(std::string_view pdu, TlvList& tlvs);

// The field of type F of a record, written in place through the record's field visitor:
// the setters take their values by value, and each hop would move the strings again.
// The caller has checked the value against the field's limit.
template <class F, class Rec>
F& fieldOf(Rec& r) noexcept {
  F* f = nullptr;
  r.kelForEachField([&f](char const*, auto& v, auto const&) {
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(v)>, F>) f = &v;
  });
  return *f;
}

inline std::uint16_t be16(unsigned char const* p) noexcept { return static_cast<std::uint16_t>((p[0] << 8) | p[1]); }
inline std::uint32_t be32(unsigned char const* p) noexcept {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}
inline std::string_view text(unsigned char const* p, std::size_t n) noexcept {
  return {reinterpret_cast<const char*>(p), n};
}

// Single TLVs.
// Port and system description, system name: the whole information string.
bool decodeText255(Tlv const& t, std::string_view& out);
bool decodeSystemCapabilities(Tlv const& t, Lldp::SystemCapabilitiesTlv& out);
// The 802.1 port VLAN id and management VID.
bool decodeVlanIdOrNone(Tlv const& t, Platform::VlanIdOrNone& out);
bool decodeVidUsageDigest(Tlv const& t, std::uint32_t& out);
// The 802.1 form; the 802.3 form goes through the 802.3 parser (decodeDot3).
bool decodeLinkAggregationDot1(Tlv const& t, Lldp::LinkAggregationInfo& out);
bool decodeMedCapabilities(Tlv const& t, Lldp::MedCapabilitiesInfo& out);
// The LLDP-MED inventory strings.
bool decodeInventory(Tlv const& t, std::string_view& out);
// An 802.3 TLV through the 802.3 parser's decoder, once the TLV is long enough for it to
// decode without meeting the end (`Needed` bytes after the subtype).
template <std::size_t Needed, class V>
bool decodeDot3(Tlv const& t, V& out) {
  return t.orgLength() >= Needed &&
         Lldp::Agent::Protocol::decodeExtDot3Tlv(static_cast<int>(t.orgLength()), reinterpret_cast<const char*>(t.orgInfo()),
                                                 out) == Lldp::Agent::Protocol::extDot3TlvParsed;
}

// Collection TLVs.
bool decodeManagementAddress(Tlv const& t, Lldp::ManagementAddress& out);
bool decodePortAndProtocolVlan(Tlv const& t, Lldp::PortAndProtocolVlan& out);
// VLAN id and name.
bool decodeVlanName(Tlv const& t, std::uint16_t& vlanId, std::string_view& name);
bool decodeProtocolIdentity(Tlv const& t, std::string_view& protocol);
bool decodeNetworkPolicy(Tlv const& t, Lldp::NetworkPolicyTlv& out);
// Fills the record of the TLV's location data format (with its received flag) and
// returns the format (1 to 3), or 0 for an invalid TLV.
int decodeLocation(Tlv const& t, Lldp::LocationId& into);

}  // namespace LldpRx::Detail
