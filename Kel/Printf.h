#pragma once
// Kel::Printf: printf-style formats checked at compile time against their arguments,
// and rendered from type-tagged arguments instead of C varargs. Used by the event log
// and by tracing (Brisklog records, Duolog lines).
//
// A format is a printf format checked at compile time against its arguments:
// the number of conversions must equal the number of arguments and each conversion
// must suit its argument's kind:
//   d i u o x X c   any integer, bool or enumeration
//   f F e E g G a A float, double or long double (rendered as double)
//   s               const char*, char arrays, std::string, std::string_view,
//                   Kel::String or anything else convertible to std::string_view
//   p               any other pointer, or nullptr
//   %%              a literal '%', consumes nothing
// Flags (-+ #0), a decimal width and precision (at most 4096) are honoured; '*' and %n
// are refused. Length modifiers (hh h l ll j z t L) are accepted and optional: an
// integer prints with the width of its own type (hh and h narrow it as printf does),
// so "%d" is right for a uint64_t or a size_t too.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kel::Printf {

// One argument as captured where the message is written. String text is a view: a record
// copies it, a text line uses it before the statement ends.
struct Arg {
  enum class Kind : std::uint8_t { Signed, Unsigned, Double, String, Pointer };
  Kind kind = Kind::Signed;
  std::uint8_t size = 0;    // byte size of an integer argument's own type
  std::uint64_t bits = 0;   // integer (sign- or zero-extended to 64 bits) or pointer
  double real = 0.0;
  std::string_view text;
};

namespace Detail {

template <typename T>
inline constexpr bool alwaysFalse = false;

template <typename T>
constexpr bool isCharPointer() {
  using D = std::remove_cvref_t<T>;
  if constexpr (std::is_pointer_v<D>) {
    return std::is_same_v<std::remove_cv_t<std::remove_pointer_t<D>>, char>;
  } else if constexpr (std::is_array_v<D>) {
    return std::is_same_v<std::remove_cv_t<std::remove_extent_t<D>>, char>;
  } else {
    return false;
  }
}

}  // namespace Detail

// The types an argument may have.
template <typename T>
concept Printable = Detail::isCharPointer<T>() || std::is_enum_v<std::remove_cvref_t<T>> ||
                    std::is_integral_v<std::remove_cvref_t<T>> || std::is_floating_point_v<std::remove_cvref_t<T>> ||
                    std::is_pointer_v<std::remove_cvref_t<T>> || std::is_null_pointer_v<std::remove_cvref_t<T>> ||
                    std::is_convertible_v<std::remove_cvref_t<T> const&, std::string_view>;

// The kind an argument of type T is captured as; a type that is not Printable does not compile.
template <typename T>
constexpr Arg::Kind kindOf() {
  using D = std::remove_cvref_t<T>;
  if constexpr (Detail::isCharPointer<D>()) {
    return Arg::Kind::String;
  } else if constexpr (std::is_enum_v<D>) {
    return std::is_signed_v<std::underlying_type_t<D>> ? Arg::Kind::Signed : Arg::Kind::Unsigned;
  } else if constexpr (std::is_integral_v<D>) {
    return std::is_signed_v<D> ? Arg::Kind::Signed : Arg::Kind::Unsigned;
  } else if constexpr (std::is_floating_point_v<D>) {
    return Arg::Kind::Double;
  } else if constexpr (std::is_pointer_v<D> || std::is_null_pointer_v<D>) {
    return Arg::Kind::Pointer;
  } else if constexpr (std::is_convertible_v<D const&, std::string_view>) {
    return Arg::Kind::String;
  } else {
    static_assert(Detail::alwaysFalse<D>,
                  "a format argument must be an integer, enum, floating point, string or pointer");
    return Arg::Kind::Pointer;
  }
}

template <typename T>
Arg argOf(T const& v) noexcept {
  using D = std::remove_cvref_t<T>;
  Arg a;
  a.kind = kindOf<D>();
  if constexpr (Detail::isCharPointer<D>()) {
    if constexpr (std::is_array_v<D>) {
      a.text = std::string_view(v, ::strnlen(v, std::extent_v<D>));
    } else {
      a.text = v ? std::string_view(v) : std::string_view("(null)");
    }
  } else if constexpr (std::is_enum_v<D>) {
    using U = std::underlying_type_t<D>;
    a.size = sizeof(U);
    a.bits = static_cast<std::uint64_t>(static_cast<std::conditional_t<std::is_signed_v<U>, std::int64_t, std::uint64_t>>(
        static_cast<U>(v)));
  } else if constexpr (std::is_integral_v<D>) {
    a.size = sizeof(D);
    if constexpr (std::is_signed_v<D>) {
      a.bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(v));
    } else {
      a.bits = static_cast<std::uint64_t>(v);
    }
  } else if constexpr (std::is_floating_point_v<D>) {
    a.real = static_cast<double>(v);
  } else if constexpr (std::is_null_pointer_v<D>) {
    a.bits = 0;
  } else if constexpr (std::is_pointer_v<D>) {
    a.bits = reinterpret_cast<std::uintptr_t>(v);
  } else {
    a.text = std::string_view(v);
  }
  return a;
}

// One parsed conversion.
struct Conversion {
  const char* end = nullptr;  // one past the conversion character
  char flags[6] = {};         // each of "-+ #0" at most once, NUL-terminated
  int width = -1;             // -1: none
  int precision = -1;         // -1: none
  char length = 0;            // 0, 'H' (hh), 'h', 'l', 'M' (ll), 'j', 'z', 't', 'L'
  char conversion = 0;        // 0: malformed or refused
};

inline constexpr int maxWidth = 4096;

// Parses the conversion starting at p, which points at its '%'.
constexpr Conversion parseSpec(const char* p) {
  Conversion s;
  ++p;
  int nFlags = 0;
  for (;; ++p) {
    char c = *p;
    if (c != '-' && c != '+' && c != ' ' && c != '#' && c != '0') break;
    for (int i = 0; i < nFlags; ++i) {
      if (s.flags[i] == c) return s;
    }
    s.flags[nFlags++] = c;
  }
  auto number = [&p](int& out) {
    out = 0;
    while (*p >= '0' && *p <= '9') {
      out = out * 10 + (*p - '0');
      if (out > maxWidth) return false;
      ++p;
    }
    return true;
  };
  if (*p >= '0' && *p <= '9' && !number(s.width)) return s;
  if (*p == '.') {
    ++p;
    if (!number(s.precision)) return s;
  }
  switch (*p) {
    case 'h': s.length = (p[1] == 'h') ? 'H' : 'h'; p += (p[1] == 'h') ? 2 : 1; break;
    case 'l': s.length = (p[1] == 'l') ? 'M' : 'l'; p += (p[1] == 'l') ? 2 : 1; break;
    case 'j': case 'z': case 't': case 'L': s.length = *p++; break;
    default: break;
  }
  switch (*p) {
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'c':
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
    case 's': case 'p':
      s.conversion = *p;
      s.end = p + 1;
      break;
    default:
      break;
  }
  return s;
}

constexpr bool accepts(char conversion, Arg::Kind kind) {
  switch (conversion) {
    case 's': return kind == Arg::Kind::String;
    case 'p': return kind == Arg::Kind::Pointer;
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A':
      return kind == Arg::Kind::Double;
    default:
      return kind == Arg::Kind::Signed || kind == Arg::Kind::Unsigned;
  }
}

// Whether an argument of type B can stand where the format expects one of type A: both
// printable, and every conversion that takes one takes the other.
template <typename B, typename A>
constexpr bool interchangeable() {
  if constexpr (!Printable<B> || !Printable<A>) {
    return false;
  } else {
    constexpr Arg::Kind b = kindOf<B>(), a = kindOf<A>();
    constexpr auto integer = [](Arg::Kind k) { return k == Arg::Kind::Signed || k == Arg::Kind::Unsigned; };
    return a == b || (integer(a) && integer(b));
  }
}

enum class FormatError : std::uint8_t { none, badConversion, moreConversions, fewerConversions, unsuitable };

constexpr FormatError formatError(const char* format, const Arg::Kind* kinds, std::size_t count) {
  std::size_t used = 0;
  for (const char* p = format; *p;) {
    if (*p != '%') { ++p; continue; }
    if (p[1] == '%') { p += 2; continue; }
    Conversion s = parseSpec(p);
    if (!s.conversion) return FormatError::badConversion;
    if (used == count) return FormatError::moreConversions;
    if (!accepts(s.conversion, kinds[used])) return FormatError::unsuitable;
    ++used;
    p = s.end;
  }
  return used == count ? FormatError::none : FormatError::fewerConversions;
}

// Whether format suits arguments of types A, for static_assert and requires-clauses.
template <typename... A>
constexpr bool formatSuits(const char* format) {
  if constexpr ((!Printable<A> || ...)) {
    return false;
  } else {
    constexpr std::array<Arg::Kind, sizeof...(A)> kinds{kindOf<A>()...};
    return formatError(format, kinds.data(), kinds.size()) == FormatError::none;
  }
}

// Not constexpr: a call in a constant evaluation is the compile error, named by the
// function, that points at the faulty statement. (clang before 15 leaves the check of an
// implicitly converted format in a namespace-scope initializer to run time; there they
// stop the program with the same name.)
void formatHasABadOrUnsupportedConversion();
void formatHasMoreConversionsThanArguments();
void formatHasFewerConversionsThanArguments();
void formatConversionDoesNotSuitItsArgument();

constexpr void checkFormat(const char* format, const Arg::Kind* kinds, std::size_t count) {
  switch (formatError(format, kinds, count)) {
    case FormatError::none: break;
    case FormatError::badConversion: formatHasABadOrUnsupportedConversion(); break;
    case FormatError::moreConversions: formatHasMoreConversionsThanArguments(); break;
    case FormatError::fewerConversions: formatHasFewerConversionsThanArguments(); break;
    case FormatError::unsuitable: formatConversionDoesNotSuitItsArgument(); break;
  }
}

// A format literal checked against the argument types A at compile time.
template <typename... A>
class Format {
 public:
  consteval Format(const char* text) : text_(text) {
    constexpr std::array<Arg::Kind, sizeof...(A)> kinds{kindOf<A>()...};
    checkFormat(text, kinds.data(), kinds.size());
  }
  constexpr const char* text() const noexcept { return text_; }

 private:
  const char* text_;
};

// Appends the format applied to args. Never fails on a mismatch: a conversion without a
// suitable argument prints "<?>", a malformed conversion is copied as it stands.
void renderTo(std::string& out, const char* format, std::span<const Arg> args);
std::string render(const char* format, std::span<const Arg> args);

}  // namespace Kel::Printf
