#include "tools/lldp-cli/Client.h"

#include <poll.h>
#include <sys/time.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "tools/lldp-agent/ServiceProtocol.h"

namespace LldpCli {
namespace {

int connectTo(std::string const& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) throw ClientError("socket path '" + path + "' is too long");
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr const*>(&a), sizeof a) != 0) {
    int const e = errno;
    if (fd >= 0) ::close(fd);
    throw ClientError("cannot reach lldp-agent at '" + path + "': " + std::strerror(e) +
                      (e == ENOENT ? " (is it running? --socket-dir)" : ""));
  }
  return fd;
}

template <class T>
Kel::Ptr<T> rootOf(std::vector<Kel::Ptr<Kel::Entity>> const& roots) {
  for (auto const& r : roots)
    if (auto p = Kel::Ptr<T>(dynamic_cast<T*>(r.get()))) return p;
  return nullptr;
}

}  // namespace

Mirror::Mirror(std::string const& dir)
    : path_(dir + "/" + LldpService::stateSocketName), in_(new Kel::NboAttrLog::Stream()) {
  fd_ = connectTo(path_);
}

Mirror::~Mirror() {
  if (fd_ >= 0) ::close(fd_);
}

bool Mirror::readSome() {
  char buf[1 << 16];
  ssize_t n;
  do n = ::recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  if (n < 0 && errno == EAGAIN) return true;
  if (n <= 0) return false;
  try {
    in_->apply(buf, static_cast<std::size_t>(n));
  } catch (std::exception const& e) {
    if (damage_.empty()) damage_ = e.what();
    if (in_->framingLost()) throw ClientError(std::string("the agent's stream is corrupt: ") + e.what());
  }
  scan(buf, static_cast<std::size_t>(n));
  if (!synced_ || !resyncing_) shown_ = in_->roots();
  return true;
}

void Mirror::scan(const char* p, std::size_t n) {
  static std::string const reset = Kel::NboAttrLog::Stream::resetRecord();
  // Enough of a record's start to tell either of the two.
  static std::size_t const enough = std::max(reset.size(), LldpService::syncRecord(0).size());
  while (n > 0) {
    if (head_.size() < 4) {
      std::size_t const take = std::min(n, 4 - head_.size());
      head_.append(p, take);
      p += take, n -= take;
      if (head_.size() < 4) return;
      left_ = LldpService::readU32(head_.data());
    }
    std::size_t const take = std::min(n, left_);
    head_.append(p, std::min(take, enough - std::min(enough, head_.size())));
    p += take, n -= take, left_ -= take;
    if (left_) return;
    if (LldpService::isSyncRecord(head_.data(), head_.size()))
      synced_ = true, resyncing_ = false;
    else if (head_ == reset)
      resyncing_ = true;
    head_.clear();
  }
}

void Mirror::sync(double seconds) {
  auto const until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!synced_) {
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    if (left.count() <= 0) throw ClientError("no complete state from lldp-agent within " + std::to_string(int(seconds)) + " s");
    if (!poll(static_cast<int>(left.count()))) throw ClientError("lldp-agent closed the connection");
  }
}

bool Mirror::poll(int ms) {
  pollfd p{fd_, POLLIN, 0};
  int r;
  do r = ::poll(&p, 1, ms);
  while (r < 0 && errno == EINTR);
  if (r <= 0) return true;
  // Everything there is now, so that a batch of changes is applied whole.
  for (;;) {
    if (!readSome()) return false;
    pollfd q{fd_, POLLIN, 0};
    if (::poll(&q, 1, 0) <= 0) return true;
  }
}

Lldp::Status::Ptr Mirror::status() const { return rootOf<Lldp::Status>(shown_); }
Lldp::Config::Ptr Mirror::config() const { return rootOf<Lldp::Config>(shown_); }
Lldp::LocalSystem::Ptr Mirror::localSystem() const { return rootOf<Lldp::LocalSystem>(shown_); }
Lldp::RemTablesStatus::Ptr Mirror::remTablesStatus() const { return rootOf<Lldp::RemTablesStatus>(shown_); }
Lldp::CliConfig::Ptr Mirror::cliConfig() const { return rootOf<Lldp::CliConfig>(shown_); }
Lldp::CounterCheckpoint::Ptr Mirror::checkpoint() const { return rootOf<Lldp::CounterCheckpoint>(shown_); }

std::string request(std::string const& dir, std::vector<Kel::Ptr<Kel::Entity>> const& roots) {
  std::string bytes;
  {
    Kel::NboAttrLog::Stream out([&bytes](const char* d, std::size_t n) {
      bytes.append(d, n);
      return n;
    });
    for (auto const& r : roots) out.streamRoot(r);
    out.continueFlowOut();
  }
  int fd = connectTo(dir + "/" + LldpService::configSocketName);
  // A stopped agent must not hold the operator's shell for good.
  timeval const limit{10, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  // A refusal may come before all is written: its answer still follows.
  for (std::size_t done = 0; done < bytes.size();) {
    ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::shutdown(fd, SHUT_WR);
  std::string answer;
  char buf[4096];
  for (;;) {
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      ::close(fd);
      return "lldp-agent did not answer within 10 s";
    }
    if (n <= 0) break;
    answer.append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  if (answer == "ok\n") return "";
  if (answer.rfind("error: ", 0) == 0) return answer.substr(7, answer.find('\n') - 7);
  return answer.empty() ? "lldp-agent closed the connection without an answer" : "unexpected answer from lldp-agent";
}

}  // namespace LldpCli
