// Feeds arbitrary text to the text parsers of the model's records (their attribute-log
// readers have NboAttrLogStreamFuzz). Bad input must end in a Kel exception, never a
// crash; whatever is accepted must print and read back to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Lldp/Lldp.h"

namespace {

using namespace Lldp;

void check(bool ok) {
  if (!ok) std::abort();
}

template <class T>
void fromText(Kel::String const& text) {
  try {
    T v = Kel::strepToValue<T>(text);
    Kel::String printed = valueToStrep(v);
    check(valueToStrep(Kel::strepToValue<T>(printed)) == printed);  // NaN-safe: compares texts
  } catch (Kel::Exception const&) {
  }
}

// The types whose text reads back; the civic address (and LocationId, which holds one)
// have no text parser by design.
template <class... T>
void each(Kel::String const& input) {
  (fromText<T>(input), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Kel::String input(reinterpret_cast<const char*>(data), size);
  each<PowerViaMdiInfo, PowerViaMdiInfo::Bt, ChassisIdentifier, PortIdentifier, RemoteSystem::Msap,
       ManagementAddress, UnknownTlv, UnknownOrgDefTlv, UnknownOrgDefTlvCounter::Key, ProtocolIdentityInfo,
       VlanName, PortAndProtocolVlan, NetworkPolicyConfig, NetworkPolicyTlv, MacPhyConfigStatusInfo,
       LinkAggregationInfo, MedCapabilitiesInfo, SystemCapabilitiesTlv, BoundedString255Tlv, ManAddrPriority,
       ClearRequest, PortCounterCheckpoint, LocationId::CoordinateBasedLCI, LocationId::EcsElin,
       PortConfig::EnabledTlvs, Oui, ChassisId, MaximumFrameSizeInfo>(input);
  return 0;
}
