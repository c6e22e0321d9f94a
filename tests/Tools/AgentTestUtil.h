#pragma once
// A local system with one port that advertises every optional TLV (and an 802.3bt Power
// via MDI TLV), for the transmit-path tests and benchmarks.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Lldp/Lldp.h"
#include "tools/LldpTx/LldpTx.h"

namespace AgentTest {

inline Kel::String str(std::string const& s) { return Kel::String(s.data(), s.size()); }

inline Lldp::ManagementAddress ipv4(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d, std::uint32_t ifIndex) {
  Lldp::ManagementAddress::Key k;
  k.manAddrSubtypeIs(Platform::AddressFamilyNumbers(std::int32_t{1}));
  char const bytes[4] = {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c), static_cast<char>(d)};
  k.manAddrIs(Lldp::ManAddress(Kel::String(bytes, 4)));
  Lldp::ManagementAddress m(k);
  m.ifSubtypeIs(Lldp::ifIndex);
  m.ifIdIs(ifIndex);
  return m;
}

inline Lldp::UnknownOrgDefTlv orgTlv(std::uint32_t oui, std::uint32_t subtype, std::int32_t index, std::string const& info) {
  Lldp::UnknownOrgDefTlv::Key k;
  k.ouiIs(Lldp::Oui(oui));
  k.subtypeIs(subtype);
  k.indexIs(index);
  Lldp::UnknownOrgDefTlv t(k);
  t.orgDefInfoIs(Lldp::BoundedString507(str(info)));
  return t;
}

// The 802.3bt PSE state the tests and the benchmark advertise.
inline Power::PoePortStatus btPse() {
  return Kel::strepToValue<Power::PoePortStatus>(
      "Value('Power::PoePortStatus', ** {'poePortState': powered, 'poweredDeviceClass': class4, 'grantedPower': 25.5, "
      "'lldpPoeNegotiationSupport': Ieee802_3bt, 'psePairsControllable': False, 'psePowerPair': signal, 'powerType': type1Pse, 'powerSource': primary, "
      "'powerPriority': high, 'allocatedPowerAlternativeA': 12.0, 'allocatedPowerAlternativeB': 13.5, "
      "'psePoweringStatus': fourPairDualSignature, 'psePowerPairsExt': bothAlternatives, "
      "'dualSignaturePowerClassExtModeA': class3, 'dualSignaturePowerClassExtModeB': class2, 'powerTypeExt': type4Pse, "
      "'pseMaximumAvailablePower': 90.0, 'pseAutoclassSupport': False, 'autoclassCompleted': False})");
}

struct TxModel {
  Platform::IntfId intf{str("eth7")};
  Lldp::Config::Ptr config = Lldp::configFactory("config");
  Lldp::LocalSystem::Ptr system = Lldp::localSystemFactory("local");
  Lldp::Status::Ptr statusRoot = Lldp::statusFactory("status");
  Lldp::LocalPort::Ptr port = system->localPortIs(intf);
  Lldp::PortConfig::Ptr portConfig = config->portConfigIs(intf);
  Lldp::PortStatus::Ptr status = statusRoot->portStatusIs(intf, 0.0);
  Lldp::LocalPortPoeInfo::Ptr poe = port->localPortPoeInfoIs(intf);
  Lldp::MacPhyConfigStatusInfo macPhy;
  LldpTx::PortSources src;

  // Every TLV switched on, with the values the tests read back.
  TxModel() {
    Lldp::ChassisIdentifier chassis;
    chassis.chassisIdSubtypeIs(Lldp::cidMacAddress);
    chassis.chassisIdIs(Lldp::ChassisId(Kel::String("\x02\x00\x00\x00\x00\x07", 6)));
    system->chassisIdentifierIs(chassis);
    system->sysNameIs(Lldp::BoundedString255(str("agent.example")));
    system->sysDescIs(Lldp::BoundedString255(str("Debian GNU/Linux 12 test")));
    system->sysCapSupportedIs(Lldp::SystemCapabilitiesMap(0x14));  // bridge, router
    system->sysCapEnabledIs(Lldp::SystemCapabilitiesMap(0x04));
    auto const mgmt = ipv4(192, 0, 2, 7, 3);
    system->managementAddressIs(mgmt);
    system->managementAddressPrioIs(Lldp::ManAddrPriority(Lldp::ManAddrPriority::primary, 1, 0), mgmt.key());

    Lldp::PortIdentifier pid;
    pid.portIdSubtypeIs(Lldp::pidInterfaceName);
    pid.portIdIs(Lldp::PortId(str("eth7")));
    port->portIdentifierIs(pid);
    port->portDescIs(Lldp::BoundedString255(str("uplink to lab")));
    port->portVlanIdIs(Platform::VlanIdOrNone(std::int64_t{42}));
    Lldp::LinkAggregationInfo lag;
    lag.statusIs(Lldp::LinkAggStatusMap(3));
    lag.portIdIs(12);
    port->linkAggregationInfoIs(lag);
    port->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo(std::uint16_t{9216}));
    port->unknownOrgDefTlvIs(orgTlv(0x00aabb, 9, 1, "extra"));
    poe->poePortStatusIs(btPse());

    macPhy.autoNegSupportedIs(true);
    macPhy.autoNegEnabledIs(true);
    macPhy.autoNegAdvertisedCapAsU16Is(0x6c01);
    macPhy.operMauTypeIs(30);  // 1000BASE-T full duplex

    // LLDP-MED goes out once a neighbour sent it: one that did, and a voice policy.
    Lldp::RemoteSystem::Msap msap;
    statusRoot->portStatus(intf)->remoteSystemIs(1, msap)->medCapabilitiesTlvReceivedIs(true);
    Lldp::NetworkPolicyTlv voice;
    voice.appValueIs(1);
    voice.taggedIs(true);
    voice.vlanIdIs(100);
    voice.cosValueIs(5);
    voice.dscpValueIs(46);
    port->localNetworkPolicyTlvIs(voice);
    portConfig->tiaEnabledTlvsIs(Lldp::PortConfig::TiaEnabledTlvs(2));

    portConfig->enabledTlvsIs(Lldp::PortConfig::EnabledTlvs(0xf));
    portConfig->mgmtAddrTxEnableIs(true);
    portConfig->portVlanTxEnableIs(true);
    portConfig->dot3EnabledTlvsIs(Lldp::PortConfig::Dot3EnabledTlvs(0xf));

    src = {system.get(), port.get(), config.get(), portConfig.get(), status, nullptr, &macPhy, {0x02, 0, 0, 0, 0, 0x17}};
  }
};

// The rows of a table in tests/data: its fields split at tabs, with "\n" in them a newline;
// blank lines and lines starting with '#' skipped. A file that cannot be read throws.
inline std::vector<std::vector<std::string>> dataRows(std::string const& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read " + path);
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    for (std::size_t at; (at = line.find("\\n")) != std::string::npos;) line.replace(at, 2, "\n");
    rows.emplace_back();
    for (std::size_t at = 0, tab = 0; tab != std::string::npos; at = tab + 1)
      rows.back().push_back(line.substr(at, (tab = line.find('\t', at)) - at));
  }
  return rows;
}

// ---- A lab of network namespaces for the daemon's tests: made by the test, removed
// with everything running in it.

// Runs a shell command; its standard output.
inline std::string sh(std::string const& cmd, int* status = nullptr) {
  std::string out;
  FILE* p = ::popen(cmd.c_str(), "r");
  for (int c; p && (c = std::fgetc(p)) != EOF;) out += static_cast<char>(c);
  int const st = p ? ::pclose(p) : -1;
  if (status) *status = st;
  return out;
}
inline std::string slurp(std::string const& path) {
  std::ifstream f(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
}
inline void sleepFor(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

struct Lab {
  std::string tag = "lat" + std::to_string(::getpid());
  std::string work;
  std::string skip;  // why the lab cannot run here, or empty
  std::vector<std::string> namespaces;

  explicit Lab(std::vector<std::string> const& tools) {
    if (::geteuid() != 0) skip = "needs root to make network namespaces";
    for (auto const& t : tools)
      if (skip.empty() && std::system(("command -v " + t + " >/dev/null 2>&1").c_str()) != 0)
        skip = t + " is not installed (scripts/build.sh deps)";
    if (!skip.empty()) return;
    char dir[] = "/tmp/lldp-agent-lab-XXXXXX";
    work = ::mkdtemp(dir);
    sh("chmod 755 " + work + "; mkdir -p /run/lldpd");  // lldpd's unprivileged half reaches its socket
    if (!ns("probe")) skip = "cannot make network namespaces here (ip netns add failed)";
  }
  ~Lab() {
    for (const char* sig : {"TERM", "KILL"}) {
      for (auto const& n : namespaces) sh("for p in $(ip netns pids " + n + " 2>/dev/null); do kill -" + sig + " $p 2>/dev/null; done");
      sleepFor(0.3);
    }
    for (auto const& n : namespaces) sh("ip netns del " + n + " 2>/dev/null");
    if (!work.empty()) sh("rm -rf " + work);
  }
  bool ns(std::string const& name) {
    std::string const n = tag + "-" + name;
    if (std::system(("ip netns add " + n + " 2>/dev/null && ip -n " + n + " link set lo up").c_str()) != 0) return false;
    namespaces.push_back(n);
    return true;
  }
  std::string in(std::string const& name) const { return "ip netns exec " + tag + "-" + name + " "; }
  std::string n(std::string const& name) const { return tag + "-" + name; }
  // A veth pair between two namespaces, both ends up.
  void link(std::string const& a, std::string const& ifa, std::string const& b, std::string const& ifb, std::string const& macA) {
    sh("ip link add " + ifa + " netns " + n(a) + " address " + macA + " type veth peer name " + ifb + " netns " + n(b) +
       " && ip -n " + n(a) + " link set " + ifa + " up && ip -n " + n(b) + " link set " + ifb + " up");
  }
  void write(std::string const& file, std::string const& text) const { std::ofstream(work + "/" + file) << text; }
  std::string path(std::string const& file) const { return work + "/" + file; }
  // Runs a command in the background in a namespace (inside sh -c '...': no single quotes, a\* for
  // a pattern); its pid in FILE.pid, exit code in FILE.rc.
  void spawn(std::string const& where, std::string const& file, std::string const& cmd) const {
    sh(in(where) + "sh -c '" + cmd + " >" + path(file + ".log") + " 2>&1 & echo $! >" + path(file + ".pid") + "; wait $!; echo $? >" +
       path(file + ".rc") + "' >/dev/null 2>&1 &");
  }
  int pid(std::string const& file) const {
    waitFor([&] { return !slurp(path(file + ".pid")).empty(); }, 5);
    return std::atoi(slurp(path(file + ".pid")).c_str());
  }
  // Polls f every 0.1 s for up to `seconds`; its last answer.
  bool waitFor(std::function<bool()> const& f, double seconds) const {
    for (double t = 0; t < seconds; t += 0.1, sleepFor(0.1))
      if (f()) return true;
    return f();
  }
  // lldpd in namespace "p" on IFACES, set up with lldpcli's COMMANDS, and lldpcli against it.
  void lldpd(std::string const& ifaces, std::string const& commands) const {
    write("p.conf", commands);
    spawn("p", "p", "lldpd -d -u " + path("p.sock") + " -p " + path("p.pid") + " -I " + ifaces + " -O " + path("p.conf") +
                        " -L $(command -v lldpcli)");
  }
  std::string lldpcli(std::string const& args) const { return sh(in("p") + "lldpcli -u " + path("p.sock") + " " + args + " 2>/dev/null"); }
};

}  // namespace AgentTest
