#include "tools/LldpRx/LldpRx.h"

#include <cstdio>

namespace LldpRx {

std::size_t utf8Length(std::string_view b, std::size_t i) {
  auto const c = static_cast<unsigned char>(b[i]);
  std::size_t const n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
  if (n == 0 || i + n > b.size()) return 0;
  for (std::size_t k = 1; k < n; ++k)
    if ((static_cast<unsigned char>(b[i + k]) >> 6) != 2) return 0;
  return n;
}

std::string displayText(std::string_view b, bool backslash) {
  while (!b.empty() && b.back() == '\0') b.remove_suffix(1);
  std::string out;
  for (std::size_t i = 0; i < b.size();) {
    auto const c = static_cast<unsigned char>(b[i]);
    std::size_t const n = utf8Length(b, i);
    if (n == 0 || c < 0x20 || c == 0x7f || (backslash && c == '\\')) {
      char e[8];
      std::snprintf(e, sizeof e, "\\x%02x", c);
      out += e;
      ++i;
    } else {
      out.append(b.substr(i, n));
      i += n;
    }
  }
  return out;
}

}  // namespace LldpRx
