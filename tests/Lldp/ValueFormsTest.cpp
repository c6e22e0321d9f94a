// The text form and the attribute-log form of the value types: round trips, exact
// output, the limits checked on the way in and the messages that name what was wrong.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/TypeRegistry.h"
#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;
using Kel::NboAttrLog::In;
using Kel::NboAttrLog::Out;

namespace {

// Exact bytes and texts are pinned in GoldenVectorsTest; here every prefix of the log
// must be refused, and awkward bytes must survive both forms.
TEST(ValueFormsTest, EveryTypeReadsBackItsTextAndLog) {
  forEachValueType([&](auto tag) {
    using T = decltype(tag);
    for (T const& v : {T(), filled<T>()}) {
      Kel::String bytes = logBytes(v);
      EXPECT_EQ(fromLog<T>(bytes), v);
      for (std::size_t n = 0; n < bytes.size(); ++n) {
        In in(bytes.data(), n);
        EXPECT_THROW(T(&in, Kel::StreamBogon{}), Kel::AttrLogException) << n;
      }
      Kel::String text = valueToStrep(v);
      std::ostringstream os;
      os << v;
      if constexpr (!KelValue<T> || T::kelShape != Kel::Shape::wrapper) {
        EXPECT_EQ(os.str(), text.view());
        EXPECT_TRUE(text.view().starts_with("Value('" + std::string(T::kelName) + "'")) << text;
      }
      // Whether a default below a field's minimum reads back is pinned in GoldenVectorsTest.
      if constexpr (holdsCollection<T>) {
        EXPECT_NE(text.view().find("'caElements': None, "), std::string_view::npos);
      } else if constexpr (!std::is_same_v<T, LocationId>) {
        if (!(v == T())) {
          EXPECT_EQ(Kel::strepToValue<T>(text), v) << text;
        }
      }
    }
  });
}

// Streams print string wrappers raw and numbers as numbers; records as their text form.
TEST(ValueFormsTest, StreamOutput) {
  std::ostringstream os;
  os << ChassisId("a'b") << ' ' << Oui(7) << ' ' << BoundedString511("raw") << ' ' << cidLocal << ' '
     << PortConfig::TiaEnabledTlvs(1);
  EXPECT_EQ(os.str(), "a'b 7 raw cidLocal Value('Lldp::PortConfig::TiaEnabledTlvs', ** {'powerViaMdi': True, "
                      "'networkPolicy': False})");
}

template <class T>
void str(std::int64_t n) {
  (void)T(awkwardBytes(static_cast<std::size_t>(n)));
}
template <class T, class N = std::uint32_t>
void num(std::int64_t n) {
  (void)T(static_cast<N>(n));
}

// Limits of each kind (string bytes, maximum, range, minimum, nested key): the value at
// the limit is accepted, one beyond it refused with exactly this message.
TEST(ValueFormsTest, RangeMessages) {
  struct Case {
    std::string message;
    void (*make)(std::int64_t);
    std::int64_t atLimit, beyond;
  };
  std::vector<Case> const cases = {
      {"ChassisId::value::bytes > 255 not allowed", str<ChassisId>, 255, 256},
      {"ManAddress::value::bytes > 31 not allowed", str<ManAddress>, 31, 32},
      {"BoundedString507::value::bytes > 507 not allowed", str<BoundedString507>, 507, 508},
      {"Oui::value > 0xffffff not allowed", num<Oui>, 0xffffff, 0x1000000},
      {"LinkAggStatusMap::value > 0xff not allowed", num<LinkAggStatusMap>, 0xff, 0x100},
      {"TiaEnabledTlvs::value > 0x3 not allowed", num<PortConfig::TiaEnabledTlvs>, 0x3, 0x4},
      {"UnknownTlv::type < 9 or > 126 not allowed", num<UnknownTlv>, 9, 8},
      {"UnknownTlv::type < 9 or > 126 not allowed", num<UnknownTlv>, 126, 127},
      {"ProtocolIdentityInfo::index < 1 not allowed", num<ProtocolIdentityInfo, std::int32_t>, 1, 0},
      {"Key::subtype < 1 or > 255 not allowed",
       [](std::int64_t n) { UnknownOrgDefTlv::Key().subtypeIs(static_cast<std::uint32_t>(n)); }, 255, 256},
      {"Key::subtype < 1 or > 255 not allowed",
       [](std::int64_t n) { UnknownOrgDefTlvCounter::Key().subtypeIs(static_cast<std::uint32_t>(n)); }, 1, 0},
      {"Key::index < 1 not allowed",
       [](std::int64_t n) { UnknownOrgDefTlv::Key().indexIs(static_cast<std::int32_t>(n)); }, 1, -1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.message << " at " << c.beyond);
    EXPECT_NO_THROW(c.make(c.atLimit));
    EXPECT_EQ(messageOf<Kel::RangeException>([&] { c.make(c.beyond); }), c.message);
  }
}

template <class T>
void parse(Kel::String const& text) {
  (void)Kel::strepToValue<T>(text);
}

// Replaces the value of one field in a record's text.
Kel::String withField(Kel::String const& text, std::string const& field, Kel::String const& value) {
  std::string s(text.view());
  auto at = s.find("'" + field + "': ") + field.size() + 4;
  return Kel::String(s.replace(at, s.find_first_of(",}", at) - at, value.view()));
}

// Text is range-checked like a constructor, and the message names the field path.
TEST(ValueFormsTest, TextErrorsNameTheField) {
  Kel::String const bytes256 = awkwardBytes(256);
  struct Case {
    void (*parse)(Kel::String const&);
    Kel::String text;
    std::string message;
  };
  std::vector<Case> const cases = {
      {parse<ChassisIdentifier>, withField(valueToStrep(ChassisIdentifier()), "chassisId", valueToStrep(bytes256)),
       "chassisId: ChassisId::value::bytes > 255 not allowed"},
      {parse<UnknownTlv>, withField(valueToStrep(UnknownTlv(9)), "type", "127"),
       "type: UnknownTlv::type < 9 or > 126 not allowed"},
      {parse<UnknownOrgDefTlv>, valueToStrep(UnknownOrgDefTlv()),
       "key: subtype: Key::subtype < 1 or > 255 not allowed"},
      {parse<PowerViaMdiInfo>, withField(valueToStrep(PowerViaMdiInfo()), "powerType", "bogus"),
       "at: powerType: Power::PowerType: no enumerator named 'bogus'"},
      {parse<VlanName>, withField(valueToStrep(VlanName()), "vlanId", "4095"),
       "vlanId: VlanId::value < 1 or > 4094 not allowed"},
  };
  for (auto const& c : cases) EXPECT_EQ(messageOf<Kel::RangeException>([&] { c.parse(c.text); }), c.message) << c.text;
}

// CA type 0 ends the elements in the log, so it cannot be written; the refused write takes
// back what it had already put in the stream.
TEST(ValueFormsTest, RefusedCollectionLeavesTheStreamAsItWas) {
  LocationId location;
  Civic civic;
  civic.countryCodeIs("US");
  civic.caElementsIs(3, Civic::CaElement());
  civic.caElementsIs(0, Civic::CaElement());
  location.civicAddressLCIIs(civic);
  Out o;
  o << 7u;
  Kel::String const before = o.bytes();
  EXPECT_THROW(o << location, Kel::AttrLogException);
  EXPECT_EQ(o.bytes(), before);
}

// Builds a stream from primitives, then reads it as one value.
template <class T>
std::function<void()> reading(std::function<void(Out&)> write) {
  return [write] {
    Out o;
    write(o);
    In in(o.bytes());
    T(&in, Kel::StreamBogon{});
  };
}

// The log checks limits of nested values but takes the fields marked unchecked, and a bare
// bit map, as stored.
TEST(ValueFormsTest, LogReadChecks) {
  struct Case {
    std::function<void()> read;
    std::string message;  // empty: accepted as it comes
  };
  std::vector<Case> const cases = {
      {reading<BoundedString32>([](Out& o) { o << awkwardBytes(33); }),
       "BoundedString32::value::bytes > 32 not allowed"},
      {reading<ChassisIdentifier>([](Out& o) { o << 4u << awkwardBytes(256); }),
       "ChassisId::value::bytes > 255 not allowed"},
      {reading<VlanName>([](Out& o) { o << std::uint16_t{0} << Kel::String(); }),
       "VlanId::value < 1 or > 4094 not allowed"},
      {reading<PortAndProtocolVlan>([](Out& o) { o << std::uint16_t{4095} << false << false; }),
       "VlanIdOrNone::value > 4094 not allowed"},
      {reading<UnknownOrgDefTlv::Key>([](Out& o) { o << 0x1000000u << 1u << 1; }), "Oui::value > 0xffffff not allowed"},
      {reading<LinkAggregationInfo>([](Out& o) { o << 0x100u << 1; }), "LinkAggStatusMap::value > 0xff not allowed"},
      {reading<SystemCapabilitiesTlv>([](Out& o) { o << true << 0u << 0x10000u; }),
       "SystemCapabilitiesMap::value > 0xffff not allowed"},
      {reading<UnknownTlv>([](Out& o) { o << 200u << Kel::String(); }), ""},
      {reading<ProtocolIdentityInfo>([](Out& o) { o << -1 << Kel::String(); }), ""},
      {reading<UnknownOrgDefTlv::Key>([](Out& o) { o << 0xffffffu << 0u << 0; }), ""},
      {reading<UnknownOrgDefTlvCounter::Key>([](Out& o) { o << 1u << 1000u; }), ""},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "case " << i);
    if (cases[i].message.empty())
      EXPECT_NO_THROW(cases[i].read());
    else
      EXPECT_EQ(messageOf<Kel::RangeException>(cases[i].read), cases[i].message);
  }
  Out o;
  o << 0xffffffffu;
  EXPECT_EQ(fromLog<LinkAggStatusMap>(o.bytes()).value(), 0xffffffffu);
}

// Every registered enumeration of the model: each enumerator's name reads back as its
// number, and a name that only starts like one is refused.
TEST(ValueFormsTest, EveryEnumeratorByNameAndNumber) {
  int enums = 0;
  for (Kel::KelType const* t : Kel::typeNodesInRegistrationOrder()) {
    auto const* e = dynamic_cast<Kel::EnumType const*>(t);
    if (!e || !std::string_view(t->name()).starts_with("Lldp::")) continue;
    ++enums;
    for (auto const& en : e->enumerators()) {
      SCOPED_TRACE(std::string(t->name()) + "::" + en.name);
      EXPECT_EQ(e->name(en.value).view(), en.name);
      Kel::String text = Kel::String(std::string(en.name) + ")");
      Kel::StrepIt pos = text.begin();
      EXPECT_EQ(e->parse(pos, text.end()), en.value);
      EXPECT_EQ(*pos, ')');
      Kel::String longer = Kel::String(std::string(en.name) + "x9");
      pos = longer.begin();
      EXPECT_THROW(e->parse(pos, longer.end()), Kel::RangeException);
    }
  }
  EXPECT_EQ(enums, 13);
}

TEST(ValueFormsDeathTest, NoTextConstructorWithACollection) {
  // The text itself is pinned in GoldenVectorsTest.
  const char* assertion = "!\"No String constructor for CivicAddressLCI - has collection\"";
  EXPECT_DEATH(Kel::strepToValue<Civic>(valueToStrep(Civic())), assertion);
  EXPECT_DEATH(Kel::strepToValue<LocationId>(valueToStrep(LocationId())), assertion);
}

}  // namespace
