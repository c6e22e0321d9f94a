#pragma once
// Values declared inside entity types: the entities' own attributes are built around them.
#include "Kel/Value.h"
#include "Lldp/Lldp/Identifiers.h"
#include "Lldp/Lldp/Strings.h"
#include "Platform/IntfId.h"

namespace Lldp {

class PortConfig {
 public:
  // Which optional basic TLVs a port sends.
  class EnabledTlvs : public Kel::ValueBase {
    KEL_BITMAP(EnabledTlvs, "Lldp::PortConfig::EnabledTlvs", portDesc, sysName, sysDesc, sysCap)
  };
  // Which IEEE 802.3 organizationally specific TLVs a port sends.
  class Dot3EnabledTlvs : public Kel::ValueBase {
    KEL_BITMAP(Dot3EnabledTlvs, "Lldp::PortConfig::Dot3EnabledTlvs", macPhyConfigStatus, powerViaMdi,
               linkAggregation, maxFrameSize)
  };
  // Which LLDP-MED TLVs a port sends.
  class TiaEnabledTlvs : public Kel::ValueBase {
    KEL_BITMAP(TiaEnabledTlvs, "Lldp::PortConfig::TiaEnabledTlvs", powerViaMdi, networkPolicy)
  };
};

class RemoteSystem {
 public:
  // A neighbour's MAC service access point identifier: the key of its port's table.
  class Msap : public Kel::ValueBase {
    KEL_RECORD(Msap, "Lldp::RemoteSystem::Msap", Kel::opLt | Kel::opHash | Kel::opNot,
               (ChassisIdentifier, chassisIdentifier, ), (PortIdentifier, portIdentifier, ))
  };
};

class ExternalTlvPortConfig {
 public:
  class Key : public Kel::ValueBase {
    KEL_RECORD(Key, "Lldp::ExternalTlvPortConfig::Key", Kel::opLt | Kel::opHash, (Platform::IntfId, intfId, ),
               (std::uint32_t, version, 0))
  };
};

class UnknownOrgDefTlvCounter {
 public:
  class Key : public Kel::ValueBase {
    KEL_RECORD(Key, "Lldp::UnknownOrgDefTlvCounter::Key", Kel::opLt | Kel::opHash, (Oui, oui, ),
               (std::uint32_t, subtype, 0, Kel::uncheckedInLog(Kel::between(1, 255))))
  };
};

}  // namespace Lldp
