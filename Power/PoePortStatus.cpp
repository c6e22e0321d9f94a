#include "Power/PoePortStatus.h"

#include <ostream>
#include <type_traits>

namespace Power {

namespace {

// One entry per field, in declaration order: the field's key and a pointer to it. The
// printer, the parser and both attribute-log directions walk the same list, so adding a
// field means adding one line here.
// S is PoePortStatus or PoePortStatus const.
template <class S, class F>
void forEachField(S& s, F&& f) {
  f("poePortState", s.poePortState);
  f("poweredDeviceClass", s.poweredDeviceClass);
  f("grantedPower", s.grantedPower);
  f("lldpPoeNegotiationSupport", s.lldpPoeNegotiationSupport);
  f("psePairsControllable", s.psePairsControllable);
  f("psePowerPair", s.psePowerPair);
  f("powerType", s.powerType);
  f("powerSource", s.powerSource);
  f("powerPriority", s.powerPriority);
  f("allocatedPowerAlternativeA", s.allocatedPowerAlternativeA);
  f("allocatedPowerAlternativeB", s.allocatedPowerAlternativeB);
  f("psePoweringStatus", s.psePoweringStatus);
  f("psePowerPairsExt", s.psePowerPairsExt);
  f("dualSignaturePowerClassExtModeA", s.dualSignaturePowerClassExtModeA);
  f("dualSignaturePowerClassExtModeB", s.dualSignaturePowerClassExtModeB);
  f("powerTypeExt", s.powerTypeExt);
  f("pseMaximumAvailablePower", s.pseMaximumAvailablePower);
  f("pseAutoclassSupport", s.pseAutoclassSupport);
  f("autoclassCompleted", s.autoclassCompleted);
}

constexpr const char* prefix = "Value('Power::PoePortStatus', ** {";

}  // namespace

PoePortStatus::PoePortStatus(Kel::StrepIt& pos, Kel::StrepIt const& end) {
  Kel::needString(pos, end, prefix);
  bool first = true;
  forEachField(*this, [&](const char* key, auto& field) {
    using T = std::remove_reference_t<decltype(field)>;
    Kel::String literal(first ? "'" : ", '");
    literal += key;
    literal += "': ";
    first = false;
    Kel::needString(pos, end, literal.view());
    try {
      if constexpr (std::is_enum_v<T>) {
        field = sequenceToValue(pos, end, static_cast<T*>(nullptr));
      } else {
        field = Kel::deserializeAttr<T>(pos, end, key);
      }
    } catch (Kel::RangeException const& e) {
      Kel::rethrowFromDeserializeAttr(e, key);
    }
  });
  Kel::needString(pos, end, "})");
}

PoePortStatus::PoePortStatus(Kel::NboAttrLog::In* in, Kel::StreamBogon) {
  forEachField(*this, [in](const char*, auto& field) {
    using T = std::remove_reference_t<decltype(field)>;
    if constexpr (std::is_enum_v<T>) {
      *in >> field;
    } else if constexpr (std::is_same_v<T, bool>) {
      field = in->nextbool();
    } else {
      field = in->nextDouble();
    }
  });
}

Kel::String valueToStrep(PoePortStatus const& v) {
  Kel::String s(prefix);
  bool first = true;
  forEachField(v, [&](const char* key, auto const& field) {
    using T = std::remove_cvref_t<decltype(field)>;
    s += first ? "'" : ", '";
    first = false;
    s += key;
    s += "': ";
    if constexpr (std::is_enum_v<T>) {
      enumType(field).appendName(s, toU32(field));
    } else {
      Kel::appendStrep(s, field);
    }
  });
  s += "})";
  return s;
}

std::ostream& operator<<(std::ostream& os, PoePortStatus const& v) { return os << valueToStrep(v); }

Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& out, PoePortStatus const& v) {
  forEachField(v, [&out](const char*, auto const& field) { out << field; });
  return out;
}

}  // namespace Power
