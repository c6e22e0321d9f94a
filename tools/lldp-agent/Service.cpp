#include "tools/lldp-agent/Service.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <vector>

#include "Kel/Exception.h"
#include "tools/lldp-agent/ServiceProtocol.h"

namespace LldpAgent {

using Kel::NboAttrLog::Stream;

struct Service::Client {
  int fd = -1;
  bool control = false;
  bool reader = false;
  ucred peer{};
  // A reader gets the bytes of `own` (a snapshot, or the rest of the record it was in
  // when it fell behind), then the log from `pos`.
  std::shared_ptr<std::string const> own;
  std::size_t ownSent = 0;
  std::uint64_t pos = 0, recordEnd = 0;  // where the record that holds pos ends
  // Lag allowed beyond the window until it has caught up once: its snapshot's size, so that
  // a reader that takes longer to read a snapshot than the window lasts still gets there.
  std::size_t slack = 0;
  // Its snapshot, while it is being written: `own` holds the part written last, `whole`
  // all of it so far, for the readers that join where it ends.
  Kel::Ptr<Stream> snap;
  std::string whole;
  bool behind = false;   // owes a resync once its socket drains
  bool pollOut = false;  // waiting for the socket to drain
  bool dead = false;     // the peer went away
  std::string request;   // a configuring client's bytes so far
  std::size_t nextRecord = 0;  // where the next record of the request starts
  double deadline = 0;   // a configuring client that has not sent its request by then is closed
};

namespace {

std::string peerName(ucred const& p) {
  std::string s = "uid " + std::to_string(p.uid);
  if (passwd const* pw = ::getpwuid(p.uid)) s += " (" + std::string(pw->pw_name) + ")";
  return s + " pid " + std::to_string(p.pid);
}

sockaddr_un address(std::string const& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) throw std::runtime_error("socket path '" + path + "' is too long");
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  return a;
}

int listenOn(std::string const& path) {
  sockaddr_un const a = address(path);
  // A socket file that still answers belongs to a running agent: leave it alone.
  int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (probe >= 0 && ::connect(probe, reinterpret_cast<sockaddr const*>(&a), sizeof a) == 0) {
    ::close(probe);
    throw std::runtime_error("'" + path + "' is served by another lldp-agent");
  }
  if (probe >= 0) ::close(probe);
  ::unlink(path.c_str());
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0 || ::listen(fd, 64) != 0)
    throw std::runtime_error("cannot listen on '" + path + "': " + std::strerror(errno));
  // Who may connect is the directory's business; who may configure is checked per peer.
  ::chmod(path.c_str(), 0666);
  return fd;
}

template <class T>
Kel::Ptr<T> rootOf(Stream const& s) {
  for (auto const& r : s.roots())
    if (auto p = Kel::Ptr<T>(dynamic_cast<T*>(r.get()))) return p;
  return nullptr;
}

}  // namespace

Service::Service(Core& core, ServiceOptions o, Log log)
    : core_(core),
      o_(std::move(o)),
      log_(std::move(log)),
      published_(Lldp::cliConfigFactory("lldp-agent")),
      remTables_(Lldp::remTablesStatusFactory("lldp-agent")),
      checkpoint_(Lldp::counterCheckpointFactory("lldp-agent")) {
  LldpService::copyCliConfig(*core_.config().cli, *published_);
  if (!o_.group.empty()) {
    group_ = configGroup(o_.group);
    haveGroup_ = true;
  }
  operator_ = loadOperator(o_.operatorFile);
}

gid_t Service::configGroup(std::string const& name) {
  group const* g = ::getgrnam(name.c_str());
  if (!g) throw std::runtime_error("no group '" + name + "' (--config-group)");
  return g->gr_gid;
}

Service::~Service() {
  for (auto& [fd, c] : clients_) ::close(fd);
  clients_.clear();
  for (auto [fd, name] : {std::pair{stateFd_, LldpService::stateSocketName}, {configFd_, LldpService::configSocketName}})
    if (fd >= 0) {
      ::close(fd);
      ::unlink((o_.socketDir + "/" + name).c_str());
    }
}

void Service::open(int epoll) {
  epoll_ = epoll;
  if (o_.socketDir.empty()) return;
  // Without its sockets the agent still runs LLDP: say so, loudly, and go on.
  try {
    if (::mkdir(o_.socketDir.c_str(), 0755) != 0 && errno != EEXIST)
      throw std::runtime_error("cannot make '" + o_.socketDir + "': " + std::strerror(errno));
    stateFd_ = listenOn(o_.socketDir + "/" + LldpService::stateSocketName);
    configFd_ = listenOn(o_.socketDir + "/" + LldpService::configSocketName);
  } catch (std::exception const& e) {
    log_(LOG_ERR, std::string("no service to clients (lldp-cli): ") + e.what());
    if (stateFd_ >= 0) ::close(stateFd_);
    stateFd_ = -1;
    return;
  }
  for (int fd : {stateFd_, configFd_}) {
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &ev);
  }
}

void Service::event(int fd, std::uint32_t events, double now) {
  lastNow_ = now;
  if (fd == stateFd_ || fd == configFd_) return accept(fd, now);
  auto it = clients_.find(fd);
  if (it == clients_.end()) return;
  Client& c = *it->second;
  if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) && readable(c, now)) return;
  if (!c.dead && (events & EPOLLOUT)) drain(c);
  if (c.dead) close(c, "", LOG_DEBUG);
}

void Service::accept(int listener, double now) {
  for (;;) {
    int fd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)) {
      // The connection stays queued and the listener readable: stop listening until a
      // client goes or a second has passed, rather than spin on it.
      if (!starved_) log_(LOG_WARNING, std::string("clients wait: ") + std::strerror(errno));
      starved_ = true;
      retryAt_ = now + 1;
      listening(false);
    }
    if (fd < 0) return;
    starved_ = false;
    auto c = std::make_unique<Client>();
    c->fd = fd;
    c->control = listener == configFd_;
    c->deadline = now + requestSeconds;
    socklen_t len = sizeof c->peer;
    ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &c->peer, &len);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &ev);
    Client& ref = *c;
    clients_.emplace(fd, std::move(c));
    if (ref.control) continue;
    // The kernel's buffer is lag too: no more of it than the window (the kernel keeps
    // its own minimum).
    int sndbuf = static_cast<int>(std::min<std::size_t>(o_.window, 1 << 20));
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);
    ref.reader = true;
    ++readers_;
    start(ref);
    drain(ref);
    if (ref.dead) close(ref, "", LOG_DEBUG);
  }
}

bool Service::readable(Client& c, double now) {
  char buf[1 << 16];
  for (;;) {
    ssize_t n = ::recv(c.fd, buf, sizeof buf, MSG_DONTWAIT);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EAGAIN) return false;
    if (n < 0) {
      c.dead = true;
      return false;
    }
    if (!c.control) {
      if (n == 0) {
        c.dead = true;
        return false;
      }
      close(c, "a reader wrote to the state socket (configure through " + std::string(LldpService::configSocketName) + ")",
            LOG_WARNING);
      return true;
    }
    if (n > 0) {
      if (c.request.size() + static_cast<std::size_t>(n) > LldpService::maxRequest) {
        close(c, "a request over " + std::to_string(LldpService::maxRequest) + " bytes", LOG_WARNING);
        return true;
      }
      c.request.append(buf, static_cast<std::size_t>(n));
      // A record announcing more than a request may hold is refused on its header, not
      // after reading up to the limit.
      while (c.request.size() >= c.nextRecord + 4) {
        std::uint32_t const length = LldpService::readU32(c.request.data() + c.nextRecord);
        if (length > LldpService::maxRequest - 4) {
          std::string const why = "a record announcing " + std::to_string(length) + " bytes: a request holds at most " +
                                  std::to_string(LldpService::maxRequest) + " bytes, length fields included";
          std::string const reply = "error: " + why + "\n";
          ::send(c.fd, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
          close(c, "bad request: " + why, LOG_WARNING);
          return true;
        }
        c.nextRecord += 4 + length;
      }
      continue;
    }
    // The peer shut its side: the request is whole.
    bool corrupt = false;
    std::string why = mayConfigure(c.peer)
                          ? request(c.request, c.peer, now, corrupt)
                          : "permission denied: configuring and clearing need root" +
                                (haveGroup_ ? " or membership of group '" + o_.group + "'" : std::string());
    std::string const reply = why.empty() ? "ok\n" : "error: " + why + "\n";
    ::send(c.fd, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (why.empty())
      close(c, "", LOG_DEBUG);
    else
      close(c, (corrupt ? "bad request: " : "request refused: ") + why, corrupt ? LOG_WARNING : LOG_NOTICE);
    return true;
  }
}

void Service::start(Client& c) {
  if (!master_) {
    // The first reader: the stream's own start is its snapshot, written a chunk at a time
    // as readers take it (pump), so that the reader decodes while the agent encodes.
    // Meanwhile the stream is throttled and changes are held back as dirty attributes.
    stream_ = Stream::resetRecord();
    openedAt_ = handedOut_ = scanned_ = logBase_;
    opening_ = true;
    budget_ = 0;
    master_ = Kel::Ptr<Stream>(new Stream(
        [this](const char* d, std::size_t n) -> std::size_t {
          if (opening_ && !budget_) return 0;
          stream_.append(d, n);
          budget_ -= std::min(budget_, n);
          return n;
        },
        chunk));
    for (Kel::Ptr<Kel::Entity> r : {Kel::Ptr<Kel::Entity>(core_.status()), Kel::Ptr<Kel::Entity>(core_.effective()),
                                    Kel::Ptr<Kel::Entity>(core_.localSystem()), Kel::Ptr<Kel::Entity>(remTables_),
                                    Kel::Ptr<Kel::Entity>(published_), Kel::Ptr<Kel::Entity>(checkpoint_)})
      master_->streamRoot(r);
  }
  if (opening_) {
    // Joins the opening from its start, which is kept until it is complete.
    c.own.reset();
    c.pos = c.recordEnd = openedAt_;
    return;
  }
  // A snapshot of its own, written a chunk at a time as the reader takes it; what
  // changes meanwhile it sends as it stands when it gets there, so that the reader goes
  // on from the log's end once it is written.
  master_->continueFlowOut();
  if (snapshot_ && snapshotAt_ == logEnd()) {
    // Another reader's, still true: no change since.
    c.own = snapshot_;
    c.slack = c.own->size();
    c.pos = c.recordEnd = logEnd();
    return;
  }
  c.own.reset();
  budget_ = chunk;
  chunk_.clear();
  c.snap = master_->snapshotStream(
      [this](const char* d, std::size_t n) -> std::size_t {
        if (!budget_) return 0;
        chunk_.append(d, n);
        budget_ -= std::min(budget_, n);
        return n;
      },
      chunk);
  c.whole = chunk_;
  c.own = std::make_shared<std::string const>(std::move(chunk_));
}

bool Service::snapPump(Client& c) {
  // Entities new since the last turn get their ids from the master first.
  master_->continueFlowOut();
  budget_ = chunk;
  chunk_.clear();
  try {
    if (c.snap->continueFlowOut()) {
      c.snap = nullptr;
      chunk_ += LldpService::syncRecord(master_->idOf(core_.status().get()));
      c.pos = c.recordEnd = logEnd();
      c.slack = chunk_.size();
      // Applied whole, its parts make the trees as they are now.
      snapshot_ = std::make_shared<std::string const>(std::move(c.whole += chunk_));
      snapshotAt_ = logEnd();
      c.whole = std::string();
    } else {
      c.whole += chunk_;
    }
  } catch (std::exception const& e) {
    // The whole trees at once instead: their reset record starts the reader afresh.
    complain(LOG_WARNING, std::string("a reader's snapshot taken whole: ") + e.what());
    c.snap = nullptr;
    c.whole = std::string();
    c.own = snapshot();
    c.slack = c.own->size();
    c.pos = c.recordEnd = logEnd();
    return true;
  }
  if (!chunk_.empty()) c.own = std::make_shared<std::string const>(std::move(chunk_));
  return c.own != nullptr;
}

bool Service::pump() {
  std::uint64_t const before = logEnd();
  budget_ = chunk;
  if (master_->continueFlowOut()) {
    opening_ = false;
    stream_ += LldpService::syncRecord(master_->idOf(core_.status().get()));
    // Kept whole (nothing of it was dropped meanwhile), it is the next reader's snapshot.
    snapshot_ = std::make_shared<std::string const>(stream_);
    snapshotAt_ = logEnd();
    // Its readers may lag by what they have still to read of it, as a snapshot's do.
    for (auto& [fd, c] : clients_)
      if (c->reader && !c->behind) c->slack = std::max<std::size_t>(c->slack, static_cast<std::size_t>(logEnd() - c->pos));
  }
  return logEnd() != before;
}

std::shared_ptr<std::string const> Service::snapshot() {
  master_->continueFlowOut();
  if (!snapshot_ || snapshotAt_ != logEnd()) {
    std::string s = master_->snapshot();
    s += LldpService::syncRecord(master_->idOf(core_.status().get()));
    snapshot_ = std::make_shared<std::string const>(std::move(s));
    snapshotAt_ = logEnd();
  }
  return snapshot_;
}

namespace {

// What the socket takes of the bytes, without waiting; a peer that went away is dead.
std::size_t sendSome(int fd, const char* data, std::size_t size, bool& dead) {
  ssize_t n = ::send(fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
  if (n >= 0) return static_cast<std::size_t>(n);
  if (errno != EAGAIN && errno != EINTR) dead = true;
  return 0;
}

}  // namespace

void Service::drain(Client& c) {
  int pumps = 0;
  while (!c.dead) {
    if (c.own) {
      std::size_t const left = c.own->size() - c.ownSent;
      std::size_t const n = sendSome(c.fd, c.own->data() + c.ownSent, left, c.dead);
      c.ownSent += n;
      if (n < left) break;
      c.own.reset();
      c.ownSent = 0;
    }
    if (c.snap) {
      if (pumps++ < 2 && snapPump(c)) continue;
      break;
    }
    if (c.behind) {
      // Its socket drained: it starts again from the trees as they are now.
      c.behind = false;
      start(c);
      continue;
    }
    std::size_t const at = static_cast<std::size_t>(c.pos - logBase_), left = stream_.size() - at;
    // It has all there is of the opening: the next chunk, a few per event so that the
    // loop goes round meanwhile (the socket, still writable, brings it back at once).
    if (!left && opening_ && pumps++ < 2 && pump()) continue;
    if (!left) break;
    std::size_t const n = sendSome(c.fd, stream_.data() + at, left, c.dead);
    c.pos += n;
    while (c.recordEnd < c.pos)
      c.recordEnd += 4 + LldpService::readU32(stream_.data() + static_cast<std::size_t>(c.recordEnd - logBase_));
    if (n < left) break;
  }
  if (c.dead) return;
  lagged(c);
  interest(c, c.own || c.snap || c.behind || c.pos < logEnd() || opening_);
}

void Service::lagged(Client& c) {
  // The opening is kept whole for its readers: they lag at most by it.
  if (c.behind || opening_ || c.snap) return;
  std::uint64_t const lag = logEnd() - c.pos;
  if (lag <= o_.window) {
    if (!c.own) c.slack = 0;  // it has its snapshot and keeps up
  } else if (lag > o_.window + c.slack)
    fallBehind(c);
}

void Service::fallBehind(Client& c) {
  // It keeps only what completes the record it is in; the log is no longer kept for it.
  std::string rest;
  if (c.own) {
    std::size_t end = 0;  // a snapshot: records from its start
    while (end < c.ownSent) end += 4 + LldpService::readU32(c.own->data() + end);
    rest = c.own->substr(c.ownSent, end - c.ownSent);
  } else {
    rest = stream_.substr(static_cast<std::size_t>(c.pos - logBase_), static_cast<std::size_t>(c.recordEnd - c.pos));
  }
  c.own = rest.empty() ? nullptr : std::make_shared<std::string const>(std::move(rest));
  c.ownSent = 0;
  c.behind = true;
}

void Service::interest(Client& c, bool out) {
  if (c.pollOut == out) return;
  c.pollOut = out;
  epoll_event ev{};
  ev.events = EPOLLIN | (out ? EPOLLOUT : 0u);
  ev.data.fd = c.fd;
  ::epoll_ctl(epoll_, EPOLL_CTL_MOD, c.fd, &ev);
}

void Service::flush(double now) {
  if (!master_) return;
  // While it opens, the stream goes on as its readers take it.
  if (!opening_) master_->continueFlowOut();
  // Nothing new: no reader has anything to do.
  if (logEnd() == handedOut_) return;
  // A few routine changes wait; a burst costs each reader one send anyway.
  if (!opening_ && now < routineDue_ && logEnd() - handedOut_ <= routineBytes && routineOnly()) return;
  routineDue_ = now + routineSeconds;
  handedOut_ = logEnd();
  if (snapshotAt_ != logEnd()) snapshot_.reset();
  std::vector<int> dead;
  std::uint64_t keep = logEnd();
  for (auto& [fd, c] : clients_) {
    if (!c->reader) continue;
    if (!c->pollOut)
      drain(*c);
    else
      lagged(*c);
    if (c->dead)
      dead.push_back(fd);
    else if (!c->behind && !c->snap)
      keep = std::min(keep, c->pos);
  }
  for (int fd : dead) close(*clients_.at(fd), "", LOG_DEBUG);
  if (opening_ || !master_) return;
  // What every reader has is dropped; a little at a time costs a copy of the rest each time.
  std::size_t const done = static_cast<std::size_t>(keep - logBase_);
  if ((done == stream_.size() || (done > (64u << 10) && done * 2 > stream_.size()))) {
    stream_.erase(0, done);
    logBase_ = keep;
  }
}

void Service::listening(bool on) {
  if (paused_ == !on) return;
  paused_ = !on;
  for (int fd : {stateFd_, configFd_}) {
    epoll_event ev{};
    ev.events = on ? static_cast<std::uint32_t>(EPOLLIN) : 0u;
    ev.data.fd = fd;
    ::epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &ev);
  }
}

double Service::expire(double now) {
  lastNow_ = now;
  if (unlogged_ && now >= quietUntil_) complain(LOG_NOTICE, "");
  std::vector<Client*> late;
  double next = std::numeric_limits<double>::infinity();
  // Descriptors may have run out for reasons of the agent's own, with no client to go.
  if (paused_ && now >= retryAt_) listening(true);
  if (paused_) next = retryAt_;
  if (master_ && logEnd() != handedOut_) next = std::min(next, routineDue_);
  for (auto& [fd, c] : clients_)
    if (c->control) {
      if (c->deadline <= now)
        late.push_back(c.get());
      else
        next = std::min(next, c->deadline);
    }
  for (Client* c : late)
    close(*c, "no whole request within " + std::to_string(static_cast<int>(requestSeconds)) + " s", LOG_NOTICE);
  return next;
}

void Service::close(Client& c, std::string const& why, int prio) {
  if (!why.empty()) complain(prio, "client " + peerName(c.peer) + " closed: " + why);
  c.snap = nullptr;  // before the stream it is numbered by
  listening(true);
  int fd = c.fd;
  if (c.reader && --readers_ == 0) {
    // Nobody reads: no stream to keep up.
    master_ = nullptr;
    opening_ = false;
    // Positions in the log only grow: a stream opened later starts past this one.
    logBase_ += stream_.size();
    stream_.clear();
    snapshot_.reset();
  }
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
  ::close(fd);
  clients_.erase(fd);
}

void Service::complain(int prio, std::string const& msg) {
  // A client that gets itself refused over and over must not flood the log: a few
  // lines a minute, then how many were left out.
  if (prio >= LOG_INFO) return log_(prio, msg);
  if (lastNow_ >= quietUntil_) {
    if (unlogged_)
      log_(LOG_NOTICE, std::to_string(unlogged_) + " more client(s) refused or closed in the last minute, not logged");
    quietUntil_ = lastNow_ + 60;
    logged_ = unlogged_ = 0;
  }
  if (msg.empty()) return;
  if (logged_ < complaintsPerMinute) {
    ++logged_;
    log_(prio, msg);
  } else {
    ++unlogged_;
  }
}

bool Service::routineOnly() {
  for (std::uint64_t at = std::max(scanned_, handedOut_); at < logEnd(); scanned_ = at) {
    char const* r = stream_.data() + static_cast<std::size_t>(at - logBase_);
    if (!routine(LldpService::readU32(r + 4), LldpService::readU32(r + 8))) return false;
    at += 4 + LldpService::readU32(r);
  }
  return true;
}

bool Service::routine(std::uint32_t entityId, std::uint32_t attr) {
  Kel::Entity const* e = master_->entityOf(entityId);
  Kel::KelType const* t = e ? e->kelType() : nullptr;
  if (!t) return false;
  auto [it, added] = routine_.try_emplace({t, attr}, false);
  if (added) {
    // A deletion, a transaction or a new member has no attribute of that id: not routine.
    Kel::KelAttr const* a = t->attr(attr);
    it->second = a && (a->has(Kel::KelAttr::counter) || a->has(Kel::KelAttr::routine));
  }
  return it->second;
}

bool Service::mayConfigure(ucred const& peer) const {
  if (peer.uid == 0) return true;
  if (!haveGroup_) return false;
  if (peer.gid == group_) return true;
  passwd const* pw = ::getpwuid(peer.uid);
  if (!pw) return false;
  int n = 64;
  std::vector<gid_t> groups(static_cast<std::size_t>(n));
  if (::getgrouplist(pw->pw_name, pw->pw_gid, groups.data(), &n) < 0) {
    groups.resize(static_cast<std::size_t>(n));
    if (::getgrouplist(pw->pw_name, pw->pw_gid, groups.data(), &n) < 0) return false;
  }
  for (int i = 0; i < n; ++i)
    if (groups[static_cast<std::size_t>(i)] == group_) return true;
  return false;
}

std::string Service::request(std::string_view bytes, ucred const& peer, double now, bool& corrupt) {
  corrupt = true;
  Stream in;
  // Only the operator's entities may arrive: refuse a request of others before use.
  std::string refused;
  try {
    in.apply(bytes.data(), bytes.size());
  } catch (Kel::RangeException const& e) {
    refused = e.what();
  } catch (std::exception const& e) {
    return e.what();
  }
  if (in.midRecord()) return "the request ends inside a record";
  if (in.roots().empty()) return "an empty request";
  for (auto const& r : in.roots()) {
    bool ok = dynamic_cast<Lldp::CliConfig*>(r.get()) || dynamic_cast<Lldp::RemTablesCliConfig*>(r.get()) ||
              dynamic_cast<Lldp::CounterCheckpoint*>(r.get());
    if (!ok) return std::string("a stream of ") + r->kelType()->name() + ", not a configuration request";
  }
  corrupt = false;
  // A value the model refused: nothing of the request applies.
  if (!refused.empty()) return refused;

  if (auto cli = rootOf<Lldp::CliConfig>(in)) {
    AgentConfig cfg = core_.config();
    overlay(cfg, *cli);
    operator_ = Lldp::cliConfigFactory("lldp-agent");
    LldpService::copyCliConfig(*cli, *operator_);
    core_.configIs(std::move(cfg), now);
    configChanged();
    try {
      save();
    } catch (std::exception const& e) {
      log_(LOG_ERR, e.what());
      return std::string("applied, but not saved: ") + e.what();
    }
    log_(LOG_INFO, "configuration changed by " + peerName(peer));
  }
  if (auto clear = rootOf<Lldp::RemTablesCliConfig>(in)) {
    Kel::String where = clear->remTablesClearRequest().where();
    core_.receiver().clear(Kel::String(peerName(peer)), where.size() ? where : Kel::String("lldp-agent socket"), now);
    remTables_->remTablesLastClearTimeIs(now);
    log_(LOG_INFO, "neighbour tables cleared by " + peerName(peer));
  }
  if (auto cp = rootOf<Lldp::CounterCheckpoint>(in)) {
    // The ports named, or every port.
    bool const all = cp->portCounterCheckpoint().size() == 0;
    for (auto it = core_.status()->portStatus().begin(); it; ++it) {
      if (!all && !cp->portCounterCheckpointHas(it.key())) continue;
      Lldp::PortCounterCheckpoint v;
      v.txFramesTotalIs(it->txFramesTotal());
      v.txFramesLengthExceededIs(it->txFramesLengthExceeded());
      v.txFramesNoMemErrorsIs(it->txFramesNoMemErrors());
      v.rxFramesDiscardedTotalIs(it->rxFramesDiscardedTotal());
      v.rxFramesErrorsIs(it->rxFramesErrors());
      v.rxFramesTotalIs(it->rxFramesTotal());
      v.rxTLVsDiscardedTotalIs(it->rxTLVsDiscardedTotal());
      v.rxTLVsUnrecognizedTotalIs(it->rxTLVsUnrecognizedTotal());
      v.timestampIs(now);
      checkpoint_->portCounterCheckpointIs(it.key(), v);
    }
    log_(LOG_INFO, std::string(all ? "counters of every port" : "counters") + " cleared by " + peerName(peer));
  }
  return "";
}

void Service::configChanged() { LldpService::copyCliConfig(*core_.config().cli, *published_); }

void Service::overlay(AgentConfig& cfg, Lldp::CliConfig const& op) {
  auto cli = Lldp::cliConfigFactory("lldp-agent");
  LldpService::copyCliConfig(op, *cli);
  cfg.cli = cli;
  for (auto it = op.portConfig().begin(); it; ++it) {
    std::string const name = it.key().stringValue().stdString();
    PortSettings* exact = nullptr;
    for (auto& p : cfg.ports)
      if (p.pattern == name) exact = &p;
    if (!exact) {
      // The port's other settings stay those of the file's table that matched it.
      PortSettings const* matched = portSettings(cfg, name);
      PortSettings s = matched ? *matched : PortSettings{};
      s.pattern = name;
      s.where = "the operator's configuration";
      cfg.ports.insert(cfg.ports.begin(), std::move(s));
      exact = &cfg.ports.front();
    }
    exact->adminStatus = it->adminStatus();
    exact->poeFallback = it->poeAllocatedPowerFallback();
  }
}

Lldp::CliConfig::Ptr Service::loadOperator(std::string const& path) {
  if (path.empty()) return nullptr;
  std::ifstream f(path, std::ios::binary);
  if (!f) {
    if (errno == ENOENT) return nullptr;
    throw ConfigError(path + ": cannot read the operator's configuration: " + std::strerror(errno));
  }
  std::stringstream ss;
  ss << f.rdbuf();
  std::string const bytes = ss.str();
  Stream in;
  std::string why;
  try {
    in.apply(bytes.data(), bytes.size());
    if (in.midRecord()) why = "it ends inside a record";
  } catch (std::exception const& e) {
    why = e.what();
  }
  auto cli = rootOf<Lldp::CliConfig>(in);
  if (why.empty() && !cli) why = "it holds no CliConfig";
  if (!why.empty())
    throw ConfigError(path + ": not an operator's configuration (" + why + "); move it away to start without it");
  return cli;
}

void Service::save() {
  if (o_.operatorFile.empty() || !operator_) return;
  std::string bytes;
  Stream out([&bytes](const char* d, std::size_t n) {
    bytes.append(d, n);
    return n;
  });
  out.streamRoot(operator_);
  out.continueFlowOut();
  // Write, sync, rename, sync the directory: after a crash the file is the old one or
  // the new one, whole.
  std::string const tmp = o_.operatorFile + ".tmp";
  std::string const dir = o_.operatorFile.substr(0, o_.operatorFile.find_last_of('/') + 1);
  if (!dir.empty()) ::mkdir(dir.c_str(), 0755);
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot write '" + tmp + "': " + std::strerror(errno));
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  bool ok = done == bytes.size() && ::fsync(fd) == 0;
  ok = ::close(fd) == 0 && ok;
  if (!ok || ::rename(tmp.c_str(), o_.operatorFile.c_str()) != 0) {
    int const e = errno;
    ::unlink(tmp.c_str());
    throw std::runtime_error("cannot save the operator's configuration to '" + o_.operatorFile + "': " + std::strerror(e));
  }
  int dfd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
}

}  // namespace LldpAgent
