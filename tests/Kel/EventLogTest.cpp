#include "Kel/EventLog.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Kel;
using namespace Kel::EventLog;

namespace {

// Captures records and drives the clock for one test.
struct EventLogTest : ::testing::Test {
  std::vector<Record> records;
  Seconds clockNow = 1000.0;
  Sink oldSink;
  Clock oldClock;
  void SetUp() override {
    oldSink = sinkIs([this](Record const& r) { records.push_back(r); });
    oldClock = clockIs([this] { return clockNow; });
  }
  void TearDown() override {
    sinkIs(oldSink);
    clockIs(oldClock);
  }
};

Handle const neighbor("TEST_NEIGHBOR", 5, "neighbor %s on %s", "New neighbor.", noActionRequired, 0.0);

}  // namespace

TEST_F(EventLogTest, FormatsArgumentsAndKeepsParameters) {
  Handle const rateLimit("TEST_RATELIMIT", 4, "limit on %s (more than %d in %f seconds)", "", "", 60.0);
  String intf("Ethernet1");
  EXPECT_TRUE(rateLimit.log(intf, 5, 1.5));
  EXPECT_TRUE(neighbor.log("00:11:22:33:44:55", "Ethernet2"));
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].text, String("limit on Ethernet1 (more than 5 in 1.500000 seconds)"));
  EXPECT_EQ(records[0].handle, &rateLimit);
  EXPECT_EQ(records[0].time, 1000.0);
  EXPECT_EQ(records[1].text, String("neighbor 00:11:22:33:44:55 on Ethernet2"));
  EXPECT_EQ(neighbor.recommendedAction(), String("No action is required."));
  EXPECT_EQ(neighbor.param(), 1.0);
  EXPECT_EQ(neighbor.flag(), 0);
  EXPECT_EQ(EventLog::handle("TEST_NEIGHBOR"), &neighbor);
  EXPECT_EQ(EventLog::handle("TEST_NONE"), nullptr);
}

TEST_F(EventLogTest, RepeatIntervalSuppressesTheSameText) {
  Handle const rateLimit("TEST_RATELIMIT", 4, "limit on %s (more than %d in %f seconds)", "", "", 60.0);
  struct Step { Seconds at; const char* intf; Handle const* h; bool emitted; std::uint64_t suppressedBefore; };
  const Step steps[] = {
      {2000.0, "Et1", &rateLimit, true, 0},
      {2010.0, "Et1", &rateLimit, false, 0},   // within 60 s
      {2010.0, "Et2", &rateLimit, true, 0},    // another text has its own interval
      {2059.9, "Et1", &rateLimit, false, 0},
      {2060.0, "Et1", &rateLimit, true, 2},    // interval over: reports the two dropped
      {2061.0, "Et1", &rateLimit, false, 0},
      {2000.0, "Et1", &rateLimit, true, 1},    // clock stepped back: not silenced
      {2000.0, "Et1", &neighbor, true, 0},     // interval 0 never suppresses
      {2000.0, "Et1", &neighbor, true, 0},
  };
  for (auto const& s : steps) {
    clockNow = s.at;
    std::size_t before = records.size();
    bool emitted = s.h == &rateLimit ? s.h->log(s.intf, 1, 1.0) : s.h->log(s.intf, s.intf);
    EXPECT_EQ(emitted, s.emitted) << s.at << " " << s.intf;
    ASSERT_EQ(records.size(), before + (s.emitted ? 1 : 0));
    if (s.emitted) {
      EXPECT_EQ(records.back().suppressedBefore, s.suppressedBefore) << s.at << " " << s.intf;
    }
  }
  EXPECT_EQ(rateLimit.suppressedCount(), 3u);
  EXPECT_EQ(neighbor.suppressedCount(), 0u);
}

TEST(EventLog, DefaultSinkWritesAnnotatedLineToStderr) {
  Handle const h("TEST_STDERR", 3, "value %d", "", noActionRequired, 0.0);
  ::testing::internal::CaptureStderr();
  h.log(7);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "TEST_STDERR[3]: value 7\n");
}
