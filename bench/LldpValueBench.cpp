// Printing and parsing the largest 802.3 record, and the neighbour-table key operations.
#include <benchmark/benchmark.h>

#include "Lldp/Lldp.h"

namespace {

using namespace Lldp;

PowerViaMdiInfo fullPowerViaMdi() {
  PowerViaMdiInfo p;
  p.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3bt);
  p.portClassIs(pClassPD);
  p.supportedIs(true);
  p.enabledIs(true);
  p.powerPairControllableIs(true);
  p.powerPairsIs(2);
  p.powerClassIs(5);
  PowerViaMdiInfo::At at;
  at.powerTypeIs(Power::PowerType::type1Pd);
  at.powerSourceIs(Power::PowerSource::primary);
  at.powerPriorityIs(Power::PowerPriority::high);
  at.pdRequestedPowerValueIs(255);
  at.pseAllocatedPowerValueIs(255);
  p.atIs(at);
  PowerViaMdiInfo::Bt bt;
  bt.pd4PidIs(true);
  bt.pdRequestedPowerValueModeAIs(300);
  bt.pdRequestedPowerValueModeBIs(301);
  bt.pseAllocatedPowerValueAlternativeAIs(302);
  bt.pseAllocatedPowerValueAlternativeBIs(303);
  bt.psePoweringStatusIs(Power::PsePoweringStatus::fourPairDualSignature);
  bt.pdPoweredStatusIs(PowerViaMdiInfo::Bt::FourPairPoweringDualSignaturePd);
  bt.psePowerPairsExtIs(Power::PsePowerPairsExt::bothAlternatives);
  bt.dualSignaturePowerClassExtModeAIs(Power::DualSignaturePowerClassExtMode::class4);
  bt.dualSignaturePowerClassExtModeBIs(Power::DualSignaturePowerClassExtMode::class5);
  bt.powerClassExtIs(PowerViaMdiInfo::Bt::PowerClassExt8);
  bt.powerTypeExtIs(Power::PowerTypeExt::type4PdDualSignature);
  bt.pdLoadIs(true);
  bt.pseMaximumAvailablePowerValueIs(900);
  bt.pseAutoclassSupportIs(true);
  bt.autoclassCompletedIs(true);
  bt.autoclassRequestIs(true);
  bt.powerDownRequestIs(true);
  bt.powerDownTimeIs(262143);
  p.btIs(bt);
  return p;
}

RemoteSystem::Msap msap(const char* portName) {
  ChassisIdentifier c;
  c.chassisIdSubtypeIs(cidMacAddress);
  c.chassisIdIs(ChassisId(Kel::String("\x00\x1c\x73\xaa\xbb\xcc", 6)));
  PortIdentifier p;
  p.portIdSubtypeIs(pidInterfaceName);
  p.portIdIs(PortId(portName));
  RemoteSystem::Msap m;
  m.chassisIdentifierIs(c);
  m.portIdentifierIs(p);
  return m;
}

void BM_PowerViaMdiInfoToStrep(benchmark::State& state) {
  PowerViaMdiInfo const p = fullPowerViaMdi();
  for (auto _ : state) benchmark::DoNotOptimize(valueToStrep(p));
}
BENCHMARK(BM_PowerViaMdiInfoToStrep);

void BM_PowerViaMdiInfoFromStrep(benchmark::State& state) {
  Kel::String const text = valueToStrep(fullPowerViaMdi());
  for (auto _ : state) benchmark::DoNotOptimize(Kel::strepToValue<PowerViaMdiInfo>(text));
}
BENCHMARK(BM_PowerViaMdiInfoFromStrep);

void BM_MsapEqual(benchmark::State& state) {
  RemoteSystem::Msap const a = msap("Ethernet12"), b = msap("Ethernet12");
  for (auto _ : state) {
    benchmark::DoNotOptimize(&a);
    benchmark::DoNotOptimize(&b);
    benchmark::DoNotOptimize(a == b);
  }
}
BENCHMARK(BM_MsapEqual);

void BM_MsapHash(benchmark::State& state) {
  RemoteSystem::Msap const a = msap("Ethernet12");
  for (auto _ : state) {
    benchmark::DoNotOptimize(&a);
    benchmark::DoNotOptimize(a.hash(0));
  }
}
BENCHMARK(BM_MsapHash);

}  // namespace
