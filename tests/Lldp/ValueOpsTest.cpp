#include <gtest/gtest.h>

#include "Lldp/ValueTestUtil.h"

using namespace LldpTest;

namespace {

enum : unsigned { lt = 1, hash = 2, neg = 4 };

// Which of <, hash(seed) and ! a type offers; == is required of every one.
template <class T>
constexpr unsigned opsOf() {
  static_assert(requires(T a) { { a == a } -> std::same_as<bool>; });
  return (requires(T a) { a < a; } ? lt : 0u) | (requires(T a) { a.hash(std::size_t{0}); } ? hash : 0u) |
         (requires(T a) { !a; } ? neg : 0u);
}

// The operators each value type offers, no more and no fewer.
static_assert(opsOf<ChassisId>() == (lt | neg) && opsOf<PortId>() == (lt | neg) && opsOf<ManAddress>() == (lt | neg));
static_assert(opsOf<BoundedString32>() == neg && opsOf<BoundedString255>() == neg &&
              opsOf<BoundedString507>() == neg && opsOf<BoundedString511>() == neg);
static_assert(opsOf<Oui>() == 0 && opsOf<TlvBase>() == 0 && opsOf<SystemCapabilitiesTlv>() == 0);
static_assert(opsOf<BoundedString32Tlv>() == neg && opsOf<BoundedString255Tlv>() == neg);
static_assert(opsOf<ChassisIdentifier>() == (lt | hash | neg) && opsOf<PortIdentifier>() == (lt | hash | neg) &&
              opsOf<ManagementAddress::Key>() == (lt | hash | neg) && opsOf<RemoteSystem::Msap>() == (lt | hash | neg));
static_assert(opsOf<ManagementAddress>() == neg);
static_assert(opsOf<PowerViaMdiInfo>() == neg && opsOf<PowerViaMdiInfo::At>() == 0 &&
              opsOf<PowerViaMdiInfo::Bt>() == neg);
static_assert(opsOf<MacPhyConfigStatusInfo>() == 0 && opsOf<LinkAggregationInfo>() == 0 &&
              opsOf<MaximumFrameSizeInfo>() == 0 && opsOf<MedCapabilitiesInfo>() == 0);
static_assert(opsOf<NetworkPolicyTlv>() == (lt | hash) && opsOf<NetworkPolicyConfig>() == neg);
static_assert(opsOf<UnknownTlv>() == neg && opsOf<UnknownOrgDefTlv>() == (hash | neg) &&
              opsOf<UnknownOrgDefTlv::Key>() == (lt | hash) && opsOf<UnknownOrgDefTlvCounter::Key>() == (lt | hash) &&
              opsOf<ExternalTlvPortConfig::Key>() == (lt | hash));
static_assert(opsOf<ManAddrPriority>() == lt && opsOf<PortAndProtocolVlan>() == 0 && opsOf<MgmtAddrTxOption>() == 0 &&
              opsOf<PortCounterCheckpoint>() == 0);
static_assert(opsOf<VlanName>() == neg && opsOf<ProtocolIdentityInfo>() == neg && opsOf<ClearRequest>() == neg);
static_assert(opsOf<LocationId>() == neg && opsOf<LocationId::CoordinateBasedLCI>() == 0 && opsOf<Civic>() == neg &&
              opsOf<Civic::CaElement>() == lt && opsOf<LocationId::EcsElin>() == 0);
// Bit maps order as unsigned numbers.
static_assert((opsOf<LinkAggStatusMap>() & lt) != 0 && (opsOf<PortConfig::TiaEnabledTlvs>() & lt) != 0);

TEST(ValueOpsTest, OrderAndHashAgreeWithEquality) {
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
  });
}

}  // namespace
