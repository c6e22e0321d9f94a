// The transmit path: a port's complete LLDPDU with every optional TLV (basic, management
// address, port VLAN, the four 802.3 TLVs with an 802.3bt Power via MDI body, LLDP-MED
// capabilities and a network policy, an extra organizationally specific TLV), as the
// agent builds it per transmission. Heap allocations are counted by the replaced global
// operator new: the steady state must make none.
#include <benchmark/benchmark.h>

#include "Lldp/LldpPoe.h"
#include "Tools/AgentTestUtil.h"
#include "Tracing/Duolog.h"

#include "CountingAllocator.h"

namespace {

// Builds the port's LLDPDU over and over, counting the heap allocations per frame.
void timeBuilds(benchmark::State& state, AgentTest::TxModel& m, LldpTx::Frame& frame) {
  std::uint64_t const before = BenchAlloc::allocations.load();
  for (auto _ : state) {
    LldpTx::buildLldpdu(m.src, frame);
    benchmark::DoNotOptimize(frame.bytes.data());
  }
  state.counters["allocs/frame"] = benchmark::Counter(static_cast<double>(BenchAlloc::allocations.load() - before) /
                                                      static_cast<double>(state.iterations()));
}

void BM_BuildFullLldpdu(benchmark::State& state) {
  Duolog::handle("LldpPoe").levelIs(-1);
  AgentTest::TxModel m;
  LldpTx::Frame frame;
  LldpTx::buildLldpdu(m.src, frame);  // warm: first-use trace handles
  if (frame.poe != LldpTx::PoeTlv::decided || frame.dropped) state.SkipWithError("not the full frame");
  timeBuilds(state, m, frame);
  state.counters["bytes"] = static_cast<double>(frame.size);
}
BENCHMARK(BM_BuildFullLldpdu);

// The fallback path (an unpowered port), which walks the neighbour table for the largest
// request.
void BM_BuildFallbackLldpdu(benchmark::State& state) {
  Duolog::handle("LldpPoe").levelIs(-1);
  AgentTest::TxModel m;
  Power::PoePortStatus s = AgentTest::btPse();
  s.poePortStateIs(Power::PoePortState::searching);
  m.poe->poePortStatusIs(s);
  m.portConfig->poeAllocatedPowerFallbackIs(m.portConfig->poeAllocatedPowerFallbackMax());
  LldpTx::Frame frame;
  LldpTx::buildLldpdu(m.src, frame);
  timeBuilds(state, m, frame);
}
BENCHMARK(BM_BuildFallbackLldpdu);

}  // namespace
