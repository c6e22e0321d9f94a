#include "tools/LldpRx/LldpRx.h"

#include <getopt.h>

#include <cstdio>

namespace LldpRx {

namespace {

// The range the second byte of a sequence must be in, by its lead: narrower after E0, ED,
// F0 and F4, so that overlong forms, surrogates and code points past U+10FFFF are refused
// (a JSON library refuses them too).
bool secondByteFits(unsigned char lead, unsigned char c) {
  if (lead == 0xe0) return c >= 0xa0;
  if (lead == 0xed) return c <= 0x9f;
  if (lead == 0xf0) return c >= 0x90;
  if (lead == 0xf4) return c <= 0x8f;
  return true;
}

std::uint32_t codePoint(std::string_view b, std::size_t i, std::size_t n) {
  auto const c = static_cast<unsigned char>(b[i]);
  std::uint32_t cp = n == 1 ? c : c & (0x7fu >> n);
  for (std::size_t k = 1; k < n; ++k) cp = cp << 6 | (static_cast<unsigned char>(b[i + k]) & 0x3fu);
  return cp;
}

// Controls a terminal acts on: C0, DEL, C1 (CSI and OSC among them), the line and
// paragraph separators and the marks and overrides that reorder bidirectional text.
bool isControl(std::uint32_t cp) {
  return cp < 0x20 || (cp >= 0x7f && cp <= 0x9f) || cp == 0x061c || cp == 0x200e || cp == 0x200f ||
         (cp >= 0x2028 && cp <= 0x202e) || (cp >= 0x2066 && cp <= 0x2069);
}

}  // namespace

std::size_t utf8Length(std::string_view b, std::size_t i) {
  auto const c = static_cast<unsigned char>(b[i]);
  std::size_t const n = c < 0x80 ? 1 : c >= 0xc2 && c <= 0xdf ? 2 : (c >> 4) == 14 ? 3 : c >= 0xf0 && c <= 0xf4 ? 4 : 0;
  if (n == 0 || i + n > b.size()) return 0;
  for (std::size_t k = 1; k < n; ++k)
    if ((static_cast<unsigned char>(b[i + k]) >> 6) != 2) return 0;
  return n == 1 || secondByteFits(c, static_cast<unsigned char>(b[i + 1])) ? n : 0;
}

std::string displayText(std::string_view b, bool backslash) {
  while (!b.empty() && b.back() == '\0') b.remove_suffix(1);
  std::string out;
  for (std::size_t i = 0; i < b.size();) {
    std::size_t const n = utf8Length(b, i);
    if (n == 0 || isControl(codePoint(b, i, n)) || (backslash && b[i] == '\\')) {
      for (std::size_t k = 0; k < (n ? n : 1); ++k) {
        char e[8];
        std::snprintf(e, sizeof e, "\\x%02x", static_cast<unsigned char>(b[i + k]));
        out += e;
      }
      i += n ? n : 1;
    } else {
      out.append(b.substr(i, n));
      i += n;
    }
  }
  return out;
}

option const* longOption(std::string_view name, option const* longs, std::string& ambiguous) {
  ambiguous.clear();
  if (name.empty()) return nullptr;
  option const* found = nullptr;
  int matching = 0;
  for (option const* o = longs; o->name; ++o) {
    if (o->name == name) return o;
    if (std::string_view(o->name).starts_with(name)) {
      found = o;
      ambiguous.append(matching++ ? ", --" : "--").append(o->name);
    }
  }
  if (matching == 1) ambiguous.clear();
  return matching == 1 ? found : nullptr;
}

std::string optionError(int c, char* const* argv, option const* longs) {
  // A long option is always taken whole, so it is the last element getopt used; optopt
  // holds its value (0 when no option has that name). Otherwise optopt is the short letter.
  std::string_view const last = optind > 0 ? argv[optind - 1] : "";
  std::string_view name = "-";
  option const* known = nullptr;
  bool isLong = false;
  if (last.starts_with("--")) {
    std::string_view const given = last.substr(0, last.find('='));
    for (option const* o = longs; o->name && optopt; ++o)
      if (o->val == optopt && std::string_view(o->name).starts_with(given.substr(2))) known = o;
    isLong = !optopt || known;
    if (isLong) name = given;
  }
  // Built by appending: g++ 12 at -O3 sees a false overlap in a chain of operator+.
  std::string shown = "'";
  shown.append(displayText(name));
  char const letter = static_cast<char>(optopt);
  if (!isLong) shown.append(displayText(std::string_view(&letter, 1)));
  shown.push_back('\'');
  // A long name that starts several options' names is ambiguous, not unknown.
  std::string ambiguous;
  if (isLong && !known) longOption(name.substr(2), longs, ambiguous);
  std::string out;
  if (c == ':' || (isLong && known)) {
    out.append("option ").append(shown).append(c == ':' ? " needs a value" : " takes no value");
  } else if (!ambiguous.empty()) {
    out.append("option ").append(shown).append(" is ambiguous (").append(ambiguous).append(")");
  } else {
    out.append("unknown option ").append(shown);
  }
  return out;
}

}  // namespace LldpRx
