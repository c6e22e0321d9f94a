#include "Kel/Strep.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <system_error>

namespace Kel {

namespace {

constexpr char kHex[] = "0123456789abcdef";

// How a byte is written inside a quoted literal: 0 as is, 'x' as \xHH, otherwise
// the letter of its backslash escape.
constexpr std::array<char, 256> makeEscapeTable(char quote) {
  std::array<char, 256> t{};
  for (int c = 0; c < 256; ++c) t[c] = (c >= 0x20 && c <= 0x7e) ? 0 : 'x';
  t['\\'] = '\\';
  t[static_cast<unsigned char>(quote)] = quote;
  t['\n'] = 'n';
  t['\r'] = 'r';
  t['\t'] = 't';
  return t;
}
constexpr auto kStrepEscape = makeEscapeTable('\'');
constexpr auto kExcerptEscape = makeEscapeTable('"');

// Appends bytes with every byte that the table marks replaced by its escape. Runs
// of plain bytes are copied in one go: this is the hot part of printing a record.
void appendEscaped(String& s, const char* p, const char* e, std::array<char, 256> const& tbl) {
  const char* run = p;
  for (; p != e; ++p) {
    char esc = tbl[static_cast<unsigned char>(*p)];
    if (!esc) continue;
    s.append(run, static_cast<std::size_t>(p - run));
    if (esc == 'x') {
      unsigned char c = static_cast<unsigned char>(*p);
      char hex[4] = {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
      s.append(hex, 4);
    } else {
      char two[2] = {'\\', esc};
      s.append(two, 2);
    }
    run = p + 1;
  }
  s.append(run, static_cast<std::size_t>(e - run));
}

const char* fieldOf(const char* fieldName) { return fieldName ? fieldName : "value"; }

[[noreturn]] void throwParse(const char* fieldName, std::string_view what, StrepIt pos, StrepIt end) {
  String msg(fieldOf(fieldName));
  msg += ": expected ";
  msg += what;
  msg += " but found ";
  appendExcerpt(msg, pos, end);
  throw ParseException(std::move(msg));
}

[[noreturn]] void throwDoesNotFit(const char* fieldName, StrepIt b, StrepIt e, std::string_view type) {
  String msg(fieldOf(fieldName));
  msg += ": ";
  // The number itself, cut if absurdly long.
  constexpr std::ptrdiff_t kMax = 40;
  if (e - b > kMax) {
    msg += std::string_view(b, kMax);
    msg += "...";
  } else {
    msg += std::string_view(b, static_cast<std::size_t>(e - b));
  }
  msg += " does not fit ";
  msg += type;
  throw RangeException(std::move(msg));
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads [-]digits at pos. The magnitude must not exceed maxPositive (or maxNegative
// after a minus sign); typeText names the target type in the range error.
std::uint64_t parseMagnitude(StrepIt& pos, StrepIt const& end, const char* fieldName,
                             std::uint64_t maxPositive, std::uint64_t maxNegative,
                             std::string_view typeText, bool& negative) {
  StrepIt p = pos;
  negative = p != end && *p == '-';
  if (negative) ++p;
  StrepIt digits = p;
  std::uint64_t mag = 0;
  bool overflow = false;
  for (; p != end && isDigit(*p); ++p) {
    unsigned d = static_cast<unsigned>(*p - '0');
    if (mag > (std::numeric_limits<std::uint64_t>::max() - d) / 10) {
      overflow = true;
    } else {
      mag = mag * 10 + d;
    }
  }
  if (p == digits) throwParse(fieldName, "an integer", pos, end);
  if (overflow || mag > (negative ? maxNegative : maxPositive)) throwDoesNotFit(fieldName, pos, p, typeText);
  pos = p;
  return mag;
}

template <class T>
T parseInteger(StrepIt& pos, StrepIt const& end, const char* fieldName) {
  using U = std::make_unsigned_t<T>;
  constexpr int bits = std::numeric_limits<U>::digits;
  static constexpr auto typeText = [] {
    // "unsigned 64-bit" / "signed 8-bit"
    std::array<char, 16> t{};
    const char* prefix = std::is_signed_v<T> ? "signed " : "unsigned ";
    std::size_t n = 0;
    while (*prefix) t[n++] = *prefix++;
    if (bits >= 10) t[n++] = static_cast<char>('0' + bits / 10);
    t[n++] = static_cast<char>('0' + bits % 10);
    for (char c : {'-', 'b', 'i', 't'}) t[n++] = c;
    return std::pair{t, n};
  }();
  std::string_view type(typeText.first.data(), typeText.second);
  constexpr std::uint64_t maxPos = static_cast<std::uint64_t>(std::numeric_limits<T>::max());
  constexpr std::uint64_t maxNeg = std::is_signed_v<T> ? maxPos + 1 : 0;
  bool negative = false;
  std::uint64_t mag = parseMagnitude(pos, end, fieldName, maxPos, maxNeg, type, negative);
  // Two's complement negation in the unsigned type gives the exact value, INT_MIN too.
  U u = static_cast<U>(mag);
  if (negative) u = static_cast<U>(U(0) - u);
  return static_cast<T>(u);
}

template <class F>
F parseFloating(StrepIt& pos, StrepIt const& end, const char* fieldName, std::string_view typeText) {
  F v{};
  auto r = std::from_chars(pos, end, v, std::chars_format::general);
  if (r.ec == std::errc::invalid_argument) throwParse(fieldName, "a number", pos, end);
  if (r.ec == std::errc::result_out_of_range) throwDoesNotFit(fieldName, pos, r.ptr, typeText);
  pos = r.ptr;
  return v;
}

bool parseBool(StrepIt& pos, StrepIt const& end, const char* fieldName) {
  std::size_t left = static_cast<std::size_t>(end - pos);
  if (left >= 4 && std::memcmp(pos, "True", 4) == 0) {
    pos += 4;
    return true;
  }
  if (left >= 5 && std::memcmp(pos, "False", 5) == 0) {
    pos += 5;
    return false;
  }
  throwParse(fieldName, "True or False", pos, end);
}

String parseString(StrepIt& pos, StrepIt const& end, const char* fieldName) {
  if (pos == end || (*pos != '\'' && *pos != '"')) throwParse(fieldName, "a quoted string", pos, end);
  const char quote = *pos;
  std::string out;
  StrepIt p = pos + 1;
  StrepIt run = p;
  for (;;) {
    if (p == end) throwParse(fieldName, "the closing quote of the string", p, end);
    char c = *p;
    if (c == quote) break;
    if (c != '\\') {
      ++p;
      continue;
    }
    out.append(run, static_cast<std::size_t>(p - run));
    if (end - p < 2) throwParse(fieldName, "the closing quote of the string", end, end);
    int hi, lo;
    switch (p[1]) {
      case '\\': out += '\\'; break;
      case '\'': out += '\''; break;
      case '"': out += '"'; break;
      case 'n': out += '\n'; break;
      case 'r': out += '\r'; break;
      case 't': out += '\t'; break;
      case '0': out += '\0'; break;
      case 'x':
        if (end - p < 4 || (hi = hexDigitValue(p[2])) < 0 || (lo = hexDigitValue(p[3])) < 0) {
          throwParse(fieldName, "an escape \\xHH with two hex digits", p, end);
        }
        out += static_cast<char>(hi * 16 + lo);
        p += 2;
        break;
      default:
        throwParse(fieldName, "a valid escape (\\\\ \\' \\\" \\n \\r \\t \\0 \\xHH)", p, end);
    }
    p += 2;
    run = p;
  }
  out.append(run, static_cast<std::size_t>(p - run));
  pos = p + 1;
  return String(std::move(out));
}

}  // namespace

// --- printing -------------------------------------------------------------------

void appendStrep(String& out, bool v) { out += v ? std::string_view("True") : std::string_view("False"); }

void appendStrep(String& out, long long v) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, static_cast<std::size_t>(r.ptr - buf));
}

void appendStrep(String& out, unsigned long long v) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, static_cast<std::size_t>(r.ptr - buf));
}

void appendStrep(String& out, double v) {
  if (std::isnan(v)) {
    // The sign of a NaN carries no meaning worth keeping in text.
    out += "nan";
    return;
  }
  char buf[40];  // the longest shortest form, "-2.2250738585072014e-308", is 24 bytes
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, static_cast<std::size_t>(r.ptr - buf));
  // Keep a double recognisable as one: 1 -> 1.0, -0 -> -0.0.
  if (std::isfinite(v) && std::memchr(buf, '.', static_cast<std::size_t>(r.ptr - buf)) == nullptr &&
      std::memchr(buf, 'e', static_cast<std::size_t>(r.ptr - buf)) == nullptr) {
    out += ".0";
  }
}

namespace {

void appendQuoted(String& out, const char* b, const char* e) {
  // Bytes of out itself move when the reserve grows it: quote a copy of them.
  std::less_equal<const char*> const le;
  if (b != e && le(out.begin(), b) && le(e, out.end())) {
    String const copy(b, e);
    appendQuoted(out, copy.begin(), copy.end());
    return;
  }
  out.reserve(out.size() + static_cast<std::size_t>(e - b) + 2);
  out += '\'';
  appendEscaped(out, b, e, kStrepEscape);
  out += '\'';
}

}  // namespace

void appendStrep(String& out, String const& v) { appendQuoted(out, v.begin(), v.end()); }

void appendStrep(String& out, const char* v) {
  if (!v) v = "";
  appendQuoted(out, v, v + std::strlen(v));
}

String valueToStrep(const char* v) {
  String s;
  appendStrep(s, v);
  return s;
}

String valueToStrep(bool v) { return String(v ? "True" : "False"); }

String valueToStrep(long long v) {
  String s;
  appendStrep(s, v);
  return s;
}

String valueToStrep(unsigned long long v) {
  String s;
  appendStrep(s, v);
  return s;
}

String valueToStrep(double v) {
  String s;
  appendStrep(s, v);
  return s;
}

String valueToStrep(String const& v) {
  String s;
  appendStrep(s, v);
  return s;
}

void appendExcerpt(String& out, StrepIt pos, StrepIt end, std::size_t maxBytes) {
  if (pos == end) {
    out += "end of text";
    return;
  }
  std::size_t n = static_cast<std::size_t>(end - pos);
  bool cut = n > maxBytes;
  if (cut) n = maxBytes;
  out += '"';
  appendEscaped(out, pos, pos + n, kExcerptEscape);
  if (cut) out += "...";
  out += '"';
}

// --- parsing ----------------------------------------------------------------------

void needString(StrepIt& pos, StrepIt const& end, std::string_view literal) {
  std::size_t left = static_cast<std::size_t>(end - pos);
  if (left >= literal.size() && std::memcmp(pos, literal.data(), literal.size()) == 0) {
    pos += literal.size();
    return;
  }
  String msg("expected \"");
  appendEscaped(msg, literal.data(), literal.data() + literal.size(), kExcerptEscape);
  msg += "\" but found ";
  appendExcerpt(msg, pos, end, literal.size() + 8 < 24 ? 24 : literal.size() + 8);
  throw ParseException(std::move(msg));
}

template <class T>
T deserializeAttr(StrepIt& pos, StrepIt const& end, const char* fieldName) {
  if constexpr (std::is_same_v<T, bool>) {
    return parseBool(pos, end, fieldName);
  } else if constexpr (std::is_integral_v<T>) {
    return parseInteger<T>(pos, end, fieldName);
  } else if constexpr (std::is_same_v<T, double>) {
    return parseFloating<double>(pos, end, fieldName, "double");
  } else if constexpr (std::is_same_v<T, float>) {
    return parseFloating<float>(pos, end, fieldName, "float");
  } else {
    static_assert(std::is_same_v<T, String>, "no text parser for this type");
    return parseString(pos, end, fieldName);
  }
}

template bool deserializeAttr<bool>(StrepIt&, StrepIt const&, const char*);
template char deserializeAttr<char>(StrepIt&, StrepIt const&, const char*);
template signed char deserializeAttr<signed char>(StrepIt&, StrepIt const&, const char*);
template unsigned char deserializeAttr<unsigned char>(StrepIt&, StrepIt const&, const char*);
template short deserializeAttr<short>(StrepIt&, StrepIt const&, const char*);
template unsigned short deserializeAttr<unsigned short>(StrepIt&, StrepIt const&, const char*);
template int deserializeAttr<int>(StrepIt&, StrepIt const&, const char*);
template unsigned deserializeAttr<unsigned>(StrepIt&, StrepIt const&, const char*);
template long deserializeAttr<long>(StrepIt&, StrepIt const&, const char*);
template unsigned long deserializeAttr<unsigned long>(StrepIt&, StrepIt const&, const char*);
template long long deserializeAttr<long long>(StrepIt&, StrepIt const&, const char*);
template unsigned long long deserializeAttr<unsigned long long>(StrepIt&, StrepIt const&, const char*);
template float deserializeAttr<float>(StrepIt&, StrepIt const&, const char*);
template double deserializeAttr<double>(StrepIt&, StrepIt const&, const char*);
template String deserializeAttr<String>(StrepIt&, StrepIt const&, const char*);

void strepToValueEnd(String const& s, StrepIt pos) {
  if (pos == s.end()) return;
  String msg("unexpected text after the value: ");
  appendExcerpt(msg, pos, s.end());
  throw ParseException(std::move(msg));
}

void rethrowFromDeserializeAttr(RangeException const& e, const char* fieldName) {
  std::string_view field(fieldOf(fieldName));
  std::string_view m = e.message().view();
  if (m.size() > field.size() + 1 && m.substr(0, field.size()) == field && m[field.size()] == ':' &&
      m[field.size() + 1] == ' ') {
    throw RangeException(e.message());
  }
  String msg(field);
  msg += ": ";
  msg += e.message();
  throw RangeException(std::move(msg));
}

}  // namespace Kel
