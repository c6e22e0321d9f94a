#include "Lldp/Lldp/Values.h"

namespace Lldp {

namespace {

// Cuts a longer string to the bound instead of refusing it.
template <class Tlv, class Bounded, std::size_t bound>
Tlv createCut(Kel::String const& s) {
  Tlv v;
  v.valueIs(Bounded(s.size() > bound ? Kel::String(s.data(), bound) : s));
  return v;
}

}  // namespace

BoundedString32Tlv BoundedString32Tlv::create(Kel::String const& s) {
  return createCut<BoundedString32Tlv, BoundedString32, 32>(s);
}
BoundedString32Tlv::operator Kel::String() const { return value().value(); }

BoundedString255Tlv BoundedString255Tlv::create(Kel::String const& s) {
  return createCut<BoundedString255Tlv, BoundedString255, 255>(s);
}
BoundedString255Tlv::operator Kel::String() const { return value().value(); }

SystemCapabilitiesTlv SystemCapabilitiesTlv::create(SystemCapabilitiesMap supported, SystemCapabilitiesMap enabled) {
  SystemCapabilitiesTlv v;
  v.sysCapSupportedIs(supported);
  v.sysCapEnabledIs(enabled);
  return v;
}

}  // namespace Lldp
