#include "Tracing/Duolog.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kel/Exception.h"

namespace {

using Duolog::LevelSetting;
constexpr int all = Duolog::allLevels;

TEST(DuologTest, ParsesLevelSettingsSkippingMalformedEntries) {
  struct Case {
    const char* text;
    std::vector<LevelSetting> expected;
  } const cases[] = {
      {"LldpPoe/6,LldpExtDot3Parser/8", {{"LldpPoe", 6}, {"LldpExtDot3Parser", 8}}},
      {"*/6", {{"*", 6}}},
      {" A / 1 , ,B\t", {{"A", 1}, {"B", all}}},
      {"Lldp*/3", {{"Lldp*", 3}}},
      {"A/,/3,C/-1,D/99999999999,E/2/3,F*G/1,**/2,A/x,A/+1,H/4", {{"H", 4}}},
      {"", {}},
      {",,,", {}},
  };
  for (auto const& c : cases) EXPECT_EQ(Duolog::parseLevelSettings(c.text), c.expected) << c.text;
}

TEST(DuologTest, LastMatchingSettingWins) {
  struct Case {
    const char* text;
    const char* name;
    std::optional<int> expected;
  } const cases[] = {
      {"*/6,LldpPoe/8", "LldpPoe", 8}, {"*/6,LldpPoe/8", "Other", 6}, {"LldpPoe/8,*/6", "LldpPoe", 6},
      {"Lldp*/3", "LldpPoe", 3},       {"Lldp*/3", "Lld", std::nullopt}, {"Lldp/2", "LldpPoe", std::nullopt},
      {"", "LldpPoe", std::nullopt},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(Duolog::levelFor(Duolog::parseLevelSettings(c.text), c.name), c.expected) << c.text << " " << c.name;
  }
}

TEST(DuologTest, HandleTakesItsLevelFromTheEnvironmentOnceAtCreation) {
  ::setenv(Duolog::levelVariable, "EnvSeven/7,EnvBad/x,EnvAll", 1);
  Duolog::Handle& seven = Duolog::handle("EnvSeven");
  EXPECT_EQ(Duolog::handle("EnvBad").level(), Duolog::defaultLevel);
  EXPECT_EQ(Duolog::handle("EnvAll").level(), all);
  EXPECT_EQ(Duolog::handle("EnvNone").level(), Duolog::defaultLevel);
  ::setenv(Duolog::levelVariable, "EnvSeven/2", 1);
  EXPECT_EQ(&Duolog::handle("EnvSeven"), &seven);
  EXPECT_EQ(seven.level(), 7);
  ::unsetenv(Duolog::levelVariable);

  for (const char* bad : {"", "a,b", "a/b", "a*", "a b"}) {
    EXPECT_THROW(Duolog::handle(bad), Kel::RangeException) << bad;
  }
}

TEST(DuologTest, ConcurrentFirstUseCreatesOneHandle) {
  std::vector<Duolog::Handle*> seen(8);
  std::vector<std::thread> threads;
  for (auto& s : seen) threads.emplace_back([&s] { s = &Duolog::handle("Racing"); });
  for (auto& t : threads) t.join();
  EXPECT_EQ(std::set<Duolog::Handle*>(seen.begin(), seen.end()).size(), 1u);
}

DUOLOG_HANDLE(testTrace, "DuologTest")

class DuologSinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testTrace().levelIs(Duolog::defaultLevel);
    Duolog::sinkIs([this](Duolog::Line const& l) {
      lines.push_back(std::string(l.handle) + "|" + std::to_string(l.level) + "|" + std::string(l.message));
    });
  }
  void TearDown() override { Duolog::sinkIs(nullptr); }
  std::string newestRecord() {
    auto r = Brisklog::ring().records(1).at(0);
    return std::string(r.source()) + "|" + std::to_string(r.level()) + "|" + r.message();
  }
  std::vector<std::string> lines;
};

TEST_F(DuologSinkTest, EnabledLinesReachRingAndSinkAndOffLinesNeither) {
  Duolog::Handle& h = testTrace();
  auto written = Brisklog::ring().written();
  DUOLOG(h, 0, "Error: %s is too short (length=%d)", "Power Via MDI TLV", 2);
  std::string const error = "DuologTest|0|Error: Power Via MDI TLV is too short (length=2)";
  EXPECT_EQ(lines, std::vector<std::string>{error});
  EXPECT_EQ(newestRecord(), error);

  DUOLOG(h, 6, "off %d", 1);
  BRISKLOG(h, 6, "off %d", 2);
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_EQ(Brisklog::ring().written(), written + 1);

  h.levelIs(6);
  EXPECT_TRUE(Duolog::enabled(h, 6));
  EXPECT_FALSE(Duolog::enabled(h, 7));
  DUOLOG(h, 6, "on %d", 3);
  BRISKLOG(h, 6, "brisk %d", 4);
  DUOLOG(h, 7, "off %d", 5);
  EXPECT_EQ(lines.back(), "DuologTest|6|on 3");
  EXPECT_EQ(lines.size(), 2u);
  EXPECT_EQ(newestRecord(), "DuologTest|6|brisk 4");
  EXPECT_EQ(Brisklog::ring().written(), written + 3);

  h.levelIs(-1);
  DUOLOG(h, 0, "silenced");
  EXPECT_EQ(lines.size(), 2u);
}

TEST_F(DuologSinkTest, OffStatementsEvaluateNoArgumentsAndTheLevelOnce) {
  int evaluated = 0;
  int level = 5;
  auto costly = [&evaluated] { return ++evaluated; };
  DUOLOG(testTrace(), level++, "%d", costly());
  BRISKLOG(testTrace(), level++, "%d", costly());
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(level, 7);
  testTrace().levelIs(9);
  DUOLOG(testTrace(), level++, "%d", costly());
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(level, 8);
  EXPECT_EQ(lines, std::vector<std::string>{"DuologTest|7|1"});
}

TEST_F(DuologSinkTest, ThrowingSinkDoesNotEscapeTheStatement) {
  Duolog::sinkIs([](Duolog::Line const&) { throw std::runtime_error("sink"); });
  EXPECT_NO_THROW(DUOLOG(testTrace(), 0, "x"));
}

TEST(DuologFileTest, WritesTextLinesToTheTraceFile) {
  std::string path = ::testing::TempDir() + "duolog_trace.txt";
  std::remove(path.c_str());
  Duolog::fileIs(path);
  DUOLOG(testTrace(), 0, "to file %s", std::string("ok"));
  Duolog::fileIs("");
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), "DuologTest 0 to file ok\n");
  EXPECT_EQ(Duolog::textOf({"H", 4, "m"}), "H 4 m");
  EXPECT_THROW(Duolog::fileIs("/nonexistent-dir/trace"), Kel::Exception);
}

}  // namespace
