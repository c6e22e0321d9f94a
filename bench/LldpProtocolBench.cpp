// The 802.3 protocol code per frame: parsing a received Power via MDI (802.3bt) or MAC/PHY
// TLV into a neighbour whose stored value changes or stays, and building the 802.3bt Power
// via MDI body. Argument `traced`: 0 with trace levels off, 1 with every level on (lines
// rendered to a sink that drops them). The counter `allocs` counts heap allocations per
// call; the untraced runs fail if there is any.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

#include "Lldp/Lldp.h"
#include "Lldp/LldpExtDot3Parser.h"
#include "Lldp/LldpPoe.h"
#include "Tracing/Duolog.h"

#include "CountingAllocator.h"

using BenchAlloc::allocatedBytes;
using BenchAlloc::allocations;

namespace {

using namespace Lldp;
using Lldp::Agent::Protocol::parseExtDot3Tlv;

// Sets every level of both handles on or off for one benchmark run.
class Tracing {
 public:
  explicit Tracing(benchmark::State const& state) : on_(state.range(0) != 0) {
    Duolog::sinkIs([](Duolog::Line const&) {});
    level(on_ ? Duolog::allLevels : Duolog::defaultLevel);
  }
  ~Tracing() {
    level(Duolog::defaultLevel);
    Duolog::sinkIs(nullptr);
  }
  bool on() const { return on_; }

 private:
  static void level(int l) {
    Duolog::handle("LldpExtDot3Parser").levelIs(l);
    Duolog::handle("LldpPoe").levelIs(l);
  }
  bool on_;
};

// Runs body() per iteration and reports the heap allocations per call.
template <class Body>
void measure(benchmark::State& state, Tracing const& tracing, Body&& body, bool mayAllocate = false) {
  std::uint64_t const before = allocations.load(std::memory_order_relaxed);
  for (auto _ : state) body();
  std::uint64_t const allocs = allocations.load(std::memory_order_relaxed) - before;
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(allocs), benchmark::Counter::kAvgIterations);
  if (!tracing.on() && !mayAllocate && allocs != 0) state.SkipWithError("heap allocation with tracing off");
}

RemoteSystem::Ptr neighbour(PortStatus::Ptr const& port) { return port->remoteSystemIs(1, RemoteSystem::Msap()); }

// A 29-byte 802.3bt Power via MDI TLV after its OUI and subtype, and the same with another
// power-down time, so that a change is found only after comparing every field.
std::string const btBody(
    "\x0F\x01\x05\x92\x01\x2C\x00\xFA\x01\x63\x01\x64\x00\xFF\x01\x00\xC6\x23\x02\x03\x84\x04\x00\x00\x00", 25);
std::string const btBody2 = [] {
  std::string b = btBody;
  b[24] = '\x01';  // the last field compared: the power-down time
  return b;
}();
// MAC/PHY, and the same with another operational MAU type (its last field).
std::string const macPhy("\x03\x6C\x01\x00\x10", 5), macPhy2("\x03\x6C\x01\x00\x1E", 5);

void parse(benchmark::State& state, std::string const& a, std::string const& b, int subtype) {
  Tracing const tracing(state);
  PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  RemoteSystem::Ptr const remote = neighbour(port);
  bool flip = false;
  measure(state, tracing, [&] {
    std::string const& body = (flip = !flip) ? a : b;
    benchmark::DoNotOptimize(parseExtDot3Tlv(subtype, static_cast<int>(body.size()), body.data(), remote));
  });
}

void BM_ParsePowerViaMdiBtChanging(benchmark::State& state) { parse(state, btBody, btBody2, 2); }
// A refused TLV unwinds from the read that ran past its end: the malformed-input path.
void BM_ParseTooShort(benchmark::State& state) {
  Tracing const tracing(state);
  PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  RemoteSystem::Ptr const remote = neighbour(port);
  measure(
      state, tracing, [&] { benchmark::DoNotOptimize(parseExtDot3Tlv(1, 4, macPhy.data(), remote)); }, true);
}
BENCHMARK(BM_ParseTooShort)->ArgName("traced")->Arg(0);
void BM_ParsePowerViaMdiBtSame(benchmark::State& state) { parse(state, btBody, btBody, 2); }
void BM_ParseMacPhyChanging(benchmark::State& state) { parse(state, macPhy, macPhy2, 1); }
void BM_ParseMacPhySame(benchmark::State& state) { parse(state, macPhy, macPhy, 1); }
BENCHMARK(BM_ParsePowerViaMdiBtChanging)->ArgName("traced")->Arg(0)->Arg(1);
BENCHMARK(BM_ParsePowerViaMdiBtSame)->ArgName("traced")->Arg(0)->Arg(1);
BENCHMARK(BM_ParseMacPhyChanging)->ArgName("traced")->Arg(0)->Arg(1);
BENCHMARK(BM_ParseMacPhySame)->ArgName("traced")->Arg(0)->Arg(1);

LocalPortPoeInfo::Ptr btPort(LocalSystem::Ptr const& system) {
  Platform::IntfId const intf(Kel::String("Ethernet7"));
  LocalPortPoeInfo::Ptr const info = system->localPortIs(intf)->localPortPoeInfoIs(intf);
  Power::PoePortStatus s;
  s.poePortStateIs(Power::PoePortState::powered);
  s.poweredDeviceClassIs(Power::PoweredDeviceClass::class4);
  s.grantedPowerIs(25.5);
  s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::Ieee802_3bt);
  s.psePowerPairIs(Power::PsePowerPair::signal);
  s.powerTypeIs(Power::PowerType::type1Pse);
  s.allocatedPowerAlternativeAIs(12.0);
  s.allocatedPowerAlternativeBIs(13.4);
  s.psePoweringStatusIs(Power::PsePoweringStatus::fourPairDualSignature);
  s.pseMaximumAvailablePowerIs(90.0);
  info->poePortStatusIs(s);
  return info;
}

void build(benchmark::State& state, bool echoRemote) {
  Tracing const tracing(state);
  LocalSystem::Ptr const system = localSystemFactory("local");
  LocalPortPoeInfo::Ptr const info = btPort(system);
  PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet7")), 0.0);
  RemoteSystem::Ptr const remote = neighbour(port);
  parseExtDot3Tlv(2, static_cast<int>(btBody.size()), btBody.data(), remote);
  info->remoteSystemIs(remote);
  char out[PoeUtils::maxPowerViaMdiBodyBytes];
  measure(state, tracing, [&] {
    benchmark::DoNotOptimize(PoeUtils::buildPowerViaMdiTlv(out, *info, echoRemote));
    benchmark::ClobberMemory();
  });
}

void BM_BuildPowerViaMdiBt(benchmark::State& state) { build(state, false); }
void BM_BuildPowerViaMdiBtEchoingNeighbour(benchmark::State& state) { build(state, true); }
BENCHMARK(BM_BuildPowerViaMdiBt)->ArgName("traced")->Arg(0)->Arg(1);
BENCHMARK(BM_BuildPowerViaMdiBtEchoingNeighbour)->ArgName("traced")->Arg(0)->Arg(1);

void BM_CanWeSendPowerViaMdiTlv(benchmark::State& state) {
  Tracing const tracing(state);
  LocalSystem::Ptr const system = localSystemFactory("local");
  LocalPortPoeInfo::Ptr const info = btPort(system);
  measure(state, tracing, [&] { benchmark::DoNotOptimize(PoeUtils::canWeSendPowerViaMdiTlv(*info)); });
}
BENCHMARK(BM_CanWeSendPowerViaMdiTlv)->ArgName("traced")->Arg(0)->Arg(1);

}  // namespace
