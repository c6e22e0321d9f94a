#include "Power/PoeEnums.h"

#include <ostream>

#include "Kel/TypeRegistry.h"

namespace Power {

// Descriptors are function-local statics so that other libraries' static initialisers
// can print these enumerations safely.
Kel::EnumType const& enumType(PoePortState) {
  static Kel::EnumType const t("Power::PoePortState",
                               {{"disabled", 0}, {"searching", 1}, {"detected", 2}, {"classified", 3},
                                {"powered", 4}, {"fault", 5}, {"powerDenied", 6}});
  return t;
}

Kel::EnumType const& enumType(PoweredDeviceClass) {
  static Kel::EnumType const t("Power::PoweredDeviceClass",
                               {{"unknown", 0}, {"invalid", 1}, {"class0", 2}, {"class1", 3},
                                {"class2", 4}, {"class3", 5}, {"class4", 6}, {"class5", 7},
                                {"class6", 8}, {"class7", 9}, {"class8", 10}});
  return t;
}

Kel::EnumType const& enumType(PowerType) {
  static Kel::EnumType const t("Power::PowerType",
                               {{"type2Pse", 0}, {"type2Pd", 1}, {"type1Pse", 2}, {"type1Pd", 3}});
  return t;
}

Kel::EnumType const& enumType(PowerSource) {
  static Kel::EnumType const t("Power::PowerSource",
                               {{"unknown", 0}, {"primary", 1}, {"backup", 2}, {"reserved", 3}});
  return t;
}

Kel::EnumType const& enumType(PowerPriority) {
  static Kel::EnumType const t("Power::PowerPriority",
                               {{"unknown", 0}, {"critical", 1}, {"high", 2}, {"low", 3}});
  return t;
}

Kel::EnumType const& enumType(PsePoweringStatus) {
  static Kel::EnumType const t("Power::PsePoweringStatus",
                               {{"ignore", 0}, {"twoPair", 1}, {"fourPairSingleSignature", 2},
                                {"fourPairDualSignature", 3}});
  return t;
}

Kel::EnumType const& enumType(PsePowerPairsExt) {
  static Kel::EnumType const t("Power::PsePowerPairsExt",
                               {{"ignore", 0}, {"alternativeA", 1}, {"alternativeB", 2},
                                {"bothAlternatives", 3}});
  return t;
}

Kel::EnumType const& enumType(DualSignaturePowerClassExtMode) {
  static Kel::EnumType const t("Power::DualSignaturePowerClassExtMode",
                               {{"reserved0", 0}, {"class1", 1}, {"class2", 2}, {"class3", 3},
                                {"class4", 4}, {"class5", 5}, {"reserved6", 6}, {"singleSignature", 7}});
  return t;
}

Kel::EnumType const& enumType(PowerTypeExt) {
  static Kel::EnumType const t("Power::PowerTypeExt",
                               {{"type3Pse", 0}, {"type4Pse", 1}, {"type3PdSingleSignature", 2},
                                {"type3PdDualSignature", 3}, {"type4PdSingleSignature", 4},
                                {"type4PdDualSignature", 5}, {"reserved6", 6}, {"reserved7", 7}});
  return t;
}

Kel::EnumType const& enumType(LldpPoeNegotiationSupport) {
  static Kel::EnumType const t("Power::LldpPoeNegotiationSupport",
                               {{"NotSupported", 0}, {"Ieee802_3at", 1}, {"Ieee802_3bt", 2}});
  return t;
}

Kel::EnumType const& enumType(PsePowerPair) {
  static Kel::EnumType const t("Power::PsePowerPair", {{"unknown", 0}, {"signal", 1}, {"spare", 2}});
  return t;
}

#define POWER_ENUM_OPERATIONS(E)                                                           \
  Kel::String valueToStrep(E v) { return enumType(v).name(toU32(v)); }                     \
  std::ostream& operator<<(std::ostream& os, E v) {                                        \
    enumType(v).write(os, toU32(v));                                                       \
    return os;                                                                             \
  }                                                                                        \
  E sequenceToValue(Kel::StrepIt& pos, Kel::StrepIt const& end, E*) {                      \
    return static_cast<E>(enumType(E{}).parse(pos, end));                                 \
  }                                                                                        \
  Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& out, E v) {                       \
    return out << static_cast<unsigned int>(toU32(v));                                     \
  }                                                                                        \
  Kel::NboAttrLog::In& operator>>(Kel::NboAttrLog::In& in, E& v) {                         \
    v = static_cast<E>(in.nextU32());                                                      \
    return in;                                                                             \
  }

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

namespace {

// Makes the descriptors known to the framework's registry while the library is loaded.
struct Registration {
  Kel::KelType const* types[11] = {
      &enumType(PoePortState{}),       &enumType(PoweredDeviceClass{}),
      &enumType(PowerType{}),          &enumType(PowerSource{}),
      &enumType(PowerPriority{}),      &enumType(PsePoweringStatus{}),
      &enumType(PsePowerPairsExt{}),   &enumType(DualSignaturePowerClassExtMode{}),
      &enumType(PowerTypeExt{}),       &enumType(LldpPoeNegotiationSupport{}),
      &enumType(PsePowerPair{}),
  };
  Registration() {
    for (Kel::KelType const* t : types) Kel::typeNodeIs(t);
  }
  ~Registration() {
    for (Kel::KelType const* t : types) Kel::typeNodeDel(t);
  }
};

Registration const registration;

}  // namespace

}  // namespace Power
