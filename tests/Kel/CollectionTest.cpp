#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Kel/HSet.h"
#include "Kel/HashMap2018.h"
#include "Kel/RbTreeMap.h"

// Array allocations (the hash map's tables) fail on demand: the one after this many
// more succeeded throws; negative never fails.
static int arrayAllocationsBeforeFailure = -1;

// Kept out of line: inlined, the compiler would see new[] paired with free.
[[gnu::noinline]] void* operator new[](std::size_t n) {
  if (arrayAllocationsBeforeFailure >= 0 && arrayAllocationsBeforeFailure-- == 0) throw std::bad_alloc();
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete[](void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

// Damages a table on purpose: marks a member that sits in its home slot as displaced,
// and returns the key of the member just before it.
struct Kel::HashMap2018TestAccess {
  template <class M>
  static auto breakRunAfterSomeMember(M& m) {
    for (std::size_t j = 1; j < m.total(); ++j)
      if (m.slots_[j].dist == 1 && m.slots_[j - 1].dist != 0) {
        m.slots_[j].dist = 2;
        return m.slots_[j - 1].node().fwkKey();
      }
    ADD_FAILURE() << "no adjacent members";
    return m.slots_[0].node().fwkKey();
  }
};

namespace {

using Kel::CollChange;
using testing::HasSubstr;

struct Rec {
  std::uint32_t key;
  Kel::String text;
  friend bool operator==(Rec const&, Rec const&) = default;
};
struct RecKeyFunktor {
  std::uint32_t operator()(Rec const& r) const { return r.key; }
};
using HashRecs = Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor>;
using HashRecsInPlace = Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor, true>;

// A key whose hash puts everything into a handful of runs.
struct Clumpy {
  std::uint32_t v;
  std::size_t hash(std::size_t seed) const { return Kel::hashMix(seed, v % 3); }
  friend bool operator==(Clumpy, Clumpy) = default;
};

template <class M>
class InternalKeyMapTest : public testing::Test {};
using InternalKeyMaps = testing::Types<HashRecs, HashRecsInPlace, Kel::RbTreeMap<std::uint32_t, Rec, RecKeyFunktor>>;
TYPED_TEST_SUITE(InternalKeyMapTest, InternalKeyMaps);

TYPED_TEST(InternalKeyMapTest, InsertReplaceDeleteTable) {
  struct Step { bool set; std::uint32_t key; const char* text; CollChange change; std::size_t size; };
  const Step steps[] = {  // for a deletion, change says whether it removed a member
      {true, 1, "a", CollChange::inserted, 1},  {true, 2, "b", CollChange::inserted, 2},
      {true, 1, "a", CollChange::unchanged, 2}, {true, 1, "A", CollChange::replaced, 2},
      {false, 3, "", CollChange::unchanged, 2}, {false, 1, "", CollChange::replaced, 1},
      {true, 0, "", CollChange::inserted, 2},
  };
  TypeParam m;
  std::uint64_t version = m.version();
  for (auto const& s : steps) {
    if (s.set) EXPECT_EQ(m.insertOrReplace(Rec{s.key, s.text}), s.change) << s.key << s.text;
    else EXPECT_EQ(m.del(s.key), Kel::changed(s.change)) << s.key;
    EXPECT_EQ(m.size(), s.size);
    EXPECT_EQ(m.version() != version, Kel::changed(s.change)) << "version moves exactly on change";
    version = m.version();
  }
  auto keys = m.keys();
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::uint32_t>{0, 2}));
  EXPECT_EQ(m.find(7), nullptr);
  TypeParam copy = m;
  EXPECT_EQ(m.take(2), (Rec{2, "b"}));
  EXPECT_EQ(m.take(2), std::nullopt);
  EXPECT_FALSE(copy == m);
  for (auto it = copy.begin(); it;) it.del();  // deleting through the iterator keeps it usable
  EXPECT_TRUE(copy.empty());
}

// Random operations against std::map, with keys that collide heavily, so that long
// runs, shifts in both directions, growth and spare-slot extension all happen.
TEST(HashMap2018Test, AgreesWithStdMapUnderRandomChurn) {
  Kel::HashMap2018<Clumpy, int> clumpy;
  std::map<std::uint32_t, int> model;
  std::mt19937 rng(12345);
  for (int i = 0; i < 6000; ++i) {
    std::uint32_t k = rng() % 400;
    int v = static_cast<int>(rng() % 4);
    if (rng() % 3 == 0) {
      ASSERT_EQ(clumpy.del(Clumpy{k}), model.erase(k) != 0);
      continue;
    }
    auto [it, inserted] = model.try_emplace(k, v);
    CollChange want = inserted ? CollChange::inserted : it->second == v ? CollChange::unchanged : CollChange::replaced;
    it->second = v;
    ASSERT_EQ(clumpy.insertOrReplace(Clumpy{k}, v), want);
  }
  std::map<std::uint32_t, int> seen;
  for (auto it = clumpy.begin(); it; ++it) seen.emplace(it.key().v, *it);
  EXPECT_EQ(seen, model);
  // Deleting every other member while walking visits each member exactly once.
  std::size_t visited = 0;
  for (auto it = clumpy.begin(); it; ++visited)
    if (it.key().v % 2) it.del(); else ++it;
  EXPECT_EQ(visited, model.size());
  for (auto const& [k, v] : model) EXPECT_EQ(clumpy.contains(Clumpy{k}), k % 2 == 0) << k;
}

// One sequence of steps on a map that keeps its first member in place and on a plain one,
// each against std::map, through 0, 1, 2 and 3 members and back; the copies, moves and
// swaps meet maps holding `n` other members (in place, or in a block).
template <class M>
class HashMapStatesTest : public testing::Test {};
using HashMapStates = testing::Types<HashRecs, HashRecsInPlace>;
TYPED_TEST_SUITE(HashMapStatesTest, HashMapStates);

TYPED_TEST(HashMapStatesTest, StepsAgreeWithStdMap) {
  using M = TypeParam;
  enum Op { put, del, take, clear, reserve, walkDel, copyOver, moveOver, swapWith, moveOut };
  struct Step { Op op; std::uint32_t key; const char* text; };
  const Step steps[] = {
      {swapWith, 2, ""}, {put, 1, "a"},      {put, 1, "a"},    {put, 1, "A"},     {copyOver, 0, ""},
      {copyOver, 2, ""}, {moveOver, 1, ""},  {swapWith, 0, ""}, {swapWith, 1, ""}, {swapWith, 3, ""},
      {moveOut, 0, ""},  {del, 2, ""},        {put, 2, "b"},    {walkDel, 1, ""},  {put, 3, "c"},
      {put, 1, "a"},     {copyOver, 1, ""},  {moveOver, 0, ""}, {walkDel, 3, ""},  {take, 1, ""},
      {take, 1, ""},     {put, 4, "d"},      {swapWith, 1, ""}, {del, 2, ""},      {del, 4, ""},
      {put, 5, "e"},     {clear, 0, ""},     {put, 6, "f"},    {walkDel, 6, ""},  {reserve, 1, ""},
      {put, 7, "g"},     {reserve, 3, ""},   {put, 8, "h"},    {moveOut, 0, ""},  {clear, 0, ""},
      {reserve, 2, ""},  {put, 9, "i"},
  };
  auto filled = [](std::uint32_t n) {  // members 100.. of the other map
    M o;
    for (std::uint32_t k = 100; k < 100 + n; ++k) o.insertOrReplace(Rec{k, "o"});
    return o;
  };
  M m;
  std::map<std::uint32_t, Kel::String> model;
  for (auto const& s : steps) {
    SCOPED_TRACE(testing::Message() << "step " << (&s - steps) << " op " << s.op << " key " << s.key);
    auto const before = model;
    std::uint64_t const version = m.version();
    switch (s.op) {
      case put: {
        auto [it, inserted] = model.try_emplace(s.key, s.text);
        CollChange want = inserted ? CollChange::inserted : it->second == s.text ? CollChange::unchanged : CollChange::replaced;
        it->second = s.text;
        auto [change, stored] = m.put(Rec{s.key, s.text});
        EXPECT_EQ(change, want);
        EXPECT_EQ(stored, m.find(s.key));
        break;
      }
      case del: EXPECT_EQ(m.del(s.key), model.erase(s.key) == 1); break;
      case take: {
        auto want = model.count(s.key) ? std::optional<Rec>(Rec{s.key, model[s.key]}) : std::nullopt;
        model.erase(s.key);
        EXPECT_EQ(m.take(s.key), want);
        break;
      }
      case clear: m.clear(); model.clear(); break;
      case reserve: m.reserve(s.key); break;
      case walkDel: {  // deletes `key` through the walking iterator, which goes on to the rest
        std::map<std::uint32_t, Kel::String> seen;
        for (auto it = m.begin(); it;) {
          seen.emplace(it.key(), it->text);
          if (it.key() == s.key) it.del(); else ++it;
        }
        EXPECT_EQ(seen, model);
        model.erase(s.key);
        break;
      }
      case copyOver: {
        M o = filled(s.key);
        o = m;
        EXPECT_TRUE(o == m && m == o);
        M back(o);
        m = back;
        break;
      }
      case moveOver: {
        M o = filled(s.key);
        o = std::move(m);
        EXPECT_TRUE(m.empty());
        m = std::move(o);
        break;
      }
      case swapWith: {
        M o = filled(s.key), want = filled(s.key);
        m.swap(o);
        EXPECT_TRUE(m == want);
        m.swap(o);
        EXPECT_TRUE(o == want);
        break;
      }
      case moveOut: {
        M o(std::move(m));
        EXPECT_TRUE(m.empty() && m.begin() == std::default_sentinel);
        m.swap(o);
        break;
      }
    }
    // An iterator made before a change is refused after it.
    if (model != before || s.op >= copyOver) {
      EXPECT_NE(m.version(), version);
    }
    EXPECT_EQ(m.size(), model.size());
    EXPECT_EQ(m.empty(), model.empty());
    std::map<std::uint32_t, Kel::String> seen;
    for (auto it = std::as_const(m).begin(); it; ++it) EXPECT_TRUE(seen.emplace(it.key(), it->text).second);
    EXPECT_EQ(seen, model);
    auto keys = m.keys();
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys.size(), model.size());
    EXPECT_TRUE(std::equal(keys.begin(), keys.end(), model.begin(), [](auto k, auto const& kv) { return k == kv.first; }));
    for (std::uint32_t k = 0; k < 11; ++k) {
      auto const* v = m.find(k);
      EXPECT_EQ(v != nullptr, model.count(k) == 1) << k;
      if (v) {
        EXPECT_EQ(v->text, model[k]) << k;
      }
      EXPECT_EQ(m.contains(k), v != nullptr) << k;
    }
    // Equal to the same members held in a block, whatever state this one is in.
    M block;
    block.reserve(4);
    for (auto const& [k, text] : model) block.insertOrReplace(Rec{k, text});
    EXPECT_TRUE(block == m && m == block);
    block.insertOrReplace(Rec{10, "x"});
    EXPECT_FALSE(block == m || m == block);
  }
}

TEST(HSetAndRbTreeMapTest, KeysOnlyAndOrderedWalks) {
  Kel::HSet<Kel::String> set;
  EXPECT_TRUE(set.insert("eth1") && !set.insert("eth1") && set.insert("eth2") && set.del("eth1"));
  std::vector<Kel::String> members;
  for (auto const& k : set) members.push_back(k);
  EXPECT_EQ(members, std::vector<Kel::String>{"eth2"});
  Kel::RbTreeMap<int, Kel::String> m;
  for (int k : {30, 10, 20, 5}) m.insertOrReplace(k, Kel::format("v%d", k));
  std::vector<int> order;
  for (auto it = m.begin(); it; ++it) order.push_back(it.key());
  EXPECT_EQ(order, (std::vector<int>{5, 10, 20, 30}));
  EXPECT_EQ(m.upperBound(12).key(), 20);
  EXPECT_FALSE(m.upperBound(30));
  auto it = m.findIter(10);
  it.del();
  EXPECT_EQ(it.key(), 20);
}

TEST(CollectionDeathTest, AssertionsGuardIteratorsKeysAndShifts) {
  HashRecs m;
  m.insertOrReplace(Rec{1, "a"});
  m.insertOrReplace(Rec{2, "b"});
  EXPECT_DEATH(
      {
        auto it = m.begin();
        m.del(it.key());
        ++it;
      },
      HasSubstr("Assertion failed: version_ == hashMap_->version()"));
  EXPECT_DEATH(m.begin().valueIs(Rec{7, "a"}), HasSubstr("Assertion failed: fwkKey() == KeyFunktor()( _value )"));
  HashRecs::Iterator none;  // made by default: on nothing
  EXPECT_FALSE(none);
  EXPECT_DEATH(++none, HasSubstr("Assertion failed: hashMap_ != nullptr"));
  EXPECT_DEATH(m.findIter(9).del(), HasSubstr("Assertion failed: index_ < hashMap_->total()"));
  EXPECT_DEATH(*m.findIter(9), HasSubstr("Assertion failed: index_ < hashMap_->total()"));
  Kel::HashMap2018<std::uint32_t, int> big;
  for (std::uint32_t k = 0; k < 64; ++k) big.insertOrReplace(k, 0);
  EXPECT_DEATH(big.del(Kel::HashMap2018TestAccess::breakRunAfterSomeMember(big)),
               HasSubstr("Assertion failed: slotsToShift == 1"));
}

// Two maps at the same version: only versions that no state of either map had before
// stop an iterator made before the operation.
template <class Map>
void assignmentMoveAndSwapInvalidateIterators() {
  struct Case { const char* what; void (*op)(Map& a, Map& b); bool bChanges; };
  const Case cases[] = {
      {"a = b", [](Map& a, Map& b) { a = b; }, false},
      {"a = move(b)", [](Map& a, Map& b) { a = std::move(b); }, true},
      {"swap", [](Map& a, Map& b) { a.swap(b); }, true},
      {"moved away", [](Map& a, Map&) { Map c(std::move(a)); }, false},
      {"a second member", [](Map& a, Map&) { a.insertOrReplace(3, 30); }, false},
  };
  for (auto const& c : cases) {
    Map a, b;
    a.insertOrReplace(1, 10);
    b.insertOrReplace(2, 20);
    ASSERT_EQ(a.version(), b.version());
    auto ia = a.begin(), ib = b.begin();
    c.op(a, b);
    EXPECT_DEATH(++ia, HasSubstr("Assertion failed: version_ == hashMap_->version()")) << c.what;
    if (c.bChanges)
      EXPECT_DEATH(++ib, HasSubstr("Assertion failed: version_ == hashMap_->version()")) << c.what;
    else
      EXPECT_EQ(*ib, 20) << c.what;
  }
}
TEST(CollectionDeathTest, AssignmentMoveAndSwapInvalidateIteratorsOfTheMapsTheyChange) {
  assignmentMoveAndSwapInvalidateIterators<Kel::HashMap2018<std::uint32_t, int>>();
  assignmentMoveAndSwapInvalidateIterators<Kel::HashMap2018<std::uint32_t, int, void, true>>();
}

// Counts live instances; the copy numbered `failAt` throws.
struct Counted {
  static inline int live = 0;
  static inline int copies = 0;
  static inline int failAt = -1;
  int v = 0;
  explicit Counted(int x) : v(x) { ++live; }
  Counted(Counted const& o) : v(o.v) {
    if (copies++ == failAt) throw std::runtime_error("copy refused");
    ++live;
  }
  Counted(Counted&& o) noexcept : v(o.v) { ++live; }
  Counted& operator=(Counted const&) = default;
  ~Counted() { --live; }
  friend bool operator==(Counted const& a, Counted const& b) { return a.v == b.v; }
};

TEST(HashMap2018Copy, ThrowingCopyDestroysWhatItCopied) {
  {
    Kel::HashMap2018<int, Counted> m;
    for (int k = 0; k < 20; ++k) m.insertOrReplace(k, Counted(k));
    int const before = Counted::live;
    for (int failAt : {0, 7, 19}) {
      Counted::copies = 0;
      Counted::failAt = failAt;
      using Map = Kel::HashMap2018<int, Counted>;
      EXPECT_THROW(Map copy(m), std::runtime_error) << failAt;
      EXPECT_EQ(Counted::live, before) << "nodes copied before copy " << failAt << " leaked";
    }
    Counted::failAt = -1;
    Kel::HashMap2018<int, Counted> copy(m);
    EXPECT_TRUE(copy == m);
    using InPlace = Kel::HashMap2018<int, Counted, void, true>;
    InPlace one;
    one.insertOrReplace(1, Counted(1));
    int const withOne = Counted::live;
    Counted::copies = 0;
    Counted::failAt = 0;
    EXPECT_THROW(InPlace copy(one), std::runtime_error);
    Counted::failAt = -1;
    EXPECT_EQ(Counted::live, withOne);
  }
  EXPECT_EQ(Counted::live, 0);
}

// A key whose copy throws on demand, as a string's does without memory.
struct FragileKey {
  static inline bool refuse = false;
  int v = 0;
  explicit FragileKey(int x) : v(x) {}
  FragileKey(FragileKey const& o) : v(o.v) {
    if (refuse) throw std::runtime_error("copy refused");
  }
  FragileKey(FragileKey&&) noexcept = default;
  std::size_t hash(std::size_t seed) const { return Kel::hashMix(seed, static_cast<std::uint32_t>(v)); }
  friend bool operator==(FragileKey const& a, FragileKey const& b) { return a.v == b.v; }
};

// Insertions whose key copy throws, many of them into the middle of probe runs: the map
// keeps every member findable and its size.
TEST(HashMap2018Copy, AKeyCopyThatThrowsLeavesTheRunsWhole) {
  Kel::HashMap2018<FragileKey, int> m;
  for (int k = 0; k < 24; ++k) m.insertOrReplace(FragileKey(k), k);
  FragileKey::refuse = true;
  for (int k = 1000; k < 1200; ++k) EXPECT_THROW(m.insertOrReplace(FragileKey(k), 0), std::runtime_error);
  FragileKey::refuse = false;
  EXPECT_EQ(m.size(), 24u);
  for (int k = 0; k < 24; ++k) EXPECT_TRUE(m.contains(FragileKey(k))) << k;
}

TEST(HashMap2018Copy, FailedGrowthLeavesTheMapAsItWas) {
  auto check = [](auto m) {
    int failures = 0;
    for (int k = 0; k < 300; ++k) {
      // Each allocation the insertion makes fails once, in turn, before it succeeds.
      for (int failAt = 0;; ++failAt) {
        arrayAllocationsBeforeFailure = failAt;
        bool failed = false;
        try {
          m.insertOrReplace(k, Counted(k));
        } catch (std::bad_alloc const&) {
          failed = true;
        }
        arrayAllocationsBeforeFailure = -1;
        if (!failed) break;
        ++failures;
        ASSERT_EQ(m.size(), static_cast<std::size_t>(k));
        ASSERT_EQ(Counted::live, k) << "members lost or leaked";
        for (int j = 0; j < k; ++j) ASSERT_TRUE(m.find(j) && m.find(j)->v == j) << j << " after failing at " << k;
        ASSERT_FALSE(m.contains(k));
      }
    }
    // Growth at 7/8 load: 8 -> 16 -> ... -> 512 home slots for 300 members.
    EXPECT_GE(failures, 7);
    arrayAllocationsBeforeFailure = 0;
    EXPECT_THROW(m.reserve(5000), std::bad_alloc);
    arrayAllocationsBeforeFailure = -1;
    EXPECT_EQ(m.size(), 300u);
    EXPECT_TRUE(m.del(299) && m.find(298)->v == 298);
  };
  check(Kel::HashMap2018<int, Counted>());
  EXPECT_EQ(Counted::live, 0);
  check(Kel::HashMap2018<int, Counted, void, true>());
  EXPECT_EQ(Counted::live, 0);
}

// A map that keeps one member in place allocates nothing while it holds at most one, and
// a second member that cannot have its block leaves the first where it was.
TEST(HashMap2018Copy, OneMemberInPlaceAllocatesNothing) {
  arrayAllocationsBeforeFailure = 0;  // any array allocation throws
  HashRecsInPlace m, o;
  EXPECT_NO_THROW({
    m.put(Rec{1, "a"});
    m.put(Rec{1, "b"});
    o = m;
    HashRecsInPlace c(o);
    c.swap(m);
    m = std::move(c);
    m.reserve(1);
    for (auto it = o.begin(); it;) it.del();
    o.insertOrReplace(Rec{2, "c"});
    EXPECT_TRUE(o.take(2) && o.empty());
  });
  arrayAllocationsBeforeFailure = 0;
  EXPECT_THROW(m.put(Rec{2, "c"}), std::bad_alloc);
  arrayAllocationsBeforeFailure = -1;
  EXPECT_EQ(m.size(), 1u);
  EXPECT_EQ(*m.find(1), (Rec{1, "b"}));
  EXPECT_FALSE(m.contains(2));
}

}  // namespace
