#pragma once
// Support for the generic (reflective) interface that every registered type offers:
// attribute operation codes and results, the errors the interface raises, and the
// pointer-conversion rule shared by all value types.
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "Kel/Strep.h"

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

namespace GenericIf {

// A walk over one collection attribute of an object, whatever its types: the element
// under it (key and object, as pointers to the collection's own key and element types).
class Iterator {
 public:
  virtual ~Iterator() = default;
  virtual bool iterNonnull() const = 0;   // on an element
  virtual void const* iterKey() const = 0;
  virtual void const* iterObj() const = 0;
  virtual void iterInc() = 0;
  virtual void iterDel() = 0;             // removes the element under it and moves on
};

// The generic operations of one type, as its descriptor offers them. Unused entries
// (an entity's value operations, a value's iterator) are null.
struct TypeOps {
  // With attr: attrGet / attrSet; without: valueIsDefault / valueEquals / valueLess.
  // Returns an AttributeOpResult.
  int (*genericIfAttributeOp)(void* result, void* object, KelAttr const* attr, unsigned op, void const* key,
                              void const* argument);
  // Values: constructs at dest from the constructor arguments (in the order the type's
  // constructor takes them). Entities: stores a Ptr made by the type's factory at dest
  // (a Kel::Ptr<Entity>).
  void (*genericIfConstructFromCtorArgs)(void* dest, void const* const* args);
  // A walk over a collection attribute; null when attr is not one.
  Iterator* (*genericIfIterator)(void* object, KelAttr const* attr);
  // Values only.
  void (*genericIfConstruct)(void* place, void const* from);
  void (*genericIfDestruct)(void* place);
  std::size_t (*genericIfHash)(void const* object);  // throws UnhashableException when the type has no hash
  void* (*genericIfVoidPtrIs)(void* p, KelType const* t);
  String (*genericIfStrRep)(void const* object);
  void (*genericIfStrepToValue)(void* place, String const& text);  // constructs at place
};

}  // namespace GenericIf

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
  static String genericIfStrRep(void const* object) { return valueToStrep(*static_cast<X const*>(object)); }
  static void genericIfStrepToValue(void* place, String const& text) {
    ::new (place) X(strepToValue<X>(text));
  }
};

// A walk over a framework collection (HashMap2018, RbTreeMap, HashMap) that deletes
// through its owner, so that observers and attribute-log writers hear of it: it walks a
// snapshot of the keys and skips those gone meanwhile.
template <class Coll, class Del>
class CollIterator : public GenericIf::Iterator {
 public:
  CollIterator(Coll const& c, Del del) : coll_(c), keys_(c.keys()), del_(std::move(del)) { skip(); }
  bool iterNonnull() const override { return i_ < keys_.size(); }
  void const* iterKey() const override { return &keys_[i_]; }
  void const* iterObj() const override { return coll_.find(keys_[i_]); }
  void iterInc() override {
    ++i_;
    skip();
  }
  void iterDel() override {
    del_(keys_[i_]);
    iterInc();
  }

 private:
  void skip() {
    while (i_ < keys_.size() && !coll_.find(keys_[i_])) ++i_;
  }
  Coll const& coll_;
  decltype(std::declval<Coll const&>().keys()) keys_;
  Del del_;
  std::size_t i_ = 0;
};
template <class Coll, class Del>
GenericIf::Iterator* collIterator(Coll const& c, Del del) {
  return new CollIterator<Coll, Del>(c, std::move(del));
}

}  // namespace GenericIfImpl

}  // namespace Kel
