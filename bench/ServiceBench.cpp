// lldp-agent's service with 1,000 ports of 8 neighbours (fed through the agent's core on
// a simulated clock) and lldp-cli's mirror on a real Unix socket, both in this thread:
// the agent's side (epoll, Service::event, Service::flush) and the client's (Mirror::poll)
// take turns. agent_cpu_ms is the thread CPU time spent on the agent's side only,
// longest_turn_ms the most of it one turn of the agent's loop took.
//   FirstCompleteTree/W/R   a client (in a thread of its own) connects to an agent whose
//                           client window is W bytes, with R other readers: until it holds
//                           the whole trees
//   ChangeLatency           one neighbour's changed LLDPDU: until the client shows it
//   SimulatedSecond/N       the core's busiest second (267 LLDPDUs in, 33 out, the ports'
//                           transmissions spread over the period) with N clients attached
//                           and reading
//   QuietSecond/N           a second without LLDPDUs (timers and ageing only), N clients
//   IdleTurn/N              one turn of the daemon's loop when nothing changed, N clients
#include <benchmark/benchmark.h>
#include <sys/epoll.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Kel/EventLog.h"
#include "Tools/RxTestUtil.h"
#include "Tracing/Duolog.h"
#include "tools/lldp-agent/Service.h"
#include "tools/lldp-cli/Client.h"

namespace {

constexpr int ports = 1000, perPort = 8, period = 30;

double threadCpu() {
  timespec ts{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

std::string neighbourFrame(int id, int version) {
  using namespace RxTest;
  return ethernet(tlv(1, bytes({4, 2, 0, id >> 16 & 0xff, id >> 8 & 0xff, id & 0xff})) + portName("eth" + std::to_string(id % 48)) +
                      ttl(120) + tlv(5, "switch-" + std::to_string(id)) +
                      tlv(6, "bench peer, version " + std::to_string(version)) + tlv(7, be16(0x14) + be16(0x14)) + end(),
                  id & 0xff);
}

struct Agent {
  std::string dir = [] {
    char d[] = "/tmp/lldp-service-bench-XXXXXX";
    return std::string(::mkdtemp(d));
  }();
  LldpAgent::Core core{LldpAgent::defaultConfig(), [](int, std::string_view) { return true; }};
  std::unique_ptr<LldpAgent::Service> service;
  int epoll = ::epoll_create1(EPOLL_CLOEXEC);
  std::vector<LldpAgent::Core::Port*> byIndex;
  std::vector<std::string> frames;
  double now = 1000, agentCpu = 0, longestTurn = 0;

  explicit Agent(std::size_t window) {
    Duolog::handle("LldpRx").levelIs(-1);
    Duolog::handle("LldpPoe").levelIs(-1);
    Kel::EventLog::sinkIs([](Kel::EventLog::Record const&) {});
    service = std::make_unique<LldpAgent::Service>(core, LldpAgent::ServiceOptions{dir, "", "", window},
                                                   [](int, std::string const&) {});
    service->open(epoll);
    for (int p = 0; p < ports; ++p) {
      LldpAgent::LinkInfo l;
      l.ifindex = p + 2;
      l.name = std::to_string(p).insert(0, 1, 'p');
      l.ethernet = l.up = true;
      l.mtu = 1500;
      // Ports that came up one after another send one after another, as on a switch.
      now = 1000 + p * (static_cast<double>(period) / ports);
      byIndex.push_back(&core.portIs(l, now));
      core.run(now);
      for (int n = 0; n < perPort; ++n) frames.push_back(neighbourFrame(p * perPort + n, 0));
    }
    now = 1000 + period;
    for (int i = 0; i < ports * perPort; ++i) core.frameIn(*byIndex[static_cast<std::size_t>(i / perPort)], frames[i], now);
  }
  ~Agent() {
    service.reset();
    ::close(epoll);
    std::system(("rm -rf " + dir).c_str());
  }

  // The daemon's loop, once, waiting up to `ms` for an event; its CPU counted.
  void turn(int ms = 0) {
    double const t0 = threadCpu();
    epoll_event ev[32];
    int n = ::epoll_wait(epoll, ev, 32, ms);
    for (int i = 0; i < n; ++i) service->event(ev[i].data.fd, ev[i].events, now);
    service->flush(now);
    longestTurn = std::max(longestTurn, threadCpu() - t0);
    agentCpu += threadCpu() - t0;
  }
  // One simulated second of the core (as AgentCoreBench), its CPU counted: the loop
  // wakes ten times, for the ports whose transmissions are due and for the frames in.
  void second(bool withFrames = true) {
    double const start = now;
    for (int step = 1; step <= 10; ++step) {
      double const t0 = threadCpu();
      now = start + step / 10.0;
      for (int i = static_cast<int>(start) % period + period * (step - 1); withFrames && i < ports * perPort; i += period * 10)
        core.frameIn(*byIndex[static_cast<std::size_t>(i / perPort)], frames[static_cast<std::size_t>(i)], now);
      core.run(now);
      agentCpu += threadCpu() - t0;
      turn();
    }
    now = start + 1;
  }
  std::unique_ptr<LldpCli::Mirror> connect() {
    auto m = std::make_unique<LldpCli::Mirror>(dir);
    while (!m->synced()) {
      turn();
      m->poll(0);
    }
    return m;
  }
};

Agent& agent(std::size_t window = 256 * 1024) {
  static std::map<std::size_t, std::unique_ptr<Agent>> agents;
  auto& a = agents[window];
  if (!a) a = std::make_unique<Agent>(window);
  return *a;
}

// The client in a thread of its own, as a process of its own would be: the agent's work
// and the client's may overlap.
void BM_ServiceFirstCompleteTree(benchmark::State& state) {
  Agent& a = agent(static_cast<std::size_t>(state.range(0)));
  // With another reader attached, the stream is open: the new one gets a snapshot.
  std::unique_ptr<LldpCli::Mirror> other = state.range(1) ? a.connect() : nullptr;
  a.agentCpu = a.longestTurn = 0;
  std::size_t neighbours = 0;
  double clientCpu = 0;
  for (auto _ : state) {
    std::atomic<bool> done{false};
    std::thread client([&] {
      double const t0 = threadCpu();
      LldpCli::Mirror m(a.dir);
      m.sync(60);
      neighbours = 0;
      for (auto it = m.status()->portStatus().begin(); it; ++it) neighbours += it->remoteSystem().size();
      clientCpu += threadCpu() - t0;
      done = true;
    });
    while (!done) a.turn(1);
    client.join();
    state.PauseTiming();
    a.turn();  // the agent notices the client left
    state.ResumeTiming();
  }
  state.counters["neighbours"] = static_cast<double>(neighbours);
  state.counters["agent_cpu_ms"] = a.agentCpu * 1e3 / static_cast<double>(state.iterations());
  state.counters["client_cpu_ms"] = clientCpu * 1e3 / static_cast<double>(state.iterations());
  // How long the agent's loop was held at once: the others wait that long.
  state.counters["longest_turn_ms"] = a.longestTurn * 1e3;
  other.reset();
  a.turn();
}
BENCHMARK(BM_ServiceFirstCompleteTree)->Args({256 * 1024, 0})->Args({2048, 0})->Args({256 * 1024, 1})->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_ServiceChangeLatency(benchmark::State& state) {
  Agent& a = agent();
  auto m = a.connect();
  auto& port = *a.byIndex[0];
  port.config->rxRateLimitingEnabledIs(false);  // one neighbour changing as fast as it can
  Platform::IntfId const id = port.rx->status()->intfId();
  int version = 0;
  a.agentCpu = 0;
  for (auto _ : state) {
    std::string const frame = neighbourFrame(0, ++version);
    double const t0 = threadCpu();
    a.core.frameIn(port, frame, a.now);
    a.agentCpu += threadCpu() - t0;
    std::string const want = "bench peer, version " + std::to_string(version);
    for (int turns = 0;; ++turns) {
      if (turns == 100000) return state.SkipWithError("the change never reached the client");
      a.turn();
      m->poll(0);
      bool seen = false;
      if (auto ps = m->status()->portStatus(id))
        for (auto r = ps->remoteSystem().begin(); r && !seen; ++r) seen = r->sysDesc().value().value().stdString() == want;
      if (seen) break;
    }
  }
  state.counters["agent_cpu_us"] = a.agentCpu * 1e6 / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ServiceChangeLatency)->Unit(benchmark::kMicrosecond);

void simulatedSeconds(benchmark::State& state, bool withFrames) {
  Agent& a = agent();
  std::vector<std::unique_ptr<LldpCli::Mirror>> clients;
  for (int i = 0; i < state.range(0); ++i) clients.push_back(a.connect());
  if (!withFrames) {
    // Every neighbour fresh, so that none ages out within the quiet seconds.
    for (int i = 0; i < ports * perPort; ++i) a.core.frameIn(*a.byIndex[static_cast<std::size_t>(i / perPort)], a.frames[static_cast<std::size_t>(i)], a.now);
    a.turn();
    for (auto& c : clients) c->poll(0);
  }
  a.agentCpu = 0;
  for (auto _ : state) {
    a.second(withFrames);
    state.PauseTiming();
    for (auto& c : clients) c->poll(0);  // the clients read, off the clock
    state.ResumeTiming();
  }
  state.counters["agent_cpu_ms"] = a.agentCpu * 1e3 / static_cast<double>(state.iterations());
  clients.clear();
  a.turn();
}
void BM_ServiceSimulatedSecond(benchmark::State& state) { simulatedSeconds(state, true); }
void BM_ServiceQuietSecond(benchmark::State& state) { simulatedSeconds(state, false); }
BENCHMARK(BM_ServiceSimulatedSecond)->Arg(0)->Arg(10)->Unit(benchmark::kMillisecond);
// Fewer seconds than a TTL after a refresh of every neighbour: none ages out meanwhile.
void BM_ServiceIdleTurn(benchmark::State& state) {
  Agent& a = agent();
  std::vector<std::unique_ptr<LldpCli::Mirror>> clients;
  for (int i = 0; i < state.range(0); ++i) clients.push_back(a.connect());
  a.turn();
  for (auto _ : state) a.turn();
  clients.clear();
  a.turn();
}
BENCHMARK(BM_ServiceIdleTurn)->Arg(0)->Arg(10)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ServiceQuietSecond)->Arg(0)->Arg(1)->Arg(10)->Iterations(60)->Unit(benchmark::kMicrosecond);

}  // namespace
