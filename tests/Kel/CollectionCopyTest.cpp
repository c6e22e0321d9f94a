#include <gtest/gtest.h>

#include <stdexcept>

#include "Kel/HashMap2018.h"

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

}  // namespace
