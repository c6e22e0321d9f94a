#include "Lldp/Lldp/Values.h"

#include <cmath>

namespace Lldp {

Platform::Watts PowerViaMdiInfo::deciWattsToWatts(std::uint16_t deciWatts) const { return deciWatts / 10.0; }

std::uint16_t PowerViaMdiInfo::wattsToDeciWatts(Platform::Watts const& watts) const {
  return static_cast<std::uint16_t>(std::lround(watts * 10.0));
}

namespace {

// Reverses the 16 low bits: bit i moves to bit 15 - i (an involution).
std::uint16_t reverse16(std::uint32_t v) {
  std::uint16_t out = 0;
  for (unsigned i = 0; i < 16; ++i)
    if (v & (1u << i)) out |= static_cast<std::uint16_t>(1u << (15 - i));
  return out;
}

}  // namespace

std::uint16_t MacPhyConfigStatusInfo::autoNegAdvertisedCapAsU16() const {
  return reverse16(autoNegAdvertisedCap().value());
}

void MacPhyConfigStatusInfo::autoNegAdvertisedCapAsU16Is(std::uint16_t field) {
  autoNegAdvertisedCapIs(Platform::AutoNegCapBits(reverse16(field)));
}

bool NetworkPolicyConfig::equivalent(NetworkPolicyConfig const& cfg1, NetworkPolicyConfig const& cfg2) {
  return cfg1.tagged() == cfg2.tagged() && cfg1.vlanId() == cfg2.vlanId() && cfg1.cosValue() == cfg2.cosValue() &&
         cfg1.dscpValue() == cfg2.dscpValue();
}

NetworkPolicyTlv NetworkPolicyConfig::toNetworkPolicyTlv() const {
  NetworkPolicyTlv tlv;
  tlv.appValueIs(appValue());
  tlv.taggedIs(tagged());
  tlv.vlanIdIs(tagged() ? vlanId() : 0);
  tlv.cosValueIs(tagged() ? cosValue() : 0);
  tlv.dscpValueIs(dscpValue());
  return tlv;
}

void NetworkPolicyConfig::copyFrom(NetworkPolicyConfig const& other) {
  appNameIs(other.appName());
  taggedIs(other.tagged());
  vlanIdIs(other.vlanId());
  cosValueIs(other.cosValue());
  dscpValueIs(other.dscpValue());
}

}  // namespace Lldp
