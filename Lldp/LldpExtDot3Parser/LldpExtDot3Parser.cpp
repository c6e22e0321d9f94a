#include "Lldp/LldpExtDot3Parser.h"

#include <cstddef>
#include <cstdint>

#include "Lldp/Lldp.h"
#include "Tracing/Duolog.h"

namespace Lldp::Agent::Protocol {

namespace {

DUOLOG_HANDLE(parserTrace, "LldpExtDot3Parser");

// The fields of one TLV's information bytes, read big-endian at fixed offsets. Each read()
// first checks that every byte it will read is there, once, and then reads unchecked: a
// TLV too short gives false before anything is stored.
struct ValueParser {
  std::uint64_t size;
  unsigned char const* data;
  bool const detail = parserTrace().enabled(6);  // the decoded values are traced

  unsigned u8(std::size_t at) const noexcept { return data[at]; }
  std::uint16_t u16(std::size_t at) const noexcept { return static_cast<std::uint16_t>((data[at] << 8) | data[at + 1]); }
  std::uint32_t u24(std::size_t at) const noexcept { return std::uint32_t{u16(at)} << 8 | data[at + 2]; }
  std::uint32_t u32(std::size_t at) const noexcept { return std::uint32_t{u16(at)} << 16 | u16(at + 2); }

  // Whether the TLV holds `needed` bytes; traces the one that does not.
  bool has(std::uint64_t needed, const char* tlvName) const {
    if (size >= needed) [[likely]]
      return true;
    DUOLOG(parserTrace(), 0, "Error: %s is too short (length=%zu)", tlvName, static_cast<std::size_t>(size));
    return false;
  }

  // Each reads every field of its TLV into `info` and traces it.
  bool read(MacPhyConfigStatusInfo& info) const;
  bool read(PowerViaMdiInfo& info) const;
  bool read(LinkAggregationInfo& info) const;
  bool read(MaximumFrameSizeInfo& info) const;
};

bool bit(unsigned v, unsigned n) { return ((v >> n) & 1u) != 0; }

bool ValueParser::read(MacPhyConfigStatusInfo& info) const {
  if (!has(5, "MAC/PHY Configuration/Status TLV")) return false;
  unsigned const status = u8(0);
  info.autoNegSupportedIs(bit(status, 0));
  info.autoNegEnabledIs(bit(status, 1));
  info.autoNegAdvertisedCapAsU16Is(u16(1));
  info.operMauTypeIs(u16(3));
  if (detail) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "MAC/PHY Configuration/Status: %s", text);
  }
  return true;
}

bool ValueParser::read(LinkAggregationInfo& info) const {
  if (!has(5, "Link Aggregation TLV")) return false;
  info.statusIs(LinkAggStatusMap(u8(0)));
  // The port id is an unsigned 32-bit number on the wire, held as a signed one.
  info.portIdIs(static_cast<std::int32_t>(u32(1)));
  if (detail) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "Link Aggregation: %s", text);
  }
  return true;
}

bool ValueParser::read(MaximumFrameSizeInfo& info) const {
  if (!has(2, "Maximum Frame Size TLV")) return false;
  info.maxFrameSizeIs(u16(0));
  if (detail) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "Maximum Frame Size: %s", text);
  }
  return true;
}

// The layers are told apart by the length alone: 3 bytes 802.3af, 8 the 802.3at
// extension, 25 the 802.3bt one.
bool ValueParser::read(PowerViaMdiInfo& info) const {
  if (detail) DUOLOG(parserTrace(), 6, "Parsing Power Via MDI @ IEEE 802.3af fields");
  if (!has(3, "Power Via MDI TLV")) return false;
  info.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3af);
  unsigned const support = u8(0);
  info.portClassIs(bit(support, 0) ? pClassPSE : pClassPD);
  info.supportedIs(bit(support, 1));
  info.enabledIs(bit(support, 2));
  info.powerPairControllableIs(bit(support, 3));
  info.powerPairsIs(u8(1));
  info.powerClassIs(u8(2));

  if (size > 7) {
    if (detail) DUOLOG(parserTrace(), 6, "Parsing Power Via MDI @ IEEE 802.3at fields");
    PowerViaMdiInfo::At atInfo;
    unsigned const typeSourcePriority = u8(3);
    atInfo.powerTypeIs(static_cast<Power::PowerType>(typeSourcePriority >> 6));
    atInfo.powerSourceIs(static_cast<Power::PowerSource>((typeSourcePriority >> 4) & 0x3u));
    atInfo.powerPriorityIs(static_cast<Power::PowerPriority>(typeSourcePriority & 0x3u));
    atInfo.pdRequestedPowerValueIs(u16(4));
    atInfo.pseAllocatedPowerValueIs(u16(6));
    info.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3at);
    info.atIs(atInfo);
  }

  if (size > 24) {
    if (detail) DUOLOG(parserTrace(), 6, "Parsing Power Via MDI @ IEEE 802.3bt fields");
    PowerViaMdiInfo::Bt bt;
    bt.pd4PidIs(bit(u8(3), 2));
    bt.pdRequestedPowerValueModeAIs(u16(8));
    bt.pdRequestedPowerValueModeBIs(u16(10));
    bt.pseAllocatedPowerValueAlternativeAIs(u16(12));
    bt.pseAllocatedPowerValueAlternativeBIs(u16(14));
    unsigned const status = u16(16);
    bt.psePoweringStatusIs(static_cast<Power::PsePoweringStatus>(status >> 14));
    bt.pdPoweredStatusIs(static_cast<PowerViaMdiInfo::Bt::PdPoweredStatus>((status >> 12) & 0x3u));
    bt.psePowerPairsExtIs(static_cast<Power::PsePowerPairsExt>((status >> 10) & 0x3u));
    bt.dualSignaturePowerClassExtModeAIs(static_cast<Power::DualSignaturePowerClassExtMode>((status >> 7) & 0x7u));
    bt.dualSignaturePowerClassExtModeBIs(static_cast<Power::DualSignaturePowerClassExtMode>((status >> 4) & 0x7u));
    bt.powerClassExtIs(static_cast<PowerViaMdiInfo::Bt::PowerClassExt>(status & 0xfu));
    unsigned const setup = u8(18);
    bt.pdLoadIs(bit(setup, 0));
    bt.powerTypeExtIs(static_cast<Power::PowerTypeExt>((setup >> 1) & 0x7u));
    bt.pseMaximumAvailablePowerValueIs(u16(19));
    unsigned const autoclass = u8(21);
    bt.pseAutoclassSupportIs(bit(autoclass, 2));
    bt.autoclassCompletedIs(bit(autoclass, 1));
    bt.autoclassRequestIs(bit(autoclass, 0));
    // The top six bits of the power-down field are the request code 0x1D, the other
    // eighteen the time.
    bt.powerDownRequestIs((u8(22) >> 2) == 0x1D);
    bt.powerDownTimeIs(u24(22) & 0x3FFFFu);
    info.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3bt);
    info.btIs(bt);

    if (size > 25 && detail) DUOLOG(parserTrace(), 6, "Unknown Power Via MDI with extra %zu bytes", static_cast<std::size_t>(size - 25));
  }

  if (detail) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "Power Via MDI:%s", text);
  }
  return true;
}

// Decodes into a fresh record, handed to `out` only once every field was read: a layer the
// TLV lacks keeps its defaults, not what `out` held.
template <class Info>
int decode(int length, const char* data, Info& out) {
  if (length < 0) return extDot3TlvTooShort;
  ValueParser const parser{static_cast<std::uint64_t>(static_cast<std::int64_t>(length)),
                           reinterpret_cast<unsigned char const*>(data)};
  Info info;
  if (!parser.read(info)) return extDot3TlvTooShort;
  out = info;
  return extDot3TlvParsed;
}

// Decodes, then stores the record and its flag: nothing is stored from a TLV too short.
template <class Info, auto Set, auto FlagSet>
int store(int length, const char* data, RemoteSystem& remoteSystem) {
  Info info;
  int const result = decode(length, data, info);
  if (result != extDot3TlvParsed) return result;
  (remoteSystem.*Set)(std::move(info));
  (remoteSystem.*FlagSet)(true);
  return result;
}

}  // namespace

int decodeExtDot3Tlv(int length, const char* data, MacPhyConfigStatusInfo& out) { return decode(length, data, out); }
int decodeExtDot3Tlv(int length, const char* data, PowerViaMdiInfo& out) { return decode(length, data, out); }
int decodeExtDot3Tlv(int length, const char* data, LinkAggregationInfo& out) { return decode(length, data, out); }
int decodeExtDot3Tlv(int length, const char* data, MaximumFrameSizeInfo& out) { return decode(length, data, out); }

int parseExtDot3Tlv(int subtype, int length, const char* data, Kel::Ptr<Lldp::RemoteSystem> const& remoteSystem) {
  // Nothing to store into, or a length no TLV has: refused like a TLV too short for its
  // fields, before a byte is read.
  if (!remoteSystem || length < 0) return extDot3TlvTooShort;
  using R = RemoteSystem;
  switch (subtype) {
    case 1:
      return store<MacPhyConfigStatusInfo, &R::macPhyConfigStatusInfoIs, &R::macPhyConfigStatusTlvReceivedIs>(
          length, data, *remoteSystem);
    case 2:
      return store<PowerViaMdiInfo, &R::powerViaMdiInfoIs, &R::powerViaMdiTlvReceivedIs>(length, data, *remoteSystem);
    case 3:
      return store<LinkAggregationInfo, &R::linkAggregationInfoIs, &R::linkAggregationTlvReceivedIs>(length, data,
                                                                                                     *remoteSystem);
    case 4:
      return store<MaximumFrameSizeInfo, &R::maximumFrameSizeInfoIs, &R::maximumFrameSizeTlvReceivedIs>(length, data,
                                                                                                        *remoteSystem);
    default:
      DUOLOG(parserTrace(), 8, "Unrecognized 802.3 Organizationally Specific TLV (subtype=%d)", subtype);
      return extDot3TlvUnrecognized;
  }
}

}  // namespace Lldp::Agent::Protocol
