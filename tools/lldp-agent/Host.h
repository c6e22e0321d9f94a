#pragma once
// What the agent learns from the Linux host: links (name, alias, MAC, MTU, state, bond
// membership, speed/duplex/auto-negotiation), their addresses, the host name and a system
// description. Links and addresses come from rtnetlink through libnl's route caches; link
// settings from the ethtool ioctl (libnl has no ethtool family). Changes (a veth made or
// removed, an address added, a link going down) are read from a netlink socket whose file
// descriptor the agent's event loop watches.
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Lldp/Lldp.h"

namespace LldpAgent {

struct LinkInfo {
  int ifindex = 0;
  std::string name;
  std::string alias;                    // ifAlias, empty when unset
  std::string kind;                     // rtnetlink link kind: "veth", "bond", "bridge", "" ...
  std::array<std::uint8_t, 6> mac{};    // all zero when the link has no Ethernet address
  bool ethernet = false;                // ARPHRD_ETHER with a 6-byte address
  std::uint32_t mtu = 0;
  bool up = false;                      // administratively up and carrier (IFF_RUNNING)
  bool loopback = false;
  // The master's ifindex (a bond, a bridge, a VRF), else 0.
  int masterIfindex = 0;
  // Bond membership: the master's ifindex and name when the master is a bond, else 0/"".
  int bondMasterIfindex = 0;
  std::string bondMasterName;
  // From ethtool, when the driver reports link settings (a veth reports no speed).
  std::optional<Lldp::MacPhyConfigStatusInfo> macPhy;
};

struct AddrInfo {
  int ifindex = 0;
  int family = 0;                       // AF_INET or AF_INET6
  std::array<std::uint8_t, 16> addr{};  // 4 or 16 bytes used
  std::uint8_t prefixLen = 0;
  bool linkLocal = false;               // fe80::/10 or 169.254/16
};

class Host {
 public:
  // Opens the netlink sockets and fills the caches; throws std::runtime_error naming
  // what failed.
  Host();
  ~Host();
  Host(Host const&) = delete;
  Host& operator=(Host const&) = delete;

  // Current snapshot, sorted by ifindex.
  std::vector<LinkInfo> links() const;
  std::optional<LinkInfo> link(std::string const& name) const;
  std::vector<AddrInfo> addresses() const;

  // Readable when a link or an address changed; then call processEvents(), which drains
  // it, updates the caches, and returns true when anything changed.
  int eventFd() const;
  bool processEvents();

  // gethostname(); the system description: the OS's PRETTY_NAME from /etc/os-release and
  // uname's sysname, release, version and machine, "Debian GNU/Linux 12 (bookworm) Linux
  // 6.1.0-18-amd64 #1 SMP ... x86_64".
  static std::string hostName();
  static std::string systemDescription();

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// Link settings to the MAC/PHY record: auto-negotiation supported/enabled, the advertised
// capabilities as the platform's set, the operational MAU type (IETF MAU-MIB dot3MauType)
// from speed and duplex; nullopt when the speed is unknown. Pure, for the tests.
std::optional<Lldp::MacPhyConfigStatusInfo> macPhyFrom(std::uint32_t speedMbps, std::uint8_t duplex,
                                                       bool autonegSupported, bool autonegEnabled,
                                                       std::uint32_t advertisedLegacyModes);

}  // namespace LldpAgent
