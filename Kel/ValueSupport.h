#pragma once
// What generated value types share: their shape, the limits of their fields as data, and
// the few out-of-line helpers their bindings call. Kept small: every file that includes a
// model header includes this one.
#include <cstdint>

#include "Kel/String.h"

namespace Kel {

class EnumType;
class KelType;

enum class Shape {
  record,   // Value('Ns::X', ** {'key': strep, ...})
  wrapper,  // one field, printed as that field's strep
  bitMap,   // a record of bools, one per named bit
};

// A list of types, as a schema names its value types for generic code (tests, benchmarks).
template <class... T>
struct TypeList {};

// A field's declared limit, as a generic visitor (tests, the generic interface) sees it:
// on the number, or on a string's byte count.
struct FieldLimit {
  long long min = 0;
  unsigned long long max = 0;
  bool hasMin = false;
  bool hasMax = false;
  bool onBytes = false;
};

// The enumerator value, checked against the descriptor: RangeException naming the type
// when it has no enumerator with that value.
std::uint32_t enumInstance(EnumType const& type, std::uint32_t value);

// A value holding a collection has no text constructor, by design: a fatal assertion.
[[noreturn]] void failNoStringConstructor(const char* owner) noexcept;

// The attribute log ends a value collection with its key type's default, so an element
// under that key cannot be written: AttrLogException naming the collection.
[[noreturn]] void failWithAttrLogValueCollectionDefaultKey(const char* owner, const char* field);

// Kel::Exception "<Owner::collection>: a null reference has no key": a reference
// collection files an entity under the entity's own key.
[[noreturn]] void throwNullReference(const char* collection);

}  // namespace Kel
