#pragma once
// ObjectIdentifier: an SNMP object identifier such as 1.3.6.1.2.1.2.2.1.1, a sequence of
// unsigned 32-bit sub-identifiers; empty by default.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string_view>
#include <vector>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Value.h"

namespace Platform {

class ObjectIdentifier {
 public:
  // SNMP's limit on the number of sub-identifiers.
  static constexpr std::size_t maxSubIds = 128;

  ObjectIdentifier() = default;
  // More than maxSubIds: RangeException "ObjectIdentifier::value::subIds > 128 not allowed".
  ObjectIdentifier(std::initializer_list<std::uint32_t> subIds);
  explicit ObjectIdentifier(std::vector<std::uint32_t> subIds);
  // Parses dotted decimal ("1.3.6.1"; "" is the empty identifier). A malformed text or a
  // sub-identifier above 4294967295 raises ParseException; too many, RangeException.
  static ObjectIdentifier fromText(std::string_view text);
  // Parses the text form: the dotted text as a quoted string, e.g. '1.3.6.1.2.1'.
  ObjectIdentifier(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one string (the dotted text) from the attribute log, checked as fromText.
  ObjectIdentifier(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  std::vector<std::uint32_t> const& subIds() const noexcept { return subIds_; }
  std::size_t size() const noexcept { return subIds_.size(); }
  bool empty() const noexcept { return subIds_.empty(); }
  bool operator!() const noexcept { return subIds_.empty(); }
  // Dotted decimal, "" when empty.
  Kel::String stringValue() const;
  std::size_t hash() const noexcept;

  friend bool operator==(ObjectIdentifier const&, ObjectIdentifier const&) = default;
  // Sub-identifier by sub-identifier, a prefix first (the SNMP lexicographic order).
  friend std::strong_ordering operator<=>(ObjectIdentifier const&, ObjectIdentifier const&) = default;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  Kel::String kelText() const { return stringValue(); }
  Kel::String kelLog() const { return stringValue(); }

 private:
  std::vector<std::uint32_t> subIds_;
};

}  // namespace Platform
