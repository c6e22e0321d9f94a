#pragma once
// The model's value types for generic test, benchmark and fuzz code: every declared value
// type as one list, and how to tell records, bit maps and value collections apart.
#include <map>
#include <tuple>
#include <type_traits>

#include "Lldp/Lldp.h"

namespace LldpTest {

template <class T>
concept KelValue = requires { T::kelShape; };
template <class T>
concept KelBitMap = KelValue<T> && (T::kelShape == Kel::Shape::bitMap);
template <class T>
struct IsValueCollection : std::false_type {};
template <class K, class V, class C, class A>
struct IsValueCollection<std::map<K, V, C, A>> : std::true_type {};

namespace types {
using namespace Lldp;
using Civic = LocationId::CivicAddressLCI;
using AllValueTypes = std::tuple<
    ChassisId, PortId, ManAddress, BoundedString32, BoundedString255, BoundedString507, BoundedString511, Oui,
    TlvBase, BoundedString32Tlv, BoundedString255Tlv, SystemCapabilitiesMap, LinkAggStatusMap,
    SystemCapabilitiesTlv, ChassisIdentifier, PortIdentifier, ManagementAddress::Key, ManagementAddress,
    PowerViaMdiInfo, PowerViaMdiInfo::At, PowerViaMdiInfo::Bt, MacPhyConfigStatusInfo, LinkAggregationInfo,
    MaximumFrameSizeInfo, MedCapabilitiesInfo::Capability, MedCapabilitiesInfo, NetworkPolicyTlv,
    NetworkPolicyConfig, UnknownTlv, UnknownOrgDefTlv::Key, UnknownOrgDefTlv, PortAndProtocolVlan, VlanName,
    ProtocolIdentityInfo, ManAddrPriority, MgmtAddrTxOption, ClearRequest, PortCounterCheckpoint, LocationId,
    LocationId::CoordinateBasedLCI, Civic, Civic::CaElement, LocationId::EcsElin, PortConfig::EnabledTlvs,
    PortConfig::Dot3EnabledTlvs, PortConfig::TiaEnabledTlvs, RemoteSystem::Msap, ExternalTlvPortConfig::Key,
    UnknownOrgDefTlvCounter::Key>;
}  // namespace types
using types::AllValueTypes;

}  // namespace LldpTest
