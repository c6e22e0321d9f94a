#pragma once
// The power subsystem's PoE enumerations. Their numbers are the IEEE 802.3 codes of the
// fields they feed (the Power via MDI TLV shifts them straight into its bit fields).
// Each has its descriptor Power::_kelType_<E> and, in namespace Power, enumType(E),
// stringValue/valueToStrep (the enumerator's name), operator<< (the same name),
// sequenceToValue (parsing a name) and toU32(E), the numeric code.
#include <cstdint>

#include "Kel/Value.h"

namespace Power {

// State of a PSE port.
KEL_SCOPED_ENUM(PoePortState, "Power::PoePortState", (disabled, 0), (searching, 1), (detected, 2),
                (classified, 3), (powered, 4), (fault, 5), (powerDenied, 6))

// Class of the powered device: 2 is IEEE class 0 and each further value the next class.
KEL_SCOPED_ENUM(PoweredDeviceClass, "Power::PoweredDeviceClass", (unknown, 0), (invalid, 1), (class0, 2),
                (class1, 3), (class2, 4), (class3, 5), (class4, 6), (class5, 7), (class6, 8), (class7, 9),
                (class8, 10))

// IEEE 802.3at power type, power source and power priority (2 bits each).
KEL_SCOPED_ENUM(PowerType, "Power::PowerType", (type2Pse, 0), (type2Pd, 1), (type1Pse, 2), (type1Pd, 3))
KEL_SCOPED_ENUM(PowerSource, "Power::PowerSource", (unknown, 0), (primary, 1), (backup, 2), (reserved, 3))
KEL_SCOPED_ENUM(PowerPriority, "Power::PowerPriority", (unknown, 0), (critical, 1), (high, 2), (low, 3))

// IEEE 802.3bt PSE powering status and PSE power pairs ext (2 bits; 0 when a PD sends them).
KEL_SCOPED_ENUM(PsePoweringStatus, "Power::PsePoweringStatus", (ignore, 0), (twoPair, 1),
                (fourPairSingleSignature, 2), (fourPairDualSignature, 3))
KEL_SCOPED_ENUM(PsePowerPairsExt, "Power::PsePowerPairsExt", (ignore, 0), (alternativeA, 1), (alternativeB, 2),
                (bothAlternatives, 3))

// IEEE 802.3bt dual-signature power class ext, mode A or B (3 bits); 7 is a single-signature
// PD or a 2-pair only PSE.
KEL_SCOPED_ENUM(DualSignaturePowerClassExtMode, "Power::DualSignaturePowerClassExtMode", (reserved0, 0),
                (class1, 1), (class2, 2), (class3, 3), (class4, 4), (class5, 5), (reserved6, 6),
                (singleSignature, 7))

// IEEE 802.3bt power type ext (3 bits).
KEL_SCOPED_ENUM(PowerTypeExt, "Power::PowerTypeExt", (type3Pse, 0), (type4Pse, 1), (type3PdSingleSignature, 2),
                (type3PdDualSignature, 3), (type4PdSingleSignature, 4), (type4PdDualSignature, 5),
                (reserved6, 6), (reserved7, 7))

// Which LLDP power negotiation the PSE takes part in.
KEL_SCOPED_ENUM(LldpPoeNegotiationSupport, "Power::LldpPoeNegotiationSupport", (NotSupported, 0),
                (Ieee802_3at, 1), (Ieee802_3bt, 2))

// IEEE 802.3 PSE power pair: the pairs that carry power.
KEL_SCOPED_ENUM(PsePowerPair, "Power::PsePowerPair", (unknown, 0), (signal, 1), (spare, 2))

#define POWER_ENUM_FUNCTIONS(E)          \
  KEL_ENUM_FUNCTIONS(E, _kelType_##E)    \
  constexpr std::uint32_t toU32(E v) noexcept { return static_cast<std::uint32_t>(v); }
POWER_ENUM_FUNCTIONS(PoePortState)
POWER_ENUM_FUNCTIONS(PoweredDeviceClass)
POWER_ENUM_FUNCTIONS(PowerType)
POWER_ENUM_FUNCTIONS(PowerSource)
POWER_ENUM_FUNCTIONS(PowerPriority)
POWER_ENUM_FUNCTIONS(PsePoweringStatus)
POWER_ENUM_FUNCTIONS(PsePowerPairsExt)
POWER_ENUM_FUNCTIONS(DualSignaturePowerClassExtMode)
POWER_ENUM_FUNCTIONS(PowerTypeExt)
POWER_ENUM_FUNCTIONS(LldpPoeNegotiationSupport)
POWER_ENUM_FUNCTIONS(PsePowerPair)
#undef POWER_ENUM_FUNCTIONS

}  // namespace Power
