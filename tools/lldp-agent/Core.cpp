#include "tools/lldp-agent/Core.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace LldpAgent {
namespace {

Kel::String kstr(std::string const& s) { return Kel::String(s.data(), s.size()); }
Platform::IntfId intf(std::string const& name) { return Platform::IntfId(kstr(name)); }

Lldp::ManagementAddress mgmtAddress(int family, std::uint8_t const* bytes, int ifindex) {
  Lldp::ManagementAddress::Key k;
  k.manAddrSubtypeIs(Platform::AddressFamilyNumbers(std::int32_t{family == AF_INET ? 1 : 2}));
  k.manAddrIs(Lldp::ManAddress(Kel::String(reinterpret_cast<char const*>(bytes), family == AF_INET ? 4u : 16u)));
  Lldp::ManagementAddress a(k);
  a.ifSubtypeIs(ifindex ? Lldp::ifIndex : Lldp::unknown);
  a.ifIdIs(static_cast<std::uint32_t>(ifindex));
  return a;
}

bool transmits(Lldp::AdminStatus s) { return s == Lldp::txOnly || s == Lldp::txAndRx; }

}  // namespace

Core::Core(AgentConfig cfg, Send send)
    : cfg_(std::move(cfg)),
      send_(std::move(send)),
      status_(Lldp::statusFactory("lldp-agent")),
      config_(Lldp::configFactory("lldp-agent")),
      system_(Lldp::localSystemFactory("lldp-agent")),
      external_(Lldp::externalTlvConfigFactory("lldp-agent")) {
  deriveConfig(cfg_, *config_);
  receiver_ = std::make_unique<LldpRx::Receiver>(status_, config_);
}

Core::~Core() = default;

void Core::setManagementAddresses(HostView const& host) {
  std::vector<Lldp::ManagementAddress> want;
  Lldp::ManagementAddress ip6;
  auto ifindexOf = [&](std::string const& name) {
    for (auto const& l : host.links)
      if (l.name == name) return l.ifindex;
    return -1;
  };
  if (!cfg_.mgmtAddresses.empty()) {
    // Configured addresses, in their order, on the interface that holds them if any.
    for (auto const& text : cfg_.mgmtAddresses) {
      std::uint8_t buf[16];
      int family = inet_pton(AF_INET, text.c_str(), buf) == 1 ? AF_INET : AF_INET6;
      if (family == AF_INET6 && inet_pton(AF_INET6, text.c_str(), buf) != 1) continue;
      int ifindex = 0;
      for (auto const& a : host.addrs)
        if (a.family == family && std::memcmp(a.addr.data(), buf, family == AF_INET ? 4 : 16) == 0) ifindex = a.ifindex;
      want.push_back(mgmtAddress(family, buf, ifindex));
    }
  } else {
    auto const& opt = cfg_.cli->mgmtAddrTxOption();
    int only = opt.mgmtAddrTxMode() == Lldp::mgmtAddrTxModeIntfName ? ifindexOf(opt.intfName().stdString()) : 0;
    // A management VRF other than "default": the addresses of its device and of the links
    // enslaved to it; none while no such VRF device exists.
    std::string const vrfName = cfg_.cli->mgmtAddrVrf().stringValue().stdString();
    int vrf = 0;
    if (!vrfName.empty() && vrfName != "default") {
      vrf = -1;
      for (auto const& l : host.links)
        if (l.name == vrfName && l.kind == "vrf") vrf = l.ifindex;
    }
    auto inVrf = [&](int ifindex) {
      if (vrf == 0 || ifindex == vrf) return vrf >= 0;
      for (auto const& l : host.links)
        if (l.ifindex == ifindex) return vrf > 0 && l.masterIfindex == vrf;
      return false;
    };
    for (auto const& a : host.addrs) {
      if (a.family != AF_INET || a.linkLocal || a.addr[0] == 127) continue;
      if (only && a.ifindex != only) continue;
      if (only < 0 || !inVrf(a.ifindex)) continue;
      want.push_back(mgmtAddress(AF_INET, a.addr.data(), a.ifindex));
      if (opt.mgmtAddrTxMode() == Lldp::mgmtAddrTxModeBest) break;
    }
    std::string const v6 = cfg_.cli->ip6MgmtAddrIntfName().stdString();
    if (!v6.empty())
      for (auto const& a : host.addrs)
        if (a.family == AF_INET6 && !a.linkLocal && a.ifindex == ifindexOf(v6) && inVrf(a.ifindex)) {
          ip6 = mgmtAddress(AF_INET6, a.addr.data(), a.ifindex);
          break;
        }
  }
  // Rewritten only when different, so that observers see real changes only.
  bool same = want.size() == system_->managementAddressPrio().size();
  std::uint32_t i = 0;
  for (auto it = system_->managementAddressPrio().begin(); same && it; ++it, ++i) {
    auto const* a = system_->managementAddress(*it);
    same = a && *a == want[i];
  }
  if (!same) {
    system_->managementAddressPrioDelAll();
    system_->managementAddressDelAll();
    i = 0;
    for (auto const& a : want) {
      system_->managementAddressIs(a);
      system_->managementAddressPrioIs(Lldp::ManAddrPriority(Lldp::ManAddrPriority::primary, ++i, 0), a.key());
    }
  }
  system_->ip6ManagementAddressIs(ip6);
}

void Core::hostIs(HostView const& host, double now) {
  // The chassis: the first Ethernet address of the host, as LLDP agents usually pick it.
  for (auto const& l : host.links)
    if (l.ethernet && !l.loopback && l.mac != std::array<std::uint8_t, 6>{}) {
      Lldp::ChassisIdentifier c;
      c.chassisIdSubtypeIs(Lldp::cidMacAddress);
      c.chassisIdIs(Lldp::ChassisId(Kel::String(reinterpret_cast<char const*>(l.mac.data()), 6)));
      system_->chassisIdentifierIs(c);
      break;
    }
  system_->sysNameIs(Lldp::BoundedString255(kstr(cfg_.sysName.value_or(host.hostName).substr(0, 255))));
  system_->sysDescIs(Lldp::BoundedString255(kstr(cfg_.sysDesc.value_or(host.sysDesc).substr(0, 255))));
  // A host that forwards is a router; otherwise a station.
  Lldp::SystemCapabilitiesMap const role(host.forwarding ? 1u << 4 : 1u << 7);
  // What is enabled is also supported, where the host's role alone does not say so.
  Lldp::SystemCapabilitiesMap const supported =
      cfg_.capSupported.value_or(Lldp::SystemCapabilitiesMap(role.value() | (cfg_.capEnabled ? cfg_.capEnabled->value() : 0u)));
  system_->sysCapSupportedIs(supported);
  system_->sysCapEnabledIs(cfg_.capEnabled.value_or(supported));
  setManagementAddresses(host);
  for (auto const& l : host.links)
    if (Port* p = port(l.name)) {
      p->link = l;
      applyPort(*p, now);
    }
  for (auto& [name, p] : ports_) checkChange(*p);
}

Core::Port& Core::portIs(LinkInfo const& link, double now) {
  auto& slot = ports_[link.name];
  if (!slot) {
    slot = std::make_unique<Port>();
    Platform::IntfId const id = intf(link.name);
    slot->rx = &receiver_->portIs(id, now);
    slot->local = system_->localPortIs(id);
    slot->config = config_->portConfigIs(id);
    slot->tx.timingIs(LldpTx::timingFrom(*config_));
  }
  slot->link = link;
  applyPort(*slot, now);
  return *slot;
}

void Core::portDel(std::string const& name, double now) {
  auto it = ports_.find(name);
  if (it == ports_.end()) return;
  Port& p = *it->second;
  p.tx.enabledIs(false, now);
  if (p.tx.poll(now) == LldpTx::TxMachine::Action::shutdown) {
    LldpTx::buildShutdownLldpdu(p.src, scratch_);
    if (send_(p.link.ifindex, scratch_.view())) LldpTx::frameSent(*p.rx->status(), scratch_, now);
  }
  Platform::IntfId const id = intf(name);
  system_->localPortDel(id);
  config_->portConfigDel(id);
  cfg_.cli->portConfigDel(id);
  receiver_->portDel(id, now);
  ports_.erase(it);
}

Core::Port* Core::port(std::string const& name) {
  auto it = ports_.find(name);
  return it == ports_.end() ? nullptr : it->second.get();
}

void Core::applyPort(Port& p, double now) {
  auto const& l = p.link;
  PortSettings const* s = portSettings(cfg_, l.name);
  Platform::IntfId const id = intf(l.name);
  derivePortConfig(cfg_, l.name, *p.config);
  // The operator's view of the port, as a CLI would have written it.
  auto cli = cfg_.cli->portConfigIs(id);
  // The port's own setting, not the effective status: with LLDP switched off as a whole,
  // "disabled" must not become the operator's choice for the port when it is sent back.
  cli->adminStatusIs(s && s->adminStatus ? *s->adminStatus : Lldp::txAndRx);
  cli->poeAllocatedPowerFallbackIs(p.config->poeAllocatedPowerFallback());

  auto& lp = *p.local;
  Lldp::PortIdentifier pid;
  pid.portIdSubtypeIs(Lldp::pidInterfaceName);
  pid.portIdIs(Lldp::PortId(kstr(l.name)));
  lp.portIdentifierIs(pid);
  std::string const desc = s && s->description ? *s->description : !l.alias.empty() ? l.alias : l.name;
  lp.portDescIs(Lldp::BoundedString255(kstr(desc.substr(0, 255))));
  lp.portVlanIdIs(Platform::VlanIdOrNone(std::int64_t{s && s->portVlan ? *s->portVlan : 0}));
  // The largest frame: the MTU plus the Ethernet header and FCS.
  lp.maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo(static_cast<std::uint16_t>(std::min<std::uint32_t>(l.mtu + 18, 65535))));
  Lldp::LinkAggregationInfo lag;
  if (l.bondMasterIfindex) {
    lag.statusIs(Lldp::LinkAggStatusMap(3));  // capable and aggregated
    lag.portIdIs(l.bondMasterIfindex);
  }
  lp.linkAggregationInfoIs(lag);
  // The port's PSE state: a host has no PSE driver, so it is the configuration's; a power
  // subsystem would write poePortStatus here as its ports change.
  if (s && s->poe) {
    lp.initilizeLocalPortPoeInfo();
    lp.localPortPoeInfo()->poePortStatusIs(*s->poe);
  } else if (lp.localPortPoeInfo()) {
    lp.localPortPoeInfoDel();
  }
  lp.localNetworkPolicyTlvDelAll();
  lp.unknownOrgDefTlvDelAll();
  if (s) {
    for (auto const& n : s->networkPolicies) lp.localNetworkPolicyTlvIs(n.toNetworkPolicyTlv());
    for (auto const& t : s->extraTlvs) lp.unknownOrgDefTlvIs(t);
  }

  p.src.system = system_.get();
  p.src.port = p.local.get();
  p.src.config = config_.get();
  p.src.portConfig = p.config.get();
  p.src.status = p.rx->status();
  p.src.external = external_->externalTlvPortConfig(id).get();
  p.src.macPhy = l.macPhy ? &*l.macPhy : nullptr;
  std::copy(l.mac.begin(), l.mac.end(), p.src.sourceMac.begin());
  p.src.linkLimit = l.mtu;
  p.src.echoPdRequest = !s || s->echoPdRequest;
  relinkPoe(p);
  p.tx.enabledIs(l.up && transmits(p.config->adminStatus()), now);
  checkChange(p);
}

// The neighbour whose Power via MDI request the port echoes: the first that sent one.
void Core::relinkPoe(Port& p) {
  auto const& info = p.local->localPortPoeInfo();
  if (!info) return;
  Lldp::RemoteSystem::PtrConst pd;
  for (auto it = p.rx->status()->remoteSystem().begin(); it && !pd; ++it)
    if (it->powerViaMdiTlvReceived()) pd = it.ptr();
  info->remoteSystemIs(pd);
}

void Core::checkChange(Port& p) {
  if (!p.tx.enabled()) return;
  LldpTx::buildLldpdu(p.src, scratch_);
  if (scratch_.view() != p.frame.view()) p.tx.localChange();
}

LldpRx::FrameResult Core::frameIn(Port& p, std::string_view frame, double now) {
  auto const r = p.rx->frameIs(frame, now);
  switch (r) {
    case LldpRx::FrameResult::added:
      p.tx.newNeighbour(now);
      [[fallthrough]];
    case LldpRx::FrameResult::updated:
    case LldpRx::FrameResult::removed:
      relinkPoe(p);
      if (p.local->localPortPoeInfo()) checkChange(p);
      break;
    default:
      break;
  }
  return r;
}

void Core::run(double now) {
  if (now >= nextAgeing_) {
    nextAgeing_ = std::floor(now) + 1;
    for (auto& [name, p] : ports_)
      if (p->rx->ageOut(now) && p->local->localPortPoeInfo()) {
        relinkPoe(*p);
        checkChange(*p);
      }
  }
  for (auto& [name, p] : ports_) {
    if (p->tx.nextWake() > now) continue;
    for (LldpTx::TxMachine::Action a; (a = p->tx.poll(now)) != LldpTx::TxMachine::Action::none;) {
      if (a == LldpTx::TxMachine::Action::send)
        LldpTx::buildLldpdu(p->src, p->frame);
      else
        LldpTx::buildShutdownLldpdu(p->src, p->frame);
      if (send_(p->link.ifindex, p->frame.view())) LldpTx::frameSent(*p->rx->status(), p->frame, now);
      if (a == LldpTx::TxMachine::Action::shutdown) p->frame.size = 0;
    }
  }
}

double Core::nextWake() const {
  double at = nextAgeing_;
  for (auto const& [name, p] : ports_) at = std::min(at, p->tx.nextWake());
  return at;
}

void Core::shutdownAll(double now) {
  for (auto& [name, p] : ports_) p->tx.enabledIs(false, now);
  run(now);
}

void Core::configIs(AgentConfig cfg, double now) {
  cfg_ = std::move(cfg);
  deriveConfig(cfg_, *config_);
  for (auto& [name, p] : ports_) {
    p->tx.timingIs(LldpTx::timingFrom(*config_));
    applyPort(*p, now);
  }
}

}  // namespace LldpAgent
