#include "Lldp/LldpExtDot3Parser.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include "Lldp/Lldp.h"
#include "Tracing/Duolog.h"

namespace Lldp::Agent::Protocol {

namespace {

DUOLOG_HANDLE(parserTrace, "LldpExtDot3Parser");

// Kept out of line: building the message allocates, and only malformed TLVs get here. The
// wording is std::string_view::at's, the check this cursor stands in for.
[[noreturn, gnu::cold, gnu::noinline]] void throwPastEnd(std::uint64_t position, std::uint64_t size) {
  char text[128];
  std::snprintf(text, sizeof text, "basic_string_view::at: __pos (which is %zu) >= this->size() (which is %zu)",
                static_cast<std::size_t>(position), static_cast<std::size_t>(size));
  throw std::out_of_range(text);
}

// A bounds-checked big-endian read cursor over one TLV's information bytes. A read past
// `size` throws std::out_of_range, which parse() turns into the too-short result, so the
// decoding below can read field after field without testing lengths itself.
struct ValueParser {
  std::uint64_t size;
  unsigned char const* data;
  std::uint64_t position;
  const char* tlvName;

  // One byte (T unsigned char, N 1) or one big-endian 16-bit value (unsigned short, 2);
  // with advance false the bytes are only peeked.
  template <typename T, int N>
  T get(bool advance);

  unsigned char byteAt(std::uint64_t at) const {
    if (at >= size) [[unlikely]]
      throwPastEnd(at, size);
    return data[at];
  }

  // Wider fields, byte by byte; the cursor moves only when every byte was there.
  std::uint32_t getBigEndian(int bytes) {
    std::uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) v = (v << 8) | byteAt(position + static_cast<std::uint64_t>(i));
    position += static_cast<std::uint64_t>(bytes);
    return v;
  }

  // A cursor over the same bytes for the next layer of a TLV.
  ValueParser at(std::uint64_t from) const { return ValueParser{size, data, from, tlvName}; }

  // Each reads every field of its TLV into `info` and traces it; a read past the end
  // throws before the caller stores anything.
  void read(MacPhyConfigStatusInfo& info);
  void read(PowerViaMdiInfo& info);
  void read(LinkAggregationInfo& info);
  void read(MaximumFrameSizeInfo& info);
};

// Inlined: the bounds checks of neighbouring fields then fold together.
template <>
[[gnu::always_inline]] inline unsigned char ValueParser::get<unsigned char, 1>(bool advance) {
  unsigned char const v = byteAt(position);
  if (advance) position += 1;
  return v;
}

template <>
[[gnu::always_inline]] inline unsigned short ValueParser::get<unsigned short, 2>(bool advance) {
  unsigned const high = byteAt(position);
  unsigned const low = byteAt(position + 1);
  if (advance) position += 2;
  return static_cast<unsigned short>((high << 8) | low);
}

bool bit(unsigned v, unsigned n) { return ((v >> n) & 1u) != 0; }

void ValueParser::read(MacPhyConfigStatusInfo& info) {
  tlvName = "MAC/PHY Configuration/Status TLV";
  unsigned const status = get<unsigned char, 1>(true);
  info.autoNegSupportedIs(bit(status, 0));
  info.autoNegEnabledIs(bit(status, 1));
  info.autoNegAdvertisedCapAsU16Is(get<unsigned short, 2>(true));
  info.operMauTypeIs(get<unsigned short, 2>(true));
  if (parserTrace().enabled(6)) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "MAC/PHY Configuration/Status: %s", text);
  }
}

void ValueParser::read(LinkAggregationInfo& info) {
  tlvName = "Link Aggregation TLV";
  info.statusIs(LinkAggStatusMap(get<unsigned char, 1>(true)));
  // The port id is an unsigned 32-bit number on the wire, held as a signed one.
  info.portIdIs(static_cast<std::int32_t>(getBigEndian(4)));
  if (parserTrace().enabled(6)) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "Link Aggregation: %s", text);
  }
}

void ValueParser::read(MaximumFrameSizeInfo& info) {
  tlvName = "Maximum Frame Size TLV";
  info.maxFrameSizeIs(get<unsigned short, 2>(true));
  if (parserTrace().enabled(6)) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "Maximum Frame Size: %s", text);
  }
}

// The layers are told apart by the length alone: 3 bytes 802.3af, 8 the 802.3at
// extension, 25 the 802.3bt one.
void ValueParser::read(PowerViaMdiInfo& info) {
  tlvName = "Power Via MDI TLV";

  DUOLOG(parserTrace(), 6, "Parsing Power Via MDI @ IEEE 802.3af fields");
  info.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3af);
  unsigned const support = get<unsigned char, 1>(true);
  info.portClassIs(bit(support, 0) ? pClassPSE : pClassPD);
  info.supportedIs(bit(support, 1));
  info.enabledIs(bit(support, 2));
  info.powerPairControllableIs(bit(support, 3));
  info.powerPairsIs(get<unsigned char, 1>(true));
  info.powerClassIs(get<unsigned char, 1>(true));

  if (size > 7) {
    DUOLOG(parserTrace(), 6, "Parsing Power Via MDI @ IEEE 802.3at fields");
    ValueParser cursor = at(3);
    PowerViaMdiInfo::At atInfo;
    unsigned const typeSourcePriority = cursor.get<unsigned char, 1>(true);
    atInfo.powerTypeIs(static_cast<Power::PowerType>(typeSourcePriority >> 6));
    atInfo.powerSourceIs(static_cast<Power::PowerSource>((typeSourcePriority >> 4) & 0x3u));
    atInfo.powerPriorityIs(static_cast<Power::PowerPriority>(typeSourcePriority & 0x3u));
    atInfo.pdRequestedPowerValueIs(cursor.get<unsigned short, 2>(true));
    atInfo.pseAllocatedPowerValueIs(cursor.get<unsigned short, 2>(true));
    info.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3at);
    info.atIs(atInfo);
  }

  if (size > 24) {
    DUOLOG(parserTrace(), 6, "Parsing Power Via MDI @ IEEE 802.3bt fields");
    ValueParser cursor = at(3);
    PowerViaMdiInfo::Bt bt;
    bt.pd4PidIs(bit(cursor.get<unsigned char, 1>(true), 2));
    cursor.position = 8;
    bt.pdRequestedPowerValueModeAIs(cursor.get<unsigned short, 2>(true));
    bt.pdRequestedPowerValueModeBIs(cursor.get<unsigned short, 2>(true));
    bt.pseAllocatedPowerValueAlternativeAIs(cursor.get<unsigned short, 2>(true));
    bt.pseAllocatedPowerValueAlternativeBIs(cursor.get<unsigned short, 2>(true));
    unsigned const status = cursor.get<unsigned short, 2>(true);
    bt.psePoweringStatusIs(static_cast<Power::PsePoweringStatus>(status >> 14));
    bt.pdPoweredStatusIs(static_cast<PowerViaMdiInfo::Bt::PdPoweredStatus>((status >> 12) & 0x3u));
    bt.psePowerPairsExtIs(static_cast<Power::PsePowerPairsExt>((status >> 10) & 0x3u));
    bt.dualSignaturePowerClassExtModeAIs(static_cast<Power::DualSignaturePowerClassExtMode>((status >> 7) & 0x7u));
    bt.dualSignaturePowerClassExtModeBIs(static_cast<Power::DualSignaturePowerClassExtMode>((status >> 4) & 0x7u));
    bt.powerClassExtIs(static_cast<PowerViaMdiInfo::Bt::PowerClassExt>(status & 0xfu));
    unsigned const setup = cursor.get<unsigned char, 1>(true);
    bt.pdLoadIs(bit(setup, 0));
    bt.powerTypeExtIs(static_cast<Power::PowerTypeExt>((setup >> 1) & 0x7u));
    bt.pseMaximumAvailablePowerValueIs(cursor.get<unsigned short, 2>(true));
    unsigned const autoclass = cursor.get<unsigned char, 1>(true);
    bt.pseAutoclassSupportIs(bit(autoclass, 2));
    bt.autoclassCompletedIs(bit(autoclass, 1));
    bt.autoclassRequestIs(bit(autoclass, 0));
    // The top six bits of the power-down field are the request code 0x1D, the other
    // eighteen the time.
    bt.powerDownRequestIs((cursor.get<unsigned char, 1>(false) >> 2) == 0x1D);
    bt.powerDownTimeIs(cursor.getBigEndian(3) & 0x3FFFFu);
    info.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3bt);
    info.btIs(bt);

    if (size > 25) DUOLOG(parserTrace(), 6, "Unknown Power Via MDI with extra %zu bytes", size - 25);
  }

  if (parserTrace().enabled(6)) [[unlikely]] {
    Kel::String const text = valueToStrep(info);
    DUOLOG(parserTrace(), 6, "Power Via MDI:%s", text);
  }
}

// Decodes into a local record, handed to `out` only once every field was read.
template <class Info>
int decode(int length, const char* data, Info& out) {
  if (length < 0) return extDot3TlvTooShort;
  ValueParser parser{static_cast<std::uint64_t>(static_cast<std::int64_t>(length)),
                     reinterpret_cast<unsigned char const*>(data), 0, nullptr};
  Info info;
  try {
    parser.read(info);
  } catch (std::out_of_range const&) {
    DUOLOG(parserTrace(), 0, "Error: %s is too short (length=%zu)", parser.tlvName, parser.size);
    return extDot3TlvTooShort;
  }
  out = std::move(info);
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
