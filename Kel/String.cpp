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
    out = String(std::move(s));
  }
  va_end(again);
  return out;
}

Seconds now() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace Kel
