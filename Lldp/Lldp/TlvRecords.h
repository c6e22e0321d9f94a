#pragma once
// TLVs kept without interpretation and their keys, the IEEE 802.1 records, the
// management-address preferences, clear requests and counter snapshots.
#include <cstdint>

#include "Kel/Value.h"
#include "Lldp/Lldp/Enums.h"
#include "Lldp/Lldp/Strings.h"
#include "Platform/IntfId.h"
#include "Platform/VlanId.h"

namespace Lldp {

// A received TLV of a reserved type (9 to 126: between the basic TLVs and type 127).
// The attribute log does not re-check the type when it reads one back.
class UnknownTlv : public Kel::ValueBase {
  KEL_RECORD(UnknownTlv, "Lldp::UnknownTlv", Kel::opNot,
             (std::uint32_t, type, 0, Kel::uncheckedInLog(Kel::between(9, 126))), (BoundedString511, info, ))

 public:
  explicit UnknownTlv(std::uint32_t type) { typeIs(type); }
};

class UnknownOrgDefTlv : public Kel::ValueBase {
 public:
  // index tells apart several TLVs with the same OUI and subtype in one LLDPDU. The
  // attribute log checks the OUI but takes subtype and index as stored.
  class Key : public Kel::ValueBase {
    KEL_RECORD(Key, "Lldp::UnknownOrgDefTlv::Key", Kel::opLt | Kel::opHash, (Oui, oui, ),
               (std::uint32_t, subtype, 0, Kel::uncheckedInLog(Kel::between(1, 255))),
               (std::int32_t, index, 0, Kel::uncheckedInLog(Kel::atLeast(1))))
  };

  // orgDefInfo: 511 octets of TLV information less the OUI and the subtype.
  KEL_RECORD(UnknownOrgDefTlv, "Lldp::UnknownOrgDefTlv", Kel::opHash | Kel::opNot, (Key, key, ),
             (BoundedString507, orgDefInfo, ))

 public:
  explicit UnknownOrgDefTlv(Key const& key) { keyIs(key); }
};

class PortAndProtocolVlan : public Kel::ValueBase {
  KEL_RECORD(PortAndProtocolVlan, "Lldp::PortAndProtocolVlan", Kel::opEq,
             (Platform::VlanIdOrNone, portAndProtocolVlanId, ), (bool, supported, false), (bool, enabled, false))
};

class VlanName : public Kel::ValueBase {
  KEL_RECORD(VlanName, "Lldp::VlanName", Kel::opNot, (Platform::VlanId, vlanId, ), (BoundedString32, vlanName, ))

 public:
  explicit VlanName(Platform::VlanId vlanId) { vlanIdIs(vlanId); }
};

class ProtocolIdentityInfo : public Kel::ValueBase {
  KEL_RECORD(ProtocolIdentityInfo, "Lldp::ProtocolIdentityInfo", Kel::opNot,
             (std::int32_t, index, 0, Kel::uncheckedInLog(Kel::atLeast(1))), (BoundedString255, protocolId, ))

 public:
  explicit ProtocolIdentityInfo(std::int32_t index) { indexIs(index); }
};

// The sort key of a management address in the local system's priority order: every
// primary entry before any secondary one, then by priorities, then by interface.
class ManAddrPriority : public Kel::ValueBase {
 public:
  KEL_NESTED_ENUM(ManAddrType, "Lldp::ManAddrPriority::ManAddrType", (primary, 0), (secondary, 1))

  KEL_RECORD(ManAddrPriority, "Lldp::ManAddrPriority", Kel::opLt,
             (ManAddrType, manAddrType, primary, Kel::FieldOpts{.readOnly = true}),
             (std::uint32_t, primaryPriority, 0), (std::uint32_t, secondaryPriority, 0),
             (Platform::IntfId, intfId, ))

 public:
  ManAddrPriority(ManAddrType manAddrType, std::uint32_t primaryPriority, std::uint32_t secondaryPriority) {
    manAddrTypeIs(manAddrType);
    primaryPriorityIs(primaryPriority);
    secondaryPriorityIs(secondaryPriority);
  }
};

KEL_ENUM_FUNCTIONS(ManAddrPriority::ManAddrType, ManAddrPriority::_kelType_ManAddrType)

// A port's choice of management addresses to send; intfName serves mgmtAddrTxModeIntfName.
class MgmtAddrTxOption : public Kel::ValueBase {
  KEL_RECORD(MgmtAddrTxOption, "Lldp::MgmtAddrTxOption", Kel::opEq,
             (MgmtAddrTxMode, mgmtAddrTxMode, mgmtAddrTxModeBest), (Kel::String, intfName, ))
};

// A request to clear the remote tables; its timestamp makes each request distinct.
class ClearRequest : public Kel::ValueBase {
  KEL_RECORD(ClearRequest, "Lldp::ClearRequest", Kel::opNot, (Kel::Seconds, timestamp, 0.0),
             (Kel::String, who, ), (Kel::String, where, ))
};

// The counters of one port at the time of a checkpoint.
class PortCounterCheckpoint : public Kel::ValueBase {
  KEL_RECORD(PortCounterCheckpoint, "Lldp::PortCounterCheckpoint", Kel::opEq,
             (std::uint32_t, txFramesTotal, 0), (std::uint32_t, txFramesLengthExceeded, 0),
             (std::uint32_t, txFramesNoMemErrors, 0), (std::uint32_t, rxFramesDiscardedTotal, 0),
             (std::uint32_t, rxFramesErrors, 0), (std::uint32_t, rxFramesTotal, 0),
             (std::uint32_t, rxTLVsDiscardedTotal, 0), (std::uint32_t, rxTLVsUnrecognizedTotal, 0),
             (Kel::Seconds, timestamp, 0.0))
};

}  // namespace Lldp
