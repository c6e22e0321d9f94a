// The neighbour tool read against independent readings of the same LLDP traffic, field by
// field: tshark's decode of every capture (the repository's sample, recorded from Debian's
// lldpd, and the captures of real devices in ../shared/captures), and, on traffic of live
// lldpd peers in network namespaces, what the receiving lldpd's own client reports
// (lldpcli, JSON) and what the tool captures live.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>


namespace {

using json = nlohmann::json;
namespace fs = std::filesystem;

std::string run(std::string const& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    ::pclose(p);
  }
  return out;
}
bool have(const char* tool) { return !run(std::string("command -v ") + tool + " 2>/dev/null").empty(); }

json tool(std::string const& args) {
  std::string const out = run(std::string(LLDP_NEIGHBORS_TOOL) + " --json --no-rate-limit --max-neighbors 1000 " + args);
  return json::parse(out, nullptr, false);
}

// tshark's text as bytes: its \xNN and C escapes undone, cut at the first NUL (tshark
// ends its strings there).
std::string bytesOf(std::string const& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 1 < s.size()) {
      char const c = s[i + 1];
      if (c == 'x' && i + 3 < s.size()) {
        out += static_cast<char>(std::stoi(s.substr(i + 2, 2), nullptr, 16));
        i += 3;
        continue;
      }
      if (c == 'n' || c == 'r' || c == 't' || c == '\\') {
        out += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : '\\';
        ++i;
        continue;
      }
    }
    out += s[i];
  }
  return out.substr(0, out.find('\0'));
}
// An identifier as both print it: MAC text, or hex without separators, or text.
std::string idKey(std::string s) {
  bool hexPairs = s.size() >= 2 && (s.size() + 1) % 3 == 0;
  for (std::size_t i = 0; hexPairs && i < s.size(); ++i) hexPairs = i % 3 == 2 ? s[i] == ' ' : std::isxdigit(s[i]);
  if (hexPairs) s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
  return s;
}

// Every value at a path of the neighbour's JSON; "*" walks a list.
void collect(json const& j, std::vector<std::string> const& path, std::size_t at, std::vector<json>& out) {
  if (at == path.size()) return out.push_back(j);
  if (path[at] == "*") {
    if (j.is_array())
      for (json const& e : j) collect(e, path, at + 1, out);
  } else if (j.is_object() && j.contains(path[at])) {
    collect(j[path[at]], path, at + 1, out);
  }
}
std::vector<json> values(json const& n, std::string const& path) {
  std::vector<std::string> parts;
  std::stringstream ss(path);
  for (std::string p; std::getline(ss, p, '/');)
    if (!p.empty()) parts.push_back(p);
  std::vector<json> out;
  collect(n, parts, 0, out);
  return out;
}

// ---- tshark

// One LLDP frame as tshark reads it: every occurrence of every field asked for.
using Frame = std::map<std::string, std::vector<std::string>>;

// How our value reads in tshark's terms.
std::string ours(std::string const& how, json const& v) {
  static const char* const caps[] = {"other", "repeater", "bridge", "wlanAccessPoint", "router", "telephone",
                                     "docsisCableDevice", "stationOnly"};
  static const char* const medCaps[] = {"capabilities", "networkPolicy", "location", "extendedPse", "extendedPd", "inventory"};
  char b[32];
  auto bits = [&](auto const& names) {
    unsigned m = 0;
    for (json const& n : v)
      for (unsigned i = 0; i < std::size(names); ++i)
        if (n == names[i]) m |= 1u << i;
    std::snprintf(b, sizeof b, "0x%04x", m);
    return std::string(b);
  };
  if (how == "str") {
    // JSON holds the bytes: UTF-8 as a string, anything else as {"hex": "..."}.
    std::string b = v.is_string() ? v.get<std::string>() : "";
    if (v.is_object())
      for (std::size_t i = 0; i + 1 < v["hex"].get<std::string>().size(); i += 3)
        b += static_cast<char>(std::stoi(v["hex"].get<std::string>().substr(i, 2), nullptr, 16));
    return b.substr(0, b.find('\0'));
  }
  if (how == "id") return idKey(v.get<std::string>());
  if (how == "num") return std::to_string(v.get<long long>());
  if (how == "bool") return v.get<bool>() ? "1" : "0";
  if (how == "hex4") return std::snprintf(b, sizeof b, "0x%04llx", v.get<long long>()), b;
  if (how == "dW") return std::to_string(std::llround(v.get<double>() * 10));
  if (how == "raw25") return std::to_string(std::llround(v.get<double>() * 33554432.0));
  if (how == "raw8") return std::to_string(std::llround(v.get<double>() * 256.0));
  if (how == "nospace") return idKey(v.get<std::string>());
  if (how == "caps") return bits(caps);
  if (how == "medcaps") return bits(medCaps);
  ADD_FAILURE() << "no conversion " << how;
  return {};
}

// And tshark's value in comparable form.
std::string theirs(std::string const& how, std::string const& v) {
  if (how == "str") return bytesOf(v);
  if (how == "hex4" && v.rfind("0x", 0) == 0) return v;
  if (how == "priority") return std::to_string(std::stoul(v) & 3);  // tshark's field takes the 4PID bit too
  if (how == "lat34") {
    std::uint64_t const raw = std::stoull(v) & 0x3ffffffffull;
    return std::to_string(static_cast<std::int64_t>((raw ^ (1ull << 33)) - (1ull << 33)));
  }
  return v;
}

struct FieldMap {
  const char* tshark;
  const char* path;  // in the tool's neighbour JSON
  const char* how;
  const char* theirHow = "";
};

FieldMap const tsharkFields[] = {
    {"lldp.time_to_live", "/ttl", "num"},
    {"lldp.port.desc", "/portDesc", "str"},
    {"lldp.tlv.system.name", "/sysName", "str"},
    {"lldp.tlv.system.desc", "/sysDesc", "str", "str"},
    {"lldp.tlv.system_cap", "/systemCapabilities/supported", "caps"},
    {"lldp.tlv.enable_system_cap", "/systemCapabilities/enabled", "caps"},
    {"lldp.mgn.address.subtype", "/managementAddresses/*/addressSubtypeCode", "num"},
    {"lldp.mgn.interface.subtype", "/managementAddresses/*/interfaceSubtypeCode", "num"},
    {"lldp.mgn.interface.number", "/managementAddresses/*/interfaceNumber", "num"},
    {"lldp.ieee.802_1.port_vlan.id", "/ieee8021/portVlanId", "num"},
    {"lldp.ieee.802_1.port_proto_vlan.id", "/ieee8021/portAndProtocolVlans/*/ppvid", "num"},
    {"lldp.ieee.802_1.port_and_vlan_id_flag.supported", "/ieee8021/portAndProtocolVlans/*/supported", "bool"},
    {"lldp.ieee.802_1.port_and_vlan_id_flag.enabled", "/ieee8021/portAndProtocolVlans/*/enabled", "bool"},
    {"lldp.ieee.802_1.vlan.id", "/ieee8021/vlanNames/*/vlanId", "num"},
    {"lldp.ieee.802_1.vlan.name", "/ieee8021/vlanNames/*/name", "str", "str"},
    {"lldp.ieee.802_1.proto.id", "/ieee8021/protocolIdentities/*/protocolId", "nospace"},
    {"lldp.ieee.802_3.aggregated_port_id", "/ieee8021/linkAggregation/portId", "num"},
    {"lldp.ieee.802_3.aggregation_status.cap", "/ieee8021/linkAggregation/aggCapable", "bool"},
    {"lldp.ieee.802_3.mac_phy_auto_neg_status.supported", "/ieee8023/macPhyConfigStatus/autoNegSupported", "bool"},
    {"lldp.ieee.802_3.mac_phy_auto_neg_status.enabled", "/ieee8023/macPhyConfigStatus/autoNegEnabled", "bool"},
    {"lldp.ieee.802_3.pmd_auto_neg_advertised_caps", "/ieee8023/macPhyConfigStatus/autoNegAdvertisedCap", "str"},
    {"lldp.ieee.802_3.pmd_mau_type", "/ieee8023/macPhyConfigStatus/operMauTypeCode", "hex4", "hex4"},
    {"lldp.ieee.802_3.mdi_power_support.port_class", "/ieee8023/powerViaMdi/portClassCode", "num"},
    {"lldp.ieee.802_3.mdi_power_support.supported", "/ieee8023/powerViaMdi/supported", "bool"},
    {"lldp.ieee.802_3.mdi_power_support.enabled", "/ieee8023/powerViaMdi/enabled", "bool"},
    {"lldp.ieee.802_3.mdi_power_support.pse_pairs", "/ieee8023/powerViaMdi/powerPairControllable", "bool"},
    {"lldp.ieee.802_3.mdi_pse_pair", "/ieee8023/powerViaMdi/powerPairsCode", "num"},
    {"lldp.ieee.802_3.mdi_power_class", "/ieee8023/powerViaMdi/powerClassCode", "num"},
    {"lldp.ieee.802_3.mdi_power_type", "/ieee8023/powerViaMdi/at/powerTypeCode", "num"},
    {"lldp.ieee.802_3.mdi_power_source", "/ieee8023/powerViaMdi/at/powerSourceCode", "num"},
    {"lldp.ieee.802_3.mdi_power_priority", "/ieee8023/powerViaMdi/at/powerPriorityCode", "num", "priority"},
    {"lldp.ieee.802_3.mdi_pde_requested", "/ieee8023/powerViaMdi/at/pdRequestedPower", "dW"},
    {"lldp.ieee.802_3.mdi_pse_allocated", "/ieee8023/powerViaMdi/at/pseAllocatedPower", "dW"},
    {"lldp.ieee.802_3.bt_ds_pd_requested_power_value_mode_a", "/ieee8023/powerViaMdi/bt/pdRequestedPowerModeA", "dW"},
    {"lldp.ieee.802_3.bt_ds_pd_requested_power_value_mode_b", "/ieee8023/powerViaMdi/bt/pdRequestedPowerModeB", "dW"},
    {"lldp.ieee.802_3.bt_ds_pse_allocated_power_value_alt_a", "/ieee8023/powerViaMdi/bt/pseAllocatedPowerAlternativeA", "dW"},
    {"lldp.ieee.802_3.bt_ds_pse_allocated_power_value_alt_b", "/ieee8023/powerViaMdi/bt/pseAllocatedPowerAlternativeB", "dW"},
    {"lldp.ieee.802_3.bt_pse_powering_status", "/ieee8023/powerViaMdi/bt/psePoweringStatusCode", "num"},
    {"lldp.ieee.802_3.bt_pd_powered_status", "/ieee8023/powerViaMdi/bt/pdPoweredStatusCode", "num"},
    {"lldp.ieee.802_3.bt_pse_power_pairs_ext", "/ieee8023/powerViaMdi/bt/psePowerPairsExtCode", "num"},
    {"lldp.ieee.802_3.bt_ds_pwr_class_ext_a", "/ieee8023/powerViaMdi/bt/dualSignaturePowerClassExtModeACode", "num"},
    {"lldp.ieee.802_3.bt_ds_pwr_class_ext_b", "/ieee8023/powerViaMdi/bt/dualSignaturePowerClassExtModeBCode", "num"},
    {"lldp.ieee.802_3.bt_pwr_class_ext_", "/ieee8023/powerViaMdi/bt/powerClassExtCode", "num"},
    {"lldp.ieee.802_3.bt_power_type_ext", "/ieee8023/powerViaMdi/bt/powerTypeExtCode", "num"},
    {"lldp.ieee.802_3.bt_pse_maximum_available_power_value", "/ieee8023/powerViaMdi/bt/pseMaximumAvailablePower", "dW"},
    {"lldp.ieee.802_3.bt_pse_autoclass_support", "/ieee8023/powerViaMdi/bt/pseAutoclassSupport", "bool"},
    {"lldp.ieee.802_3.bt_autoclass_completed", "/ieee8023/powerViaMdi/bt/autoclassCompleted", "bool"},
    {"lldp.ieee.802_3.bt_autoclass_request", "/ieee8023/powerViaMdi/bt/autoclassRequest", "bool"},
    {"lldp.ieee.802_3.bt_power_down_request", "/ieee8023/powerViaMdi/bt/powerDownRequest", "bool"},
    {"lldp.ieee.802_3.bt_power_down_time", "/ieee8023/powerViaMdi/bt/powerDownTime", "num"},
    {"lldp.ieee.802_3.max_frame_size", "/ieee8023/maximumFrameSize", "num"},
    {"lldp.media.subtype.caps", "/lldpMed/capabilities/capability", "medcaps"},
    {"lldp.media.subtype.class", "/lldpMed/capabilities/deviceTypeCode", "num"},
    {"lldp.media.app_type", "/lldpMed/networkPolicies/*/applicationCode", "num"},
    {"lldp.media.tag_flag", "/lldpMed/networkPolicies/*/tagged", "bool"},
    {"lldp.media.vlan_id", "/lldpMed/networkPolicies/*/vlanId", "num"},
    {"lldp.media.l2_prio", "/lldpMed/networkPolicies/*/cosValue", "num"},
    {"lldp.media.dscp", "/lldpMed/networkPolicies/*/dscpValue", "num"},
    {"lldp.media.loc.lat_resolution", "/lldpMed/coordinate/latitudeResolution", "num"},
    {"lldp.media.loc.latitude", "/lldpMed/coordinate/latitude", "raw25", "lat34"},
    {"lldp.media.loc.longitude", "/lldpMed/coordinate/longitude", "raw25", "lat34"},
    {"lldp.media.loc.alt_type", "/lldpMed/coordinate/altitudeTypeCode", "num"},
    {"lldp.media.loc.altitude", "/lldpMed/coordinate/altitude", "raw8"},
    {"lldp.media.loc.datum", "/lldpMed/coordinate/datumCode", "num"},
    {"lldp.media.civic.what", "/lldpMed/civicAddress/what", "num"},
    {"lldp.media.civic.country", "/lldpMed/civicAddress/countryCode", "str"},
    {"lldp.media.civic.type", "/lldpMed/civicAddress/elements/*/caType", "num"},
    {"lldp.media.civic.value", "/lldpMed/civicAddress/elements/*/caValue", "str", "str"},
    {"lldp.media.ecs", "/lldpMed/elin", "str"},
    {"lldp.media.hardware", "/lldpMed/hardwareRevision", "str", "str"},
    {"lldp.media.firmware", "/lldpMed/firmwareRevision", "str", "str"},
    {"lldp.media.software", "/lldpMed/softwareRevision", "str", "str"},
    {"lldp.media.sn", "/lldpMed/serialNumber", "str", "str"},
    {"lldp.media.manufacturer", "/lldpMed/manufacturer", "str", "str"},
    {"lldp.media.model", "/lldpMed/modelName", "str", "str"},
    {"lldp.media.asset", "/lldpMed/assetId", "str", "str"},
};

std::vector<Frame> tsharkFrames(std::string const& file) {
  std::string cmd = "tshark -r '" + file + "' -Y lldp -T fields -E separator=/t -E occurrence=a -E 'aggregator=|'";
  std::vector<std::string> names = {"_ws.malformed", "lldp.chassis.id.mac", "lldp.chassis.id", "lldp.port.id.mac", "lldp.port.id"};
  for (FieldMap const& f : tsharkFields) names.push_back(f.tshark);
  for (std::string const& n : names) cmd += " -e " + n;
  std::vector<Frame> frames;
  std::stringstream out(run(cmd + " 2>/dev/null"));
  for (std::string line; std::getline(out, line);) {
    Frame f;
    std::size_t i = 0, from = 0;
    for (std::size_t tab; i < names.size(); ++i, from = tab + 1) {
      tab = std::min(line.find('\t', from), line.size());
      std::string const cell = line.substr(from, tab - from);
      std::size_t pos = 0;
      while (!cell.empty() && pos <= cell.size()) {
        std::size_t const bar = std::min(cell.find('|', pos), cell.size());
        f[names[i]].push_back(cell.substr(pos, bar - pos));
        pos = bar + 1;
      }
      if (tab == line.size()) break;
    }
    frames.push_back(std::move(f));
  }
  return frames;
}

std::string first(Frame const& f, std::string const& a, std::string const& b) {
  auto it = f.find(a);
  if (it != f.end() && !it->second.empty()) return it->second.front();
  it = f.find(b);
  return it != f.end() && !it->second.empty() ? idKey(it->second.front()) : "";
}

// The neighbours of the tool's JSON by "chassis|port".
std::map<std::string, json> neighbours(json const& tree) {
  std::map<std::string, json> out;
  if (!tree.is_object()) return out;
  for (json const& port : tree["ports"])
    for (json const& n : port["neighbors"])
      out[idKey(n["chassisId"].get<std::string>()) + "|" + idKey(n["portId"].get<std::string>())] = n;
  return out;
}

// Compares every neighbour of the tool's reading of `file` with tshark's reading of the
// neighbour's last frame; returns how many fields agreed.
int compareWithTshark(std::string const& file) {
  json const tree = tool("-r '" + file + "'");
  EXPECT_TRUE(tree.is_object()) << "the tool gave no JSON for " << file;
  std::map<std::string, json> const table = neighbours(tree);
  std::map<std::string, Frame> last;
  for (Frame const& f : tsharkFrames(file))
    last[first(f, "lldp.chassis.id.mac", "lldp.chassis.id") + "|" + first(f, "lldp.port.id.mac", "lldp.port.id")] = f;
  EXPECT_FALSE(last.empty()) << "tshark read no LLDP frame from " << file;
  int agreed = 0;
  for (auto const& [key, frame] : last) {
    SCOPED_TRACE(file + ": neighbour " + key);
    bool const gone = frame.count("lldp.time_to_live") && frame.at("lldp.time_to_live").front() == "0";
    auto it = table.find(key);
    if (gone) {
      EXPECT_EQ(it, table.end()) << "a neighbour that sent a TTL of 0 is still in the table";
      continue;
    }
    if (it == table.end()) {
      ADD_FAILURE() << "the tool has no such neighbour";
      continue;
    }
    // tshark stops at a malformed TLV: only what it read before is compared then.
    bool const complete = !frame.count("_ws.malformed");
    for (FieldMap const& m : tsharkFields) {
      std::vector<std::string> want, got;
      if (auto t = frame.find(m.tshark); t != frame.end())
        for (std::string const& v : t->second) want.push_back(theirs(m.theirHow, v));
      if (!complete && want.empty()) continue;
      for (json const& v : values(it->second, m.path)) got.push_back(ours(m.how, v));
      // ... and what tshark read of the TLV it choked on, which the tool refused whole.
      if (!complete && got.empty()) continue;
      std::sort(want.begin(), want.end());
      std::sort(got.begin(), got.end());
      EXPECT_EQ(got, want) << m.tshark << " vs " << m.path;
      agreed += got == want && !want.empty();
    }
  }
  return agreed;
}

std::string sample() { return std::string(LLDP_SOURCE_DIR) + "/tools/samples/lldpd-neighbours.pcap"; }

TEST(InteropTest, SampleCaptureReadsAsTsharkReadsIt) {
  if (!have("tshark")) GTEST_SKIP() << "tshark is not installed (Debian package tshark; scripts/build.sh deps)";
  // Most fields of the table, over the three neighbours: basic, management, 802.1, 802.3
  // af/at/bt, MED.
  EXPECT_GT(compareWithTshark(sample()), 120);
}

TEST(InteropTest, DeviceCapturesReadAsTsharkReadsThem) {
  if (!have("tshark")) GTEST_SKIP() << "tshark is not installed (Debian package tshark; scripts/build.sh deps)";
  fs::path const dir = LLDP_CAPTURES_DIR;
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no captures of real devices at " << dir;
  int files = 0;
  for (auto const& e : fs::directory_iterator(dir))
    if (e.path().extension() == ".pcap") {
      ++files;
      compareWithTshark(e.path().string());
    }
  EXPECT_GT(files, 0) << "no .pcap in " << dir;
}

TEST(InteropTest, MalformedLocationIsDroppedAndTheRestKept) {
  fs::path const file = fs::path(LLDP_CAPTURES_DIR) / "med-loc-malformed.pcap";
  if (!fs::exists(file)) GTEST_SKIP() << "no " << file;
  json const tree = tool("-r '" + file.string() + "'");
  ASSERT_TRUE(tree.is_object());
  json const& port = tree["ports"][0];
  // The civic LCI of 2 octets cannot hold its what and country code: that TLV alone goes.
  EXPECT_EQ(port["counters"]["rxTLVsDiscardedTotal"], 1);
  EXPECT_EQ(port["counters"]["rxFramesErrors"], 0);
  json const& n = port["neighbors"][0];
  EXPECT_FALSE(n["lldpMed"].contains("civicAddress"));
  EXPECT_EQ(n["sysName"], "defensics");
  EXPECT_EQ(n["lldpMed"]["capabilities"]["deviceTypeCode"], 3);
}

// ---- live peers

bool namespacesWork() {
  std::string const probe = "lldpprobe" + std::to_string(::getpid());
  bool const ok = std::system(("ip netns add " + probe + " >/dev/null 2>&1").c_str()) == 0;
  std::system(("ip netns del " + probe + " >/dev/null 2>&1").c_str());
  return ok;
}

const char* const lldpcliCapabilities[][2] = {{"Other", "other"}, {"Repeater", "repeater"}, {"Bridge", "bridge"},
                                              {"Wlan", "wlanAccessPoint"}, {"Router", "router"}, {"Tel", "telephone"},
                                              {"Docsis", "docsisCableDevice"}, {"Station", "stationOnly"}};
const char* const lldpcliMedCapabilities[][2] = {{"Capabilities", "capabilities"}, {"Policy", "networkPolicy"},
                                                 {"Location", "location"}, {"MDI/PSE", "extendedPse"},
                                                 {"MDI/PD", "extendedPd"}, {"Inventory", "inventory"}};
// lldpcli's civic address keys and their CA types (RFC 4776).
std::map<std::string, int> const civicTypes = {{"country-subdivision", 1}, {"county", 2}, {"city", 3}, {"city-division", 4},
                                               {"block", 5}, {"street", 6}, {"number", 19}, {"zip", 24}, {"building", 25}};

std::string one(json const& j, const char* key) {
  return j.contains(key) && j[key].is_array() && !j[key].empty() ? j[key][0].value("value", "") : "";
}
double watts(json const& j, const char* key) { return std::stod(one(j, key)) / 1000.0; }
std::vector<std::string> sorted(std::vector<std::string> v) {
  std::sort(v.begin(), v.end());
  return v;
}

TEST(InteropTest, LivePeersReadAsLldpcliAndTsharkReadThem) {
  for (const char* t : {"ip", "lldpd", "lldpcli", "tcpdump", "tshark"})
    if (!have(t)) GTEST_SKIP() << t << " is not installed (Debian packages iproute2, lldpd, tcpdump, tshark; scripts/build.sh deps)";
  if (::geteuid() != 0) GTEST_SKIP() << "network namespaces for the lldpd peers need root";
  if (!namespacesWork()) GTEST_SKIP() << "network namespaces cannot be made here (ip netns add refused)";
  fs::path const dir = fs::temp_directory_path() / ("lldp-interop-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::string const pcap = (dir / "peers.pcap").string(), cli = (dir / "lldpcli.json").string(),
                    live = (dir / "live.json").string();
  std::string const script = std::string(LLDP_SOURCE_DIR) + "/scripts/make-sample-capture.sh";
  std::string const log = run("LLDP_NEIGHBORS='" LLDP_NEIGHBORS_TOOL "' '" + script + "' '" + pcap + "' '" + cli + "' 2 '" +
                              live + "' 2>&1");
  ASSERT_TRUE(fs::exists(pcap)) << log;

  std::map<std::string, json> const ours = neighbours(tool("-r '" + pcap + "'"));
  EXPECT_EQ(ours.size(), 3u) << "sw-af, sw-at and pd-bt; host left with a TTL of 0";
  json const reported = json::parse(std::ifstream(cli), nullptr, false);
  ASSERT_TRUE(reported.is_object()) << "lldpcli gave no JSON";
  int compared = 0;
  for (json const& peer : reported["lldp"][0]["interface"]) {
    json const& chassis = peer["chassis"][0];
    json const& port = peer["port"][0];
    std::string const key = one(chassis, "id") + "|" + one(port, "id");
    SCOPED_TRACE("lldpcli's neighbour " + key);
    auto it = ours.find(key);
    ASSERT_NE(it, ours.end());
    json const& n = it->second;
    ++compared;
    for (auto [mine, theirs] : {std::pair{"sysName", "name"}, {"sysDesc", "descr"}}) EXPECT_EQ(n[mine], one(chassis, theirs));
    EXPECT_EQ(n["portDesc"], one(port, "descr"));
    EXPECT_EQ(std::to_string(n["ttl"].get<int>()), one(port, "ttl"));
    EXPECT_EQ(n["managementAddresses"][0]["address"], one(chassis, "mgmt-ip"));
    std::vector<std::string> supported, enabled;
    for (json const& c : chassis["capability"])
      for (auto const& [theirs, mine] : lldpcliCapabilities)
        if (c["type"] == theirs) {
          supported.push_back(mine);
          if (c["enabled"].get<bool>()) enabled.push_back(mine);
        }
    EXPECT_EQ(sorted(n["systemCapabilities"]["supported"]), sorted(supported));
    EXPECT_EQ(sorted(n["systemCapabilities"]["enabled"]), sorted(enabled));
    json const& an = port["auto-negotiation"][0];
    EXPECT_EQ(n["ieee8023"]["macPhyConfigStatus"]["autoNegSupported"], an["supported"]);
    EXPECT_EQ(n["ieee8023"]["macPhyConfigStatus"]["autoNegEnabled"], an["enabled"]);

    json const& power = port["power"][0];
    json const& p = n["ieee8023"]["powerViaMdi"];
    EXPECT_EQ(p["supported"], power["supported"]);
    EXPECT_EQ(p["enabled"], power["enabled"]);
    EXPECT_EQ(p["powerPairControllable"], power["paircontrol"]);
    // The decoded names beside the codes, as lldpcli names them (less spaces and case).
    auto plain = [](std::string s) {
      s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
      std::transform(s.begin(), s.end(), s.begin(), ::tolower);
      return s;
    };
    EXPECT_EQ(p["portClass"], plain(one(power, "device-type")));
    EXPECT_EQ(p["powerPairs"], one(power, "pairs"));
    EXPECT_EQ(p["powerClass"], plain(one(power, "class")));
    std::string const mau = one(port["auto-negotiation"][0], "current");
    EXPECT_EQ(n["ieee8023"]["macPhyConfigStatus"]["operMauType"], mau.substr(0, mau.find(' ')));
    if (p.contains("at")) {
      std::string const type = p["at"]["powerType"];
      EXPECT_EQ(type.substr(4, 1), one(power, "power-type"));  // type1Pse, type2Pd, ...
      EXPECT_EQ(p["at"]["powerPriority"], one(power, "priority"));
      EXPECT_DOUBLE_EQ(p["at"]["pdRequestedPower"].get<double>(), watts(power, "requested"));
      EXPECT_DOUBLE_EQ(p["at"]["pseAllocatedPower"].get<double>(), watts(power, "allocated"));
    }
    if (p.contains("bt")) {
      // lldpd names the power status codes its own way; the powers and the class agree.
      for (auto [mine, theirs] : {std::pair{"pdRequestedPowerModeA", "requested-a"}, {"pdRequestedPowerModeB", "requested-b"},
                                  {"pseAllocatedPowerAlternativeA", "allocated-a"},
                                  {"pseAllocatedPowerAlternativeB", "allocated-b"}, {"pseMaximumAvailablePower", "max-power"}})
        EXPECT_DOUBLE_EQ(p["bt"][mine].get<double>(), watts(power, theirs)) << mine;
      EXPECT_EQ("Class " + p["bt"]["powerClassExt"].get<std::string>().substr(13), one(power, "power-class-ext"));
    }

    for (json const& v : peer.value("vlan", json::array())) {
      json const* found = nullptr;
      for (json const& m : n["ieee8021"]["vlanNames"])
        if (std::to_string(m["vlanId"].get<int>()) == v["vlan-id"]) found = &m;
      ASSERT_TRUE(found) << "VLAN " << v["vlan-id"];
      EXPECT_EQ((*found)["name"], v["value"]);
      if (v["pvid"].get<bool>()) {
        EXPECT_EQ(std::to_string(n["ieee8021"]["portVlanId"].get<int>()), v["vlan-id"]);
      }
    }
    for (json const& v : peer.value("ppvid", json::array())) {
      json const& m = n["ieee8021"]["portAndProtocolVlans"][0];
      EXPECT_EQ(std::to_string(m["ppvid"].get<int>()), v["value"]);
      EXPECT_EQ(m["supported"], v["supported"]);
      EXPECT_EQ(m["enabled"], v["enabled"]);
    }
    for (json const& v : peer.value("pi", json::array())) EXPECT_EQ(n["ieee8021"]["protocolIdentities"][0]["protocolId"], v["value"]);

    if (peer.contains("lldp-med")) {
      json const& med = peer["lldp-med"][0];
      std::vector<std::string> caps;
      for (json const& c : med["capability"])
        for (auto const& [theirs, mine] : lldpcliMedCapabilities)
          if (c["type"] == theirs && c["available"].get<bool>()) caps.push_back(mine);
      EXPECT_EQ(sorted(n["lldpMed"]["capabilities"]["capability"]), sorted(caps));
      for (auto [mine, theirs] : {std::pair{"hardwareRevision", "hardware"}, {"softwareRevision", "software"},
                                  {"firmwareRevision", "firmware"}, {"serialNumber", "serial"},
                                  {"manufacturer", "manufacturer"}, {"modelName", "model"}, {"assetId", "asset"}})
        EXPECT_EQ(n["lldpMed"][mine], one(med["inventory"][0], theirs)) << mine;
      for (json const& pol : med.value("policy", json::array())) {
        // lldpcli: "Video Conferencing"; the tool: "videoConferencing".
        std::string app = pol["apptype"];
        app.erase(std::remove(app.begin(), app.end(), ' '), app.end());
        app[0] = static_cast<char>(std::tolower(app[0]));
        json const* mine = nullptr;
        for (json const& m : n["lldpMed"]["networkPolicies"])
          if (m["application"] == app) mine = &m;
        ASSERT_TRUE(mine) << "policy " << pol["apptype"];
        EXPECT_EQ((*mine)["unknownPolicy"], !pol["defined"].get<bool>());
        EXPECT_EQ(std::to_string((*mine)["cosValue"].get<int>()), one(pol, "pcp"));
        EXPECT_EQ(std::to_string((*mine)["dscpValue"].get<int>()), one(pol, "dscp"));
        if (pol.contains("vlan")) {
          EXPECT_EQ(std::to_string((*mine)["vlanId"].get<int>()), pol["vlan"][0].value("vid", ""));
        }
      }
      for (json const& loc : med.value("location", json::array())) {
        if (loc["type"] == "ELIN") {
          EXPECT_EQ(n["lldpMed"]["elin"], one(loc, "ecs"));
        }
        if (loc["type"] == "Coordinates") {
          std::string const lat = one(loc, "lat"), lon = one(loc, "lon");
          EXPECT_NEAR(n["lldpMed"]["coordinate"]["latitude"].get<double>(), std::stod(lat) * (lat.back() == 'S' ? -1 : 1), 1e-4);
          EXPECT_NEAR(n["lldpMed"]["coordinate"]["longitude"].get<double>(), std::stod(lon) * (lon.back() == 'W' ? -1 : 1), 1e-4);
          EXPECT_DOUBLE_EQ(n["lldpMed"]["coordinate"]["altitude"].get<double>(), std::stod(one(loc, "altitude")));
          EXPECT_EQ(n["lldpMed"]["coordinate"]["datum"], plain(loc.value("geoid", "")));
        }
        if (loc["type"] == "Civic address") {
          json const& civic = n["lldpMed"]["civicAddress"];
          EXPECT_EQ(civic["countryCode"], one(loc, "country"));
          for (auto const& [name, type] : civicTypes)
            if (loc.contains(name)) {
              json const* e = nullptr;
              for (json const& x : civic["elements"])
                if (x["caType"] == type) e = &x;
              ASSERT_TRUE(e) << name;
              EXPECT_EQ((*e)["caValue"], one(loc, name.c_str()));
            }
        }
      }
    }
    json const unknown = peer.contains("unknown-tlvs") ? peer["unknown-tlvs"][0].value("unknown-tlv", json::array()) : json::array();
    for (json const& u : unknown) {
      // lldpcli: "00,00,5E", "68,65,..."; the tool: "00-00-5e", "68 65 ...".
      auto norm = [](std::string s) {
        std::replace(s.begin(), s.end(), ',', ' ');
        std::replace(s.begin(), s.end(), '-', ' ');
        std::transform(s.begin(), s.end(), s.begin(), ::tolower);
        return s;
      };
      bool found = false;
      for (json const& m : n.value("unknownOrgDefTlvs", json::array()))
        found |= norm(m["oui"]) == norm(u["oui"]) && std::to_string(m["subtype"].get<int>()) == u["subtype"] &&
                 norm(m["info"]) == norm(u["value"]);
      // lldpd leaves the IEEE 802.1 management VID undecoded; it is not unknown here.
      if (u["oui"] == "00,80,C2" && u["subtype"] == "6")
        EXPECT_EQ(n["ieee8021"]["managementVid"].get<int>(), std::stoi(norm(u["value"]).substr(3), nullptr, 16));
      else
        EXPECT_TRUE(found) << "unknown TLV " << u.dump();
    }
  }
  EXPECT_EQ(compared, 3);

  // The tool capturing the same peers live reads the same neighbours.
  json const liveTree = json::parse(std::ifstream(live), nullptr, false);
  ASSERT_TRUE(liveTree.is_object()) << log;
  std::map<std::string, json> liveNeighbours = neighbours(liveTree);
  EXPECT_EQ(liveNeighbours.size(), ours.size());
  for (auto [key, n] : ours) {
    ASSERT_TRUE(liveNeighbours.count(key)) << key;
    json l = liveNeighbours[key];
    for (const char* t : {"index", "creationTime", "lastChangeTime", "lastRefreshTime", "expiryTime"}) {
      n.erase(t);
      l.erase(t);
    }
    EXPECT_EQ(l, n) << key;
  }
  fs::remove_all(dir);
}

}  // namespace
