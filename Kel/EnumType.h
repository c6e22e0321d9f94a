#pragma once
// Enumeration support: a descriptor holding the enumerators' names and values, with
// value-to-name, name-to-value, parsing from text and stream output.
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string_view>
#include <vector>

#include "Kel/Strep.h"
#include "Kel/Type.h"

namespace Kel {

class EnumType : public KelType {
 public:
  struct Enumerator {
    const char* name;
    std::uint32_t value;
  };
  EnumType(const char* qualifiedName, std::initializer_list<Enumerator> enumerators);

  std::vector<Enumerator> const& enumerators() const noexcept { return enumerators_; }
  // Name of a value; a value with no enumerator gives "<undefined N>".
  String name(std::uint32_t value) const;
  bool hasValue(std::uint32_t value) const noexcept;
  // Value of a name; an unknown name raises RangeException naming the type.
  std::uint32_t value(std::string_view name) const;
  // Reads an enumerator name (letters, digits, '_') at pos and advances behind it.
  std::uint32_t parse(StrepIt& pos, StrepIt const& end) const;
  void write(std::ostream& os, std::uint32_t value) const;
  // Appends name(value) without a temporary, for printers of long records.
  void appendName(String& out, std::uint32_t value) const;

 private:
  // Index of value's enumerator, or -1.
  std::ptrdiff_t indexOf(std::uint32_t value) const noexcept;
  [[noreturn]] void throwNoEnumerator(std::string_view name) const;

  std::vector<Enumerator> enumerators_;
  std::vector<std::string_view> names_;  // enumerators_' names with their lengths
  // Values are usually consecutive from the first one; then a value's index is direct.
  bool consecutive_ = true;
};

}  // namespace Kel
