#include "Kel/Printf.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Kel/Exception.h"

namespace Kel::Printf {

namespace {

void appendf(std::string& out, const char* conv, ...) __attribute__((format(printf, 2, 3)));

void appendf(std::string& out, const char* conv, ...) {
  char buf[128];
  va_list ap;
  va_start(ap, conv);
  int n = std::vsnprintf(buf, sizeof buf, conv, ap);
  va_end(ap);
  if (n < 0) return;
  if (static_cast<std::size_t>(n) < sizeof buf) {
    out.append(buf, static_cast<std::size_t>(n));
    return;
  }
  std::size_t old = out.size();
  out.resize(old + static_cast<std::size_t>(n) + 1);
  va_start(ap, conv);
  std::vsnprintf(out.data() + old, static_cast<std::size_t>(n) + 1, conv, ap);
  va_end(ap);
  out.resize(old + static_cast<std::size_t>(n));
}

// "%" + flags + width + precision (unless it is given separately) + extra + conversion.
struct SpecText {
  char text[40];
  const char* c_str() const { return text; }
};

SpecText specText(Conversion const& s, const char* extra, char conversion, bool precision = true) {
  SpecText t;
  char* p = t.text;
  char* const end = t.text + sizeof t.text - 1;
  *p++ = '%';
  for (const char* f = s.flags; *f; ++f) *p++ = *f;
  if (s.width >= 0) p = std::to_chars(p, end, s.width).ptr;
  if (precision && s.precision >= 0) {
    *p++ = '.';
    p = std::to_chars(p, end, s.precision).ptr;
  }
  while (*extra) *p++ = *extra++;
  *p++ = conversion;
  *p = '\0';
  return t;
}

// The bytes printf would see: an integer promotes to at least int, and a length
// modifier names the width it is read at.
std::size_t integerBytes(Conversion const& s, Arg const& a) {
  switch (s.length) {
    case 'H': return 1;
    case 'h': return 2;
    case 0: return a.size < 4 ? 4 : a.size;
    default: return 8;
  }
}

void renderInteger(std::string& out, Conversion const& s, Arg const& a) {
  std::size_t bytes = integerBytes(s, a);
  std::uint64_t mask = bytes >= 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << (8 * bytes)) - 1;
  std::uint64_t u = a.bits & mask;
  if (s.conversion == 'c') {
    appendf(out, specText(s, "", 'c').c_str(), static_cast<int>(static_cast<unsigned char>(u)));
  } else if (s.conversion == 'd' || s.conversion == 'i') {
    std::uint64_t sign = std::uint64_t{1} << (8 * bytes - 1);
    std::int64_t v = (u & sign) ? static_cast<std::int64_t>(u | ~mask) : static_cast<std::int64_t>(u);
    appendf(out, specText(s, "ll", s.conversion).c_str(), static_cast<long long>(v));
  } else {
    appendf(out, specText(s, "ll", s.conversion).c_str(), static_cast<unsigned long long>(u));
  }
}

void renderOne(std::string& out, Conversion const& s, Arg const& a) {
  switch (a.kind) {
    case Arg::Kind::Signed:
    case Arg::Kind::Unsigned:
      renderInteger(out, s, a);
      break;
    case Arg::Kind::Double:
      appendf(out, specText(s, "", s.conversion).c_str(), a.real);
      break;
    case Arg::Kind::String: {
      // The view need not end in a NUL, so its length always bounds the precision.
      std::size_t n = a.text.size();
      if (s.precision >= 0 && static_cast<std::size_t>(s.precision) < n) n = static_cast<std::size_t>(s.precision);
      if (n > static_cast<std::size_t>(maxWidth) * 1024) n = static_cast<std::size_t>(maxWidth) * 1024;
      // Appended, not through printf's %s, which would stop at a NUL inside the bytes.
      std::size_t const pad = s.width > 0 && static_cast<std::size_t>(s.width) > n ? static_cast<std::size_t>(s.width) - n : 0;
      bool const left = std::strchr(s.flags, '-') != nullptr;
      if (!left) out.append(pad, ' ');
      out.append(a.text.data(), n);
      if (left) out.append(pad, ' ');
      break;
    }
    case Arg::Kind::Pointer:
      appendf(out, specText(s, "", 'p').c_str(), reinterpret_cast<void*>(static_cast<std::uintptr_t>(a.bits)));
      break;
  }
}

}  // namespace

void formatHasABadOrUnsupportedConversion() { assertFailed("formatHasABadOrUnsupportedConversion", __FILE__, __LINE__); }
void formatHasMoreConversionsThanArguments() { assertFailed("formatHasMoreConversionsThanArguments", __FILE__, __LINE__); }
void formatHasFewerConversionsThanArguments() { assertFailed("formatHasFewerConversionsThanArguments", __FILE__, __LINE__); }
void formatConversionDoesNotSuitItsArgument() { assertFailed("formatConversionDoesNotSuitItsArgument", __FILE__, __LINE__); }

void renderTo(std::string& out, const char* format, std::span<const Arg> args) {
  if (!format) return;
  std::size_t used = 0;
  const char* p = format;
  while (*p) {
    const char* pct = std::strchr(p, '%');
    if (!pct) {
      out.append(p);
      break;
    }
    out.append(p, static_cast<std::size_t>(pct - p));
    if (pct[1] == '%') {
      out += '%';
      p = pct + 2;
      continue;
    }
    Conversion s = parseSpec(pct);
    if (!s.conversion) {
      out += '%';
      p = pct + 1;
      continue;
    }
    if (used < args.size() && accepts(s.conversion, args[used].kind)) {
      renderOne(out, s, args[used]);
    } else {
      out += "<?>";
    }
    ++used;
    p = s.end;
  }
}

std::string render(const char* format, std::span<const Arg> args) {
  std::string out;
  renderTo(out, format, args);
  return out;
}

}  // namespace Kel::Printf
