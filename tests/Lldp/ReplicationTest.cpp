// Replication across processes: a forked mirror rebuilds entity trees from the attribute
// log alone, read from a socket, while this process runs a random agent-like workload
// through a stream whose small window and slow reader keep stalling it. At checkpoints
// and at the end the mirror prints its trees, and the text must equal the source's.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Kel/AttrLogStream.h"
#include "Kel/EnumType.h"
#include "Lldp/Lldp.h"
#include "Lldp/ModelSupport.h"

namespace {

using namespace Lldp;
using Kel::NboAttrLog::Stream;

// Sanitizers slow the workload and the comparisons about tenfold, an unoptimized build
// about threefold.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int operations = 50000;
#elif defined(__OPTIMIZE__)
constexpr int operations = 300000;
#else
constexpr int operations = 100000;
#endif
constexpr int checkpointEvery = 10000;

using LldpTest::Gen;
using LldpTest::Rng;
using LldpTest::firstDifference;
using LldpTest::treeText;

// One random change to a keyed value collection: delete, replace or insert an element,
// or empty it; elements are replaced with every field but the key (the descriptor's key
// field) redrawn. With fillTo, elements are added until it holds that many.
template <class C, class Is, class Del, class DelAll>
void churn(Rng& r, Gen& gen, C const& coll, Kel::KelAttr const* a, Is&& is, Del&& del, DelAll&& delAll,
           std::size_t fillTo) {
  using K = typename decltype(coll.keys())::value_type;
  using V = std::remove_cvref_t<decltype(*coll.find(std::declval<K const&>()))>;
  while (coll.size() < fillTo) is(gen.make<V>());
  if (fillTo) return;
  auto keys = coll.keys();
  auto pick = r.below(20);
  if (pick == 0) return delAll();
  if (!keys.empty() && (pick < 7 || (pick < 14 && keys.size() > 5))) return del(keys[r.below(keys.size())]);
  if (!keys.empty() && (pick < 14 || keys.size() > 7)) {
    V v = *coll.find(keys[r.below(keys.size())]);
    gen.fill(v, a->keyField);
    return is(std::move(v));
  }
  is(gen.make<V>());
}

#define SET(x, attr) (x).attr##Is(gen.make<std::remove_cvref_t<decltype((x).attr())>>())
#define CHURN(x, coll, fillTo)                                                                                \
  churn(r, gen, (x).coll(), std::remove_cvref_t<decltype(x)>::_kelType.attr(#coll),                           \
        [&](auto v) { (x).coll##Is(std::move(v)); }, [&](auto const& k) { (x).coll##Del(k); },                \
        [&] { (x).coll##DelAll(); }, fillTo)

// ---- the workloads: what an agent does to its trees

struct StatusWork {
  Rng& r;
  Gen& gen;
  Status::Ptr status = statusFactory(Kel::Name("status"));
  std::vector<RemoteSystem::Msap> msaps;  // neighbours come and go under these identities
  // Called with a neighbour about to leave, so that references to it are dropped first.
  std::function<void(RemoteSystem const*)> forgetting = [](RemoteSystem const*) {};

  StatusWork(Rng& rng, Gen& g) : r(rng), gen(g) {
    for (int i = 0; i < 24; ++i) msaps.push_back(gen.make<RemoteSystem::Msap>());
  }

  PortStatus::Ptr randomPort() {
    auto keys = status->portStatus().keys();
    return keys.empty() ? PortStatus::Ptr() : status->portStatus(keys[r.below(keys.size())]);
  }
  RemoteSystem::Ptr randomNeighbour(PortStatus& p) {
    auto keys = p.remoteSystem().keys();
    return keys.empty() ? RemoteSystem::Ptr() : p.remoteSystem(keys[r.below(keys.size())]);
  }

  // Every plain attribute of a neighbour, as a frame sets it.
  std::vector<Kel::KelAttr const*> const scalars = LldpTest::settable(&RemoteSystem::_kelType);
  void setScalar(RemoteSystem& x, std::uint64_t which) { LldpTest::setRandom(x, *scalars[which], gen); }
  void churnCollection(RemoteSystem& x, std::uint64_t which, std::size_t fillTo = 0) {
    switch (which) {
      case 0: CHURN(x, managementAddress, fillTo); break;
      case 1: CHURN(x, unknownTlv, fillTo); break;
      case 2: CHURN(x, unknownOrgDefTlv, fillTo); break;
      case 3: CHURN(x, portAndProtocolVlan, fillTo); break;
      case 4: CHURN(x, vlanName, fillTo); break;
      case 5: CHURN(x, protocolIdentityInfo, fillTo); break;
      default: CHURN(x, networkPolicyTlv, fillTo); break;
    }
  }
  // A new neighbour arrives with a full frame: every attribute set, every collection
  // holding one to five elements.
  void populate(RemoteSystem& x) {
    for (std::size_t i = 0; i < scalars.size(); ++i) setScalar(x, i);
    for (std::uint64_t c = 0; c < 7; ++c) churnCollection(x, c, 1 + r.below(5));
  }
  void learn(PortStatus& p) {
    RemoteSystem::Msap m = msaps[r.below(msaps.size())];
    if (auto known = p.remoteSystemByMsap(m)) {  // a refresh: a new frame changes a few values
      for (int i = 0; i < 4; ++i) setScalar(*known, r.below(scalars.size()));
      return churnCollection(*known, r.below(7));
    }
    // Indexes run from 1 to 2^31 - 1 (the counter may be set to anything); now and then
    // one is used again for another neighbour, as after a wrap.
    auto const inRange = [](std::uint64_t i) { return static_cast<std::int32_t>(1 + i % 0x7fffffff); };
    std::int32_t index = 0;
    if (p.nextRemoteSystemIndex() > 0 && r.oneIn(4)) index = inRange(r.below(p.nextRemoteSystemIndex()));
    while (index == 0 || p.remoteSystem().contains(index)) index = inRange(p.nextRemoteSystemIndexInc(1) - 1);
    auto n = p.remoteSystemIs(index, m);
    p.remoteSystemByMsapIs(n);
    populate(*n);
    status->remTablesInsertsInc(1);
  }
  void forget(PortStatus& p, RemoteSystem& n) {
    forgetting(&n);
    p.remoteSystemDel(n.index());
    p.remoteSystemByMsapDel(n.msap());
    status->remTablesDeletesInc(1);
  }
  void step() {
    auto pick = r.below(1000);
    if (pick < 8 || status->portStatus().empty()) {  // a port comes up
      status->portStatusIs(Platform::IntfId(Kel::String("Ethernet" + std::to_string(1 + r.below(16)))), gen.real());
      return;
    }
    PortStatus::Ptr p = randomPort();
    if (pick < 12) {  // a port goes away with its table
      for (auto const& k : p->remoteSystem().keys()) forgetting(p->remoteSystem(k).get());
      status->portStatusDel(p->intfId());
      return;
    }
    if (pick < 15) {  // the table is cleared
      for (auto const& k : p->remoteSystem().keys()) forgetting(p->remoteSystem(k).get());
      p->remoteSystemDelAll();
      p->remoteSystemByMsapDelAll();
      return;
    }
    if (pick < 100) return learn(*p);
    RemoteSystem::Ptr n = randomNeighbour(*p);
    if (pick < 160 && n) return forget(*p, *n);
    if (pick < 250) {  // the counters, mostly, and the times
      switch (r.below(4)) {
        case 0: return LldpTest::setAny(*status, r, gen);
        case 1: return LldpTest::setAny(*p, r, gen);
        case 2: status->remTablesDropsInc(static_cast<std::uint32_t>(r.below(3))); return;
        default: p->rxFramesTotalInc(static_cast<std::uint32_t>(r.next())); return;
      }
    }
    if (!n) return learn(*p);
    if (pick < 600) return setScalar(*n, r.below(scalars.size()));
    churnCollection(*n, r.below(7));
  }
};

struct ConfigWork {
  Rng& r;
  Gen& gen;
  Config::Ptr config = configFactory(Kel::Name("config"));
  PortConfig::Ptr fresh = nullptr;  // the port configured last: an agent sets a new port up in a burst
  std::size_t mostPorts = 0;  // the ports at the busiest point (a change to the whole config may drop them all)

  void step() {
    act();
    mostPorts = std::max(mostPorts, config->portConfig().size());
  }
  void act() {
    auto pick = r.below(200);
    if (pick < 4 || config->portConfig().empty()) {
      fresh = config->portConfigIs(gen.make<Platform::IntfId>());
      return;
    }
    auto keys = config->portConfig().keys();
    PortConfig::Ptr p = config->portConfig(keys[r.below(keys.size())]);
    if (pick < 7) {
      config->portConfigDel(p->intfId());
      return;
    }
    if (fresh && fresh->parent() && !r.oneIn(4)) p = fresh;
    pick /= 2;
    if (pick < 10) return LldpTest::setAny(*config, r, gen);
    if (pick < 45) return CHURN(*p, networkPolicyConfig, 0);
    LldpTest::setAny(*p, r, gen);
  }
};

// The local system, with a status beside it on the same stream: each port's PoE
// information points at a neighbour the agent picked, and lets go when it leaves.
struct LocalWork {
  Rng& r;
  Gen& gen;
  StatusWork neighbours;
  LocalSystem::Ptr local = localSystemFactory(Kel::Name("local"));

  LocalWork(Rng& rng, Gen& g) : r(rng), gen(g), neighbours(rng, g) {
    neighbours.forgetting = [this](RemoteSystem const* gone) {
      for (auto it = local->localPort().begin(); it; ++it)
        if (auto poe = it->localPortPoeInfo(); poe && poe->remoteSystem().get() == gone)
          poe->remoteSystemIs(RemoteSystem::PtrConst());
    };
  }

  void step() {
    auto pick = r.below(100);
    if (pick < 10) return neighbours.step();
    if (pick < 12 || local->localPort().empty()) {
      local->localPortIs(gen.make<Platform::IntfId>());
      return;
    }
    auto keys = local->localPort().keys();
    LocalPort::Ptr p = local->localPort(keys[r.below(keys.size())]);
    if (pick < 13) {
      local->localPortDel(p->intfId());
      return;
    }
    if (pick < 30) {
      switch (r.below(5)) {
        case 0: SET(*local, chassisIdSubtype); break;  // views: not set through the interface
        case 1: SET(*local, chassisId); break;
        case 2: LldpTest::setAny(*local, r, gen); break;
        case 3: CHURN(*local, managementAddress, 0); break;
        default: {
          auto const& prio = local->managementAddressPrio();
          auto prios = prio.keys();
          if (!prios.empty() && r.oneIn(3)) {
            local->managementAddressPrioDel(prios[r.below(prios.size())]);
          } else if (!prios.empty() && r.oneIn(2)) {
            local->managementAddressPrioIs(prios[r.below(prios.size())], gen.make<ManagementAddress::Key>());
          } else if (r.oneIn(20)) {
            local->managementAddressPrioDelAll();
          } else {
            local->managementAddressPrioIs(gen.make<ManAddrPriority>(), gen.make<ManagementAddress::Key>());
          }
        }
      }
      return;
    }
    if (pick < 50) {
      if (r.oneIn(2)) return CHURN(*p, unknownOrgDefTlv, 0);
      return CHURN(*p, localNetworkPolicyTlv, 0);
    }
    if (pick < 70) {
      LocalPortPoeInfo::Ptr poe = p->localPortPoeInfo();
      if (!poe || r.oneIn(20)) {
        if (!poe) {
          p->initilizeLocalPortPoeInfo();
        } else {
          p->localPortPoeInfoDel();
        }
      } else if (r.oneIn(2)) {
        LldpTest::setAny(*poe, r, gen);
      } else if (auto port = neighbours.randomPort(); port && !r.oneIn(4)) {
        poe->remoteSystemIs(neighbours.randomNeighbour(*port));
      } else {
        poe->remoteSystemIs(RemoteSystem::PtrConst());
      }
      return;
    }
    if (pick < 75) return r.oneIn(2) ? SET(*p, portIdSubtype) : SET(*p, portId);
    LldpTest::setAny(*p, r, gen);
  }
};

// ---- the two processes

bool writeAll(int fd, std::string_view s) {
  while (!s.empty()) {
    ssize_t n = ::send(fd, s.data(), s.size(), MSG_NOSIGNAL);  // a peer gone is an error, not a signal
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    s.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

bool readAll(int fd, char* p, std::size_t size) {
  while (size) {
    ssize_t n = ::read(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Control messages: a u64 length, then that many bytes.
bool sendFrame(int fd, std::string_view s) {
  std::uint64_t n = s.size();
  return writeAll(fd, std::string_view(reinterpret_cast<const char*>(&n), sizeof n)) && writeAll(fd, s);
}
std::string receiveFrame(int fd) {
  std::uint64_t n = 0;
  if (!readAll(fd, reinterpret_cast<char*>(&n), sizeof n)) return "(the mirror sent nothing)";
  std::string s(n, '\0');
  if (!readAll(fd, s.data(), n)) return "(the mirror's text was cut short)";
  return s;
}

// The mirror: applies what arrives on `data` in random chunks, pausing now and then so
// that the writer meets a full socket. A checkpoint request on `ctl` names the stream
// offset the writer has reached; once the mirror has applied that much it answers with
// its trees' text.
[[noreturn]] void mirror(int data, int ctl, std::uint64_t seed) {
  try {
    Rng r{seed};
    Kel::Ptr<Stream> in(new Stream());
    std::vector<char> buf(1 << 16);
    std::uint64_t applied = 0, checkpoint = 0;
    bool pending = false;
    for (;;) {
      if (pending && applied == checkpoint) {
        if (!sendFrame(ctl, treeText(in->roots()))) _exit(3);
        pending = false;
      }
      pollfd fds[2] = {{data, POLLIN, 0}, {ctl, POLLIN, 0}};
      if (::poll(fds, pending ? 1 : 2, -1) < 0) continue;
      if (!pending && (fds[1].revents & (POLLIN | POLLHUP))) {
        std::string at = receiveFrame(ctl);
        if (at.size() != sizeof checkpoint) _exit(0);  // the writer is done
        std::memcpy(&checkpoint, at.data(), sizeof checkpoint);
        pending = true;
        continue;
      }
      if (!(fds[0].revents & (POLLIN | POLLHUP))) continue;
      if (r.oneIn(16)) ::usleep(static_cast<useconds_t>(200 + r.below(1500)));
      std::size_t want = 1 + r.below(r.oneIn(4) ? buf.size() : 64);
      if (pending) want = std::min<std::uint64_t>(want, checkpoint - applied);
      ssize_t n = ::read(data, buf.data(), want);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) throw std::runtime_error("the stream ended early");
      in->apply(buf.data(), static_cast<std::size_t>(n));
      applied += static_cast<std::uint64_t>(n);
    }
  } catch (std::exception const& e) {
    sendFrame(ctl, std::string("mirror failed: ") + e.what() + "\n");
  }
  _exit(0);
}

struct Replication {
  int data = -1;  // the stream, non-blocking on this side
  int ctl = -1;   // checkpoint requests and the mirror's texts
  pid_t child = -1;
  Kel::Ptr<Stream> out;
  bool peerGone = false;
  std::size_t stalls = 0;  // offers the full socket refused, in part or in full

  Replication(std::uint64_t seed, std::size_t window) {
    int d[2], c[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, d) != 0 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, c) != 0)
      throw std::runtime_error("socketpair");
    int small = 2048;  // the kernel rounds it up to its minimum
    ::setsockopt(d[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    ::setsockopt(d[1], SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    child = ::fork();
    if (child == 0) {
      ::close(d[0]);
      ::close(c[0]);
      mirror(d[1], c[1], seed);
    }
    ::close(d[1]);
    ::close(c[1]);
    data = d[0];
    ctl = c[0];
    ::fcntl(data, F_SETFL, ::fcntl(data, F_GETFL) | O_NONBLOCK);
    out = Kel::Ptr<Stream>(new Stream(
        [this](const char* bytes, std::size_t size) -> std::size_t {
          ssize_t n = ::send(data, bytes, size, MSG_NOSIGNAL);
          if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) peerGone = true;
          if (n < static_cast<ssize_t>(size)) ++stalls;
          return n < 0 ? 0 : static_cast<std::size_t>(n);
        },
        window));
  }
  ~Replication() {
    out = Kel::Ptr<Stream>();
    ::close(data);
    ::close(ctl);
    int status = 0;
    if (::waitpid(child, &status, 0) == child && (!WIFEXITED(status) || WEXITSTATUS(status) != 0))
      ADD_FAILURE() << "the mirror ended with status " << status;
  }
  bool writable(int timeoutMs) {
    pollfd p{data, POLLOUT, 0};
    return ::poll(&p, 1, timeoutMs) > 0 && (p.revents & POLLOUT);
  }
  // Sends everything held back, then asks the mirror for its text as of that point.
  std::string checkpoint() {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!peerGone && !(out->continueFlowOut() && out->backlog().empty()) &&
           std::chrono::steady_clock::now() < deadline)
      writable(100);
    std::uint64_t at = out->bytesWritten();
    sendFrame(ctl, std::string_view(reinterpret_cast<const char*>(&at), sizeof at));
    return receiveFrame(ctl);
  }
};

// Runs the workload through a throttled stream. Phases alternate: in some the writer
// offers the backlog after every step the socket can take it, in others only now and
// then, or not at all for a stretch, so that changes pile up as dirty attributes and
// keys. At checkpoints, and at the end, the mirror's text must equal the source's.
// With `prefill`, the trees are grown that many steps before the stream starts, so that
// its first complete resend is itself throttled half-way through collections.
template <class Work>
void replicate(std::uint64_t seed, std::size_t window, Work& work, std::vector<Kel::Ptr<Kel::Entity>> const& roots,
               int prefill = 0) {
  for (int i = 0; i < prefill; ++i) work.step();
  Replication rep(seed ^ 0x5eed, window);
  for (auto const& root : roots) rep.out->streamRoot(root);
  Rng r{seed * 3 + 1};
  std::size_t throttledSteps = 0;
  std::uint64_t offerOneIn = 1;
  for (int i = 1; i <= operations; ++i) {
    if (i % 2000 == 0) offerOneIn = std::uint64_t{1} << r.below(4);
    work.step();
    if (rep.out->throttled()) ++throttledSteps;
    if (r.oneIn(1000)) {
      for (auto n = r.below(1000); n-- > 0 && i < operations; ++i) work.step();  // nothing offered
    } else if (r.oneIn(offerOneIn)) {
      if (rep.writable(0)) {
        rep.out->continueFlowOut();
      } else {
        ++rep.stalls;
      }
    }
    if (i % checkpointEvery == 0 || i == operations || rep.peerGone) {
      std::string want = treeText(roots);
      std::string got = rep.checkpoint();
      std::string diff = firstDifference(want, got);
      if (!diff.empty()) {
        ADD_FAILURE() << "after " << i << " operations: " << diff;
        return;
      }
    }
  }
  // The run must have stalled for real, and moved a fair amount of state. How often it
  // stalls depends on how fast the mirror runs, so only a floor is asked for.
  EXPECT_GT(throttledSteps, static_cast<std::size_t>(operations) / 1000);
  EXPECT_GT(rep.stalls, 10u);
  EXPECT_GT(rep.out->bytesWritten(), 50000u);
}

TEST(ReplicationTest, StatusTree) {
  Rng r{1};
  Gen gen(r);
  StatusWork work(r, gen);
  replicate(1, 4096, work, {work.status});
  EXPECT_GT(work.status->portStatus().size(), 2u);
}

TEST(ReplicationTest, StatusTreeStreamedWhenPopulated) {
  Rng r{4};
  Gen gen(r);
  StatusWork work(r, gen);
  replicate(4, 4096, work, {work.status}, operations / 5);
}

TEST(ReplicationTest, ConfigTree) {
  Rng r{2};
  Gen gen(r);
  ConfigWork work{r, gen};
  replicate(2, 64, work, {work.config});
  EXPECT_GT(work.mostPorts, 2u);
}

TEST(ReplicationTest, LocalSystemTree) {
  Rng r{3};
  Gen gen(r);
  LocalWork work(r, gen);
  replicate(3, 2048, work, {work.local, work.neighbours.status});
  EXPECT_GT(work.local->localPort().size(), 2u);
}

}  // namespace
