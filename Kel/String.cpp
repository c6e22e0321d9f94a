#include "Kel/String.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <ostream>
#include <stdexcept>

namespace Kel {

char* String::allocate(std::size_t cap) {
  // The capacity is kept in 32 bits; a string that large is a bug, not data.
  if (cap > 0xfffffffeu) throw std::length_error("Kel::String: longer than 4 GiB");
  return static_cast<char*>(::operator new(cap + 1));
}

void String::deallocate(char* p) noexcept { ::operator delete(p); }

void String::initHeap(const char* p, std::size_t n) {
  char* const d = allocate(n);
  std::memcpy(d, p, n);
  setHeap(d, n, n);
}

namespace {
// Twice the capacity, or n when more, within what a capacity can hold.
std::size_t grown(std::size_t cap, std::size_t n) {
  std::size_t const want = cap * 2 > n ? cap * 2 : n;
  return want > 0xfffffffeu ? n : want;
}
}  // namespace

char* String::grow(std::size_t n) {
  std::size_t const sz = size(), want = grown(capacity(), n);
  char* const d = allocate(want);
  std::memcpy(d, data(), sz);
  release();
  setHeap(d, sz, want);
  return d;
}

String& String::appendGrowing(const char* p, std::size_t n) {
  std::size_t const sz = size(), want = grown(capacity(), sz + n);
  char* const d = allocate(want);
  std::memcpy(d, data(), sz);
  std::memcpy(d + sz, p, n);
  release();
  setHeap(d, sz + n, want);
  return *this;
}

std::ostream& operator<<(std::ostream& os, String const& s) {
  return os.write(s.data(), static_cast<std::streamsize>(s.size()));
}

String format(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  String out = vformat(fmt, ap);
  va_end(ap);
  return out;
}

String vformat(const char* fmt, va_list ap) {
  // vsnprintf consumes the list; the second pass, for long results, needs a copy.
  va_list again;
  va_copy(again, ap);
  char buf[256];
  int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
  String out;
  if (n >= 0 && static_cast<std::size_t>(n) < sizeof buf) {
    out = String(buf, static_cast<std::size_t>(n));
  } else if (n >= 0) {
    std::string s(static_cast<std::size_t>(n), '\0');
    std::vsnprintf(s.data(), s.size() + 1, fmt, again);
    out = String(s);
  }
  va_end(again);
  return out;
}

Seconds now() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace Kel
