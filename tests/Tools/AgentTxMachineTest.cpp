// The transmit timing of IEEE 802.1AB-2016 on a simulated clock: which frames leave when.
#include <gtest/gtest.h>

#include <sstream>

#include "Tools/AgentTestUtil.h"
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
  for (auto const& row : AgentTest::dataRows(LLDP_TEST_DATA_DIR "/tx-machine-timing.txt")) {
    SCOPED_TRACE(row.at(0));
    LldpTx::TxTiming timing;
    std::istringstream(row.at(1)) >> timing.msgTxInterval >> timing.txDelay;
    std::vector<Event> events;
    std::istringstream in(row.at(2));
    for (Event e; in >> e.what >> e.at;) events.push_back(e);
    EXPECT_EQ(frames(timing, events, std::stod(row.at(3)), 0.25), row.at(4));
    EXPECT_EQ(frames(timing, events, std::stod(row.at(3)), 0), row.at(4));
  }
}

}  // namespace
