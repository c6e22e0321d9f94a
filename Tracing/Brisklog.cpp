#include "Tracing/Brisklog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <ostream>

#include "Kel/Exception.h"

namespace Brisklog {

namespace {

std::int64_t nowNs() noexcept {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// Payload layout, per argument: a kind byte, then
//   Signed/Unsigned: a size byte and 8 value bytes; Double, Pointer: 8 bytes;
//   String: a length byte and that many bytes.
constexpr std::size_t headBytes(Arg::Kind k) {
  switch (k) {
    case Arg::Kind::Signed:
    case Arg::Kind::Unsigned: return 10;
    case Arg::Kind::Double:
    case Arg::Kind::Pointer: return 9;
    case Arg::Kind::String: return 2;
  }
  return 0;
}
static_assert(maxStringBytes <= 255, "string length is stored in one byte");

}  // namespace

std::vector<Arg> Record::args() const {
  std::vector<Arg> out;
  out.reserve(argCount_);
  std::size_t at = 0;
  for (std::size_t i = 0; i < argCount_; ++i) {
    if (at >= used_) break;
    Arg a;
    a.kind = static_cast<Arg::Kind>(payload_[at]);
    std::size_t head = headBytes(a.kind);
    if (head == 0 || at + head > used_) break;
    const unsigned char* p = payload_.data() + at + 1;
    switch (a.kind) {
      case Arg::Kind::Signed:
      case Arg::Kind::Unsigned:
        a.size = p[0];
        std::memcpy(&a.bits, p + 1, 8);
        break;
      case Arg::Kind::Double:
        std::memcpy(&a.real, p, 8);
        break;
      case Arg::Kind::Pointer:
        std::memcpy(&a.bits, p, 8);
        break;
      case Arg::Kind::String:
        if (at + head + p[0] > used_) return out;
        a.text = std::string_view(reinterpret_cast<const char*>(p + 1), p[0]);
        head += p[0];
        break;
    }
    out.push_back(a);
    at += head;
  }
  return out;
}

std::string Record::message() const {
  std::vector<Arg> a = args();
  return render(format_, a);
}

std::string Record::text() const {
  std::time_t secs = static_cast<std::time_t>(timeNs_ / 1000000000);
  long ns = static_cast<long>(timeNs_ % 1000000000);
  if (ns < 0) {
    ns += 1000000000;
    --secs;
  }
  std::tm tm{};
  ::gmtime_r(&secs, &tm);
  char stamp[48];
  std::size_t n = std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
  std::snprintf(stamp + n, sizeof stamp - n, ".%09ld", ns);
  std::string out = stamp;
  out += ' ';
  out += source_;
  out += ' ';
  out += std::to_string(level_);
  out += ' ';
  std::vector<Arg> a = args();
  renderTo(out, format_, a);
  return out;
}

Ring::Ring(std::size_t capacity) : capacity_(capacity) {
  if (capacity == 0) Kel::throwRangeException("Brisklog::Ring::capacity < 1 not allowed");
  records_ = std::make_unique<Record[]>(capacity);
}

std::uint64_t Ring::written() const {
  std::lock_guard lock(mutex_);
  return next_;
}

std::size_t Ring::size() const {
  std::lock_guard lock(mutex_);
  return next_ < capacity_ ? static_cast<std::size_t>(next_) : capacity_;
}

void Ring::write(const char* source, int level, const char* format, std::span<const Arg> args) noexcept {
  std::int64_t t = nowNs();
  std::lock_guard lock(mutex_);
  Record& r = records_[next_ % capacity_];
  r.sequence_ = next_++;
  r.timeNs_ = t;
  r.source_ = source ? source : "";
  r.format_ = format ? format : "";
  r.level_ = level;
  r.truncated_ = false;
  std::size_t at = 0;
  std::size_t count = 0;
  unsigned char* out = r.payload_.data();
  for (Arg const& a : args) {
    std::size_t head = headBytes(a.kind);
    if (head == 0 || at + head > payloadBytes) {
      r.truncated_ = true;
      break;
    }
    out[at] = static_cast<unsigned char>(a.kind);
    unsigned char* p = out + at + 1;
    switch (a.kind) {
      case Arg::Kind::Signed:
      case Arg::Kind::Unsigned:
        p[0] = a.size;
        std::memcpy(p + 1, &a.bits, 8);
        break;
      case Arg::Kind::Double:
        std::memcpy(p, &a.real, 8);
        break;
      case Arg::Kind::Pointer:
        std::memcpy(p, &a.bits, 8);
        break;
      case Arg::Kind::String: {
        std::size_t n = a.text.size();
        std::size_t room = payloadBytes - at - head;
        if (n > maxStringBytes || n > room) {
          n = std::min(maxStringBytes, room);
          r.truncated_ = true;
        }
        p[0] = static_cast<unsigned char>(n);
        if (n) std::memcpy(p + 1, a.text.data(), n);
        head += n;
        break;
      }
    }
    at += head;
    ++count;
  }
  r.used_ = static_cast<std::uint16_t>(at);
  r.argCount_ = static_cast<std::uint8_t>(count);
}

std::vector<Record> Ring::records(std::size_t count) const {
  std::lock_guard lock(mutex_);
  std::uint64_t held = next_ < capacity_ ? next_ : capacity_;
  if (count > held) count = static_cast<std::size_t>(held);
  std::vector<Record> out;
  out.reserve(count);
  for (std::uint64_t s = next_ - count; s < next_; ++s) out.push_back(records_[s % capacity_]);
  return out;
}

void Ring::clear() {
  std::lock_guard lock(mutex_);
  next_ = 0;
}

void Ring::dump(std::ostream& os) const {
  for (Record const& r : records()) os << r.text() << '\n';
}

Ring& ring() {
  static Ring* const r = new Ring(ringCapacity);
  return *r;
}

}  // namespace Brisklog
