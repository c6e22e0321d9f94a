#pragma once
// VrfName: the name of a VRF (routing instance), at most 100 bytes.
#include <compare>
#include <cstddef>
#include <iosfwd>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Value.h"

namespace Platform {

class VrfName {
 public:
  static constexpr std::size_t maxLength = 100;

  VrfName() = default;  // empty
  // Longer than maxLength: RangeException
  // "VrfName::value::bytes > VrfName::maxLength not allowed".
  explicit VrfName(Kel::String value);
  // Parses the text form: the name as a quoted string, e.g. 'default'.
  VrfName(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one string from the attribute log (length-checked as above).
  VrfName(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  Kel::String const& stringValue() const noexcept { return value_; }
  bool empty() const noexcept { return value_.empty(); }
  bool operator!() const noexcept { return value_.empty(); }
  std::size_t hash() const noexcept { return value_.hash(); }

  friend bool operator==(VrfName const& a, VrfName const& b) noexcept { return a.value_ == b.value_; }
  friend std::strong_ordering operator<=>(VrfName const& a, VrfName const& b) noexcept {
    return a.value_ <=> b.value_;
  }

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  Kel::String const& kelText() const noexcept { return value_; }
  Kel::String const& kelLog() const noexcept { return value_; }

 private:
  Kel::String value_;
};

}  // namespace Platform
