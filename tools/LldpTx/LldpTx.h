#pragma once
// The transmit path of an LLDP agent: a port's complete LLDPDU, as an Ethernet frame to
// the nearest-bridge address, built from the model (LocalSystem, LocalPort, Config,
// PortConfig, ExternalTlvConfig) and the library's Power via MDI decision, plus the
// transmit counters of PortStatus. The timing (when to send) is TxMachine.h's.
//
// Frame size: an LLDPDU never makes a frame longer than Config::maxTxFrameSize (counted
// with the 4-byte FCS the NIC appends), nor than PortSources::linkLimit. The mandatory TLVs always go; the optional ones
// are placed in this order and any that no longer fits is left out (a later, smaller one
// may still fit), so the first to go are the last of the list:
//   1 Port Description, System Name, System Description, System Capabilities
//   2 Management Addresses (priority order, at most Config::maxTxMgmtAddrs, then the
//     IPv6 one held apart)
//   3 IEEE 802.1 Port VLAN ID
//   4 IEEE 802.3 MAC/PHY, Power via MDI, Link Aggregation, Maximum Frame Size
//   5 LLDP-MED Capabilities and Network Policies (only once a neighbour on the port
//     sent LLDP-MED, as a network connectivity device does)
//   6 the port's own extra organizationally specific TLVs, then the external ones
// A frame that left anything out counts once in PortStatus::txFramesLengthExceeded.
//
// Building writes into a caller's fixed buffer and allocates nothing (the model's
// collections are walked in place).
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Lldp/Lldp.h"

namespace LldpTx {

inline constexpr std::uint16_t lldpEtherType = 0x88cc;
// 01:80:c2:00:00:0e, the nearest-bridge group address.
inline constexpr std::array<std::uint8_t, 6> nearestBridge{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};
inline constexpr std::size_t fcsBytes = 4;
// Room for any frame the configuration can ask for (a 1500-byte LLDPDU and headers).
inline constexpr std::size_t frameCapacity = 1536;

// Which optional TLV groups a frame had to leave out (bits), for logs and tests.
enum Dropped : std::uint32_t {
  droppedBasic = 1u << 0,
  droppedMgmtAddr = 1u << 1,
  droppedPortVlan = 1u << 2,
  droppedDot3 = 1u << 3,
  droppedMed = 1u << 4,
  droppedOrg = 1u << 5,
};

// Which Power via MDI TLV went out.
enum class PoeTlv : std::uint8_t { none, decided, fallback };

// What a port's LLDPDU is made of. The model has no local MAC/PHY attribute, so the
// agent passes the link's settings here (null: no MAC/PHY TLV).
struct PortSources {
  Lldp::LocalSystem const* system = nullptr;
  Lldp::LocalPort const* port = nullptr;
  Lldp::Config const* config = nullptr;
  Lldp::PortConfig const* portConfig = nullptr;
  Lldp::PortStatus::Ptr status;                        // the fallback's neighbours; may be null
  Lldp::ExternalTlvPortConfig const* external = nullptr;
  Lldp::MacPhyConfigStatusInfo const* macPhy = nullptr;
  std::array<std::uint8_t, 6> sourceMac{};
  // A further bound on the whole frame (header included, no FCS), 0 for none. The agent
  // gives the link's MTU: common receivers (lldpd among them) read no more than the MTU
  // per frame, header included, and drop a longer LLDPDU as cut short.
  std::size_t linkLimit = 0;
  bool echoPdRequest = true;                           // echo the linked neighbour's request
};

struct Frame {
  std::array<std::uint8_t, frameCapacity> bytes;
  std::size_t size = 0;
  std::uint32_t dropped = 0;                           // Dropped bits
  PoeTlv poe = PoeTlv::none;
  std::string_view view() const noexcept { return {reinterpret_cast<char const*>(bytes.data()), size}; }
};

// The port's normal LLDPDU.
void buildLldpdu(PortSources const& src, Frame& out);
// Its shutdown LLDPDU: chassis, port, a TTL of 0, end.
void buildShutdownLldpdu(PortSources const& src, Frame& out);
// The TTL the port advertises: the hold time plus one second (IEEE 802.1AB adds one so
// that a neighbour never ages us out between two frames), at most 65535.
std::uint16_t txTtl(Lldp::Config const& config) noexcept;

// Counts a frame that left: txFramesTotal, txFramesLengthExceeded when it dropped
// anything, lastTxTime.
void frameSent(Lldp::PortStatus& status, Frame const& frame, double now);

}  // namespace LldpTx
