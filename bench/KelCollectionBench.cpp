// Costs of the framework's hot primitives: Ptr copies and keyed-collection look-ups.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/HashMap2018.h"
#include "Kel/Ptr.h"
#include "Kel/RbTreeMap.h"

namespace {

struct Obj : Kel::PtrInterface {
  int value = 1;
};

// One copy construction and one destruction: the cost of passing a Ptr by value.
void BM_PtrCopy(benchmark::State& state) {
  Kel::Ptr<Obj> p = new Obj;
  for (auto _ : state) {
    Kel::Ptr<Obj> copy = p;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_PtrCopy);

void BM_PtrConstCopy(benchmark::State& state) {
  Kel::Ptr<Obj> p = new Obj;
  for (auto _ : state) {
    Kel::Ptr<Obj const> copy = p;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_PtrConstCopy);

struct Rec {
  std::uint32_t key;
  std::uint32_t payload;
  friend bool operator==(Rec const&, Rec const&) = default;
};
struct RecKeyFunktor {
  std::uint32_t operator()(Rec const& r) const { return r.key; }
};

std::vector<std::uint32_t> randomKeys(std::size_t n) {
  std::mt19937 rng(7);
  std::vector<std::uint32_t> keys(n);
  for (auto& k : keys) k = static_cast<std::uint32_t>(rng());
  return keys;
}

// Look-up of a present key, keys visited in a random order.
void BM_HashMap2018FindPresent(benchmark::State& state) {
  auto const keys = randomKeys(static_cast<std::size_t>(state.range(0)));
  Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor> map;
  for (auto k : keys) map.insertOrReplace(Rec{k, k});
  std::size_t i = 0;
  for (auto _ : state) {
    Rec const* r = map.find(keys[i]);
    benchmark::DoNotOptimize(r);
    if (++i == keys.size()) i = 0;
  }
}
BENCHMARK(BM_HashMap2018FindPresent)->Arg(100)->Arg(100000);

void BM_HashMap2018FindAbsent(benchmark::State& state) {
  auto const keys = randomKeys(static_cast<std::size_t>(state.range(0)) * 2);
  Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor> map;
  for (std::size_t i = 0; i < keys.size() / 2; ++i) map.insertOrReplace(Rec{keys[i], 0});
  std::size_t i = keys.size() / 2;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i]));
    if (++i == keys.size()) i = keys.size() / 2;
  }
}
BENCHMARK(BM_HashMap2018FindAbsent)->Arg(100000);

void BM_HashMap2018InsertDelete(benchmark::State& state) {
  auto const keys = randomKeys(static_cast<std::size_t>(state.range(0)));
  Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor> map;
  for (auto k : keys) map.insertOrReplace(Rec{k, k});
  std::uint32_t extra = 0;
  for (auto _ : state) {
    map.insertOrReplace(Rec{extra, 1});
    map.del(extra);
    ++extra;
  }
}
BENCHMARK(BM_HashMap2018InsertDelete)->Arg(100000);

// A collection's life with one member: made, filled, read, destroyed; <true> keeps the
// member in place.
template <bool OneInPlace>
void BM_HashMap2018OneMember(benchmark::State& state) {
  std::uint32_t k = 0;
  for (auto _ : state) {
    Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor, OneInPlace> map;
    map.insertOrReplace(Rec{k, k});
    benchmark::DoNotOptimize(map);  // the compiler may not see what the map holds
    benchmark::DoNotOptimize(map.find(k));
    ++k;
  }
}
BENCHMARK(BM_HashMap2018OneMember<false>);
BENCHMARK(BM_HashMap2018OneMember<true>);

void BM_RbTreeMapFindPresent(benchmark::State& state) {
  auto const keys = randomKeys(static_cast<std::size_t>(state.range(0)));
  Kel::RbTreeMap<std::uint32_t, Rec, RecKeyFunktor> map;
  for (auto k : keys) map.insertOrReplace(Rec{k, k});
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}
BENCHMARK(BM_RbTreeMapFindPresent)->Arg(100000);

// A notification from an entity nobody observes.
void BM_EntityNotifyUnobserved(benchmark::State& state) {
  Kel::Ptr<Kel::Entity> e = new Kel::Entity("e");
  e->deliversNotificationsIs(true);
  std::uint32_t key = 3;
  for (auto _ : state) {
    e->notify(258, key);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_EntityNotifyUnobserved);

}  // namespace
