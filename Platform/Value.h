#pragma once
// What the platform value types share: their text form, their stream output, their
// attribute-log output and std::hash, written once. A type takes part by saying, inside
// its class, `using KelPlatformValue = void;` and how it shows and travels:
//   kelText()   what it prints (its address or name text, or its number)
//   kelLog()    what the attribute log carries, at the log's width
//   kelStrep()  optional: its text form, when that is not kelText() as a strep
//   hash()      a hash stable across processes
#include <concepts>
#include <cstddef>
#include <functional>
#include <iosfwd>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"

namespace Platform {

template <class T>
concept Value = requires(T const& v) {
  typename T::KelPlatformValue;
  v.kelText();
  v.kelLog();
  { v.hash() } -> std::convertible_to<std::size_t>;
};

template <Value T>
Kel::String valueToStrep(T const& v) {
  if constexpr (requires { v.kelStrep(); })
    return v.kelStrep();
  else
    return Kel::valueToStrep(v.kelText());
}

template <Value T>
std::ostream& operator<<(std::ostream& os, T const& v) {
  return os << v.kelText();
}

template <Value T>
Kel::NboAttrLog::Out& operator<<(Kel::NboAttrLog::Out& out, T const& v) {
  return out << v.kelLog();
}

}  // namespace Platform

template <Platform::Value T>
struct std::hash<T> {
  std::size_t operator()(T const& v) const noexcept { return v.hash(); }
};
