#include "Lldp/LldpPoe.h"

#include <cmath>
#include <cstdint>

#include "Lldp/Lldp.h"
#include "Tracing/Duolog.h"

namespace {

using Lldp::LocalPortPoeInfo;
using Power::toU32;

DUOLOG_HANDLE(poeTrace, "LldpPoe");

// The public entry points are exported from a shared library, so calls between them would
// go through the PLT; the body builders use these local copies instead.

long toDeciWatts(Platform::Watts watts) noexcept { return std::lround(watts * 10.0); }

bool powered(Power::PoePortStatus const& s) noexcept { return s.poePortState() == Power::PoePortState::powered; }

bool negotiatesBt(Power::PoePortStatus const& s) noexcept {
  return s.lldpPoeNegotiationSupport() == Power::LldpPoeNegotiationSupport::Ieee802_3bt;
}

void put16(char* out, unsigned v) noexcept {
  out[0] = static_cast<char>((v >> 8) & 0xffu);
  out[1] = static_cast<char>(v & 0xffu);
}

// IEEE classes on the wire count from 1 (class 0) to 5 (class 4); the power subsystem's
// numbering starts class 0 at 2. Classes above 4 are sent as 4.
unsigned powerClassByte(Power::PoweredDeviceClass deviceClass) noexcept {
  unsigned const c = toU32(deviceClass) & 0xffu;
  if (c <= 1) return 0;
  return c <= 5 ? c - 1 : 5;
}

// Type, source and priority are shifted in unmasked: a value too wide for its field
// spills into its neighbours, as the power subsystem's callers expect.
char typeSourcePriorityByte(Power::PoePortStatus const& s) noexcept {
  unsigned const typeSource = ((toU32(s.powerType()) << 6) | (toU32(s.powerSource()) << 4)) & 0xffu;
  return static_cast<char>((typeSource | toU32(s.powerPriority())) & 0xffu);
}

std::uint16_t requestedPower(LocalPortPoeInfo const& info, bool echoRemote) {
  if (echoRemote) {
    if (Lldp::RemoteSystem::PtrConst const remote = info.remoteSystem())
      return remote->powerViaMdiInfo().at().pdRequestedPowerValue();
  }
  return static_cast<std::uint16_t>(toDeciWatts(info.poePortStatus().grantedPower()));
}

std::uint16_t requestedPowerModeA(LocalPortPoeInfo const& info, bool echoRemote) {
  if (echoRemote) {
    if (Lldp::RemoteSystem::PtrConst const remote = info.remoteSystem())
      return remote->powerViaMdiInfo().bt().pdRequestedPowerValueModeA();
  }
  return static_cast<std::uint16_t>(toDeciWatts(info.poePortStatus().allocatedPowerAlternativeA()));
}

std::uint16_t requestedPowerModeB(LocalPortPoeInfo const& info, bool echoRemote) {
  if (echoRemote) {
    if (Lldp::RemoteSystem::PtrConst const remote = info.remoteSystem()) {
      DUOLOG(poeTrace(), 4, "getRequestedPowerModeB 1 : ");
      return remote->powerViaMdiInfo().bt().pdRequestedPowerValueModeB();
    }
  }
  DUOLOG(poeTrace(), 4, "getRequestedPowerModeB 2 : ");
  return static_cast<std::uint16_t>(toDeciWatts(info.poePortStatus().allocatedPowerAlternativeB()));
}

int afFields(char* out, LocalPortPoeInfo const& info) noexcept {
  Power::PoePortStatus const& s = info.poePortStatus();
  // Bits 0 and 1: this port is a PSE and supports MDI power.
  out[0] = static_cast<char>(0x03u | (powered(s) ? 0x04u : 0u) | (s.psePairsControllable() ? 0x08u : 0u));
  out[1] = static_cast<char>(toU32(s.psePowerPair()) & 0xffu);
  out[2] = static_cast<char>(powerClassByte(s.poweredDeviceClass()));
  return 3;
}

int btFields(char* out, LocalPortPoeInfo const& info, bool echoRemote) {
  Power::PoePortStatus const& s = info.poePortStatus();
  put16(out + 0, requestedPowerModeA(info, echoRemote));
  put16(out + 2, requestedPowerModeB(info, echoRemote));
  put16(out + 4, static_cast<unsigned>(toDeciWatts(s.allocatedPowerAlternativeA())));
  put16(out + 6, static_cast<unsigned>(toDeciWatts(s.allocatedPowerAlternativeB())));
  // The power class extension counts IEEE classes from 0; the PD powered status bits
  // (13 and 12) are a PD's to send.
  unsigned const deviceClass = toU32(s.poweredDeviceClass()) & 0xffffu;
  unsigned const classExt = deviceClass < 2 ? 0 : deviceClass - 2;
  put16(out + 8, (toU32(s.psePoweringStatus()) << 14) | (toU32(s.psePowerPairsExt()) << 10) |
                     (toU32(s.dualSignaturePowerClassExtModeA()) << 7) |
                     (toU32(s.dualSignaturePowerClassExtModeB()) << 4) | classExt);
  // PD load (bit 0) is a PD's to send.
  out[10] = static_cast<char>((toU32(s.powerTypeExt()) << 1) & 0xffu);
  put16(out + 11, static_cast<unsigned>(toDeciWatts(s.pseMaximumAvailablePower())));
  // A PSE never requests autoclass, nor a power down.
  out[13] = static_cast<char>((s.pseAutoclassSupport() ? 0x04u : 0u) | (s.autoclassCompleted() ? 0x02u : 0u));
  out[14] = out[15] = out[16] = 0;
  return 17;
}

Kel::String const& intfName(LocalPortPoeInfo const& info) noexcept { return info.intfId().stringValue(); }

}  // namespace

namespace PoeUtils {

long wattsToDeciWatts(Platform::Watts watts) noexcept { return toDeciWatts(watts); }

Platform::Watts deciWattsToWatts(std::uint16_t deciWatts) noexcept { return deciWatts / 10.0; }

bool isPoePortPowered(LocalPortPoeInfo const& info) noexcept { return powered(info.poePortStatus()); }

// The opening of every refusal; the port's name fills the %s.
#define LLDP_POE_NOT_ADDING "Not adding Power Via MDI TLV (IEEE Std 802.3) to %s because "

bool canWeSendPowerViaMdiTlv(LocalPortPoeInfo const& info) {
  Power::PoePortStatus const& s = info.poePortStatus();
  if (!powered(s)) {
    if (poeTrace().enabled(6)) {
      Kel::String const state = Power::stringValue(s.poePortState());
      DUOLOG(poeTrace(), 6, LLDP_POE_NOT_ADDING "PoE port state is %s", intfName(info), state);
    }
    return false;
  }
  // Only the PSE codes (type 2 PSE 0, type 1 PSE 2) may advertise an allocation.
  if ((toU32(s.powerType()) & ~2u) != 0) {
    if (poeTrace().enabled(4)) {
      Kel::String const type = Power::stringValue(s.powerType());
      DUOLOG(poeTrace(), 4, LLDP_POE_NOT_ADDING "power type is %s", intfName(info), type);
    }
    return false;
  }
  if (static_cast<std::int32_t>(toU32(s.poweredDeviceClass())) <= 1) {
    if (poeTrace().enabled(4)) {
      Kel::String const deviceClass = Power::stringValue(s.poweredDeviceClass());
      DUOLOG(poeTrace(), 4, LLDP_POE_NOT_ADDING "power class is %s", intfName(info), deviceClass);
    }
    return false;
  }
  if (toDeciWatts(s.grantedPower()) < 1) {
    DUOLOG(poeTrace(), 4, LLDP_POE_NOT_ADDING "PoE Agent did not set grantedPower", intfName(info));
    return false;
  }
  if (s.lldpPoeNegotiationSupport() == Power::LldpPoeNegotiationSupport::NotSupported) {
    DUOLOG(poeTrace(), 4, LLDP_POE_NOT_ADDING "PoE Agent set lldpPoeNegotiationSupport == NotSupported",
           intfName(info));
    return false;
  }
  return true;
}

#undef LLDP_POE_NOT_ADDING

int buildPowerViaMdiTlv(char* out, LocalPortPoeInfo const& info, bool echoRemote) {
  Power::PoePortStatus const& s = info.poePortStatus();
  afFields(out, info);
  out[3] = typeSourcePriorityByte(s);
  put16(out + 4, requestedPower(info, echoRemote));
  long const granted = toDeciWatts(s.grantedPower());
  put16(out + 6, static_cast<unsigned>(granted));
  int count = powerViaMdiAtBodyBytes;
  const char* standard = "at";
  if (negotiatesBt(s)) {
    count += btFields(out + count, info, echoRemote);
    standard = "bt";
  }
  if (poeTrace().enabled(6)) [[unlikely]] {
    if (echoRemote) {
      DUOLOG(poeTrace(), 6,
             "Added Power Via MDI TLV (IEEE Std 802.3%s) to %s with: requestedPower=%u, grantedPower=%ld", standard,
             intfName(info), requestedPower(info, true), granted);
    } else {
      DUOLOG(poeTrace(), 6, "Added Power Via MDI TLV (IEEE Std 802.3%s) to %s with: grantedPower=%ld", standard,
             intfName(info), granted);
    }
  }
  return count;
}

// The fallback names itself in its trace lines by its signature.
#define LLDP_POE_FALLBACK                                                                       \
  "int PoeUtils::maybeBuildFallbackPowerViaMdiTlv(char*, const Lldp::LocalPortPoeInfo&, bool, " \
  "Lldp::PortConfig::PtrConst, Lldp::PortStatus::Ptr)"

int maybeBuildFallbackPowerViaMdiTlv(char* out, LocalPortPoeInfo const& info, bool echoRemote,
                                     Lldp::PortConfig::PtrConst portConfig, Lldp::PortStatus::Ptr portStatus) {
  DUOLOG(poeTrace(), 8, LLDP_POE_FALLBACK ": %s", intfName(info));
  Power::PoePortStatus const& s = info.poePortStatus();
  // A powered port advertises its real allocation through buildPowerViaMdiTlv.
  if (powered(s)) return 0;
  std::uint32_t const fallback =
      portConfig ? portConfig->poeAllocatedPowerFallback() : Lldp::PortConfig::poeAllocatedPowerFallbackDisabled();
  if (fallback == Lldp::PortConfig::poeAllocatedPowerFallbackDisabled()) return 0;

  static constexpr std::uint32_t largestRequest = Lldp::PortConfig::poeAllocatedPowerFallbackMax();
  std::uint32_t value = 0;
  if (fallback == largestRequest) {
    // Grant what the neighbours ask for: the largest 802.3at request on the port.
    if (portStatus) {
      for (auto it = portStatus->remoteSystem().begin(); it; ++it) {
        Lldp::RemoteSystem::PtrConst const remote(&*it);
        std::uint32_t const request = remote->powerViaMdiInfo().at().pdRequestedPowerValue();
        if (request > value) value = request;
      }
    }
  } else if (fallback > 0xffffu) {
    DUOLOG(poeTrace(), 1,
           LLDP_POE_FALLBACK
           ": Not adding fallback Power Via MDI TLV (IEEE Std 802.3) to %s because the configured "
           "value is invalid ",
           intfName(info));
    return 0;
  } else {
    value = fallback;
  }
  if (value == 0) {
    DUOLOG(poeTrace(), 5,
           LLDP_POE_FALLBACK
           ": Not adding fallback Power Via MDI TLV (IEEE Std 802.3) to %s because no requested "
           "power found ",
           intfName(info));
    return 0;
  }

  afFields(out, info);
  out[3] = typeSourcePriorityByte(s);
  put16(out + 4, value);
  put16(out + 6, value);
  int count = powerViaMdiAtBodyBytes;
  const char* standard = "at";
  if (negotiatesBt(s)) {
    count += btFields(out + count, info, echoRemote);
    standard = "bt";
  }
  DUOLOG(poeTrace(), 6,
         LLDP_POE_FALLBACK ": Added Power Via MDI TLV (IEEE Std 802.3%s) to %s with fallback grantedPower=%u", standard,
         intfName(info), value);
  return count;
}

#undef LLDP_POE_FALLBACK

}  // namespace PoeUtils

namespace TlvBuildUtils {

std::uint16_t getRequestedPower(LocalPortPoeInfo const& info, bool echoRemote) {
  return requestedPower(info, echoRemote);
}

std::uint16_t getRequestedPowerModeB(LocalPortPoeInfo const& info, bool echoRemote) {
  return requestedPowerModeB(info, echoRemote);
}

int add802_3AfFields(char* out, LocalPortPoeInfo const& info) { return afFields(out, info); }

int add802_3BtFields(char* out, LocalPortPoeInfo const& info, bool echoRemote) {
  return btFields(out, info, echoRemote);
}

}  // namespace TlvBuildUtils

namespace Lldp {

bool LocalPortPoeInfo::readyToSendTlv() const { return PoeUtils::canWeSendPowerViaMdiTlv(*this); }

}  // namespace Lldp
