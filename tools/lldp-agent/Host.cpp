#include "tools/lldp-agent/Host.h"

// net/if.h before any linux/ header that pulls in linux/if.h.
#include <net/if.h>
#include <net/if_arp.h>
#include <arpa/inet.h>
#include <linux/ethtool.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace LldpAgent {

struct Host::Impl {
  nl_sock* sock = nullptr;    // requests: the caches' dumps
  nl_sock* events = nullptr;  // link and address notifications
  nl_cache* links = nullptr;
  nl_cache* addrs = nullptr;
  int ethtoolFd = -1;

  ~Impl() {
    if (addrs) nl_cache_free(addrs);
    if (links) nl_cache_free(links);
    if (events) nl_socket_free(events);
    if (sock) nl_socket_free(sock);
    if (ethtoolFd >= 0) ::close(ethtoolFd);
  }

  // Speed, duplex and auto-negotiation through the legacy ethtool request, which every
  // driver that reports link settings answers.
  std::optional<Lldp::MacPhyConfigStatusInfo> macPhy(std::string const& name) const {
    ethtool_cmd cmd{};
    cmd.cmd = ETHTOOL_GSET;
    ifreq ifr{};
    std::strncpy(ifr.ifr_name, name.c_str(), IFNAMSIZ - 1);
    ifr.ifr_data = reinterpret_cast<char*>(&cmd);
    if (ethtoolFd < 0 || ::ioctl(ethtoolFd, SIOCETHTOOL, &ifr) != 0) return std::nullopt;
    return macPhyFrom(ethtool_cmd_speed(&cmd), cmd.duplex, (cmd.supported & SUPPORTED_Autoneg) != 0,
                      cmd.autoneg == AUTONEG_ENABLE, cmd.advertising);
  }
};

namespace {
void check(int err, const char* what) {
  if (err < 0) throw std::runtime_error(std::string("netlink: ") + what + ": " + nl_geterror(err));
}
int ignoreEvent(nl_msg*, void*) { return NL_OK; }
}  // namespace

Host::Host() : impl_(std::make_unique<Impl>()) {
  impl_->sock = nl_socket_alloc();
  impl_->events = nl_socket_alloc();
  if (!impl_->sock || !impl_->events) throw std::runtime_error("netlink: out of memory");
  check(nl_connect(impl_->sock, NETLINK_ROUTE), "connect");
  check(rtnl_link_alloc_cache(impl_->sock, AF_UNSPEC, &impl_->links), "links");
  check(rtnl_addr_alloc_cache(impl_->sock, &impl_->addrs), "addresses");
  // Notifications only tell that something changed; the caches are dumped again then.
  nl_socket_disable_seq_check(impl_->events);
  nl_socket_modify_cb(impl_->events, NL_CB_VALID, NL_CB_CUSTOM, ignoreEvent, nullptr);
  check(nl_connect(impl_->events, NETLINK_ROUTE), "connect");
  check(nl_socket_add_memberships(impl_->events, RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR, 0),
        "subscribe");
  check(nl_socket_set_nonblocking(impl_->events), "nonblocking");
  impl_->ethtoolFd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

Host::~Host() = default;

int Host::eventFd() const { return nl_socket_get_fd(impl_->events); }

bool Host::processEvents() {
  bool any = false;
  for (int r; (r = nl_recvmsgs_default(impl_->events)) != -NLE_AGAIN;) {
    any = true;
    if (r < 0) break;  // an overrun (ENOBUFS) lost notifications: dump everything again
  }
  if (!any) return false;
  check(nl_cache_refill(impl_->sock, impl_->links), "links");
  check(nl_cache_refill(impl_->sock, impl_->addrs), "addresses");
  return true;
}

std::vector<LinkInfo> Host::links() const {
  std::vector<LinkInfo> out;
  for (nl_object* o = nl_cache_get_first(impl_->links); o; o = nl_cache_get_next(o)) {
    auto* l = reinterpret_cast<rtnl_link*>(o);
    LinkInfo i;
    i.ifindex = rtnl_link_get_ifindex(l);
    if (char const* n = rtnl_link_get_name(l)) i.name = n;
    if (char const* a = rtnl_link_get_ifalias(l)) i.alias = a;
    if (char const* k = rtnl_link_get_type(l)) i.kind = k;
    nl_addr* mac = rtnl_link_get_addr(l);
    i.ethernet = rtnl_link_get_arptype(l) == ARPHRD_ETHER && mac && nl_addr_get_len(mac) == 6;
    if (i.ethernet) std::memcpy(i.mac.data(), nl_addr_get_binary_addr(mac), 6);
    i.mtu = rtnl_link_get_mtu(l);
    unsigned flags = rtnl_link_get_flags(l);
    i.up = (flags & IFF_UP) && (flags & IFF_RUNNING);
    i.loopback = flags & IFF_LOOPBACK;
    if (int master = rtnl_link_get_master(l)) {
      i.masterIfindex = master;
      if (rtnl_link* m = rtnl_link_get(impl_->links, master)) {
        char const* kind = rtnl_link_get_type(m);
        if (kind && std::strcmp(kind, "bond") == 0) {
          i.bondMasterIfindex = master;
          i.bondMasterName = rtnl_link_get_name(m);
        }
        rtnl_link_put(m);
      }
    }
    if (i.ethernet && !i.loopback) i.macPhy = impl_->macPhy(i.name);
    out.push_back(std::move(i));
  }
  std::sort(out.begin(), out.end(), [](LinkInfo const& a, LinkInfo const& b) { return a.ifindex < b.ifindex; });
  return out;
}

std::optional<LinkInfo> Host::link(std::string const& name) const {
  for (auto& l : links())
    if (l.name == name) return l;
  return std::nullopt;
}

std::vector<AddrInfo> Host::addresses() const {
  std::vector<AddrInfo> out;
  for (nl_object* o = nl_cache_get_first(impl_->addrs); o; o = nl_cache_get_next(o)) {
    auto* a = reinterpret_cast<rtnl_addr*>(o);
    nl_addr* local = rtnl_addr_get_local(a);
    if (!local) continue;
    AddrInfo i;
    i.ifindex = rtnl_addr_get_ifindex(a);
    i.family = rtnl_addr_get_family(a);
    unsigned len = nl_addr_get_len(local);
    if ((i.family != AF_INET || len != 4) && (i.family != AF_INET6 || len != 16)) continue;
    std::memcpy(i.addr.data(), nl_addr_get_binary_addr(local), len);
    i.prefixLen = static_cast<std::uint8_t>(rtnl_addr_get_prefixlen(a));
    i.linkLocal = rtnl_addr_get_scope(a) != RT_SCOPE_UNIVERSE;
    out.push_back(i);
  }
  std::sort(out.begin(), out.end(), [](AddrInfo const& a, AddrInfo const& b) {
    return std::tie(a.ifindex, a.family, a.addr) < std::tie(b.ifindex, b.family, b.addr);
  });
  return out;
}

std::string Host::hostName() {
  char buf[256] = {};
  ::gethostname(buf, sizeof buf - 1);
  return buf;
}

std::string Host::systemDescription() {
  std::string os;
  std::ifstream release("/etc/os-release");
  for (std::string line; std::getline(release, line);)
    if (line.rfind("PRETTY_NAME=", 0) == 0) {
      os = line.substr(12);
      if (os.size() >= 2 && os.front() == '"' && os.back() == '"') os = os.substr(1, os.size() - 2);
    }
  utsname u{};
  ::uname(&u);
  std::string d = os.empty() ? "" : os + " ";
  return d + u.sysname + " " + u.release + " " + u.version + " " + u.machine;
}

std::optional<Lldp::MacPhyConfigStatusInfo> macPhyFrom(std::uint32_t speedMbps, std::uint8_t duplex,
                                                       bool autonegSupported, bool autonegEnabled,
                                                       std::uint32_t advertisedLegacyModes) {
  if (speedMbps == 0 || speedMbps == static_cast<std::uint32_t>(SPEED_UNKNOWN)) return std::nullopt;
  bool const full = duplex == DUPLEX_FULL;
  // IETF MAU-MIB dot3MauType of the twisted-pair MAUs; others are left unknown (0).
  std::uint32_t mau = 0;
  if (speedMbps == 10) mau = full ? 11 : 10;
  if (speedMbps == 100) mau = full ? 16 : 15;
  if (speedMbps == 1000) mau = full ? 30 : 29;
  if (speedMbps == 10000 && full) mau = 54;  // 10GBASE-T, what a veth reports
  // ethtool's advertised modes to ifMauAutoNegCapAdvertisedBits (bit numbers of that MIB).
  static constexpr std::pair<std::uint32_t, unsigned> modes[] = {
      {ADVERTISED_10baseT_Half, 1},    {ADVERTISED_10baseT_Full, 2},    {ADVERTISED_100baseT_Half, 4},
      {ADVERTISED_100baseT_Full, 5},   {ADVERTISED_Pause, 8},           {ADVERTISED_Asym_Pause, 9},
      {ADVERTISED_1000baseT_Half, 14}, {ADVERTISED_1000baseT_Full, 15},
  };
  std::uint32_t caps = 0;
  for (auto [mode, bit] : modes)
    if (advertisedLegacyModes & mode) caps |= 1u << bit;
  Lldp::MacPhyConfigStatusInfo m;
  m.autoNegSupportedIs(autonegSupported);
  m.autoNegEnabledIs(autonegEnabled);
  m.autoNegAdvertisedCapIs(Platform::AutoNegCapBits(caps));
  m.operMauTypeIs(mau);
  return m;
}

}  // namespace LldpAgent
