#include <gtest/gtest.h>

#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

using Element = Civic::CaElement;

Element element(std::uint8_t type, const char* value) {
  Element e;
  e.caTypeIs(type);
  e.caValueIs(value);
  return e;
}

std::vector<unsigned> types(Civic const& c) {
  std::vector<unsigned> out;
  for (auto const& [k, e] : c.caElements()) out.push_back(k);
  return out;
}

TEST(LocationIdTest, CivicAddressElements) {
  Civic c;
  for (std::uint8_t t : {29, 3, 1}) c.caElementsIs(t, element(t, "x"));
  EXPECT_EQ(types(c), (std::vector<unsigned>{1, 3, 29}));
  c.caElementsIs(3, element(3, "first"));
  c.caElementsIs(3, element(4, "second"));  // replaces the whole element, key kept
  EXPECT_EQ(types(c), (std::vector<unsigned>{1, 3, 29}));
  EXPECT_EQ(c.caElements(3), element(4, "second"));
  EXPECT_TRUE(c.caElementsHas(29));
  EXPECT_FALSE(c.caElementsHas(5));
  EXPECT_EQ(c.caElements(5), Element());
  Civic before = c;
  EXPECT_EQ(c.caElementsDel(5), Element());
  EXPECT_EQ(c, before);
  EXPECT_EQ(c.caElementsDel(29), element(29, "x"));
  EXPECT_EQ(types(c), (std::vector<unsigned>{1, 3}));
  auto next = c.caElementsDel(c.caElements().begin());
  EXPECT_EQ(next->first, 3);
  c.caElementsDelAll();
  EXPECT_TRUE(c.caElements().empty());
  EXPECT_NE(c, before);
}

TEST(LocationIdTest, Equality) {
  Civic a, b;
  a.caElementsIs(1, element(1, "a"));
  a.caElementsIs(2, element(2, "b"));
  b.caElementsIs(2, element(2, "b"));
  b.caElementsIs(1, element(1, "a"));
  EXPECT_EQ(a, b);
  b.caElementsIs(2, element(2, "c"));
  EXPECT_NE(a, b);
  EXPECT_TRUE(!Civic());
  EXPECT_FALSE(!a);
  EXPECT_LT(element(1, "z"), element(2, "a"));
  EXPECT_LT(element(2, "a"), element(2, "b"));

  LocationId::EcsElin e1, e2;
  e1.elinIs("5551234");
  e2 = e1;
  e2.receivedIs(true);
  EXPECT_NE(e1, e2);

  LocationId l;
  EXPECT_TRUE(!l);
  LocationId::EcsElin received;
  received.receivedIs(true);
  l.ecsElinIs(received);
  EXPECT_FALSE(!l);
  LocationId copy = l;
  copy.civicAddressLCIIs(a);  // the elements travel with the value
  EXPECT_EQ(copy.civicAddressLCI().caElements(2), element(2, "b"));
}

TEST(LocationIdDeathTest, NoTextConstructorWithACollection) {
  Civic c;
  c.countryCodeIs("US");
  c.caElementsIs(1, element(1, "CA"));
  Kel::String civicText = valueToStrep(c);
  EXPECT_EQ(civicText,
            "Value('Lldp::LocationId::CivicAddressLCI', ** {'lciLength': 0, 'what': 0, 'countryCode': 'US', "
            "'caElements': None, 'received': False})");
  Kel::String locationText = valueToStrep(LocationId());
  const char* assertion = "!\"No String constructor for CivicAddressLCI - has collection\"";
  EXPECT_DEATH(Kel::strepToValue<Civic>(civicText), assertion);
  EXPECT_DEATH(Kel::strepToValue<LocationId>(locationText), assertion);
}

}  // namespace
