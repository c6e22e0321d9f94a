// lldp-agent against Debian's lldpd (a black-box peer) on veth pairs in network namespaces
// the test makes: what the peer learns of us, that we learn of it, what tshark decodes of
// every frame we sent, the shutdown on SIGTERM, a reread configuration and the frame-size
// limit. Skips with the reason where namespaces, root or the tools are missing.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "Tools/AgentTestUtil.h"

namespace {

using namespace AgentTest;
using nlohmann::json;

// The value at PATH ("a/b/c"; "*" maps over an array, or over the one object lldpcli gives
// alone); null where there is none.
json at(json const& j, std::string_view path) {
  if (path.empty()) return j;
  std::size_t const slash = std::min(path.find('/'), path.size());
  std::string const key(path.substr(0, slash));
  std::string_view const rest = path.substr(std::min(slash + 1, path.size()));
  if (key != "*") return j.is_object() && j.contains(key) ? at(j[key], rest) : json();
  json out = json::array();
  for (auto const& e : j.is_array() ? j : json::array({j}))
    if (!e.is_null()) out.push_back(at(e, rest));
  return out;
}
std::string get(json const& j, std::string_view path) {
  json const v = at(j, path);
  return v.is_null() ? "" : v.is_string() ? v.get<std::string>() : v.dump();
}

// lldpcli's JSON: one object per interface whether it lists one or several, the chassis
// object unwrapped from under its name (kept as "name").
std::map<std::string, json> byInterface(std::string const& text) {
  std::map<std::string, json> out;
  for (auto const& o : at(json::parse(text, nullptr, false), "lldp/interface/*"))
    for (auto const& [name, v] : o.items()) {
      json const chassis = (out[name] = v).value("chassis", json::object());
      for (auto const& [cname, c] : chassis.items()) (out[name]["chassis"] = c)["name"] = cname;
    }
  return out;
}

// a1 powered (802.3at), a2 unpowered with a fallback, a3 refused (no LLDP power
// negotiation), a4 powered (802.3bt), a5 plain.
std::string const agentConfig = R"(
[lldp]
tx-interval = 5
[system]
name = "agent-a"
description = "lab agent"
capabilities = ["bridge", "router"]
enabled-capabilities = ["router"]
[port.a1]
vlan = 7
poe = {state = "powered", class = 4, granted = 25.5, negotiation = "at", power-type = "type2", source = "primary", priority = "high"}
[port.a2]
poe-fallback = 150
poe = {state = "searching", negotiation = "at"}
[port.a3]
poe = {state = "powered", class = 4, granted = 25.5, negotiation = "none"}
[port.a4]
poe = {state = "powered", class = 6, granted = 51.0, negotiation = "bt", power-type = "type1", priority = "low", alternative-a = 25.5, alternative-b = 25.5, powering-status = "4-pair-dual", pairs-ext = "both", class-ext-a = 4, class-ext-b = 4, type-ext = "type4", max-available = 90.0}
)";

TEST(AgentInteropTest, LldpdAndTsharkReadWhatTheAgentSends) {
  Lab lab({"ip", "lldpd", "lldpcli", "tcpdump", "tshark"});
  auto neighbours = [&] { return byInterface(lab.lldpcli("-f json show neighbors details")); };
  if (!lab.skip.empty()) GTEST_SKIP() << lab.skip;
  ASSERT_TRUE(lab.ns("a") && lab.ns("p"));
  for (int i = 1; i <= 5; ++i)
    lab.link("a", "a" + std::to_string(i), "p", "p" + std::to_string(i), "02:00:00:00:0a:0" + std::to_string(i));
  sh("ip -n " + lab.n("a") + " address add 192.0.2.1/24 dev a1 && ip -n " + lab.n("a") + " link set a1 alias 'to the peer' && ip -n " +
     lab.n("p") + " address add 192.0.2.2/24 dev p1");
  lab.write("a.toml", agentConfig);
  lab.spawn("a", "cap-any", "tcpdump -Z root -i any -U -w " + lab.path("any.pcap"));
  lab.spawn("a", "cap-p5", "tcpdump -Z root -i a5 -U -w " + lab.path("p5.pcap") + " ether proto 0x88cc");
  // The captures first, and only once they listen.
  auto logHas = [&](std::string const& file, std::string const& text) { return slurp(lab.path(file)).find(text) != std::string::npos; };
  lab.waitFor([&] { return logHas("cap-any.log", "listening") && logHas("cap-p5.log", "listening"); }, 10);
  lab.lldpd("p\\*", "configure lldp tx-interval 1\nconfigure system hostname peer\n");
  lab.spawn("a", "agent", std::string(LLDP_AGENT_TOOL) + " --socket-dir= --operator-config= -c " + lab.path("a.toml") + " --stream " + lab.path("a.stream") + " --dump " + lab.path("a.dump") +
                              " a\\* nosuch0");
  int const agentPid = lab.pid("agent");
  ASSERT_GT(agentPid, 0);

  std::map<std::string, json> seen;
  lab.waitFor([&] { return (seen = neighbours()).size() == 5; }, 12);
  ASSERT_EQ(seen.size(), 5u) << lab.lldpcli("show neighbors") << slurp(lab.path("agent.log"));
  EXPECT_TRUE(logHas("agent.log", "warning: no Ethernet interface 'nosuch0' here yet"));

  // What lldpd learned from us, port by port.
  std::map<std::string, json> const peerPorts = byInterface(lab.lldpcli("-f json show interfaces details"));
  for (auto const& w : dataRows(LLDP_TEST_DATA_DIR "/agent-lldpd-fields.txt")) {
    std::string const want = w.at(2)[0] == '=' ? get(peerPorts.count(w[0]) ? peerPorts.at(w[0]) : json(), w[2].substr(1)) : w[2];
    EXPECT_EQ(get(seen[w[0]], w.at(1)), want) << w[0] << "/" << w[1];
  }

  // The peer becomes a PD asking for 20.0 W on p1: our next LLDPDU echoes its request.
  lab.lldpcli("configure ports p1 dot3 power pd supported enabled powerpairs spare class class-4 type 2 source pse "
          "priority high requested 20000 allocated 0");
  EXPECT_TRUE(lab.waitFor([&] { return get(neighbours()["p1"], "port/power/requested") == "20000"; }, 8));
  EXPECT_EQ(get(neighbours()["p1"], "port/power/allocated"), "25500");

  // What we learn of the peer reaches the agent's stream on every link (how lldpd's TLVs
  // decode is compared with lldpcli and tshark in InteropTest).
  EXPECT_TRUE(lab.waitFor([&] {
    json const j = json::parse(sh(std::string(LLDP_NEIGHBORS_TOOL) + " --mirror " + lab.path("a.stream") + " --json"), nullptr, false);
    return at(j, "ports/*/neighbors/*/sysName") == json::parse(R"([["peer"], ["peer"], ["peer"], ["peer"], ["peer"]])");
  }, 10));

  // A configuration that breaks a limit, on SIGHUP: refused, the running one stays.
  lab.write("a.toml", "[lldp]\ntx-interval = 0\n");
  sh("kill -HUP " + std::to_string(agentPid));
  EXPECT_TRUE(lab.waitFor([&] { return logHas("agent.log", "configuration not reread, the running one stays: " + lab.path("a.toml") +
      ":2:15: lldp.tx-interval: CliConfig::messageTxInterval < 1 or > 32768 not allowed"); }, 2)) << slurp(lab.path("agent.log"));

  // Many management addresses and extra TLVs on SIGHUP: frames stay within the link's MTU
  // (1500 bytes with the header; maxTxFrameSize would allow 1514).
  std::string big = agentConfig + "[[port.a5.tlv]]\noui = 0xaabbcc\nsubtype = 1\ndata = \"" + std::string(800, '4') + "\"\n";
  std::string addrs = "\"2001:db8::1\"";
  for (int i = 2; i <= 64; ++i) addrs += ", \"2001:db8::" + std::to_string(i) + "\"";
  big.replace(big.find("[system]"), 8, "[system]\nmanagement-addresses = [" + addrs + "]");
  big.replace(big.find("tx-interval = 5"), 15, "tx-interval = 5\nmax-mgmt-addresses = 64");
  lab.write("a.toml", big);
  sh("kill -HUP " + std::to_string(agentPid));
  std::string mgmt;
  lab.waitFor([&] { return (mgmt = neighbours()["p5"].dump()).find("2001:db8::1") != std::string::npos; }, 8);
  EXPECT_NE(mgmt.find("2001:db8::1\""), std::string::npos) << "the first management address reached the peer: " << mgmt;
  EXPECT_EQ(mgmt.find("2001:db8::64\""), std::string::npos) << "the last one cannot fit";
  EXPECT_NE(mgmt.find("\"agent-a\""), std::string::npos);

  // Hotplug: a veth made after start is picked up; removed, it leaves the model.
  lab.link("a", "a6", "p", "p6", "02:00:00:00:0a:06");
  EXPECT_TRUE(lab.waitFor([&] { return get(neighbours()["p6"], "port/id/value") == "a6"; }, 10));
  sh("ip -n " + lab.n("a") + " link del a6");
  EXPECT_TRUE(lab.waitFor([&] { return logHas("agent.log", "a6: LLDP off"); }, 3));

  // SIGTERM: shutdown LLDPDUs, and the peer forgets us at once (our TTL is 121 s).
  sh("kill -TERM " + std::to_string(agentPid));
  EXPECT_TRUE(lab.waitFor([&] { return neighbours().empty(); }, 2)) << lab.lldpcli("show neighbors");
  EXPECT_TRUE(lab.waitFor([&] { return slurp(lab.path("agent.rc")) == "0\n"; }, 3)) << slurp(lab.path("agent.rc"));
  std::string const dump = slurp(lab.path("a.dump"));  // written at exit
  std::size_t const exceeded = dump.find("a5.txFramesLengthExceeded = ");
  ASSERT_NE(exceeded, std::string::npos) << dump;
  EXPECT_GE(std::atoi(dump.c_str() + exceeded + 28), 1);

  // tshark: every frame we sent decodes whole; none is longer than the MTU;
  // the 802.3bt body of a4 carries what the configuration says.
  sleepFor(1);  // the captures' buffers drain
  sh("kill -INT $(cat " + lab.path("cap-any.pid") + ") $(cat " + lab.path("cap-p5.pid") + ")");
  sleepFor(0.5);
  std::string const ours = "lldp.chassis.id.mac == 02:00:00:00:0a:01";
  std::string const frames = sh("tshark -r " + lab.path("any.pcap") + " -Y '" + ours + "' -T fields -e _ws.malformed 2>/dev/null");
  EXPECT_GT(std::count(frames.begin(), frames.end(), '\n'), 10);
  EXPECT_EQ(frames.find_first_not_of('\n'), std::string::npos) << "malformed frames";
  std::string const sizes = sh("tshark -r " + lab.path("p5.pcap") + " -Y '" + ours + "' -T fields -e frame.len 2>/dev/null");
  std::istringstream ls(sizes);
  int maxLen = 0;
  for (int n; ls >> n;) maxLen = std::max(maxLen, n);
  EXPECT_GT(maxLen, 1400) << sizes;
  EXPECT_LE(maxLen, 1500);  // the MTU bounds the whole frame, for lldpd's sake
  // clang-format off
  std::string const bt = sh("tshark -r " + lab.path("any.pcap") + " -Y '" + ours + " && lldp.port.id == \"a4\" && lldp.time_to_live > 0'"
    " -T fields -E separator=, -e lldp.ieee.802_3.mdi_pse_allocated -e lldp.ieee.802_3.bt_ds_pse_allocated_power_value_alt_a"
    " -e lldp.ieee.802_3.bt_ds_pse_allocated_power_value_alt_b -e lldp.ieee.802_3.bt_pse_powering_status"
    " -e lldp.ieee.802_3.bt_pse_power_pairs_ext -e lldp.ieee.802_3.bt_ds_pwr_class_ext_a -e lldp.ieee.802_3.bt_pwr_class_ext_"
    " -e lldp.ieee.802_3.bt_power_type_ext -e lldp.ieee.802_3.bt_pse_maximum_available_power_value 2>/dev/null | head -1");
  // clang-format on
  EXPECT_EQ(bt, "510,255,255,3,3,4,6,1,900\n");
}

}  // namespace
