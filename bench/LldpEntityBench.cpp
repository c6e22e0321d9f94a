// The state entities on the receive path: neighbour look-ups and creation in a port with
// 100,000 neighbours, the size of a neighbour, setters with and without a change, and
// the cost in allocations of setting a system description and building an MSAP.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "Lldp/Lldp.h"

#include "CountingAllocator.h"

using BenchAlloc::allocatedBytes;
using BenchAlloc::allocations;

namespace {

using namespace Lldp;

constexpr int neighbours = 100000;

// Reports the allocations made since it was created, per iteration.
struct AllocationCounter {
  benchmark::State& state;
  std::size_t const before = allocations;
  std::size_t const bytesBefore = allocatedBytes;
  explicit AllocationCounter(benchmark::State& s) : state(s) {}
  ~AllocationCounter() {
    state.counters["allocs/op"] =
        benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
    state.counters["bytes/op"] =
        benchmark::Counter(static_cast<double>(allocatedBytes - bytesBefore), benchmark::Counter::kAvgIterations);
  }
};

// A distinct neighbour per n: its own chassis MAC, one of 48 port names.
RemoteSystem::Msap msapOf(int n) {
  char const mac[6] = {0x00, 0x1c, 0x73, static_cast<char>(n >> 16), static_cast<char>(n >> 8), static_cast<char>(n)};
  ChassisIdentifier c;
  c.chassisIdSubtypeIs(cidMacAddress);
  c.chassisIdIs(ChassisId(Kel::String(mac, sizeof mac)));
  PortIdentifier p;
  p.portIdSubtypeIs(pidInterfaceName);
  p.portIdIs(PortId(Kel::String("Ethernet" + std::to_string(n % 48 + 1))));
  RemoteSystem::Msap m;
  m.chassisIdentifierIs(std::move(c));
  m.portIdentifierIs(std::move(p));
  return m;
}

// A port holding the neighbours 1 to n in both indexes, built once per size.
struct Table {
  PortStatus::Ptr port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet1")), 0.0);
  std::vector<int> order;  // 1 to n shuffled: frames arrive from any neighbour
  std::size_t bytes = 0;   // allocated while filling it
  explicit Table(int n) {
    std::size_t const before = allocatedBytes;
    for (int i = 1; i <= n; ++i) port->remoteSystemByMsapIs(port->remoteSystemIs(i, msapOf(i)));
    bytes = allocatedBytes - before;
    for (int i = 1; i <= n; ++i) order.push_back(i);
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
  }
};
Table& table(std::int64_t n) {
  static Table big(neighbours), small(1000);
  return n == neighbours ? big : small;
}

// Look-ups in random order (as frames arrive) or in table order (the neighbours' memory
// at hand), through the entity's accessor (which hands out a reference) or the
// collection's find (which does not).
void BM_RemoteSystemByIndex(benchmark::State& state) {
  auto& t = table(state.range(0));
  auto const& port = *t.port;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(port.remoteSystem(t.order[i]));
    if (++i == t.order.size()) i = 0;
  }
}
BENCHMARK(BM_RemoteSystemByIndex)->Arg(neighbours)->Arg(1000);

void BM_RemoteSystemByIndexNoRef(benchmark::State& state) {
  auto& t = table(state.range(0));
  auto const& port = *t.port;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(port.remoteSystem().find(t.order[i]));
    if (++i == t.order.size()) i = 0;
  }
}
BENCHMARK(BM_RemoteSystemByIndexNoRef)->Arg(neighbours);

void BM_RemoteSystemByIndexSequential(benchmark::State& state) {
  auto const& port = *table(neighbours).port;
  int i = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(port.remoteSystem(i));
    if (++i > neighbours) i = 1;
  }
}
BENCHMARK(BM_RemoteSystemByIndexSequential);

void BM_RemoteSystemByMsap(benchmark::State& state) {
  auto& t = table(state.range(0));
  auto const& port = *t.port;
  std::vector<RemoteSystem::Msap> keys;
  for (int n : t.order) keys.push_back(msapOf(n));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(port.remoteSystemByMsap(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}
BENCHMARK(BM_RemoteSystemByMsap)->Arg(neighbours)->Arg(1000);

void BM_RemoteSystemByMsapNoRef(benchmark::State& state) {
  auto& t = table(state.range(0));
  auto const& port = *t.port;
  std::vector<RemoteSystem::Msap> keys;
  for (int n : t.order) keys.push_back(msapOf(n));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(port.remoteSystemByMsap().find(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}
BENCHMARK(BM_RemoteSystemByMsapNoRef)->Arg(neighbours);

void BM_RemoteSystemByMsapSequential(benchmark::State& state) {
  auto const& port = *table(neighbours).port;
  std::vector<RemoteSystem::Msap> keys;
  for (int n = 1; n <= neighbours; ++n) keys.push_back(msapOf(n));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(port.remoteSystemByMsap(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}
BENCHMARK(BM_RemoteSystemByMsapSequential);

// Learning a neighbour in a full port: both indexes. Batches of 1,000 are timed and
// removed again untimed, so the table stays at 100,000.
void BM_CreateNeighbour(benchmark::State& state) {
  constexpr int batch = 1000;
  auto& port = *table(neighbours).port;
  std::vector<RemoteSystem::Msap> fresh;
  for (int n = 0; n < batch; ++n) fresh.push_back(msapOf(neighbours + 1 + n));
  std::size_t allocs = 0;
  for (auto _ : state) {
    std::size_t const before = allocations;
    for (int n = 0; n < batch; ++n)
      port.remoteSystemByMsapIs(port.remoteSystemIs(neighbours + 1 + n, fresh[static_cast<std::size_t>(n)]));
    allocs += allocations - before;
    state.PauseTiming();
    for (int n = 0; n < batch; ++n) {
      port.remoteSystemByMsapDel(fresh[static_cast<std::size_t>(n)]);
      port.remoteSystemDel(neighbours + 1 + n);
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * batch);
  state.counters["time/neighbour"] = benchmark::Counter(static_cast<double>(state.iterations()) * batch,
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["allocs/neighbour"] =
      static_cast<double>(allocs) / (static_cast<double>(state.iterations()) * batch);
}
BENCHMARK(BM_CreateNeighbour);

// A default neighbour: its object, the heap it takes, and its share of a full table.
void BM_RemoteSystemMemory(benchmark::State& state) {
  RemoteSystem::Msap const m = msapOf(1);
  std::size_t bytes = 0, allocs = 0;
  for (auto _ : state) {
    std::size_t const before = allocatedBytes, allocsBefore = allocations;
    RemoteSystem::Ptr rs = new RemoteSystem(1, m);
    bytes = allocatedBytes - before;
    allocs = allocations - allocsBefore;
    benchmark::DoNotOptimize(rs.get());
  }
  state.counters["sizeof"] = static_cast<double>(sizeof(RemoteSystem));
  state.counters["heapBytes"] = static_cast<double>(bytes);
  state.counters["allocs"] = static_cast<double>(allocs);
  state.counters["tableBytes/neighbour"] = static_cast<double>(table(neighbours).bytes) / neighbours;
}
BENCHMARK(BM_RemoteSystemMemory);

// One observer that does as little as an observer can.
struct Counting : Kel::Entity::Notifiee {
  using Notifiee::Notifiee;
  std::size_t heard = 0;
  void onAttribute(Kel::AttributeId, Kel::AttrKey const&) override { ++heard; }
};

RemoteSystem::Ptr lonelyNeighbour() {
  static PortStatus::Ptr const port = portStatusFactory(Platform::IntfId(Kel::String("Ethernet2")), 0.0);
  return port->remoteSystemIs(1, msapOf(1));
}

BoundedString255Tlv description(char fill) {
  return BoundedString255Tlv::create(Kel::String(std::string(200, fill)));
}

// The setters that return at once: the value is the stored one.
void BM_SetterUnchangedU16(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  rs->ttlIs(120);
  std::uint16_t ttl = 120;
  AllocationCounter count(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(ttl);
    rs->ttlIs(ttl);
  }
}
BENCHMARK(BM_SetterUnchangedU16);

void BM_SetterUnchangedDouble(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  double t = 1712345678.5;
  rs->lastRefreshTimeIs(t);
  AllocationCounter count(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(t);
    rs->lastRefreshTimeIs(t);
  }
}
BENCHMARK(BM_SetterUnchangedDouble);

// A 200-byte description equal to the stored one, passed as an lvalue: the parameter
// taken by value is a copy made before the comparison.
void BM_SetterUnchangedSysDesc200(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  BoundedString255Tlv const d = description('a');
  rs->sysDescIs(d);
  AllocationCounter count(state);
  for (auto _ : state) rs->sysDescIs(d);
}
BENCHMARK(BM_SetterUnchangedSysDesc200);

// The comparison alone: what that setter would cost if it compared before copying.
void BM_SysDesc200EqualityOnly(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  BoundedString255Tlv const d = description('a');
  rs->sysDescIs(d);
  for (auto _ : state) {
    benchmark::DoNotOptimize(&d);
    benchmark::DoNotOptimize(rs->sysDesc() == d);
  }
}
BENCHMARK(BM_SysDesc200EqualityOnly);

// The setters that change the value and tell one observer.
void BM_SetterChangedU16OneObserver(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  Counting observer(rs.get());
  std::uint16_t ttl = 0;
  AllocationCounter count(state);
  for (auto _ : state) rs->ttlIs(++ttl);
  benchmark::DoNotOptimize(observer.heard);
}
BENCHMARK(BM_SetterChangedU16OneObserver);

void BM_SetterChangedDoubleOneObserver(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  Counting observer(rs.get());
  double t = 0;
  AllocationCounter count(state);
  for (auto _ : state) rs->lastRefreshTimeIs(t += 1.0);
  benchmark::DoNotOptimize(observer.heard);
}
BENCHMARK(BM_SetterChangedDoubleOneObserver);

void BM_SetterChangedU16NoObserver(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  std::uint16_t ttl = 0;
  for (auto _ : state) rs->ttlIs(++ttl);
}
BENCHMARK(BM_SetterChangedU16NoObserver);

// A 200-byte system description that alternates between two values, as the receive
// path sets it: built from the frame's bytes and moved in.
void BM_SysDesc200FromBytes(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  Kel::String const bytes[2] = {Kel::String(std::string(200, 'a')), Kel::String(std::string(200, 'b'))};
  Counting observer(rs.get());
  unsigned i = 0;
  AllocationCounter count(state);
  for (auto _ : state) rs->sysDescIs(BoundedString255Tlv::create(bytes[++i & 1]));
}
BENCHMARK(BM_SysDesc200FromBytes);

// The same two values prepared beforehand and passed as lvalues (copied into the setter).
void BM_SysDesc200Copied(benchmark::State& state) {
  auto rs = lonelyNeighbour();
  BoundedString255Tlv const d[2] = {description('a'), description('b')};
  Counting observer(rs.get());
  unsigned i = 0;
  AllocationCounter count(state);
  for (auto _ : state) rs->sysDescIs(d[++i & 1]);
}
BENCHMARK(BM_SysDesc200Copied);

// The bounded string underneath: check and store 200 bytes.
void BM_BoundedString255ValueIs200(benchmark::State& state) {
  Kel::String const bytes[2] = {Kel::String(std::string(200, 'a')), Kel::String(std::string(200, 'b'))};
  BoundedString255 s;
  unsigned i = 0;
  AllocationCounter count(state);
  for (auto _ : state) {
    s.valueIs(bytes[++i & 1]);
    benchmark::DoNotOptimize(s);
  }
}
BENCHMARK(BM_BoundedString255ValueIs200);

void BM_BoundedString255ValueIs200Moved(benchmark::State& state) {
  BoundedString255 s;
  AllocationCounter count(state);
  for (auto _ : state) {
    Kel::String bytes(std::string(200, 'a'));  // the frame's bytes, made once per frame anyway
    s.valueIs(std::move(bytes));
    benchmark::DoNotOptimize(s);
  }
}
BENCHMARK(BM_BoundedString255ValueIs200Moved);

// An MSAP built from a frame: a MAC chassis id and a port id, short (an interface name)
// or beyond the short-string buffer (a 24-byte interface alias).
void BM_MsapBuild(benchmark::State& state, PortIdSubtype subtype, std::string_view portId) {
  char const mac[6] = {0x00, 0x1c, 0x73, 0x12, 0x34, 0x56};
  AllocationCounter count(state);
  for (auto _ : state) {
    ChassisIdentifier c;
    c.chassisIdSubtypeIs(cidMacAddress);
    c.chassisIdIs(ChassisId(Kel::String(mac, sizeof mac)));
    PortIdentifier p;
    p.portIdSubtypeIs(subtype);
    p.portIdIs(PortId(Kel::String(portId)));
    RemoteSystem::Msap m;
    m.chassisIdentifierIs(std::move(c));
    m.portIdentifierIs(std::move(p));
    benchmark::DoNotOptimize(m);
  }
}
BENCHMARK_CAPTURE(BM_MsapBuild, InterfaceName, pidInterfaceName, "Ethernet12/1");
BENCHMARK_CAPTURE(BM_MsapBuild, LongInterfaceAlias, pidInterfaceAlias, "uplink-to-core-switch-01");

// Msap::chassisIdentifierIs given a prepared identifier (copied in).
void BM_MsapChassisIdentifierIs(benchmark::State& state) {
  RemoteSystem::Msap const source[2] = {msapOf(1), msapOf(2)};
  RemoteSystem::Msap m;
  unsigned i = 0;
  AllocationCounter count(state);
  for (auto _ : state) {
    m.chassisIdentifierIs(source[++i & 1].chassisIdentifier());
    benchmark::DoNotOptimize(m);
  }
}
BENCHMARK(BM_MsapChassisIdentifierIs);

}  // namespace
