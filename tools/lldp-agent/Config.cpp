#include "tools/lldp-agent/Config.h"

#include <sys/stat.h>

#include <arpa/inet.h>
#include <net/if.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fnmatch.h>

#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <toml++/toml.h>

#include "Kel/Exception.h"

namespace LldpAgent {
namespace {

// A limit as a person writes it: 6553.5, not 6553.500000.
std::string plain(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

// One table of the file: typed reads that name file, line and key on a mistake, and a
// check that nothing else is in it.
class Table {
 public:
  Table(toml::table const& t, std::string path, std::string const& file) : t_(t), path_(std::move(path)), file_(file) {}

  [[noreturn]] void fail(toml::node const& n, std::string const& key, std::string const& what) const {
    auto const& b = n.source().begin;
    throw ConfigError(file_ + ":" + std::to_string(b.line) + ":" + std::to_string(b.column) + ": " + name(key) + ": " + what);
  }
  std::string name(std::string const& key) const { return path_.empty() ? key : path_ + "." + key; }
  std::string where() const {
    auto const& b = t_.source().begin;
    return file_ + ":" + std::to_string(b.line) + ":" + std::to_string(b.column);
  }

  toml::node const* get(std::string const& key) {
    seen_.insert(key);
    return t_.get(key);
  }
  std::optional<std::int64_t> integer(std::string const& key, std::int64_t min, std::int64_t max) {
    toml::node const* n = get(key);
    if (!n) return std::nullopt;
    if (!n->is_integer()) fail(*n, key, "expected an integer");
    std::int64_t v = n->as_integer()->get();
    if (v < min || v > max) fail(*n, key, std::to_string(v) + " is out of range " + std::to_string(min) + ".." + std::to_string(max));
    return v;
  }
  std::optional<double> number(std::string const& key, double min, double max) {
    toml::node const* n = get(key);
    if (!n) return std::nullopt;
    if (!n->is_number()) fail(*n, key, "expected a number");
    double v = n->is_integer() ? static_cast<double>(n->as_integer()->get()) : n->as_floating_point()->get();
    if (!(v >= min && v <= max)) fail(*n, key, "out of range " + plain(min) + ".." + plain(max));
    return v;
  }
  std::optional<bool> boolean(std::string const& key) {
    toml::node const* n = get(key);
    if (!n) return std::nullopt;
    if (!n->is_boolean()) fail(*n, key, "expected true or false");
    return n->as_boolean()->get();
  }
  std::optional<std::string> string(std::string const& key) {
    toml::node const* n = get(key);
    if (!n) return std::nullopt;
    if (!n->is_string()) fail(*n, key, "expected a string");
    return n->as_string()->get();
  }
  template <class E>
  std::optional<E> choice(std::string const& key, std::initializer_list<std::pair<const char*, E>> names) {
    toml::node const* n = get(key);
    if (!n) return std::nullopt;
    std::string all;
    if (n->is_string())
      for (auto const& [text, v] : names)
        if (n->as_string()->get() == text) return v;
    for (auto const& [text, v] : names) all += (all.empty() ? "" : ", ") + std::string(text);
    fail(*n, key, "expected one of " + all);
  }
  // The strings with their nodes, so that a check of one names its own line and column.
  std::vector<std::pair<std::string, toml::node const*>> stringNodes(std::string const& key) {
    std::vector<std::pair<std::string, toml::node const*>> out;
    toml::node const* n = get(key);
    if (!n) return out;
    if (!n->is_array()) fail(*n, key, "expected an array of strings");
    for (auto const& e : *n->as_array()) {
      if (!e.is_string()) fail(e, key, "expected an array of strings");
      out.emplace_back(e.as_string()->get(), &e);
    }
    return out;
  }
  std::vector<std::string> strings(std::string const& key) {
    std::vector<std::string> out;
    for (auto& [s, node] : stringNodes(key)) out.push_back(std::move(s));
    return out;
  }
  // A string naming an interface (or a VRF device).
  std::optional<std::string> interfaceName(std::string const& key) {
    auto v = string(key);
    if (v)
      if (std::string const why = interfaceNameProblem(*v); !why.empty()) fail(*get(key), key, why);
    return v;
  }
  std::optional<Table> table(std::string const& key) {
    toml::node const* n = get(key);
    if (!n) return std::nullopt;
    if (!n->is_table()) fail(*n, key, "expected a table");
    return Table(*n->as_table(), name(key), file_);
  }
  // Each table of an array of tables.
  void tables(std::string const& key, std::function<void(Table&)> const& f) {
    toml::node const* n = get(key);
    if (!n) return;
    if (!n->is_array()) fail(*n, key, "expected an array of tables ([[" + name(key) + "]])");
    for (auto const& e : *n->as_array()) {
      if (!e.is_table()) fail(e, key, "expected a table");
      Table t(*e.as_table(), name(key), file_);
      f(t);
      t.done();
    }
  }
  // A model setter that checks its own limit: its message, at the key.
  template <class F>
  void model(std::string const& key, F&& set) {
    try {
      set();
    } catch (Kel::RangeException const& e) {
      fail(*t_.get(key), key, e.what());
    }
  }
  // A count the model's setter checks: one outside 32 bits (a negative one) is refused
  // with the model's own message too.
  template <class F>
  void modelCount(std::string const& key, F&& set) {
    auto const v = integer(key, INT64_MIN, INT64_MAX);
    if (!v) return;
    std::uint32_t const u = *v < 0 ? 0u : *v > INT64_C(0xffffffff) ? UINT32_MAX : static_cast<std::uint32_t>(*v);
    model(key, [&] { set(u); });
    if (u != *v) fail(*get(key), key, std::to_string(*v) + " is out of range");
  }
  void done() const {
    for (auto const& [k, v] : t_)
      if (!seen_.count(std::string(k.str()))) fail(v, std::string(k.str()), "unknown key");
  }
  toml::table const& raw() const { return t_; }

 private:
  toml::table const& t_;
  std::string path_;
  std::string const& file_;
  std::set<std::string> seen_;
};

// A text sent as a TLV's whole value: cutting it to fit could split a character.
std::optional<std::string> text255(Table& t, std::string const& key) {
  auto v = t.string(key);
  if (v && v->size() > 255) t.fail(*t.raw().get(key), key, "longer than 255 bytes (" + std::to_string(v->size()) + ")");
  return v;
}

Lldp::SystemCapabilitiesMap capabilities(Table& t, std::string const& key) {
  static const std::map<std::string, unsigned> bits = {{"other", 0},     {"repeater", 1}, {"bridge", 2},
                                                       {"wlan", 3},      {"router", 4},   {"telephone", 5},
                                                       {"docsis", 6},    {"station", 7}};
  std::uint32_t v = 0;
  for (auto const& [name, node] : t.stringNodes(key)) {
    auto it = bits.find(name);
    if (it == bits.end()) t.fail(*node, key, "unknown capability '" + name + "' (other, repeater, bridge, wlan, router, telephone, docsis, station)");
    v |= 1u << it->second;
  }
  return Lldp::SystemCapabilitiesMap(v);
}

Kel::String kstr(std::string const& s) { return Kel::String(s.data(), s.size()); }

void readLldp(Table& t, AgentConfig& c) {
  auto& cli = *c.cli;
  if (auto v = t.boolean("enabled")) cli.enabledIs(*v);
  t.modelCount("tx-interval", [&](std::uint32_t v) { cli.messageTxIntervalIs(v); });
  t.modelCount("hold-time", [&](std::uint32_t v) { cli.messageTxHoldTimeIs(v); });
  t.modelCount("reinit-delay", [&](std::uint32_t v) { cli.reinitDelayIs(v); });
  if (auto v = t.integer("tx-delay", 0, 3600)) c.txDelay = static_cast<std::uint32_t>(*v);
  if (auto v = t.integer("max-mgmt-addresses", 0, 64)) c.maxTxMgmtAddrs = static_cast<std::uint32_t>(*v);
  if (auto v = t.boolean("rx-tagged-drop")) cli.rxTaggedPacketsDropIs(*v);
  Lldp::MgmtAddrTxOption opt;
  if (auto v = t.choice<Lldp::MgmtAddrTxMode>("mgmt-address", {{"best", Lldp::mgmtAddrTxModeBest}, {"all", Lldp::mgmtAddrTxModeAll},
                                                                {"interface", Lldp::mgmtAddrTxModeIntfName}}))
    opt.mgmtAddrTxModeIs(*v);
  if (auto v = t.interfaceName("mgmt-interface")) opt.intfNameIs(kstr(*v));
  if (opt.mgmtAddrTxMode() == Lldp::mgmtAddrTxModeIntfName && opt.intfName().size() == 0)
    t.fail(*t.raw().get("mgmt-address"), "mgmt-address", "\"interface\" needs mgmt-interface");
  cli.mgmtAddrTxOptionIs(opt);
  if (auto v = t.interfaceName("ipv6-mgmt-interface")) cli.ip6MgmtAddrIntfNameIs(kstr(*v));
  if (auto v = t.interfaceName("mgmt-vrf")) t.model("mgmt-vrf", [&] { cli.mgmtAddrVrfIs(Platform::VrfName(kstr(*v))); });
  if (auto tl = t.table("tlvs")) {
    using Set = void (Lldp::CliConfig::*)(bool);
    std::pair<const char*, Set> const flags[] = {
        {"port-description", &Lldp::CliConfig::portDescTlvEnabledIs}, {"system-name", &Lldp::CliConfig::sysNameTlvEnabledIs},
        {"system-description", &Lldp::CliConfig::sysDescTlvEnabledIs}, {"system-capabilities", &Lldp::CliConfig::sysCapTlvEnabledIs},
        {"management-address", &Lldp::CliConfig::mgmtAddrTlvEnabledIs}, {"port-vlan", &Lldp::CliConfig::portVlanIdTlvEnabledIs},
        {"link-aggregation", &Lldp::CliConfig::linkAggregationTlvEnabledIs}, {"max-frame-size", &Lldp::CliConfig::maxFrameSizeTlvEnabledIs},
        {"power-via-mdi", &Lldp::CliConfig::powerViaMdiTlvEnabledIs}, {"med-network-policy", &Lldp::CliConfig::medNetworkPolicyTlvEnabledIs}};
    for (auto const& [key, set] : flags)
      if (auto v = tl->boolean(key)) (cli.*set)(*v);
    tl->done();
  }
}

Power::PoePortStatus readPoe(Table& t) {
  using namespace Power;
  PoePortStatus s;
  if (auto v = t.choice<PoePortState>("state", {{"disabled", PoePortState::disabled}, {"searching", PoePortState::searching},
                                                {"detected", PoePortState::detected}, {"classified", PoePortState::classified},
                                                {"powered", PoePortState::powered}, {"fault", PoePortState::fault},
                                                {"denied", PoePortState::powerDenied}}))
    s.poePortStateIs(*v);
  // The IEEE class; the power subsystem numbers class 0 as 2.
  if (auto v = t.integer("class", 0, 8)) s.poweredDeviceClassIs(static_cast<PoweredDeviceClass>(*v + 2));
  if (auto v = t.number("granted", 0, 6553.5)) s.grantedPowerIs(*v);
  if (auto v = t.choice<LldpPoeNegotiationSupport>("negotiation", {{"none", LldpPoeNegotiationSupport::NotSupported},
                                                                   {"at", LldpPoeNegotiationSupport::Ieee802_3at},
                                                                   {"bt", LldpPoeNegotiationSupport::Ieee802_3bt}}))
    s.lldpPoeNegotiationSupportIs(*v);
  if (auto v = t.choice<PowerType>("power-type", {{"type1", PowerType::type1Pse}, {"type2", PowerType::type2Pse}})) s.powerTypeIs(*v);
  if (auto v = t.choice<PowerSource>("source", {{"unknown", PowerSource::unknown}, {"primary", PowerSource::primary}, {"backup", PowerSource::backup}}))
    s.powerSourceIs(*v);
  if (auto v = t.choice<PowerPriority>("priority", {{"unknown", PowerPriority::unknown}, {"critical", PowerPriority::critical},
                                                    {"high", PowerPriority::high}, {"low", PowerPriority::low}}))
    s.powerPriorityIs(*v);
  if (auto v = t.boolean("pairs-controllable")) s.psePairsControllableIs(*v);
  if (auto v = t.choice<PsePowerPair>("power-pair", {{"signal", PsePowerPair::signal}, {"spare", PsePowerPair::spare}})) s.psePowerPairIs(*v);
  if (auto v = t.number("alternative-a", 0, 6553.5)) s.allocatedPowerAlternativeAIs(*v);
  if (auto v = t.number("alternative-b", 0, 6553.5)) s.allocatedPowerAlternativeBIs(*v);
  if (auto v = t.number("max-available", 0, 6553.5)) s.pseMaximumAvailablePowerIs(*v);
  if (auto v = t.choice<PsePoweringStatus>("powering-status", {{"ignore", PsePoweringStatus::ignore}, {"2-pair", PsePoweringStatus::twoPair},
                                                               {"4-pair-single", PsePoweringStatus::fourPairSingleSignature},
                                                               {"4-pair-dual", PsePoweringStatus::fourPairDualSignature}}))
    s.psePoweringStatusIs(*v);
  if (auto v = t.choice<PsePowerPairsExt>("pairs-ext", {{"ignore", PsePowerPairsExt::ignore}, {"a", PsePowerPairsExt::alternativeA},
                                                        {"b", PsePowerPairsExt::alternativeB}, {"both", PsePowerPairsExt::bothAlternatives}}))
    s.psePowerPairsExtIs(*v);
  if (auto v = t.integer("class-ext-a", 0, 7)) s.dualSignaturePowerClassExtModeAIs(static_cast<DualSignaturePowerClassExtMode>(*v));
  if (auto v = t.integer("class-ext-b", 0, 7)) s.dualSignaturePowerClassExtModeBIs(static_cast<DualSignaturePowerClassExtMode>(*v));
  if (auto v = t.choice<PowerTypeExt>("type-ext", {{"type3", PowerTypeExt::type3Pse}, {"type4", PowerTypeExt::type4Pse}})) s.powerTypeExtIs(*v);
  if (auto v = t.boolean("autoclass-support")) s.pseAutoclassSupportIs(*v);
  if (auto v = t.boolean("autoclass-completed")) s.autoclassCompletedIs(*v);
  return s;
}

std::string fromHex(Table& t, std::string const& key, std::string const& hex) {
  std::string out;
  for (std::size_t i = 0; i < hex.size();) {
    if (hex[i] == ':' || hex[i] == ' ') {
      ++i;
      continue;
    }
    if (i + 1 >= hex.size() || !std::isxdigit(static_cast<unsigned char>(hex[i])) || !std::isxdigit(static_cast<unsigned char>(hex[i + 1])))
      t.fail(*t.raw().get(key), key, "expected hex bytes, e.g. \"01 02 0a\"");
    out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    i += 2;
  }
  return out;
}

PortSettings readPort(Table& t, std::string const& pattern) {
  PortSettings p;
  p.pattern = pattern;
  p.where = t.where();
  p.adminStatus = t.choice<Lldp::AdminStatus>("admin-status", {{"tx-and-rx", Lldp::txAndRx}, {"tx-only", Lldp::txOnly},
                                                               {"rx-only", Lldp::rxOnly}, {"disabled", Lldp::disabled}});
  p.description = text255(t, "description");
  if (auto v = t.integer("vlan", 0, 4094)) p.portVlan = static_cast<std::uint16_t>(*v);
  if (toml::node const* n = t.get("poe-fallback")) {
    if (n->is_string() && n->as_string()->get() == "max")
      p.poeFallback = UINT32_MAX;
    else if (n->is_integer() && n->as_integer()->get() >= 0 && n->as_integer()->get() <= 65535)
      p.poeFallback = static_cast<std::uint32_t>(n->as_integer()->get());
    else
      t.fail(*n, "poe-fallback", "expected tenths of a watt 0..65535 or \"max\"");
  }
  t.tables("network-policy", [&](Table& n) {
    Lldp::NetworkPolicyConfig c;
    c.appValueIs(static_cast<std::uint8_t>(n.integer("app", 1, 255).value_or(1)));
    c.taggedIs(n.boolean("tagged").value_or(false));
    c.vlanIdIs(static_cast<std::uint16_t>(n.integer("vlan", 0, 4094).value_or(0)));
    c.cosValueIs(static_cast<std::uint8_t>(n.integer("priority", 0, 7).value_or(0)));
    c.dscpValueIs(static_cast<std::uint8_t>(n.integer("dscp", 0, 63).value_or(0)));
    p.networkPolicies.push_back(c);
  });
  std::int32_t index = 0;
  t.tables("tlv", [&](Table& n) {
    Lldp::UnknownOrgDefTlv::Key k;
    k.ouiIs(Lldp::Oui(static_cast<std::uint32_t>(n.integer("oui", 0, 0xffffff).value_or(0))));
    k.subtypeIs(static_cast<std::uint32_t>(n.integer("subtype", 1, 255).value_or(1)));
    k.indexIs(++index);
    Lldp::UnknownOrgDefTlv tlv(k);
    std::string data = fromHex(n, "data", n.string("data").value_or(""));
    n.model("data", [&] { tlv.orgDefInfoIs(Lldp::BoundedString507(kstr(data))); });
    p.extraTlvs.push_back(tlv);
  });
  if (auto poe = t.table("poe")) {
    p.echoPdRequest = poe->boolean("echo-pd-request").value_or(true);
    p.poe = readPoe(*poe);
    poe->done();
  }
  return p;
}

}  // namespace

AgentConfig defaultConfig() {
  AgentConfig c;
  c.cli = Lldp::cliConfigFactory("lldp-agent");
  return c;
}

AgentConfig loadConfig(std::string const& path) {
  AgentConfig c = defaultConfig();
  c.file = path;
  toml::table root;
  // toml++ reads a directory as an empty file: a valid, empty configuration.
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) throw ConfigError(path + ": " + std::strerror(errno));
  if (!S_ISREG(st.st_mode)) throw ConfigError(path + ": not a regular file");
  try {
    root = toml::parse_file(path);
  } catch (toml::parse_error const& e) {
    auto const& b = e.source().begin;
    throw ConfigError(path + ":" + std::to_string(b.line) + ":" + std::to_string(b.column) + ": " + std::string(e.description()));
  }
  Table top(root, "", path);
  if (auto t = top.table("agent")) {
    for (auto const& [name, node] : t->stringNodes("interfaces")) {
      if (std::string const why = interfaceNameProblem(name); !why.empty()) t->fail(*node, "interfaces", why);
      c.interfaces.push_back(name);
    }
    c.syslog = t->choice<bool>("log", {{"stderr", false}, {"syslog", true}}).value_or(false);
    t->done();
  }
  if (auto t = top.table("lldp")) {
    readLldp(*t, c);
    t->done();
  }
  if (auto t = top.table("system")) {
    c.sysName = text255(*t, "name");
    c.sysDesc = text255(*t, "description");
    if (t->raw().get("capabilities")) c.capSupported = capabilities(*t, "capabilities");
    if (t->raw().get("enabled-capabilities")) c.capEnabled = capabilities(*t, "enabled-capabilities");
    // What a system has enabled it must have (the host's own, when not given, may differ).
    if (c.capSupported && c.capEnabled && (c.capEnabled->value() & ~c.capSupported->value()))
      t->fail(*t->raw().get("enabled-capabilities"), "enabled-capabilities", "enables what capabilities does not list");
    for (auto const& [a, node] : t->stringNodes("management-addresses")) {
      unsigned char buf[16];
      if (inet_pton(AF_INET, a.c_str(), buf) != 1 && inet_pton(AF_INET6, a.c_str(), buf) != 1)
        t->fail(*node, "management-addresses", "'" + a + "' is not an IPv4 or IPv6 address");
      c.mgmtAddresses.push_back(a);
    }
    t->done();
  }
  if (auto ports = top.table("port")) {
    // In the file's order (the parser keeps keys sorted): of several patterns that match
    // an interface, the first written applies.
    std::vector<std::tuple<std::uint32_t, std::uint32_t, std::string, toml::node const*>> order;
    for (auto const& [name, node] : ports->raw())
      order.emplace_back(node.source().begin.line, node.source().begin.column, std::string(name.str()), &node);
    std::sort(order.begin(), order.end());
    for (auto const& [line, column, key, node] : order) {
      if (std::string const why = interfaceNameProblem(key); !why.empty()) ports->fail(*node, key, why);
      auto t = ports->table(key);
      c.ports.push_back(readPort(*t, key));
      t->done();
    }
  }
  top.done();
  return c;
}

bool interfaceMatches(std::string_view pattern, std::string_view ifname) {
  return ::fnmatch(std::string(pattern).c_str(), std::string(ifname).c_str(), 0) == 0;
}

std::string interfaceNameProblem(std::string_view name) {
  // What Linux refuses in a device name, and control characters besides.
  if (name.empty() || name == "." || name == "..") return "'" + std::string(name) + "' is not an interface name";
  for (char ch : name) {
    auto const u = static_cast<unsigned char>(ch);
    if (ch == '/' || ch == ':' || u <= 0x20 || u == 0x7f)
      return "'" + std::string(name) + "' is not an interface name (no '/', ':', blanks or control characters)";
  }
  // A pattern may be longer than the names it matches; a name may not.
  constexpr std::size_t longest = IFNAMSIZ - 1;
  if (name.size() > longest && name.find_first_of("*?[") == std::string_view::npos)
    return "'" + std::string(name) + "' is longer than an interface name can be (" + std::to_string(longest) + " bytes)";
  return {};
}

void checkInterfaces(AgentConfig const& cfg, std::vector<std::string> const& interfaces) {
  for (auto const& p : cfg.ports) {
    // Either side may be the pattern: [port."eth*"] for eth1, or [port."eth1"] for 'eth*'.
    bool known = false;
    for (auto const& i : interfaces)
      known = known || i == p.pattern || interfaceMatches(i, p.pattern) || interfaceMatches(p.pattern, i);
    if (known) continue;
    std::string all;
    std::set<std::string_view> listed;  // the command line's and the file's may repeat a name
    for (auto const& i : interfaces)
      if (listed.insert(i).second) all += (all.empty() ? "" : " ") + i;
    throw ConfigError(p.where + ": port." + p.pattern + ": unknown interface (not among the agent's interfaces: " +
                      (all.empty() ? std::string("none") : all) + ")");
  }
}

PortSettings const* portSettings(AgentConfig const& cfg, std::string_view ifname) {
  for (auto const& p : cfg.ports)
    if (p.pattern == ifname) return &p;
  for (auto const& p : cfg.ports)
    if (interfaceMatches(p.pattern, ifname)) return &p;
  return nullptr;
}

void deriveConfig(AgentConfig const& cfg, Lldp::Config& config) {
  auto const& cli = *cfg.cli;
  config.messageTxIntervalIs(cli.messageTxInterval());
  config.messageTxHoldTimeIs(cli.messageTxHoldTime());
  config.reinitDelayIs(cli.reinitDelay());
  config.txDelayIs(cfg.txDelay);
  config.maxTxMgmtAddrsIs(cfg.maxTxMgmtAddrs);
  config.rxTaggedPacketsDropIs(cli.rxTaggedPacketsDrop());
}

void derivePortConfig(AgentConfig const& cfg, std::string const& ifname, Lldp::PortConfig& port) {
  auto const& cli = *cfg.cli;
  PortSettings const* p = portSettings(cfg, ifname);
  port.enabledTlvsIs(Lldp::PortConfig::EnabledTlvs((cli.portDescTlvEnabled() ? 1u : 0u) | (cli.sysNameTlvEnabled() ? 2u : 0u) |
                                                   (cli.sysDescTlvEnabled() ? 4u : 0u) | (cli.sysCapTlvEnabled() ? 8u : 0u)));
  port.mgmtAddrTxEnableIs(cli.mgmtAddrTlvEnabled());
  port.portVlanTxEnableIs(cli.portVlanIdTlvEnabled());
  // MAC/PHY has no flag of its own: always on.
  port.dot3EnabledTlvsIs(Lldp::PortConfig::Dot3EnabledTlvs(1u | (cli.powerViaMdiTlvEnabled() ? 2u : 0u) |
                                                           (cli.linkAggregationTlvEnabled() ? 4u : 0u) |
                                                           (cli.maxFrameSizeTlvEnabled() ? 8u : 0u)));
  port.tiaEnabledTlvsIs(Lldp::PortConfig::TiaEnabledTlvs(cli.medNetworkPolicyTlvEnabled() ? 2u : 0u));
  Lldp::AdminStatus admin = p && p->adminStatus ? *p->adminStatus : Lldp::txAndRx;
  port.adminStatusIs(cli.enabled() ? admin : Lldp::disabled);
  port.poeAllocatedPowerFallbackIs(p && p->poeFallback ? *p->poeFallback : 0);
  port.networkPolicyConfigDelAll();
  if (p)
    for (auto const& n : p->networkPolicies) port.networkPolicyConfigIs(n);
}

}  // namespace LldpAgent
