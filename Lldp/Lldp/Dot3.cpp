#include "Lldp/Lldp/Values.h"

#include <cmath>

namespace Lldp {

Platform::Watts PowerViaMdiInfo::deciWattsToWatts(std::uint16_t deciWatts) const { return deciWatts / 10.0; }

std::uint16_t PowerViaMdiInfo::wattsToDeciWatts(Platform::Watts const& watts) const {
  return static_cast<std::uint16_t>(std::lround(watts * 10.0));
}

namespace {

// Reverses the 16 low bits: bit i moves to bit 15 - i (an involution).
// Adjacent bits swapped, then pairs, nibbles and bytes: a dozen operations where a loop
// over the bits took about a hundred, on every MAC/PHY TLV received.
std::uint16_t reverse16(std::uint32_t v) {
  std::uint32_t x = v & 0xffffu;
  x = (x >> 1 & 0x5555u) | (x & 0x5555u) << 1;
  x = (x >> 2 & 0x3333u) | (x & 0x3333u) << 2;
  x = (x >> 4 & 0x0f0fu) | (x & 0x0f0fu) << 4;
  x = (x >> 8 & 0x00ffu) | (x & 0x00ffu) << 8;
  return static_cast<std::uint16_t>(x);
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
