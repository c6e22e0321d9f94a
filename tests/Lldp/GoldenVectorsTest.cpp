// Golden vectors: the exact text form and attribute-log bytes of the value types, once
// default and once with every field set, written out by hand from the field lists and the
// primitive layouts. A type nested in another (At, Bt, Capability) is pinned inside it, and
// of the alike string and bit-map wrappers one stands for the others. Other processes and tools read both forms, so a field that moves,
// changes width or changes key must fail here, however the value types come to be declared.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Lldp/Lldp.h"
#include "Power/PoePortStatus.h"

using namespace Lldp;
using Civic = LocationId::CivicAddressLCI;
using Kel::String;

namespace {

// "0000 000a" -> the bytes 00 00 00 0a; blanks only group the fields for the reader.
String unhex(std::string_view hex) {
  std::string digits, out;
  for (char c : hex) if (c != ' ') digits += c;
  EXPECT_TRUE(digits.size() % 2 == 0 && digits.find_first_not_of("0123456789abcdef") == std::string::npos) << hex;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    out += static_cast<char>(Kel::hexDigitValue(digits[i]) * 16 + Kel::hexDigitValue(digits[i + 1]));
  return String(std::move(out));
}

std::string hexOf(String const& bytes) {
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) out += Kel::format("%02x", bytes[i]).view();
  return out;
}

struct Form {
  std::string text, hex;
};

// Whether the text form is read back: a default below a field's minimum is refused like
// any value out of range, and a value holding a collection has no parser at all.
enum class Text { readsBack, defaultRefused, noParser };

template <class T>
void checkForm(T const& v, Form const& f, bool parses, bool refused) {
  if constexpr (std::is_same_v<T, Power::PoePortStatus>) {
    EXPECT_EQ(Power::valueToStrep(v).view(), f.text);
  } else {
    EXPECT_EQ(Lldp::valueToStrep(v).view(), f.text);
  }
  Kel::NboAttrLog::Out out;
  out << v;
  String const bytes = unhex(f.hex);
  EXPECT_EQ(hexOf(out.bytes()), hexOf(bytes));
  // Read the expected bytes, not the written ones, so the reader is pinned on its own.
  Kel::NboAttrLog::In in(bytes);
  EXPECT_TRUE(T(&in, Kel::StreamBogon{}) == v) << "log read back";
  EXPECT_TRUE(in.atEnd()) << in.remaining() << " bytes not read";
  if (refused) {
    EXPECT_THROW(Kel::strepToValue<T>(String(f.text)), Kel::RangeException);
  } else if (parses) {
    EXPECT_TRUE(Kel::strepToValue<T>(String(f.text)) == v) << "text read back";
  }
}

using Row = std::pair<const char*, std::function<void()>>;

template <class T>
Row row(const char* type, Form def, T full, Form fullForm, Text text = Text::readsBack) {
  return {type, [=] {
            checkForm(T(), def, text == Text::readsBack, text == Text::defaultRefused);
            checkForm(full, fullForm, text != Text::noParser, false);
          }};
}

template <class T, class F>
T with(T v, F set) {
  set(v);
  return v;
}

// A bit map's text: its flags in bit order, True where v has the bit.
std::string bits(std::string const& type, const char* names, unsigned v) {
  std::istringstream is(names);
  std::string out = "Value('Lldp::" + type + "', ** {";
  unsigned bit = 1;
  for (std::string n; is >> n; bit <<= 1) out += (bit > 1 ? ", '" : "'") + n + "': " + (v & bit ? "True" : "False");
  return out + "})";
}
const char* const capNames = "other repeater bridge wlanAccessPoint router telephone docsisCableDevice stationOnly "
                             "unused1 unused2 unused3 unused4 unused5 unused6 unused7 unused8";
std::string const sysCap0 = bits("SystemCapabilitiesMap", capNames, 0);
std::string const sysCap8015 = bits("SystemCapabilitiesMap", capNames, 0x8015);
std::string const sysCap0010 = bits("SystemCapabilitiesMap", capNames, 0x0010);
const char* const aggNames = "aggCapable aggEnabled unused1 unused2 unused3 unused4 unused5 unused6";
const char* const medCapNames = "capabilities networkPolicy location extendedPse extendedPd inventory reserved";
std::string const medCap0 = bits("MedCapabilitiesInfo::Capability", medCapNames, 0);
std::string const medCap2d = bits("MedCapabilitiesInfo::Capability", medCapNames, 0x2d);

Form const chassis0{"Value('Lldp::ChassisIdentifier', ** {'chassisIdSubtype': cidReserved, 'chassisId': ''})",
                    "00000000 00000000"};
Form const chassis1{R"(Value('Lldp::ChassisIdentifier', ** {'chassisIdSubtype': cidMacAddress, )"
                    R"('chassisId': '\x00\x1cs\xaa\xbb\xcc'}))", "00000004 00000006 001c73aabbcc"};
Form const port0{"Value('Lldp::PortIdentifier', ** {'portIdSubtype': pidReserved, 'portId': ''})",
                 "00000000 00000000"};
Form const port1{"Value('Lldp::PortIdentifier', ** {'portIdSubtype': pidInterfaceName, 'portId': 'Ethernet1'})",
                 "00000005 00000009 45746865726e657431"};
Form const addrKey0{"Value('Lldp::ManagementAddress::Key', ** {'manAddrSubtype': other, 'manAddr': ''})",
                    "00000000 00000000"};
Form const addrKey1{R"(Value('Lldp::ManagementAddress::Key', ** {'manAddrSubtype': ipV4, )"
                    R"('manAddr': '\xc0\x00\x02\x01'}))", "00000001 00000004 c0000201"};
Form const at0{"Value('Lldp::PowerViaMdiInfo::At', ** {'powerType': type2Pse, 'powerSource': unknown, "
               "'powerPriority': unknown, 'pdRequestedPowerValue': 0, 'pseAllocatedPowerValue': 0})",
               "00000000 00000000 00000000 0000 0000"};
Form const at1{"Value('Lldp::PowerViaMdiInfo::At', ** {'powerType': type1Pd, 'powerSource': backup, "
               "'powerPriority': critical, 'pdRequestedPowerValue': 255, 'pseAllocatedPowerValue': 130})",
               "00000003 00000002 00000001 00ff 0082"};
Form const bt0{"Value('Lldp::PowerViaMdiInfo::Bt', ** {'pd4Pid': False, 'pdRequestedPowerValueModeA': 0, "
               "'pdRequestedPowerValueModeB': 0, 'pseAllocatedPowerValueAlternativeA': 0, "
               "'pseAllocatedPowerValueAlternativeB': 0, 'psePoweringStatus': ignore, 'pdPoweredStatus': "
               "PdPoweredStatusReserved0, 'psePowerPairsExt': ignore, 'dualSignaturePowerClassExtModeA': reserved0, "
               "'dualSignaturePowerClassExtModeB': reserved0, 'powerClassExt': PowerClassExtReserved0, "
               "'powerTypeExt': type3Pse, 'pdLoad': False, 'pseMaximumAvailablePowerValue': 0, "
               "'pseAutoclassSupport': False, 'autoclassCompleted': False, 'autoclassRequest': False, "
               "'powerDownRequest': False, 'powerDownTime': 0})",
               "00 0000 0000 0000 0000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 "
               "00 0000 00 00 00 00 00000000"};
Form const bt1{"Value('Lldp::PowerViaMdiInfo::Bt', ** {'pd4Pid': True, 'pdRequestedPowerValueModeA': 257, "
               "'pdRequestedPowerValueModeB': 258, 'pseAllocatedPowerValueAlternativeA': 259, "
               "'pseAllocatedPowerValueAlternativeB': 260, 'psePoweringStatus': twoPair, 'pdPoweredStatus': "
               "TwoPairPoweringDualSignaturePd, 'psePowerPairsExt': bothAlternatives, "
               "'dualSignaturePowerClassExtModeA': class4, 'dualSignaturePowerClassExtModeB': singleSignature, "
               "'powerClassExt': DualSignaturePd, 'powerTypeExt': type4PdDualSignature, 'pdLoad': True, "
               "'pseMaximumAvailablePowerValue': 900, 'pseAutoclassSupport': True, 'autoclassCompleted': True, "
               "'autoclassRequest': True, 'powerDownRequest': True, 'powerDownTime': 70000})",
               "01 0101 0102 0103 0104 00000001 00000002 00000003 00000004 00000007 0000000f 00000005 "
               "01 0384 01 01 01 01 00011170"};
Form const orgKey0{"Value('Lldp::UnknownOrgDefTlv::Key', ** {'oui': 0, 'subtype': 0, 'index': 0})",
                   "00000000 00000000 00000000"};
Form const orgKey1{"Value('Lldp::UnknownOrgDefTlv::Key', ** {'oui': 4795, 'subtype': 7, 'index': 2})",
                   "000012bb 00000007 00000002"};
Form const lci0{"Value('Lldp::LocationId::CoordinateBasedLCI', ** {'laRes': 0, 'latitude': 0, 'loRes': 0, "
                "'longitude': 0, 'aT': 0, 'altRes': 0, 'altitude': 0, 'datum': 0, 'received': False})",
                "00 0000000000000000 00 0000000000000000 00 00 00000000 00 00"};
Form const lci1{"Value('Lldp::LocationId::CoordinateBasedLCI', ** {'laRes': 34, 'latitude': 5000000000, "
                "'loRes': 35, 'longitude': -5, 'aT': 1, 'altRes': 30, 'altitude': -100, 'datum': 2, "
                "'received': True})", "22 000000012a05f200 23 fffffffffffffffb 01 1e ffffff9c 02 01"};
Form const caElement0{"Value('Lldp::LocationId::CivicAddressLCI::CaElement', ** {'caType': 0, 'caValue': ''})",
                      "00 00000000"};
Form const caElement1{"Value('Lldp::LocationId::CivicAddressLCI::CaElement', ** {'caType': 3, 'caValue': 'Town'})",
                      "03 00000004 546f776e"};
Form const civic0{"Value('Lldp::LocationId::CivicAddressLCI', ** {'lciLength': 0, 'what': 0, 'countryCode': '', "
                  "'caElements': None, 'received': False})", "00 00 00000000 00 00"};
// Elements go out in ascending CA type, each as its u8 key and the element, ended by key 0.
Form const civic1{"Value('Lldp::LocationId::CivicAddressLCI', ** {'lciLength': 20, 'what': 2, 'countryCode': "
                  "'US', 'caElements': None, 'received': True})",
                  "14 02 00000002 5553  03 03 00000004 546f776e  1d 1d 00000002 4231  00  01"};
Form const ecs0{"Value('Lldp::LocationId::EcsElin', ** {'elin': '', 'received': False})", "00000000 00"};
Form const ecs1{"Value('Lldp::LocationId::EcsElin', ** {'elin': '911', 'received': True})", "00000003 393131 01"};

std::vector<Row> rows() {
  using Bt = PowerViaMdiInfo::Bt;
  using Platform::IntfId;
  auto const chassis = with(ChassisIdentifier(), [](auto& v) {
    v.chassisIdSubtypeIs(cidMacAddress); v.chassisIdIs(ChassisId(String("\x00\x1c" "s\xaa\xbb\xcc", 6))); });
  auto const port = with(PortIdentifier(), [](auto& v) {
    v.portIdSubtypeIs(pidInterfaceName); v.portIdIs(PortId("Ethernet1")); });
  auto const addrKey = with(ManagementAddress::Key(), [](auto& v) {
    v.manAddrSubtypeIs(Platform::AddressFamilyNumbers::ipV4); v.manAddrIs(ManAddress(String("\xc0\x00\x02\x01", 4)));
  });
  auto const at = with(PowerViaMdiInfo::At(), [](auto& v) {
    v.powerTypeIs(Power::PowerType::type1Pd); v.powerSourceIs(Power::PowerSource::backup);
    v.powerPriorityIs(Power::PowerPriority::critical); v.pdRequestedPowerValueIs(255);
    v.pseAllocatedPowerValueIs(130); });
  auto const bt = with(Bt(), [](auto& v) {
    v.pd4PidIs(true); v.pdRequestedPowerValueModeAIs(257); v.pdRequestedPowerValueModeBIs(258);
    v.pseAllocatedPowerValueAlternativeAIs(259); v.pseAllocatedPowerValueAlternativeBIs(260);
    v.psePoweringStatusIs(Power::PsePoweringStatus::twoPair); v.pdPoweredStatusIs(Bt::TwoPairPoweringDualSignaturePd);
    v.psePowerPairsExtIs(Power::PsePowerPairsExt::bothAlternatives);
    v.dualSignaturePowerClassExtModeAIs(Power::DualSignaturePowerClassExtMode::class4);
    v.dualSignaturePowerClassExtModeBIs(Power::DualSignaturePowerClassExtMode::singleSignature);
    v.powerClassExtIs(Bt::DualSignaturePd); v.powerTypeExtIs(Power::PowerTypeExt::type4PdDualSignature);
    v.pdLoadIs(true); v.pseMaximumAvailablePowerValueIs(900); v.pseAutoclassSupportIs(true);
    v.autoclassCompletedIs(true); v.autoclassRequestIs(true); v.powerDownRequestIs(true); v.powerDownTimeIs(70000); });
  auto const orgKey = with(UnknownOrgDefTlv::Key(), [](auto& v) {
    v.ouiIs(Oui(0x0012bb)); v.subtypeIs(7); v.indexIs(2); });
  auto const lci = with(LocationId::CoordinateBasedLCI(), [](auto& v) {
    v.laResIs(34); v.latitudeIs(5000000000); v.loResIs(35); v.longitudeIs(-5); v.aTIs(1); v.altResIs(30);
    v.altitudeIs(-100); v.datumIs(2); v.receivedIs(true); });
  auto element = [](std::uint8_t type, const char* value) {
    return with(Civic::CaElement(), [&](auto& v) { v.caTypeIs(type); v.caValueIs(String(value)); });
  };
  auto const civic = with(Civic(), [&](auto& v) {
    v.lciLengthIs(20); v.whatIs(2); v.countryCodeIs(String("US"));
    v.caElementsIs(29, element(29, "B1"));  // inserted out of order on purpose
    v.caElementsIs(3, element(3, "Town")); v.receivedIs(true); });
  auto const ecs = with(LocationId::EcsElin(), [](auto& v) { v.elinIs(String("911")); v.receivedIs(true); });

  return {
      row("ChassisId", {"''", "00000000"}, ChassisId("chassis'1"),
          {R"('chassis\'1')", "00000009 636861737369732731"}),
      row("PortId", {"''", "00000000"}, PortId("Et1\n"), {R"('Et1\n')", "00000004 4574310a"}),
      row("ManAddress", {"''", "00000000"}, ManAddress(String("\xc0\x00\x02\x01", 4)),
          {R"('\xc0\x00\x02\x01')", "00000004 c0000201"}),
      row("BoundedString32", {"''", "00000000"}, BoundedString32("b32"), {"'b32'", "00000003 623332"}),
      row("BoundedString511", {"''", "00000000"}, BoundedString511("\t511"), {R"('\t511')", "00000004 09353131"}),
      row("Oui", {"0", "00000000"}, Oui(0x00120f), {"4623", "0000120f"}),
      row("TlvBase", {"False", "00"}, TlvBase(true), {"True", "01"}),
      row("BoundedString32Tlv", {"Value('Lldp::BoundedString32Tlv', ** {'isSet': False, 'value': ''})", "00 00000000"},
          with(BoundedString32Tlv(), [](auto& v) { v.isSetIs(true); v.valueIs(BoundedString32("hw1")); }),
          {"Value('Lldp::BoundedString32Tlv', ** {'isSet': True, 'value': 'hw1'})", "01 00000003 687731"}),
      row("SystemCapabilitiesMap", {sysCap0, "00000000"}, SystemCapabilitiesMap(0x8015), {sysCap8015, "00008015"}),
      row("LinkAggStatusMap", {bits("LinkAggStatusMap", aggNames, 0), "00000000"}, LinkAggStatusMap(0x81),
          {bits("LinkAggStatusMap", aggNames, 0x81), "00000081"}),
      row("SystemCapabilitiesTlv",
          {"Value('Lldp::SystemCapabilitiesTlv', ** {'isSet': False, 'sysCapSupported': " + sysCap0 +
               ", 'sysCapEnabled': " + sysCap0 + "})", "00 00000000 00000000"},
          with(SystemCapabilitiesTlv(), [](auto& v) {
            v.isSetIs(true); v.sysCapSupportedIs(SystemCapabilitiesMap(0x8015));
            v.sysCapEnabledIs(SystemCapabilitiesMap(0x0010)); }),
          {"Value('Lldp::SystemCapabilitiesTlv', ** {'isSet': True, 'sysCapSupported': " + sysCap8015 +
               ", 'sysCapEnabled': " + sysCap0010 + "})", "01 00008015 00000010"}),
      row("ChassisIdentifier", chassis0, chassis, chassis1),
      row("PortIdentifier", port0, port, port1),
      row("ManagementAddress::Key", addrKey0, addrKey, addrKey1),
      row("ManagementAddress",
          {"Value('Lldp::ManagementAddress', ** {'key': " + addrKey0.text +
               ", 'ifSubtype': unknown, 'ifId': 0, 'oid': ''})",
           addrKey0.hex + " 00000001 00000000 00000000"},
          with(ManagementAddress(), [&](auto& v) {
            v.keyIs(addrKey); v.ifSubtypeIs(ifIndex); v.ifIdIs(7);
            v.oidIs(Platform::ObjectIdentifier{1, 3, 6, 1, 2, 1, 31}); }),
          {"Value('Lldp::ManagementAddress', ** {'key': " + addrKey1.text +
               ", 'ifSubtype': ifIndex, 'ifId': 7, 'oid': '1.3.6.1.2.1.31'})",
           addrKey1.hex + " 00000002 00000007 0000000e 312e332e362e312e322e312e3331"}),
      row("PowerViaMdiInfo",
          {"Value('Lldp::PowerViaMdiInfo', ** {'ieeeStandard': IeeeStandard_802_3af, 'portClass': pClassPSE, "
           "'supported': False, 'enabled': False, 'powerPairControllable': False, 'powerPairs': 0, "
           "'powerClass': 0, 'at': " + at0.text + ", 'bt': " + bt0.text + "})",
           "00000000 00000001 00 00 00 00000000 00000000 " + at0.hex + " " + bt0.hex},
          with(PowerViaMdiInfo(), [&](auto& v) {
            v.ieeeStandardIs(PowerViaMdiInfo::IeeeStandard_802_3at); v.portClassIs(pClassPD); v.supportedIs(true);
            v.enabledIs(true); v.powerPairControllableIs(true); v.powerPairsIs(3); v.powerClassIs(5); v.atIs(at);
            v.btIs(bt); }),
          {"Value('Lldp::PowerViaMdiInfo', ** {'ieeeStandard': IeeeStandard_802_3at, 'portClass': pClassPD, "
           "'supported': True, 'enabled': True, 'powerPairControllable': True, 'powerPairs': 3, "
           "'powerClass': 5, 'at': " + at1.text + ", 'bt': " + bt1.text + "})",
           "00000001 00000002 01 01 01 00000003 00000005 " + at1.hex + " " + bt1.hex}),
      row("MacPhyConfigStatusInfo",
          {"Value('Lldp::MacPhyConfigStatusInfo', ** {'autoNegSupported': False, 'autoNegEnabled': False, "
           "'autoNegAdvertisedCap': 0, 'operMauType': 0})", "00 00 00000000 00000000"},
          with(MacPhyConfigStatusInfo(), [](auto& v) {
            v.autoNegSupportedIs(true); v.autoNegEnabledIs(true);
            v.autoNegAdvertisedCapIs(Platform::AutoNegCapBits(0x40c000)); v.operMauTypeIs(30); }),
          {"Value('Lldp::MacPhyConfigStatusInfo', ** {'autoNegSupported': True, 'autoNegEnabled': True, "
           "'autoNegAdvertisedCap': 4243456, 'operMauType': 30})", "01 01 0040c000 0000001e"}),
      row("LinkAggregationInfo",
          {"Value('Lldp::LinkAggregationInfo', ** {'status': " + bits("LinkAggStatusMap", aggNames, 0) + ", 'portId': 0})",
           "00000000 00000000"},
          with(LinkAggregationInfo(), [](auto& v) { v.statusIs(LinkAggStatusMap(0x81)); v.portIdIs(-7); }),
          {"Value('Lldp::LinkAggregationInfo', ** {'status': " + bits("LinkAggStatusMap", aggNames, 0x81) + ", 'portId': -7})",
           "00000081 fffffff9"}),
      row("MaximumFrameSizeInfo", {"0", "0000"}, MaximumFrameSizeInfo(9236), {"9236", "2414"}),
      row("MedCapabilitiesInfo",
          {"Value('Lldp::MedCapabilitiesInfo', ** {'capability': " + medCap0 +
               ", 'deviceType': MedDeviceType_NotDefined})", "00000000 00000000"},
          with(MedCapabilitiesInfo(), [](auto& v) {
            v.capabilityIs(MedCapabilitiesInfo::Capability(0x2d));
            v.deviceTypeIs(MedCapabilitiesInfo::MedDeviceType_NetworkConnectivity); }),
          {"Value('Lldp::MedCapabilitiesInfo', ** {'capability': " + medCap2d +
               ", 'deviceType': MedDeviceType_NetworkConnectivity})", "0000002d 00000004"}),
      row("NetworkPolicyTlv",
          {"Value('Lldp::NetworkPolicyTlv', ** {'appValue': 0, 'unknownPolicy': False, 'tagged': False, "
           "'vlanId': 0, 'cosValue': 0, 'dscpValue': 0})", "00 00 00 0000 00 00"},
          with(NetworkPolicyTlv(), [](auto& v) {
            v.appValueIs(1); v.unknownPolicyIs(true); v.taggedIs(true); v.vlanIdIs(100); v.cosValueIs(5);
            v.dscpValueIs(46); }),
          {"Value('Lldp::NetworkPolicyTlv', ** {'appValue': 1, 'unknownPolicy': True, 'tagged': True, "
           "'vlanId': 100, 'cosValue': 5, 'dscpValue': 46})", "01 01 01 0064 05 2e"}),
      row("NetworkPolicyConfig",
          {"Value('Lldp::NetworkPolicyConfig', ** {'appValue': 0, 'appName': 'default', 'tagged': False, "
           "'vlanId': 0, 'cosValue': 0, 'dscpValue': 0})", "00 00000007 64656661756c74 00 0000 00 00"},
          with(NetworkPolicyConfig(), [](auto& v) {
            v.appValueIs(2); v.appNameIs(String("voice")); v.taggedIs(true); v.vlanIdIs(200); v.cosValueIs(6);
            v.dscpValueIs(24); }),
          {"Value('Lldp::NetworkPolicyConfig', ** {'appValue': 2, 'appName': 'voice', 'tagged': True, "
           "'vlanId': 200, 'cosValue': 6, 'dscpValue': 24})", "02 00000005 766f696365 01 00c8 06 18"}),
      row("UnknownTlv", {"Value('Lldp::UnknownTlv', ** {'type': 0, 'info': ''})", "00000000 00000000"},
          with(UnknownTlv(100), [](auto& v) { v.infoIs(BoundedString511("x\x7f")); }),
          {R"(Value('Lldp::UnknownTlv', ** {'type': 100, 'info': 'x\x7f'}))", "00000064 00000002 787f"},
          Text::defaultRefused),
      row("UnknownOrgDefTlv::Key", orgKey0, orgKey, orgKey1, Text::defaultRefused),
      row("UnknownOrgDefTlv",
          {"Value('Lldp::UnknownOrgDefTlv', ** {'key': " + orgKey0.text + ", 'orgDefInfo': ''})",
           orgKey0.hex + " 00000000"},
          with(UnknownOrgDefTlv(orgKey), [](auto& v) { v.orgDefInfoIs(BoundedString507("ext")); }),
          {"Value('Lldp::UnknownOrgDefTlv', ** {'key': " + orgKey1.text + ", 'orgDefInfo': 'ext'})",
           orgKey1.hex + " 00000003 657874"},
          Text::defaultRefused),
      row("PortAndProtocolVlan",
          {"Value('Lldp::PortAndProtocolVlan', ** {'portAndProtocolVlanId': 0, 'supported': False, "
           "'enabled': False})", "0000 00 00"},
          with(PortAndProtocolVlan(), [](auto& v) {
            v.portAndProtocolVlanIdIs(Platform::VlanIdOrNone(4094)); v.supportedIs(true); v.enabledIs(true); }),
          {"Value('Lldp::PortAndProtocolVlan', ** {'portAndProtocolVlanId': 4094, 'supported': True, "
           "'enabled': True})", "0ffe 01 01"}),
      row("VlanName", {"Value('Lldp::VlanName', ** {'vlanId': 1, 'vlanName': ''})", "0001 00000000"},
          with(VlanName(Platform::VlanId(10)), [](auto& v) { v.vlanNameIs(BoundedString32("mgmt")); }),
          {"Value('Lldp::VlanName', ** {'vlanId': 10, 'vlanName': 'mgmt'})", "000a 00000004 6d676d74"}),
      row("ProtocolIdentityInfo",
          {"Value('Lldp::ProtocolIdentityInfo', ** {'index': 0, 'protocolId': ''})", "00000000 00000000"},
          with(ProtocolIdentityInfo(5), [](auto& v) { v.protocolIdIs(BoundedString255("BB\x03")); }),
          {R"(Value('Lldp::ProtocolIdentityInfo', ** {'index': 5, 'protocolId': 'BB\x03'}))",
           "00000005 00000003 424203"},
          Text::defaultRefused),
      row("ManAddrPriority",
          {"Value('Lldp::ManAddrPriority', ** {'manAddrType': primary, 'primaryPriority': 0, "
           "'secondaryPriority': 0, 'intfId': ''})", "00000000 00000000 00000000 00000000"},
          with(ManAddrPriority(ManAddrPriority::secondary, 10, 20),
               [](auto& v) { v.intfIdIs(IntfId(String("Vlan5"))); }),
          {"Value('Lldp::ManAddrPriority', ** {'manAddrType': secondary, 'primaryPriority': 10, "
           "'secondaryPriority': 20, 'intfId': 'Vlan5'})", "00000001 0000000a 00000014 00000005 566c616e35"}),
      row("MgmtAddrTxOption",
          {"Value('Lldp::MgmtAddrTxOption', ** {'mgmtAddrTxMode': mgmtAddrTxModeBest, 'intfName': ''})",
           "00000000 00000000"},
          with(MgmtAddrTxOption(), [](auto& v) {
            v.mgmtAddrTxModeIs(mgmtAddrTxModeIntfName); v.intfNameIs(String("Loopback0")); }),
          {"Value('Lldp::MgmtAddrTxOption', ** {'mgmtAddrTxMode': mgmtAddrTxModeIntfName, 'intfName': "
           "'Loopback0'})", "00000002 00000009 4c6f6f706261636b30"}),
      row("ClearRequest",
          {"Value('Lldp::ClearRequest', ** {'timestamp': 0.0, 'who': '', 'where': ''})",
           "0000000000000000 00000000 00000000"},
          with(ClearRequest(), [](auto& v) {
            v.timestampIs(1700000000.25); v.whoIs(String("admin")); v.whereIs(String("ssh")); }),
          {"Value('Lldp::ClearRequest', ** {'timestamp': 1700000000.25, 'who': 'admin', 'where': 'ssh'})",
           "41d954fc40100000 00000005 61646d696e 00000003 737368"}),
      row("PortCounterCheckpoint",
          {"Value('Lldp::PortCounterCheckpoint', ** {'txFramesTotal': 0, 'txFramesLengthExceeded': 0, "
           "'txFramesNoMemErrors': 0, 'rxFramesDiscardedTotal': 0, 'rxFramesErrors': 0, 'rxFramesTotal': 0, "
           "'rxTLVsDiscardedTotal': 0, 'rxTLVsUnrecognizedTotal': 0, 'timestamp': 0.0})",
           "00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 0000000000000000"},
          with(PortCounterCheckpoint(), [](auto& v) {
            v.txFramesTotalIs(4294967295u); v.txFramesLengthExceededIs(2); v.txFramesNoMemErrorsIs(3);
            v.rxFramesDiscardedTotalIs(4); v.rxFramesErrorsIs(5); v.rxFramesTotalIs(6); v.rxTLVsDiscardedTotalIs(7);
            v.rxTLVsUnrecognizedTotalIs(8); v.timestampIs(12.5); }),
          {"Value('Lldp::PortCounterCheckpoint', ** {'txFramesTotal': 4294967295, 'txFramesLengthExceeded': 2, "
           "'txFramesNoMemErrors': 3, 'rxFramesDiscardedTotal': 4, 'rxFramesErrors': 5, 'rxFramesTotal': 6, "
           "'rxTLVsDiscardedTotal': 7, 'rxTLVsUnrecognizedTotal': 8, 'timestamp': 12.5})",
           "ffffffff 00000002 00000003 00000004 00000005 00000006 00000007 00000008 4029000000000000"}),
      row("LocationId",
          {"Value('Lldp::LocationId', ** {'coordinateBasedLCI': " + lci0.text + ", 'civicAddressLCI': " +
               civic0.text + ", 'ecsElin': " + ecs0.text + "})",
           lci0.hex + " " + civic0.hex + " " + ecs0.hex},
          with(LocationId(), [&](auto& v) {
            v.coordinateBasedLCIIs(lci); v.civicAddressLCIIs(civic); v.ecsElinIs(ecs); }),
          {"Value('Lldp::LocationId', ** {'coordinateBasedLCI': " + lci1.text + ", 'civicAddressLCI': " +
               civic1.text + ", 'ecsElin': " + ecs1.text + "})",
           lci1.hex + " " + civic1.hex + " " + ecs1.hex},
          Text::noParser),
      row("LocationId::CoordinateBasedLCI", lci0, lci, lci1),
      row("LocationId::CivicAddressLCI", civic0, civic, civic1, Text::noParser),
      row("LocationId::CivicAddressLCI::CaElement", caElement0, element(3, "Town"), caElement1),
      row("LocationId::EcsElin", ecs0, ecs, ecs1),
      row("PortConfig::EnabledTlvs",
          {bits("PortConfig::EnabledTlvs", "portDesc sysName sysDesc sysCap", 0), "00000000"},
          PortConfig::EnabledTlvs(0x9), {bits("PortConfig::EnabledTlvs", "portDesc sysName sysDesc sysCap", 9), "00000009"}),
      row("RemoteSystem::Msap",
          {"Value('Lldp::RemoteSystem::Msap', ** {'chassisIdentifier': " + chassis0.text +
               ", 'portIdentifier': " + port0.text + "})",
           chassis0.hex + " " + port0.hex},
          with(RemoteSystem::Msap(), [&](auto& v) { v.chassisIdentifierIs(chassis); v.portIdentifierIs(port); }),
          {"Value('Lldp::RemoteSystem::Msap', ** {'chassisIdentifier': " + chassis1.text +
               ", 'portIdentifier': " + port1.text + "})",
           chassis1.hex + " " + port1.hex}),
      row("ExternalTlvPortConfig::Key",
          {"Value('Lldp::ExternalTlvPortConfig::Key', ** {'intfId': '', 'version': 0})", "00000000 00000000"},
          with(ExternalTlvPortConfig::Key(), [](auto& v) {
            v.intfIdIs(IntfId(String("Ethernet3/1"))); v.versionIs(4); }),
          {"Value('Lldp::ExternalTlvPortConfig::Key', ** {'intfId': 'Ethernet3/1', 'version': 4})",
           "0000000b 45746865726e6574332f31 00000004"}),
      row("UnknownOrgDefTlvCounter::Key",
          {"Value('Lldp::UnknownOrgDefTlvCounter::Key', ** {'oui': 0, 'subtype': 0})", "00000000 00000000"},
          with(UnknownOrgDefTlvCounter::Key(), [](auto& v) { v.ouiIs(Oui(0x0080c2)); v.subtypeIs(9); }),
          {"Value('Lldp::UnknownOrgDefTlvCounter::Key', ** {'oui': 32962, 'subtype': 9})", "000080c2 00000009"},
          Text::defaultRefused),
      row("Power::PoePortStatus",
          {"Value('Power::PoePortStatus', ** {'poePortState': disabled, 'poweredDeviceClass': unknown, "
           "'grantedPower': 0.0, 'lldpPoeNegotiationSupport': NotSupported, 'psePairsControllable': False, "
           "'psePowerPair': unknown, 'powerType': type2Pse, 'powerSource': unknown, 'powerPriority': unknown, "
           "'allocatedPowerAlternativeA': 0.0, 'allocatedPowerAlternativeB': 0.0, 'psePoweringStatus': ignore, "
           "'psePowerPairsExt': ignore, 'dualSignaturePowerClassExtModeA': reserved0, "
           "'dualSignaturePowerClassExtModeB': reserved0, 'powerTypeExt': type3Pse, "
           "'pseMaximumAvailablePower': 0.0, 'pseAutoclassSupport': False, 'autoclassCompleted': False})",
           "00000000 00000000 0000000000000000 00000000 00 00000000 00000000 00000000 00000000 "
           "0000000000000000 0000000000000000 00000000 00000000 00000000 00000000 00000000 0000000000000000 00 00"},
          with(Power::PoePortStatus(), [](auto& v) {
            using namespace Power;
            v.poePortStateIs(PoePortState::powered); v.poweredDeviceClassIs(PoweredDeviceClass::class6);
            v.grantedPowerIs(51.5); v.lldpPoeNegotiationSupportIs(LldpPoeNegotiationSupport::Ieee802_3at);
            v.psePairsControllableIs(true); v.psePowerPairIs(PsePowerPair::spare); v.powerTypeIs(PowerType::type1Pd);
            v.powerSourceIs(PowerSource::primary); v.powerPriorityIs(PowerPriority::high);
            v.allocatedPowerAlternativeAIs(25.5); v.allocatedPowerAlternativeBIs(0.25);
            v.psePoweringStatusIs(PsePoweringStatus::fourPairSingleSignature);
            v.psePowerPairsExtIs(PsePowerPairsExt::bothAlternatives);
            v.dualSignaturePowerClassExtModeAIs(DualSignaturePowerClassExtMode::class3);
            v.dualSignaturePowerClassExtModeBIs(DualSignaturePowerClassExtMode::class5);
            v.powerTypeExtIs(PowerTypeExt::type4Pse); v.pseMaximumAvailablePowerIs(90.0);
            v.pseAutoclassSupportIs(true); v.autoclassCompletedIs(true); }),
          {"Value('Power::PoePortStatus', ** {'poePortState': powered, 'poweredDeviceClass': class6, "
           "'grantedPower': 51.5, 'lldpPoeNegotiationSupport': Ieee802_3at, 'psePairsControllable': True, "
           "'psePowerPair': spare, 'powerType': type1Pd, 'powerSource': primary, 'powerPriority': high, "
           "'allocatedPowerAlternativeA': 25.5, 'allocatedPowerAlternativeB': 0.25, 'psePoweringStatus': "
           "fourPairSingleSignature, 'psePowerPairsExt': bothAlternatives, 'dualSignaturePowerClassExtModeA': "
           "class3, 'dualSignaturePowerClassExtModeB': class5, 'powerTypeExt': type4Pse, "
           "'pseMaximumAvailablePower': 90.0, 'pseAutoclassSupport': True, 'autoclassCompleted': True})",
           "00000004 00000008 4049c00000000000 00000001 01 00000002 00000003 00000001 00000002 "
           "4039800000000000 3fd0000000000000 00000002 00000003 00000003 00000005 00000001 4056800000000000 01 01"}),
  };
}

TEST(GoldenVectorsTest, EveryValueTypePrintsAndLogsExactly) {
  for (auto const& [type, check] : rows()) {
    SCOPED_TRACE(type);
    check();
  }
}

}  // namespace
