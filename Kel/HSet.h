#pragma once
// Kel::HSet<Key>: a hash set of keys, HashMap2018 with a key-only node.
// insert(k) -> bool, contains(k), del(k), clear(), iteration (*it is the key).
#include "Kel/HashMap2018.h"

namespace Kel {

template <class Key>
using HSet = HashMap2018<Key, void>;

}  // namespace Kel
