#include <gtest/gtest.h>

#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

TEST(Dot3Test, AutoNegCapabilityField) {
  struct Case {
    std::uint32_t set;
    std::uint16_t field;
  };
  std::vector<Case> const cases = {
      {0x1, 0x8000}, {0x8000, 0x0001}, {0x6, 0x6000}, {0x10000, 0}, {0x7fffff, 0xffff}, {0x7f00ff, 0xff00},
  };
  for (auto [set, field] : cases) {
    SCOPED_TRACE(set);
    MacPhyConfigStatusInfo m;
    m.autoNegAdvertisedCapIs(Platform::AutoNegCapBits(set));
    EXPECT_EQ(m.autoNegAdvertisedCapAsU16(), field);
  }
  for (unsigned i = 0; i < 16; ++i) {
    MacPhyConfigStatusInfo m;
    m.autoNegAdvertisedCapIs(Platform::AutoNegCapBits(0x7f0000));
    m.autoNegAdvertisedCapAsU16Is(static_cast<std::uint16_t>(0x8000u >> i));
    EXPECT_EQ(m.autoNegAdvertisedCap().value(), 1u << i);  // bits 16 to 22 are cleared
  }
}

TEST(Dot3Test, DeciWatts) {
  PowerViaMdiInfo p;
  struct Case {
    double watts;
    std::uint16_t deciWatts;
  };
  for (auto [w, dw] : std::vector<Case>{
           {12.95, 130}, {12.94, 129}, {0.05, 1}, {0.0, 0}, {25.5, 255}, {6553.5, 65535}, {6553.6, 0}}) {
    EXPECT_EQ(p.wattsToDeciWatts(w), dw) << w;
  }
  EXPECT_DOUBLE_EQ(p.deciWattsToWatts(255), 25.5);
  EXPECT_DOUBLE_EQ(p.deciWattsToWatts(65535), 6553.5);
}

TEST(Dot3Test, Defaults) {
  PowerViaMdiInfo p;
  EXPECT_EQ(p.portClass(), pClassPSE);
  EXPECT_EQ(p.ieeeStandard(), PowerViaMdiInfo::IeeeStandard_802_3af);
  EXPECT_TRUE(!p);
  EXPECT_TRUE(!p.bt());
  p.btIs(filled<PowerViaMdiInfo::Bt>());
  EXPECT_FALSE(!p);
  EXPECT_EQ(MedCapabilitiesInfo().deviceType(), MedCapabilitiesInfo::MedDeviceType_NotDefined);
  EXPECT_EQ(NetworkPolicyConfig().appName(), "default");
  EXPECT_TRUE(!NetworkPolicyConfig());
}

NetworkPolicyConfig policy(std::uint8_t app, const char* name, bool tagged, std::uint16_t vlan, std::uint8_t cos,
                           std::uint8_t dscp) {
  NetworkPolicyConfig c;
  c.appValueIs(app);
  c.appNameIs(name);
  c.taggedIs(tagged);
  c.vlanIdIs(vlan);
  c.cosValueIs(cos);
  c.dscpValueIs(dscp);
  return c;
}

NetworkPolicyTlv tlv(std::uint8_t app, bool tagged, std::uint16_t vlan, std::uint8_t cos, std::uint8_t dscp) {
  NetworkPolicyTlv t;
  t.appValueIs(app);
  t.taggedIs(tagged);
  t.vlanIdIs(vlan);
  t.cosValueIs(cos);
  t.dscpValueIs(dscp);
  return t;
}

TEST(Dot3Test, NetworkPolicy) {
  EXPECT_EQ(policy(1, "voice", false, 100, 5, 46).toNetworkPolicyTlv(), tlv(1, false, 0, 0, 46));
  EXPECT_EQ(policy(2, "video", true, 100, 5, 46).toNetworkPolicyTlv(), tlv(2, true, 100, 5, 46));

  auto voice = policy(1, "voice", true, 100, 5, 46);
  auto video = policy(2, "video", true, 100, 5, 46);
  EXPECT_TRUE(NetworkPolicyConfig::equivalent(voice, video));
  EXPECT_NE(voice, video);
  for (auto other : {policy(1, "voice", false, 100, 5, 46), policy(1, "voice", true, 101, 5, 46),
                     policy(1, "voice", true, 100, 4, 46), policy(1, "voice", true, 100, 5, 45)}) {
    EXPECT_FALSE(NetworkPolicyConfig::equivalent(voice, other));
  }
  auto copy = policy(9, "old", false, 1, 1, 1);
  copy.copyFrom(voice);
  EXPECT_EQ(copy, policy(9, "voice", true, 100, 5, 46));

  // Ordered field by field as unsigned numbers.
  std::vector<NetworkPolicyTlv> const sorted = {tlv(1, true, 4000, 7, 63), tlv(2, false, 0, 0, 0),
                                                tlv(2, false, 1, 0, 0), tlv(2, true, 0, 0, 0),
                                                tlv(2, true, 0, 0, 255)};
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    EXPECT_LT(sorted[i - 1], sorted[i]);
    EXPECT_NE(sorted[i - 1].hash(0), sorted[i].hash(0));
  }
  EXPECT_EQ(sorted[0].hash(5), tlv(1, true, 4000, 7, 63).hash(5));
}

}  // namespace
