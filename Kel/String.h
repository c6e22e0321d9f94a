#pragma once
// Kel::String: the framework's byte string. Holds any byte value (embedded zeros
// too); orders byte-wise as unsigned chars, so a prefix sorts before a longer string.
#include <compare>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Kel {

class String {
 public:
  using IteratorConst = const char*;

  String() = default;
  String(const char* s) : s_(s ? s : "") {}
  String(const char* data, std::size_t n) : s_(data, n) {}
  String(std::string s) : s_(std::move(s)) {}
  String(std::string_view s) : s_(s) {}
  String(IteratorConst b, IteratorConst e) : s_(b, e) {}

  std::size_t size() const noexcept { return s_.size(); }
  bool empty() const noexcept { return s_.empty(); }
  const char* data() const noexcept { return s_.data(); }
  const char* c_str() const noexcept { return s_.c_str(); }
  unsigned char operator[](std::size_t i) const noexcept { return static_cast<unsigned char>(s_[i]); }
  IteratorConst begin() const noexcept { return s_.data(); }
  IteratorConst end() const noexcept { return s_.data() + s_.size(); }

  operator std::string_view() const noexcept { return s_; }
  std::string_view view() const noexcept { return s_; }
  std::string const& stdString() const noexcept { return s_; }
  std::string& stdString() noexcept { return s_; }

  String& operator+=(String const& o) { s_ += o.s_; return *this; }
  String& operator+=(std::string_view o) { s_ += o; return *this; }
  String& operator+=(const char* o) { s_ += o; return *this; }
  String& operator+=(char c) { s_ += c; return *this; }
  void reserve(std::size_t n) { s_.reserve(n); }
  void clear() noexcept { s_.clear(); }
  void truncate(std::size_t n) noexcept {
    if (n < s_.size()) s_.resize(n);
  }

  friend String operator+(String a, String const& b) { a += b; return a; }

  friend bool operator==(String const& a, String const& b) noexcept { return a.s_ == b.s_; }
  // std::string compares through char_traits<char>, which orders as unsigned char.
  friend std::strong_ordering operator<=>(String const& a, String const& b) noexcept {
    int c = a.s_.compare(b.s_);
    return c < 0 ? std::strong_ordering::less
                 : c > 0 ? std::strong_ordering::greater : std::strong_ordering::equal;
  }

  // The framework's string hash: stable across processes.
  std::size_t hash() const noexcept;

 private:
  std::string s_;
};

// Writes the raw bytes.
std::ostream& operator<<(std::ostream& os, String const& s);

// printf-like formatting into a String.
String format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// The same for an argument list the caller started (and still ends with va_end).
String vformat(const char* fmt, va_list ap) __attribute__((format(printf, 1, 0)));

// The hash of n bytes, taken a word at a time (keys are hashed on every look-up, and a
// byte at a time costs four instructions a byte). The same in every process.
inline std::size_t hashBytes(const void* data, std::size_t n) noexcept {
  auto const* p = static_cast<unsigned char const*>(data);
  auto const word = [](unsigned char const* q) {
    std::uint64_t w;
    std::memcpy(&w, q, 8);
    return w;
  };
  std::uint64_t h = 0x9e3779b97f4a7c15ull ^ n;
  auto const mix = [&h](std::uint64_t w) {
    h = (h ^ w) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  };
  if (n >= 8) {
    // The last word ends at the end, overlapping the one before: no copy of a short tail.
    unsigned char const* const last = p + n - 8;
    for (; p < last; p += 8) mix(word(p));
    mix(word(last));
  } else if (n >= 4) {
    // Two overlapping halves: every byte taken, without a call to copy a short tail.
    std::uint32_t a, b;
    std::memcpy(&a, p, 4);
    std::memcpy(&b, p + n - 4, 4);
    mix(std::uint64_t{a} << 32 | b);
  } else if (n) {
    mix(std::uint64_t{p[0]} << 16 | std::uint64_t{p[n / 2]} << 8 | p[n - 1]);
  }
  // Tables take the low or the high bits: a change in any byte must reach both.
  h = (h ^ (h >> 29)) * 0xc4ceb9fe1a85ec53ull;
  return static_cast<std::size_t>(h ^ (h >> 32));
}

inline std::size_t String::hash() const noexcept { return hashBytes(s_.data(), s_.size()); }

// The framework's hash mixing: folds v into seed.
constexpr std::size_t hashMix(std::size_t seed, std::size_t v) noexcept {
  return seed ^ (v + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2));
}
inline std::size_t hash(String const& s) noexcept { return s.hash(); }

using Name = String;     // an entity's name
using Seconds = double;  // a time stamp or interval
Seconds now();           // current system time, seconds since the epoch

}  // namespace Kel

template <>
struct std::hash<Kel::String> {
  std::size_t operator()(Kel::String const& s) const noexcept { return s.hash(); }
};
