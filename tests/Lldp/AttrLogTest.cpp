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

// Stream size of each default value; it pins every field's width (u8 1, u16 2, u32/s32 4,
// u64/s64/double 8, bool 1, string 4 + bytes).
std::map<std::string, std::size_t> const defaultBytes = {
    {"ChassisId", 4}, {"PortId", 4}, {"ManAddress", 4}, {"BoundedString32", 4}, {"BoundedString255", 4},
    {"BoundedString507", 4}, {"BoundedString511", 4}, {"Oui", 4}, {"TlvBase", 1}, {"BoundedString32Tlv", 5},
    {"BoundedString255Tlv", 5}, {"SystemCapabilitiesMap", 4}, {"LinkAggStatusMap", 4}, {"SystemCapabilitiesTlv", 9},
    {"ChassisIdentifier", 8}, {"PortIdentifier", 8}, {"ManagementAddress::Key", 8}, {"ManagementAddress", 20},
    {"PowerViaMdiInfo", 83}, {"PowerViaMdiInfo::At", 16}, {"PowerViaMdiInfo::Bt", 48}, {"MacPhyConfigStatusInfo", 10},
    {"LinkAggregationInfo", 8}, {"MaximumFrameSizeInfo", 2}, {"MedCapabilitiesInfo::Capability", 4},
    {"MedCapabilitiesInfo", 8}, {"NetworkPolicyTlv", 7}, {"NetworkPolicyConfig", 17}, {"UnknownTlv", 8},
    {"UnknownOrgDefTlv::Key", 12}, {"UnknownOrgDefTlv", 16}, {"PortAndProtocolVlan", 4}, {"VlanName", 6},
    {"ProtocolIdentityInfo", 8}, {"ManAddrPriority", 16}, {"MgmtAddrTxOption", 8}, {"ClearRequest", 16},
    {"PortCounterCheckpoint", 40}, {"LocationId", 39}, {"LocationId::CoordinateBasedLCI", 26},
    {"LocationId::CivicAddressLCI", 8}, {"LocationId::CivicAddressLCI::CaElement", 5}, {"LocationId::EcsElin", 5},
    {"PortConfig::EnabledTlvs", 4}, {"PortConfig::Dot3EnabledTlvs", 4}, {"PortConfig::TiaEnabledTlvs", 4},
    {"RemoteSystem::Msap", 16}, {"ExternalTlvPortConfig::Key", 8}, {"UnknownOrgDefTlvCounter::Key", 8}};

TEST(AttrLogTest, FieldWidths) {
  std::size_t seen = 0;
  forEachValueType([&](auto tag) {
    ++seen;
    EXPECT_EQ(logBytes(tag).size(), defaultBytes.at(std::string(decltype(tag)::kelName).substr(6)));
  });
  EXPECT_EQ(seen, defaultBytes.size());
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
