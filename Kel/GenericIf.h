#pragma once
// Support for the generic (reflective) interface that every registered type offers:
// attribute operation codes and results, the errors the interface raises, and the
// pointer-conversion rule shared by all value types.
#include <new>

#include "Kel/Exception.h"
#include "Kel/String.h"
#include "Kel/Type.h"

namespace Kel {

namespace GenericIf {

// Operation codes of genericIfAttributeOp. The numbers are fixed: they cross library
// boundaries. With an attribute: attrGet / attrSet. On the whole value: the rest.
enum AttributeOp : unsigned {
  attrGet = 0,        // copy the attribute into the result buffer
  attrSet = 1,        // assign the attribute from the argument
  valueIsDefault = 9, // result: the object equals a default-constructed value
  valueEquals = 10,   // result: the object equals the key
  valueLess = 11,     // result: the object orders before the key
};

// Results of genericIfAttributeOp; returned, not thrown.
enum AttributeOpResult : int {
  attrOpDone = 0,
  attrOpUnsupported = 1,      // the attribute or type does not support the operation
  attrOpNoSuchAttribute = 2,  // the type has no attribute with that id
};

}  // namespace GenericIf

// Base of the errors raised through the generic interface.
class GenericIfException : public Exception {
 public:
  using Exception::Exception;
};

// Hashing a value whose type has no hash.
class UnhashableException : public GenericIfException {
 public:
  using GenericIfException::GenericIfException;
};

// A pointer cannot be viewed as the requested type.
class TypeException : public GenericIfException {
 public:
  using GenericIfException::GenericIfException;
};

// A member of an entity collection was created again under its key with constructor
// arguments that differ from those of the member that already exists.
class ReinstantiationException : public GenericIfException {
 public:
  using GenericIfException::GenericIfException;
};

namespace GenericIfImpl {

// "type Lldp::X is not hashable"
[[noreturn]] void throwUnhashableException(KelType const* type);

// "cannot convert a pointer to Lldp::X into a pointer to Lldp::Y"
[[noreturn]] void throwTypeException(KelType const* from, KelType const* to);

// "Lldp::X 'key' already exists with different constructor arguments"; keyText is the
// member's key as text, ctorArgsText (may be empty) describes the refused arguments.
[[noreturn]] void throwReinstantiationException(KelType const* type, String const& keyText,
                                                String const& ctorArgsText = String());

// Views p, which points to an object of type t, as a pointer to `type`. The same
// descriptor, or a `type` derived from t with the same polymorphism, gives p back.
// Otherwise the conversion is refused with TypeException when `type` is polymorphic.
// A non-polymorphic `type` can only be reached through its own descriptor, so a wrong
// t is a programming error and aborts: "!t->isPolymorphic()" when t is polymorphic,
// "type->isPolymorphic()" when neither is.
void* genericIfVoidPtrIs(void* p, KelType const* t, KelType const* type);
inline void const* genericIfVoidPtrIs(void const* p, KelType const* t, KelType const* type) {
  return genericIfVoidPtrIs(const_cast<void*>(p), t, type);
}

// The generic value operations every value type X shares (X::_kelType is its
// descriptor); the type-specific ones (hash, text) come with each type.
template <class X>
struct GenericIfValueMethods {
  static void genericIfConstruct(void* place, void const* from) {
    ::new (place) X(*static_cast<X const*>(from));
  }
  static void genericIfDestruct(void* place) noexcept { static_cast<X*>(place)->~X(); }
  static void* genericIfVoidPtrIs(void* p, KelType const* t) {
    return GenericIfImpl::genericIfVoidPtrIs(p, t, &X::_kelType);
  }
};

}  // namespace GenericIfImpl

}  // namespace Kel
