#pragma once
// Bounded octet strings, the presence flag of optional TLVs, the OUI and the bit maps.
#include <cstdint>

#include "Kel/Value.h"
#include "Lldp/Lldp/Enums.h"

namespace Lldp {

class ChassisId : public Kel::ValueBase {
  KEL_WRAPPER(ChassisId, "Lldp::ChassisId", Kel::opLt | Kel::opNot, Kel::String, value, , Kel::maxBytes(255))
};
class PortId : public Kel::ValueBase {
  KEL_WRAPPER(PortId, "Lldp::PortId", Kel::opLt | Kel::opNot, Kel::String, value, , Kel::maxBytes(255))
};
class ManAddress : public Kel::ValueBase {
  KEL_WRAPPER(ManAddress, "Lldp::ManAddress", Kel::opLt | Kel::opNot, Kel::String, value, , Kel::maxBytes(31))
};
class BoundedString32 : public Kel::ValueBase {
  KEL_WRAPPER(BoundedString32, "Lldp::BoundedString32", Kel::opNot, Kel::String, value, , Kel::maxBytes(32))
};
class BoundedString255 : public Kel::ValueBase {
  KEL_WRAPPER(BoundedString255, "Lldp::BoundedString255", Kel::opNot, Kel::String, value, , Kel::maxBytes(255))
};
class BoundedString507 : public Kel::ValueBase {
  KEL_WRAPPER(BoundedString507, "Lldp::BoundedString507", Kel::opNot, Kel::String, value, , Kel::maxBytes(507))
};
class BoundedString511 : public Kel::ValueBase {
  KEL_WRAPPER(BoundedString511, "Lldp::BoundedString511", Kel::opNot, Kel::String, value, , Kel::maxBytes(511))
};

// The 24-bit IEEE organizationally unique identifier, held as a number.
class Oui : public Kel::ValueBase {
  KEL_WRAPPER(Oui, "Lldp::Oui", Kel::opEq, std::uint32_t, value, 0, Kel::atMost(0xffffff, true))
};

// The presence flag of optional TLV values. Setting any field of a type derived from it
// marks the value as set.
class TlvBase : public Kel::ValueBase {
  KEL_WRAPPER(TlvBase, "Lldp::TlvBase", Kel::opEq, bool, isSet, false)

 protected:
  void kelDerivedFieldSet() { isSet_ = true; }
};

// Optional strings: create() cuts a longer string to the bound instead of refusing it,
// which is the way to make one from received or configured text.
template <class Self, class Bounded, std::size_t bound>
struct BoundedStringTlvOps {
  static Self create(Kel::String const& s) {
    Self v;
    v.valueIs(Bounded(s.size() > bound ? Kel::String(s.data(), bound) : s));
    return v;
  }
  operator Kel::String() const { return static_cast<Self const*>(this)->value().value(); }
};

class BoundedString32Tlv : public TlvBase, public BoundedStringTlvOps<BoundedString32Tlv, BoundedString32, 32> {
  KEL_DERIVED_RECORD(BoundedString32Tlv, TlvBase, "Lldp::BoundedString32Tlv", Kel::opNot,
                     (BoundedString32, value, ))
};
class BoundedString255Tlv : public TlvBase,
                            public BoundedStringTlvOps<BoundedString255Tlv, BoundedString255, 255> {
  KEL_DERIVED_RECORD(BoundedString255Tlv, TlvBase, "Lldp::BoundedString255Tlv", Kel::opNot,
                     (BoundedString255, value, ))
};

// The 16-bit system capabilities field of the System Capabilities TLV, bit for bit.
class SystemCapabilitiesMap : public Kel::ValueBase {
  KEL_BITMAP(SystemCapabilitiesMap, "Lldp::SystemCapabilitiesMap", other, repeater, bridge, wlanAccessPoint,
             router, telephone, docsisCableDevice, stationOnly, unused1, unused2, unused3, unused4, unused5,
             unused6, unused7, unused8)
};

// The aggregation status octet of the Link Aggregation TLV.
class LinkAggStatusMap : public Kel::ValueBase {
  KEL_BITMAP(LinkAggStatusMap, "Lldp::LinkAggStatusMap", aggCapable, aggEnabled, unused1, unused2, unused3,
             unused4, unused5, unused6)
};

class SystemCapabilitiesTlv : public TlvBase {
  KEL_DERIVED_RECORD(SystemCapabilitiesTlv, TlvBase, "Lldp::SystemCapabilitiesTlv", Kel::opEq,
                     (SystemCapabilitiesMap, sysCapSupported, ), (SystemCapabilitiesMap, sysCapEnabled, ))

 public:
  static SystemCapabilitiesTlv create(SystemCapabilitiesMap supported, SystemCapabilitiesMap enabled) {
    SystemCapabilitiesTlv v;
    v.sysCapSupportedIs(supported);
    v.sysCapEnabledIs(enabled);
    return v;
  }
};

}  // namespace Lldp
