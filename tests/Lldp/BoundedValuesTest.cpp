#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

Kel::String bytes(std::size_t n) { return awkwardBytes(n); }

// Every declared limit: the value at the limit is accepted, one beyond it refused with
// exactly this message.
TEST(BoundedValuesTest, RangeMessages) {
  struct Case {
    std::string message;
    std::function<void()> atLimit, beyond;
  };
  std::vector<Case> const cases = {
      {"ChassisId::value::bytes > 255 not allowed", [] { ChassisId{bytes(255)}; }, [] { ChassisId{bytes(256)}; }},
      {"PortId::value::bytes > 255 not allowed", [] { PortId{bytes(255)}; }, [] { PortId{bytes(256)}; }},
      {"ManAddress::value::bytes > 31 not allowed", [] { ManAddress{bytes(31)}; }, [] { ManAddress{bytes(32)}; }},
      {"BoundedString32::value::bytes > 32 not allowed", [] { BoundedString32{bytes(32)}; },
       [] { BoundedString32{bytes(33)}; }},
      {"BoundedString255::value::bytes > 255 not allowed", [] { BoundedString255{bytes(255)}; },
       [] { BoundedString255{bytes(256)}; }},
      {"BoundedString507::value::bytes > 507 not allowed", [] { BoundedString507{bytes(507)}; },
       [] { BoundedString507{bytes(508)}; }},
      {"BoundedString511::value::bytes > 511 not allowed", [] { BoundedString511{bytes(511)}; },
       [] { BoundedString511{bytes(512)}; }},
      {"Oui::value > 0xffffff not allowed", [] { Oui{0xffffff}; }, [] { Oui{0x1000000}; }},
      {"SystemCapabilitiesMap::value > 0xffff not allowed", [] { SystemCapabilitiesMap{0xffff}; },
       [] { SystemCapabilitiesMap{0x10000}; }},
      {"LinkAggStatusMap::value > 0xff not allowed", [] { LinkAggStatusMap{0xff}; },
       [] { LinkAggStatusMap{0x100}; }},
      {"Capability::value > 0x7f not allowed", [] { MedCapabilitiesInfo::Capability{0x7f}; },
       [] { MedCapabilitiesInfo::Capability{0x80}; }},
      {"EnabledTlvs::value > 0xf not allowed", [] { PortConfig::EnabledTlvs{0xf}; },
       [] { PortConfig::EnabledTlvs{0x10}; }},
      {"Dot3EnabledTlvs::value > 0xf not allowed", [] { PortConfig::Dot3EnabledTlvs{0xf}; },
       [] { PortConfig::Dot3EnabledTlvs{0x10}; }},
      {"TiaEnabledTlvs::value > 0x3 not allowed", [] { PortConfig::TiaEnabledTlvs{0x3}; },
       [] { PortConfig::TiaEnabledTlvs{0x4}; }},
      {"UnknownTlv::type < 9 or > 126 not allowed", [] { UnknownTlv{9}; }, [] { UnknownTlv{8}; }},
      {"UnknownTlv::type < 9 or > 126 not allowed", [] { UnknownTlv{126}; }, [] { UnknownTlv{127}; }},
      {"ProtocolIdentityInfo::index < 1 not allowed", [] { ProtocolIdentityInfo{1}; },
       [] { ProtocolIdentityInfo{0}; }},
      {"Key::subtype < 1 or > 255 not allowed", [] { UnknownOrgDefTlv::Key().subtypeIs(255); },
       [] { UnknownOrgDefTlv::Key().subtypeIs(256); }},
      {"Key::subtype < 1 or > 255 not allowed", [] { UnknownOrgDefTlvCounter::Key().subtypeIs(1); },
       [] { UnknownOrgDefTlvCounter::Key().subtypeIs(0); }},
      {"Key::index < 1 not allowed", [] { UnknownOrgDefTlv::Key().indexIs(1); },
       [] { UnknownOrgDefTlv::Key().indexIs(-1); }},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.message);
    EXPECT_NO_THROW(c.atLimit());
    EXPECT_EQ(messageOf<Kel::RangeException>(c.beyond), c.message);
  }
}

TEST(BoundedValuesTest, BoundedStringsKeepBytes) {
  EXPECT_TRUE(!ChassisId());
  EXPECT_FALSE(!ChassisId("x"));
  EXPECT_LT(ChassisId("ab"), ChassisId("abc"));  // a prefix first
  EXPECT_LT(PortId("a"), PortId("\xff"));        // bytes compare unsigned
  EXPECT_LT(ManAddress(""), ManAddress("\x01"));
}

TEST(BoundedValuesTest, OptionalStringsCutInsteadOfRefusing) {
  struct Case {
    std::size_t in, bound;
  };
  for (auto [in, bound] : std::vector<Case>{{40, 32}, {32, 32}, {0, 32}, {300, 255}, {255, 255}}) {
    SCOPED_TRACE(in);
    Kel::String s = awkwardBytes(in);
    Kel::String got = bound == 32 ? Kel::String(BoundedString32Tlv::create(s)) : Kel::String(BoundedString255Tlv::create(s));
    EXPECT_EQ(got, Kel::String(s.data(), std::min(in, bound)));
    EXPECT_TRUE(BoundedString32Tlv::create(s).isSet());
    EXPECT_TRUE(BoundedString255Tlv::create(s).isSet());
  }
  BoundedString255Tlv set;
  set.valueIs(BoundedString255("x"));
  EXPECT_TRUE(set.isSet());
  BoundedString255Tlv unset = set;
  unset.isSetIs(false);
  EXPECT_NE(set, unset);
  EXPECT_EQ(Kel::String(BoundedString32Tlv()), "");
  EXPECT_TRUE(!BoundedString32Tlv());
  EXPECT_FALSE(!BoundedString32Tlv::create(""));
}

TEST(BoundedValuesTest, SystemCapabilities) {
  auto tlv = SystemCapabilitiesTlv::create(SystemCapabilitiesMap(0x14), SystemCapabilitiesMap(0x10));
  EXPECT_TRUE(tlv.isSet());
  EXPECT_TRUE(tlv.sysCapSupported().bridge() && tlv.sysCapSupported().router());
  EXPECT_FALSE(tlv.sysCapEnabled().bridge());
  EXPECT_TRUE(tlv.sysCapEnabled().router());
  SystemCapabilitiesTlv one;
  one.sysCapEnabledIs(SystemCapabilitiesMap());
  EXPECT_TRUE(one.isSet());  // any setter marks the value set
  EXPECT_NE(one, SystemCapabilitiesTlv());
}

TEST(BoundedValuesTest, NamedBits) {
  auto bit = [](auto m, auto set) {
    set(m);
    return m.value();
  };
  struct Case {
    std::uint32_t got, mask;
  };
  std::vector<Case> const cases = {
      {bit(SystemCapabilitiesMap(), [](auto& m) { m.otherIs(true); }), 0x1},
      {bit(SystemCapabilitiesMap(), [](auto& m) { m.unused8Is(true); }), 0x8000},
      {bit(SystemCapabilitiesMap(0xffff), [](auto& m) { m.telephoneIs(false); }), 0xffdf},
      {bit(LinkAggStatusMap(), [](auto& m) { m.aggEnabledIs(true); }), 0x2},
      {bit(MedCapabilitiesInfo::Capability(), [](auto& m) { m.reservedIs(true); }), 0x40},
      {bit(PortConfig::EnabledTlvs(), [](auto& m) { m.sysDescIs(true); }), 0x4},
      {bit(PortConfig::Dot3EnabledTlvs(), [](auto& m) { m.linkAggregationIs(true); }), 0x4},
      {bit(PortConfig::TiaEnabledTlvs(), [](auto& m) { m.networkPolicyIs(true); }), 0x2},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(cases[i].got, cases[i].mask) << "case " << i;
}

TEST(BoundedValuesTest, BitMapOperations) {
  using M = LinkAggStatusMap;
  EXPECT_EQ(M(0x03).complement().value(), 0xfcu);
  EXPECT_EQ((M(0x0c) & M(0x0a)).value(), 0x08u);
  EXPECT_EQ((M(0x0c) | M(0x0a)).value(), 0x0eu);
  EXPECT_EQ((M(0x0c) ^ M(0x0a)).value(), 0x06u);
  EXPECT_EQ(M(0x0c).andNot(M(0x0a)).value(), 0x04u);
  EXPECT_TRUE(M().isZero());
  EXPECT_LT(M(0x7f), M(0x80));
  EXPECT_EQ(SystemCapabilitiesMap(0).complement().value(), 0xffffu);
}

}  // namespace
