// The transmit timing of IEEE 802.1AB-2016 on a simulated clock: which frames leave when.
#include <gtest/gtest.h>

#include <sstream>

#include "tools/LldpTx/TxMachine.h"

namespace {

using LldpTx::TxMachine;

struct Event {
  double at;
  char what;  // e enable, d disable, c local change, n new neighbour
};

void apply(TxMachine& m, Event const& e) {
  if (e.what == 'e') m.enabledIs(true, e.at);
  if (e.what == 'd') m.enabledIs(false, e.at);
  if (e.what == 'c') m.localChange();
  if (e.what == 'n') m.newNeighbour(e.at);
}

// Frames as "0 1 S20" (S: shutdown), the clock stepping every `step` seconds, or (step 0)
// waking only when nextWake() says or for an event, as an event loop does.
std::string frames(LldpTx::TxTiming const& timing, std::vector<Event> const& events, double until, double step) {
  TxMachine m(timing);
  std::ostringstream out;
  std::size_t next = 0;
  for (double t = 0; t <= until;) {
    while (next < events.size() && events[next].at <= t) apply(m, events[next++]);
    for (TxMachine::Action a; (a = m.poll(t)) != TxMachine::Action::none;)
      out << (out.tellp() ? " " : "") << (a == TxMachine::Action::shutdown ? "S" : "") << t;
    double wake = step ? t + step : std::max(m.nextWake(), t + 1e-9);
    if (!step && next < events.size()) wake = std::min(wake, events[next].at);
    t = wake;
  }
  return out.str();
}

TEST(AgentTxMachineTest, FramesLeaveWhenTheStandardSays) {
  LldpTx::TxTiming const d;  // interval 30, txDelay 2, reinitDelay 2, 4 fast frames 1 s apart, 5 credits
  LldpTx::TxTiming noDelay = d;
  noDelay.txDelay = 0;
  LldpTx::TxTiming fast5 = d;
  fast5.msgTxInterval = 5;
  struct Case {
    const char* what;
    LldpTx::TxTiming timing;
    std::vector<Event> events;
    double until;
    const char* frames;
  };
  // clang-format off
  Case const cases[] = {
    {"fast start, then every interval", d, {{0, 'e'}}, 70, "0 1 2 3 33 63"},
    {"a new neighbour starts fast transmission again", d, {{0, 'e'}, {40, 'n'}}, 80, "0 1 2 3 33 40 41 42 43 73"},
    {"a new neighbour during fast start changes nothing", d, {{0, 'e'}, {2, 'n'}}, 40, "0 1 2 3 33"},
    {"a change sends at once", d, {{0, 'e'}, {10, 'c'}}, 40, "0 1 2 3 10 33"},
    {"a change waits txDelay after the last frame", d, {{0, 'e'}, {3.5, 'c'}}, 40, "0 1 2 3 5 33"},
    {"a burst of changes spends the credit, then one a second",
     noDelay, {{0, 'e'}, {10, 'c'}, {10.25, 'c'}, {10.5, 'c'}, {10.75, 'c'}, {11, 'c'}, {11.25, 'c'}, {11.5, 'c'},
               {11.75, 'c'}}, 20, "0 1 2 3 10 10.25 10.5 10.75 11 11.25 12"},
    {"disabling sends a shutdown; enabling again waits reinitDelay",
     d, {{0, 'e'}, {20, 'd'}, {21, 'e'}}, 60, "0 1 2 3 S20 22 23 24 25 55"},
    {"disabled before it ever sent: no shutdown", d, {{0.25, 'e'}, {0.25, 'd'}}, 10, ""},
    {"the configured interval", fast5, {{0, 'e'}}, 20, "0 1 2 3 8 13 18"},
  };
  // clang-format on
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(frames(c.timing, c.events, c.until, 0.25), c.frames);
    EXPECT_EQ(frames(c.timing, c.events, c.until, 0), c.frames);
  }
}

}  // namespace
