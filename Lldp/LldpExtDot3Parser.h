#pragma once
// Receive side of the IEEE 802.3 organizationally specific TLVs (OUI 00-12-0F): MAC/PHY
// Configuration/Status, Power via MDI (802.3af, at and bt forms), Link Aggregation and
// Maximum Frame Size, decoded into a neighbour's RemoteSystem.
//
// Traces go to the handle "LldpExtDot3Parser": level 0 a TLV too short for its fields,
// 6 the decoded values, 8 an unrecognized subtype.
#include "Kel/Ptr.h"

namespace Lldp {
class RemoteSystem;
class MacPhyConfigStatusInfo;
class PowerViaMdiInfo;
class LinkAggregationInfo;
class MaximumFrameSizeInfo;
}

namespace Lldp::Agent::Protocol {

// Results of parseExtDot3Tlv.
inline constexpr int extDot3TlvParsed = 1;        // decoded and stored on the neighbour
inline constexpr int extDot3TlvUnrecognized = 2;  // a subtype other than 1 to 4; nothing stored
inline constexpr int extDot3TlvTooShort = 4;      // fewer bytes than the subtype needs; nothing stored

// Decodes one TLV. `data` points at the first byte after the OUI and the subtype, and
// `length` counts the bytes from there to the end of the TLV (the TLV length minus 4).
// Fields are read only up to `length`; bytes beyond what a subtype needs are ignored. The
// neighbour gets the decoded record and its received flag, or nothing at all when the
// result is not extDot3TlvParsed. A null neighbour or a negative length gives
// extDot3TlvTooShort without reading anything.
int parseExtDot3Tlv(int subtype, int length, const char* data, Kel::Ptr<Lldp::RemoteSystem> const& remoteSystem);

// The decoding alone, for a caller that stores the record itself: the TLV of the record's
// subtype (1 MAC/PHY, 2 Power via MDI, 3 Link Aggregation, 4 Maximum Frame Size), the same
// traces, extDot3TlvParsed or extDot3TlvTooShort; `out` is written only when parsed.
int decodeExtDot3Tlv(int length, const char* data, Lldp::MacPhyConfigStatusInfo& out);
int decodeExtDot3Tlv(int length, const char* data, Lldp::PowerViaMdiInfo& out);
int decodeExtDot3Tlv(int length, const char* data, Lldp::LinkAggregationInfo& out);
int decodeExtDot3Tlv(int length, const char* data, Lldp::MaximumFrameSizeInfo& out);

}  // namespace Lldp::Agent::Protocol
