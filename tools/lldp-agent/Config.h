#pragma once
// The agent's configuration file (TOML, through toml++), translated into the model: the
// operator's values into a CliConfig, the static PoE state and local overrides beside it,
// and the effective Config/PortConfig derived from them as the agent's configuration
// logic does. The format is documented in the README ("The agent").
//
// A bad file is refused whole with one line, "FILE:LINE:COL: KEY: what is wrong"
// (unknown keys, wrong types, values out of their limits, syntax errors).
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Lldp/Lldp.h"
#include "Power/PoePortStatus.h"

namespace LldpAgent {

struct ConfigError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// [port."NAME"]: NAME is an interface name or a glob ("veth*"); the first exact match
// wins, else the first matching glob in file order.
struct PortSettings {
  std::string pattern;
  std::string where;                                   // "FILE:LINE:COL" of the table
  std::optional<Lldp::AdminStatus> adminStatus;        // admin-status
  std::optional<std::uint32_t> poeFallback;            // poe-fallback: deciwatts or "max"
  std::optional<std::string> description;              // description: instead of ifAlias
  std::optional<std::uint16_t> portVlan;               // vlan: 0..4094
  std::vector<Lldp::NetworkPolicyConfig> networkPolicies;  // [[port."X".network-policy]]
  std::vector<Lldp::UnknownOrgDefTlv> extraTlvs;           // [[port."X".tlv]] oui, subtype, hex
  // [port."X".poe]: the static PSE state of a host without a PSE driver.
  std::optional<Power::PoePortStatus> poe;
  bool echoPdRequest = true;                           // poe.echo-pd-request
};

struct AgentConfig {
  std::string file;                       // "" when running on the defaults
  std::vector<std::string> interfaces;    // [agent] interfaces: names or globs
  bool syslog = false;                    // [agent] log = "stderr" | "syslog"
  // [lldp]: timers, TLV flags, management address choice, VRF, enabled, rx-tagged-drop.
  Lldp::CliConfig::Ptr cli;
  std::uint32_t txDelay = 2;              // [lldp] tx-delay (Config only)
  std::uint32_t maxTxMgmtAddrs = 1;       // [lldp] max-mgmt-addresses (Config only)
  // [system]: overrides of what the host says.
  std::optional<std::string> sysName, sysDesc;
  std::optional<Lldp::SystemCapabilitiesMap> capSupported, capEnabled;
  std::vector<std::string> mgmtAddresses;  // static addresses, IPv4/IPv6 text
  std::vector<PortSettings> ports;
};

// The defaults: a CliConfig as constructed, no ports, no overrides.
AgentConfig defaultConfig();
// Reads and checks the file; throws ConfigError.
AgentConfig loadConfig(std::string const& path);
// Every [port."NAME"] that matches none of `interfaces` (the command line's and the
// file's patterns): ConfigError "FILE:LINE:COL: port.NAME: unknown interface".
void checkInterfaces(AgentConfig const& cfg, std::vector<std::string> const& interfaces);
// Why `name` can name no interface (empty; longer than Linux allows, pattern characters
// aside), or empty when it can.
std::string interfaceNameProblem(std::string_view name);
// The port's settings, or null.
PortSettings const* portSettings(AgentConfig const& cfg, std::string_view ifname);
// Name or glob (fnmatch) match.
bool interfaceMatches(std::string_view pattern, std::string_view ifname);

// The effective configuration: the timers, txDelay, maxTxMgmtAddrs and rxTaggedPacketsDrop
// into `config`; for the port, its PortConfig from the CLI flags (every enabled TLV,
// including MAC/PHY, which has no CLI flag), its admin status (disabled when the CLI's
// `enabled` is false), fallback and network policies.
void deriveConfig(AgentConfig const& cfg, Lldp::Config& config);
void derivePortConfig(AgentConfig const& cfg, std::string const& ifname, Lldp::PortConfig& port);

}  // namespace LldpAgent
