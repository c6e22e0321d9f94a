#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "Kel/HSet.h"
#include "Kel/HashMap.h"
#include "Kel/HashMap2018.h"
#include "Kel/RbTreeMap.h"

// Damages a table on purpose: marks a member that sits in its home slot as displaced.
struct Kel::HashMap2018TestAccess {
  // Returns the key of the member just before the damaged one.
  template <class M>
  static auto breakRunAfterSomeMember(M& m) {
    for (std::size_t j = 1; j < m.total_; ++j)
      if (m.slots_[j].dist == 1 && m.slots_[j - 1].dist != 0) {
        m.slots_[j].dist = 2;
        return m.slots_[j - 1].node().fwkKey();
      }
    ADD_FAILURE() << "no adjacent members";
    return m.slots_[0].node().fwkKey();
  }
};

namespace {

using testing::HasSubstr;
using Kel::CollChange;

struct Rec {
  std::uint32_t key;
  Kel::String text;
  friend bool operator==(Rec const&, Rec const&) = default;
};
struct RecKeyFunktor {
  std::uint32_t operator()(Rec const& r) const { return r.key; }
};

// A key whose hash puts everything into a handful of runs.
struct Clumpy {
  std::uint32_t v;
  std::size_t hash(std::size_t seed) const { return Kel::hashMix(seed, v % 3); }
  friend bool operator==(Clumpy, Clumpy) = default;
};

using HashRecs = Kel::HashMap2018<std::uint32_t, Rec, RecKeyFunktor>;
using TreeRecs = Kel::RbTreeMap<std::uint32_t, Rec, RecKeyFunktor>;

template <class M>
std::map<std::uint32_t, Kel::String> contents(M const& m) {
  std::map<std::uint32_t, Kel::String> out;
  for (auto it = m.begin(); it; ++it) out.emplace(it.key(), it->text);
  return out;
}

template <class M>
class InternalKeyMapTest : public testing::Test {};
using InternalKeyMaps = testing::Types<HashRecs, TreeRecs>;
TYPED_TEST_SUITE(InternalKeyMapTest, InternalKeyMaps);

TYPED_TEST(InternalKeyMapTest, InsertReplaceDeleteTable) {
  enum Op { Set, Del };
  struct Step {
    Op op;
    std::uint32_t key;
    const char* text;
    CollChange change;  // for Set
    bool removed;       // for Del
    std::size_t size;
  };
  const Step steps[] = {
      {Set, 1, "a", CollChange::inserted, false, 1},   {Set, 2, "b", CollChange::inserted, false, 2},
      {Set, 1, "a", CollChange::unchanged, false, 2},  {Set, 1, "A", CollChange::replaced, false, 2},
      {Del, 3, "", CollChange::unchanged, false, 2},   {Del, 1, "", CollChange::unchanged, true, 1},
      {Del, 1, "", CollChange::unchanged, false, 1},   {Set, 1, "z", CollChange::inserted, false, 2},
      {Set, 0, "", CollChange::inserted, false, 3},
  };
  TypeParam m;
  std::uint64_t version = m.version();
  for (auto const& s : steps) {
    bool changedMap;
    if (s.op == Set) {
      CollChange c = m.insertOrReplace(Rec{s.key, s.text});
      EXPECT_EQ(c, s.change) << s.key << s.text;
      changedMap = Kel::changed(c);
    } else {
      EXPECT_EQ(m.del(s.key), s.removed) << s.key;
      changedMap = s.removed;
    }
    EXPECT_EQ(m.size(), s.size);
    EXPECT_EQ(m.version() != version, changedMap) << "version moves exactly on change";
    version = m.version();
  }
  EXPECT_EQ(contents(m), (std::map<std::uint32_t, Kel::String>{{0, ""}, {1, "z"}, {2, "b"}}));
  auto keys = m.keys();
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys, (std::vector<std::uint32_t>{0, 1, 2}));
  ASSERT_NE(m.find(2), nullptr);
  EXPECT_EQ(m.find(2)->text, Kel::String("b"));
  EXPECT_EQ(m.find(7), nullptr);
  EXPECT_EQ(m.take(2), (Rec{2, "b"}));
  EXPECT_EQ(m.take(2), std::nullopt);
  TypeParam copy = m;
  EXPECT_TRUE(copy == m);
  // Deleting through the iterator keeps it usable.
  for (auto it = m.begin(); it;) it.del();
  EXPECT_TRUE(m.empty());
  EXPECT_FALSE(copy == m);
}

// Random operations against std::map, with keys that collide heavily, so that long
// runs, shifts in both directions, growth and spare-slot extension all happen.
TEST(HashMap2018Test, AgreesWithStdMapUnderRandomChurn) {
  Kel::HashMap2018<Clumpy, int> clumpy;
  Kel::HashMap2018<std::uint32_t, int> spread;
  std::map<std::uint32_t, int> model;
  std::mt19937 rng(12345);
  for (int i = 0; i < 6000; ++i) {
    std::uint32_t k = rng() % 400;
    int v = static_cast<int>(rng() % 4);
    if (rng() % 3 == 0) {
      bool removed = model.erase(k) != 0;
      ASSERT_EQ(clumpy.del(Clumpy{k}), removed);
      ASSERT_EQ(spread.del(k), removed);
    } else {
      auto [it, inserted] = model.try_emplace(k, v);
      CollChange want = inserted ? CollChange::inserted : it->second == v ? CollChange::unchanged : CollChange::replaced;
      it->second = v;
      ASSERT_EQ(clumpy.insertOrReplace(Clumpy{k}, v), want);
      ASSERT_EQ(spread.insertOrReplace(k, v), want);
    }
  }
  ASSERT_EQ(clumpy.size(), model.size());
  std::map<std::uint32_t, int> seen;
  for (auto it = clumpy.begin(); it; ++it) seen.emplace(it.key().v, *it);
  EXPECT_EQ(seen, model);
  for (auto const& [k, v] : model) ASSERT_EQ(*spread.find(k), v);
  // Deleting every other member while walking visits each member exactly once.
  std::size_t visited = 0;
  for (auto it = clumpy.begin(); it; ++visited)
    if (it.key().v % 2) it.del(); else ++it;
  EXPECT_EQ(visited, model.size());
  for (auto const& [k, v] : model) EXPECT_EQ(clumpy.contains(Clumpy{k}), k % 2 == 0) << k;
}

TEST(HSetTest, InsertContainsDelete) {
  Kel::HSet<Kel::String> set;
  EXPECT_TRUE(set.insert("eth1"));
  EXPECT_FALSE(set.insert("eth1"));
  EXPECT_TRUE(set.insert("eth2"));
  EXPECT_TRUE(set.contains("eth2"));
  EXPECT_TRUE(set.del("eth1"));
  EXPECT_FALSE(set.contains("eth1"));
  std::vector<Kel::String> keys;
  for (auto const& k : set) keys.push_back(k);
  EXPECT_EQ(keys, std::vector<Kel::String>{"eth2"});
}

TEST(RbTreeMapTest, WalksInKeyOrderAndResumesAboveAKey) {
  Kel::RbTreeMap<int, Kel::String> m;
  for (int k : {30, 10, 20, 5}) m.insertOrReplace(k, Kel::format("v%d", k));
  std::vector<int> order;
  for (auto it = m.begin(); it; ++it) order.push_back(it.key());
  EXPECT_EQ(order, (std::vector<int>{5, 10, 20, 30}));
  EXPECT_EQ(m.upperBound(10).key(), 20);
  EXPECT_EQ(m.upperBound(12).key(), 20);
  EXPECT_FALSE(m.upperBound(30));
  auto it = m.findIter(10);
  it.del();
  EXPECT_EQ(it.key(), 20);
  EXPECT_EQ(m.size(), 3u);
}

struct Child : Kel::Entity {
  KEL_PTR_TYPEDEFS(Child);
  explicit Child(int i) : Entity(Kel::format("c%d", i)), id(i) {}
  int id;
};

TEST(HashMapTest, InstantiatesOwnsAndReleasesChildren) {
  Child::Ptr owner = new Child(0);
  Kel::HashMap<int, Child> kids;
  auto [c1, created] = kids.instantiate(owner.get(), 1, 1);
  ASSERT_TRUE(created);
  EXPECT_EQ(c1->parent(), owner.get());
  EXPECT_TRUE(c1->deliversNotifications());
  EXPECT_EQ(kids.instantiate(owner.get(), 1, 99), std::make_pair(c1, false));
  kids.instantiate(owner.get(), 2, 2);
  Child::Ptr gone = kids.del(1);
  ASSERT_EQ(gone.get(), c1);
  EXPECT_EQ(gone->parent(), nullptr);
  EXPECT_EQ(gone->references(), 1u);
  EXPECT_FALSE(kids.del(1));
  Child::Ptr kept = kids.get(2);
  for (auto it = kids.begin(); it;) it.del();
  EXPECT_EQ(kept->parent(), nullptr);
  EXPECT_EQ(kept->references(), 1u);
}

TEST(CollectionDeathTest, IteratorRefusesUseAfterForeignChange) {
  HashRecs m;
  m.insertOrReplace(Rec{1, "a"});
  m.insertOrReplace(Rec{2, "b"});
  EXPECT_DEATH(
      {
        auto it = m.begin();
        m.del(it.key());
        static_cast<void>(static_cast<bool>(it));
      },
      HasSubstr("Assertion failed: version_ == hashMap_->version()"));
  EXPECT_DEATH(
      {
        auto it = m.begin();
        m.insertOrReplace(Rec{it.key(), "changed"});
        ++it;
      },
      HasSubstr("Assertion failed: version_ == hashMap_->version()"));
}

TEST(CollectionDeathTest, ReplacingUnderAnotherKeyIsRefused) {
  HashRecs m;
  m.insertOrReplace(Rec{1, "a"});
  EXPECT_DEATH(m.begin().valueIs(Rec{2, "a"}), HasSubstr("Assertion failed: fwkKey() == KeyFunktor()( _value )"));
}

TEST(CollectionDeathTest, DeletionChecksEachShift) {
  Kel::HashMap2018<std::uint32_t, int> m;
  for (std::uint32_t k = 0; k < 64; ++k) m.insertOrReplace(k, 0);
  EXPECT_DEATH(
      {
        auto k = Kel::HashMap2018TestAccess::breakRunAfterSomeMember(m);
        m.del(k);
      },
      HasSubstr("Assertion failed: slotsToShift == 1"));
}

}  // namespace
