#include "Kel/Ptr.h"

#include <gtest/gtest.h>

#include <thread>
#include <unordered_set>
#include <vector>

namespace {

int liveObjects = 0;

struct Obj : Kel::PtrInterface {
  KEL_PTR_TYPEDEFS(Obj);
  explicit Obj(int v = 0) : value(v) { ++liveObjects; }
  ~Obj() override { --liveObjects; }
  int value;
};
struct Derived : Obj {
  KEL_PTR_TYPEDEFS(Derived);
  using Obj::Obj;
};

TEST(PtrTest, CountsFollowCopiesMovesAndResets) {
  {
    Obj::Ptr a = Kel::makePtr<Obj>(7);
    Obj* raw = a.get();
    struct Step {
      const char* what;
      void (*op)(Obj::Ptr& a, Obj::Ptr& b);
      std::uint32_t refs;
      bool aSet, bSet;
    };
    Obj::Ptr b;
    const Step steps[] = {
        {"copy-assign", [](Obj::Ptr& x, Obj::Ptr& y) { y = x; }, 2, true, true},
        {"self-assign", [](Obj::Ptr&, Obj::Ptr& y) { y = *&y; }, 2, true, true},
        {"reset", [](Obj::Ptr&, Obj::Ptr& y) { y.reset(); }, 1, true, false},
        {"move-assign", [](Obj::Ptr& x, Obj::Ptr& y) { y = std::move(x); }, 1, false, true},
        {"move back", [](Obj::Ptr& x, Obj::Ptr& y) { x = Obj::Ptr(std::move(y)); }, 1, true, false},
        {"raw assign", [](Obj::Ptr& x, Obj::Ptr& y) { y = x.get(); }, 2, true, true},
        {"swap null in", [](Obj::Ptr& x, Obj::Ptr& y) { y = nullptr; x.swap(y); }, 1, false, true},
    };
    for (auto const& s : steps) {
      s.op(a, b);
      EXPECT_EQ(raw->references(), s.refs) << s.what;
      EXPECT_EQ(static_cast<bool>(a), s.aSet) << s.what;
      EXPECT_EQ(static_cast<bool>(b), s.bSet) << s.what;
      EXPECT_EQ(liveObjects, 1) << s.what;
    }
    EXPECT_EQ(b->value, 7);
    EXPECT_EQ((*b).value, 7);
  }
  EXPECT_EQ(liveObjects, 0);
}

TEST(PtrTest, ConstAndDerivedConversionsShareTheCount) {
  Derived::Ptr d = Kel::makePtr<Derived>(3);
  Obj::PtrConst c = d;
  Obj::Ptr base = d;
  EXPECT_EQ(d->references(), 3u);
  EXPECT_TRUE(c == d);
  EXPECT_TRUE(c == d.get());
  EXPECT_EQ(Kel::ptrDynamicCast<Derived>(base), d);
  EXPECT_EQ(Kel::ptrConstCast<Obj>(c), base);
  Obj::PtrConst moved = std::move(base);
  EXPECT_FALSE(base);
  EXPECT_EQ(d->references(), 3u);
  EXPECT_EQ(c->value, 3);
}

TEST(PtrTest, ComparesAndHashesByIdentity) {
  Obj::Ptr a = new Obj(1), a2 = a, b = new Obj(1), none;
  EXPECT_EQ(a, a2);
  EXPECT_NE(a, b);
  EXPECT_TRUE(none == nullptr);
  EXPECT_TRUE(!none);
  EXPECT_NE(a < b, b < a);
  EXPECT_EQ(a.hash(), a2.hash());
  std::unordered_set<Obj::Ptr> set{a, a2, b, none};
  EXPECT_EQ(set.size(), 3u);
}

// Meaningful under -fsanitize=thread with KEL_THREAD_SAFE_PTR=ON: concurrent copies of
// one pointer must neither race on the count nor lose a reference.
TEST(PtrTest, CopiesFromSeveralThreadsKeepTheCount) {
  Obj::Ptr shared = Kel::makePtr<Obj>(5);
  constexpr int copiesPerThread = 20000;
#if KEL_THREAD_SAFE_PTR
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&shared] {
      for (int i = 0; i < copiesPerThread; ++i) {
        Obj::Ptr copy = shared;
        Obj::PtrConst constCopy = copy;
        if (constCopy->value != 5) std::abort();
      }
    });
  for (auto& th : threads) th.join();
#else
  for (int i = 0; i < copiesPerThread; ++i) {
    Obj::Ptr copy = shared;
    ASSERT_EQ(copy->references(), 2u);
  }
#endif
  EXPECT_EQ(shared->references(), 1u);
  shared.reset();
  EXPECT_EQ(liveObjects, 0);
}

}  // namespace
