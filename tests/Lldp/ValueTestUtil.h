#pragma once
// Helpers shared by the value-type tests: the list of every declared value type, a
// generic "every field set to an extreme" sample, and exception-message capture.
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>

#include "Kel/EnumType.h"
#include "Lldp/Lldp.h"
#include "Lldp/ModelTypes.h"
#include "Platform/Platform.h"

namespace LldpTest {

using namespace Lldp;
using Civic = LocationId::CivicAddressLCI;

// The one value type that holds a collection.
template <class T>
constexpr bool holdsCollection = std::is_same_v<T, Civic>;

// Calls f(T{}) for every value type, with the type's name in failure traces.
template <class F>
void forEachValueType(F&& f) {
  auto one = [&](auto tag) {
    SCOPED_TRACE(decltype(tag)::kelName);
    f(tag);
  };
  std::apply([&](auto... tag) { (one(tag), ...); }, AllValueTypes{});
}

// Bytes that need escaping in text and that are not text at all.
inline Kel::String awkwardBytes(std::size_t n) {
  static constexpr char pattern[] = "a'\"\\\n\t\x00\xff\x7f" "b";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += pattern[i % (sizeof pattern - 1)];
  return Kel::String(std::move(s));
}

template <class T>
T filled();

// A value of a field's type far from its default: width and sign extremes within the
// field's limit, strings at their bound, the last of the first three enumerators.
template <class F>
F sampleOf(Kel::FieldLimit const& l) {
  if constexpr (std::is_same_v<F, bool>) {
    return true;
  } else if constexpr (std::is_enum_v<F>) {
    for (unsigned v : {3u, 2u, 1u})
      if (valueToStrep(static_cast<F>(v)).view().find("undefined") == std::string_view::npos)
        return static_cast<F>(v);
    return F{};
  } else if constexpr (std::is_integral_v<F>) {
    using L = std::numeric_limits<F>;
    if (l.hasMax) return static_cast<F>(l.max);
    return std::is_signed_v<F> && !l.hasMin ? L::min() : L::max();
  } else if constexpr (std::is_floating_point_v<F>) {
    return 1712345678.125;
  } else if constexpr (std::is_same_v<F, Kel::String>) {
    return awkwardBytes(l.onBytes ? l.max : 13);
  } else if constexpr (IsValueCollection<F>::value) {
    F m;
    for (std::uint8_t k : {200, 1, 29}) m.emplace(k, filled<typename F::mapped_type>());
    return m;
  } else if constexpr (KelBitMap<F>) {
    return F(F::kelMax);
  } else if constexpr (KelValue<F>) {
    return filled<F>();
  } else if constexpr (std::is_same_v<F, Platform::IntfId>) {
    return F("Ethernet3/1");
  } else if constexpr (std::is_same_v<F, Platform::AddressFamilyNumbers>) {
    return F(std::int32_t{-5});
  } else if constexpr (std::is_same_v<F, Platform::ObjectIdentifier>) {
    return F{1, 3, 6, 1, 4294967295u};
  } else if constexpr (std::is_same_v<F, Platform::AutoNegCapBits>) {
    return F(0x7fffffu);
  } else {
    return F(4094);  // VlanId, VlanIdOrNone
  }
}

template <class T>
T filled() {
  T v;
  v.kelForEachField([](const char*, auto& field, Kel::FieldLimit const& limit) {
    field = sampleOf<std::decay_t<decltype(field)>>(limit);
  });
  return v;
}

// The message of the E that f throws; fails the test when it throws none.
template <class E = Kel::Exception, class F>
std::string messageOf(F&& f) {
  try {
    f();
  } catch (E const& e) {
    return e.what();
  }
  ADD_FAILURE() << "no exception";
  return "";
}

template <class T>
Kel::String logBytes(T const& v) {
  Kel::NboAttrLog::Out o;
  o << v;
  return o.bytes();
}

template <class T>
T fromLog(Kel::String const& bytes) {
  Kel::NboAttrLog::In in(bytes);
  T v(&in, Kel::StreamBogon{});
  EXPECT_TRUE(in.atEnd());
  return v;
}

}  // namespace LldpTest
