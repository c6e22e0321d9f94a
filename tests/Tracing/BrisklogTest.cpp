#include "Tracing/Brisklog.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/String.h"

namespace {

enum class Small : std::uint8_t { three = 3 };

// Each case writes one record; its message must read as printf would have written it.
TEST(BrisklogTest, StoresAndRendersArguments) {
  const char* nullText = nullptr;
  struct Case {
    std::function<void(Brisklog::Ring&)> write;
    std::string expected;
  } const cases[] = {
      {[](auto& r) { r.log("s", 1, "%d %i", -5, std::int64_t{-1234567890123}); }, "-5 -1234567890123"},
      {[](auto& r) { r.log("s", 1, "%u %x", -1, static_cast<signed char>(-1)); }, "4294967295 ffffffff"},
      {[](auto& r) { r.log("s", 1, "%hhx %hd", 300, 70000); }, "2c 4464"},
      {[](auto& r) { r.log("s", 1, "%5d|%-5d|%05.1f", 42, 7, 3.14159); }, "   42|7    |003.1"},
      {[](auto& r) { r.log("s", 1, "%s/%.3s/%3s", std::string("ab"), std::string_view("abcdef"), "x"); },
       "ab/abc/  x"},
      {[](auto& r) { r.log("s", 1, "%c%c", 'O', 75); }, "OK"},
      {[](auto& r) { r.log("s", 1, "%zu %d %d", std::size_t{7}, std::numeric_limits<std::uint64_t>::max(), true); },
       "7 -1 1"},
      {[](auto& r) { r.log("s", 1, "%llu", std::numeric_limits<std::uint64_t>::max()); }, "18446744073709551615"},
      {[](auto& r) { r.log("s", 1, "100%% %s", Kel::String("done")); }, "100% done"},
      {[](auto& r) { r.log("s", 1, "%d %g %e", Small::three, 0.5, 1e10); }, "3 0.5 1.000000e+10"},
      {[nullText](auto& r) { r.log("s", 1, "[%s] %p", nullText, nullptr); }, "[(null)] (nil)"},
  };
  Brisklog::Ring ring(4);
  for (auto const& c : cases) {
    c.write(ring);
    auto recs = ring.records(1);
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].message(), c.expected);
    EXPECT_FALSE(recs[0].truncated()) << c.expected;
  }
}

TEST(BrisklogTest, WrapsAroundKeepingTheNewest) {
  Brisklog::Ring ring(3);
  for (int i = 0; i < 5; ++i) ring.log("src", i % 2, "n=%d", i);
  EXPECT_EQ(ring.size(), 3u);
  EXPECT_EQ(ring.written(), 5u);
  auto recs = ring.records();
  ASSERT_EQ(recs.size(), 3u);
  for (std::size_t i = 0; i < recs.size(); ++i) {
    EXPECT_EQ(recs[i].sequence(), i + 2);
    EXPECT_EQ(recs[i].message(), "n=" + std::to_string(i + 2));
    EXPECT_EQ(recs[i].level(), static_cast<int>((i + 2) % 2));
    EXPECT_STREQ(recs[i].source(), "src");
  }
  auto newest = ring.records(2);
  ASSERT_EQ(newest.size(), 2u);
  EXPECT_EQ(newest[0].message(), "n=3");
  ring.clear();
  EXPECT_EQ(ring.size(), 0u);
  EXPECT_TRUE(ring.records().empty());
  EXPECT_THROW(Brisklog::Ring(0), Kel::RangeException);
}

TEST(BrisklogTest, CutsLongStringsAndDropsArgumentsThatDoNotFit) {
  Brisklog::Ring ring(2);
  ring.log("s", 0, "%s %d", std::string(300, 'a'), 5);
  auto r = ring.records(1).at(0);
  EXPECT_EQ(r.message(), std::string(Brisklog::maxStringBytes, 'a') + " 5");
  EXPECT_TRUE(r.truncated());

  // 20 integers fill the payload exactly (10 bytes each); the 21st is dropped.
  ring.log("s", 0, "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d %d", 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
           1, 1, 1, 1, 2);
  r = ring.records(1).at(0);
  EXPECT_EQ(r.message(), std::string(20, '1') + " <?>");
  EXPECT_TRUE(r.truncated());
  EXPECT_EQ(r.args().size(), 20u);
}

TEST(BrisklogTest, ConcurrentWritersLeaveWholeRecordsInOrder) {
  Brisklog::Ring ring(64);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&ring, t] {
      for (int i = 0; i < 1000; ++i) ring.log("w", t, "%d:%d:%s", t, i, std::string(static_cast<std::size_t>(t), 'x'));
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(ring.written(), 4000u);
  auto recs = ring.records();
  ASSERT_EQ(recs.size(), 64u);
  for (std::size_t i = 0; i < recs.size(); ++i) {
    EXPECT_EQ(recs[i].sequence(), 4000 - 64 + i);
    int t = recs[i].level();
    EXPECT_EQ(recs[i].message().rfind(std::to_string(t) + ":", 0), 0u);
    EXPECT_EQ(recs[i].args().at(2).text, std::string(static_cast<std::size_t>(t), 'x'));
  }
}

TEST(BrisklogTest, TextCarriesTimeSourceLevelAndMessage) {
  Brisklog::Ring ring(1);
  ring.log("Src", 3, "hello %d", 1);
  auto r = ring.records().at(0);
  std::string text = r.text();
  std::tm tm{};
  long ns = -1;
  int end = 0;
  ASSERT_EQ(std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%9ld%n", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                        &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &ns, &end), 7) << text;
  EXPECT_EQ(end, 29) << text;
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  EXPECT_EQ(static_cast<std::int64_t>(::timegm(&tm)) * 1000000000 + ns, r.timeNs());
  EXPECT_EQ(text.substr(29), " Src 3 hello 1");
  EXPECT_NEAR(static_cast<double>(r.timeNs()) / 1e9, Kel::now(), 5.0);
}

}  // namespace
