#pragma once
// Kel::hashOf: the hash the keyed collections use. A key type plugs in, in order of
// preference, through a member `std::size_t hash(std::size_t seed) const` (model
// values, called with seed 0), a member `hash()`, a free `hash(k)` found by
// argument-dependent lookup or in Kel, or std::hash. Integers and enumerations are
// mixed with Kel::hashMix.
#include <concepts>
#include <cstddef>
#include <type_traits>

#include "Kel/String.h"

namespace Kel {

template <class K>
std::size_t hashOf(K const& k) noexcept {
  if constexpr (std::is_integral_v<K> || std::is_enum_v<K>) {
    return hashMix(0, static_cast<std::size_t>(k));
  } else if constexpr (requires { { k.hash(std::size_t{}) } -> std::convertible_to<std::size_t>; }) {
    return k.hash(std::size_t{0});
  } else if constexpr (requires { { k.hash() } -> std::convertible_to<std::size_t>; }) {
    return k.hash();
  } else if constexpr (requires { { hash(k) } -> std::convertible_to<std::size_t>; }) {
    return hash(k);
  } else {
    return std::hash<K>{}(k);
  }
}

}  // namespace Kel
