#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

#include "Kel/HashMap2018.h"

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

namespace {

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
  }
  EXPECT_EQ(Counted::live, 0);
}

TEST(HashMap2018Copy, FailedGrowthLeavesTheMapAsItWas) {
  {
    Kel::HashMap2018<int, Counted> m;
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
  }
  EXPECT_EQ(Counted::live, 0);
}

}  // namespace
