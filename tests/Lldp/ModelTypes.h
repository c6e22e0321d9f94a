#pragma once
// The model's value types for generic test, benchmark and fuzz code: every value type the
// schemas declare as one list (generated from them), and how to tell records, bit maps
// and value collections apart.
#include <map>
#include <tuple>
#include <type_traits>

#include "Lldp/Lldp.h"

namespace LldpTest {

template <class T>
concept KelValue = requires { T::kelShape; };
template <class T>
concept KelBitMap = KelValue<T> && (T::kelShape == Kel::Shape::bitMap);
template <class T>
struct IsValueCollection : std::false_type {};
template <class K, class V, class C, class A>
struct IsValueCollection<std::map<K, V, C, A>> : std::true_type {};

namespace types {
template <class... A, class... B>
std::tuple<A..., B...> cat(Kel::TypeList<A...>, Kel::TypeList<B...>);
using AllValueTypes = decltype(cat(Lldp::KelValueTypesValues{}, Lldp::KelValueTypesEntities{}));
}  // namespace types
using types::AllValueTypes;

}  // namespace LldpTest
