// The agent's configuration file: every mistake refused with one line naming file, line,
// column and key; a good file reaches the effective configuration; no start without
// CAP_NET_RAW.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>

#include "Tools/AgentTestUtil.h"
#include "tools/lldp-agent/Config.h"
#include "tools/lldp-agent/Core.h"

namespace {

using namespace LldpAgent;

template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (std::exception const& e) {
    return e.what();
  }
  return "";
}

std::string file(std::string const& text) {
  std::string const path = "/tmp/lldp-agent-config-" + std::to_string(::getpid()) + ".toml";
  std::ofstream(path) << text;
  return path;
}

TEST(AgentConfigTest, MistakesAreRefusedWithFileLineAndKey) {
  for (auto const& row : AgentTest::dataRows(LLDP_TEST_DATA_DIR "/agent-config-refusals.txt")) {
    SCOPED_TRACE(row.at(0));
    std::string const path = file(row.at(0));
    std::string const what = errorOf([&] { loadConfig(path); });
    std::remove(path.c_str());
    EXPECT_EQ(what.substr(0, path.size() + 1 + row.at(1).size()), path + ":" + row.at(1));
  }
}

TEST(AgentConfigTest, AGoodFileReachesTheEffectiveConfiguration) {
  std::string const path = file(R"(
[agent]
interfaces = ["veth*"]
[lldp]
tx-interval = 10
hold-time = 50
tx-delay = 1
max-mgmt-addresses = 3
[lldp.tlvs]
port-vlan = false
power-via-mdi = false
[port."veth*"]
admin-status = "tx-only"
poe-fallback = "max"
[port.veth9]
admin-status = "rx-only"
)");
  AgentConfig const cfg = loadConfig(path);
  EXPECT_NO_THROW(checkInterfaces(cfg, {"veth*"}));
  EXPECT_NO_THROW(checkInterfaces(cfg, {"veth1", "veth9"}));  // the table's pattern matches a name
  EXPECT_EQ(errorOf([&] { checkInterfaces(cfg, {"eth0", "eth0"}); }),
            path + ":12:1: port.veth*: unknown interface (not among the agent's interfaces: eth0)");
  std::remove(path.c_str());
  auto config = Lldp::configFactory("c");
  deriveConfig(cfg, *config);
  // interval, hold multiplier (hold time / interval), txDelay, maxTxMgmtAddrs
  EXPECT_EQ(std::make_tuple(config->messageTxInterval(), config->messageTxHoldMultiplier(), config->txDelay(),
                            config->maxTxMgmtAddrs()),
            std::make_tuple(10u, 5u, 1u, 3u));
  struct Port {
    const char* name;
    Lldp::AdminStatus admin;
    std::uint32_t fallback;
  };
  for (Port const& p : {Port{"veth1", Lldp::txOnly, 4294967295u}, Port{"veth9", Lldp::rxOnly, 0u}, Port{"eth0", Lldp::txAndRx, 0u}}) {
    auto pc = config->portConfigIs(Platform::IntfId(AgentTest::str(p.name)));
    derivePortConfig(cfg, p.name, *pc);
    EXPECT_EQ(pc->adminStatus(), p.admin) << p.name;
    EXPECT_EQ(pc->poeAllocatedPowerFallback(), p.fallback) << p.name;
    EXPECT_FALSE(pc->portVlanTxEnable()) << p.name;
    EXPECT_EQ(pc->dot3EnabledTlvs().value(), 0xdu) << p.name;  // all but Power via MDI
    EXPECT_EQ(pc->enabledTlvs().value(), 0xfu) << p.name;
  }
}

// Of the patterns that match an interface, the first in the file applies (an exact name
// before any); the order the parser keeps its keys in must not decide.
TEST(AgentConfigTest, TheFirstMatchingPortTableApplies) {
  std::string const path = file("[port.\"vA*\"]\ndescription = \"specific\"\n[port.\"*\"]\ndescription = \"any\"\n"
                                "[port.vB1]\ndescription = \"exact\"\n"
                                "[[port.vB1.tlv]]\noui = 0x00aabb\nsubtype = 1\ndata = \"01 02 0a\"\n");
  AgentConfig const cfg = loadConfig(path);
  std::remove(path.c_str());
  for (auto [ifname, want] : {std::pair{"vA1", "specific"}, {"vB1", "exact"}, {"vC1", "any"}}) {
    PortSettings const* p = portSettings(cfg, ifname);
    ASSERT_NE(p, nullptr) << ifname;
    EXPECT_EQ(p->description.value_or(""), want) << ifname;
  }
  // An extra TLV's data: hex bytes apart, as the README writes them.
  PortSettings const* b = portSettings(cfg, "vB1");
  ASSERT_EQ(b->extraTlvs.size(), 1u);
  EXPECT_EQ(b->extraTlvs[0].orgDefInfo().value().view(), std::string_view("\x01\x02\x0a", 3));
}

TEST(AgentConfigTest, NoStartWithoutNetRaw) {
  int status = 0;
  // Root keeps its other capabilities but loses CAP_NET_RAW from the bounding set.
  std::string const drop = ::geteuid() == 0 ? "setpriv --bounding-set -net_raw --inh-caps -all " : "";
  if (!drop.empty() && std::system("command -v setpriv >/dev/null 2>&1") != 0) GTEST_SKIP() << "setpriv is missing";
  std::string const out = AgentTest::sh(drop + LLDP_AGENT_TOOL " --socket-dir '' --operator-config '' lo 2>&1", &status);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(out, "lldp-agent: lldp-agent needs CAP_NET_RAW for its packet sockets: run it as root or grant it with "
                 "'setcap cap_net_raw+ep lldp-agent'\n");
}

// --check reads everything a start would, the group that may configure too; an empty
// file name is refused rather than read as "none".
TEST(AgentConfigTest, CheckRefusesAMissingConfigGroupAndEmptyNames) {
  struct Case { std::string args; int status; std::string out; };
  Case const cases[] = {
      {"--check --config-group lldp-no-such-group", 2, "lldp-agent: no group 'lldp-no-such-group' (--config-group)\n"},
      {"--check --config-group root", 0, "(defaults): configuration valid\n"},
      {"--check -c ''", 2, "lldp-agent: --config needs a name, not '' (see --help)\n"},
      {"--check --dump= lo", 2, "lldp-agent: --dump needs a name, not '' (see --help)\n"},
  };
  for (auto const& c : cases) {
    int status = 0;
    std::string const out = AgentTest::sh(LLDP_AGENT_TOOL " --operator-config '' " + c.args + " 2>&1", &status);
    EXPECT_EQ(WEXITSTATUS(status), c.status) << c.args;
    EXPECT_EQ(out, c.out) << c.args;
  }
}

// The ifindexes of the management addresses the agent picks with `vrf` as the VRF and
// every address allowed: links 10 (the VRF "blue"), 11 (in it) and 12 (outside).
std::vector<std::uint32_t> mgmtIfindexes(std::string const& vrf) {
  AgentConfig cfg = defaultConfig();
  cfg.maxTxMgmtAddrs = 8;
  Lldp::MgmtAddrTxOption all;
  all.mgmtAddrTxModeIs(Lldp::mgmtAddrTxModeAll);
  cfg.cli->mgmtAddrTxOptionIs(all);
  cfg.cli->mgmtAddrVrfIs(Platform::VrfName(Kel::String(vrf)));
  Core core(cfg, [](int, std::string_view) { return true; });
  HostView host;
  for (auto [ifindex, name, kind, master] : {std::tuple{10, "blue", "vrf", 0}, {11, "eth1", "", 10}, {12, "eth2", "", 0}}) {
    LinkInfo l;
    l.ifindex = ifindex, l.name = name, l.kind = kind, l.masterIfindex = master;
    host.links.push_back(l);
    AddrInfo a;
    a.ifindex = ifindex, a.family = AF_INET, a.addr = {10, 0, 0, static_cast<std::uint8_t>(ifindex)};
    host.addrs.push_back(a);
  }
  core.hostIs(host, 0);
  std::vector<std::uint32_t> out;
  for (auto it = core.localSystem()->managementAddress().begin(); it; ++it) out.push_back(it->ifId());
  std::sort(out.begin(), out.end());
  return out;
}

TEST(AgentConfigTest, ManagementAddressesOfAVrf) {
  EXPECT_EQ(mgmtIfindexes("default"), (std::vector<std::uint32_t>{10, 11, 12}));
  EXPECT_EQ(mgmtIfindexes("blue"), (std::vector<std::uint32_t>{10, 11}));
  EXPECT_EQ(mgmtIfindexes("red"), (std::vector<std::uint32_t>{}));
}

}  // namespace
