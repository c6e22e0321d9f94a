// The neighbour tool read against independent readings of the same LLDP traffic, field by
// field: tshark's decode of every capture (the repository's sample, recorded from Debian's
// lldpd, and the captures of real devices in ../shared/captures), and, on traffic of live
// lldpd peers in network namespaces, what the receiving lldpd's own client reports
// (lldpcli, JSON) and what the tool captures live. Which field of theirs is which of ours,
// and how each reads, are tables in tests/data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Kel/TypeRegistry.h"
#include "Lldp/Dot3TestUtil.h"
#include "Tools/AgentTestUtil.h"

namespace {

using json = nlohmann::json;
namespace fs = std::filesystem;

using Dot3Test::run;
bool have(const char* tool) { return Dot3Test::haveTool(tool); }

json tool(std::string const& args) {
  return json::parse(run(std::string(LLDP_NEIGHBORS_TOOL) + " --json --no-rate-limit --max-neighbors 1000 " + args), nullptr, false);
}

// An identifier as both print it: MAC text, or hex without separators, or text. Our JSON
// has the bytes ({"hex": ...} when not UTF-8); tshark has hex where they are not printable.
std::string idKey(json const& v) {
  std::string s = v.is_object() ? v["hex"].get<std::string>() : v.get<std::string>();
  if (std::any_of(s.begin(), s.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f || c == '\\'; }))
    s = std::accumulate(s.begin(), s.end(), std::string(), [](std::string h, unsigned char c) {
      char b[4];
      std::snprintf(b, sizeof b, h.empty() ? "%02x" : " %02x", c);
      return h + b;
    });
  bool hexPairs = s.size() >= 2 && (s.size() + 1) % 3 == 0;
  for (std::size_t i = 0; hexPairs && i < s.size(); ++i) hexPairs = i % 3 == 2 ? s[i] == ' ' : std::isxdigit(s[i]);
  if (hexPairs) s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
  return s;
}
// The neighbours of the tool's JSON by "chassis|port".
std::map<std::string, json> neighbours(json const& tree) {
  std::map<std::string, json> out;
  if (tree.is_object())
    for (json const& port : tree["ports"])
      for (json const& n : port["neighbors"])
        out[idKey(n["chassisId"]) + "|" + idKey(n["portId"])] = n;
  return out;
}

// Every value at a path ("a/*/b": "*" walks a list).
void collect(json const& j, std::vector<std::string> const& path, std::size_t at, std::vector<json>& out) {
  if (at == path.size()) return out.push_back(j);
  if (path[at] == "*" && j.is_array()) {
    for (json const& e : j) collect(e, path, at + 1, out);
  } else if (j.is_object() && j.contains(path[at])) {
    collect(j[path[at]], path, at + 1, out);
  }
}
std::vector<json> values(json const& j, std::string const& path) {
  std::vector<std::string> parts;
  std::stringstream ss(path);
  for (std::string p; std::getline(ss, p, '/');)
    if (!p.empty()) parts.push_back(p);
  std::vector<json> out;
  collect(j, parts, 0, out);
  return out;
}

// A bit map's names of its bits, bit 0 first, from its descriptor.
std::vector<std::string> bitNames(const char* type) {
  std::vector<std::string> out;
  for (auto const& a : Kel::typeNode(type)->attrs()) out.emplace_back(a.name);
  return out;
}
// lldpcli's names of the system capabilities and of the LLDP-MED ones, bit 0 first.
std::vector<std::string> const lldpcliCaps = {"Other", "Repeater", "Bridge", "Wlan", "Router", "Tel", "Docsis", "Station"},
                               lldpcliMedCaps = {"Capabilities", "Policy", "Location", "MDI/PSE", "MDI/PD", "Inventory"};

// A value, ours or theirs, in the form both are compared in; "" leaves it out.
std::string as(std::string const& how, json const& v) {
  static std::vector<std::string> const caps = bitNames("Lldp::SystemCapabilitiesMap"),
                                        medCaps = bitNames("Lldp::MedCapabilitiesInfo::Capability");
  char b[64];
  auto bits = [&](auto const& names) {
    unsigned m = 0;
    for (json const& n : v)
      for (unsigned i = 0; i < std::size(names); ++i) m |= n == names[i] ? 1u << i : 0;
    return std::snprintf(b, sizeof b, "0x%04x", m), std::string(b);
  };
  // Lower case, "," and "-" as spaces, which go unless `spaces`.
  auto lower = [](std::string s, bool spaces) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return c == ',' || c == '-' ? ' ' : std::tolower(c); });
    if (!spaces) s.erase(std::remove(s.begin(), s.end(), ' '), s.end());
    return s;
  };
  std::string const s = v.is_string() ? v.get<std::string>() : "";
  if (how == "str") {  // JSON holds the bytes: UTF-8 as a string, anything else as {"hex": "..."}
    std::string t = s;
    if (v.is_object())
      for (std::size_t i = 0; i + 1 < v["hex"].get<std::string>().size(); i += 3)
        t += static_cast<char>(std::stoi(v["hex"].get<std::string>().substr(i, 2), nullptr, 16));
    return t.substr(0, t.find('\0'));
  }
  if (how == "esc") {  // tshark's text: its \xNN and C escapes undone, cut at the first NUL
    std::string t;
    for (std::size_t i = 0; i < s.size(); ++i) {
      char const c = i + 1 < s.size() && s[i] == '\\' ? s[i + 1] : 0;
      if (c == 'x' && i + 3 < s.size()) t += static_cast<char>(std::stoi(s.substr(i + 2, 2), nullptr, 16)), i += 3;
      else if (c == 'n' || c == 'r' || c == 't' || c == '\\') t += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : '\\', ++i;
      else t += s[i];
    }
    return t.substr(0, t.find('\0'));
  }
  if (how == "id") return idKey(s);
  if (how == "hex4") return v.is_string() ? s : (std::snprintf(b, sizeof b, "0x%04llx", v.get<long long>()), b);
  if (how == "dW" || how == "mW" || how == "raw25" || how == "raw8")
    return std::to_string(std::llround(v.get<double>() * (how == "dW" ? 10 : how == "mW" ? 1000 : how == "raw8" ? 256 : 33554432.0)));
  // Degrees (or metres) in units of 1e-4: lldpcli's text, "52.5199N", and our number, which
  // lldpcli shows cut (not rounded) to 4 decimals.
  if (how == "deg") return std::to_string(std::llround(std::stod(s) * (s.back() == 'S' || s.back() == 'W' ? -1e4 : 1e4)));
  if (how == "deg4") return std::to_string(static_cast<long long>(std::trunc(v.get<double>() * 1e4)));
  if (how == "caps") return bits(caps);
  if (how == "medcaps") return bits(medCaps);
  if (how == "priority") return std::to_string(std::stoul(s) & 3);  // tshark's field takes the 4PID bit too
  if (how == "lat34") {
    std::uint64_t const raw = std::stoull(s) & 0x3ffffffffull;
    return std::to_string(static_cast<std::int64_t>((raw ^ (1ull << 33)) - (1ull << 33)));
  }
  if (how == "plain") return lower(s, false);                  // "class 4", "class4": "class4"
  if (how == "word") return s.substr(0, s.find(' '));          // "10GbaseT - Four-pair ...": "10GbaseT"
  if (how == "digit") return s.substr(4, 1);                   // "type2Pd": "2"
  if (how == "classExt") return "Class " + s.substr(13);       // "powerClassExt8": "Class 8"
  if (how == "not") return v.get<bool>() ? "0" : "1";
  if (how == "tagged") return v["tagged"].get<bool>() ? std::to_string(v["vlanId"].get<int>()) : "";
  if (how == "name" || how == "enabled" || how == "available") {  // a capability if it is (enabled, available)
    std::string const t = v["type"];
    auto const sys = std::find(lldpcliCaps.begin(), lldpcliCaps.end(), t), med = std::find(lldpcliMedCaps.begin(), lldpcliMedCaps.end(), t);
    if (how != "name" && !v[how].get<bool>()) return "";
    return sys != lldpcliCaps.end() ? caps.at(sys - lldpcliCaps.begin()) : med != lldpcliMedCaps.end() ? medCaps.at(med - lldpcliMedCaps.begin()) : "? " + t;
  }
  if (how == "pvid") return v["pvid"].get<bool>() ? v["vlan-id"].get<std::string>() : "";
  if (how.rfind("ca", 0) == 0)  // "ca19": the value of a civic address element of CA type 19
    return v["caType"] == std::stoi(how.substr(2)) ? v["caValue"].get<std::string>() : "";
  if (how == "unknown" || how == "mvid") {  // lldpcli: "00,80,C2" "00,0A"; the tool: "00-80-c2" "00 0a"
    std::string const sub = v["subtype"].is_string() ? v["subtype"].get<std::string>() : std::to_string(v["subtype"].get<int>());
    std::string const oui = lower(v["oui"].get<std::string>(), true), info = lower(v.value("value", v.value("info", "")), true);
    // lldpd leaves the IEEE 802.1 management VID undecoded; it is not unknown here.
    bool const mvid = oui == "00 80 c2" && sub == "6";
    if (how == "mvid") return mvid ? std::to_string(std::stoi(info.substr(3), nullptr, 16)) : "";
    // ... and decodes the LLDP-MED extended power TLV, which is unknown to the tool.
    bool const medPower = oui == "00 12 bb" && sub == "4";
    return mvid || medPower ? "" : oui + "/" + sub + "/" + info;
  }
  if (v.is_boolean()) return v.get<bool>() ? "1" : "0";
  if (v.is_number_integer()) return std::to_string(v.get<long long>());
  return s;
}

// Which field of theirs is which of ours: their path, our path, how ours reads, how theirs.
struct FieldMap {
  std::string theirs, ours, how, theirHow;
};
std::vector<FieldMap> fieldMap(const char* file) {
  std::vector<FieldMap> rows;
  for (auto const& r : AgentTest::dataRows(std::string(LLDP_TEST_DATA_DIR) + "/" + file))
    rows.push_back({r.at(0), r.at(1), r.at(2), r.size() > 3 ? r[3] : ""});
  EXPECT_GT(rows.size(), 20u) << file;
  return rows;
}

// Compares one neighbour, field by field: their values and ours as multisets. Where they
// stopped at a malformed TLV (not `complete`), a field only one side has is left out.
int compare(std::vector<FieldMap> const& rows, json const& theirs, json const& ours, bool complete = true) {
  int agreed = 0;
  for (FieldMap const& m : rows) {
    std::vector<std::string> want, got;
    for (json const& v : values(theirs, m.theirs))
      if (std::string t = as(m.theirHow, v); !t.empty()) want.push_back(t);
    for (json const& v : values(ours, m.ours))
      if (std::string t = as(m.how, v); !t.empty()) got.push_back(t);
    if (!complete && (want.empty() || got.empty())) continue;
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, want) << m.theirs << " vs " << m.ours;
    agreed += got == want && !want.empty();
  }
  return agreed;
}

// ---- tshark

std::vector<FieldMap> const tsharkFields = fieldMap("tshark-fields.txt");

// Every neighbour of the tool's reading of `file` against tshark's reading of the
// neighbour's last frame; returns how many fields agreed.
int compareWithTshark(std::string const& file) {
  std::map<std::string, json> const table = neighbours(tool("-r '" + file + "'"));
  std::string cmd = "tshark -r '" + file + "' -Y lldp -T fields -E separator=/t -E occurrence=a -E 'aggregator=|'";
  std::vector<std::string> names = {"_ws.malformed", "lldp.chassis.id.mac", "lldp.chassis.id", "lldp.port.id.mac", "lldp.port.id"};
  for (FieldMap const& f : tsharkFields) names.push_back(f.theirs.substr(0, f.theirs.size() - 2));
  for (std::string const& n : names) cmd += " -e " + n;
  // tshark's frames as {field: [every occurrence]}, the last of each neighbour.
  std::map<std::string, json> last;
  std::stringstream out(run(cmd + " 2>/dev/null"));
  for (std::string line; std::getline(out, line);) {
    json f = json::object();
    std::stringstream cells(line);
    std::string cell;
    for (std::size_t i = 0; i < names.size() && std::getline(cells, cell, '\t'); ++i) {
      std::stringstream occurrences(cell);
      for (std::string v; !cell.empty() && std::getline(occurrences, v, '|');) f[names[i]].push_back(v);
    }
    auto id = [&](const char* mac, const char* other) { return f.contains(mac) ? f[mac][0].get<std::string>() : f.contains(other) ? idKey(f[other][0]) : ""; };
    last[id("lldp.chassis.id.mac", "lldp.chassis.id") + "|" + id("lldp.port.id.mac", "lldp.port.id")] = f;
  }
  EXPECT_FALSE(last.empty()) << "tshark read no LLDP frame from " << file;
  int agreed = 0;
  for (auto const& [key, frame] : last) {
    SCOPED_TRACE(file + ": neighbour " + key);
    auto it = table.find(key);
    if (frame.contains("lldp.time_to_live") && frame["lldp.time_to_live"][0] == "0") {
      EXPECT_EQ(it, table.end()) << "a neighbour that sent a TTL of 0 is still in the table";
    } else if (it == table.end()) {
      ADD_FAILURE() << "the tool has no such neighbour";
    } else {
      // tshark stops at a malformed TLV: only what both read is compared then.
      agreed += compare(tsharkFields, frame, it->second, !frame.contains("_ws.malformed"));
    }
  }
  return agreed;
}

TEST(InteropTest, CapturesReadAsTsharkReadsThem) {
  if (!have("tshark")) GTEST_SKIP() << "tshark is not installed (Debian package tshark; scripts/build.sh deps)";
  // Most fields of the table, over the sample's three neighbours: basic, management,
  // 802.1, 802.3 af/at/bt, MED.
  EXPECT_GT(compareWithTshark(std::string(LLDP_SOURCE_DIR) + "/tools/samples/lldpd-neighbours.pcap"), 120);
  fs::path const dir = LLDP_CAPTURES_DIR;
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no captures of real devices at " << dir;
  int files = 0;
  for (auto const& e : fs::directory_iterator(dir))
    if (e.path().extension() == ".pcap") compareWithTshark(e.path().string()), ++files;
  EXPECT_GT(files, 0) << "no .pcap in " << dir;
}

// ---- live peers

TEST(InteropTest, LivePeersReadAsLldpcliAndTsharkReadThem) {
  AgentTest::Lab lab({"ip", "lldpd", "lldpcli", "tcpdump", "tshark"});
  if (!lab.skip.empty()) GTEST_SKIP() << lab.skip;
  fs::path const dir = lab.work;
  std::string const pcap = (dir / "peers.pcap").string(), cli = (dir / "lldpcli.json").string(), live = (dir / "live.json").string();
  std::string const log = run("LLDP_NEIGHBORS='" LLDP_NEIGHBORS_TOOL "' '" LLDP_SOURCE_DIR "/scripts/make-sample-capture.sh' '" + pcap +
                              "' '" + cli + "' 2 '" + live + "' 2>&1");
  ASSERT_TRUE(fs::exists(pcap)) << log;

  std::map<std::string, json> const ours = neighbours(tool("-r '" + pcap + "'"));
  EXPECT_EQ(ours.size(), 3u) << "sw-af, sw-at and pd-bt; host left with a TTL of 0";
  json const reported = json::parse(std::ifstream(cli), nullptr, false);
  ASSERT_TRUE(reported.is_object()) << "lldpcli gave no JSON";
  std::vector<FieldMap> const rows = fieldMap("lldpcli-fields.txt");
  int compared = 0, agreed = 0;
  for (json const& peer : reported["lldp"][0]["interface"]) {
    std::string const key = peer["chassis"][0]["id"][0].value("value", "") + "|" + peer["port"][0]["id"][0].value("value", "");
    SCOPED_TRACE("lldpcli's neighbour " + key);
    auto it = ours.find(key);
    ASSERT_NE(it, ours.end());
    ++compared;
    agreed += compare(rows, peer, it->second);
  }
  EXPECT_EQ(compared, 3);
  EXPECT_GT(agreed, 90) << "fields that agreed, over the three neighbours";

  // The tool capturing the same peers live reads the same neighbours.
  json const liveTree = json::parse(std::ifstream(live), nullptr, false);
  ASSERT_TRUE(liveTree.is_object()) << log;
  std::map<std::string, json> liveNeighbours = neighbours(liveTree);
  EXPECT_EQ(liveNeighbours.size(), ours.size());
  for (auto [key, n] : ours) {
    ASSERT_TRUE(liveNeighbours.count(key)) << key;
    json l = liveNeighbours[key];
    for (const char* t : {"index", "creationTime", "lastChangeTime", "lastRefreshTime", "expiryTime"}) n.erase(t), l.erase(t);
    EXPECT_EQ(l, n) << key;
  }
}

}  // namespace
