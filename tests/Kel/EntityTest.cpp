// Reference-counted pointers, entities with their notifications, and the event log.
#include "Kel/Entity.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <memory>
#include <thread>
#include <unordered_set>
#include <vector>

#include "Kel/EventLog.h"
#include "Kel/NotificationRecorder.h"

using namespace Kel;

namespace {

int liveObjects = 0;

struct Obj : PtrInterface {
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
    Obj::Ptr a = makePtr<Obj>(7), b;
    Obj* raw = a.get();
    struct Step { const char* what; void (*op)(Obj::Ptr& a, Obj::Ptr& b); std::uint32_t refs; bool aSet, bSet; };
    const Step steps[] = {
        {"copy-assign", [](Obj::Ptr& x, Obj::Ptr& y) { y = x; }, 2, true, true},
        {"self-assign", [](Obj::Ptr&, Obj::Ptr& y) { y = *&y; }, 2, true, true},
        {"reset", [](Obj::Ptr&, Obj::Ptr& y) { y.reset(); }, 1, true, false},
        {"move-assign", [](Obj::Ptr& x, Obj::Ptr& y) { y = std::move(x); }, 1, false, true},
        {"raw assign", [](Obj::Ptr& x, Obj::Ptr& y) { x = y.get(); }, 2, true, true},
        {"swap with null", [](Obj::Ptr& x, Obj::Ptr& y) { y = nullptr; x.swap(y); }, 1, false, true},
    };
    for (auto const& s : steps) {
      s.op(a, b);
      EXPECT_EQ(raw->references(), s.refs) << s.what;
      EXPECT_TRUE(static_cast<bool>(a) == s.aSet && static_cast<bool>(b) == s.bSet && liveObjects == 1) << s.what;
    }
  }
  EXPECT_EQ(liveObjects, 0);
}

TEST(PtrTest, ConversionsShareTheCountAndCompareByIdentity) {
  Derived::Ptr d = makePtr<Derived>(3);
  Obj::PtrConst c = d;
  Obj::Ptr base = d;
  EXPECT_EQ(d->references(), 3u);
  EXPECT_TRUE(c == d && c == d.get());
  EXPECT_EQ(ptrDynamicCast<Derived>(base), d);
  EXPECT_EQ(ptrConstCast<Obj>(c), base);
  Obj::PtrConst moved = std::move(base);
  EXPECT_FALSE(base);
  EXPECT_EQ(d->references(), 3u);
  Obj::Ptr other = new Obj(3), none;
  EXPECT_NE(Obj::Ptr(d), other);
  EXPECT_NE(d < other, other < d);
  std::unordered_set<Obj::Ptr> set{d, base, other, none, Obj::Ptr(d)};
  EXPECT_EQ(set.size(), 3u);
}

// Meaningful under -fsanitize=thread with KEL_THREAD_SAFE_PTR=ON: concurrent copies of
// one pointer must neither race on the count nor lose a reference.
TEST(PtrTest, CopiesFromSeveralThreadsKeepTheCount) {
  Obj::Ptr shared = makePtr<Obj>(5);
  auto copyMany = [&shared] {
    for (int i = 0; i < 20000; ++i) {
      Obj::PtrConst copy = Obj::Ptr(shared);
      if (copy->value != 5) std::abort();
    }
  };
#if KEL_THREAD_SAFE_PTR
  std::vector<std::thread> threads(4);
  for (auto& th : threads) th = std::thread(copyMany);
  for (auto& th : threads) th.join();
#else
  copyMany();
#endif
  EXPECT_EQ(shared->references(), 1u);
  shared.reset();
  EXPECT_EQ(liveObjects, 0);
}

constexpr AttributeId attrColour = 258;
constexpr AttributeId attrMember = 259;

struct Widget : Entity {
  KEL_PTR_TYPEDEFS(Widget);
  using Entity::Entity;
};

// Runs an action from inside a notification.
struct Hook : Entity::Notifiee {
  using Notifiee::Notifiee;
  std::function<void()> action;
  void onAttribute(AttributeId, AttrKey const&) override {
    if (action) action();
  }
};

TEST(EntityTest, DeliversOnlyWhenTurnedOnAndObserved) {
  Widget::Ptr w = new Widget("w");
  NotificationRecorder rec(w.get());
  w->notify(attrColour);
  EXPECT_TRUE(rec.empty()) << "delivery is off by default";
  w->deliversNotificationsIs(true);
  w->notify(attrColour);
  w->notify(attrMember, String("k1"));
  w->notify(attrMember, 42u);
  ASSERT_EQ(rec.size(), 3u);
  EXPECT_FALSE(rec.records()[0].hasKey());
  EXPECT_EQ(rec.count(attrMember, String("k1")), 1u);
  EXPECT_EQ(rec.keys<unsigned>(attrMember), std::vector<unsigned>{42u});
  EXPECT_EQ(rec.records()[2].keyAs<int>(), nullptr) << "key type must match exactly";
  rec.notifierIs(nullptr);
  w->notify(attrColour);
  EXPECT_EQ(rec.size(), 3u);
  EXPECT_EQ(w->notifieeCount(), 0u);
}

TEST(EntityTest, ObserversMayLeaveOrJoinDuringDelivery) {
  Widget::Ptr w = new Widget("w");
  w->deliversNotificationsIs(true);
  auto first = std::make_unique<Hook>(w.get());
  auto second = std::make_unique<Hook>(w.get());
  NotificationRecorder third(w.get());
  std::unique_ptr<NotificationRecorder> late;
  first->action = [&] {
    second.reset();  // leaves before its turn
    if (!late) late = std::make_unique<NotificationRecorder>(w.get());
  };
  w->notify(attrColour);
  EXPECT_EQ(third.size(), 1u);
  EXPECT_TRUE(late->empty()) << "joined during the delivery";
  EXPECT_EQ(w->notifieeCount(), 3u);
  w->notify(attrColour);
  EXPECT_EQ(third.size(), 2u);
  EXPECT_EQ(late->size(), 1u);
}

// Under AddressSanitizer: an observer that drops the last reference must not make the
// rest of the delivery touch freed memory, and an uncounted entity must not be freed.
TEST(EntityTest, EntityOutlivesDeliveryWhenAnObserverDropsTheLastReference) {
  Widget::Ptr w = new Widget("w");
  w->deliversNotificationsIs(true);
  Hook dropper(w.get());
  NotificationRecorder after(w.get());
  dropper.action = [&] { w.reset(); };
  w->notify(attrColour);
  EXPECT_EQ(after.size(), 1u) << "observers after the one that dropped it still hear";
  EXPECT_EQ(after.notifier(), nullptr) << "destroyed once the delivery ended";

  Widget onStack("s");
  onStack.deliversNotificationsIs(true);
  NotificationRecorder rec(&onStack);
  onStack.notify(attrColour);
  EXPECT_EQ(onStack.references(), 0u);
  EXPECT_EQ(rec.size(), 1u);
}

TEST(EntityTest, ParentLinkObserverDetachAndFullName) {
  NotificationRecorder rec;
  {
    Widget::Ptr root = new Widget("root"), child = new Widget("child");
    child->parentIs(root.get());
    EXPECT_EQ(child->fullName(), String("/root/child"));
    EXPECT_EQ(root->references(), 1u) << "the parent link does not own";
    child->parentIs(nullptr);
    EXPECT_EQ(child->fullName(), String("/child"));
    rec.notifierIs(child.get());
  }
  EXPECT_EQ(rec.notifier(), nullptr) << "an observer outliving its entity is detached";
}

// Captures records and drives the clock for one test.
struct EventLogTest : ::testing::Test {
  std::vector<EventLog::Record> records;
  Seconds clockNow = 1000.0;
  EventLog::Sink oldSink = EventLog::sinkIs([this](EventLog::Record const& r) { records.push_back(r); });
  EventLog::Clock oldClock = EventLog::clockIs([this] { return clockNow; });
  ~EventLogTest() override {
    EventLog::sinkIs(oldSink);
    EventLog::clockIs(oldClock);
  }
};

EventLog::Handle<String, String> const neighbor("TEST_NEIGHBOR", 5, "neighbor %s on %s", "New neighbor.",
                                                EventLog::noActionRequired, 0.0);
EventLog::Handle<String, int, double> const rateLimit("TEST_RATELIMIT", 4, "limit on %s (more than %d in %f seconds)",
                                                      "", "", 60.0);

// An argument the format does not take does not compile.
template <class H, class... A>
concept Loggable = requires(H const& h, A const&... a) { h.log(a...); };
using RateLimit = decltype(rateLimit);
static_assert(Loggable<RateLimit, String, int, double> && Loggable<RateLimit, char const*, std::uint64_t, float>);
static_assert(!Loggable<RateLimit, String, double, double>, "%d given a double");
static_assert(!Loggable<RateLimit, int, int, double>, "%s given an int");
static_assert(!Loggable<RateLimit, String, int, int>, "%f given an int");
static_assert(!Loggable<RateLimit, String, int> && !Loggable<RateLimit, String, int, double, int>, "count");
static_assert(!Loggable<decltype(neighbor), String, std::vector<int>>, "not printable");
static_assert(Printf::formatSuits<String, int, double>("limit on %s (more than %d in %f seconds)") &&
              !Printf::formatSuits<String, String, String>("limit on %s (more than %d in %f seconds)"),
              "what a handle's declaration is checked with");

TEST_F(EventLogTest, FormatsArgumentsAndSuppressesRepeatsWithinTheInterval) {
  EXPECT_TRUE(rateLimit.log(String("Ethernet1"), std::uint64_t{5000000000}, 1.5));
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, String("limit on Ethernet1 (more than 5000000000 in 1.500000 seconds)"));
  EXPECT_EQ(records[0].handle, &rateLimit);
  EXPECT_EQ(records[0].time, 1000.0);
  EXPECT_EQ(EventLog::handle("TEST_NEIGHBOR"), &neighbor);
  EXPECT_EQ(EventLog::handle("TEST_NONE"), nullptr);

  struct Step { Seconds at; const char* intf; EventLog::HandleBase const* h; bool emitted; std::uint64_t suppressedBefore; };
  const Step steps[] = {
      {2000.0, "Et1", &rateLimit, true, 0},
      {2010.0, "Et1", &rateLimit, false, 0},  // within 60 s
      {2010.0, "Et2", &rateLimit, true, 0},   // another text has its own interval
      {2059.9, "Et1", &rateLimit, false, 0},
      {2060.0, "Et1", &rateLimit, true, 2},   // interval over: reports the two dropped
      {2061.0, "Et1", &rateLimit, false, 0},
      {2000.0, "Et1", &rateLimit, true, 1},   // clock stepped back: not silenced
      {2000.0, "Et1", &neighbor, true, 0},    // interval 0 never suppresses
      {2000.0, "Et1", &neighbor, true, 0},
  };
  for (auto const& s : steps) {
    clockNow = s.at;
    std::size_t before = records.size();
    bool emitted = s.h == &rateLimit ? rateLimit.log(s.intf, 1, 1.0) : neighbor.log(s.intf, s.intf);
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
  EventLog::Handle<int> const h("TEST_STDERR", 3, "value %d", "", EventLog::noActionRequired, 0.0);
  ::testing::internal::CaptureStderr();
  h.log(7);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "TEST_STDERR[3]: value 7\n");
}


// A record's text is made from its arguments when a sink reads it, never when no sink
// does, and a record a sink keeps still reads the same once the call has returned.
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
