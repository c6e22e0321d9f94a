#include "Kel/ValueSupport.h"

#include "Kel/EnumType.h"
#include "Kel/Exception.h"

namespace Kel {

std::uint32_t enumInstance(EnumType const& type, std::uint32_t value) {
  if (!type.hasValue(value)) throwRangeException(format("%s: no enumerator with value %u", type.KelType::name(), value));
  return value;
}

void failNoStringConstructor(const char* owner) noexcept {
  String text("!\"No String constructor for ");
  text += owner;
  text += " - has collection\"";
  assertFailed(text.c_str(), __FILE__, __LINE__);
}

void failWithAttrLogValueCollectionDefaultKey(const char* owner, const char* field) {
  throw AttrLogException(format("%s::%s: a value collection cannot hold an element under the default key",
                                owner, field));
}

void throwNullReference(const char* collection) {
  throw Exception(format("%s: a null reference has no key", collection));
}

}  // namespace Kel
