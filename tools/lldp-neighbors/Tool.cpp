#include "tools/lldp-neighbors/Tool.h"

#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cmath>
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
    "  -i, --interface IFACE  frames received on an interface (not those it sends), until\n"
    "                         interrupted (needs the right to capture)\n"
    "      --mirror SRC       the neighbour tree that another run streams (see --stream)\n"
    "                         from SRC: a file, '-' (standard input) or unix:PATH (reads\n"
    "                         the writer listening there, such as lldp-agent's state.sock,\n"
    "                         else listens there; PATH must not exist, or be a socket);\n"
    "                         prints when the stream ends or on Ctrl-C / SIGTERM, and from\n"
    "                         unix:PATH also whenever the writer's changes pause\n"
    "Output:\n"
    "  -d, --detail           every neighbour with every field, its name and unit\n"
    "  -j, --json             JSON instead of text, with every field (see the README)\n"
    "      --stream DEST      also write the neighbour tree as an attribute log to DEST: a\n"
    "                         file, '-' (standard output, instead of the table) or\n"
    "                         unix:PATH (connects; reconnects when the mirror comes back)\n"
    "  -e, --events           event-log messages (neighbour added, timed out, ...) on stderr\n"
    "  -v, --trace LEVEL      trace the receive path at LEVEL (0 errors .. 8 every frame)\n"
    "                         on stderr; default 0\n"
    "Receive path:\n"
    "      --port NAME        -r: the port the frames arrive on (default: capture)\n"
    "      --max-neighbors N  neighbours kept per port (default 16, the agent's default)\n"
    "      --no-rate-limit    accept more than 32 LLDPDUs in 5 seconds on a port\n"
    "  -c, --count N          -i: stop after N LLDP frames\n"
    "  -t, --time SECONDS     -i: stop after SECONDS, frames or not\n"
    "Text a neighbour sent is shown with control characters, backslashes and bytes that\n"
    "are not UTF-8 as \\xNN, in the table, the detail and every message.\n"
    "  -h, --help             this text\n"
    "      --version          the version\n";

struct Options {
  std::string read, interface, mirror, stream, port = "capture";
  bool detail = false, json = false, events = false, rateLimit = true, portGiven = false, maxGiven = false,
       traceGiven = false, help = false, version = false;
  int trace = 0;
  std::uint32_t maxNeighbors = 16;
  std::uint64_t count = 0;
  double seconds = 0;
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

const char* nonEmpty(const char* option, const char* value) {
  if (!*value) throw UsageError(std::string(option) + " needs a name, not ''");
  return value;
}

template <class T>
T number(const char* option, const char* text, T min, T max) {
  char* end = nullptr;
  errno = 0;
  long double v = std::strtold(text, &end);
  // A NaN passes every comparison below, hexadecimal is not what an operator means, nor
  // are leading blanks or a sign (strtold skips and takes them).
  if (errno || end == text || *end || std::isnan(v) || std::strpbrk(text, "xX") ||
      !(std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '.') ||
      v < static_cast<long double>(min) || v > static_cast<long double>(max) ||
      (std::is_integral_v<T> && v != static_cast<long double>(static_cast<T>(v))))
    throw UsageError("invalid value '" + displayText(text) + "' for " + option);
  return static_cast<T>(v);
}

Options parse(int argc, char** argv) {
  enum { optMirror = 256, optStream, optPort, optMax, optNoRate, optVersion };
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
                                 {"version", no_argument, nullptr, optVersion},
                                 {nullptr, 0, nullptr, 0}};
  Options o;
  opterr = 0;
  optind = 1;
  for (int c; (c = getopt_long(argc, argv, ":r:i:djev:c:t:h", longs, nullptr)) != -1;) {
    switch (c) {
      // Empty would read as "not given": say so rather than "no input".
      case 'r': o.read = nonEmpty("-r", optarg); break;
      case 'i': o.interface = nonEmpty("-i", optarg); break;
      case optMirror: o.mirror = nonEmpty("--mirror", optarg); break;
      case 'd': o.detail = true; break;
      case 'j': o.json = true; break;
      case optStream: o.stream = nonEmpty("--stream", optarg); break;
      case 'e': o.events = true; break;
      case 'v':
        o.trace = number<int>("--trace", optarg, 0, 8);
        o.traceGiven = true;
        break;
      case optPort:
        o.port = nonEmpty("--port", optarg);
        o.portGiven = true;
        break;
      case optMax:
        o.maxNeighbors = number<std::uint32_t>("--max-neighbors", optarg, 1, UINT32_MAX);
        o.maxGiven = true;
        break;
      case optNoRate: o.rateLimit = false; break;
      case 'c': o.count = number<std::uint64_t>("--count", optarg, 1, UINT64_MAX / 2); break;
      case 't': o.seconds = number<double>("--time", optarg, 0.001, 1e9); break;
      case 'h': o.help = true; return o;
      case optVersion: o.version = true; return o;
      default: throw UsageError(LldpRx::optionError(c, argv, longs));
    }
  }
  if (optind < argc) throw UsageError("unexpected argument '" + displayText(argv[optind]) + "'");
  int const inputs = !o.read.empty() + !o.interface.empty() + !o.mirror.empty();
  if (inputs != 1) throw UsageError(inputs ? "give only one of -r, -i and --mirror" : "no input: give -r FILE, -i IFACE or --mirror SRC");
  if ((o.count || o.seconds) && o.interface.empty()) throw UsageError("--count and --time apply to -i only");
  if (o.portGiven && o.read.empty()) throw UsageError("--port applies to -r only (-i names the port)");
  if (!o.mirror.empty()) {
    // The run that streams decodes the frames: these would change nothing here.
    if (!o.stream.empty()) throw UsageError("--mirror and --stream do not go together");
    if (o.events) throw UsageError("--events applies to the run that streams, not to --mirror");
    if (o.traceGiven) throw UsageError("--trace applies to the run that streams, not to --mirror");
    if (o.maxGiven || !o.rateLimit)
      throw UsageError("--max-neighbors and --no-rate-limit apply to the run that streams, not to --mirror");
  }
  if (o.json && o.detail) throw UsageError("--detail is for the text output: --json always has every field");
  if (o.stream == "-" && (o.json || o.detail))
    throw UsageError("--stream - writes the log instead of the table: --json and --detail have nothing to format");
  return o;
}

// ---- signals: the first stops the run (which then prints what it has), a second also
// gives up waiting for a mirror to take the rest of the tree.

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void onSignal(int) {
  stopRequested = stopRequested < 2 ? stopRequested + 1 : 2;
}

void catchSignals() {
  struct sigaction a {};
  a.sa_handler = onSignal;
  sigemptyset(&a.sa_mask);
  a.sa_flags = 0;  // no SA_RESTART: a blocked read, accept or poll returns at once
  ::sigaction(SIGINT, &a, nullptr);
  ::sigaction(SIGTERM, &a, nullptr);
  // A reader that went away is an error to report, not a reason to die.
  std::signal(SIGPIPE, SIG_IGN);
}

double wallClock() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// ---- attribute-log streams to and from files, standard streams and Unix sockets

[[noreturn]] void fail(std::string const& what) { throw CaptureError(what + ": " + std::strerror(errno)); }

std::string named(std::string const& s) {
  // Appended rather than concatenated: g++ 12 at -O3 warns (falsely) on "'" + string.
  std::string out(1, '\'');
  out += displayText(s);
  out += '\'';
  return out;
}

sockaddr_un unixAddress(std::string const& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof a.sun_path) throw CaptureError("socket path " + named(path) + " is empty or too long");
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  return a;
}

int connectTo(std::string const& path) {
  sockaddr_un const a = unixAddress(path);
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (::connect(fd, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0) {
    int const e = errno;
    ::close(fd);
    errno = e;
    return -1;
  }
  return fd;
}

// The socket a mirror listens on. Only a socket that nobody listens on any more (left by
// a run that was killed) is replaced; anything else at the path is kept and refused.
class Listener {
 public:
  explicit Listener(std::string path) : path_(std::move(path)) {
    sockaddr_un const a = unixAddress(path_);
    struct stat st {};
    if (::lstat(path_.c_str(), &st) == 0) {
      if (!S_ISSOCK(st.st_mode)) throw CaptureError("cannot listen on " + named(path_) + ": it exists and is not a socket");
      if (int fd = connectTo(path_); fd >= 0) {
        ::close(fd);
        throw CaptureError("cannot listen on " + named(path_) + ": another program listens there");
      }
      if (errno != ECONNREFUSED) fail("cannot listen on " + named(path_));
      ::unlink(path_.c_str());
    }
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0) fail("cannot listen on " + named(path_));
    made_ = true;
    if (::lstat(path_.c_str(), &st) == 0) inode_ = st.st_ino;
    if (::listen(fd_, 1) != 0) fail("cannot listen on " + named(path_));
  }
  ~Listener() { remove(); }
  // The writer's connection; -1 when a signal came first.
  int accept() {
    for (;;) {
      int fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0 || errno != EINTR) {
        if (fd < 0) fail("cannot accept on " + named(path_));
        remove();
        return fd;
      }
      if (stopRequested) return -1;
    }
  }

 private:
  // Removes the socket this run made, and only while it is still the one it made.
  void remove() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    struct stat st {};
    if (made_ && ::lstat(path_.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) && st.st_ino == inode_) ::unlink(path_.c_str());
    made_ = false;
  }
  std::string path_;
  int fd_ = -1;
  bool made_ = false;
  ino_t inode_ = 0;
};

// Where a streaming run writes its log. A file or standard output takes everything or
// fails the run. A mirror on a Unix socket is written without blocking: while it reads
// slowly, the stream's flow control holds changes back (a neighbour that changes ten
// times goes once, as it is last); when it goes away the run says so, captures on, and
// reconnects now and then, sending the whole tree again.
class Output {
 public:
  Output(std::string dest, Lldp::Status::Ptr root) : dest_(std::move(dest)), root_(std::move(root)) {
    if (dest_ == "-") {
      fd_ = STDOUT_FILENO;
    } else if (dest_.rfind("unix:", 0) == 0) {
      socket_ = dest_.substr(5);
      fd_ = connectTo(socket_);
      if (fd_ < 0) fail("cannot connect to " + named(socket_));
    } else {
      fd_ = ::open(dest_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      if (fd_ < 0) fail("cannot write " + named(dest_));
    }
    start();
  }
  ~Output() {
    stream_ = nullptr;
    if (fd_ >= 0 && fd_ != STDOUT_FILENO) ::close(fd_);
  }

  // After a batch of changes, and while idle: sends what the reader takes now.
  void pump(double now) {
    if (lost_ && now - lastAttempt_ >= reconnectSeconds) reconnect(now);
    if (stream_ && !lost_) stream_->continueFlowOut();
    if (lost_ && stream_) stream_ = nullptr;  // not from inside the sink
  }
  // At the end: waits for the reader to take the rest; false (said why) when it cannot.
  bool finish() {
    bool told = false;
    for (int quiet = 0;; ++quiet) {
      if (lost_) reconnect(wallClock());
      if (lost_ && !told)
        std::fprintf(stderr, "%s: waiting for the mirror at %s (Ctrl-C again: stop)\n", program, named(socket_).c_str());
      told = told || lost_;
      if (!lost_) {
        std::size_t const before = stream_->bytesWritten();
        bool const done = stream_->continueFlowOut();
        if (!lost_ && done) return true;
        if (stream_->bytesWritten() != before) quiet = 0;
      }
      if (stopRequested >= 2 || quiet >= patience) break;
      pollfd p{lost_ ? -1 : fd_, POLLOUT, 0};
      ::poll(&p, 1, 200);
    }
    if (lost_)
      std::fprintf(stderr, "%s: the mirror at %s has not got the tree\n", program, named(socket_).c_str());
    else
      std::fprintf(stderr, "%s: the mirror at %s did not take all of the tree (%zu bytes left)\n", program,
                   named(socket_).c_str(), stream_->backlog().size());
    return false;
  }

 private:
  static constexpr double reconnectSeconds = 1.0;
  static constexpr int patience = 50;  // rounds of 200 ms without progress at the end
  static constexpr std::size_t window = 1 << 20;

  void start() {
    if (!socket_.empty()) ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK);
    stream_ = Kel::Ptr<Kel::NboAttrLog::Stream>(new Kel::NboAttrLog::Stream(
        [this](const char* data, std::size_t size) { return write(data, size); },
        socket_.empty() ? Kel::NboAttrLog::Stream::unlimited : window));
    stream_->streamRoot(root_);
    stream_->continueFlowOut();
  }
  std::size_t write(const char* data, std::size_t size) {
    std::size_t done = 0;
    while (done < size && !lost_) {
      ssize_t n = socket_.empty() ? ::write(fd_, data + done, size - done)
                                  : ::send(fd_, data + done, size - done, MSG_NOSIGNAL);
      if (n > 0) {
        done += static_cast<std::size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && !socket_.empty()) {
        break;  // the mirror is busy: the rest waits in the backlog
      } else if (!socket_.empty()) {
        std::fprintf(stderr, "%s: the mirror at %s went away (%s); capturing on, reconnecting\n", program,
                     named(socket_).c_str(), n < 0 ? std::strerror(errno) : "closed");
        lost_ = true;
        ::close(fd_);
        fd_ = -1;
        return size;
      } else {
        fail("cannot write to " + named(dest_));
      }
    }
    return done;
  }
  void reconnect(double now) {
    lastAttempt_ = now;
    fd_ = connectTo(socket_);
    if (fd_ < 0) return;
    lost_ = false;
    std::fprintf(stderr, "%s: the mirror at %s is back; sending the whole tree\n", program, named(socket_).c_str());
    stream_ = nullptr;
    start();
  }

  std::string dest_, socket_;
  Lldp::Status::Ptr root_;
  int fd_ = -1;
  bool lost_ = false;
  double lastAttempt_ = 0;
  Kel::Ptr<Kel::NboAttrLog::Stream> stream_;
};

Lldp::Status::Ptr statusOf(Kel::NboAttrLog::Stream const& in) {
  for (auto const& root : in.roots())
    if (auto status = Kel::ptrDynamicCast<Lldp::Status>(root)) return status;
  return nullptr;
}

// The tree a log rebuilds. Corrupt records are skipped, the first one's reason kept in
// `damage`, so that the rest of the tree still shows. Null when a signal came before
// the log named its tree. A writer on a socket is live: each time its changes pause,
// `show` gets the tree as it stands, and `shown` tells whether that is the last state.
Lldp::Status::Ptr mirror(std::string const& src, Kel::Ptr<Kel::NboAttrLog::Stream>& in, std::string& damage,
                         std::function<void(Lldp::Status const&)> const& show, bool& shown) {
  int fd = STDIN_FILENO;
  bool const live = src.rfind("unix:", 0) == 0;
  if (live) {
    // A writer that serves its stream where it listens (lldp-agent's state socket) is
    // read from; otherwise the mirror listens there for a writer to connect.
    std::string const path = src.substr(5);
    struct stat st {};
    fd = ::lstat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) ? connectTo(path) : -1;
    // A writer speaks first; a socket that stays silent serves something else (such as
    // lldp-agent's config.sock, which waits for a request).
    if (fd >= 0) {
      pollfd p{fd, POLLIN, 0};
      int ready;
      do ready = ::poll(&p, 1, 5000);
      while (ready < 0 && errno == EINTR && !stopRequested);
      if (ready == 0)
        throw CaptureError(named(src) + " sent nothing within 5 s: not a stream's writer (lldp-agent's is its state.sock)");
    }
    if (fd < 0) {
      Listener listener(path);
      fd = listener.accept();
      if (fd < 0) return nullptr;
    }
  } else if (src != "-") {
    fd = ::open(src.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) fail("cannot read " + named(src));
  }
  in = Kel::Ptr<Kel::NboAttrLog::Stream>(new Kel::NboAttrLog::Stream());
  char buf[1 << 16];
  shown = false;
  bool changed = false;
  while (!in->framingLost() && !stopRequested) {
    if (live && changed) {
      pollfd p{fd, POLLIN, 0};
      int const ready = ::poll(&p, 1, 200);
      if (ready < 0) continue;  // a signal: the loop looks at it
      if (ready == 0) {
        if (auto status = statusOf(*in)) {
          show(*status);
          shown = true;
        }
        changed = false;
        continue;
      }
    }
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("cannot read " + named(src));
    if (n == 0) break;
    changed = true;
    shown = false;
    try {
      in->apply(buf, static_cast<std::size_t>(n));
    } catch (std::exception const& e) {
      if (damage.empty()) damage = e.what();
    }
  }
  if (fd != STDIN_FILENO) ::close(fd);
  if (auto status = statusOf(*in)) return status;
  if (stopRequested) return nullptr;
  throw CaptureError(named(src) + " is not an attribute log of a neighbour tree" + (damage.empty() ? "" : ": " + damage));
}

std::string render(Lldp::Status const& status, Options const& o) {
  if (!o.json && !o.detail) return renderTable(status);
  Field const f = describe(status);
  return o.json ? renderJson(f) : renderDetail(f);
}

// Everything printed goes through here: a failed write (a full disk, a closed pipe)
// fails the run.
void print(std::string const& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    fail("cannot write the output");
}

// Event-log messages and traces carry what neighbours sent: escaped, as in the table,
// so that no neighbour writes to the terminal or forges a line of the log.
void escapeMessages(bool events) {
  Kel::EventLog::sinkIs([events](Kel::EventLog::Record const& r) {
    if (!events) return;
    std::string line = r.handle->name().stdString() + "[" + std::to_string(r.handle->severity()) + "]: " +
                       displayText(r.text.view());
    if (r.suppressedBefore) line += " (" + std::to_string(r.suppressedBefore) + " similar messages suppressed)";
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
  });
  Duolog::sinkIs([](Duolog::Line const& l) {
    std::string line = std::string(l.handle) + " " + std::to_string(l.level) + " " + displayText(l.message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
  });
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
      // No frame for a while: time still passes for the neighbours.
      double const now = wallClock();
      agent.receiver->ageOut(now);
      if (control.each) control.each(now);
      continue;
    }
    ++f.frames;
    if (!port) port = &agent.port(portName, time);
    LldpRx::FrameResult const r = port->frameIs(frame, time);
    ++f.results[static_cast<int>(r)];
    if (control.each) control.each(time);
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
    if (o.help || o.version) {
      print(o.help ? usage : std::string(program) + " " + LLDP_VERSION + "\n");
      return 0;
    }
    catchSignals();
    escapeMessages(o.events);
    Duolog::handle("LldpRx").levelIs(o.trace);
    Duolog::handle("LldpExtDot3Parser").levelIs(o.trace);
    double clock = 0;  // the time of the frame at hand, for the messages' repeat intervals
    Kel::EventLog::clockIs([&clock] { return clock; });

    if (!o.mirror.empty()) {
      Kel::Ptr<Kel::NboAttrLog::Stream> in;
      std::string damage;
      bool shown = false;
      Lldp::Status::Ptr status = mirror(
          o.mirror, in, damage, [&o](Lldp::Status const& s) { print(render(s, o)); }, shown);
      // Interrupted before the log named its tree: an empty table.
      if (!status) status = Lldp::statusFactory("lldp-neighbors");
      if (!shown) print(render(*status, o));
      if (!damage.empty()) {
        std::fprintf(stderr, "%s: %s has corrupt records, left out: %s\n", program, named(o.mirror).c_str(),
                     displayText(damage, false).c_str());
        return 1;
      }
      // A log cut inside a record fails as a capture cut inside a frame does.
      if (in && in->midRecord() && !stopRequested) {
        std::fprintf(stderr, "%s: %s ends inside a record: the tree shown is as of the last whole one\n", program,
                     named(o.mirror).c_str());
        return 1;
      }
      return 0;
    }

    std::unique_ptr<FrameSource> source = o.read.empty() ? FrameSource::live(o.interface) : FrameSource::file(o.read);
    Agent agent(o.maxNeighbors, o.rateLimit);
    std::unique_ptr<Output> out;
    if (!o.stream.empty()) out = std::make_unique<Output>(o.stream, agent.status);
    FeedControl control;
    control.maxLldpFrames = o.count;
    control.seconds = o.seconds;
    control.stop = &stopRequested;
    std::uint64_t sinceFlush = 0;
    control.each = [&](double now) {
      clock = now;
      // Live, every change goes out at once; from a file, in batches.
      if (out && (!o.interface.empty() || ++sinceFlush % 1024 == 0)) out->pump(now);
    };
    Feed const f = feed(*source, agent, o.interface.empty() ? o.port : o.interface, control);
    bool const delivered = !out || out->finish();
    out = nullptr;
    if (o.stream != "-") print(render(*agent.status, o));
    using R = LldpRx::FrameResult;
    if (f.count(R::tableFull))
      std::fprintf(stderr, "%s: %llu frames of new neighbours dropped: the port keeps %u (--max-neighbors)\n", program,
                   static_cast<unsigned long long>(f.count(R::tableFull)), o.maxNeighbors);
    if (f.count(R::rateLimited))
      std::fprintf(stderr, "%s: %llu frames over the receive rate limit dropped (--no-rate-limit)\n", program,
                   static_cast<unsigned long long>(f.count(R::rateLimited)));
    if (source->cutShort())
      std::fprintf(stderr, "%s: %llu frames cut short by the capture (its snap length): decoded as far as kept\n", program,
                   static_cast<unsigned long long>(source->cutShort()));
    if (!source->error().empty()) {
      std::fprintf(stderr, "%s: %s\n", program, displayText(source->error(), false).c_str());
      return 1;
    }
    return delivered ? 0 : 1;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "%s: %s\n", program, displayText(e.what(), false).c_str());
    return 1;
  }
}

}  // namespace LldpNeighbors
