// Feeds arbitrary text to the text parsers of the model's records and arbitrary bytes to
// their attribute-log readers. Bad input must end in a Kel exception, never a crash;
// whatever is accepted must print (or stream) and read back to the same form.
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

template <class T>
void fromLog(Kel::String const& bytes) {
  try {
    Kel::NboAttrLog::In in(bytes);
    T v(&in, Kel::StreamBogon{});
    Kel::NboAttrLog::Out out;
    out << v;
    Kel::NboAttrLog::In again(out.bytes());
    T back(&again, Kel::StreamBogon{});
    Kel::NboAttrLog::Out out2;
    out2 << back;
    check(again.atEnd() && out2.bytes() == out.bytes());
  } catch (Kel::Exception const&) {
  }
}

// Both forms for the types whose text reads back; the civic address (and LocationId,
// which holds one) have no text parser by design, so only their log form is fuzzed.
template <class... T>
void both(Kel::String const& input) {
  (fromText<T>(input), ...);
  (fromLog<T>(input), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Kel::String input(reinterpret_cast<const char*>(data), size);
  both<PowerViaMdiInfo, PowerViaMdiInfo::Bt, ChassisIdentifier, PortIdentifier, RemoteSystem::Msap,
       ManagementAddress, UnknownTlv, UnknownOrgDefTlv, UnknownOrgDefTlvCounter::Key, ProtocolIdentityInfo,
       VlanName, PortAndProtocolVlan, NetworkPolicyConfig, NetworkPolicyTlv, MacPhyConfigStatusInfo,
       LinkAggregationInfo, MedCapabilitiesInfo, SystemCapabilitiesTlv, BoundedString255Tlv, ManAddrPriority,
       ClearRequest, PortCounterCheckpoint, LocationId::CoordinateBasedLCI, LocationId::EcsElin,
       PortConfig::EnabledTlvs, Oui, ChassisId, MaximumFrameSizeInfo>(input);
  fromLog<LocationId::CivicAddressLCI>(input);
  fromLog<LocationId>(input);
  return 0;
}
