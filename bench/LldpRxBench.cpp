// The receive path on a real frame: the 408-byte LLDPDU of ../shared/captures/8023bt.pcap
// (13 TLVs, Power via MDI in the 802.3bt form) as a neighbour repeats it, as it changes one
// TLV, as a new neighbour sends it, and as a capture of a million such frames from ten
// thousand neighbours is read through libpcap. Heap allocations are counted by the
// replaced global operator new.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>

#include "Kel/EventLog.h"
#include "tools/LldpRx/LldpRx.h"
#include "tools/lldp-neighbors/Capture.h"
#include "tools/lldp-neighbors/Tool.h"

#include "CountingAllocator.h"

using BenchAlloc::allocatedBytes;
using BenchAlloc::allocations;

namespace {

#ifndef LLDP_CAPTURES_DIR
#define LLDP_CAPTURES_DIR "../shared/captures"
#endif

std::string const captures = std::filesystem::exists(LLDP_CAPTURES_DIR) ? LLDP_CAPTURES_DIR : "../shared/captures";

// The frame of 8023bt.pcap, or empty when the capture is not there.
std::string const& realFrame() {
  static std::string const frame = [] {
    try {
      auto source = LldpNeighbors::FrameSource::file(captures + "/8023bt.pcap");
      std::string_view f;
      double t;
      if (source->next(f, t) == LldpNeighbors::FrameSource::Next::frame) return std::string(f);
    } catch (std::exception const&) {
    }
    return std::string();
  }();
  return frame;
}

// Where the PSE allocated power of the frame's Power via MDI TLV sits (found by walking
// its TLVs to OUI 00-12-0F subtype 2), and where the chassis MAC ends.
std::size_t allocatedPowerOffset(std::string const& f) {
  for (std::size_t at = 14; at + 2 <= f.size();) {
    auto const* p = reinterpret_cast<unsigned char const*>(f.data() + at);
    std::size_t const type = p[0] >> 1, length = (p[0] & 1u) << 8 | p[1];
    if (type == 127 && length >= 12 && p[2] == 0x00 && p[3] == 0x12 && p[4] == 0x0f && p[5] == 2) return at + 6 + 6;
    if (type == 0) break;
    at += 2 + length;
  }
  return 0;
}
constexpr std::size_t chassisMacEnd = 14 + 2 + 1 + 6;

struct Fixture {
  Lldp::Status::Ptr status = Lldp::statusFactory("bench");
  Lldp::Config::Ptr config = Lldp::configFactory("bench");
  LldpRx::Receiver receiver{status, config};
  LldpRx::Port* port = nullptr;
  explicit Fixture(std::uint32_t maxNeighbors = 16) {
    Kel::EventLog::sinkIs([](Kel::EventLog::Record const&) {});
    Platform::IntfId const intf(Kel::String("Ethernet1"));
    config->portConfigIs(intf)->maxRemoteSystemsIs(maxNeighbors);
    config->portConfigIs(intf)->rxRateLimitingEnabledIs(false);
    port = &receiver.portIs(intf, 0.0);
  }
};

bool skipWithoutCapture(benchmark::State& state) {
  if (!realFrame().empty()) return false;
  state.SkipWithError(("no " + captures + "/8023bt.pcap").c_str());
  return true;
}

void reportAllocations(benchmark::State& state, std::uint64_t before, const char* name = "allocs/frame") {
  state.counters[name] =
      benchmark::Counter(static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations()));
}

// The steady state: the neighbour's LLDPDU again. Target 100 ns, no allocation.
void BM_RxSameFrame(benchmark::State& state) {
  if (skipWithoutCapture(state)) return;
  Fixture fx;
  std::string const frame = realFrame();
  double now = 1;
  fx.port->frameIs(frame, now);
  std::uint64_t const before = allocations.load();
  for (auto _ : state) benchmark::DoNotOptimize(fx.port->frameIs(frame, now += 0.001));
  reportAllocations(state, before);
  if (fx.port->status()->rxFramesTotal() != state.iterations() + 1) state.SkipWithError("frames went astray");
}
BENCHMARK(BM_RxSameFrame);

// A known neighbour whose Power via MDI allocation changes every frame: found by comparing
// with the kept frame, only that TLV decoded. Target 100 ns, no allocation.
void BM_RxOneTlvChanged(benchmark::State& state) {
  if (skipWithoutCapture(state)) return;
  Fixture fx;
  std::string frames[2] = {realFrame(), realFrame()};
  std::size_t const at = allocatedPowerOffset(frames[1]);
  if (!at) return state.SkipWithError("no Power via MDI TLV in the frame");
  frames[1][at + 1] = static_cast<char>(frames[1][at + 1] ^ 0x0f);
  double now = 1;
  fx.port->frameIs(frames[0], now);
  fx.port->frameIs(frames[1], now);
  std::uint64_t const before = allocations.load();
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(fx.port->frameIs(frames[++i & 1], now += 0.001));
  reportAllocations(state, before);
  if (fx.receiver.status()->remTablesInserts() != 1) state.SkipWithError("the neighbour was not kept");
}
BENCHMARK(BM_RxOneTlvChanged);

// The first frame of a new neighbour: create, fill, index by MSAP and index (and log the
// message, to a sink that drops it, so its text is never made). Target 200 ns, at most 8
// allocations with the removal. The table is emptied, untimed, every thousand neighbours.
void BM_RxNewNeighbour(benchmark::State& state) {
  if (skipWithoutCapture(state)) return;
  Fixture fx(1000);
  std::string frame = realFrame();
  std::uint32_t n = 0;
  double now = 1;
  std::uint64_t const before = allocations.load();
  for (auto _ : state) {
    ++n;
    frame[chassisMacEnd - 1] = static_cast<char>(n);
    frame[chassisMacEnd - 2] = static_cast<char>(n >> 8);
    frame[chassisMacEnd - 3] = static_cast<char>(n >> 16);
    benchmark::DoNotOptimize(fx.port->frameIs(frame, now));
    if (n % 1000 == 0) {
      state.PauseTiming();
      fx.receiver.clear("bench", "bench", now);
      state.ResumeTiming();
    }
  }
  reportAllocations(state, before);
  if (fx.status->remTablesInserts() != n) state.SkipWithError("neighbours were dropped");
}
BENCHMARK(BM_RxNewNeighbour);

// A new neighbour's first frame and, right after, its shutdown LLDPDU (TTL 0), which
// removes it: one neighbour at a time, as a decoder that decodes a frame and frees what it
// made would go. Counted per pair of frames. Arg 0: the shutdown as lldpd sends it (Chassis
// ID, Port ID, TTL 0 and End, nothing else); arg 1: the whole frame again with TTL 0, the
// most a neighbour can make the receiver check before it removes.
void BM_RxNewNeighbourThenShutdown(benchmark::State& state) {
  if (skipWithoutCapture(state)) return;
  Fixture fx(1000);
  std::string frame = realFrame();
  auto const tlvEnd = [&frame](std::size_t at) {
    return at + 2 + ((static_cast<unsigned char>(frame[at]) & 1u) << 8 | static_cast<unsigned char>(frame[at + 1]));
  };
  // The TTL's value: after the header, the Chassis ID TLV and the Port ID TLV.
  std::size_t const ttlAt = tlvEnd(tlvEnd(14)) + 2;
  std::string shutdown = state.range(0) ? frame : frame.substr(0, ttlAt + 2) + std::string(2, '\0');
  shutdown[ttlAt] = shutdown[ttlAt + 1] = 0;
  std::uint32_t n = 0;
  std::uint64_t const before = allocations.load();
  for (auto _ : state) {
    ++n;
    for (std::string* f : {&frame, &shutdown}) {
      (*f)[chassisMacEnd - 1] = static_cast<char>(n);
      (*f)[chassisMacEnd - 2] = static_cast<char>(n >> 8);
      (*f)[chassisMacEnd - 3] = static_cast<char>(n >> 16);
    }
    benchmark::DoNotOptimize(fx.port->frameIs(frame, 1));
    benchmark::DoNotOptimize(fx.port->frameIs(shutdown, 1));
  }
  reportAllocations(state, before, "allocs/pair");
  if (fx.status->remTablesInserts() != n || fx.status->remTablesDeletes() != n) state.SkipWithError("not added and removed");
}
BENCHMARK(BM_RxNewNeighbourThenShutdown)->Arg(0)->Arg(1);

// Memory per neighbour: the size of a default RemoteSystem, and the heap in use per
// neighbour (malloc's own count, so with its overhead) once a thousand neighbours have sent
// the frame: the entity, its strings and collections, what the receiver keeps, and the
// neighbour's share of both indexes.
void BM_RxNeighbourMemory(benchmark::State& state) {
  if (skipWithoutCapture(state)) return;
  constexpr std::uint32_t count = 1000;
  double perNeighbour = 0;
  for (auto _ : state) {
    Fixture fx(count);
    std::string frame = realFrame();
    std::size_t const before = ::mallinfo2().uordblks;
    for (std::uint32_t n = 1; n <= count; ++n) {
      frame[chassisMacEnd - 1] = static_cast<char>(n);
      frame[chassisMacEnd - 2] = static_cast<char>(n >> 8);
      fx.port->frameIs(frame, 1.0);
    }
    perNeighbour = static_cast<double>(::mallinfo2().uordblks - before) / count;
    if (fx.port->status()->remoteSystem().size() != count) state.SkipWithError("neighbours were dropped");
  }
  state.counters["sizeof(RemoteSystem)"] = static_cast<double>(sizeof(Lldp::RemoteSystem));
  state.counters["heap B/neighbour"] = perNeighbour;
}
BENCHMARK(BM_RxNeighbourMemory)->Iterations(3);

// A capture file of a million frames from ten thousand neighbours, each sending every 30
// seconds and changing its allocated power in one frame of twenty (and back in the next),
// read through libpcap
// into the table the neighbour tool keeps. Reports frames per second (CPU time), the
// resident memory the run added (the table of 10,000 neighbours and the reader) and the
// process's peak resident memory.
void BM_RxCapture(benchmark::State& state) {
  if (skipWithoutCapture(state)) return;
  constexpr std::uint32_t neighbours = 10000, rounds = 100;
  std::string const path = "/tmp/lldp-rx-bench-" + std::to_string(::getpid()) + ".pcap";
  {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return state.SkipWithError("cannot write the capture");
    std::uint32_t const header[6] = {0xa1b2c3d4, 0x00040002, 0, 0, 65535, 1};
    std::fwrite(header, sizeof header, 1, f);
    std::string frame = realFrame();
    std::size_t const power = allocatedPowerOffset(frame);
    for (std::uint32_t r = 0; r < rounds; ++r)
      for (std::uint32_t n = 0; n < neighbours; ++n) {
        frame[chassisMacEnd - 1] = static_cast<char>(n);
        frame[chassisMacEnd - 2] = static_cast<char>(n >> 8);
        frame[power + 1] = static_cast<char>((r + n) % 20 == 0 ? r : 0);
        std::uint64_t const usec = (std::uint64_t{r} * neighbours + n) * 3000;  // 30 s per round
        std::uint32_t const rec[4] = {static_cast<std::uint32_t>(1700000000 + usec / 1000000),
                                      static_cast<std::uint32_t>(usec % 1000000), static_cast<std::uint32_t>(frame.size()),
                                      static_cast<std::uint32_t>(frame.size())};
        std::fwrite(rec, sizeof rec, 1, f);
        std::fwrite(frame.data(), frame.size(), 1, f);
      }
    std::fclose(f);
  }
  // Resident memory from /proc/self/statm, in pages.
  auto residentPages = [] {
    long size = 0, resident = 0;
    if (std::FILE* f = std::fopen("/proc/self/statm", "r")) {
      if (std::fscanf(f, "%ld %ld", &size, &resident) != 2) resident = 0;
      std::fclose(f);
    }
    return resident;
  };
  double frames = 0, tableMiB = 0;
  rusage usage{};
  for (auto _ : state) {
    long const before = residentPages();
    LldpNeighbors::Agent agent(neighbours, false);
    auto source = LldpNeighbors::FrameSource::file(path);
    LldpNeighbors::Feed const fed = LldpNeighbors::feed(*source, agent, "capture");
    frames += static_cast<double>(fed.frames);
    tableMiB = static_cast<double>(residentPages() - before) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1048576.0;
    if (agent.status->portStatus().begin()->remoteSystem().size() != neighbours) state.SkipWithError("neighbours missing");
  }
  ::getrusage(RUSAGE_SELF, &usage);
  std::filesystem::remove(path);
  state.counters["frames/s"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
  state.counters["table MiB"] = tableMiB;  // resident growth with the table and the reader live
  state.counters["peak MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;  // of the whole process
}
BENCHMARK(BM_RxCapture)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
