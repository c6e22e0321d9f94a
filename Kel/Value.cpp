#include "Kel/Value.h"

namespace Kel {

void throwLimit(std::string_view owner, const char* field, Limit const& l) {
  String m(owner);
  m += "::";
  m += field;
  if (l.onBytes) m += "::bytes";
  if (l.hasMin) m += format(" < %lld", l.min);
  if (l.hasMin && l.hasMax) m += " or";
  if (l.hasMax) m += l.hex ? format(" > 0x%llx", l.max) : format(" > %llu", l.max);
  m += " not allowed";
  throwRangeException(m);
}

void failNoStringConstructor(std::string_view owner) {
  String text("!\"No String constructor for ");
  text += owner;
  text += " - has collection\"";
  assertFailed(text.c_str(), __FILE__, __LINE__);
}

void failWithAttrLogValueCollectionDefaultKey(const char* owner, const char* field) {
  throw AttrLogException(format("%s::%s: a value collection cannot hold an element under the default key",
                                owner, field));
}

}  // namespace Kel
