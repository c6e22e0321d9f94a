#include "tools/lldp-neighbors/Tool.h"

#include <fcntl.h>
#include <getopt.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

#include "Kel/AttrLogStream.h"
#include "Kel/EventLog.h"
#include "Tracing/Duolog.h"
#include "tools/lldp-neighbors/Capture.h"
#include "tools/lldp-neighbors/Show.h"

namespace LldpNeighbors {

namespace {

const char* const program = "lldp-neighbors";

const char* const usage =
    "Usage: lldp-neighbors (-r FILE | -i IFACE | --mirror SRC) [options]\n"
    "Reads LLDP frames into an LLDP agent's neighbour table and prints it.\n"
    "\n"
    "Input (one of):\n"
    "  -r, --read FILE        frames of a pcap or pcapng capture ('-': standard input),\n"
    "                         taken as received on one port, with the file's time stamps\n"
    "  -i, --interface IFACE  live frames of an interface, until interrupted (needs the\n"
    "                         right to capture)\n"
    "      --mirror SRC       the neighbour tree that another run streams (see --stream)\n"
    "                         from SRC: a file, '-' (standard input) or unix:PATH (listens)\n"
    "Output:\n"
    "  -d, --detail           every neighbour with every field, its name and unit\n"
    "  -j, --json             JSON instead of text: the model's names, powers in watts,\n"
    "                         times in seconds since the epoch, sizes in bytes\n"
    "      --stream DEST      also write the neighbour tree as an attribute log to DEST: a\n"
    "                         file, '-' (standard output, instead of the table) or\n"
    "                         unix:PATH (connects); --mirror prints what this run prints\n"
    "  -e, --events           event-log messages (neighbour added, timed out, ...) on stderr\n"
    "  -v, --trace LEVEL      trace the receive path at LEVEL (0 errors .. 8 every frame)\n"
    "                         on stderr; default 0\n"
    "Receive path:\n"
    "      --port NAME        the port a capture file's frames arrive on (default: capture)\n"
    "      --max-neighbors N  neighbours kept per port (default 16, the agent's default)\n"
    "      --no-rate-limit    accept more than 32 LLDPDUs in 5 seconds on a port\n"
    "  -c, --count N          live: stop after N LLDP frames\n"
    "  -t, --time SECONDS     live: stop after SECONDS\n"
    "  -h, --help             this text\n";

struct Options {
  std::string read, interface, mirror, stream, port = "capture";
  bool detail = false, json = false, events = false, rateLimit = true;
  int trace = 0;
  std::uint32_t maxNeighbors = 16;
  std::uint64_t count = 0;
  double seconds = 0;
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

template <class T>
T number(const char* option, const char* text, T min, T max) {
  char* end = nullptr;
  errno = 0;
  long double v = std::strtold(text, &end);
  if (errno || end == text || *end || v < static_cast<long double>(min) || v > static_cast<long double>(max) ||
      (std::is_integral_v<T> && v != static_cast<long double>(static_cast<T>(v))))
    throw UsageError(std::string("invalid value '") + text + "' for " + option);
  return static_cast<T>(v);
}

Options parse(int argc, char** argv) {
  enum { optMirror = 256, optStream, optPort, optMax, optNoRate };
  static option const longs[] = {{"read", required_argument, nullptr, 'r'},
                                 {"interface", required_argument, nullptr, 'i'},
                                 {"mirror", required_argument, nullptr, optMirror},
                                 {"detail", no_argument, nullptr, 'd'},
                                 {"json", no_argument, nullptr, 'j'},
                                 {"stream", required_argument, nullptr, optStream},
                                 {"events", no_argument, nullptr, 'e'},
                                 {"trace", required_argument, nullptr, 'v'},
                                 {"port", required_argument, nullptr, optPort},
                                 {"max-neighbors", required_argument, nullptr, optMax},
                                 {"no-rate-limit", no_argument, nullptr, optNoRate},
                                 {"count", required_argument, nullptr, 'c'},
                                 {"time", required_argument, nullptr, 't'},
                                 {"help", no_argument, nullptr, 'h'},
                                 {nullptr, 0, nullptr, 0}};
  Options o;
  opterr = 0;
  optind = 1;
  for (int c; (c = getopt_long(argc, argv, ":r:i:djev:c:t:h", longs, nullptr)) != -1;) {
    switch (c) {
      case 'r': o.read = optarg; break;
      case 'i': o.interface = optarg; break;
      case optMirror: o.mirror = optarg; break;
      case 'd': o.detail = true; break;
      case 'j': o.json = true; break;
      case optStream: o.stream = optarg; break;
      case 'e': o.events = true; break;
      case 'v': o.trace = number<int>("--trace", optarg, 0, 9); break;
      case optPort:
        if (!*optarg) throw UsageError("--port needs a name");
        o.port = optarg;
        break;
      case optMax: o.maxNeighbors = number<std::uint32_t>("--max-neighbors", optarg, 1, UINT32_MAX); break;
      case optNoRate: o.rateLimit = false; break;
      case 'c': o.count = number<std::uint64_t>("--count", optarg, 1, UINT64_MAX / 2); break;
      case 't': o.seconds = number<double>("--time", optarg, 0.001, 1e9); break;
      case 'h': std::fputs(usage, stdout); std::exit(0);
      case ':': throw UsageError(std::string("option '") + argv[optind - 1] + "' needs a value");
      default:
        throw UsageError(optopt ? std::string("unknown option '-") + static_cast<char>(optopt) + "'"
                                : std::string("unknown option '") + argv[optind - 1] + "'");
    }
  }
  if (optind < argc) throw UsageError(std::string("unexpected argument '") + argv[optind] + "'");
  int const inputs = !o.read.empty() + !o.interface.empty() + !o.mirror.empty();
  if (inputs != 1) throw UsageError(inputs ? "give only one of -r, -i and --mirror" : "no input: give -r FILE, -i IFACE or --mirror SRC");
  if ((o.count || o.seconds) && o.interface.empty()) throw UsageError("--count and --time apply to -i only");
  if (!o.mirror.empty() && !o.stream.empty()) throw UsageError("--mirror and --stream do not go together");
  return o;
}

// ---- attribute-log streams to and from files, standard streams and Unix sockets

[[noreturn]] void fail(std::string const& what) { throw CaptureError(what + ": " + std::strerror(errno)); }

sockaddr_un unixAddress(std::string const& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) throw CaptureError("socket path '" + path + "' is too long");
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  return a;
}

int openOutput(std::string const& dest) {
  if (dest == "-") return STDOUT_FILENO;
  if (dest.rfind("unix:", 0) == 0) {
    sockaddr_un const a = unixAddress(dest.substr(5));
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0)
      fail("cannot connect to '" + dest.substr(5) + "'");
    return fd;
  }
  int fd = ::open(dest.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) fail("cannot write '" + dest + "'");
  return fd;
}

int openInput(std::string const& src) {
  if (src == "-") return STDIN_FILENO;
  if (src.rfind("unix:", 0) == 0) {
    std::string const path = src.substr(5);
    sockaddr_un const a = unixAddress(path);
    int s = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ::unlink(path.c_str());
    if (s < 0 || ::bind(s, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0 || ::listen(s, 1) != 0)
      fail("cannot listen on '" + path + "'");
    int fd = ::accept(s, nullptr, nullptr);
    if (fd < 0) fail("cannot accept on '" + path + "'");
    ::close(s);
    ::unlink(path.c_str());
    return fd;
  }
  int fd = ::open(src.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) fail("cannot read '" + src + "'");
  return fd;
}

Kel::Ptr<Kel::NboAttrLog::Stream> writer(int fd, std::string const& dest) {
  return Kel::Ptr<Kel::NboAttrLog::Stream>(new Kel::NboAttrLog::Stream([fd, dest](const char* data, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
      ssize_t n = ::write(fd, data + done, size - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) fail("cannot write to '" + dest + "'");
      done += static_cast<std::size_t>(n);
    }
    return size;
  }));
}

// The tree a log rebuilds. Corrupt records are skipped, the first one's reason kept in
// `damage`, so that the rest of the tree still shows.
Lldp::Status::Ptr mirror(std::string const& src, Kel::Ptr<Kel::NboAttrLog::Stream>& in, std::string& damage) {
  int fd = openInput(src);
  in = Kel::Ptr<Kel::NboAttrLog::Stream>(new Kel::NboAttrLog::Stream());
  char buf[1 << 16];
  while (!in->framingLost()) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("cannot read '" + src + "'");
    if (n == 0) break;
    try {
      in->apply(buf, static_cast<std::size_t>(n));
    } catch (std::exception const& e) {
      if (damage.empty()) damage = e.what();
    }
  }
  if (fd != STDIN_FILENO) ::close(fd);
  for (auto const& root : in->roots())
    if (auto status = Kel::Ptr<Lldp::Status>(dynamic_cast<Lldp::Status*>(root.get()))) return status;
  throw CaptureError("'" + src + "' is not an attribute log of a neighbour tree" + (damage.empty() ? "" : ": " + damage));
}

// A log that stops inside a record was cut short: the tree is as of its last whole record.
bool cutShort(Kel::NboAttrLog::Stream const& in, std::string const& src) {
  if (!in.midRecord()) return false;
  std::fprintf(stderr, "%s: '%s' ends inside a record: the tree shown is as of the last whole one\n", program,
               src.c_str());
  return true;
}

volatile std::sig_atomic_t stopRequested = 0;
FrameSource* liveSource = nullptr;

extern "C" void onSignal(int) {
  stopRequested = 1;
  if (liveSource) liveSource->breakLoop();
}

std::string render(Lldp::Status const& status, Options const& o) {
  Field const f = describe(status);
  return o.json ? renderJson(f) : o.detail ? renderDetail(f) : renderTable(f);
}

}  // namespace

// ---- Agent and feed

Agent::Agent(std::uint32_t max, bool limit)
    : status(Lldp::statusFactory("lldp-neighbors")),
      config(Lldp::configFactory("lldp-neighbors")),
      receiver(std::make_unique<LldpRx::Receiver>(status, config)),
      maxNeighbors(max),
      rateLimit(limit) {}

LldpRx::Port& Agent::port(std::string const& name, double now) {
  Platform::IntfId const intf{Kel::String(name)};
  if (LldpRx::Port* p = receiver->port(intf)) return *p;
  Lldp::PortConfig::Ptr pc = config->portConfigIs(intf);
  pc->maxRemoteSystemsIs(maxNeighbors);
  pc->rxRateLimitingEnabledIs(rateLimit);
  return receiver->portIs(intf, now);
}

Feed feed(FrameSource& source, Agent& agent, std::string const& portName, FeedControl const& control) {
  Feed f;
  LldpRx::Port* port = nullptr;
  auto const start = std::chrono::steady_clock::now();
  auto wallClock = [] {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
  std::string_view frame;
  double time = 0;
  for (;;) {
    if (control.stop && *control.stop) break;
    if (control.seconds > 0 &&
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >= control.seconds)
      break;
    FrameSource::Next const n = source.next(frame, time);
    if (n == FrameSource::Next::end) break;
    if (n == FrameSource::Next::idle) {
      agent.receiver->ageOut(wallClock());
      if (control.each) control.each();
      continue;
    }
    ++f.frames;
    if (!port) port = &agent.port(portName, time);
    LldpRx::FrameResult const r = port->frameIs(frame, time);
    ++f.results[static_cast<int>(r)];
    if (control.each) control.each();
    if (control.maxLldpFrames && f.frames - f.count(LldpRx::FrameResult::notLldp) >= control.maxLldpFrames) break;
  }
  return f;
}

int main(int argc, char** argv) {
  Options o;
  try {
    o = parse(argc, argv);
  } catch (UsageError const& e) {
    std::fprintf(stderr, "%s: %s (see --help)\n", program, e.what());
    return 2;
  }
  try {
    Duolog::handle("LldpRx").levelIs(o.trace);
    Duolog::handle("LldpExtDot3Parser").levelIs(o.trace);
    double clock = 0;  // the time of the frame at hand, for the messages' repeat intervals
    Kel::EventLog::clockIs([&clock] { return clock; });
    Kel::EventLog::sinkIs(o.events ? Kel::EventLog::Sink() : Kel::EventLog::Sink([](Kel::EventLog::Record const&) {}));

    if (!o.mirror.empty()) {
      Kel::Ptr<Kel::NboAttrLog::Stream> in;
      std::string damage;
      Lldp::Status::Ptr status = mirror(o.mirror, in, damage);
      std::fputs(render(*status, o).c_str(), stdout);
      if (!damage.empty()) {
        std::fprintf(stderr, "%s: '%s' has corrupt records, left out: %s\n", program, o.mirror.c_str(), damage.c_str());
        return 1;
      }
      return cutShort(*in, o.mirror) ? 1 : 0;
    }

    std::unique_ptr<FrameSource> source = o.read.empty() ? FrameSource::live(o.interface) : FrameSource::file(o.read);
    Agent agent(o.maxNeighbors, o.rateLimit);
    Kel::Ptr<Kel::NboAttrLog::Stream> out;
    int outFd = -1;
    if (!o.stream.empty()) {
      outFd = openOutput(o.stream);
      out = writer(outFd, o.stream);
      out->streamRoot(agent.status);
      out->continueFlowOut();
    }
    FeedControl control;
    control.maxLldpFrames = o.count;
    control.seconds = o.seconds;
    std::uint64_t sinceFlush = 0;
    control.each = [&] {
      clock = agent.status->lastPacketParsedTime();
      // Live, every change goes out at once; from a file, in batches.
      if (out && (!o.interface.empty() || ++sinceFlush % 1024 == 0)) out->continueFlowOut();
    };
    if (!o.interface.empty()) {
      liveSource = source.get();
      control.stop = &stopRequested;
      std::signal(SIGINT, onSignal);
      std::signal(SIGTERM, onSignal);
    }
    Feed const f = feed(*source, agent, o.interface.empty() ? o.port : o.interface, control);
    liveSource = nullptr;
    if (out) {
      out->continueFlowOut();
      out = nullptr;
      if (outFd != STDOUT_FILENO) ::close(outFd);
    }
    if (o.stream != "-") std::fputs(render(*agent.status, o).c_str(), stdout);
    using R = LldpRx::FrameResult;
    if (f.count(R::tableFull))
      std::fprintf(stderr, "%s: %llu frames of new neighbours dropped: the port keeps %u (--max-neighbors)\n", program,
                   static_cast<unsigned long long>(f.count(R::tableFull)), o.maxNeighbors);
    if (f.count(R::rateLimited))
      std::fprintf(stderr, "%s: %llu frames over the receive rate limit dropped (--no-rate-limit)\n", program,
                   static_cast<unsigned long long>(f.count(R::rateLimited)));
    if (!source->error().empty()) {
      std::fprintf(stderr, "%s: %s\n", program, source->error().c_str());
      return 1;
    }
    return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.what());
    return 1;
  }
}

}  // namespace LldpNeighbors
