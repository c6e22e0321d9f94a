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

String& String::regrow(std::size_t room, const char* p, std::size_t n) {
  // Twice the capacity, or the room asked for when more, within what a capacity holds.
  std::size_t const sz = size(), twice = capacity() * 2;
  std::size_t want = twice > room ? twice : room;
  if (want > 0xfffffffeu) want = room;
  char* const d = allocate(want);
  std::memcpy(d, data(), sz);
  if (n) std::memcpy(d + sz, p, n);
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
