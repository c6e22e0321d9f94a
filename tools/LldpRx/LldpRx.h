#pragma once
// The receive path of an LLDP agent: complete LLDPDUs, as they come off a port, decoded
// into a Status tree (one PortStatus per port, one RemoteSystem per neighbour), with the
// table bookkeeping of IEEE 802.1AB: the neighbour's MSAP and index kept in both indexes,
// creation, change, refresh and expiry times, ageing by TTL, removal on a TTL of 0, the
// port's neighbour limit and receive rate limit, every port and table counter, and the
// neighbour-table event-log messages.
//
// A neighbour can send anything at line rate, so nothing here throws on bad input: a
// malformed frame is counted and dropped before anything is stored, a TLV with a field
// out of its limit is counted and skipped, and the frame's other TLVs still apply.
//
// The receiver owns the neighbour tables under its Status root: other writers must leave
// the PortStatus collections alone (they may read and observe everything).
//
// Trace handle "LldpRx": 0 malformed frames, 4 frames and TLVs dropped, 6 table changes,
// 8 every frame's outcome.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Kel/String.h"
#include "Lldp/Lldp.h"

struct option;

namespace LldpRx {

// What became of one frame.
enum class FrameResult : std::uint8_t {
  refreshed,    // a known neighbour sent the same LLDPDU again
  updated,      // a known neighbour; its LLDPDU differed from the last one
  added,        // a new neighbour entered the table
  removed,      // a known neighbour sent a TTL of 0 and left the table
  shutdownIgnored,  // a TTL of 0 from a neighbour that was not in the table
  notLldp,      // not an LLDP frame (EtherType other than 0x88cc); not counted
  malformed,    // an invalid LLDPDU: counted as discarded and in error
  rateLimited,  // over the port's receive rate limit: counted as discarded
  tagged,       // a VLAN-tagged frame while Config::rxTaggedPacketsDrop: discarded
  tableFull,    // a new neighbour while the port holds maxRemoteSystems: discarded
  portDisabled, // the port's adminStatus does not receive (txOnly, disabled): ignored
};
const char* toString(FrameResult r) noexcept;

// The Ethernet type of LLDP.
inline constexpr std::uint16_t lldpEtherType = 0x88cc;

class Receiver;

// One port's receive side. Obtained from Receiver::portIs and valid as long as the
// receiver; keep it rather than looking the port up per frame.
class Port {
 public:
  Port(Port const&) = delete;
  Port& operator=(Port const&) = delete;
  ~Port();

  // One Ethernet frame (destination MAC onwards, without FCS) received at time `now`
  // (seconds; any epoch, as long as it never runs backwards by much). Neighbours whose
  // TTL ran out by `now` leave the table first.
  FrameResult frameIs(std::string_view frame, double now);
  // Removes the neighbours whose TTL ran out by `now`; returns how many.
  std::size_t ageOut(double now);

  Lldp::PortStatus::Ptr const& status() const noexcept;
  Lldp::PortConfig::Ptr const& config() const noexcept;

  struct State;

 private:
  friend class Receiver;
  explicit Port(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

class Receiver {
 public:
  // Neighbour tables go under `status`; limits come from `config` (its PortConfig for a
  // port, created with the defaults when missing).
  Receiver(Lldp::Status::Ptr status, Lldp::Config::Ptr config);
  ~Receiver();
  Receiver(Receiver const&) = delete;
  Receiver& operator=(Receiver const&) = delete;

  // The port, with its PortStatus (created at `now`) and PortConfig, made on first use.
  Port& portIs(Platform::IntfId const& intf, double now);
  Port* port(Platform::IntfId const& intf) const;
  // The port goes away (an interface removed): its neighbours leave the tables as a clear
  // removes them, then its PortStatus leaves the Status tree. Its Port is gone too.
  void portDel(Platform::IntfId const& intf, double now);

  // Ages every port.
  std::size_t ageOut(double now);
  // Empties every neighbour table (a CLI clear): logs who asked and where.
  void clear(Kel::String const& who, Kel::String const& where, double now);

  Lldp::Status::Ptr const& status() const noexcept { return status_; }
  Lldp::Config::Ptr const& config() const noexcept { return config_; }

  // For tests and benchmarks: with false, every frame of a known neighbour is decoded
  // in full instead of only in the TLVs that changed. Both must leave the same tree.
  void incrementalIs(bool on) noexcept { incremental_ = on; }
  bool incremental() const noexcept { return incremental_; }

 private:
  struct Ports;
  Lldp::Status::Ptr status_;
  Lldp::Config::Ptr config_;
  std::unique_ptr<Ports> ports_;
  bool incremental_ = true;
};

// Bytes a neighbour sent, made safe for a terminal or a log: valid UTF-8 passes (control
// characters and, with `backslash`, backslashes escaped as \xNN), anything else is escaped
// byte by byte; trailing NUL padding is dropped.
std::string displayText(std::string_view bytes, bool backslash = true);
// The length of the UTF-8 sequence that starts at b[i]; 0 when none does.
std::size_t utf8Length(std::string_view b, std::size_t i);

// What getopt_long's ':' or '?' (returned as `c`) means, in the words the user typed:
// "option '--json' takes no value", "unknown option '-x'", "option '-r' needs a value".
std::string optionError(int c, char* const* argv, struct option const* longs);
// The long option `name` (without "--") names, as getopt_long takes it: the one spelled so,
// else the only one it starts. Null when none does, or several do; then `ambiguous` lists
// them ("--mirror, --max-neighbors").
struct option const* longOption(std::string_view name, struct option const* longs, std::string& ambiguous);

// Every attribute of the root, its ports and their neighbours, one "path.name = text"
// line each, in key order: two trees that print the same hold the same state.
std::string treeText(Lldp::Status const& status);

}  // namespace LldpRx
