#pragma once
// Transmit side of the IEEE 802.3 Power via MDI TLV (OUI 00-12-0F, subtype 2): whether a
// port may advertise it, its 802.3at or 802.3bt information bytes from the port's PoE
// state, and the configured fallback for a port that is not powered yet.
//
// The builders write the bytes after the TLV header, the OUI and the subtype; the caller
// adds those (TLV length = the returned count + 4) and provides at least
// maxPowerViaMdiBodyBytes writable bytes. Nothing here throws or allocates unless a trace
// line is on. Traces go to the handle "LldpPoe": level 1 an invalid configured fallback,
// 4 refusals to send, 5 a fallback without a requested power, 6 sent TLVs, 8 the
// fallback's call trace.
//
// A port's LocalPortPoeInfo comes from the local system's tree:
// localSystem->localPortIs(intf)->localPortPoeInfoIs(intf) (Lldp/Lldp.h). Platform::Watts
// is a double.
#include <cstdint>

#include "Kel/Ptr.h"
#include "Platform/Watts.h"

namespace Lldp {
class LocalPortPoeInfo;
class PortConfig;
class PortStatus;
}  // namespace Lldp

namespace PoeUtils {

inline constexpr int powerViaMdiAtBodyBytes = 8;
inline constexpr int powerViaMdiBtBodyBytes = 25;
inline constexpr int maxPowerViaMdiBodyBytes = powerViaMdiBtBodyBytes;

// Watts to the TLVs' tenths of a watt, rounded half away from zero (1.25 W gives 13).
// Callers keep the low 16 bits.
long wattsToDeciWatts(Platform::Watts watts) noexcept;
Platform::Watts deciWattsToWatts(std::uint16_t deciWatts) noexcept;

// The power subsystem reports the port as powered.
bool isPoePortPowered(Lldp::LocalPortPoeInfo const& info) noexcept;

// Whether the port's PoE state allows the TLV now: powered, a PSE power type, a detected
// class, a granted power of at least 0.1 W (after rounding) and LLDP power negotiation
// supported. A refusal writes one trace line naming the reason.
bool canWeSendPowerViaMdiTlv(Lldp::LocalPortPoeInfo const& info);

// Writes the 8-byte 802.3at body, or the 25-byte 802.3bt one when the power subsystem
// negotiates 802.3bt, and returns its length. With echoRemote and a neighbour set on
// `info`, the requested powers are the neighbour's; otherwise the local allocation.
int buildPowerViaMdiTlv(char* out, Lldp::LocalPortPoeInfo const& info, bool echoRemote);

// For a port that is not powered: a body whose requested and allocated powers are the
// port's configured poeAllocatedPowerFallback (tenths of a watt), or with the value
// poeAllocatedPowerFallbackMax, the largest 802.3at power requested by a neighbour in
// portStatus. Returns the body's length, or 0 when no fallback TLV is to be sent (a
// powered port, no fallback configured, an invalid value, no request found).
int maybeBuildFallbackPowerViaMdiTlv(char* out, Lldp::LocalPortPoeInfo const& info, bool echoRemote,
                                     Kel::Ptr<Lldp::PortConfig const> portConfig,
                                     Kel::Ptr<Lldp::PortStatus> portStatus);

}  // namespace PoeUtils

// The pieces of the body, for builders of related TLVs. Powers are in tenths of a watt.
namespace TlvBuildUtils {

// The 802.3at requested power: the neighbour's with echoRemote, else the granted power.
std::uint16_t getRequestedPower(Lldp::LocalPortPoeInfo const& info, bool echoRemote);
// The 802.3bt mode B requested power: the neighbour's with echoRemote, else alternative B's
// allocation.
std::uint16_t getRequestedPowerModeB(Lldp::LocalPortPoeInfo const& info, bool echoRemote);
// MDI power support, PSE power pair and power class: 3 bytes.
int add802_3AfFields(char* out, Lldp::LocalPortPoeInfo const& info);
// The 802.3bt extension, body offsets 8 to 24: 17 bytes.
int add802_3BtFields(char* out, Lldp::LocalPortPoeInfo const& info, bool echoRemote);

}  // namespace TlvBuildUtils
