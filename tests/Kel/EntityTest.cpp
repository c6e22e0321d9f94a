#include "Kel/Entity.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "Kel/NotificationRecorder.h"

namespace {

constexpr Kel::AttributeId attrColour = 258;
constexpr Kel::AttributeId attrMember = 259;

struct Widget : Kel::Entity {
  KEL_PTR_TYPEDEFS(Widget);
  using Entity::Entity;
};

// Runs an action from inside a notification.
struct Hook : Kel::Entity::Notifiee {
  using Notifiee::Notifiee;
  std::function<void()> action;
  int heard = 0;
  void onAttribute(Kel::AttributeId, Kel::AttrKey const&) override {
    ++heard;
    if (action) action();
  }
};

TEST(EntityTest, DeliversOnlyWhenTurnedOnAndObserved) {
  Widget::Ptr w = new Widget("w");
  Kel::NotificationRecorder rec(w.get());
  w->notify(attrColour);
  EXPECT_TRUE(rec.empty()) << "delivery is off by default";
  w->deliversNotificationsIs(true);
  w->notify(attrColour);
  w->notify(attrMember, Kel::String("k1"));
  w->notify(attrMember, 42u);
  ASSERT_EQ(rec.size(), 3u);
  EXPECT_FALSE(rec.records()[0].hasKey());
  EXPECT_EQ(rec.count(attrColour), 1u);
  EXPECT_EQ(rec.count(attrMember), 2u);
  EXPECT_EQ(rec.count(attrMember, Kel::String("k1")), 1u);
  EXPECT_EQ(rec.keys<unsigned>(attrMember), std::vector<unsigned>{42u});
  EXPECT_EQ(rec.records()[2].keyAs<int>(), nullptr) << "key type must match exactly";
  rec.notifierIs(nullptr);
  w->notify(attrColour);
  EXPECT_EQ(rec.size(), 3u);
  EXPECT_EQ(w->notifieeCount(), 0u);
}

TEST(EntityTest, AttrKeyIsTypedReference) {
  std::uint8_t key = 9;
  Kel::AttrKey k(key);
  ASSERT_NE(k.as<std::uint8_t>(), nullptr);
  EXPECT_EQ(k.as<std::uint8_t>(), &key);
  EXPECT_EQ(k.as<std::uint16_t>(), nullptr);
  EXPECT_EQ(std::any_cast<std::uint8_t>(k.copy()), 9);
  EXPECT_TRUE(Kel::AttrKey().empty());
  EXPECT_EQ(Kel::AttrKey().as<int>(), nullptr);
}

TEST(EntityTest, ObserversMayLeaveOrJoinDuringDelivery) {
  Widget::Ptr w = new Widget("w");
  w->deliversNotificationsIs(true);
  auto first = std::make_unique<Hook>(w.get());
  auto second = std::make_unique<Hook>(w.get());
  Kel::NotificationRecorder third(w.get());
  std::unique_ptr<Kel::NotificationRecorder> late;
  first->action = [&] {
    second.reset();  // leaves before its turn
    if (!late) late = std::make_unique<Kel::NotificationRecorder>(w.get());
  };
  w->notify(attrColour);
  EXPECT_EQ(first->heard, 1);
  EXPECT_EQ(third.size(), 1u);
  EXPECT_TRUE(late->empty()) << "joined during the delivery";
  EXPECT_EQ(w->notifieeCount(), 3u);
  w->notify(attrColour);
  EXPECT_EQ(third.size(), 2u);
  EXPECT_EQ(late->size(), 1u);
}

TEST(EntityTest, ObserverOutlivingItsEntityIsDetached) {
  Kel::NotificationRecorder rec;
  {
    Widget::Ptr w = new Widget("w");
    rec.notifierIs(w.get());
    EXPECT_EQ(rec.notifier(), w.get());
  }
  EXPECT_EQ(rec.notifier(), nullptr);
}

TEST(EntityTest, ParentLinkAndFullName) {
  Widget::Ptr root = new Widget("root"), child = new Widget("child");
  child->parentIs(root.get());
  EXPECT_EQ(child->fullName(), Kel::String("/root/child"));
  EXPECT_EQ(root->references(), 1u) << "the parent link does not own";
  child->parentIs(nullptr);
  EXPECT_EQ(child->fullName(), Kel::String("/child"));
}

}  // namespace
