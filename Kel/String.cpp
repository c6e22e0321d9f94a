#include "Kel/String.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ostream>

namespace Kel {

std::ostream& operator<<(std::ostream& os, String const& s) {
  return os.write(s.data(), static_cast<std::streamsize>(s.size()));
}

String format(const char* fmt, ...) {
  char buf[256];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  if (n < 0) return String();
  if (static_cast<std::size_t>(n) < sizeof buf) return String(buf, static_cast<std::size_t>(n));
  std::string out(static_cast<std::size_t>(n), '\0');
  va_start(ap, fmt);
  std::vsnprintf(out.data(), out.size() + 1, fmt, ap);
  va_end(ap);
  return String(std::move(out));
}

Seconds now() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace Kel
