#pragma once
// The client's side of lldp-agent's sockets (tools/lldp-agent/ServiceProtocol.h): a
// mirror of the agent's trees, kept up to date from state.sock, and one-shot requests
// to config.sock.
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Lldp/Lldp.h"

namespace LldpCli {

struct ClientError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Mirror {
 public:
  // Connects to DIR/state.sock.
  explicit Mirror(std::string const& socketDir);
  ~Mirror();
  Mirror(Mirror const&) = delete;
  Mirror& operator=(Mirror const&) = delete;

  // Reads until the agent's whole trees are here; ClientError after `seconds`.
  void sync(double seconds);
  bool synced() const noexcept { return synced_; }
  // Waits up to `ms` (-1: for ever) for changes and applies them; false once the agent
  // has gone.
  bool poll(int ms);
  // The reason of the first corrupt record met, if any.
  std::string const& damage() const noexcept { return damage_; }
  int fd() const noexcept { return fd_; }

  Lldp::Status::Ptr status() const;
  Lldp::Config::Ptr config() const;
  Lldp::LocalSystem::Ptr localSystem() const;
  Lldp::RemTablesStatus::Ptr remTablesStatus() const;
  Lldp::CliConfig::Ptr cliConfig() const;
  Lldp::CounterCheckpoint::Ptr checkpoint() const;

 private:
  bool readSome();
  // Follows record boundaries across reads, to see the reset and sync records go by.
  void scan(const char* data, std::size_t size);
  std::string path_;
  int fd_ = -1;
  Kel::Ptr<Kel::NboAttrLog::Stream> in_;
  // The trees shown: while the agent resends them whole (from a reset to the next sync),
  // the ones as they were, rather than half-built ones.
  std::vector<Kel::Ptr<Kel::Entity>> shown_;
  std::string head_;      // the first bytes of the record being read
  std::size_t left_ = 0;  // ... and how many of it are still to come
  bool synced_ = false, resyncing_ = false;
  std::string damage_;
};

// Streams the roots to DIR/config.sock as one request; returns the agent's answer:
// "" when it was applied, else its reason.
std::string request(std::string const& socketDir, std::vector<Kel::Ptr<Kel::Entity>> const& roots);

}  // namespace LldpCli
