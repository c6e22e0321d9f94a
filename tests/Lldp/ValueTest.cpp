// The value types: their text and attribute-log forms (round trips, the limits checked on
// the way in and the messages that name what was wrong), and what they do beyond holding
// fields: operators, address text, the 802.3 and LLDP-MED conversions, optional values,
// bit maps, civic address elements and sort keys.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

// Streams print enumerations by name (the value types: stream lines in golden-values.txt).
TEST(ValueFormsTest, StreamOutput) {
  std::ostringstream os;
  os << cidLocal;
  EXPECT_EQ(os.str(), "cidLocal");
}

// The one limit that neither text nor log reaches (the others: golden-values.txt).
TEST(ValueFormsTest, RangeMessages) {
  EXPECT_NO_THROW(PortConfig::TiaEnabledTlvs(0x3));
  EXPECT_EQ(messageOf<Kel::RangeException>([] { PortConfig::TiaEnabledTlvs(0x4); }),
            "TiaEnabledTlvs::value > 0x3 not allowed");
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

TEST(ValueFormsDeathTest, NoTextConstructorWithACollection) {
  // The text itself is pinned in GoldenVectorsTest.
  const char* assertion = "!\"No String constructor for CivicAddressLCI - has collection\"";
  EXPECT_DEATH(Kel::strepToValue<Civic>(valueToStrep(Civic())), assertion);
  EXPECT_DEATH(Kel::strepToValue<LocationId>(valueToStrep(LocationId())), assertion);
}



enum : unsigned { lt = 1, hash = 2, neg = 4 };

// Which of <, hash(seed) and ! a type offers; == is required of every one.
template <class T>
constexpr unsigned opsOf() {
  static_assert(requires(T a) { { a == a } -> std::same_as<bool>; });
  return (requires(T a) { a < a; } ? lt : 0u) | (requires(T a) { a.hash(std::size_t{0}); } ? hash : 0u) |
         (requires(T a) { !a; } ? neg : 0u);
}

TEST(ValueSemanticsTest, OperatorsAgreeAndEqualityCoversEveryField) {
  forEachValueType([](auto tag) {
    using T = decltype(tag);
    T a = filled<T>(), b = filled<T>(), d;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == d);
    if constexpr ((opsOf<T>() & lt) != 0) {
      EXPECT_FALSE(a < b);
      EXPECT_NE(a < d, d < a);
    }
    if constexpr ((opsOf<T>() & hash) != 0) {
      EXPECT_EQ(a.hash(11), b.hash(11));
      EXPECT_NE(a.hash(11), a.hash(12));
    }
    if constexpr ((opsOf<T>() & neg) != 0) {
      EXPECT_TRUE(!d && !(!a));
    }
    // Every field counts: a with one field left at its default differs from a.
    if constexpr (!KelBitMap<T>) {
      a.kelForEachField([&](const char* name, auto&, Kel::FieldLimit const&) {
        T w;
        Rng r{0};
        Gen(r, true).fill(w, name);
        EXPECT_FALSE(a == w) << name;
      });
    }
  });
}

// The other texts: the "shows" lines in golden-values.txt. A subtype beyond the table
// (no name to write it in text) reads as hex.
TEST(ValueSemanticsTest, AddressText) {
  ChassisIdentifier c;
  c.chassisIdSubtypeIs(static_cast<ChassisIdSubtype>(77));
  c.chassisIdIs(ChassisId("ab"));
  EXPECT_EQ(c.stringValue(colon, true).view(), "61 62");
  ManagementAddress::Key k;
  k.manAddrIs(ManAddress(Kel::String("\xc0\x00\x02\x01", 4)));
  EXPECT_EQ(ManagementAddress(k).manAddrLen(), 5u);
}

TEST(ValueSemanticsTest, AutoNegCapabilityField) {
  for (auto [set, field] : std::vector<std::pair<std::uint32_t, std::uint16_t>>{
           {0x1, 0x8000}, {0x8000, 0x0001}, {0x6, 0x6000}, {0x10000, 0}, {0x7fffff, 0xffff}, {0x7f00ff, 0xff00}}) {
    MacPhyConfigStatusInfo m;
    m.autoNegAdvertisedCapIs(Platform::AutoNegCapBits(set));
    EXPECT_EQ(m.autoNegAdvertisedCapAsU16(), field) << set;
    m.autoNegAdvertisedCapAsU16Is(field);
    EXPECT_EQ(m.autoNegAdvertisedCap().value(), set & 0xffffu) << set;  // bits 16 to 22 are cleared
  }
}

TEST(ValueSemanticsTest, DeciWatts) {
  for (auto [w, dw] : std::vector<std::pair<double, std::uint16_t>>{
           {12.95, 130}, {12.94, 129}, {0.05, 1}, {0.0, 0}, {25.5, 255}, {6553.5, 65535}, {6553.6, 0}}) {
    EXPECT_EQ(PowerViaMdiInfo().wattsToDeciWatts(w), dw) << w;
  }
  EXPECT_DOUBLE_EQ(PowerViaMdiInfo().deciWattsToWatts(65535), 6553.5);
}

template <class T>
T policy(std::uint8_t app, bool tagged, std::uint16_t vlan, std::uint8_t cos, std::uint8_t dscp) {
  T p;
  p.appValueIs(app);
  p.taggedIs(tagged);
  p.vlanIdIs(vlan);
  p.cosValueIs(cos);
  p.dscpValueIs(dscp);
  return p;
}

TEST(ValueSemanticsTest, NetworkPolicy) {
  using Cfg = NetworkPolicyConfig;
  using Tlv = NetworkPolicyTlv;
  // Untagged policies advertise VLAN 0 and priority 0.
  EXPECT_EQ(policy<Cfg>(1, false, 100, 5, 46).toNetworkPolicyTlv(), policy<Tlv>(1, false, 0, 0, 46));
  EXPECT_EQ(policy<Cfg>(2, true, 100, 5, 46).toNetworkPolicyTlv(), policy<Tlv>(2, true, 100, 5, 46));

  auto voice = policy<Cfg>(1, true, 100, 5, 46);
  voice.appNameIs("voice");
  EXPECT_TRUE(Cfg::equivalent(voice, policy<Cfg>(2, true, 100, 5, 46)));
  for (auto other : {policy<Cfg>(1, false, 100, 5, 46), policy<Cfg>(1, true, 101, 5, 46),
                     policy<Cfg>(1, true, 100, 4, 46), policy<Cfg>(1, true, 100, 5, 45)}) {
    EXPECT_FALSE(Cfg::equivalent(voice, other));
  }
  auto copy = policy<Cfg>(9, false, 1, 1, 1);
  copy.copyFrom(voice);
  auto want = voice;
  want.appValueIs(9);
  EXPECT_EQ(copy, want);
}

TEST(ValueSemanticsTest, OptionalValues) {
  // create() cuts to the bound instead of refusing.
  for (std::size_t in : {0, 32, 40, 255, 300}) {
    Kel::String s = awkwardBytes(in);
    EXPECT_EQ(Kel::String(BoundedString32Tlv::create(s)).view(), s.view().substr(0, 32));
    EXPECT_EQ(Kel::String(BoundedString255Tlv::create(s)).view(), s.view().substr(0, 255));
    EXPECT_TRUE(BoundedString32Tlv::create(s).isSet());
  }
  // Any setter marks the value set.
  BoundedString255Tlv str;
  str.valueIs(BoundedString255());
  EXPECT_TRUE(str.isSet());
  auto tlv = SystemCapabilitiesTlv::create(SystemCapabilitiesMap(0x14), SystemCapabilitiesMap(0x10));
  EXPECT_TRUE(tlv.isSet() && tlv.sysCapSupported().router() && !tlv.sysCapEnabled().bridge());
}

TEST(ValueSemanticsTest, NamedBits) {
  auto bit = [](auto m, auto set) {
    set(m);
    return m.value();
  };
  std::vector<std::pair<std::uint32_t, std::uint32_t>> const cases = {
      {bit(SystemCapabilitiesMap(), [](auto& m) { m.unused8Is(true); }), 0x8000},
      {bit(SystemCapabilitiesMap(0xffff), [](auto& m) { m.telephoneIs(false); }), 0xffdf},
      {bit(LinkAggStatusMap(), [](auto& m) { m.aggEnabledIs(true); }), 0x2},
      {bit(MedCapabilitiesInfo::Capability(), [](auto& m) { m.reservedIs(true); }), 0x40},
      {bit(PortConfig::TiaEnabledTlvs(), [](auto& m) { m.networkPolicyIs(true); }), 0x2},
      {LinkAggStatusMap(0x03).complement().value(), 0xfc},  // within the map's width
      {SystemCapabilitiesMap(0).complement().value(), 0xffff},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i;
}

TEST(ValueSemanticsTest, CivicAddressElements) {
  auto element = [](std::uint8_t type, const char* value) {
    Civic::CaElement e;
    e.caTypeIs(type);
    e.caValueIs(value);
    return e;
  };
  auto types = [](Civic const& c) {
    std::vector<unsigned> out;
    for (auto const& [k, e] : c.caElements()) out.push_back(k);
    return out;
  };
  Civic c;
  for (std::uint8_t t : {29, 3, 1}) c.caElementsIs(t, element(t, "x"));
  c.caElementsIs(3, element(4, "second"));  // replaces the whole element, key kept
  EXPECT_EQ(types(c), (std::vector<unsigned>{1, 3, 29}));
  EXPECT_EQ(c.caElements(3), element(4, "second"));
  EXPECT_TRUE(c.caElementsHas(29) && !c.caElementsHas(5));
  EXPECT_EQ(c.caElements(5), Civic::CaElement());
  Civic before = c;
  EXPECT_EQ(c.caElementsDel(5), Civic::CaElement());
  EXPECT_EQ(c, before);
  EXPECT_EQ(c.caElementsDel(29), element(29, "x"));
  EXPECT_EQ(c.caElementsDel(c.caElements().begin())->first, 3);
  EXPECT_EQ(types(c), (std::vector<unsigned>{3}));
  c.caElementsDelAll();
  EXPECT_TRUE(c.caElements().empty());
}

TEST(ValueSemanticsTest, SortKeys) {
  auto priority = [](ManAddrPriority::ManAddrType t, std::uint32_t p, std::uint32_t s, const char* intf) {
    ManAddrPriority m(t, p, s);
    m.intfIdIs(Platform::IntfId(intf));
    return m;
  };
  // Every primary entry first, then by priorities, then by interface in natural order.
  using enum ManAddrPriority::ManAddrType;
  std::vector<ManAddrPriority> const priorities = {
      priority(primary, 1, 9, "Ethernet9"), priority(primary, 2, 0, "Ethernet1"),
      priority(primary, 2, 1, "Ethernet1"), priority(primary, 2, 1, "Ethernet2"),
      priority(primary, 2, 1, "Ethernet10"), priority(secondary, 0, 0, ""),
  };
  for (std::size_t i = 1; i < priorities.size(); ++i) EXPECT_LT(priorities[i - 1], priorities[i]) << i;
  EXPECT_LT(PortId("a\x01"), PortId("\xff"));  // bytes compare unsigned
}

TEST(ValueSemanticsTest, PoePortStatusPoweredOnlyInThePoweredState) {
  Power::PoePortStatus s;
  s.grantedPowerIs(15.4);
  EXPECT_FALSE(s.isPowered());
  s.poePortStateIs(Power::PoePortState::powered);
  EXPECT_TRUE(s.isPowered());
}

}  // namespace
