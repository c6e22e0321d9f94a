#pragma once
// PoePortStatus: what the power subsystem knows about one PoE port, as a plain record
// copied by value into the consumers that advertise it.
#include <iosfwd>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Watts.h"
#include "Power/PoeEnums.h"

namespace Power {

using Platform::Watts;

struct PoePortStatus {
  PoePortState poePortState = PoePortState::disabled;
  PoweredDeviceClass poweredDeviceClass = PoweredDeviceClass::unknown;
  Watts grantedPower = 0.0;  // power allocated to the device
  LldpPoeNegotiationSupport lldpPoeNegotiationSupport = LldpPoeNegotiationSupport::NotSupported;
  bool psePairsControllable = false;
  PsePowerPair psePowerPair = PsePowerPair::unknown;
  PowerType powerType = PowerType::type2Pse;
  PowerSource powerSource = PowerSource::unknown;
  PowerPriority powerPriority = PowerPriority::unknown;
  Watts allocatedPowerAlternativeA = 0.0;
  Watts allocatedPowerAlternativeB = 0.0;
  PsePoweringStatus psePoweringStatus = PsePoweringStatus::ignore;
  PsePowerPairsExt psePowerPairsExt = PsePowerPairsExt::ignore;
  DualSignaturePowerClassExtMode dualSignaturePowerClassExtModeA = DualSignaturePowerClassExtMode::reserved0;
  DualSignaturePowerClassExtMode dualSignaturePowerClassExtModeB = DualSignaturePowerClassExtMode::reserved0;
  PowerTypeExt powerTypeExt = PowerTypeExt::type3Pse;
  Watts pseMaximumAvailablePower = 0.0;
  bool pseAutoclassSupport = false;
  bool autoclassCompleted = false;

  PoePortStatus() = default;  // every field 0 / false
  // Parses the text form written by valueToStrep; a field out of range is reported
  // as a RangeException naming the field.
  PoePortStatus(Kel::StrepIt& pos, Kel::StrepIt const& end);
  // Reads the fields in declaration order: enumerations as u32, watts as double, bools.
  PoePortStatus(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  bool isPowered() const noexcept { return poePortState == PoePortState::powered; }
  bool operator!() const noexcept { return *this == PoePortStatus(); }
  // Field by field; a NaN power never compares equal.
  friend bool operator==(PoePortStatus const&, PoePortStatus const&) = default;
};

// Text form: "Value('Power::PoePortStatus', ** {'poePortState': disabled, ...})", one
// "'field': strep" entry per field in declaration order.
Kel::String valueToStrep(PoePortStatus const& v);
// Writes the text form.
std::ostream& operator<<(std::ostream& os, PoePortStatus const& v);
// Attribute log: the fields in declaration order.
Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& out, PoePortStatus const& v);

}  // namespace Power
