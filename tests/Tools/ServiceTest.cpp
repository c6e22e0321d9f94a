// lldp-agent's service: requests on the configuration socket as the agent reads them,
// then agents and lldp-cli clients in network namespaces.
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <nlohmann/json.hpp>

#include "tests/Lldp/ModelSupport.h"
#include "tests/Tools/AgentTestUtil.h"
#include "tests/Tools/RxTestUtil.h"
#include "tools/LldpRx/LldpRx.h"
#include "tools/lldp-agent/Service.h"
#include "tools/lldp-cli/Client.h"

namespace {

using namespace AgentTest;
using json = nlohmann::json;

std::string streamed(std::vector<Kel::Ptr<Kel::Entity>> const& roots) {
  std::string bytes;
  Kel::NboAttrLog::Stream out([&](const char* d, std::size_t n) {
    bytes.append(d, n);
    return n;
  });
  for (auto const& r : roots) out.streamRoot(r);
  out.continueFlowOut();
  return bytes;
}

TEST(ServiceTest, RequestsAsTheAgentReadsThem) {
  char dir[] = "/tmp/lldp-service-XXXXXX";
  std::string const op = std::string(::mkdtemp(dir)) + "/op";
  LldpAgent::Core core{LldpAgent::defaultConfig(), [](int, std::string_view) { return true; }};
  LldpAgent::Service service{core, {"", op, "", 4096}, [](int, std::string const&) {}};
  ucred const root{1, 0, 0};
  auto cli = [](std::uint32_t interval, std::uint32_t hold) {
    auto c = Lldp::cliConfigFactory("t");
    try {
      c->messageTxIntervalIs(interval);
      c->messageTxHoldTimeIs(hold);
    } catch (Kel::RangeException const&) {  // stored anyway; the agent refuses it
    }
    return streamed({c});
  };
  std::string const good = cli(5, 20);
  struct Case {
    const char* what;
    std::string bytes;
    std::string error;  // "" applied; the running interval stays 5 either way
    bool corrupt;
  };
  std::vector<Case> const cases = {
      {"accepted", good, "", false},
      {"interval 0", cli(0, 20), "CliConfig::messageTxInterval < 1 or > 32768 not allowed", false},
      {"another type", streamed({Lldp::statusFactory("x")}), "a stream of Lldp::Status, not a configuration request", true},
      {"cut mid-record", cli(9, 20).substr(0, good.size() - 3), "the request ends inside a record", true},
      {"empty", "", "an empty request", true},
      {"length over the limit", std::string("\x7f\xff\xff\xff", 4) + "xxxxxxxxxx",
       "attribute log: a record of 2147483647 bytes is over the 1048576-byte limit", true},
  };
  for (auto const& c : cases) {
    bool corrupt = false;
    EXPECT_EQ(service.request(c.bytes, root, 100, corrupt), c.error) << c.what;
    EXPECT_EQ(corrupt, c.corrupt) << c.what;
    EXPECT_EQ(core.effective()->messageTxInterval(), 5u) << c.what;
  }
  // Kept as accepted, and read back as such at start; a file that is not one is refused,
  // never taken for the defaults.
  auto saved = LldpAgent::Service::loadOperator(op);
  ASSERT_TRUE(saved);
  EXPECT_EQ(std::make_pair(saved->messageTxInterval(), saved->messageTxHoldTime()), std::make_pair(5u, 20u));
  sh("head -c 20 " + op + " > " + op + ".cut");
  EXPECT_THROW(LldpAgent::Service::loadOperator(op + ".cut"), LldpAgent::ConfigError);
  EXPECT_FALSE(LldpAgent::Service::loadOperator(op + ".none"));
  sh(std::string("rm -rf ") + dir);
}

// A reader that missed changes (a neighbour gone, one renamed, one added), or one that
// joins late, is rebuilt by a snapshot; the stream's later records then apply to it.
TEST(ServiceTest, ASnapshotRebuildsAReaderThatMissedChanges) {
  auto status = Lldp::statusFactory(Kel::Name("s"));
  auto port = status->portStatusIs(Platform::IntfId(Kel::String("e1")), 1.0);
  auto learn = [&](int i, std::string const& name) {
    Lldp::BoundedString255Tlv t;
    t.valueIs(Lldp::BoundedString255(Kel::String(name)));
    port->remoteSystemIs(i, LldpTest::msapOf(i))->sysNameIs(t);
  };
  std::string log;
  Kel::Ptr<Kel::NboAttrLog::Stream> master(new Kel::NboAttrLog::Stream([&](const char* d, std::size_t n) {
    log.append(d, n);
    return n;
  }));
  for (int i = 1; i <= 3; ++i) learn(i, "old");
  master->streamRoot(status);
  std::string const seen = log;
  port->remoteSystemDel(1), learn(2, "renamed"), learn(4, "added");
  master->continueFlowOut();
  std::string const snapshot = master->snapshot(), before = log;
  port->remoteSystemDel(3), learn(4, "renamed"), learn(5, "added");
  master->continueFlowOut();
  for (std::string const& missed : {seen, std::string()}) {
    Kel::Ptr<Kel::NboAttrLog::Stream> reader(new Kel::NboAttrLog::Stream());
    std::string const bytes = missed + snapshot + log.substr(before.size());
    reader->apply(bytes.data(), bytes.size());
    ASSERT_EQ(reader->roots().size(), 1u);
    EXPECT_EQ(LldpRx::treeText(dynamic_cast<Lldp::Status&>(*reader->roots()[0])), LldpRx::treeText(*status));
  }
}

// ---- in network namespaces

struct ServiceLab : Lab {
  ServiceLab() : Lab({"ip"}) {}
  std::string dir(std::string const& agent) const { return path(agent + "-sock"); }
  void agent(std::string const& name, std::string const& ns, std::string const& args) const {
    spawn(ns, name, std::string(LLDP_AGENT_TOOL) + " --socket-dir " + dir(name) + " --operator-config " + path(name + ".op") +
                        " " + args);
  }
  // lldp-cli against agent `name`; its exit code in *rc.
  std::string cli(std::string const& name, std::string const& args, int* rc = nullptr, std::string const& as = "") const {
    std::string cmd = std::string(LLDP_CLI_TOOL) + " --socket-dir " + dir(name) + " " + args + " 2>&1";
    if (!as.empty()) cmd = "su " + as + " -s /bin/sh -c '" + cmd + "'";
    int st = 0;
    std::string out = sh(cmd, &st);
    if (rc) *rc = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return out;
  }
};

TEST(ServiceTest, ConfigurationThroughOneClientReachesTheOthersAndThePeer) {
  ServiceLab lab;
  if (!lab.skip.empty()) GTEST_SKIP() << lab.skip;
  ASSERT_TRUE(lab.ns("a") && lab.ns("b"));
  lab.link("a", "a1", "b", "b1", "02:00:00:00:0c:01");
  lab.agent("a", "a", "a1");
  lab.agent("b", "b", "b1");
  auto peerTtl = [&] {
    json const j = json::parse(lab.cli("b", "show neighbors --json"), nullptr, false);
    return j.is_object() ? j.value("/ports/0/neighbors/0/ttl"_json_pointer, 0) : 0;
  };
  ASSERT_TRUE(lab.waitFor([&] { return peerTtl() == 121; }, 10)) << lab.cli("b", "show neighbors");
  // A configuring client that never sends its request is let go after 10 s, meanwhile
  // everyone else is served.
  sh("python3 -c 'import socket,time;s=socket.socket(socket.AF_UNIX);s.connect(\"" + lab.dir("a") +
     "/config.sock\");t=time.time();s.settimeout(30);s.recv(1);print(round(time.time()-t))' >" + lab.path("silent") + " 2>&1 &");

  for (auto const& s : dataRows(LLDP_TEST_DATA_DIR "/lldp-cli-steps.txt")) {
    int rc = -1;
    EXPECT_EQ(lab.cli("a", s.at(0), &rc), s.at(2)) << s[0];
    EXPECT_EQ(rc, std::stoi(s.at(1))) << s[0];
  }
  // Another client sees it; the peer within one (new) transmit interval: hold time 20 at
  // interval 5, a multiplier of 4, a TTL of 4 x 5 + 1.
  std::string const shown = lab.cli("a", "show configuration");
  EXPECT_NE(shown.find("txInterval: 5\n"), std::string::npos) << shown;
  EXPECT_NE(shown.find("poeFallback: 12.5 W\n"), std::string::npos) << shown;
  EXPECT_NE(shown.find("managementAddress: best\n"), std::string::npos) << shown;
  EXPECT_TRUE(lab.waitFor([&] { return peerTtl() == 21; }, 5)) << lab.cli("b", "show neighbors");

  // Anyone may look; only root (or the configured group) may change anything.
  sh("chmod 755 " + lab.work);
  int rc = -1;
  EXPECT_NE(lab.cli("a", "show interfaces", &rc, "nobody").find("a1"), std::string::npos);
  EXPECT_EQ(rc, 0);
  for (std::string const cmd : {"configure tx-interval 9", "clear neighbors", "clear counters"}) {
    EXPECT_EQ(lab.cli("a", cmd, &rc, "nobody"), "lldp-cli: permission denied: configuring and clearing need root\n") << cmd;
    EXPECT_EQ(rc, 1) << cmd;
  }

  // A watching client hears of a neighbour that goes.
  sh(std::string(LLDP_CLI_TOOL) + " --socket-dir " + lab.dir("b") + " watch neighbors >" + lab.path("watch") +
     " 2>&1 & echo $! >" + lab.path("watch.pid"));
  ASSERT_TRUE(lab.waitFor([&] { return slurp(lab.path("watch")).find("b1") != std::string::npos; }, 5));
  EXPECT_EQ(lab.cli("b", "clear neighbors"), "");
  EXPECT_TRUE(lab.waitFor([&] { return slurp(lab.path("watch")).find(" removed ") != std::string::npos; }, 5))
      << slurp(lab.path("watch"));
  sh("kill $(cat " + lab.path("watch.pid") + ")");
  ASSERT_TRUE(lab.waitFor([&] { return !slurp(lab.path("silent")).empty(); }, 15));
  EXPECT_TRUE(slurp(lab.path("silent")) == "10\n" || slurp(lab.path("silent")) == "11\n") << slurp(lab.path("silent"));

  // kill -9 while changes are being saved: after a restart the configuration is one of
  // the two written, whole.
  for (int round = 0; round < 3; ++round) {
    sh("(while :; do " + std::string(LLDP_CLI_TOOL) + " --socket-dir " + lab.dir("a") +
           " configure tx-interval 7 hold-time 28 >/dev/null 2>&1; " + LLDP_CLI_TOOL + " --socket-dir " + lab.dir("a") +
           " configure tx-interval 5 hold-time 20 >/dev/null 2>&1; done) >/dev/null 2>&1 & echo $! > " + lab.path("loop.pid"));
    sleepFor(0.5 + 0.3 * round);
    sh("kill -9 $(cat " + lab.path("a.pid") + "); kill $(cat " + lab.path("loop.pid") + ")");
    sleepFor(0.2);
    lab.agent("a", "a", "a1");
    std::string cfg;
    ASSERT_TRUE(lab.waitFor([&] { return (cfg = lab.cli("a", "show configuration --json")).find('{') == 0; }, 5))
        << cfg << slurp(lab.path("a.log"));
    json const j = json::parse(cfg);
    std::pair<int, int> const got{j["txInterval"], j["holdTime"]};
    EXPECT_TRUE(got == std::make_pair(7, 28) || got == std::make_pair(5, 20)) << cfg;
  }
}

// A port's neighbours as a remote peer sends them: neighbour n on port p, version v.
std::string neighbourFrame(int p, int n, int v) {
  using namespace RxTest;
  std::string const name = "peer-" + std::to_string(p) + "-" + std::to_string(n);
  return ethernet(chassisMac(p * 16 + n) + portName("n" + std::to_string(n)) + ttl(120) + tlv(5, name) +
                      tlv(6, "version " + std::to_string(v) + " " + std::string(200, 'x')) + end(),
                  p * 16 + n);
}

// Trees larger than a chunk go to readers as they take them, while neighbours change:
// every reader ends equal to the agent.
TEST(ServiceTest, ReadersOfTheTreesAsTheyAreWrittenEndEqualToTheAgent) {
  char dir[] = "/tmp/lldp-service-XXXXXX";
  std::string const sock = ::mkdtemp(dir);
  LldpAgent::Core core{LldpAgent::defaultConfig(), [](int, std::string_view) { return true; }};
  LldpAgent::Service service{core, {sock, "", "", 4096}, [](int, std::string const&) {}};
  int const epoll = ::epoll_create1(EPOLL_CLOEXEC);
  service.open(epoll);
  std::vector<LldpAgent::Core::Port*> ports;
  for (int p = 0; p < 40; ++p) {
    LldpAgent::LinkInfo l;
    l.ifindex = p + 2, l.name = "p" + std::to_string(p), l.ethernet = l.up = true, l.mtu = 1500;
    ports.push_back(&core.portIs(l, 1000));
  }
  auto learn = [&](int v) {
    for (int i = 0; i < 320; ++i) core.frameIn(*ports[i / 8u], neighbourFrame(i / 8, i % 8 + 1, v), 1000 + v);
  };
  learn(0);
  std::vector<std::unique_ptr<LldpCli::Mirror>> readers;
  readers.push_back(std::make_unique<LldpCli::Mirror>(sock));
  for (int turn = 0; turn < 400; ++turn) {
    epoll_event ev[8];
    for (int i = 0, n = ::epoll_wait(epoll, ev, 8, 0); i < n; ++i) service.event(ev[i].data.fd, ev[i].events, 1001);
    service.flush(1001);
    for (auto& r : readers) r->poll(0);
    // One joins while the first trees are written, one after, each while neighbours change.
    if (turn == 2 || turn == 150) learn(turn), readers.push_back(std::make_unique<LldpCli::Mirror>(sock));
    if (turn == 160) learn(turn);
  }
  for (auto& r : readers) {
    ASSERT_TRUE(r->synced() && r->status());
    EXPECT_EQ(LldpRx::treeText(*r->status()), LldpRx::treeText(*core.status()));
  }
  readers.clear();
  ::close(epoll);
  sh(std::string("rm -rf ") + dir);
}

TEST(ServiceTest, AStoppedClientCatchesUpWithoutHoldingTheOthers) {
  ServiceLab lab;
  if (!lab.skip.empty()) GTEST_SKIP() << lab.skip;
  ASSERT_TRUE(lab.ns("a"));
  // The agent's ports in its namespace, their peers here, where the test sends from. CI runs
  // 4 ports; LLDP_SERVICE_PORTS=1000 runs the full size.
  int const ports = std::getenv("LLDP_SERVICE_PORTS") ? std::atoi(std::getenv("LLDP_SERVICE_PORTS")) : 4, perPort = 8;
  std::vector<int> fds;
  for (int p = 0; p < ports; ++p) {
    std::string const here = "sv" + std::to_string(::getpid() % 10000) + "x" + std::to_string(p);
    sh("ip link add " + here + " type veth peer name a" + std::to_string(p) + " netns " + lab.n("a") + " && ip link set " +
           here + " up && ip -n " + lab.n("a") + " link set a" + std::to_string(p) + " up");
    int fd = ::socket(AF_PACKET, SOCK_RAW, 0);
    sockaddr_ll sll{};
    sll.sll_family = AF_PACKET;
    sll.sll_ifindex = static_cast<int>(::if_nametoindex(here.c_str()));
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&sll), sizeof sll), 0) << here;
    fds.push_back(fd);
  }
  // A window the stopped client's changes overrun, so that they are held as dirty attributes
  // (at full size the default's).
  lab.agent("a", "a", (ports > 100 ? "" : "--client-window 2048 ") + std::string("a\\*"));
  auto sendAll = [&](int v) {
    for (int i = 0; i < ports * perPort; ++i) {
      std::string const f = neighbourFrame(i / perPort, i % perPort + 1, v);
      ::send(fds[static_cast<std::size_t>(i / perPort)], f.data(), f.size(), 0);
    }
  };
  ASSERT_TRUE(lab.waitFor([&] { return ::access((lab.dir("a") + "/state.sock").c_str(), F_OK) == 0; }, 5));

  // Ten clients, each a process that mirrors the agent and, on SIGUSR1, writes its tree.
  // An agent with a thousand links takes a while to start on a busy machine.
  int const patience = ports > 100 ? 60 : 10;
  std::vector<pid_t> clients;
  for (int i = 0; i < 10; ++i) {
    pid_t pid = ::fork();
    if (pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test killed on its timeout takes its clients along
      sigset_t set;
      sigemptyset(&set);
      sigaddset(&set, SIGUSR1);
      ::sigprocmask(SIG_BLOCK, &set, nullptr);
      LldpCli::Mirror m(lab.dir("a"));
      m.sync(patience);
      std::ofstream(lab.path("client" + std::to_string(i) + ".ready")) << "ready";
      timespec zero{};
      while (::sigtimedwait(&set, nullptr, &zero) < 0) m.poll(50);
      // Until the agent has been quiet for half a second.
      for (pollfd q{m.fd(), POLLIN, 0}; ::poll(&q, 1, 500) > 0 && m.poll(0);) {
      }
      std::ofstream(lab.path("client" + std::to_string(i) + ".tree")) << LldpRx::treeText(*m.status());
      ::_exit(0);
    }
    clients.push_back(pid);
  }
  for (int i = 0; i < 10; ++i)
    ASSERT_TRUE(lab.waitFor([&] { return !slurp(lab.path("client" + std::to_string(i) + ".ready")).empty(); }, patience));

  ::kill(clients[0], SIGSTOP);
  // Ten seconds of changes; the rate limit (32 frames per 5 s per port) lets each
  // neighbour change every 2 seconds.
  for (int v = 1; v <= 5; ++v) {
    sendAll(v);
    sleepFor(1);
    // The agent carries on meanwhile, for clients old and new.
    EXPECT_NE(lab.cli("a", "show neighbors --detail").find("version " + std::to_string(v)), std::string::npos) << v;
    sleepFor(1);
  }
  ::kill(clients[0], SIGCONT);
  sleepFor(1);
  for (pid_t c : clients) ::kill(c, SIGUSR1);
  for (pid_t c : clients) ::waitpid(c, nullptr, 0);

  LldpCli::Mirror fresh(lab.dir("a"));
  fresh.sync(10);
  std::string const want = LldpRx::treeText(*fresh.status());
  EXPECT_NE(want.find("version 5"), std::string::npos);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(slurp(lab.path("client" + std::to_string(i) + ".tree")), want) << "client " << i;
  for (int fd : fds) ::close(fd);
}

}  // namespace
