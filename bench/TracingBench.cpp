// Cost of trace statements: the off path must stay at a load, a compare and a branch.
#include <benchmark/benchmark.h>

#include <string>

#include "Tracing/Duolog.h"

namespace {

DUOLOG_HANDLE(benchTrace, "TracingBench")

std::string costlyText(int i) { return std::string(64, static_cast<char>('a' + i % 26)); }

// The handle is held by reference, as a function does after fetching it once.
void BM_OffStatement(benchmark::State& state) {
  Duolog::Handle& h = benchTrace();
  h.levelIs(0);
  int i = 0;
  for (auto _ : state) {
    DUOLOG(h, 6, "value %d text %s", i, costlyText(i));
    benchmark::ClobberMemory();
    ++i;
  }
}
BENCHMARK(BM_OffStatement);

// The handle is fetched through its accessor at every statement (a guard test too).
void BM_OffStatementViaAccessor(benchmark::State& state) {
  benchTrace().levelIs(0);
  int i = 0;
  for (auto _ : state) {
    DUOLOG(benchTrace(), 6, "value %d text %s", i, costlyText(i));
    benchmark::ClobberMemory();
    ++i;
  }
}
BENCHMARK(BM_OffStatementViaAccessor);

// For scale: an enabled line to the ring only.
void BM_OnBrisklogStatement(benchmark::State& state) {
  Duolog::Handle& h = benchTrace();
  h.levelIs(6);
  int i = 0;
  for (auto _ : state) {
    BRISKLOG(h, 6, "value %d text %s", i, "Power Via MDI TLV");
    ++i;
  }
  h.levelIs(0);
}
BENCHMARK(BM_OnBrisklogStatement);

// For scale: an enabled line to the ring and the text trace (a sink that drops it).
void BM_OnDuologStatement(benchmark::State& state) {
  Duolog::Handle& h = benchTrace();
  h.levelIs(6);
  Duolog::sinkIs([](Duolog::Line const& l) { benchmark::DoNotOptimize(l.message.data()); });
  int i = 0;
  for (auto _ : state) {
    DUOLOG(h, 6, "value %d text %s", i, "Power Via MDI TLV");
    ++i;
  }
  Duolog::sinkIs(nullptr);
  h.levelIs(0);
}
BENCHMARK(BM_OnDuologStatement);

}  // namespace
