// The daemon: packet sockets, netlink, signals and one timer in one epoll loop. A plain
// epoll loop rather than libevent or libuv: the agent waits on a handful of descriptors
// that Linux already makes uniform (timerfd, signalfd, the netlink socket, one packet
// socket per port), and everything it does per wake-up is synchronous and short, so a
// library would add a dependency and callbacks without taking work off our hands.
#include "tools/lldp-agent/Daemon.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <getopt.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Kel/EventLog.h"
#include "Tracing/Duolog.h"
#include "tools/lldp-agent/Caps.h"
#include "tools/lldp-agent/Core.h"
#include "tools/lldp-agent/Service.h"
#include "tools/lldp-agent/ServiceProtocol.h"

namespace LldpAgent {
namespace {

const char* const usage =
    "Usage: lldp-agent [OPTIONS] IFACE...\n"
    "Runs LLDP (IEEE 802.1AB) on the interfaces named (or matched by shell patterns such as\n"
    "'veth*'; interfaces that appear later are picked up). Needs CAP_NET_RAW.\n"
    "  -c, --config FILE   the configuration file (TOML; see the README); without it the\n"
    "                      model's defaults\n"
    "      --check         only read and check the configuration, then exit\n"
    "      --syslog        log to syslog instead of standard error\n"
    "  -v, --trace LEVEL   trace the receive path and the Power via MDI logic (0..8)\n"
    "      --stream FILE   write the neighbour tree as an attribute log to FILE\n"
    "                      (lldp-neighbors --mirror FILE shows it)\n"
    "      --dump FILE     on SIGUSR1 and at exit, write every attribute of the neighbour\n"
    "                      tree to FILE, one 'path.name = value' line each\n"
    "      --socket-dir DIR    the service's sockets (state.sock, config.sock; default\n"
    "                      /run/lldp-agent; '' for none); lldp-cli talks to them\n"
    "      --operator-config FILE  where configuration changes made through the socket are\n"
    "                      kept (default /var/lib/lldp-agent/operator-config; '' to keep none)\n"
    "      --config-group GROUP  besides root, members of GROUP may configure\n"
    "      --client-window BYTES  how far a client may lag before its changes are held\n"
    "                      back as dirty attributes (default 262144)\n"
    "  -h, --help          this text\n"
    "      --version       the version\n"
    "SIGTERM sends shutdown LLDPDUs and exits; SIGHUP rereads the configuration.\n";

struct Options {
  std::vector<std::string> interfaces;
  std::string config, stream, dump;
  ServiceOptions service{LldpService::defaultSocketDir, "/var/lib/lldp-agent/operator-config", "", 256 * 1024};
  bool check = false, syslog = false;
  int trace = -1;
};

bool useSyslog = false;
// Messages carry names from the command line, the configuration and the host: a terminal
// or a log viewer must not act on their bytes.
void log(int prio, std::string const& msg) {
  std::string const safe = LldpRx::displayText(msg, false);
  if (useSyslog)
    ::syslog(prio, "%s", safe.c_str());
  else
    std::fprintf(stderr, "lldp-agent: %s\n", safe.c_str());
}

std::string fileName(const char* option, const char* value) {
  if (!*value) throw std::invalid_argument(std::string(option) + " needs a name, not ''");
  return value;
}

Options parse(int argc, char** argv) {
  enum { optCheck = 256, optSyslog, optStream, optDump, optSocketDir, optOperator, optGroup, optWindow, optVersion };
  static option const longs[] = {{"config", required_argument, nullptr, 'c'}, {"check", no_argument, nullptr, optCheck},
                                 {"syslog", no_argument, nullptr, optSyslog},  {"trace", required_argument, nullptr, 'v'},
                                 {"stream", required_argument, nullptr, optStream}, {"dump", required_argument, nullptr, optDump},
                                 {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, optVersion},
                                 {"socket-dir", required_argument, nullptr, optSocketDir},
                                 {"operator-config", required_argument, nullptr, optOperator},
                                 {"config-group", required_argument, nullptr, optGroup},
                                 {"client-window", required_argument, nullptr, optWindow},
                                 {nullptr, 0, nullptr, 0}};
  Options o;
  opterr = 0;
  for (int c; (c = getopt_long(argc, argv, ":c:v:h", longs, nullptr)) != -1;) {
    switch (c) {
      // An empty file name would quietly mean "none" (the defaults, no stream, no dump).
      case 'c': o.config = fileName("--config", optarg); break;
      case optCheck: o.check = true; break;
      case optSyslog: o.syslog = true; break;
      case optStream: o.stream = fileName("--stream", optarg); break;
      case optDump: o.dump = fileName("--dump", optarg); break;
      case optGroup: o.service.group = fileName("--config-group", optarg); break;
      case optSocketDir: o.service.socketDir = optarg; break;
      case optOperator: o.service.operatorFile = optarg; break;
      case optWindow: {
        char* end = nullptr;
        errno = 0;
        o.service.window = std::strtoul(optarg, &end, 10);
        // strtoul would take "-5" as a huge window.
        if (errno || *end || end == optarg || !std::isdigit(static_cast<unsigned char>(*optarg)) || !o.service.window) throw std::invalid_argument("--client-window takes a number of bytes, 1 or more");
        break;
      }
      case 'v': {
        char* end = nullptr;
        long v = std::strtol(optarg, &end, 10);
        if (*end || !std::isdigit(static_cast<unsigned char>(*optarg)) || v > 8)
          throw std::invalid_argument("--trace takes a level 0..8");
        o.trace = static_cast<int>(v);
        break;
      }
      case 'h': std::fputs(usage, stdout); std::exit(0);
      case optVersion: std::puts("lldp-agent " LLDP_VERSION); std::exit(0);
      default: throw std::invalid_argument(LldpRx::optionError(c, argv, longs));
    }
  }
  for (int i = optind; i < argc; ++i) {
    if (std::string const why = interfaceNameProblem(argv[i]); !why.empty()) throw std::invalid_argument(why);
    o.interfaces.push_back(argv[i]);
  }
  return o;
}

// Read through a signalfd; blocked from the start, so that one that comes early waits
// for the loop instead of ending the process.
sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) sigaddset(&set, s);
  return set;
}

double wallClock() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

bool forwarding() {
  std::ifstream f("/proc/sys/net/ipv4/ip_forward");
  int v = 0;
  f >> v;
  return v == 1;
}

// A packet socket on one interface: LLDP frames only, to the nearest-bridge address.
int openPacketSocket(int ifindex) {
  int fd = ::socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(LldpTx::lldpEtherType));
  if (fd < 0) return -1;
  sockaddr_ll sll{};
  sll.sll_family = AF_PACKET;
  sll.sll_protocol = htons(LldpTx::lldpEtherType);
  sll.sll_ifindex = ifindex;
  packet_mreq mr{};
  mr.mr_ifindex = ifindex;
  mr.mr_type = PACKET_MR_MULTICAST;
  mr.mr_alen = 6;
  std::memcpy(mr.mr_address, LldpTx::nearestBridge.data(), 6);
  int one = 1;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&sll), sizeof sll) != 0 ||
      ::setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &mr, sizeof mr) != 0) {
    ::close(fd);
    return -1;
  }
  // Our own frames are not neighbours (kernels before 4.20 lack this; the receiver then
  // sees our MSAP, which is harmless but noisy).
  ::setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one);
  return fd;
}

class Daemon {
 public:
  explicit Daemon(Options o, AgentConfig cfg)
      : o_(std::move(o)),
        core_(std::move(cfg), [this](int ifindex, std::string_view f) { return send(ifindex, f); }),
        service_(core_, o_.service, [](int prio, std::string const& m) { log(prio, m); }) {}

  int run() {
    epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
    sigset_t const set = handledSignals();
    signals_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    timer_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (epoll_ < 0 || signals_ < 0 || timer_ < 0) throw std::runtime_error(std::string("event loop: ") + std::strerror(errno));
    watch(signals_);
    watch(timer_);
    watch(host_.eventFd());
    if (!o_.stream.empty()) openStream();
    service_.open(epoll_);
    reconcile(wallClock());
    // A name that matches nothing yet is waited for (ports come and go), but said.
    for (auto const& p : patterns(core_.config())) {
      bool found = false, other = false;
      for (auto const& l : host_.links()) {
        bool const matches = interfaceMatches(p, l.name);
        found = found || (matches && l.ethernet && !l.loopback);
        other = other || matches;
      }
      if (!found && other)
        log(LOG_WARNING, "warning: '" + p + "' names no Ethernet interface (loopback or another link type): LLDP does not run there");
      else if (!found)
        log(LOG_WARNING, "warning: no Ethernet interface '" + p + "' here yet: LLDP starts on it when it appears");
    }
    dropAllButNetRaw();
    log(LOG_INFO, "running on " + std::to_string(core_.ports()) + " interface(s); capabilities now " + currentCaps());

    epoll_event ev[32];
    for (;;) {
      armTimer(wallClock());
      int n = ::epoll_wait(epoll_, ev, 32, -1);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw std::runtime_error(std::string("epoll: ") + std::strerror(errno));
      double const now = wallClock();
      for (int i = 0; i < n; ++i) {
        int fd = ev[i].data.fd;
        if (fd == signals_) {
          if (handleSignals(now)) return 0;
        } else if (fd == timer_) {
          std::uint64_t ticks;
          while (::read(timer_, &ticks, sizeof ticks) > 0) {
          }
        } else if (fd == host_.eventFd()) {
          if (host_.processEvents()) reconcile(now);
        } else if (service_.handles(fd)) {
          service_.event(fd, ev[i].events, now);
        } else {
          receive(fd, now);
        }
      }
      core_.run(wallClock());
      if (stream_) stream_->continueFlowOut();
      if (stream_ && streamError_) {
        log(LOG_ERR, "cannot write the stream to '" + o_.stream + "': " + std::strerror(streamError_) + "; streaming stopped");
        stream_ = Kel::Ptr<Kel::NboAttrLog::Stream>();
      }
      service_.flush(wallClock());
    }
  }

 private:
  void watch(int fd) {
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &ev);
  }

  void armTimer(double now) {
    double wait = std::clamp(std::min(core_.nextWake(), service_.expire(now)) - now, 0.001, 3600.0);
    itimerspec t{};
    t.it_value.tv_sec = static_cast<time_t>(wait);
    t.it_value.tv_nsec = static_cast<long>((wait - std::floor(wait)) * 1e9);
    ::timerfd_settime(timer_, 0, &t, nullptr);
  }

  bool send(int ifindex, std::string_view frame) {
    auto it = sockets_.find(ifindex);
    if (it == sockets_.end()) return false;
    return ::send(it->second, frame.data(), frame.size(), MSG_DONTWAIT) == static_cast<ssize_t>(frame.size());
  }

  // Frames in batches of one system call each (recvmmsg), a bounded number per wake-up so
  // that a flooded port cannot starve the others.
  void receive(int fd, double now) {
    auto it = byFd_.find(fd);
    if (it == byFd_.end()) return;
    Core::Port* p = core_.port(it->second);
    for (int round = 0; round < 4; ++round) {
      for (int i = 0; i < batch; ++i) {
        iov_[i] = {bufs_.data() + i * frameRoom, frameRoom};
        msgs_[i] = {};
        msgs_[i].msg_hdr.msg_iov = &iov_[i];
        msgs_[i].msg_hdr.msg_iovlen = 1;
      }
      int const n = ::recvmmsg(fd, msgs_, batch, MSG_TRUNC | MSG_DONTWAIT, nullptr);
      for (int i = 0; p && i < n; ++i) {
        std::size_t const len = msgs_[i].msg_len;
        if (len > core_.effective()->maxRxFrameSize()) {
          // Longer than any LLDPDU we take: dropped unread, counted as an error.
          p->rx->status()->rxFramesTotalInc(1);
          p->rx->status()->rxFramesDiscardedTotalInc(1);
          p->rx->status()->rxFramesErrorsInc(1);
          continue;
        }
        core_.frameIn(*p, std::string_view(bufs_.data() + i * frameRoom, len), now);
      }
      if (n < batch) return;
    }
  }

  bool handleSignals(double now) {
    signalfd_siginfo si;
    bool stop = false;
    while (::read(signals_, &si, sizeof si) == sizeof si) {
      if (si.ssi_signo == SIGHUP) reload(now);
      if (si.ssi_signo == SIGUSR1) {
        if (o_.dump.empty()) log(LOG_WARNING, "SIGUSR1: no file to write the neighbour tree to (started without --dump)");
        dump();
      }
      if (si.ssi_signo == SIGTERM || si.ssi_signo == SIGINT) stop = true;
    }
    if (!stop) return false;
    core_.shutdownAll(now);
    if (stream_) stream_->continueFlowOut();
    service_.flush(now + Service::routineSeconds);  // the routine changes too
    dump();
    log(LOG_INFO, "stopped; shutdown LLDPDUs sent");
    return true;
  }

  void dump() {
    if (o_.dump.empty()) return;
    std::string const tmp = o_.dump + ".tmp";
    errno = 0;
    std::ofstream out(tmp);
    out << LldpRx::treeText(*core_.status());
    // What the kernel delivered to each port's socket and what it dropped because the
    // agent fell behind.
    for (auto const& [fd, name] : byFd_) {
      auto& k = kernel_[name];
      tpacket_stats st{};
      socklen_t len = sizeof st;
      if (::getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &st, &len) == 0) k.first += st.tp_packets, k.second += st.tp_drops;
      out << "socket/" << name << ".packets = " << k.first << "\nsocket/" << name << ".drops = " << k.second << "\n";
    }
    out.close();
    if (!out || std::rename(tmp.c_str(), o_.dump.c_str()) != 0)
      log(LOG_ERR, "cannot write '" + o_.dump + "': " + (errno ? std::strerror(errno) : "write failed"));
  }

  void reload(double now) {
    if (o_.config.empty()) {
      log(LOG_WARNING, "SIGHUP: no configuration file to reread (started without -c)");
      return;
    }
    try {
      AgentConfig cfg = loadConfig(o_.config);
      checkInterfaces(cfg, patterns(cfg));
      if (service_.operatorConfig()) Service::overlay(cfg, *service_.operatorConfig());
      core_.configIs(std::move(cfg), now);
      service_.configChanged();
      reconcile(now);
      log(LOG_INFO, "configuration reread from " + o_.config);
    } catch (std::exception const& e) {
      log(LOG_ERR, std::string("configuration not reread, the running one stays: ") + e.what());
    }
  }

  std::vector<std::string> patterns(AgentConfig const& cfg) const {
    std::vector<std::string> all = o_.interfaces;
    all.insert(all.end(), cfg.interfaces.begin(), cfg.interfaces.end());
    return all;
  }

  // Ports follow the host's links: made for new matches, removed with their links.
  void reconcile(double now) {
    HostView view{host_.links(), host_.addresses(), Host::hostName(), Host::systemDescription(), forwarding()};
    auto const pats = patterns(core_.config());
    std::set<std::string> present;
    for (auto const& l : view.links) {
      bool wanted = l.ethernet && !l.loopback;
      bool matched = false;
      for (auto const& p : pats) matched = matched || interfaceMatches(p, l.name);
      if (!wanted || !matched) continue;
      Core::Port* port = core_.port(l.name);
      if (port && port->link.ifindex != l.ifindex) {  // the same name, a new link
        closePort(l.name, port->link.ifindex, now);
        port = nullptr;
      }
      if (!port) {
        int fd = openPacketSocket(l.ifindex);
        if (fd < 0) {
          log(LOG_ERR, l.name + ": cannot open a packet socket: " + std::strerror(errno));
          continue;
        }
        sockets_[l.ifindex] = fd;
        byFd_[fd] = l.name;
        watch(fd);
        log(LOG_INFO, l.name + ": LLDP on");
      }
      core_.portIs(l, now);
      present.insert(l.name);
    }
    std::vector<std::pair<std::string, int>> gone;
    for (auto const& [fd, name] : byFd_)
      if (!present.count(name)) gone.emplace_back(name, core_.port(name) ? core_.port(name)->link.ifindex : 0);
    for (auto const& [name, ifindex] : gone) closePort(name, ifindex, now);
    core_.hostIs(view, now);
  }

  void closePort(std::string const& name, int ifindex, double now) {
    core_.portDel(name, now);
    auto it = sockets_.find(ifindex);
    if (it != sockets_.end()) {
      byFd_.erase(it->second);
      ::close(it->second);
      sockets_.erase(it);
    }
    log(LOG_INFO, name + ": LLDP off (the interface went away)");
  }

  void openStream() {
    int fd = ::open(o_.stream.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) throw std::runtime_error("cannot write '" + o_.stream + "': " + std::strerror(errno));
    streamError_ = 0;
    stream_ = Kel::Ptr<Kel::NboAttrLog::Stream>(new Kel::NboAttrLog::Stream([this, fd](const char* data, std::size_t size) {
      for (std::size_t done = 0; done < size;) {
        ssize_t n = ::write(fd, data + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        // A full disk is not a slow reader: remembered, and the stream given up below.
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) streamError_ = errno;
        if (n <= 0) return done;
        done += static_cast<std::size_t>(n);
      }
      return size;
    }));
    stream_->streamRoot(core_.status());
  }

  Options o_;
  Host host_;
  Core core_;
  Service service_;
  int epoll_ = -1, signals_ = -1, timer_ = -1;
  std::map<int, int> sockets_;          // ifindex -> packet socket
  std::map<int, std::string> byFd_;     // packet socket -> port
  Kel::Ptr<Kel::NboAttrLog::Stream> stream_;
  int streamError_ = 0;  // errno of a failed stream write
  std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> kernel_;  // packets, drops
  static constexpr int batch = 32;
  static constexpr std::size_t frameRoom = 10240 + 1;  // maxRxFrameSize, and one to see longer
  std::vector<char> bufs_ = std::vector<char>(batch * frameRoom);
  iovec iov_[batch];
  mmsghdr msgs_[batch];
};

}  // namespace

int main(int argc, char** argv) {
  sigset_t const set = handledSignals();
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
  Options o;
  AgentConfig cfg;
  try {
    o = parse(argc, argv);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "lldp-agent: %s (see --help)\n", LldpRx::displayText(e.what(), false).c_str());
    return 2;
  }
  try {
    cfg = o.config.empty() ? defaultConfig() : loadConfig(o.config);
    std::vector<std::string> pats = o.interfaces;
    pats.insert(pats.end(), cfg.interfaces.begin(), cfg.interfaces.end());
    checkInterfaces(cfg, pats);
    if (!o.service.group.empty()) Service::configGroup(o.service.group);
    // What operators changed through the socket comes after the file.
    if (auto op = Service::loadOperator(o.service.operatorFile)) Service::overlay(cfg, *op);
    if (o.check) {
      std::printf("%s: configuration valid\n", o.config.empty() ? "(defaults)" : LldpRx::displayText(o.config, false).c_str());
      return 0;
    }
    if (pats.empty()) throw std::invalid_argument("no interface: name one or more (or a pattern such as 'eth*')");
  } catch (std::exception const& e) {
    std::fprintf(stderr, "lldp-agent: %s\n", LldpRx::displayText(e.what(), false).c_str());
    return 2;
  }
  useSyslog = o.syslog || cfg.syslog;
  if (useSyslog) ::openlog("lldp-agent", LOG_PID, LOG_DAEMON);
  for (const char* h : {"LldpRx", "LldpPoe"}) Duolog::handle(h).levelIs(o.trace);
  // What a neighbour sent never reaches the log raw.
  Kel::EventLog::sinkIs([](Kel::EventLog::Record const& r) {
    log(LOG_NOTICE, r.handle->name().stdString() + ": " + LldpRx::displayText(r.text.view()));
  });
  Duolog::sinkIs([](Duolog::Line const& l) {
    log(LOG_DEBUG, std::string(l.handle) + " " + std::to_string(l.level) + " " + LldpRx::displayText(l.message));
  });
  try {
    requireNetRaw();
    Daemon d(o, std::move(cfg));
    return d.run();
  } catch (std::exception const& e) {
    log(LOG_ERR, e.what());
    return 1;
  }
}

}  // namespace LldpAgent
