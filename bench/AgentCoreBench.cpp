// The agent's core without sockets, on a simulated clock: 1,000 ports with 8 neighbours
// each, every neighbour refreshing and every port sending every 30 s. One iteration is
// one simulated second (about 267 received LLDPDUs, 33 built and sent, the tables aged);
// its time is the CPU the agent needs per second of real time at that scale. The memory
// a neighbour costs (heap in use after the tables filled, per neighbour) is a counter.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstring>
#include <string>
#include <vector>

#include "Kel/EventLog.h"
#include "Tools/AgentTestUtil.h"
#include "Tracing/Duolog.h"
#include "tools/lldp-agent/Core.h"

#include "CountingAllocator.h"

namespace {

constexpr int ports = 1000, perPort = 8, period = 30;

struct Sim {
  LldpAgent::Core core{LldpAgent::defaultConfig(), [this](int, std::string_view) { return ++sent, true; }};
  std::vector<std::string> frames;  // per neighbour (port * perPort + n)
  std::vector<LldpAgent::Core::Port*> byIndex;
  std::uint64_t sent = 0;
  double now = 0;
  double bytesPerNeighbour = 0;

  Sim() {
    Duolog::handle("LldpRx").levelIs(-1);
    Duolog::handle("LldpPoe").levelIs(-1);
    Kel::EventLog::sinkIs([](Kel::EventLog::Record const&) {});
    // A neighbour's LLDPDU: the transmit path's full frame, its chassis MAC made unique.
    AgentTest::TxModel m;
    LldpTx::Frame f;
    LldpTx::buildLldpdu(m.src, f);
    LldpAgent::HostView host;
    for (int p = 0; p < ports; ++p) {
      LldpAgent::LinkInfo l;
      l.ifindex = p + 2;
      l.name = std::to_string(p).insert(0, 1, 'p');
      l.ethernet = l.up = true;
      l.mtu = 1500;
      l.mac = {0x02, 0, 0, 0, static_cast<std::uint8_t>(p >> 8), static_cast<std::uint8_t>(p)};
      host.links.push_back(l);
      byIndex.push_back(&core.portIs(l, now));
      for (int n = 0; n < perPort; ++n) {
        std::string fr(f.view());
        int const id = p * perPort + n;
        fr[17 + 3] = static_cast<char>(id >> 16), fr[17 + 4] = static_cast<char>(id >> 8), fr[17 + 5] = static_cast<char>(id);
        frames.push_back(fr);
      }
    }
    host.hostName = "bench";
    core.hostIs(host, now);
    auto const heap = [] { return static_cast<double>(mallinfo2().uordblks); };
    double const before = heap();
    for (int s = 0; s < period; ++s) second();  // every neighbour in, fast start over
    bytesPerNeighbour = (heap() - before) / (ports * perPort);
  }

  // One simulated second: the neighbours due send, the agent sends what is due.
  void second() {
    for (int i = static_cast<int>(now) % period; i < ports * perPort; i += period)
      core.frameIn(*byIndex[static_cast<std::size_t>(i / perPort)], frames[static_cast<std::size_t>(i)], now + 0.5);
    core.run(now + 0.5);
    now += 1;
    core.run(now);
  }
};

void BM_AgentCoreSimulatedSecond(benchmark::State& state) {
  static Sim sim;
  std::uint64_t const sentBefore = sim.sent;
  for (auto _ : state) sim.second();
  std::size_t neighbours = 0;
  for (auto it = sim.core.status()->portStatus().begin(); it; ++it) neighbours += it->remoteSystem().size();
  state.counters["neighbours"] = static_cast<double>(neighbours);
  state.counters["sent/s"] = static_cast<double>(sim.sent - sentBefore) / static_cast<double>(state.iterations());
  state.counters["heap/neighbour"] = sim.bytesPerNeighbour;
}
BENCHMARK(BM_AgentCoreSimulatedSecond)->Unit(benchmark::kMillisecond);

}  // namespace
