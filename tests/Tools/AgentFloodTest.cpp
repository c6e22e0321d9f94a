// A neighbour floods the agent's port for 10 seconds with malformed, oversize and valid
// LLDPDUs from thousands of MSAPs while lldpd talks on the same link: the agent's memory
// stays bounded, its tables stay within their limit, and the peer's LLDPDUs still get in.
#include <gtest/gtest.h>

#include "Tools/AgentTestUtil.h"

namespace {

using namespace AgentTest;

long rssKb(int pid) {
  std::istringstream f(slurp("/proc/" + std::to_string(pid) + "/status"));
  for (std::string line; std::getline(f, line);)
    if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
  return -1;
}

// "path.name = value" lines of the agent's dump.
std::string value(std::string const& dump, std::string const& key) {
  auto at = dump.find(key + " = ");
  if (at == std::string::npos) return "";
  at += key.size() + 3;
  return dump.substr(at, dump.find('\n', at) - at);
}

// 70% valid LLDPDUs from 5000 MSAPs, 25% malformed, 5% of 12 kB; prints what it sent.
std::string const flooder = R"(
import socket, struct, sys, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
s.bind((sys.argv[1], 0))
tlv = lambda t, v: struct.pack('!H', (t << 9) | len(v)) + v
n, end, i = [0, 0, 0], time.time() + float(sys.argv[2]), 0
while time.time() < end:
    i += 1
    k, mac = i % 100, struct.pack('!HI', 0x0200, i % 5000)
    head = bytes.fromhex('0180c200000e') + mac + b'\x88\xcc' + tlv(1, b'\x04' + mac)
    what = 0 if k < 70 else 1 if k < 95 else 2
    f = [head + tlv(2, b'\x05eth0') + tlv(3, b'\x00\x78') + tlv(0, b''), head + b'\x04\xffxx', head + b'\x00' * 12000][what]
    try:
        n[what] += s.send(f) > 0
    except OSError:
        pass
print(*n)
)";

TEST(AgentFloodTest, AFloodChangesOnlyCountersAndBoundedTables) {
  Lab lab({"ip", "lldpd", "lldpcli", "python3"});
  if (!lab.skip.empty()) GTEST_SKIP() << lab.skip;
  ASSERT_TRUE(lab.ns("a") && lab.ns("p"));
  lab.link("a", "a1", "p", "p1", "02:00:00:00:0a:01");
  sh("ip -n " + lab.n("a") + " link set a1 mtu 16000 && ip -n " + lab.n("p") + " link set p1 mtu 16000");
  // A TTL of 30 s outlives the flood: while the port's receive rate limit holds, the peer's
  // frames are dropped with the flood's, and its entry must not age out meanwhile.
  lab.lldpd("p1", "configure lldp tx-interval 1\nconfigure lldp tx-hold 30\nconfigure system hostname peer\n");
  lab.write("flood.py", flooder);
  lab.spawn("a", "agent", std::string(LLDP_AGENT_TOOL) + " --socket-dir= --operator-config= --dump " + lab.path("dump") + " a1");
  int const pid = lab.pid("agent");
  ASSERT_GT(pid, 0);
  lab.waitFor([&] { return slurp(lab.path("agent.log")).find("running on") != std::string::npos; }, 10);
  auto dump = [&] {
    std::remove(lab.path("dump").c_str());
    sh("kill -USR1 " + std::to_string(pid));
    lab.waitFor([&] { return !slurp(lab.path("dump")).empty(); }, 3);
    return slurp(lab.path("dump"));
  };
  std::string d;
  ASSERT_TRUE(lab.waitFor([&] { return (d = dump()).find("'peer'") != std::string::npos; }, 10)) << "the agent never learned lldpd";
  long const rssBefore = rssKb(pid);

  lab.spawn("p", "flood", "python3 " + lab.path("flood.py") + " p1 10");
  long rssMax = rssBefore;
  for (int i = 0; i < 200 && slurp(lab.path("flood.rc")).empty(); ++i) {
    sleepFor(0.1);
    rssMax = std::max(rssMax, rssKb(pid));
  }
  double const floodEnd = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  ASSERT_EQ(slurp(lab.path("flood.rc")), "0\n") << slurp(lab.path("flood.log"));
  sleepFor(6);  // the rate limit's 5-second period passes; lldpd sends every second
  d = dump();
  std::istringstream sent(slurp(lab.path("flood.log")));
  long valid = 0, malformed = 0, oversize = 0;
  sent >> valid >> malformed >> oversize;
  EXPECT_GT(valid + malformed + oversize, 10000) << valid << " valid, " << malformed << " malformed, " << oversize << " oversize";
  EXPECT_LT(rssMax - rssBefore, 16 * 1024) << "the agent's memory grew by more than 16 MB";
  // At most maxRemoteSystems (16) neighbours, and lldpd among them, refreshed after the flood.
  auto const list = value(d, "lldp-agent/a1.remoteSystem");
  EXPECT_LE(std::count(list.begin(), list.end(), ',') + 1, 16) << list;
  auto const at = d.find("'peer'");
  ASSERT_NE(at, std::string::npos);
  std::string const prefix = d.substr(d.rfind('\n', at) + 1, d.find(".sysName", d.rfind('\n', at)) - d.rfind('\n', at) - 1);
  EXPECT_GT(std::atof(value(d, prefix + ".lastRefreshTime").c_str()), floodEnd) << prefix;
  // And the agent kept sending: lldpd still has it.
  EXPECT_NE(lab.lldpcli("show neighbors").find("ChassisID:    mac 02:00:00:00:0a:01"), std::string::npos);
}

}  // namespace
