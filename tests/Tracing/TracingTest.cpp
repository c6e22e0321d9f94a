#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/String.h"
#include "Tracing/Duolog.h"

namespace {

enum class Small : std::uint8_t { three = 3 };

// The message of one record holding args; it must read as printf would have written it.
template <typename... A>
std::string render(Brisklog::Format<std::type_identity_t<A>...> format, A const&... args) {
  Brisklog::Ring ring(1);
  ring.log("s", 1, format, args...);
  auto r = ring.records().at(0);
  EXPECT_FALSE(r.truncated()) << r.message();
  return r.message();
}

// What the compile-time check lets through and what it refuses.
static_assert(Kel::Printf::formatSuits<int, unsigned, const char*, float, void*>("%-3d %#x %.2s %e %p 100%%"));
static_assert(!Kel::Printf::formatSuits<int>("%s") && !Kel::Printf::formatSuits<double>("%d"), "unsuitable");
static_assert(!Kel::Printf::formatSuits<int>("%d %d") && !Kel::Printf::formatSuits<int, int>("%d"), "count");
static_assert(!Kel::Printf::formatSuits<int>("%n") && !Kel::Printf::formatSuits<int>("%*d"), "refused");

TEST(BrisklogTest, StoresAndRendersArguments) {
  EXPECT_EQ(render("%d %i", -5, std::int64_t{-1234567890123}), "-5 -1234567890123");
  EXPECT_EQ(render("%u %x", -1, static_cast<signed char>(-1)), "4294967295 ffffffff");
  EXPECT_EQ(render("%hhx %hd", 300, 70000), "2c 4464");
  EXPECT_EQ(render("%5d|%-5d|%05.1f", 42, 7, 3.14159), "   42|7    |003.1");
  EXPECT_EQ(render("%s/%.3s/%3s", std::string("ab"), std::string_view("abcdef"), "x"), "ab/abc/  x");
  EXPECT_EQ(render("%c%c %zu %d", 'O', 75, std::size_t{7}, true), "OK 7 1");
  EXPECT_EQ(render("%llu %d", ~std::uint64_t{0}, ~std::uint64_t{0}), "18446744073709551615 -1");
  EXPECT_EQ(render("100%% %s %d %g %e", Kel::String("done"), Small::three, 0.5, 1e10), "100% done 3 0.5 1.000000e+10");
  EXPECT_EQ(render("[%s] %p", static_cast<const char*>(nullptr), nullptr), "[(null)] (nil)");
}

TEST(BrisklogTest, WrapsAroundKeepingTheNewest) {
  Brisklog::Ring ring(3);
  for (int i = 0; i < 5; ++i) ring.log("src", i % 2, "n=%d", i);
  EXPECT_EQ(ring.written(), 5u);
  auto recs = ring.records();
  ASSERT_EQ(recs.size(), 3u);
  for (std::size_t i = 0; i < recs.size(); ++i) {
    EXPECT_EQ(recs[i].sequence(), i + 2);
    EXPECT_EQ(recs[i].message(), "n=" + std::to_string(i + 2));
  }
  ring.clear();
  EXPECT_TRUE(ring.records().empty());
  EXPECT_THROW(Brisklog::Ring(0), Kel::RangeException);
}

TEST(BrisklogTest, CutsLongStringsAndDropsArgumentsThatDoNotFit) {
  Brisklog::Ring ring(3);
  // Longer than a string may be, though the record would have room for it.
  ring.log("s", 0, "%s %d", std::string(150, 'a'), 5);
  // 20 integers take 200 of the 208 payload bytes (10 each); a 21st does not fit.
  ring.log("s", 0, "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d %d", 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
           1, 1, 1, 1, 2);
  // 19 integers and two doubles (9 bytes each) fill it to the last byte: all kept.
  ring.log("s", 0, "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d %g %g", 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
           1, 1, 1, 0.5, 0.25);
  auto recs = ring.records();
  EXPECT_EQ(recs.at(0).message(), std::string(Brisklog::maxStringBytes, 'a') + " 5");
  EXPECT_EQ(recs.at(1).message(), std::string(20, '1') + " <?>");
  EXPECT_TRUE(recs[0].truncated() && recs[1].truncated());
  EXPECT_EQ(recs.at(2).message(), std::string(19, '1') + " 0.5 0.25");
  EXPECT_FALSE(recs[2].truncated());
}

TEST(BrisklogTest, TextCarriesUtcTimeSourceLevelAndMessage) {
  Brisklog::Ring ring(1);
  ring.log("Src", 3, "hello %d", 1);
  auto r = ring.records().at(0);
  std::tm tm{};
  long ns = -1;
  ASSERT_EQ(std::sscanf(r.text().c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%9ld", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                        &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &ns), 7) << r.text();
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  EXPECT_EQ(static_cast<std::int64_t>(::timegm(&tm)) * 1000000000 + ns, r.timeNs());
  EXPECT_EQ(r.text().substr(29), " Src 3 hello 1");
  EXPECT_NEAR(static_cast<double>(r.timeNs()) / 1e9, Kel::now(), 5.0);
}

// Malformed entries are skipped; the last setting matching a name gives its level.
TEST(DuologTest, ParsesLevelSettingsAndMatchesNames) {
  struct Case {
    const char* text;
    std::vector<Duolog::LevelSetting> settings;
    const char* name;
    std::optional<int> level;
  } const cases[] = {
      {"LldpPoeX/8,LldpPoe/6", {{"LldpPoeX", 8}, {"LldpPoe", 6}}, "LldpPoeX", 8},
      {" A / 1 , ,B\t", {{"A", 1}, {"B", Duolog::allLevels}}, "B", Duolog::allLevels},
      {"*/6,Lldp*/3", {{"*", 6}, {"Lldp*", 3}}, "LldpPoe", 3},
      {"*/6,Lldp*/3", {{"*", 6}, {"Lldp*", 3}}, "Other", 6},
      {"Lldp*/3,*/6", {{"Lldp*", 3}, {"*", 6}}, "LldpPoe", 6},
      {"Lldp*/3", {{"Lldp*", 3}}, "Lld", std::nullopt},
      {"Lldp/2", {{"Lldp", 2}}, "LldpPoe", std::nullopt},
      {"A/,/3,C/-1,D/99999999999,E/2/3,F*G/1,**/2,A/x,A/+1,H/4", {{"H", 4}}, "A", std::nullopt},
      {",,,", {}, "A", std::nullopt},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(Duolog::parseLevelSettings(c.text), c.settings) << c.text;
    EXPECT_EQ(Duolog::levelFor(c.settings, c.name), c.level) << c.text << " " << c.name;
  }
}

// A trace file that is replaced is closed; standard error never is.
TEST(DuologTest, ReplacedTraceFilesAreClosedButNeverStandardError) {
  auto const openFiles = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator{});
  };
  Duolog::fileIs("");
  auto const before = openFiles();
  std::string const path = ::testing::TempDir() + "duolog-file-test";
  for (int i = 0; i < 3; ++i) Duolog::fileIs(path + std::to_string(i));
  Duolog::fileIs("");
  Duolog::fileIs(path + "3");
  Duolog::fileIs("");
  EXPECT_EQ(openFiles(), before);
  EXPECT_NE(::fcntl(STDERR_FILENO, F_GETFD), -1);
  for (int i = 0; i <= 3; ++i) std::remove((path + std::to_string(i)).c_str());
}

TEST(DuologTest, HandleTakesItsLevelFromTheEnvironmentOnceAtCreation) {
  ::setenv(Duolog::levelVariable, "EnvSeven/7,EnvBad/x,EnvAll", 1);
  Duolog::Handle& seven = Duolog::handle("EnvSeven");
  EXPECT_EQ(Duolog::handle("EnvBad").level(), Duolog::defaultLevel);
  EXPECT_EQ(Duolog::handle("EnvAll").level(), Duolog::allLevels);
  ::setenv(Duolog::levelVariable, "EnvSeven/2", 1);
  EXPECT_EQ(&Duolog::handle("EnvSeven"), &seven);
  EXPECT_EQ(seven.level(), 7);
  ::unsetenv(Duolog::levelVariable);
  for (const char* bad : {"", "a,b", "a/b", "a*", "a b"}) EXPECT_THROW(Duolog::handle(bad), Kel::RangeException) << bad;
}

DUOLOG_HANDLE(testTrace, "DuologTest")

// Captures the text trace; a ring record reads the same after its 29-character time stamp.
class DuologSinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testTrace().levelIs(Duolog::defaultLevel);
    Duolog::sinkIs([this](Duolog::Line const& l) { lines.push_back(Duolog::textOf(l)); });
  }
  void TearDown() override { Duolog::sinkIs(nullptr); }
  static std::string newestRecord() { return Brisklog::ring().records(1).at(0).text().substr(30); }
  std::vector<std::string> lines;
};

// An off statement evaluates neither its arguments nor its level twice.
TEST_F(DuologSinkTest, EnabledLinesReachRingAndSinkAndOffLinesNeither) {
  Duolog::Handle& h = testTrace();
  auto written = Brisklog::ring().written();
  int evaluated = 0, level = 5;
  auto costly = [&evaluated] { return ++evaluated; };
  DUOLOG(h, 0, "Error: %s is too short (length=%d)", "Power Via MDI TLV", 2);
  EXPECT_EQ(lines, std::vector<std::string>{"DuologTest 0 Error: Power Via MDI TLV is too short (length=2)"});
  EXPECT_EQ(newestRecord(), lines.back());
  DUOLOG(h, level++, "off %d", costly());
  BRISKLOG(h, level++, "off %d", costly());
  h.levelIs(6);
  DUOLOG(h, 6, "on %d", 3);
  BRISKLOG(h, 6, "brisk %d", 4);
  DUOLOG(h, 7, "off %d", costly());
  EXPECT_EQ(lines.back(), "DuologTest 6 on 3");
  EXPECT_EQ(newestRecord(), "DuologTest 6 brisk 4");
  EXPECT_EQ(Brisklog::ring().written(), written + 3);
  h.levelIs(-1);  // silences even errors
  DUOLOG(h, 0, "%d", costly());
  EXPECT_EQ(evaluated, 0);
  h.levelIs(9);
  DUOLOG(h, level++, "%d", costly());
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(level, 8);
  EXPECT_EQ(lines.back(), "DuologTest 7 1");
  // A failing line is dropped; tracing never throws into the traced code.
  Duolog::sinkIs([](Duolog::Line const&) { throw std::runtime_error("sink"); });
  EXPECT_NO_THROW(DUOLOG(h, 0, "x"));
}

// Meaningful under ThreadSanitizer: writers on several threads find one handle and write
// through it while another thread changes its level (between two that keep the lines
// on) and a third reads the ring. Every line arrives whole, each writer's in order.
TEST_F(DuologSinkTest, ThreadsWriteWhileLevelsChangeAndTheRingIsRead) {
  constexpr int writers = 4, perWriter = 300;
  auto written = Brisklog::ring().written();
  Duolog::handle("DuologThreads").levelIs(1);
  std::atomic<bool> done{false};
  std::vector<Duolog::Handle*> found(writers);
  std::vector<std::thread> threads;
  for (int w = 0; w < writers; ++w)
    threads.emplace_back([w, &found] {
      Duolog::Handle& h = Duolog::handle("DuologThreads");
      found[static_cast<std::size_t>(w)] = &h;
      for (int i = 0; i < perWriter; ++i) {
        DUOLOG(h, 1, "w%d %d", w, i);
        BRISKLOG(h, 1, "b%d %s", w, std::string(static_cast<std::size_t>(i % 40), 'x'));
      }
    });
  std::thread changer([&done] {
    for (int l = 1; !done; l = l == 1 ? Duolog::allLevels : 1) Duolog::handle("DuologThreads").levelIs(l);
  });
  std::thread reader([&done] {
    while (!done)
      for (auto const& r : Brisklog::ring().records(8)) EXPECT_FALSE(r.text().empty());
  });
  for (auto& t : threads) t.join();
  done = true;
  changer.join();
  reader.join();

  EXPECT_EQ(Brisklog::ring().written(), written + 2 * writers * perWriter);
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(writers * perWriter));
  std::vector<int> next(writers, 0);
  for (auto const& line : lines) {
    int w = -1, i = -1;
    ASSERT_EQ(std::sscanf(line.c_str(), "DuologThreads 1 w%d %d", &w, &i), 2) << line;
    ASSERT_TRUE(w >= 0 && w < writers) << line;
    EXPECT_EQ(i, next[static_cast<std::size_t>(w)]++) << line;
  }
  for (auto* h : found) EXPECT_EQ(h, found[0]);
}

}  // namespace
