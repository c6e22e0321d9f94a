#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;
using Kel::NboAttrLog::In;
using Kel::NboAttrLog::Out;

namespace {

// Keys in text and stream order, and the stream size of the default value (which
// fixes each field's width: u8 1, u16 2, u32/s32 4, u64/s64/double 8, bool 1, string 4+n).
struct Layout {
  std::string keys;
  std::size_t defaultBytes;
};
std::map<std::string, Layout> const layouts = {
    {"Lldp::ChassisId", {"value", 4}},
    {"Lldp::PortId", {"value", 4}},
    {"Lldp::ManAddress", {"value", 4}},
    {"Lldp::BoundedString32", {"value", 4}},
    {"Lldp::BoundedString255", {"value", 4}},
    {"Lldp::BoundedString507", {"value", 4}},
    {"Lldp::BoundedString511", {"value", 4}},
    {"Lldp::Oui", {"value", 4}},
    {"Lldp::TlvBase", {"isSet", 1}},
    {"Lldp::BoundedString32Tlv", {"isSet value", 5}},
    {"Lldp::BoundedString255Tlv", {"isSet value", 5}},
    {"Lldp::SystemCapabilitiesMap",
     {"other repeater bridge wlanAccessPoint router telephone docsisCableDevice stationOnly unused1 unused2 "
      "unused3 unused4 unused5 unused6 unused7 unused8",
      4}},
    {"Lldp::LinkAggStatusMap", {"aggCapable aggEnabled unused1 unused2 unused3 unused4 unused5 unused6", 4}},
    {"Lldp::SystemCapabilitiesTlv", {"isSet sysCapSupported sysCapEnabled", 9}},
    {"Lldp::ChassisIdentifier", {"chassisIdSubtype chassisId", 8}},
    {"Lldp::PortIdentifier", {"portIdSubtype portId", 8}},
    {"Lldp::ManagementAddress::Key", {"manAddrSubtype manAddr", 8}},
    {"Lldp::ManagementAddress", {"key ifSubtype ifId oid", 20}},
    {"Lldp::PowerViaMdiInfo",
     {"ieeeStandard portClass supported enabled powerPairControllable powerPairs powerClass at bt", 83}},
    {"Lldp::PowerViaMdiInfo::At",
     {"powerType powerSource powerPriority pdRequestedPowerValue pseAllocatedPowerValue", 16}},
    {"Lldp::PowerViaMdiInfo::Bt",
     {"pd4Pid pdRequestedPowerValueModeA pdRequestedPowerValueModeB pseAllocatedPowerValueAlternativeA "
      "pseAllocatedPowerValueAlternativeB psePoweringStatus pdPoweredStatus psePowerPairsExt "
      "dualSignaturePowerClassExtModeA dualSignaturePowerClassExtModeB powerClassExt powerTypeExt pdLoad "
      "pseMaximumAvailablePowerValue pseAutoclassSupport autoclassCompleted autoclassRequest powerDownRequest "
      "powerDownTime",
      48}},
    {"Lldp::MacPhyConfigStatusInfo", {"autoNegSupported autoNegEnabled autoNegAdvertisedCap operMauType", 10}},
    {"Lldp::LinkAggregationInfo", {"status portId", 8}},
    {"Lldp::MaximumFrameSizeInfo", {"maxFrameSize", 2}},
    {"Lldp::MedCapabilitiesInfo::Capability",
     {"capabilities networkPolicy location extendedPse extendedPd inventory reserved", 4}},
    {"Lldp::MedCapabilitiesInfo", {"capability deviceType", 8}},
    {"Lldp::NetworkPolicyTlv", {"appValue unknownPolicy tagged vlanId cosValue dscpValue", 7}},
    {"Lldp::NetworkPolicyConfig", {"appValue appName tagged vlanId cosValue dscpValue", 17}},
    {"Lldp::UnknownTlv", {"type info", 8}},
    {"Lldp::UnknownOrgDefTlv::Key", {"oui subtype index", 12}},
    {"Lldp::UnknownOrgDefTlv", {"key orgDefInfo", 16}},
    {"Lldp::PortAndProtocolVlan", {"portAndProtocolVlanId supported enabled", 4}},
    {"Lldp::VlanName", {"vlanId vlanName", 6}},
    {"Lldp::ProtocolIdentityInfo", {"index protocolId", 8}},
    {"Lldp::ManAddrPriority", {"manAddrType primaryPriority secondaryPriority intfId", 16}},
    {"Lldp::MgmtAddrTxOption", {"mgmtAddrTxMode intfName", 8}},
    {"Lldp::ClearRequest", {"timestamp who where", 16}},
    {"Lldp::PortCounterCheckpoint",
     {"txFramesTotal txFramesLengthExceeded txFramesNoMemErrors rxFramesDiscardedTotal rxFramesErrors "
      "rxFramesTotal rxTLVsDiscardedTotal rxTLVsUnrecognizedTotal timestamp",
      40}},
    {"Lldp::LocationId", {"coordinateBasedLCI civicAddressLCI ecsElin", 39}},
    {"Lldp::LocationId::CoordinateBasedLCI", {"laRes latitude loRes longitude aT altRes altitude datum received", 26}},
    {"Lldp::LocationId::CivicAddressLCI", {"lciLength what countryCode caElements received", 8}},
    {"Lldp::LocationId::CivicAddressLCI::CaElement", {"caType caValue", 5}},
    {"Lldp::LocationId::EcsElin", {"elin received", 5}},
    {"Lldp::PortConfig::EnabledTlvs", {"portDesc sysName sysDesc sysCap", 4}},
    {"Lldp::PortConfig::Dot3EnabledTlvs", {"macPhyConfigStatus powerViaMdi linkAggregation maxFrameSize", 4}},
    {"Lldp::PortConfig::TiaEnabledTlvs", {"powerViaMdi networkPolicy", 4}},
    {"Lldp::RemoteSystem::Msap", {"chassisIdentifier portIdentifier", 16}},
    {"Lldp::ExternalTlvPortConfig::Key", {"intfId version", 8}},
    {"Lldp::UnknownOrgDefTlvCounter::Key", {"oui subtype", 8}},
};

TEST(AttrLogTest, KeysAndWidthsOfEveryType) {
  std::size_t seen = 0;
  forEachValueType([&](auto tag) {
    using T = decltype(tag);
    ++seen;
    std::string keys;
    auto add = [&](const char* k) { keys += (keys.empty() ? "" : " ") + std::string(k); };
    if constexpr (Kel::KelBitMap<T>)
      for (unsigned i = 0; i < T::kelBitCount; ++i) add(T::kelBitNames()[i]);
    else
      Kel::forEachField<T>([&](auto const& fd) { add(fd.name); });
    auto it = layouts.find(T::kelName);
    ASSERT_NE(it, layouts.end());
    EXPECT_EQ(keys, it->second.keys);
    EXPECT_EQ(logBytes(T()).size(), it->second.defaultBytes);
  });
  EXPECT_EQ(seen, layouts.size());
}

TEST(AttrLogTest, EveryTypeRoundTripsAndRefusesTruncation) {
  forEachValueType([](auto tag) {
    using T = decltype(tag);
    for (T const& v : {T(), filled<T>()}) {
      Kel::String bytes = logBytes(v);
      EXPECT_EQ(fromLog<T>(bytes), v);
      for (std::size_t n = 0; n < bytes.size(); ++n) {
        In in(bytes.data(), n);
        EXPECT_THROW(T(&in, Kel::StreamBogon{}), Kel::AttrLogException) << n;
      }
    }
  });
}

TEST(AttrLogTest, ExactBytes) {
  Civic civic;
  civic.lciLengthIs(6);
  civic.whatIs(1);
  civic.countryCodeIs("US");
  civic.receivedIs(true);
  EXPECT_EQ(logBytes(civic), Kel::String(std::string("\x06\x01\0\0\0\x02US\x00\x01", 10)));
  Civic::CaElement e;
  e.caValueIs("B");
  civic.caElementsIs(29, e);
  civic.caElementsIs(3, e);
  EXPECT_EQ(logBytes(civic),
            Kel::String(std::string("\x06\x01\0\0\0\x02US\x03\x00\0\0\0\x01" "B\x1d\x00\0\0\0\x01" "B\x00\x01", 24)));
  EXPECT_EQ(fromLog<Civic>(logBytes(civic)), civic);

  ManagementAddress::Key key;
  key.manAddrSubtypeIs(Platform::AddressFamilyNumbers(-2));
  key.manAddrIs(ManAddress("a"));
  EXPECT_EQ(logBytes(key), Kel::String(std::string("\xff\xff\xff\xfe\0\0\0\x01" "a", 9)));
  NetworkPolicyTlv policy;
  policy.appValueIs(1);
  policy.taggedIs(true);
  policy.vlanIdIs(0x123);
  policy.dscpValueIs(46);
  EXPECT_EQ(logBytes(policy), Kel::String(std::string("\x01\x00\x01\x01\x23\x00\x2e", 7)));

  civic.caElementsIs(0, e);
  EXPECT_THROW(logBytes(civic), Kel::AttrLogException);
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

TEST(AttrLogTest, ReadChecks) {
  Kel::String const s33 = awkwardBytes(33), s256 = awkwardBytes(256), s512 = awkwardBytes(512);
  struct Case {
    std::function<void()> read;
    std::string message;  // empty: accepted as it comes
  };
  std::vector<Case> const cases = {
      {reading<BoundedString32>([&](Out& o) { o << s33; }), "BoundedString32::value::bytes > 32 not allowed"},
      {reading<ChassisIdentifier>([&](Out& o) { o << 4u << s256; }), "ChassisId::value::bytes > 255 not allowed"},
      {reading<ManagementAddress::Key>([&](Out& o) { o << 1 << s33; }), "ManAddress::value::bytes > 31 not allowed"},
      {reading<VlanName>([&](Out& o) { o << std::uint16_t{5} << s33; }),
       "BoundedString32::value::bytes > 32 not allowed"},
      {reading<VlanName>([&](Out& o) { o << std::uint16_t{0} << Kel::String(); }),
       "VlanId::value < 1 or > 4094 not allowed"},
      {reading<PortAndProtocolVlan>([&](Out& o) { o << std::uint16_t{4095} << false << false; }),
       "VlanIdOrNone::value > 4094 not allowed"},
      {reading<UnknownTlv>([&](Out& o) { o << 200u << s512; }), "BoundedString511::value::bytes > 511 not allowed"},
      {reading<UnknownTlv>([&](Out& o) { o << 200u << Kel::String(); }), ""},
      {reading<ProtocolIdentityInfo>([&](Out& o) { o << 0 << s256; }),
       "BoundedString255::value::bytes > 255 not allowed"},
      {reading<ProtocolIdentityInfo>([&](Out& o) { o << -1 << Kel::String(); }), ""},
      {reading<UnknownOrgDefTlv::Key>([&](Out& o) { o << 0x1000000u << 1u << 1; }), "Oui::value > 0xffffff not allowed"},
      {reading<UnknownOrgDefTlv::Key>([&](Out& o) { o << 0xffffffu << 0u << 0; }), ""},
      {reading<UnknownOrgDefTlvCounter::Key>([&](Out& o) { o << 0x1000000u << 1u; }),
       "Oui::value > 0xffffff not allowed"},
      {reading<UnknownOrgDefTlvCounter::Key>([&](Out& o) { o << 1u << 1000u; }), ""},
      {reading<UnknownOrgDefTlv>([&](Out& o) { o << 1u << 1u << 1 << awkwardBytes(508); }),
       "BoundedString507::value::bytes > 507 not allowed"},
      {reading<Oui>([&](Out& o) { o << 0x1000000u; }), "Oui::value > 0xffffff not allowed"},
      {reading<LinkAggregationInfo>([&](Out& o) { o << 0x100u << 1; }), "LinkAggStatusMap::value > 0xff not allowed"},
      {reading<MedCapabilitiesInfo>([&](Out& o) { o << 0x80u << 0u; }), "Capability::value > 0x7f not allowed"},
      {reading<SystemCapabilitiesTlv>([&](Out& o) { o << true << 0u << 0x10000u; }),
       "SystemCapabilitiesMap::value > 0xffff not allowed"},
      {reading<MacPhyConfigStatusInfo>([&](Out& o) { o << true << true << 0x800000u << 0u; }),
       "AutoNegCapBits::value > 0x7fffff not allowed"},
      {reading<LinkAggStatusMap>([&](Out& o) { o << 0xffffffffu; }), ""},
      {reading<PortConfig::TiaEnabledTlvs>([&](Out& o) { o << 0x10u; }), ""},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "case " << i);
    if (cases[i].message.empty())
      EXPECT_NO_THROW(cases[i].read());
    else
      EXPECT_EQ(messageOf<Kel::RangeException>(cases[i].read), cases[i].message);
  }
  // A bare bit map keeps what it read.
  Out o;
  o << 0xffffffffu;
  EXPECT_EQ(fromLog<LinkAggStatusMap>(o.bytes()).value(), 0xffffffffu);
}

}  // namespace
