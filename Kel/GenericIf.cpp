#include "Kel/GenericIf.h"

namespace Kel::GenericIfImpl {

namespace {
const char* nameOf(KelType const* t) { return t && t->name() ? t->name() : "<unknown type>"; }
}  // namespace

void throwUnhashableException(KelType const* type) {
  throw UnhashableException(format("GenericIf: type %s is not hashable", nameOf(type)));
}

void throwTypeException(KelType const* from, KelType const* to) {
  throw TypeException(
      format("GenericIf: cannot convert a pointer to %s into a pointer to %s", nameOf(from), nameOf(to)));
}

void throwReinstantiationException(KelType const* type, String const& keyText, String const& ctorArgsText) {
  String msg = format("GenericIf: %s '%s' already exists with different constructor arguments", nameOf(type),
                      keyText.c_str());
  if (!ctorArgsText.empty()) msg += format(" (refused: %s)", ctorArgsText.c_str());
  throw ReinstantiationException(std::move(msg));
}

void* genericIfVoidPtrIs(void* p, KelType const* t, KelType const* type) {
  KEL_ASSERT(t && type);
  if (t == type) return p;
  if (type->isDerived(t) && type->isPolymorphic() == t->isPolymorphic()) return p;
  if (!type->isPolymorphic()) {
    // Values are only ever handed over with their own descriptor.
    KEL_ASSERT(!t->isPolymorphic());
    KEL_ASSERT(type->isPolymorphic());
  }
  throwTypeException(t, type);
}

}  // namespace Kel::GenericIfImpl
