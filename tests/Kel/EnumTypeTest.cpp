#include "Kel/EnumType.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Kel;

namespace {

// One table with consecutive values and one with a gap and no zero, since lookups
// take a different path for each.
EnumType const consecutive("Lldp::ChassisIdSubtype",
                           {{"cidReserved", 0}, {"cidChassisComponent", 1}, {"cidMacAddress", 2}});
EnumType const sparse("Lldp::AdminStatus", {{"txOnly", 1}, {"rxOnly", 2}, {"disabled", 4}, {"big", 0xffffffffu}});

template <class F>
std::string rangeMessage(F&& f) {
  try {
    f();
  } catch (RangeException const& e) {
    return e.what();
  }
  ADD_FAILURE() << "no RangeException";
  return "";
}

TEST(EnumTypeTest, RoundTripEveryEnumerator) {
  for (EnumType const* t : {&consecutive, &sparse}) {
    EXPECT_EQ(t->kind(), KelType::Kind::Enumeration);
    for (auto const& e : t->enumerators()) {
      EXPECT_TRUE(t->hasValue(e.value));
      EXPECT_EQ(t->name(e.value), e.name);
      EXPECT_EQ(t->value(e.name), e.value);
      String text = String(e.name) + ", rest";
      StrepIt pos = text.begin();
      EXPECT_EQ(t->parse(pos, text.end()), e.value);
      EXPECT_EQ(String(pos, text.end()), ", rest");
      std::ostringstream os;
      t->write(os, e.value);
      EXPECT_EQ(os.str(), e.name);
    }
  }
}

TEST(EnumTypeTest, UndefinedValues) {
  for (auto [t, v] : {std::pair{&consecutive, 3u}, {&consecutive, 0xffffffffu}, {&sparse, 0u}, {&sparse, 3u}}) {
    EXPECT_FALSE(t->hasValue(v));
    EXPECT_EQ(t->name(v), "<undefined " + std::to_string(v) + ">");
  }
  std::ostringstream os;
  sparse.write(os, 5);
  EXPECT_EQ(os.str(), "<undefined 5>");
}

TEST(EnumTypeTest, UnknownNames) {
  EXPECT_EQ(rangeMessage([] { consecutive.value("foo"); }), "Lldp::ChassisIdSubtype: no enumerator named 'foo'");
  // A known name followed by more name characters is a different, unknown name.
  String longer("txOnly2");
  StrepIt pos = longer.begin();
  EXPECT_EQ(rangeMessage([&] { sparse.parse(pos, longer.end()); }), "Lldp::AdminStatus: no enumerator named 'txOnly2'");
  EXPECT_EQ(pos, longer.begin());
  String quoted("'txOnly'");
  pos = quoted.begin();
  EXPECT_EQ(rangeMessage([&] { sparse.parse(pos, quoted.end()); }),
            "Lldp::AdminStatus: expected an enumerator name but found \"'txOnly'\"");
  String empty;
  pos = empty.begin();
  EXPECT_EQ(rangeMessage([&] { sparse.parse(pos, empty.end()); }),
            "Lldp::AdminStatus: expected an enumerator name but found end of text");
}

}  // namespace
