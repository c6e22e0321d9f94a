#pragma once
// A local system with one port that advertises every optional TLV (and an 802.3bt Power
// via MDI TLV), for the transmit-path tests and benchmarks.
#include <string>

#include "Lldp/Lldp.h"
#include "tools/LldpTx/LldpTx.h"

namespace AgentTest {

inline Kel::String str(std::string const& s) { return Kel::String(s.data(), s.size()); }

inline Lldp::ManagementAddress ipv4(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d, std::uint32_t ifIndex) {
  Lldp::ManagementAddress::Key k;
  k.manAddrSubtypeIs(Platform::AddressFamilyNumbers(std::int32_t{1}));
  char const bytes[4] = {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c), static_cast<char>(d)};
  k.manAddrIs(Lldp::ManAddress(Kel::String(bytes, 4)));
  Lldp::ManagementAddress m(k);
  m.ifSubtypeIs(Lldp::ifIndex);
  m.ifIdIs(ifIndex);
  return m;
}

inline Lldp::UnknownOrgDefTlv orgTlv(std::uint32_t oui, std::uint32_t subtype, std::int32_t index, std::string const& info) {
  Lldp::UnknownOrgDefTlv::Key k;
  k.ouiIs(Lldp::Oui(oui));
  k.subtypeIs(subtype);
  k.indexIs(index);
  Lldp::UnknownOrgDefTlv t(k);
  t.orgDefInfoIs(Lldp::BoundedString507(str(info)));
  return t;
}

// The 802.3bt PSE state the tests and the benchmark advertise.
inline Power::PoePortStatus btPse() {
  Power::PoePortStatus s;
  s.poePortStateIs(Power::PoePortState::powered);
  s.poweredDeviceClassIs(Power::PoweredDeviceClass::class4);
  s.grantedPowerIs(25.5);
  s.lldpPoeNegotiationSupportIs(Power::LldpPoeNegotiationSupport::Ieee802_3bt);
  s.psePowerPairIs(Power::PsePowerPair::signal);
  s.powerTypeIs(Power::PowerType::type1Pse);
  s.powerSourceIs(Power::PowerSource::primary);
  s.powerPriorityIs(Power::PowerPriority::high);
  s.allocatedPowerAlternativeAIs(12.0);
  s.allocatedPowerAlternativeBIs(13.5);
  s.psePoweringStatusIs(Power::PsePoweringStatus::fourPairDualSignature);
  s.psePowerPairsExtIs(Power::PsePowerPairsExt::bothAlternatives);
  s.dualSignaturePowerClassExtModeAIs(Power::DualSignaturePowerClassExtMode::class3);
  s.dualSignaturePowerClassExtModeBIs(Power::DualSignaturePowerClassExtMode::class2);
  s.powerTypeExtIs(Power::PowerTypeExt::type4Pse);
  s.pseMaximumAvailablePowerIs(90.0);
  return s;
}

struct TxModel {
  Platform::IntfId intf{str("eth7")};
  Lldp::Config::Ptr config = Lldp::configFactory("config");
  Lldp::LocalSystem::Ptr system = Lldp::localSystemFactory("local");
  Lldp::Status::Ptr statusRoot = Lldp::statusFactory("status");
  Lldp::LocalPort::Ptr port = system->localPortIs(intf);
  Lldp::PortConfig::Ptr portConfig = config->portConfigIs(intf);
  Lldp::PortStatus::Ptr status = statusRoot->portStatusIs(intf, 0.0);
  Lldp::LocalPortPoeInfo::Ptr poe = port->localPortPoeInfoIs(intf);
  Lldp::MacPhyConfigStatusInfo macPhy;
  LldpTx::PortSources src;

  // Every TLV switched on, with the values the tests read back.
  TxModel() {
    Lldp::ChassisIdentifier chassis;
    chassis.chassisIdSubtypeIs(Lldp::cidMacAddress);
    chassis.chassisIdIs(Lldp::ChassisId(Kel::String("\x02\x00\x00\x00\x00\x07", 6)));
    system->chassisIdentifierIs(chassis);
    system->sysNameIs(Lldp::BoundedString255(str("agent.example")));
    system->sysDescIs(Lldp::BoundedString255(str("Debian GNU/Linux 12 test")));
    system->sysCapSupportedIs(Lldp::SystemCapabilitiesMap(0x14));  // bridge, router
    system->sysCapEnabledIs(Lldp::SystemCapabilitiesMap(0x04));
    auto const mgmt = ipv4(192, 0, 2, 7, 3);
    system->managementAddressIs(mgmt);
    system->managementAddressPrioIs(Lldp::ManAddrPriority(Lldp::ManAddrPriority::primary, 1, 0), mgmt.key());

    Lldp::PortIdentifier pid;
    pid.portIdSubtypeIs(Lldp::pidInterfaceName);
    pid.portIdIs(Lldp::PortId(str("eth7")));
    port->portIdentifierIs(pid);
    port->portDescIs(Lldp::BoundedString255(str("uplink to lab")));
    port->portVlanIdIs(Platform::VlanIdOrNone(std::int64_t{42}));
    Lldp::LinkAggregationInfo lag;
    lag.statusIs(Lldp::LinkAggStatusMap(3));
    lag.portIdIs(12);
    port->linkAggregationInfoIs(lag);
    port->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo(std::uint16_t{9216}));
    port->unknownOrgDefTlvIs(orgTlv(0x00aabb, 9, 1, "extra"));
    poe->poePortStatusIs(btPse());

    macPhy.autoNegSupportedIs(true);
    macPhy.autoNegEnabledIs(true);
    macPhy.autoNegAdvertisedCapAsU16Is(0x6c01);
    macPhy.operMauTypeIs(30);  // 1000BASE-T full duplex

    portConfig->enabledTlvsIs(Lldp::PortConfig::EnabledTlvs(0xf));
    portConfig->mgmtAddrTxEnableIs(true);
    portConfig->portVlanTxEnableIs(true);
    portConfig->dot3EnabledTlvsIs(Lldp::PortConfig::Dot3EnabledTlvs(0xf));

    src.system = system.get();
    src.port = port.get();
    src.config = config.get();
    src.portConfig = portConfig.get();
    src.status = status;
    src.macPhy = &macPhy;
    src.sourceMac = {0x02, 0, 0, 0, 0, 0x17};
  }
};

}  // namespace AgentTest
