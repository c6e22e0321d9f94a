// The entities' hand-written queries and actions.
#include "Lldp/Lldp/Entities.h"

namespace Lldp {

namespace {

// True at the first neighbour on the port for which test holds, in table order.
template <class Test>
bool anyNeighbour(PortStatus::KelRemoteSystem const& table, Test test) {
  for (auto it = table.begin(); it; ++it) {
    RemoteSystem::Ptr neighbour = it.ptr();  // held while it is tested
    if (test(*neighbour)) return true;
  }
  return false;
}

}  // namespace

bool PortStatus::powerViaMdiTlvReceived() const {
  return anyNeighbour(remoteSystem_, [](RemoteSystem const& r) { return r.powerViaMdiTlvReceived(); });
}

bool PortStatus::medCapabilitiesTlvReceived() const {
  return anyNeighbour(remoteSystem_, [](RemoteSystem const& r) { return r.medCapabilitiesTlvReceived(); });
}

// There is no per-neighbour flag for this TLV: a non-empty collection is the sign.
bool PortStatus::networkPolicyTlvReceived() const {
  return anyNeighbour(remoteSystem_, [](RemoteSystem const& r) { return !r.networkPolicyTlv().empty(); });
}

bool PortStatus::anyLldpMedReceived() const { return medCapabilitiesTlvReceived() || networkPolicyTlvReceived(); }

std::uint32_t Config::messageTxHoldMultiplier() const { return messageTxHoldTime_ / messageTxInterval_; }

void LocalPort::initilizeLocalPortPoeInfo() { (void)localPortPoeInfoIs(intfId_); }

void LocalPort::setupMedCapabilities() {
  medCapabilities_.capabilityIs(MedCapabilitiesInfo::Capability(1));
  medCapabilities_.deviceTypeIs(MedCapabilitiesInfo::MedDeviceType_NetworkConnectivity);
}

void LocalPort::kelInit() { setupMedCapabilities(); }

void RemTablesStatus::kelInit() { remTablesLastClearTimeIs(Kel::now()); }

}  // namespace Lldp
