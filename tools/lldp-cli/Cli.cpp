// lldp-cli: shows and configures a running lldp-agent through its sockets.
#include "tools/lldp-cli/Cli.h"

#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <pwd.h>

#include "tools/lldp-agent/ServiceProtocol.h"
#include "tools/lldp-cli/Client.h"
#include "tools/lldp-neighbors/Show.h"

namespace LldpCli {
namespace {

using json = nlohmann::ordered_json;

const char* const mainHelp =
    "Usage: lldp-cli [--socket-dir DIR] COMMAND...\n"
    "Shows and configures a running lldp-agent (DIR: its sockets, default\n"
    "$LLDP_AGENT_SOCKET_DIR, else /run/lldp-agent).\n"
    "  show neighbors [PORT] [--detail] [--json]   the neighbour tables\n"
    "  show interfaces [--json]                    the ports LLDP runs on\n"
    "  show statistics [PORT] [--json]             counters since the last clear\n"
    "  show configuration [--json]                 the operator's and the running values\n"
    "  show local [--json]                         what the agent advertises\n"
    "  watch neighbors [PORT]                      neighbour changes as they happen\n"
    "  configure SETTING...                        see 'lldp-cli configure --help'\n"
    "  clear neighbors                             empties the neighbour tables\n"
    "  clear counters [PORT]                       counters start again from 0\n"
    "'lldp-cli COMMAND --help' describes one command. Configuring and clearing need root or\n"
    "the agent's --config-group. 'lldp-cli --version' prints the version.\n";

struct Help {
  const char* words;
  const char* text;
};
const Help helps[] = {
    {"show neighbors",
     "Usage: lldp-cli show neighbors [PORT] [--detail] [--json]\n"
     "The neighbours the agent learned, one line each (--detail: every field; --json).\n"},
    {"show interfaces", "Usage: lldp-cli show interfaces [--json]\nEach port: admin status, port ID, description, neighbours, frames.\n"},
    {"show statistics",
     "Usage: lldp-cli show statistics [PORT] [--json]\n"
     "Each port's counters since its last 'clear counters', and the neighbour table counters.\n"},
    {"show configuration",
     "Usage: lldp-cli show configuration [--json]\n"
     "The operator's configuration (timers, TLVs, ports) and the running values derived from it.\n"},
    {"show local", "Usage: lldp-cli show local [--json]\nThe local system and ports as the agent advertises them.\n"},
    {"watch neighbors",
     "Usage: lldp-cli watch neighbors [PORT]\n"
     "The neighbour table, then one line per neighbour added, changed or removed, until\n"
     "interrupted.\n"},
    {"configure",
     "Usage: lldp-cli configure SETTING...\n"
     "Settings (several may follow one another and apply together):\n"
     "  tx-interval SECONDS        1..32768\n"
     "  hold-time SECONDS          3..65535 (the TTL sent is this + 1)\n"
     "  reinit-delay SECONDS       1..10\n"
     "  tlv NAME on|off            NAME: port-description, system-name, system-description,\n"
     "                             system-capabilities, management-address, port-vlan,\n"
     "                             link-aggregation, max-frame-size, power-via-mdi,\n"
     "                             med-network-policy\n"
     "  port PORT admin-status tx|rx|txrx|disabled\n"
     "  port PORT poe fallback WATTS|off   the power advertised on an unpowered port\n"
     "The agent checks the values; a refused one changes nothing.\n"},
    {"clear neighbors", "Usage: lldp-cli clear neighbors\nEmpties every port's neighbour table.\n"},
    {"clear counters", "Usage: lldp-cli clear counters [PORT]\nThe port's (or every port's) counters start again from 0.\n"},
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string str(Kel::String const& s) { return LldpNeighbors::displayText(s.view()); }

std::uint32_t number(std::string const& text, std::string const& what) {
  char* end = nullptr;
  errno = 0;
  unsigned long long v = std::strtoull(text.c_str(), &end, 10);
  if (text.empty() || *end || !std::isdigit(static_cast<unsigned char>(text[0])))
    throw UsageError(what + ": '" + text + "' is not a number");
  // Too large for the model: the agent answers with the setting's real range.
  return errno || v > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(v);
}

// The model's range message in this command line's words, the model's own kept after it.
std::string operatorWords(std::string const& message) {
  static std::pair<std::string, const char*> const names[] = {{"CliConfig::messageTxInterval", "tx-interval"},
                                                              {"CliConfig::messageTxHoldTime", "hold-time"},
                                                              {"CliConfig::reinitDelay", "reinit-delay"}};
  unsigned long lo = 0, hi = 0;
  for (auto const& [model, words] : names)
    if (message.rfind(model + " <", 0) == 0 &&
        std::sscanf(message.c_str() + model.size(), " < %lu or > %lu not allowed", &lo, &hi) == 2)
      return std::string(words) + ": out of range " + std::to_string(lo) + ".." + std::to_string(hi) + " (" + message + ")";
  return message;
}

// On purpose not the bit map's names: the words lldp-agent's configuration file takes for
// bits 0 to 7, and names for the next three, which the bit map leaves unused.
const char* const capNames[] = {"other",  "repeater", "bridge",  "wlan", "router", "telephone",
                                "docsis", "station",  "c-vlan",  "s-vlan", "tpmr"};
json caps(std::uint32_t v) {
  json a = json::array();
  for (std::size_t i = 0; i < std::size(capNames); ++i)
    if (v >> i & 1u) a.push_back(capNames[i]);
  return a;
}

std::string adminText(Lldp::AdminStatus s) {
  switch (s) {
    case Lldp::txOnly: return "tx";
    case Lldp::rxOnly: return "rx";
    case Lldp::txAndRx: return "txrx";
    case Lldp::disabled: return "disabled";
    default: return "unknown";
  }
}

std::string timeText(double t) {
  if (t <= 0) return "never";
  std::time_t s = static_cast<std::time_t>(t);
  std::tm tm{};
  ::gmtime_r(&s, &tm);
  char b[32];
  std::strftime(b, sizeof b, "%Y-%m-%d %H:%M:%S UTC", &tm);
  return b;
}

std::vector<Platform::IntfId> sortedKeys(std::vector<Platform::IntfId> v) {
  std::sort(v.begin(), v.end());
  return v;
}

// ---- rendering: a table, or an object as "key: value" lines

std::string table(std::vector<std::vector<std::string>> const& rows) {
  std::vector<std::size_t> w;
  for (auto const& r : rows)
    for (std::size_t i = 0; i < r.size(); ++i) {
      if (w.size() <= i) w.push_back(0);
      w[i] = std::max(w[i], r[i].size());
    }
  std::string out;
  for (auto const& r : rows) {
    std::string line;
    for (std::size_t i = 0; i < r.size(); ++i) line += r[i] + (i + 1 < r.size() ? std::string(w[i] - r[i].size() + 2, ' ') : "");
    out += line + "\n";
  }
  return out;
}

void lines(json const& j, std::string const& indent, std::string& out) {
  for (auto const& [k, v] : j.items()) {
    if (v.is_object()) {
      out += indent + k + ":\n";
      lines(v, indent + "  ", out);
    } else if (v.is_array() && !v.empty() && v.front().is_object()) {
      out += indent + k + ":\n";
      for (auto const& e : v) {
        out += indent + "  -\n";
        lines(e, indent + "    ", out);
      }
    } else if (v.is_array()) {
      std::string all;
      for (auto const& e : v) all += (all.empty() ? "" : ", ") + (e.is_string() ? e.get<std::string>() : e.dump());
      out += indent + k + ": " + (all.empty() ? "none" : all) + "\n";
    } else {
      out += indent + k + ": " + (v.is_string() ? v.get<std::string>() : v.dump()) + "\n";
    }
  }
}

// ---- the shows

struct Args {
  std::string dir = LldpService::defaultSocketDir;
  std::vector<std::string> words;
  bool json = false, detail = false, help = false, version = false;
};

std::string showNeighbors(Mirror const& m, std::string const& port, Args const& a) {
  LldpNeighbors::Field f = LldpNeighbors::describe(*m.status());
  if (!port.empty()) {
    if (!m.status()->portStatus(Platform::IntfId(Kel::String(port)))) throw ClientError("no port '" + port + "'");
    for (auto& c : f.children)
      if (c.key == "ports")
        c.children.erase(std::remove_if(c.children.begin(), c.children.end(),
                                        [&](LldpNeighbors::Field const& p) {
                                          auto const* id = p.child("intfId");
                                          return !id || id->value != port;
                                        }),
                         c.children.end());
  }
  return a.json ? LldpNeighbors::renderJson(f) : a.detail ? LldpNeighbors::renderDetail(f) : LldpNeighbors::renderTable(f);
}

std::string showInterfaces(Mirror const& m, Args const& a) {
  json ports = json::array();
  std::vector<std::vector<std::string>> rows = {{"Port", "Admin", "Port ID", "Description", "Neighbours", "Tx", "Rx"}};
  auto sys = m.localSystem();
  for (auto const& k : sortedKeys(sys->localPort().keys())) {
    auto const& lp = *sys->localPort(k);
    auto pc = m.config()->portConfig(k);
    auto ps = m.status()->portStatus(k);
    json p = {{"port", str(k.stringValue())},
              {"adminStatus", pc ? adminText(pc->adminStatus()) : "unknown"},
              {"portId", lp.portIdentifier().stringValue(Lldp::colon, false).stdString()},
              {"description", str(lp.portDesc().value())},
              {"neighbours", ps ? ps->remoteSystem().size() : 0},
              {"txFrames", ps ? ps->txFramesTotal() : 0},
              {"rxFrames", ps ? ps->rxFramesTotal() : 0}};
    rows.push_back({p["port"], p["adminStatus"], p["portId"], p["description"], std::to_string(p["neighbours"].get<std::size_t>()),
                    std::to_string(p["txFrames"].get<std::uint32_t>()), std::to_string(p["rxFrames"].get<std::uint32_t>())});
    ports.push_back(std::move(p));
  }
  return a.json ? json{{"interfaces", ports}}.dump(2) + "\n" : table(rows);
}

std::string showStatistics(Mirror const& m, std::string const& port, Args const& a) {
  auto const& st = *m.status();
  auto cp = m.checkpoint();
  json ports = json::array();
  std::vector<std::vector<std::string>> rows = {
      {"Port", "Tx", "Tx too long", "Rx", "Rx discarded", "Rx errors", "TLVs discarded", "TLVs unknown", "Aged out", "Since"}};
  if (!port.empty() && !st.portStatus(Platform::IntfId(Kel::String(port)))) throw ClientError("no port '" + port + "'");
  for (auto const& k : sortedKeys(st.portStatus().keys())) {
    if (!port.empty() && str(k.stringValue()) != port) continue;
    auto const& ps = *st.portStatus(k);
    Lldp::PortCounterCheckpoint const* c = cp ? cp->portCounterCheckpoint(k) : nullptr;
    Lldp::PortCounterCheckpoint const zero;
    if (!c) c = &zero;
    // Counters wrap at 2^32: the difference does too.
    json p = {{"port", str(k.stringValue())},
              {"txFramesTotal", ps.txFramesTotal() - c->txFramesTotal()},
              {"txFramesLengthExceeded", ps.txFramesLengthExceeded() - c->txFramesLengthExceeded()},
              {"rxFramesTotal", ps.rxFramesTotal() - c->rxFramesTotal()},
              {"rxFramesDiscardedTotal", ps.rxFramesDiscardedTotal() - c->rxFramesDiscardedTotal()},
              {"rxFramesErrors", ps.rxFramesErrors() - c->rxFramesErrors()},
              {"rxTLVsDiscardedTotal", ps.rxTLVsDiscardedTotal() - c->rxTLVsDiscardedTotal()},
              {"rxTLVsUnrecognizedTotal", ps.rxTLVsUnrecognizedTotal() - c->rxTLVsUnrecognizedTotal()},
              {"rxAgeoutsTotal", ps.rxAgeoutsTotal()},
              {"since", c->timestamp() > 0 ? timeText(c->timestamp()) : timeText(ps.creationTime())}};
    std::vector<std::string> row;
    for (auto const& [key, v] : p.items()) row.push_back(v.is_string() ? v.get<std::string>() : v.dump());
    rows.push_back(row);
    ports.push_back(std::move(p));
  }
  json tables = {{"inserts", st.remTablesInserts()},
                 {"deletes", st.remTablesDeletes()},
                 {"drops", st.remTablesDrops()},
                 {"ageouts", st.remTablesAgeouts()},
                 {"lastChange", timeText(st.remTablesLastChangeTime())},
                 {"lastCleared", timeText(m.remTablesStatus() ? m.remTablesStatus()->remTablesLastClearTime() : 0)}};
  if (a.json) return json{{"ports", ports}, {"tables", tables}}.dump(2) + "\n";
  std::string out = table(rows);
  out += "Tables: " + tables["inserts"].dump() + " inserts, " + tables["deletes"].dump() + " deletes, " + tables["drops"].dump() +
         " drops, " + tables["ageouts"].dump() + " ageouts; last change " + tables["lastChange"].get<std::string>() +
         ", last cleared " + tables["lastCleared"].get<std::string>() + "\n";
  return out;
}

struct TlvFlag {
  const char* name;
  bool (Lldp::CliConfig::*get)() const;
  void (Lldp::CliConfig::*set)(bool);
};
const TlvFlag tlvFlags[] = {
    {"port-description", &Lldp::CliConfig::portDescTlvEnabled, &Lldp::CliConfig::portDescTlvEnabledIs},
    {"system-name", &Lldp::CliConfig::sysNameTlvEnabled, &Lldp::CliConfig::sysNameTlvEnabledIs},
    {"system-description", &Lldp::CliConfig::sysDescTlvEnabled, &Lldp::CliConfig::sysDescTlvEnabledIs},
    {"system-capabilities", &Lldp::CliConfig::sysCapTlvEnabled, &Lldp::CliConfig::sysCapTlvEnabledIs},
    {"management-address", &Lldp::CliConfig::mgmtAddrTlvEnabled, &Lldp::CliConfig::mgmtAddrTlvEnabledIs},
    {"port-vlan", &Lldp::CliConfig::portVlanIdTlvEnabled, &Lldp::CliConfig::portVlanIdTlvEnabledIs},
    {"link-aggregation", &Lldp::CliConfig::linkAggregationTlvEnabled, &Lldp::CliConfig::linkAggregationTlvEnabledIs},
    {"max-frame-size", &Lldp::CliConfig::maxFrameSizeTlvEnabled, &Lldp::CliConfig::maxFrameSizeTlvEnabledIs},
    {"power-via-mdi", &Lldp::CliConfig::powerViaMdiTlvEnabled, &Lldp::CliConfig::powerViaMdiTlvEnabledIs},
    {"med-network-policy", &Lldp::CliConfig::medNetworkPolicyTlvEnabled, &Lldp::CliConfig::medNetworkPolicyTlvEnabledIs},
};

std::string fallbackText(std::uint32_t deciwatts) {
  if (deciwatts == 0) return "off";
  if (deciwatts == UINT32_MAX) return "max";
  char b[32];
  std::snprintf(b, sizeof b, "%.1f W", deciwatts / 10.0);
  return b;
}

// The words lldp-agent's configuration file takes for the mode.
std::string mgmtModeText(Lldp::MgmtAddrTxOption const& o) {
  switch (o.mgmtAddrTxMode()) {
    case Lldp::mgmtAddrTxModeBest: return "best";
    case Lldp::mgmtAddrTxModeAll: return "all";
    case Lldp::mgmtAddrTxModeIntfName: return "interface " + str(o.intfName());
    default: return "unknown";
  }
}

std::string showConfiguration(Mirror const& m, Args const& a) {
  auto const& cli = *m.cliConfig();
  auto const& cfg = *m.config();
  json tlvs = json::object();
  for (auto const& f : tlvFlags) tlvs[f.name] = (cli.*f.get)() ? "on" : "off";
  json ports = json::array();
  for (auto const& k : sortedKeys(cfg.portConfig().keys())) {
    auto const& pc = *cfg.portConfig(k);
    ports.push_back({{"port", str(k.stringValue())},
                     {"adminStatus", adminText(pc.adminStatus())},
                     {"poeFallback", fallbackText(pc.poeAllocatedPowerFallback())}});
  }
  json j = {{"enabled", cli.enabled()},
            {"txInterval", cli.messageTxInterval()},
            {"holdTime", cli.messageTxHoldTime()},
            {"reinitDelay", cli.reinitDelay()},
            {"managementAddress", mgmtModeText(cli.mgmtAddrTxOption())},
            {"managementVrf", str(cli.mgmtAddrVrf().stringValue())},
            {"tlvs", tlvs},
            {"running", {{"txInterval", cfg.messageTxInterval()},
                         {"holdTime", cfg.messageTxHoldTime()},
                         {"holdMultiplier", cfg.messageTxInterval() ? cfg.messageTxHoldMultiplier() : 0},
                         {"reinitDelay", cfg.reinitDelay()},
                         {"txDelay", cfg.txDelay()},
                         {"maxTxFrameSize", cfg.maxTxFrameSize()}}},
            {"ports", ports}};
  if (a.json) return j.dump(2) + "\n";
  std::string out;
  lines(j, "", out);
  return out;
}

std::string showLocal(Mirror const& m, Args const& a) {
  auto const& s = *m.localSystem();
  json addrs = json::array();
  for (auto it = s.managementAddressPrio().begin(); it; ++it) addrs.push_back((*it).stringValue().stdString());
  json ports = json::array();
  for (auto const& k : sortedKeys(s.localPort().keys())) {
    auto const& lp = *s.localPort(k);
    ports.push_back({{"port", str(k.stringValue())},
                     {"portId", lp.portIdentifier().stringValue(Lldp::colon, false).stdString()},
                     {"description", str(lp.portDesc().value())},
                     {"vlan", lp.portVlanId().value()},
                     {"maxFrameSize", lp.maximumFrameSizeInfo().maxFrameSize()}});
  }
  json j = {{"chassisId", s.chassisIdentifier().stringValue(Lldp::colon, false).stdString()},
            {"systemName", str(s.sysName().value())},
            {"systemDescription", str(s.sysDesc().value())},
            {"capabilities", caps(s.sysCapSupported().value())},
            {"enabledCapabilities", caps(s.sysCapEnabled().value())},
            {"managementAddresses", addrs},
            {"ports", ports}};
  if (a.json) return j.dump(2) + "\n";
  std::string out;
  lines(j, "", out);
  return out;
}

// ---- watch

std::map<std::string, std::string> neighbourLines(Lldp::Status const& st, std::string const& port) {
  std::map<std::string, std::string> out;
  for (auto const& k : st.portStatus().keys()) {
    if (!port.empty() && str(k.stringValue()) != port) continue;
    auto const& ps = *st.portStatus(k);
    for (auto it = ps.remoteSystem().begin(); it; ++it) {
      auto const& r = *it;
      std::string const key = str(k.stringValue()) + " " + std::to_string(it.key());
      out[key] = str(k.stringValue()) + "  " + str(r.msap().chassisIdentifier().stringValue(Lldp::colon, false)) + "  " +
                 str(r.msap().portIdentifier().stringValue(Lldp::colon, false)) + "  ttl " + std::to_string(r.ttl()) +
                 (r.sysName().isSet() ? "  " + str(r.sysName().value().value()) : "");
    }
  }
  return out;
}

volatile sig_atomic_t interrupted = 0;
extern "C" void onInterrupt(int) { interrupted = 1; }

int watch(Mirror& m, std::string const& port) {
  std::fputs(LldpNeighbors::renderTable(LldpNeighbors::describe(*m.status())).c_str(), stdout);
  std::fflush(stdout);
  struct sigaction sa {};
  sa.sa_handler = onInterrupt;
  ::sigaction(SIGINT, &sa, nullptr);
  ::sigaction(SIGTERM, &sa, nullptr);
  auto before = neighbourLines(*m.status(), port);
  while (!interrupted) {
    if (!m.poll(500)) {
      std::fprintf(stderr, "lldp-cli: lldp-agent went away\n");
      return 1;
    }
    auto now = neighbourLines(*m.status(), port);
    auto stamp = [] {
      std::time_t t = std::time(nullptr);
      std::tm tm{};
      ::localtime_r(&t, &tm);
      char b[16];
      std::strftime(b, sizeof b, "%H:%M:%S", &tm);
      return std::string(b);
    }();
    for (auto const& [k, v] : before) {
      auto it = now.find(k);
      if (it == now.end())
        std::printf("%s removed  %s\n", stamp.c_str(), v.c_str());
      else if (it->second != v)
        std::printf("%s changed  %s\n", stamp.c_str(), it->second.c_str());
    }
    for (auto const& [k, v] : now)
      if (!before.count(k)) std::printf("%s added    %s\n", stamp.c_str(), v.c_str());
    std::fflush(stdout);
    before = std::move(now);
  }
  return 0;
}

// ---- configure and clear

std::string const& take(std::vector<std::string> const& w, std::size_t& i, std::string const& what) {
  if (i >= w.size()) throw UsageError("configure: " + what + " needs a value");
  return w[i++];
}

// Applies the settings to the operator's configuration as the client holds it. A value
// the model refuses stays set (it stores first): the agent refuses it with the model's
// own message. Without a mirror only the words are checked, so that a typing error is
// told before the agent is reached.
void configure(Lldp::CliConfig& cli, Mirror const* m, std::vector<std::string> const& w) {
  if (w.size() < 2) throw UsageError("configure: no setting (see 'lldp-cli configure --help')");
  auto refusedLater = [](auto&& set) {
    try {
      set();
    } catch (Kel::RangeException const&) {
    }
  };
  for (std::size_t i = 1; i < w.size();) {
    std::string const& s = w[i++];
    if (s == "tx-interval") {
      std::uint32_t v = number(take(w, i, s), s);
      refusedLater([&] { cli.messageTxIntervalIs(v); });
    } else if (s == "hold-time") {
      std::uint32_t v = number(take(w, i, s), s);
      refusedLater([&] { cli.messageTxHoldTimeIs(v); });
    } else if (s == "reinit-delay") {
      std::uint32_t v = number(take(w, i, s), s);
      refusedLater([&] { cli.reinitDelayIs(v); });
    } else if (s == "tlv") {
      std::string const& name = take(w, i, s);
      std::string const& on = take(w, i, "tlv " + name);
      if (on != "on" && on != "off") throw UsageError("configure tlv " + name + ": 'on' or 'off', not '" + on + "'");
      auto f = std::find_if(std::begin(tlvFlags), std::end(tlvFlags), [&](TlvFlag const& t) { return name == t.name; });
      if (f == std::end(tlvFlags)) throw UsageError("configure tlv: no TLV '" + name + "' (see 'lldp-cli configure --help')");
      (cli.*f->set)(on == "on");
    } else if (s == "port") {
      std::string const& name = take(w, i, s);
      if (name.empty()) throw UsageError("configure port: a port name cannot be empty");
      Platform::IntfId const id{Kel::String(name)};
      if (m && !m->config()->portConfig(id)) throw ClientError("no port '" + name + "'");
      auto p = cli.portConfigIs(id);
      std::string const& what = take(w, i, "port " + name);
      if (what == "admin-status") {
        std::string const& v = take(w, i, "admin-status");
        static const std::map<std::string, Lldp::AdminStatus> names = {
            {"tx", Lldp::txOnly}, {"rx", Lldp::rxOnly}, {"txrx", Lldp::txAndRx}, {"disabled", Lldp::disabled}};
        auto it = names.find(v);
        if (it == names.end()) throw UsageError("configure port " + name + " admin-status: tx, rx, txrx or disabled, not '" + v + "'");
        p->adminStatusIs(it->second);
      } else if (what == "poe") {
        if (take(w, i, "poe") != "fallback") throw UsageError("configure port " + name + " poe: only 'fallback WATTS' is known");
        std::string const& v = take(w, i, "poe fallback");
        if (v == "off") {
          p->poeAllocatedPowerFallbackIs(0);
        } else {
          char* end = nullptr;
          double watts = std::strtod(v.c_str(), &end);
          if (v.empty() || *end || v.find_first_not_of("0123456789.") != std::string::npos || !(watts >= 0 && watts <= 6553.5))
            throw UsageError("configure port " + name + " poe fallback: watts 0..6553.5 or 'off', not '" + v + "'");
          p->poeAllocatedPowerFallbackIs(static_cast<std::uint32_t>(std::lround(watts * 10)));
        }
      } else {
        throw UsageError("configure port " + name + ": admin-status or poe, not '" + what + "'");
      }
    } else {
      throw UsageError("configure: no setting '" + s + "' (see 'lldp-cli configure --help')");
    }
  }
}

std::string whoAmI() {
  passwd const* pw = ::getpwuid(::getuid());
  return pw ? pw->pw_name : "uid " + std::to_string(::getuid());
}

double wallClock() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

Args parse(int argc, char** argv) {
  Args a;
  if (char const* d = std::getenv("LLDP_AGENT_SOCKET_DIR"); d && *d) a.dir = d;
  // Long options may be abbreviated to any prefix that names one of them, as getopt allows.
  static option const longs[] = {{"socket-dir", required_argument, nullptr, 0},
                                 {"json", no_argument, nullptr, 0},
                                 {"detail", no_argument, nullptr, 0},
                                 {"help", no_argument, nullptr, 0},
                                 {"version", no_argument, nullptr, 0},
                                 {nullptr, 0, nullptr, 0}};
  for (int i = 1; i < argc; ++i) {
    std::string const s = argv[i];
    if (s == "-h") {
      a.help = true;
      continue;
    }
    if (s == "--") {  // the rest are words, even those that start with '-'
      a.words.insert(a.words.end(), argv + i + 1, argv + argc);
      break;
    }
    if (!s.starts_with("--")) {
      if (s.size() > 1 && s[0] == '-' && !std::isdigit(static_cast<unsigned char>(s[1])))
        throw UsageError("unknown option '" + s + "'");
      a.words.push_back(s);
      continue;
    }
    std::size_t const eq = s.find('=');
    std::string const given = s.substr(0, eq), name = given.substr(2);
    std::string ambiguous;
    option const* const o = LldpRx::longOption(name, longs, ambiguous);
    if (!o && !ambiguous.empty()) throw UsageError("option '" + given + "' is ambiguous (" + ambiguous + ")");
    if (!o) throw UsageError("unknown option '" + given + "'");
    std::string_view const chosen = o->name;
    if (chosen == "socket-dir") {
      if (eq != std::string::npos) {
        a.dir = s.substr(eq + 1);
      } else {
        if (++i >= argc) throw UsageError("--socket-dir needs a directory");
        a.dir = argv[i];
      }
      // Unlike the agent's, where '' means no sockets, a client needs somewhere to go.
      if (a.dir.empty()) throw UsageError("--socket-dir needs a directory");
      continue;
    }
    if (eq != std::string::npos) throw UsageError("option '" + given + "' takes no value");
    if (chosen == "json") a.json = true;
    if (chosen == "detail") a.detail = true;
    if (chosen == "help") a.help = true;
    if (chosen == "version") a.version = true;
  }
  return a;
}

// The command's words ("show neighbors"), checked.
std::string command(Args const& a) {
  auto const& w = a.words;
  if (w.empty()) throw UsageError("no command");
  std::string const head = w[0];
  auto known = [](std::string const& c) {
    return std::any_of(std::begin(helps), std::end(helps), [&](Help const& h) { return c == h.words; });
  };
  if (head == "configure") return head;
  if (head == "show" || head == "watch" || head == "clear") {
    if (w.size() < 2) throw UsageError(head + ": what? (see 'lldp-cli --help')");
    std::string c = head + " " + w[1];
    if (!known(c)) throw UsageError(head + ": unknown '" + w[1] + "' (see 'lldp-cli --help')");
    return c;
  }
  throw UsageError("unknown command '" + head + "' (see 'lldp-cli --help')");
}

int run(Args const& a, std::string const& cmd) {
  auto const& w = a.words;
  bool const takesPort = cmd == "show neighbors" || cmd == "show statistics" || cmd == "watch neighbors" || cmd == "clear counters";
  if (cmd != "configure" && w.size() > (takesPort ? 3u : 2u)) throw UsageError(cmd + ": too many arguments");
  if ((a.json && cmd != "show neighbors" && cmd.rfind("show", 0) != 0) || (a.detail && cmd != "show neighbors"))
    throw UsageError(cmd + ": " + (a.json ? "--json" : "--detail") + " does not apply");
  // As lldp-neighbors has it.
  if (a.json && a.detail) throw UsageError("--detail is for the text output: --json always has every field");
  std::string const port = takesPort && w.size() == 3 ? w[2] : "";
  // No port has an empty name: an empty word must not widen the command to every port.
  if (takesPort && w.size() == 3 && port.empty()) throw UsageError("a port name cannot be empty");
  if (cmd == "configure") configure(*Lldp::cliConfigFactory("lldp-cli"), nullptr, w);
  Mirror m(a.dir);
  m.sync(10);
  if (!m.status() || !m.config() || !m.localSystem() || !m.cliConfig())
    throw ClientError("the agent's stream lacks its trees" + (m.damage().empty() ? "" : ": " + m.damage()));
  std::string out;
  if (cmd == "show neighbors") out = showNeighbors(m, port, a);
  if (cmd == "show interfaces") out = showInterfaces(m, a);
  if (cmd == "show statistics") out = showStatistics(m, port, a);
  if (cmd == "show configuration") out = showConfiguration(m, a);
  if (cmd == "show local") out = showLocal(m, a);
  if (cmd == "watch neighbors") {
    if (!port.empty() && !m.status()->portStatus(Platform::IntfId(Kel::String(port)))) throw ClientError("no port '" + port + "'");
    return watch(m, port);
  }
  std::vector<Kel::Ptr<Kel::Entity>> req;
  if (cmd == "configure") {
    // The operator's configuration as the agent holds it, with the settings applied.
    auto cli = Lldp::cliConfigFactory("lldp-cli");
    LldpService::copyCliConfig(*m.cliConfig(), *cli);
    configure(*cli, &m, w);
    req.push_back(cli);
  }
  if (cmd == "clear neighbors") {
    auto r = Lldp::remTablesCliConfigFactory("lldp-cli");
    Lldp::ClearRequest c;
    c.timestampIs(wallClock());
    c.whoIs(Kel::String(whoAmI()));
    c.whereIs(Kel::String("lldp-cli"));
    r->remTablesClearRequestIs(c);
    req.push_back(r);
  }
  if (cmd == "clear counters") {
    auto c = Lldp::counterCheckpointFactory("lldp-cli");
    if (!port.empty()) {
      Platform::IntfId const id{Kel::String(port)};
      if (!m.status()->portStatus(id)) throw ClientError("no port '" + port + "'");
      c->portCounterCheckpointIs(id, Lldp::PortCounterCheckpoint());
    }
    req.push_back(c);
  }
  if (!req.empty()) {
    std::string const why = request(a.dir, req);
    if (!why.empty()) throw ClientError(operatorWords(why));
  }
  std::fputs(out.c_str(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Args const a = parse(argc, argv);
    if (a.version) {
      std::puts("lldp-cli " LLDP_VERSION);
      return 0;
    }
    if (a.help && a.words.empty()) {
      std::fputs(mainHelp, stdout);
      return 0;
    }
    // "show --help": every show command's help.
    if (a.help && a.words.size() == 1) {
      bool any = false;
      for (auto const& h : helps)
        if (std::string_view(h.words).starts_with(a.words[0] + " ")) std::fputs(h.text, stdout), any = true;
      if (any) return 0;
    }
    std::string const cmd = command(a);
    if (a.help) {
      for (auto const& h : helps)
        if (cmd == h.words) std::fputs(h.text, stdout);
      return 0;
    }
    return run(a, cmd);
  } catch (std::exception const& e) {
    // The agent's answer and the operator's words may hold bytes a terminal would act on.
    bool const usageError = dynamic_cast<UsageError const*>(&e) != nullptr;
    std::string const what = e.what();
    // Every refusal of the command line points at the help, as the other tools' do.
    char const* const hint = usageError && what.find("(see '") == std::string::npos ? " (see 'lldp-cli --help')" : "";
    std::fprintf(stderr, "lldp-cli: %s%s\n", LldpNeighbors::displayText(what, false).c_str(), hint);
    return usageError ? 2 : 1;
  }
}

}  // namespace LldpCli
