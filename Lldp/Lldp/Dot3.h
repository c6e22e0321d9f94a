#pragma once
// Contents of the IEEE 802.3 organizationally specific TLVs (Power via MDI with its
// 802.3at and 802.3bt extensions, MAC/PHY, Link Aggregation, Maximum Frame Size) and of
// the LLDP-MED Capabilities and Network Policy TLVs. Power values named ...PowerValue
// are unsigned 16-bit deciwatts, as on the wire.
#include <cstdint>

#include "Kel/Value.h"
#include "Lldp/Lldp/Enums.h"
#include "Lldp/Lldp/Strings.h"
#include "Platform/AutoNegCapBits.h"
#include "Platform/Watts.h"
#include "Power/PoeEnums.h"

namespace Lldp {

class PowerViaMdiInfo : public Kel::ValueBase {
 public:
  // Which revision of the TLV a record holds: the model's own numbers.
  KEL_NESTED_ENUM(IeeeStandard, "Lldp::PowerViaMdiInfo::IeeeStandard",
                  (IeeeStandard_802_3af, 0), (IeeeStandard_802_3at, 1), (IeeeStandard_802_3bt, 2))

  class At : public Kel::ValueBase {
    KEL_RECORD(At, "Lldp::PowerViaMdiInfo::At", Kel::opEq,
               (Power::PowerType, powerType, 0), (Power::PowerSource, powerSource, 0),
               (Power::PowerPriority, powerPriority, 0), (std::uint16_t, pdRequestedPowerValue, 0),
               (std::uint16_t, pseAllocatedPowerValue, 0))
  };

  class Bt : public Kel::ValueBase {
   public:
    // The 2-bit PD powered status field, with the field's own codes.
    KEL_NESTED_ENUM(PdPoweredStatus, "Lldp::PowerViaMdiInfo::Bt::PdPoweredStatus",
                    (PdPoweredStatusReserved0, 0), (PoweredSingleSignaturePd, 1),
                    (TwoPairPoweringDualSignaturePd, 2), (FourPairPoweringDualSignaturePd, 3))
    // The 4-bit power class ext field: every code has an enumerator, so any wire value fits.
    KEL_NESTED_ENUM(PowerClassExt, "Lldp::PowerViaMdiInfo::Bt::PowerClassExt",
                    (PowerClassExtReserved0, 0), (PowerClassExt1, 1), (PowerClassExt2, 2), (PowerClassExt3, 3),
                    (PowerClassExt4, 4), (PowerClassExt5, 5), (PowerClassExt6, 6), (PowerClassExt7, 7),
                    (PowerClassExt8, 8), (PowerClassExtReserved9, 9), (PowerClassExtReserved10, 10),
                    (PowerClassExtReserved11, 11), (PowerClassExtReserved12, 12), (PowerClassExtReserved13, 13),
                    (PowerClassExtReserved14, 14), (DualSignaturePd, 15))

    KEL_RECORD(Bt, "Lldp::PowerViaMdiInfo::Bt", Kel::opNot,
               (bool, pd4Pid, false), (std::uint16_t, pdRequestedPowerValueModeA, 0),
               (std::uint16_t, pdRequestedPowerValueModeB, 0), (std::uint16_t, pseAllocatedPowerValueAlternativeA, 0),
               (std::uint16_t, pseAllocatedPowerValueAlternativeB, 0),
               (Power::PsePoweringStatus, psePoweringStatus, 0), (PdPoweredStatus, pdPoweredStatus, 0),
               (Power::PsePowerPairsExt, psePowerPairsExt, 0),
               (Power::DualSignaturePowerClassExtMode, dualSignaturePowerClassExtModeA, 0),
               (Power::DualSignaturePowerClassExtMode, dualSignaturePowerClassExtModeB, 0),
               (PowerClassExt, powerClassExt, 0), (Power::PowerTypeExt, powerTypeExt, 0), (bool, pdLoad, false),
               (std::uint16_t, pseMaximumAvailablePowerValue, 0), (bool, pseAutoclassSupport, false),
               (bool, autoclassCompleted, false), (bool, autoclassRequest, false),
               (bool, powerDownRequest, false), (std::uint32_t, powerDownTime, 0))
  };

  KEL_RECORD(PowerViaMdiInfo, "Lldp::PowerViaMdiInfo", Kel::opNot,
             (IeeeStandard, ieeeStandard, IeeeStandard_802_3af), (PowerPortClass, portClass, pClassPSE),
             (bool, supported, false), (bool, enabled, false), (bool, powerPairControllable, false),
             (std::uint32_t, powerPairs, 0), (std::uint32_t, powerClass, 0), (At, at, ), (Bt, bt, ))

 public:
  Platform::Watts deciWattsToWatts(std::uint16_t deciWatts) const;
  // Rounds half away from zero; more than 6553.5 W wraps when narrowed to 16 bits.
  std::uint16_t wattsToDeciWatts(Platform::Watts const& watts) const;
};

KEL_ENUM_FUNCTIONS(PowerViaMdiInfo::IeeeStandard, PowerViaMdiInfo::_kelType_IeeeStandard)
KEL_ENUM_FUNCTIONS(PowerViaMdiInfo::Bt::PdPoweredStatus, PowerViaMdiInfo::Bt::_kelType_PdPoweredStatus)
KEL_ENUM_FUNCTIONS(PowerViaMdiInfo::Bt::PowerClassExt, PowerViaMdiInfo::Bt::_kelType_PowerClassExt)

class MacPhyConfigStatusInfo : public Kel::ValueBase {
  KEL_RECORD(MacPhyConfigStatusInfo, "Lldp::MacPhyConfigStatusInfo", Kel::opEq,
             (bool, autoNegSupported, false), (bool, autoNegEnabled, false),
             (Platform::AutoNegCapBits, autoNegAdvertisedCap, ), (std::uint32_t, operMauType, 0))

 public:
  // The TLV's 16-bit advertised capability field numbers capability 0 as its most
  // significant bit, the platform set as its least: bit i becomes bit 15 - i. Bits 16
  // to 22 of the set have no place in the field.
  std::uint16_t autoNegAdvertisedCapAsU16() const;
  // The inverse; the whole set is replaced, so bits 16 to 22 become 0.
  void autoNegAdvertisedCapAsU16Is(std::uint16_t field);
};

class LinkAggregationInfo : public Kel::ValueBase {
  KEL_RECORD(LinkAggregationInfo, "Lldp::LinkAggregationInfo", Kel::opEq, (LinkAggStatusMap, status, ),
             (std::int32_t, portId, 0))
};

class MaximumFrameSizeInfo : public Kel::ValueBase {
  KEL_WRAPPER(MaximumFrameSizeInfo, "Lldp::MaximumFrameSizeInfo", Kel::opEq, std::uint16_t, maxFrameSize, 0)
};

class MedCapabilitiesInfo : public Kel::ValueBase {
 public:
  // The LLDP-MED capabilities bit field, low seven bits.
  class Capability : public Kel::ValueBase {
    KEL_BITMAP(Capability, "Lldp::MedCapabilitiesInfo::Capability", capabilities, networkPolicy, location,
               extendedPse, extendedPd, inventory, reserved)
  };
  KEL_NESTED_ENUM(MedDeviceType, "Lldp::MedCapabilitiesInfo::MedDeviceType",
                  (MedDeviceType_NotDefined, 0), (MedDeviceType_EndpointClass1, 1),
                  (MedDeviceType_EndpointClass2, 2), (MedDeviceType_EndpointClass3, 3),
                  (MedDeviceType_NetworkConnectivity, 4), (MedDeviceType_Reserved, 5))

  KEL_RECORD(MedCapabilitiesInfo, "Lldp::MedCapabilitiesInfo", Kel::opEq, (Capability, capability, ),
             (MedDeviceType, deviceType, MedDeviceType_NotDefined))
};

KEL_ENUM_FUNCTIONS(MedCapabilitiesInfo::MedDeviceType, MedCapabilitiesInfo::_kelType_MedDeviceType)

// One received LLDP-MED Network Policy TLV. Kept in ordered and hashed sets.
class NetworkPolicyTlv : public Kel::ValueBase {
  KEL_RECORD(NetworkPolicyTlv, "Lldp::NetworkPolicyTlv", Kel::opLt | Kel::opHash,
             (std::uint8_t, appValue, 0), (bool, unknownPolicy, false), (bool, tagged, false),
             (std::uint16_t, vlanId, 0), (std::uint8_t, cosValue, 0), (std::uint8_t, dscpValue, 0))
};

// One configured network policy of a port: appValue is its identity, the rest its settings.
class NetworkPolicyConfig : public Kel::ValueBase {
  KEL_RECORD(NetworkPolicyConfig, "Lldp::NetworkPolicyConfig", Kel::opNot, (std::uint8_t, appValue, 0),
             (Kel::String, appName, "default"), (bool, tagged, false), (std::uint16_t, vlanId, 0),
             (std::uint8_t, cosValue, 0), (std::uint8_t, dscpValue, 0))

 public:
  // Same network settings; the application is deliberately not compared.
  static bool equivalent(NetworkPolicyConfig const& cfg1, NetworkPolicyConfig const& cfg2);
  // An untagged policy advertises VLAN 0 and priority 0.
  NetworkPolicyTlv toNetworkPolicyTlv() const;
  // Takes the settings of other and keeps this policy's appValue.
  void copyFrom(NetworkPolicyConfig const& other);
};

}  // namespace Lldp
