#include "tools/lldp-neighbors/Show.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "Kel/EnumType.h"
#include "Kel/TypeRegistry.h"
#include "Lldp/Lldp/AddressText.h"

namespace LldpNeighbors {

using json = nlohmann::ordered_json;

Field const* Field::child(std::string_view k) const {
  for (Field const& c : children)
    if (c.key == k) return &c;
  return nullptr;
}

namespace {

// ---- small builders

Field group(std::string key, std::string label) {
  Field f;
  f.key = std::move(key);
  f.label = std::move(label);
  return f;
}
Field listOf(std::string key, std::string label) {
  Field f = group(std::move(key), std::move(label));
  f.list = true;
  return f;
}
Field value(std::string key, std::string label, json v, std::string unit = {}) {
  Field f = group(std::move(key), std::move(label));
  f.value = std::move(v);
  f.unit = std::move(unit);
  return f;
}
// Text as the neighbour sent it: escaped where it is shown, kept whole in JSON.
Field bytesValue(std::string key, std::string label, Kel::String const& s) {
  Field f = value(std::move(key), std::move(label), s.stdString());
  f.bytes = true;
  return f;
}
// A name, with the code it stands for beside it.
Field coded(std::string key, std::string label, std::string name, long long code) {
  Field f = value(std::move(key), std::move(label), name.empty() ? json() : json(std::move(name)));
  f.code = code;
  return f;
}
// The name the model's descriptor gives a value of enumeration `type`.
std::string enumName(const char* type, std::uint32_t v) {
  auto const* e = dynamic_cast<Kel::EnumType const*>(Kel::typeNode(type));
  if (!e || !e->hasValue(v)) return {};
  std::vector<std::string_view> names;
  for (auto const& x : e->enumerators()) names.emplace_back(x.name);
  return displayName(e->name(v).view(), names);
}
template <class E>
Field enumField(std::string key, std::string label, const char* type, E v, long long code) {
  return coded(std::move(key), std::move(label), enumName(type, static_cast<std::uint32_t>(v)), code);
}
template <class E>
Field enumField(std::string key, std::string label, const char* type, E v) {
  return enumField(std::move(key), std::move(label), type, v, static_cast<long long>(v));
}
Field timeValue(std::string key, std::string label, double t) {
  Field f = value(std::move(key), std::move(label), t, "s");
  f.time = true;
  return f;
}
std::string hex(Kel::String const& s) { return Lldp::bytesToHex(s).stdString(); }
// An identifier: a binary chassis component, say, reads better in hex than escaped.
Field identifierValue(std::string key, std::string label, Kel::String const& s) {
  Field f = bytesValue(std::move(key), std::move(label), s);
  f.identifier = true;
  return f;
}
std::string hexNumber(unsigned v, int digits) {
  char b[16];
  std::snprintf(b, sizeof b, "0x%0*x", digits, v);
  return b;
}
// Names of the set bits of v, bit 0 first, as the bit map's descriptor names them.
json bitNames(std::uint32_t v, const char* type) {
  json a = json::array();
  Kel::KelType const* t = Kel::typeNode(type);
  for (unsigned i = 0; i < 32; ++i)
    if (v >> i & 1u) {
      if (t && i < t->attrs().size())
        a.push_back(t->attrs()[i].name);
      else
        a.push_back("bit" + std::to_string(i));
    }
  return a;
}
// Watts from deciwatts.
json watts(std::uint16_t deciWatts) { return deciWatts / 10.0; }

// MAU types by their names in the IANA MAU MIB (dot3MauType...), from type 1.
const char* const mauTypes[] = {
    "AUI", "10Base5", "Foirl", "10Base2", "10BaseT", "10BaseFP", "10BaseFB", "10BaseFL", "10Broad36", "10BaseTHD",
    "10BaseTFD", "10BaseFLHD", "10BaseFLFD", "100BaseT4", "100BaseTXHD", "100BaseTXFD", "100BaseFXHD", "100BaseFXFD",
    "100BaseT2HD", "100BaseT2FD", "1000BaseXHD", "1000BaseXFD", "1000BaseLXHD", "1000BaseLXFD", "1000BaseSXHD",
    "1000BaseSXFD", "1000BaseCXHD", "1000BaseCXFD", "1000BaseTHD", "1000BaseTFD", "10GigBaseX", "10GigBaseLX4",
    "10GigBaseR", "10GigBaseER", "10GigBaseLR", "10GigBaseSR", "10GigBaseW", "10GigBaseEW", "10GigBaseLW",
    "10GigBaseSW", "10GigBaseCX4", "2BaseTL", "10PassTS", "100BaseBX10D", "100BaseBX10U", "100BaseLX10",
    "1000BaseBX10D", "1000BaseBX10U", "1000BaseLX10", "1000BasePX10D", "1000BasePX10U", "1000BasePX20D",
    "1000BasePX20U", "10GbaseT", "10GbaseLRM", "1000baseKX", "10GbaseKX4", "10GbaseKR", "10G1GbasePRXD1",
    "10G1GbasePRXD2", "10G1GbasePRXD3", "10G1GbasePRXU1", "10G1GbasePRXU2", "10G1GbasePRXU3", "10GbasePRD1",
    "10GbasePRD2", "10GbasePRD3", "10GbasePRU1", "10GbasePRU3", "40GbaseKR4", "40GbaseCR4", "40GbaseSR4",
    "40GbaseFR", "40GbaseLR4", "100GbaseCR10", "100GbaseSR10", "100GbaseLR4", "100GbaseER4"};
// Geodetic datums and altitude types of a coordinate location (RFC 6225).
const char* const datums[] = {"wgs84", "nad83Navd88", "nad83Mllw"};
const char* const altitudeTypes[] = {"meters", "floors"};
template <std::size_t N>
std::string fromOne(const char* const (&names)[N], unsigned code) {
  return code >= 1 && code <= N ? displayName(names[code - 1], {}) : std::string();
}
// The PMD advertised capability field numbers capability 0 as its most significant bit.
const char* const autoNegNames[] = {"1000BASE-T full duplex", "1000BASE-T half duplex", "1000BASE-X full duplex",
                                    "1000BASE-X half duplex", "asymmetric and symmetric PAUSE", "symmetric PAUSE",
                                    "asymmetric PAUSE", "PAUSE", "100BASE-T2 full duplex", "100BASE-T2 half duplex",
                                    "100BASE-TX full duplex", "100BASE-TX half duplex", "100BASE-T4",
                                    "10BASE-T full duplex", "10BASE-T half duplex", "other or unknown"};
const char* const policyApplications[] = {"reserved", "voice", "voiceSignaling", "guestVoice", "guestVoiceSignaling",
                                          "softphoneVoice", "videoConferencing", "streamingVideo", "videoSignaling"};

// ---- the neighbour

Field describeDot1(Lldp::RemoteSystem const& r) {
  Field f = group("ieee8021", "IEEE 802.1");
  if (r.portVlanIdTlvReceived()) f.children.push_back(value("portVlanId", "Port VLAN ID", r.portVlanId().value()));
  if (!r.portAndProtocolVlan().empty()) {
    Field l = listOf("portAndProtocolVlans", "Port and protocol VLAN IDs");
    std::vector<Lldp::PortAndProtocolVlan> v;
    for (auto const& e : r.portAndProtocolVlan()) v.push_back(e);
    std::sort(v.begin(), v.end(), [](auto const& a, auto const& b) { return a.portAndProtocolVlanId() < b.portAndProtocolVlanId(); });
    for (auto const& e : v) {
      Field x = group("", "PPVID " + std::to_string(e.portAndProtocolVlanId().value()));
      x.children = {value("ppvid", "PPVID", e.portAndProtocolVlanId().value()),
                    value("supported", "Supported", e.supported()), value("enabled", "Enabled", e.enabled())};
      l.children.push_back(std::move(x));
    }
    f.children.push_back(std::move(l));
  }
  if (!r.vlanName().empty()) {
    Field l = listOf("vlanNames", "VLAN names");
    std::vector<Lldp::VlanName> v;
    for (auto const& e : r.vlanName()) v.push_back(e);
    std::sort(v.begin(), v.end(), [](auto const& a, auto const& b) { return a.vlanId() < b.vlanId(); });
    for (auto const& e : v) {
      Field x = group("", "VLAN " + std::to_string(e.vlanId().value()));
      x.children = {value("vlanId", "VLAN ID", e.vlanId().value()), bytesValue("name", "Name", e.vlanName().value())};
      l.children.push_back(std::move(x));
    }
    f.children.push_back(std::move(l));
  }
  if (!r.protocolIdentityInfo().empty()) {
    Field l = listOf("protocolIdentities", "Protocol identities");
    std::vector<Lldp::ProtocolIdentityInfo> v;
    for (auto const& e : r.protocolIdentityInfo()) v.push_back(e);
    std::sort(v.begin(), v.end(), [](auto const& a, auto const& b) { return a.index() < b.index(); });
    for (auto const& e : v) {
      Field x = group("", "Protocol " + std::to_string(e.index()));
      x.children = {value("index", "Index", e.index()), value("protocolId", "Protocol (hex)", hex(e.protocolId().value()))};
      l.children.push_back(std::move(x));
    }
    f.children.push_back(std::move(l));
  }
  if (r.vidUsageDigestTlvReceived())
    f.children.push_back(value("vidUsageDigest", "VID usage digest", hexNumber(r.vidUsageDigest(), 8)));
  if (r.managementVidTlvReceived()) f.children.push_back(value("managementVid", "Management VID", r.managementVid().value()));
  if (r.linkAggregationTlvReceived()) {
    auto const& a = r.linkAggregationInfo();
    Field x = group("linkAggregation", "Link aggregation");
    x.children = {value("aggCapable", "Capable", a.status().aggCapable()),
                  value("aggEnabled", "Enabled", a.status().aggEnabled()),
                  value("status", "Status octet", hexNumber(a.status().value(), 2)),
                  value("portId", "Aggregated port ID", a.portId())};
    f.children.push_back(std::move(x));
  }
  return f;
}

Field describePower(Lldp::PowerViaMdiInfo const& p) {
  Field f = group("powerViaMdi", "Power via MDI");
  f.children = {value("ieeeStandard", "Form", enumName("Lldp::PowerViaMdiInfo::IeeeStandard", p.ieeeStandard())),
                enumField("portClass", "Port class", "Lldp::PowerPortClass", p.portClass(),
                          p.portClass() == Lldp::pClassPSE ? 1 : 0),
                value("supported", "PSE MDI power supported", p.supported()),
                value("enabled", "PSE MDI power enabled", p.enabled()),
                value("powerPairControllable", "PSE pairs control ability", p.powerPairControllable()),
                enumField("powerPairs", "PSE power pair", "Power::PsePowerPair", p.powerPairs()),
                // The field's codes 1 to 5 are classes 0 to 4.
                coded("powerClass", "Power class",
                      p.powerClass() >= 1 && p.powerClass() <= 5 ? enumName("Power::PoweredDeviceClass", p.powerClass() + 1) : "",
                      p.powerClass())};
  if (p.ieeeStandard() >= Lldp::PowerViaMdiInfo::IeeeStandard_802_3at) {
    auto const& a = p.at();
    Field x = group("at", "IEEE 802.3at");
    x.children = {enumField("powerType", "Power type", "Power::PowerType", a.powerType()),
                  enumField("powerSource", "Power source", "Power::PowerSource", a.powerSource()),
                  enumField("powerPriority", "Power priority", "Power::PowerPriority", a.powerPriority()),
                  value("pdRequestedPower", "PD requested power", watts(a.pdRequestedPowerValue()), "W"),
                  value("pseAllocatedPower", "PSE allocated power", watts(a.pseAllocatedPowerValue()), "W")};
    f.children.push_back(std::move(x));
  }
  if (p.ieeeStandard() >= Lldp::PowerViaMdiInfo::IeeeStandard_802_3bt) {
    auto const& b = p.bt();
    Field x = group("bt", "IEEE 802.3bt");
    x.children = {
        value("pd4Pid", "PD 4PID", b.pd4Pid()),
        value("pdRequestedPowerModeA", "PD requested power, mode A", watts(b.pdRequestedPowerValueModeA()), "W"),
        value("pdRequestedPowerModeB", "PD requested power, mode B", watts(b.pdRequestedPowerValueModeB()), "W"),
        value("pseAllocatedPowerAlternativeA", "PSE allocated power, alternative A",
              watts(b.pseAllocatedPowerValueAlternativeA()), "W"),
        value("pseAllocatedPowerAlternativeB", "PSE allocated power, alternative B",
              watts(b.pseAllocatedPowerValueAlternativeB()), "W"),
        enumField("psePoweringStatus", "PSE powering status", "Power::PsePoweringStatus", b.psePoweringStatus()),
        enumField("pdPoweredStatus", "PD powered status", "Lldp::PowerViaMdiInfo::Bt::PdPoweredStatus", b.pdPoweredStatus()),
        enumField("psePowerPairsExt", "PSE power pairs ext", "Power::PsePowerPairsExt", b.psePowerPairsExt()),
        enumField("dualSignaturePowerClassExtModeA", "Dual-signature power class ext, mode A",
                  "Power::DualSignaturePowerClassExtMode", b.dualSignaturePowerClassExtModeA()),
        enumField("dualSignaturePowerClassExtModeB", "Dual-signature power class ext, mode B",
                  "Power::DualSignaturePowerClassExtMode", b.dualSignaturePowerClassExtModeB()),
        enumField("powerClassExt", "Power class ext", "Lldp::PowerViaMdiInfo::Bt::PowerClassExt", b.powerClassExt()),
        enumField("powerTypeExt", "Power type ext", "Power::PowerTypeExt", b.powerTypeExt()),
        value("pdLoad", "PD load", b.pdLoad()),
        value("pseMaximumAvailablePower", "PSE maximum available power", watts(b.pseMaximumAvailablePowerValue()), "W"),
        value("pseAutoclassSupport", "PSE autoclass support", b.pseAutoclassSupport()),
        value("autoclassCompleted", "Autoclass completed", b.autoclassCompleted()),
        value("autoclassRequest", "Autoclass request", b.autoclassRequest()),
        value("powerDownRequest", "Power down request", b.powerDownRequest()),
        value("powerDownTime", "Power down time", b.powerDownTime(), "s")};
    f.children.push_back(std::move(x));
  }
  return f;
}

Field describeDot3(Lldp::RemoteSystem const& r) {
  Field f = group("ieee8023", "IEEE 802.3");
  if (r.macPhyConfigStatusTlvReceived()) {
    auto const& m = r.macPhyConfigStatusInfo();
    std::uint16_t const field = m.autoNegAdvertisedCapAsU16();
    json names = json::array();
    for (int bit = 15; bit >= 0; --bit)
      if (field >> bit & 1u) names.push_back(autoNegNames[bit]);
    Field x = group("macPhyConfigStatus", "MAC/PHY configuration/status");
    x.children = {value("autoNegSupported", "Auto-negotiation supported", m.autoNegSupported()),
                  value("autoNegEnabled", "Auto-negotiation enabled", m.autoNegEnabled()),
                  value("autoNegAdvertisedCap", "Advertised capability field", hexNumber(field, 4)),
                  value("autoNegAdvertised", "Advertised", std::move(names)),
                  coded("operMauType", "Operational MAU type", fromOne(mauTypes, m.operMauType()), m.operMauType())};
    f.children.push_back(std::move(x));
  }
  if (r.powerViaMdiTlvReceived()) f.children.push_back(describePower(r.powerViaMdiInfo()));
  if (r.maximumFrameSizeTlvReceived())
    f.children.push_back(value("maximumFrameSize", "Maximum frame size", r.maximumFrameSizeInfo().maxFrameSize(), "bytes"));
  return f;
}

Field describeMed(Lldp::RemoteSystem const& r) {
  Field f = group("lldpMed", "LLDP-MED");
  if (r.medCapabilitiesTlvReceived()) {
    auto const& m = r.medCapabilitiesInfo();
    Field x = group("capabilities", "Capabilities");
    x.children = {value("capability", "Capabilities", bitNames(m.capability().value(), "Lldp::MedCapabilitiesInfo::Capability")),
                  enumField("deviceType", "Device type", "Lldp::MedCapabilitiesInfo::MedDeviceType", m.deviceType())};
    f.children.push_back(std::move(x));
  }
  if (!r.networkPolicyTlv().empty()) {
    Field l = listOf("networkPolicies", "Network policies");
    std::vector<Lldp::NetworkPolicyTlv> v;
    for (auto const& e : r.networkPolicyTlv()) v.push_back(e);
    std::sort(v.begin(), v.end());
    for (auto const& e : v) {
      std::string const app = e.appValue() < std::size(policyApplications) ? policyApplications[e.appValue()] : "reserved";
      Field x = group("", "Application " + app);
      x.children = {coded("application", "Application", app, e.appValue()),
                    value("unknownPolicy", "Policy unknown", e.unknownPolicy()), value("tagged", "Tagged", e.tagged()),
                    value("vlanId", "VLAN ID", e.vlanId()), value("cosValue", "Layer 2 priority", e.cosValue()),
                    value("dscpValue", "DSCP", e.dscpValue())};
      l.children.push_back(std::move(x));
    }
    f.children.push_back(std::move(l));
  }
  auto const& loc = r.locationId();
  if (loc.coordinateBasedLCI().received()) {
    auto const& c = loc.coordinateBasedLCI();
    // Fixed point: 25 fraction bits for latitude and longitude, 8 for the altitude.
    Field x = group("coordinate", "Location (coordinates)");
    x.children = {value("latitude", "Latitude", c.latitude() / 33554432.0, "degrees"),
                  value("latitudeResolution", "Latitude resolution", c.laRes(), "bits"),
                  value("longitude", "Longitude", c.longitude() / 33554432.0, "degrees"),
                  value("longitudeResolution", "Longitude resolution", c.loRes(), "bits"),
                  value("altitude", "Altitude", c.altitude() / 256.0, fromOne(altitudeTypes, c.aT())),
                  coded("altitudeType", "Altitude type", fromOne(altitudeTypes, c.aT()), c.aT()),
                  value("altitudeResolution", "Altitude resolution", c.altRes(), "bits"),
                  coded("datum", "Datum", fromOne(datums, c.datum()), c.datum())};
    f.children.push_back(std::move(x));
  }
  if (loc.civicAddressLCI().received()) {
    auto const& c = loc.civicAddressLCI();
    Field x = group("civicAddress", "Location (civic address)");
    x.children = {value("what", "What", c.what()), bytesValue("countryCode", "Country", c.countryCode())};
    Field l = listOf("elements", "Elements");
    for (auto const& [type, e] : c.caElements()) {
      Field el = group("", "CA type " + std::to_string(type));
      el.children = {value("caType", "CA type", type), bytesValue("caValue", "Value", e.caValue())};
      l.children.push_back(std::move(el));
    }
    x.children.push_back(std::move(l));
    f.children.push_back(std::move(x));
  }
  if (loc.ecsElin().received()) f.children.push_back(bytesValue("elin", "Location (ELIN)", loc.ecsElin().elin()));
  struct Inv {
    const char* key;
    const char* label;
    Lldp::BoundedString32Tlv const& v;
  } const inventory[] = {{"hardwareRevision", "Hardware revision", r.hardwareRevisionTlvInfo()},
                         {"firmwareRevision", "Firmware revision", r.firmwareRevisionTlvInfo()},
                         {"softwareRevision", "Software revision", r.softwareRevisionTlvInfo()},
                         {"serialNumber", "Serial number", r.serialNumberTlvInfo()},
                         {"manufacturer", "Manufacturer", r.manufacturerNameTlvInfo()},
                         {"modelName", "Model", r.modelNameTlvInfo()},
                         {"assetId", "Asset ID", r.assetIDTlvInfo()}};
  for (Inv const& i : inventory)
    if (i.v.isSet()) f.children.push_back(bytesValue(i.key, i.label, i.v.value().value()));
  return f;
}

Field describeNeighbour(Lldp::RemoteSystem const& r) {
  Field f = group("", "Neighbour " + std::to_string(r.index()));
  auto& c = f.children;
  auto const& chassis = r.msap().chassisIdentifier();
  auto const& port = r.msap().portIdentifier();
  c.push_back(value("index", "Index", r.index()));
  c.push_back(identifierValue("chassisId", "Chassis ID", chassis.stringValue(Lldp::colon, false)));
  c.push_back(enumField("chassisIdSubtype", "Chassis ID subtype", "Lldp::ChassisIdSubtype", chassis.chassisIdSubtype()));
  c.push_back(identifierValue("portId", "Port ID", port.stringValue(Lldp::colon, false)));
  c.push_back(enumField("portIdSubtype", "Port ID subtype", "Lldp::PortIdSubtype", port.portIdSubtype()));
  c.push_back(value("ethAddr", "Source MAC", r.ethAddr().stringValue().stdString()));
  c.push_back(value("ttl", "Time to live", r.ttl(), "s"));
  if (r.portDesc().isSet()) c.push_back(bytesValue("portDesc", "Port description", r.portDesc().value().value()));
  if (r.sysName().isSet()) c.push_back(bytesValue("sysName", "System name", r.sysName().value().value()));
  if (r.sysDesc().isSet()) c.push_back(bytesValue("sysDesc", "System description", r.sysDesc().value().value()));
  if (r.systemCapabilities().isSet()) {
    Field x = group("systemCapabilities", "System capabilities");
    x.children = {value("supported", "Supported", bitNames(r.systemCapabilities().sysCapSupported().value(), "Lldp::SystemCapabilitiesMap")),
                  value("enabled", "Enabled", bitNames(r.systemCapabilities().sysCapEnabled().value(), "Lldp::SystemCapabilitiesMap"))};
    c.push_back(std::move(x));
  }
  if (!r.managementAddress().empty()) {
    Field l = listOf("managementAddresses", "Management addresses");
    std::vector<Lldp::ManagementAddress> v;
    for (auto const& e : r.managementAddress()) v.push_back(e);
    std::sort(v.begin(), v.end(), [](auto const& a, auto const& b) { return a.key() < b.key(); });
    for (auto const& e : v) {
      int const family = e.key().manAddrSubtype().value();
      Kel::String lldpForm(std::string(1, static_cast<char>(family)));
      lldpForm += e.key().manAddr().value();
      std::string const address = family == 1 || family == 2 || family == 6
                                      ? Lldp::formatAddr(lldpForm, Lldp::colon).stdString()
                                      : hex(e.key().manAddr().value());
      Field x = group("", "Address " + address);
      x.children = {value("address", "Address", address),
                    coded("addressSubtype", "Address family",
                          displayName(e.key().manAddrSubtype().name(), {}), family),
                    enumField("interfaceSubtype", "Interface numbering", "Lldp::ManAddrIfSubtype", e.ifSubtype()),
                    value("interfaceNumber", "Interface number", e.ifId())};
      if (!e.oid().empty()) x.children.push_back(value("oid", "OID", e.oid().stringValue().stdString()));
      l.children.push_back(std::move(x));
    }
    c.push_back(std::move(l));
  }
  for (Field sub : {describeDot1(r), describeDot3(r), describeMed(r)})
    if (!sub.children.empty()) c.push_back(std::move(sub));
  if (!r.unknownTlv().empty()) {
    Field l = listOf("unknownTlvs", "Unknown TLVs");
    std::vector<Lldp::UnknownTlv> v;
    for (auto const& e : r.unknownTlv()) v.push_back(e);
    std::sort(v.begin(), v.end(), [](auto const& a, auto const& b) { return a.type() < b.type(); });
    for (auto const& e : v) {
      Field x = group("", "Type " + std::to_string(e.type()));
      x.children = {value("type", "Type", e.type()), value("info", "Information (hex)", hex(e.info().value()))};
      l.children.push_back(std::move(x));
    }
    c.push_back(std::move(l));
  }
  if (!r.unknownOrgDefTlv().empty()) {
    Field l = listOf("unknownOrgDefTlvs", "Other organizationally specific TLVs");
    std::vector<Lldp::UnknownOrgDefTlv> v;
    for (auto const& e : r.unknownOrgDefTlv()) v.push_back(e);
    std::sort(v.begin(), v.end(), [](auto const& a, auto const& b) { return a.key() < b.key(); });
    for (auto const& e : v) {
      char oui[16];
      std::uint32_t const o = e.key().oui().value();
      std::snprintf(oui, sizeof oui, "%02x-%02x-%02x", o >> 16 & 0xff, o >> 8 & 0xff, o & 0xff);
      Field x = group("", std::string("OUI ") + oui + " subtype " + std::to_string(e.key().subtype()) + " #" +
                              std::to_string(e.key().index()));
      x.children = {value("oui", "OUI", oui), value("subtype", "Subtype", e.key().subtype()),
                    value("index", "Index", e.key().index()),
                    value("info", "Information (hex)", hex(e.orgDefInfo().value()))};
      l.children.push_back(std::move(x));
    }
    c.push_back(std::move(l));
  }
  c.push_back(timeValue("creationTime", "Created", r.creationTime()));
  c.push_back(timeValue("lastChangeTime", "Last change", r.lastChangeTime()));
  c.push_back(timeValue("lastRefreshTime", "Last refresh", r.lastRefreshTime()));
  c.push_back(timeValue("expiryTime", "Expires", r.expiryTime()));
  return f;
}

// A port without its neighbours, which the caller adds (all at once, or one at a time).
Field describePortHead(Lldp::PortStatus const& p) {
  Field f = group("", "Port " + displayText(p.intfId().stringValue().view()));
  f.children.push_back(bytesValue("intfId", "Port", p.intfId().stringValue()));
  Field counters = group("counters", "Counters");
  counters.children = {value("rxFramesTotal", "Frames received", p.rxFramesTotal()),
                       value("rxFramesDiscardedTotal", "Frames discarded", p.rxFramesDiscardedTotal()),
                       value("rxFramesErrors", "Frames in error", p.rxFramesErrors()),
                       value("rxTLVsDiscardedTotal", "TLVs discarded", p.rxTLVsDiscardedTotal()),
                       value("rxTLVsUnrecognizedTotal", "TLVs unrecognized", p.rxTLVsUnrecognizedTotal()),
                       value("rxAgeoutsTotal", "Neighbours aged out", p.rxAgeoutsTotal())};
  f.children.push_back(std::move(counters));
  return f;
}

template <class F>
void forEachNeighbour(Lldp::PortStatus const& p, F visit) {
  std::vector<std::int32_t> indexes = p.remoteSystem().keys();
  std::sort(indexes.begin(), indexes.end());
  for (std::int32_t i : indexes) visit(*p.remoteSystem(i));
}

Field describePort(Lldp::PortStatus const& p) {
  Field f = describePortHead(p);
  Field l = listOf("neighbors", "Neighbours");
  forEachNeighbour(p, [&](Lldp::RemoteSystem const& r) { l.children.push_back(describeNeighbour(r)); });
  f.children.push_back(std::move(l));
  return f;
}

Field describeTables(Lldp::Status const& s) {
  Field tables = group("tables", "Neighbour tables");
  tables.children = {value("remTablesInserts", "Inserts", s.remTablesInserts()),
                     value("remTablesDeletes", "Deletes", s.remTablesDeletes()),
                     value("remTablesDrops", "Drops", s.remTablesDrops()),
                     value("remTablesAgeouts", "Ageouts", s.remTablesAgeouts()),
                     timeValue("remTablesLastChangeTime", "Last change", s.remTablesLastChangeTime()),
                     timeValue("lastPacketParsedTime", "Last LLDPDU", s.lastPacketParsedTime())};
  return tables;
}

template <class F>
void forEachPort(Lldp::Status const& s, F visit) {
  std::vector<Platform::IntfId> intfs = s.portStatus().keys();
  std::sort(intfs.begin(), intfs.end());
  for (auto const& i : intfs) visit(*s.portStatus(i));
}

}  // namespace

Field describe(Lldp::Status const& s) {
  Field f = group("", "LLDP neighbours");
  f.children.push_back(describeTables(s));
  Field ports = listOf("ports", "Ports");
  forEachPort(s, [&](Lldp::PortStatus const& p) { ports.children.push_back(describePort(p)); });
  f.children.push_back(std::move(ports));
  return f;
}

// ---- rendering

namespace {

// The length of the UTF-8 sequence at b[i], 0 when it is not one.
using LldpRx::utf8Length;

bool isUtf8(std::string_view b) {
  for (std::size_t i = 0, n; i < b.size(); i += n)
    if ((n = utf8Length(b, i)) == 0) return false;
  return true;
}

}  // namespace

std::string displayName(std::string_view name, std::vector<std::string_view> const& all) {
  // The prefix every enumerator shares, cut back to where a word starts: after '_' (not
  // between digits) or at a capital.
  std::size_t common = all.empty() ? 0 : name.size();
  for (std::string_view other : all) {
    std::size_t k = 0;
    while (k < common && k < other.size() && other[k] == name[k]) ++k;
    common = k;
  }
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  auto upper = [](char c) { return c >= 'A' && c <= 'Z'; };
  auto lower = [](char c) { return c >= 'a' && c <= 'z'; };
  auto wordStart = [&](std::size_t k) {
    if (name[k - 1] == '_') return !(k >= 2 && digit(name[k - 2]) && digit(name[k]));
    return upper(name[k]) && (!upper(name[k - 1]) || (k + 1 < name.size() && lower(name[k + 1])));
  };
  while (common > 0 && common < name.size() && !wordStart(common)) --common;
  std::string out;
  for (std::size_t i = common; i < name.size(); ++i) {
    if (name[i] != '_') {
      out += name[i];
    } else if (i > common && i + 1 < name.size() && digit(name[i - 1]) && digit(name[i + 1])) {
      out += '.';  // 802_3at: 802.3at
    }
  }
  bool const capitals = std::none_of(out.begin(), out.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  if (capitals && std::any_of(out.begin(), out.end(), upper)) {
    std::transform(out.begin(), out.end(), out.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
  } else if (!out.empty() && upper(out[0])) {
    out[0] = static_cast<char>(out[0] - 'A' + 'a');
  }
  return out;
}

json jsonBytes(std::string const& bytes) {
  if (isUtf8(bytes)) return bytes;
  return json{{"hex", Lldp::bytesToHex(Kel::String(bytes)).stdString()}};
}

json toJson(Field const& f) {
  if (f.list) {
    json a = json::array();
    for (Field const& c : f.children) a.push_back(toJson(c));
    return a;
  }
  if (f.bytes) return jsonBytes(f.value.get<std::string>());
  if (f.children.empty() && !f.value.is_null()) return f.value;
  if (f.children.empty() && f.code) return nullptr;
  json o = json::object();
  for (Field const& c : f.children) {
    o[c.key] = toJson(c);
    if (c.code) o[c.key + "Code"] = *c.code;
  }
  return o;
}

std::string renderJson(Field const& status) { return toJson(status).dump(2) + "\n"; }

namespace {

std::string utc(double t) {
  if (!(t > 0)) return "-";
  std::time_t const s = static_cast<std::time_t>(std::floor(t));
  std::tm tm{};
  gmtime_r(&s, &tm);
  char b[48];
  std::size_t n = std::strftime(b, sizeof b, "%Y-%m-%d %H:%M:%S", &tm);
  std::snprintf(b + n, sizeof b - n, ".%03d UTC", static_cast<int>((t - std::floor(t)) * 1000.0));
  return b;
}

std::string scalar(json const& v) {
  if (v.is_string()) return v.get<std::string>();
  if (v.is_boolean()) return v.get<bool>() ? "yes" : "no";
  if (v.is_array()) {
    std::string s;
    for (auto const& e : v) s += (s.empty() ? "" : ", ") + scalar(e);
    return s.empty() ? "none" : s;
  }
  if (v.is_number_float()) {
    char b[32];
    std::snprintf(b, sizeof b, "%.10g", v.get<double>());
    return b;
  }
  return v.dump();
}

// A value as a person reads it: text escaped, a name with its code, a time in UTC.
std::string shown(Field const& f) {
  if (f.bytes) {
    std::string const& v = f.value.get_ref<std::string const&>();
    std::string t = displayText(v);
    return f.identifier && t.find("\\x") != std::string::npos ? hex(Kel::String(v)) : t;
  }
  if (f.time) return utc(f.value.get<double>());
  std::string v = f.value.is_null() ? "unknown" : scalar(f.value);
  if (f.code) v += " (" + std::to_string(*f.code) + ")";
  return f.unit.empty() ? v : v + " " + f.unit;
}

bool isScalar(Field const& f) { return f.children.empty() && !f.list && (!f.value.is_null() || f.code); }

// One layout: a group's label, then its fields one a line, indented below it.
void detail(std::string& out, Field const& f, int depth) {
  std::string const indent(static_cast<std::size_t>(depth) * 2, ' ');
  if (isScalar(f)) {
    out += indent + f.label + ": " + shown(f) + "\n";
    return;
  }
  out += indent + f.label + ":\n";
  for (Field const& c : f.children) detail(out, c, depth + 1);
}

std::string cell(Field const& n, std::string_view key) {
  Field const* f = n.child(key);
  return f ? (f->bytes ? shown(*f) : scalar(f->value)) : "";
}

}  // namespace

std::string renderDetail(Field const& status) {
  std::string out;
  for (Field const& c : status.children) detail(out, c, 0);
  return out;
}

namespace {

// The table's rows and its summary lines, taken a neighbour and a port at a time: a
// neighbour's description goes as soon as its row is read.
class Table {
 public:
  void neighbour(std::string const& intf, Field const& n) {
    ++neighbours_;
    Field const* caps = n.child("systemCapabilities");
    std::string enabled;
    if (caps)
      for (auto const& name : caps->child("enabled")->value)
        if (name.get<std::string>().rfind("unused", 0) != 0) enabled += (enabled.empty() ? "" : ", ") + name.get<std::string>();
    rows_.push_back({{intf, cell(n, "chassisId"), cell(n, "portId"), cell(n, "ttl"), cell(n, "sysName"), enabled}});
  }
  void port(std::string const& intf, Field const& port) {
    Field const& c = *port.child("counters");
    counters_ += "Port " + intf + ": " + cell(c, "rxFramesTotal") + " frames, " + cell(c, "rxFramesDiscardedTotal") +
                 " discarded, " + cell(c, "rxFramesErrors") + " in error, " + cell(c, "rxTLVsDiscardedTotal") +
                 " TLVs discarded, " + cell(c, "rxTLVsUnrecognizedTotal") + " TLVs unrecognized, " +
                 cell(c, "rxAgeoutsTotal") + " aged out\n";
  }
  std::string text(Field const& t) const {
    std::size_t width[6] = {};
    for (Row const& r : rows_)
      for (int i = 0; i < 6; ++i) width[i] = std::max(width[i], r.cells[i].size());
    std::string out;
    for (Row const& r : rows_) {
      std::size_t const start = out.size();
      for (int i = 0; i < 6; ++i) out.append(r.cells[i]).append(i < 5 ? width[i] - r.cells[i].size() + 2 : 0, ' ');
      while (out.size() > start && out.back() == ' ') out.pop_back();
      out += '\n';
    }
    out += std::to_string(neighbours_) + (neighbours_ == 1 ? " neighbour" : " neighbours") + "; tables: " +
           cell(t, "remTablesInserts") + " inserts, " + cell(t, "remTablesDeletes") + " deletes, " +
           cell(t, "remTablesDrops") + " drops, " + cell(t, "remTablesAgeouts") + " ageouts\n";
    return out + counters_;
  }

 private:
  struct Row {
    std::string cells[6];
  };
  std::vector<Row> rows_{{{"Port", "Chassis ID", "Port ID", "TTL", "System name", "Capabilities"}}};
  std::string counters_;
  std::size_t neighbours_ = 0;
};

}  // namespace

std::string renderTable(Field const& status) {
  Table table;
  for (Field const& port : status.child("ports")->children) {
    std::string const intf = cell(port, "intfId");
    for (Field const& n : port.child("neighbors")->children) table.neighbour(intf, n);
    table.port(intf, port);
  }
  return table.text(*status.child("tables"));
}

std::string renderTable(Lldp::Status const& status) {
  Table table;
  forEachPort(status, [&](Lldp::PortStatus const& p) {
    Field const head = describePortHead(p);
    std::string const intf = cell(head, "intfId");
    forEachNeighbour(p, [&](Lldp::RemoteSystem const& r) { table.neighbour(intf, describeNeighbour(r)); });
    table.port(intf, head);
  });
  return table.text(describeTables(status));
}

}  // namespace LldpNeighbors
