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
#include <type_traits>

namespace Kel {

class String {
 public:
  using IteratorConst = const char*;
  // The longest string kept in the object itself, without an allocation.
  static constexpr std::size_t inPlace = 22;

  String() noexcept { setSmall(0); }
  String(const char* s) : String(s ? std::string_view(s) : std::string_view()) {}
  String(const char* data, std::size_t n) { init(data, n); }
  String(std::string const& s) { init(s.data(), s.size()); }
  String(std::string_view s) { init(s.data(), s.size()); }
  String(IteratorConst b, IteratorConst e) { init(b, static_cast<std::size_t>(e - b)); }
  String(String const& o) {
    if (o.onHeap())
      init(o.data(), o.size());
    else
      std::memcpy(b_, o.b_, sizeof b_);
  }
  String(String&& o) noexcept {
    std::memcpy(b_, o.b_, sizeof b_);
    o.setSmall(0);
  }
  String& operator=(String const& o) {
    if (this != &o) assign(o.data(), o.size());
    return *this;
  }
  String& operator=(String&& o) noexcept {
    if (this != &o) {
      release();
      std::memcpy(b_, o.b_, sizeof b_);
      o.setSmall(0);
    }
    return *this;
  }
  ~String() { release(); }

  std::size_t size() const noexcept { return onHeap() ? heapSize() : tag(); }
  bool empty() const noexcept { return size() == 0; }
  std::size_t capacity() const noexcept { return onHeap() ? heapCap() : inPlace; }
  const char* data() const noexcept { return onHeap() ? heapPtr() : reinterpret_cast<const char*>(b_); }
  char* data() noexcept { return onHeap() ? heapPtr() : reinterpret_cast<char*>(b_); }
  const char* c_str() const noexcept { return data(); }
  unsigned char operator[](std::size_t i) const noexcept { return static_cast<unsigned char>(data()[i]); }
  IteratorConst begin() const noexcept { return data(); }
  IteratorConst end() const noexcept { return data() + size(); }

  operator std::string_view() const noexcept { return view(); }
  std::string_view view() const noexcept { return {data(), size()}; }
  // A copy (const, so that code changing a string through it does not compile).
  std::string const stdString() const { return std::string(data(), size()); }

  // Where the bytes are, their count and the room, read once: appending is the hot part
  // of making a text form.
  String& append(const char* p, std::size_t n) {
    bool const heap = onHeap();
    std::size_t const at = heap ? heapSize() : tag();
    std::size_t const cap = heap ? heapCap() : inPlace;
    char* const d = heap ? heapPtr() : reinterpret_cast<char*>(b_);
    if (n > cap - at) [[unlikely]]
      return regrow(at + n, p, n);  // p may view these very bytes
    std::memcpy(d + at, p ? p : d, n);  // an empty view may carry no pointer
    endAt(heap, d, at + n);
    return *this;
  }
  void push_back(char c) {
    bool const heap = onHeap();
    std::size_t const at = heap ? heapSize() : tag();
    std::size_t const cap = heap ? heapCap() : inPlace;
    char* const d = heap ? heapPtr() : reinterpret_cast<char*>(b_);
    if (at == cap) [[unlikely]] {
      regrow(at + 1, &c, 1);
      return;
    }
    d[at] = c;
    endAt(heap, d, at + 1);
  }
  String& operator+=(String const& o) { return append(o.data(), o.size()); }
  String& operator+=(std::string_view o) { return append(o.data(), o.size()); }
  String& operator+=(std::string const& o) { return append(o.data(), o.size()); }  // else ambiguous
  String& operator+=(const char* o) { return *this += std::string_view(o); }
  String& operator+=(char c) {
    push_back(c);
    return *this;
  }
  void reserve(std::size_t n) {
    if (n > capacity()) regrow(n, nullptr, 0);
  }
  void clear() noexcept { setSize(0); }
  void truncate(std::size_t n) noexcept {
    if (n < size()) setSize(n);
  }
  // Drops the first n bytes (all when n is past the end).
  void erasePrefix(std::size_t n) noexcept {
    std::size_t const sz = size();
    if (n > sz) n = sz;
    char* d = data();
    std::memmove(d, d + n, sz - n);
    setSize(sz - n);
  }

  friend String operator+(String a, String const& b) { a += b; return a; }

  friend bool operator==(String const& a, String const& b) noexcept {
    std::size_t const n = a.size();
    return n == b.size() && std::memcmp(a.data(), b.data(), n) == 0;
  }
  // Byte-wise as unsigned chars (memcmp's order), a prefix first.
  friend std::strong_ordering operator<=>(String const& a, String const& b) noexcept { return order(a.view(), b.view()); }
  // Against text of another type (a view, std::string, a literal): an exact match, where
  // converting either side would be ambiguous.
  template <class T>
    requires(std::is_convertible_v<T const&, std::string_view> && !std::is_same_v<T, String>)
  friend bool operator==(String const& a, T const& b) noexcept {
    return a.view() == textOf(b);
  }
  template <class T>
    requires(std::is_convertible_v<T const&, std::string_view> && !std::is_same_v<T, String>)
  friend std::strong_ordering operator<=>(String const& a, T const& b) noexcept {
    return order(a.view(), textOf(b));
  }

  // The framework's string hash: stable across processes.
  std::size_t hash() const noexcept;

 private:
  // 24 bytes: in place, the bytes, a terminating zero and, in the last byte, the size;
  // on the heap, a pointer, the size and the capacity (32 bits), the last byte heapTag.
  // Always zero-terminated, so c_str() costs nothing.
  static constexpr unsigned char heapTag = 0x80;
  // A null C string is empty, as String(const char*) has it.
  template <class T>
  static std::string_view textOf(T const& b) noexcept {
    if constexpr (std::is_null_pointer_v<T>)
      return {};
    else if constexpr (std::is_pointer_v<T>)
      return b ? std::string_view(b) : std::string_view();
    else
      return std::string_view(b);
  }
  // A default view has no pointer: memcmp must not see it.
  static std::strong_ordering order(std::string_view a, std::string_view b) noexcept {
    std::size_t const an = a.size(), bn = b.size(), n = an < bn ? an : bn;
    int const c = n ? std::memcmp(a.data(), b.data(), n) : 0;
    if (c != 0) return c < 0 ? std::strong_ordering::less : std::strong_ordering::greater;
    return an <=> bn;
  }
  alignas(8) unsigned char b_[24] = {};

  // An in-place string's size. The bound lets the compiler see that in-place writes stay
  // inside the object.
  std::size_t tag() const noexcept {
    std::size_t const n = b_[23];
    if (n > inPlace) __builtin_unreachable();
    return n;
  }
  bool onHeap() const noexcept { return b_[23] == heapTag; }
  char* heapPtr() const noexcept {
    char* p;
    std::memcpy(&p, b_, sizeof p);
    return p;
  }
  std::size_t heapSize() const noexcept {
    std::size_t n;
    std::memcpy(&n, b_ + 8, sizeof n);
    return n;
  }
  std::size_t heapCap() const noexcept {
    std::uint32_t c;
    std::memcpy(&c, b_ + 16, sizeof c);
    return c;
  }
  void setSmall(std::size_t n) noexcept {
    b_[n] = 0;
    b_[23] = static_cast<unsigned char>(n);
  }
  void setSize(std::size_t n) noexcept { endAt(onHeap(), data(), n); }
  // The size n, for bytes at d (the heap block when heap, else the object).
  void endAt(bool heap, char* d, std::size_t n) noexcept {
    d[n] = 0;
    if (heap)
      std::memcpy(b_ + 8, &n, sizeof n);
    else
      b_[23] = static_cast<unsigned char>(n);
  }
  void setHeap(char* p, std::size_t n, std::size_t cap) noexcept {
    auto const c = static_cast<std::uint32_t>(cap);
    std::memcpy(b_, &p, sizeof p);
    std::memcpy(b_ + 8, &n, sizeof n);
    std::memcpy(b_ + 16, &c, sizeof c);
    b_[23] = heapTag;
    p[n] = 0;
  }
  void init(const char* p, std::size_t n) {
    if (n <= inPlace) {
      if (n) std::memcpy(b_, p, n);
      setSmall(n);
    } else {
      initHeap(p, n);
    }
  }
  void initHeap(const char* p, std::size_t n);
  void assign(const char* p, std::size_t n) {
    if (n > capacity()) {
      String fresh(p, n);
      *this = std::move(fresh);
      return;
    }
    char* d = data();
    if (n) std::memmove(d, p, n);
    setSize(n);
  }
  void release() noexcept {
    if (onHeap()) deallocate(heapPtr());
  }
  // Moves the bytes to a block of room for at least `room` (geometric, so appends stay
  // linear), p's n bytes appended: the new block gets both before the old one goes, so p
  // may view the old bytes.
  String& regrow(std::size_t room, const char* p, std::size_t n);
  static char* allocate(std::size_t cap);
  static void deallocate(char* p) noexcept;
};
static_assert(sizeof(String) == 24);

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

inline std::size_t String::hash() const noexcept { return hashBytes(data(), size()); }

// The framework's hash mixing: folds v into seed.
constexpr std::size_t hashMix(std::size_t seed, std::size_t v) noexcept {
  return seed ^ (v + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2));
}
inline std::size_t hash(String const& s) noexcept { return s.hash(); }

using Name = String;     // an entity's name
using Seconds = double;  // a time stamp or interval
Seconds now();           // current system time, seconds since the epoch

}  // namespace Kel

// A String and a view meet as a view, so that the standard's comparison concepts (and
// std::ranges::find of a view among Strings) accept the pair.
template <template <class> class SQ, template <class> class VQ>
struct std::basic_common_reference<Kel::String, std::string_view, SQ, VQ> {
  using type = std::string_view;
};
template <template <class> class VQ, template <class> class SQ>
struct std::basic_common_reference<std::string_view, Kel::String, VQ, SQ> {
  using type = std::string_view;
};

template <>
struct std::hash<Kel::String> {
  std::size_t operator()(Kel::String const& s) const noexcept { return s.hash(); }
};
