#pragma once
// What lldp-agent and its clients agree on, beyond the attribute log itself.
//
// Two Unix stream sockets in one directory:
//   state.sock   the agent streams its trees (Status, Config, LocalSystem,
//                RemTablesStatus, CliConfig, CounterCheckpoint): a reset record, each
//                tree whole, a sync record (a transaction end of attribute 0 on the
//                first root, which readers that do not look for it ignore), then every
//                change. A reader that lags too far gets the same again (reset, whole
//                trees, sync) once it reads on: its trees are rebuilt, not patched. A
//                client writes nothing here.
//   config.sock  one request per connection: the client streams CliConfig,
//                RemTablesCliConfig and/or CounterCheckpoint roots, shuts its side
//                down, and reads one line: "ok" or "error: WHY".
// Header-only, so that the client needs none of the agent's libraries.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Lldp/Lldp.h"

namespace LldpService {

inline constexpr const char* defaultSocketDir = "/run/lldp-agent";
inline constexpr const char* stateSocketName = "state.sock";
inline constexpr const char* configSocketName = "config.sock";
// A request larger than this is refused unread.
inline constexpr std::size_t maxRequest = std::size_t{1} << 20;

inline std::uint32_t readU32(const char* p) noexcept {
  auto const* u = reinterpret_cast<unsigned char const*>(p);
  return std::uint32_t{u[0]} << 24 | std::uint32_t{u[1]} << 16 | std::uint32_t{u[2]} << 8 | u[3];
}

inline void putU32(std::string& s, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) s.push_back(static_cast<char>((v >> shift) & 0xff));
}

// The sync record for the root streamed under `entityId`: length, entity, attribute 2
// (transaction), of attribute 0, end (0), token 2.
inline std::string syncRecord(std::uint32_t entityId) {
  std::string r;
  putU32(r, 14);
  putU32(r, entityId);
  putU32(r, 2);
  putU32(r, 0);
  r.push_back('\0');
  r.push_back('\2');
  return r;
}

// Whether the record at `rec` (its length field first, `size` bytes in all) is one.
inline bool isSyncRecord(const char* rec, std::size_t size) noexcept {
  return size == 18 && readU32(rec) == 14 && readU32(rec + 8) == 2 && readU32(rec + 12) == 0 && rec[16] == 0 &&
         rec[17] == 2;
}

// Copies every value and port of one CliConfig into another (valid values only).
inline void copyCliConfig(Lldp::CliConfig const& f, Lldp::CliConfig& t) {
  t.messageTxIntervalIs(f.messageTxInterval());
  t.messageTxHoldTimeIs(f.messageTxHoldTime());
  t.reinitDelayIs(f.reinitDelay());
  t.portDescTlvEnabledIs(f.portDescTlvEnabled());
  t.sysNameTlvEnabledIs(f.sysNameTlvEnabled());
  t.sysDescTlvEnabledIs(f.sysDescTlvEnabled());
  t.sysCapTlvEnabledIs(f.sysCapTlvEnabled());
  t.mgmtAddrTlvEnabledIs(f.mgmtAddrTlvEnabled());
  t.portVlanIdTlvEnabledIs(f.portVlanIdTlvEnabled());
  t.linkAggregationTlvEnabledIs(f.linkAggregationTlvEnabled());
  t.maxFrameSizeTlvEnabledIs(f.maxFrameSizeTlvEnabled());
  t.powerViaMdiTlvEnabledIs(f.powerViaMdiTlvEnabled());
  t.medNetworkPolicyTlvEnabledIs(f.medNetworkPolicyTlvEnabled());
  t.mgmtAddrTxOptionIs(f.mgmtAddrTxOption());
  t.ip6MgmtAddrIntfNameIs(f.ip6MgmtAddrIntfName());
  t.enabledIs(f.enabled());
  t.mgmtAddrVrfIs(f.mgmtAddrVrf());
  t.rxTaggedPacketsDropIs(f.rxTaggedPacketsDrop());
  std::vector<Platform::IntfId> gone;
  for (auto it = t.portConfig().begin(); it; ++it)
    if (!f.portConfig().find(it.key())) gone.push_back(it.key());
  for (auto const& k : gone) t.portConfigDel(k);
  for (auto it = f.portConfig().begin(); it; ++it) {
    auto p = t.portConfigIs(it.key());
    p->adminStatusIs(it->adminStatus());
    p->poeAllocatedPowerFallbackIs(it->poeAllocatedPowerFallback());
    std::vector<std::uint8_t> stale;
    for (auto n = p->networkPolicyConfig().begin(); n; ++n)
      if (!it->networkPolicyConfigHas(n.key())) stale.push_back(n.key());
    for (auto k : stale) p->networkPolicyConfigDel(k);
    for (auto n = it->networkPolicyConfig().begin(); n; ++n) p->networkPolicyConfigIs(*n);
  }
}

}  // namespace LldpService
