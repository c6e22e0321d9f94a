#pragma once
// The agent's service to other processes (see ServiceProtocol.h): readers mirror the
// agent's trees through one attribute-log stream, written once and handed to every
// reader that keeps up; a reader joins with a snapshot in that stream's numbering, and
// one that lags more than the window is dropped to a resync (a fresh snapshot) once its
// socket drains, so that a reader that stops costs neither the agent's time nor memory
// beyond the window. Configuring clients send the operator's CliConfig, a clear of the
// neighbour tables or a counter checkpoint.
//
// The operator's configuration (the last CliConfig accepted) is kept in a file written
// atomically after each accepted change and laid over the configuration file at start
// and on SIGHUP: its global values replace the file's [lldp] ones, and per port its
// admin status and PoE fallback replace the file's.
#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Kel/AttrLogStream.h"
#include "tools/lldp-agent/Core.h"

namespace LldpAgent {

struct ServiceOptions {
  std::string socketDir;     // "" for none (no sockets)
  std::string operatorFile;  // "" for none (operator changes not kept)
  std::string group;         // besides root, members of this group may configure
  std::size_t window = 256 * 1024;  // bytes of changes a reader may lag before it is resynced
};

class Service {
 public:
  using Log = std::function<void(int prio, std::string const& msg)>;

  Service(Core& core, ServiceOptions o, Log log);
  ~Service();
  Service(Service const&) = delete;
  Service& operator=(Service const&) = delete;

  // Binds the sockets and adds them to the epoll set.
  void open(int epoll);
  bool handles(int fd) const { return fd == stateFd_ || fd == configFd_ || clients_.count(fd); }
  void event(int fd, std::uint32_t events, double now);
  // Closes configuring clients that took too long to send their request; the next
  // such deadline (infinity when none).
  double expire(double now);
  static constexpr double requestSeconds = 10;
  // After each batch of changes: hands every reader what it can take. Routine changes
  // alone (counters, the time stamps of a frame sent or a neighbour refreshed) wait until
  // routineSeconds after the last hand-out, so that each frame does not cost every reader
  // a wake-up; expire() wakes the loop for them.
  void flush(double now);
  static constexpr double routineSeconds = 1;
  static constexpr std::size_t routineBytes = 4096;
  // The running configuration was replaced (SIGHUP): the published CliConfig follows.
  void configChanged();
  std::size_t clients() const noexcept { return clients_.size(); }

  // The operator's configuration kept in `path`: null when there is none; a file that
  // does not read as one is an error (ConfigError), so that it is never overwritten
  // unseen.
  static Lldp::CliConfig::Ptr loadOperator(std::string const& path);
  // The id of the group that --config-group names; throws when there is none.
  static gid_t configGroup(std::string const& name);
  // Lays the operator's configuration over `cfg`.
  static void overlay(AgentConfig& cfg, Lldp::CliConfig const& op);
  Lldp::CliConfig::Ptr const& operatorConfig() const noexcept { return operator_; }

  // The reading side of the configuration socket: one whole request from a peer with
  // these credentials. Returns "" when it was applied, else why not; `corrupt` tells a
  // request that was not one (garbage, another type, cut short) from one refused.
  std::string request(std::string_view bytes, ucred const& peer, double now, bool& corrupt);

  Lldp::RemTablesStatus::Ptr const& remTablesStatus() const noexcept { return remTables_; }
  Lldp::CounterCheckpoint::Ptr const& checkpoint() const noexcept { return checkpoint_; }
  Lldp::CliConfig::Ptr const& published() const noexcept { return published_; }

 private:
  struct Client;
  void accept(int listener, double now);
  bool readable(Client& c, double now);  // true when it closed the client
  // Sends what the socket takes; past the window, the reader falls behind.
  void drain(Client& c);
  void lagged(Client& c);
  void fallBehind(Client& c);
  // Where a new reader (or one that fell behind) starts: the stream's opening while it is
  // being written, else a snapshot and then the log's end.
  void start(Client& c);
  // Writes the next chunk of the opening; true when the log grew.
  bool pump();
  // Writes the next chunk of the reader's snapshot into its `own`; true when there is one.
  bool snapPump(Client& c);
  static constexpr std::size_t chunk = 64 * 1024;
  // The whole trees as of the log's end, shared by the readers that start there.
  std::shared_ptr<std::string const> snapshot();
  std::uint64_t logEnd() const noexcept { return logBase_ + stream_.size(); }
  void close(Client& c, std::string const& why, int prio);
  // Whether the log past what was handed out holds routine changes only.
  bool routineOnly();
  bool routine(std::uint32_t entityId, std::uint32_t attr);
  // Logs a client's refusal or bad input, at most complaintsPerMinute a minute.
  void complain(int prio, std::string const& msg);
  static constexpr int complaintsPerMinute = 10;
  void listening(bool on);
  void interest(Client& c, bool out);
  bool mayConfigure(ucred const& peer) const;
  void save();

  Core& core_;
  ServiceOptions o_;
  Log log_;
  int epoll_ = -1, stateFd_ = -1, configFd_ = -1;
  gid_t group_ = 0;
  bool haveGroup_ = false;
  bool paused_ = false;   // out of descriptors: the listeners are not polled
  bool starved_ = false;  // said so in the log
  double retryAt_ = 0;
  double lastNow_ = 0, quietUntil_ = 0;
  int logged_ = 0, unlogged_ = 0;
  std::map<int, std::unique_ptr<Client>> clients_;
  std::size_t readers_ = 0;
  // The readers' stream, while there are any: every change, once, into stream_, which
  // starts at byte logBase_ of the stream and keeps what a reader still lacks.
  Kel::Ptr<Kel::NboAttrLog::Stream> master_;
  std::string stream_;
  std::uint64_t logBase_ = 0, handedOut_ = 0;
  // The stream's first trees are still being written, from openedAt_ on; its sink takes
  // budget_ more bytes of them.
  bool opening_ = false;
  std::uint64_t openedAt_ = 0;
  std::size_t budget_ = 0;
  std::string chunk_;  // what a reader's snapshot wrote last
  double routineDue_ = 0;
  std::uint64_t scanned_ = 0;  // how far routineOnly() has looked
  std::map<std::pair<Kel::KelType const*, std::uint32_t>, bool> routine_;
  std::shared_ptr<std::string const> snapshot_;
  std::uint64_t snapshotAt_ = 0;
  Lldp::CliConfig::Ptr published_, operator_;
  Lldp::RemTablesStatus::Ptr remTables_;
  Lldp::CounterCheckpoint::Ptr checkpoint_;
};

}  // namespace LldpAgent
