#pragma once
// Text primitives of the framework's value text form ("strep"). Every primitive prints
// as a Python literal (True/False, decimal integers, shortest round-trip doubles,
// quoted strings with escapes), and each parser accepts exactly what its printer writes.
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "Kel/Exception.h"
#include "Kel/String.h"

namespace Kel {

using StrepIt = String::IteratorConst;

// --- printing -------------------------------------------------------------------
String valueToStrep(bool v);                // True | False
String valueToStrep(long long v);           // -12
String valueToStrep(unsigned long long v);  // 12
String valueToStrep(double v);              // 1.0, 0.1, 1e+100, inf, -inf, nan
String valueToStrep(String const& v);       // 'a\'b\x00' (every byte reads back unchanged)

// Appending forms, for printers that build one long text without temporaries.
void appendStrep(String& out, bool v);
void appendStrep(String& out, long long v);
void appendStrep(String& out, unsigned long long v);
void appendStrep(String& out, double v);
void appendStrep(String& out, String const& v);

// A C string prints as a string strep, not through the pointer-to-bool conversion.
String valueToStrep(const char* v);
void appendStrep(String& out, const char* v);

// Narrower integers print like their 64-bit counterparts, so callers need no casts.
template <std::integral T>
  requires(!std::same_as<T, bool> && !std::same_as<T, long long> &&
           !std::same_as<T, unsigned long long>)
inline void appendStrep(String& out, T v) {
  if constexpr (std::is_signed_v<T>) {
    appendStrep(out, static_cast<long long>(v));
  } else {
    appendStrep(out, static_cast<unsigned long long>(v));
  }
}
template <std::integral T>
  requires(!std::same_as<T, bool> && !std::same_as<T, long long> &&
           !std::same_as<T, unsigned long long>)
inline String valueToStrep(T v) {
  String s;
  appendStrep(s, v);
  return s;
}

// The value of a hex digit in either case, or -1 for any other byte.
constexpr int hexDigitValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Appends an excerpt of the text at pos for error messages: at most maxBytes bytes,
// double-quoted, non-printable bytes escaped, "..." when cut; "end of text" at end.
void appendExcerpt(String& out, StrepIt pos, StrepIt end, std::size_t maxBytes = 24);

// --- parsing ----------------------------------------------------------------------
// The literal must stand at pos exactly; it is consumed. Otherwise ParseException
// naming the expected literal and what was found instead.
void needString(StrepIt& pos, StrepIt const& end, std::string_view literal);

// Parses one primitive of type T at pos (bool, any integer type, double, String),
// advancing pos behind it. Malformed text: ParseException naming fieldName.
// An integer that does not fit T: RangeException naming fieldName.
// Instantiated for bool, char, signed/unsigned char, short, int, long, long long
// (hence every <cstdint> alias), float, double and String.
template <class T>
T deserializeAttr(StrepIt& pos, StrepIt const& end, const char* fieldName);

// Fails with ParseException unless pos is the end of s (text left over).
void strepToValueEnd(String const& s, StrepIt pos);

// Throws a RangeException whose message is fieldName + ": " + the original message.
// A message that already starts with that prefix (deserializeAttr names its own field)
// is rethrown as it is, so a field is never named twice.
[[noreturn]] void rethrowFromDeserializeAttr(RangeException const& e, const char* fieldName);

// Parses one value of type T at pos: enumerations through the ADL-found
// sequenceToValue(pos, end, (T*)nullptr), primitives through deserializeAttr,
// class types through their parsing constructor T(pos, end).
template <class T>
T sequenceToValue(StrepIt& pos, StrepIt const& end, T* = nullptr) {
  if constexpr (std::is_enum_v<T>) {
    return sequenceToValue(pos, end, static_cast<T*>(nullptr));
  } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, String>) {
    return deserializeAttr<T>(pos, end, "value");
  } else {
    return T(pos, end);
  }
}

// Parses a whole string as one T; text left over is an error.
template <class T>
T strepToValue(String const& s, T* tag = nullptr) {
  StrepIt pos = s.begin();
  T v = sequenceToValue(pos, s.end(), tag);
  strepToValueEnd(s, pos);
  return v;
}

}  // namespace Kel
