#pragma once
// PoePortStatus: what the power subsystem knows about one PoE port, a value copied into
// the consumers that advertise it. Powers are in watts.
#include "Kel/Value.h"
#include "Platform/Watts.h"
#include "Power/PoeEnums.h"

namespace Power {

using Platform::Watts;

class PoePortStatus : public Kel::ValueBase {
  KEL_RECORD(PoePortStatus, "Power::PoePortStatus", Kel::opNot,
             (PoePortState, poePortState, PoePortState::disabled),
             (PoweredDeviceClass, poweredDeviceClass, PoweredDeviceClass::unknown),
             (Watts, grantedPower, 0.0),
             (LldpPoeNegotiationSupport, lldpPoeNegotiationSupport, LldpPoeNegotiationSupport::NotSupported),
             (bool, psePairsControllable, false), (PsePowerPair, psePowerPair, PsePowerPair::unknown),
             (PowerType, powerType, PowerType::type2Pse), (PowerSource, powerSource, PowerSource::unknown),
             (PowerPriority, powerPriority, PowerPriority::unknown), (Watts, allocatedPowerAlternativeA, 0.0),
             (Watts, allocatedPowerAlternativeB, 0.0),
             (PsePoweringStatus, psePoweringStatus, PsePoweringStatus::ignore),
             (PsePowerPairsExt, psePowerPairsExt, PsePowerPairsExt::ignore),
             (DualSignaturePowerClassExtMode, dualSignaturePowerClassExtModeA,
              DualSignaturePowerClassExtMode::reserved0),
             (DualSignaturePowerClassExtMode, dualSignaturePowerClassExtModeB,
              DualSignaturePowerClassExtMode::reserved0),
             (PowerTypeExt, powerTypeExt, PowerTypeExt::type3Pse), (Watts, pseMaximumAvailablePower, 0.0),
             (bool, pseAutoclassSupport, false), (bool, autoclassCompleted, false))

 public:
  bool isPowered() const noexcept { return poePortState() == PoePortState::powered; }
};

using Kel::valueToStrep;

}  // namespace Power
