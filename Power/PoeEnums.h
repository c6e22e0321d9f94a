#pragma once
// The power subsystem's PoE enumerations. Their numbers are the IEEE 802.3 codes of the
// fields they feed (the Power via MDI TLV shifts them straight into its bit fields), so
// they are scoped enumerations over unsigned 32-bit and toU32() gives the code.
//
// Each enumeration E has, in namespace Power:
//   Kel::EnumType const& enumType(E)      its descriptor ("Power::E"), registered at load
//   Kel::String valueToStrep(E)           the enumerator's name ("<undefined N>" if none)
//   std::ostream& operator<<(ostream&, E) writes the same name
//   E sequenceToValue(pos, end, E*)       parses a name (what Kel::strepToValue<E> calls)
//   Out& operator<<(Out&, E)              attribute log: one u32
//   In& operator>>(In&, E&)               attribute log: one u32, kept as read
//   constexpr std::uint32_t toU32(E)      the numeric code
#include <cstdint>
#include <iosfwd>

#include "Kel/EnumType.h"
#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"

namespace Power {

// State of a PSE port.
enum class PoePortState : std::uint32_t {
  disabled = 0,     // PoE off on the port
  searching = 1,    // detecting a powered device
  detected = 2,     // valid signature seen, not yet classified
  classified = 3,   // class known, power not yet applied
  powered = 4,      // delivering power
  fault = 5,        // power removed after a fault (overload, short)
  powerDenied = 6,  // not enough power budget for the device
};

// Class of the powered device: 2 is IEEE class 0 and each further value the next class.
enum class PoweredDeviceClass : std::uint32_t {
  unknown = 0,  // not classified
  invalid = 1,  // classification failed
  class0 = 2,
  class1 = 3,
  class2 = 4,
  class3 = 5,
  class4 = 6,
  class5 = 7,
  class6 = 8,
  class7 = 9,
  class8 = 10,
};

// IEEE 802.3at power type (2 bits).
enum class PowerType : std::uint32_t {
  type2Pse = 0,
  type2Pd = 1,
  type1Pse = 2,
  type1Pd = 3,
};

// IEEE 802.3at power source (2 bits), as a PSE reports it.
enum class PowerSource : std::uint32_t {
  unknown = 0,
  primary = 1,
  backup = 2,
  reserved = 3,
};

// IEEE 802.3at power priority (2 bits).
enum class PowerPriority : std::uint32_t {
  unknown = 0,
  critical = 1,
  high = 2,
  low = 3,
};

// IEEE 802.3bt PSE powering status (2 bits).
enum class PsePoweringStatus : std::uint32_t {
  ignore = 0,  // sent by a PD
  twoPair = 1,
  fourPairSingleSignature = 2,
  fourPairDualSignature = 3,
};

// IEEE 802.3bt PSE power pairs ext (2 bits).
enum class PsePowerPairsExt : std::uint32_t {
  ignore = 0,  // sent by a PD
  alternativeA = 1,
  alternativeB = 2,
  bothAlternatives = 3,
};

// IEEE 802.3bt dual-signature power class ext, mode A or B (3 bits).
enum class DualSignaturePowerClassExtMode : std::uint32_t {
  reserved0 = 0,
  class1 = 1,
  class2 = 2,
  class3 = 3,
  class4 = 4,
  class5 = 5,
  reserved6 = 6,
  singleSignature = 7,  // single-signature PD or 2-pair only PSE
};

// IEEE 802.3bt power type ext (3 bits).
enum class PowerTypeExt : std::uint32_t {
  type3Pse = 0,
  type4Pse = 1,
  type3PdSingleSignature = 2,
  type3PdDualSignature = 3,
  type4PdSingleSignature = 4,
  type4PdDualSignature = 5,
  reserved6 = 6,
  reserved7 = 7,
};

// Which LLDP power negotiation the PSE takes part in.
enum class LldpPoeNegotiationSupport : std::uint32_t {
  NotSupported = 0,
  Ieee802_3at = 1,
  Ieee802_3bt = 2,
};

// IEEE 802.3 PSE power pair: the pairs that carry power.
enum class PsePowerPair : std::uint32_t {
  unknown = 0,
  signal = 1,
  spare = 2,
};

#define POWER_ENUM_OPERATIONS(E)                                                        \
  Kel::EnumType const& enumType(E);                                                     \
  Kel::String valueToStrep(E v);                                                        \
  std::ostream& operator<<(std::ostream& os, E v);                                      \
  E sequenceToValue(Kel::StrepIt& pos, Kel::StrepIt const& end, E*);                    \
  Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& out, E v);                     \
  Kel::NboAttrLog::In& operator>>(Kel::NboAttrLog::In& in, E& v);                       \
  constexpr std::uint32_t toU32(E v) noexcept { return static_cast<std::uint32_t>(v); }

POWER_ENUM_OPERATIONS(PoePortState)
POWER_ENUM_OPERATIONS(PoweredDeviceClass)
POWER_ENUM_OPERATIONS(PowerType)
POWER_ENUM_OPERATIONS(PowerSource)
POWER_ENUM_OPERATIONS(PowerPriority)
POWER_ENUM_OPERATIONS(PsePoweringStatus)
POWER_ENUM_OPERATIONS(PsePowerPairsExt)
POWER_ENUM_OPERATIONS(DualSignaturePowerClassExtMode)
POWER_ENUM_OPERATIONS(PowerTypeExt)
POWER_ENUM_OPERATIONS(LldpPoeNegotiationSupport)
POWER_ENUM_OPERATIONS(PsePowerPair)

#undef POWER_ENUM_OPERATIONS

}  // namespace Power
