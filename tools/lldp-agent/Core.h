#pragma once
// The agent without its sockets and clock: the model's roots, the local system taken from
// the host's links and addresses, one receive port (LldpRx) and one transmit state machine
// (LldpTx) per interface, and the Power via MDI link between a port and the neighbour
// whose request it echoes. The daemon feeds it frames, host changes and the time; tests
// and benchmarks drive it the same way on a simulated clock.
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/LldpRx/LldpRx.h"
#include "tools/LldpTx/LldpTx.h"
#include "tools/LldpTx/TxMachine.h"
#include "tools/lldp-agent/Config.h"
#include "tools/lldp-agent/Host.h"

namespace LldpAgent {

struct HostView {
  std::vector<LinkInfo> links;
  std::vector<AddrInfo> addrs;
  std::string hostName, sysDesc;
  bool forwarding = false;  // IPv4 forwarding on: a router
};

class Core {
 public:
  // Sends one frame out of the interface; false when it could not leave.
  using Send = std::function<bool(int ifindex, std::string_view frame)>;

  struct Port {
    LinkInfo link;
    LldpRx::Port* rx = nullptr;
    Lldp::LocalPort::Ptr local;
    Lldp::PortConfig::Ptr config;
    LldpTx::TxMachine tx;
    LldpTx::PortSources src;
    LldpTx::Frame frame;     // the last frame sent (a change is a different frame)
    bool poeLinked = false;
  };

  Core(AgentConfig cfg, Send send);
  ~Core();

  // The host as it is now: the local system, and every port's link facts. Ports are made
  // or removed by the caller (portIs/portDel) for the links it runs on.
  void hostIs(HostView const& host, double now);
  Port& portIs(LinkInfo const& link, double now);
  void portDel(std::string const& name, double now);
  Port* port(std::string const& name);
  std::size_t ports() const noexcept { return ports_.size(); }

  // A frame received on the port.
  LldpRx::FrameResult frameIn(Port& port, std::string_view frame, double now);
  // Sends what is due at `now` and ages the tables (once a second).
  void run(double now);
  double nextWake() const;
  // Every port that sent anything sends its shutdown LLDPDU.
  void shutdownAll(double now);
  // A new configuration (already checked): the effective values, every port again.
  void configIs(AgentConfig cfg, double now);
  AgentConfig const& config() const noexcept { return cfg_; }

  Lldp::Status::Ptr const& status() const noexcept { return status_; }
  Lldp::Config::Ptr const& effective() const noexcept { return config_; }
  Lldp::LocalSystem::Ptr const& localSystem() const noexcept { return system_; }
  LldpRx::Receiver& receiver() noexcept { return *receiver_; }

 private:
  void applyPort(Port& p, double now);
  void relinkPoe(Port& p);
  void checkChange(Port& p);
  void setManagementAddresses(HostView const& host);

  AgentConfig cfg_;
  Send send_;
  Lldp::Status::Ptr status_;
  Lldp::Config::Ptr config_;
  Lldp::LocalSystem::Ptr system_;
  Lldp::ExternalTlvConfig::Ptr external_;
  std::unique_ptr<LldpRx::Receiver> receiver_;
  std::map<std::string, std::unique_ptr<Port>> ports_;
  LldpTx::Frame scratch_;
  double nextAgeing_ = 0;
};

}  // namespace LldpAgent
