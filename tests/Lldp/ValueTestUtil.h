#pragma once
// The test-framework side of ModelSupport.h: every declared value type in turn, exception
// messages, and one value through the attribute log.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <type_traits>

#include "Lldp/ModelSupport.h"

namespace LldpTest {

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
