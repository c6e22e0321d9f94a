// A record's text is made from its arguments when a sink reads it, never when no sink
// does, and a record a sink keeps still reads the same once the call has returned.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/EventLog.h"

namespace {

using namespace Kel;

struct Chassis {
  mutable int made = 0;
  static void render(void const* ctx, std::string& out) {
    ++static_cast<Chassis const*>(ctx)->made;
    out += "02:00:00:00:00:01";
  }
};

EventLog::Handle<String, String> const neighbour("TEST_LAZY_NEIGHBOR", 5, "neighbor %s on %s", "", EventLog::noActionRequired,
                                                 0.0);
EventLog::Handle<String, String> const limited("TEST_LAZY_LIMITED", 4, "neighbor %s on %s", "", EventLog::noActionRequired,
                                               60.0);

TEST(EventLogText, IsMadeWhenReadFromTheKeptArguments) {
  enum class Sink { drops, reads, keeps };
  struct Case {
    EventLog::HandleBase const& handle;
    Sink sink;
    int made;  // times the deferred argument was turned into text
  };
  Case const cases[] = {
      {neighbour, Sink::drops, 0},
      {neighbour, Sink::reads, 1},
      {neighbour, Sink::keeps, 1},
      {limited, Sink::drops, 1},  // its repeats are told apart by their text
  };
  std::string const want = "neighbor 02:00:00:00:00:01 on Ethernet1";
  for (Case const& c : cases) {
    Chassis chassis;
    std::vector<EventLog::Record> kept;
    std::string read;
    EventLog::Sink const previous = EventLog::sinkIs([&](EventLog::Record const& r) {
      if (c.sink == Sink::reads) read = r.text.stdString() + "|" + r.text.stdString();
      if (c.sink == Sink::keeps) kept.push_back(r);
    });
    std::string intf = "Ethernet1";
    static_cast<EventLog::Handle<String, String> const&>(c.handle).log(EventLog::Deferred{Chassis::render, &chassis}, intf);
    intf = "overwritten";  // a kept record holds its own copies
    EventLog::sinkIs(previous);
    EXPECT_EQ(chassis.made, c.made) << c.handle.name();
    if (c.sink == Sink::reads) {
      EXPECT_EQ(read, want + "|" + want);
    }
    if (c.sink == Sink::keeps) {
      ASSERT_EQ(kept.size(), 1u);
      EXPECT_EQ(kept[0].text.stdString(), want);
      ASSERT_EQ(kept[0].text.args().size(), 2u);
      EXPECT_EQ(kept[0].text.args()[1].text, "Ethernet1");
    }
  }
}

}  // namespace
