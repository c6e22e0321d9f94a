#include "Platform/IntfId.h"

#include <ostream>
#include <string_view>

namespace Platform {

namespace {

bool isDigit(unsigned char c) noexcept { return c >= '0' && c <= '9'; }

// End of the run of bytes starting at i that are all digits or all non-digits.
std::size_t runEnd(std::string_view s, std::size_t i) noexcept {
  bool const digits = isDigit(static_cast<unsigned char>(s[i]));
  while (i < s.size() && isDigit(static_cast<unsigned char>(s[i])) == digits) ++i;
  return i;
}

// Compares two digit runs by numeric value, without overflow for any length.
std::strong_ordering compareNumbers(std::string_view a, std::string_view b) noexcept {
  auto const stripZeros = [](std::string_view d) {
    std::size_t const first = d.find_first_not_of('0');
    return first == std::string_view::npos ? std::string_view{} : d.substr(first);
  };
  a = stripZeros(a);
  b = stripZeros(b);
  if (a.size() != b.size()) return a.size() <=> b.size();
  return a.compare(b) <=> 0;  // same length: the digit bytes order numerically
}

}  // namespace

std::strong_ordering operator<=>(IntfId const& a, IntfId const& b) noexcept {
  std::string_view const x = a.name_.view();
  std::string_view const y = b.name_.view();
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < x.size() && j < y.size()) {
    unsigned char const cx = static_cast<unsigned char>(x[i]);
    unsigned char const cy = static_cast<unsigned char>(y[j]);
    if (isDigit(cx) != isDigit(cy)) return cx <=> cy;
    std::size_t const ei = runEnd(x, i);
    std::size_t const ej = runEnd(y, j);
    std::string_view const rx = x.substr(i, ei - i);
    std::string_view const ry = y.substr(j, ej - j);
    std::strong_ordering c = std::strong_ordering::equal;
    if (isDigit(cx)) {
      c = compareNumbers(rx, ry);
    } else {
      // Kel::String orders bytes as unsigned chars; so does char_traits<char>::compare.
      c = rx.compare(ry) <=> 0;
    }
    if (c != 0) return c;
    i = ei;
    j = ej;
  }
  if (i < x.size() || j < y.size()) return (x.size() - i) <=> (y.size() - j);
  return a.name_ <=> b.name_;  // numerically equal spellings: byte order decides
}

IntfId::IntfId(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : name_(Kel::deserializeAttr<Kel::String>(pos, end, "value")) {}

IntfId::IntfId(Kel::NboAttrLog::In* in, Kel::StreamBogon) : name_(in->nextString()) {}

}  // namespace Platform
