#pragma once
// IntfId: an interface name such as "Ethernet1", "Ethernet3/1" or "Port-Channel10".
#include <compare>
#include <cstddef>
#include <iosfwd>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Value.h"

namespace Platform {

// Ordered naturally: runs of decimal digits compare as numbers, so "Ethernet2" sorts
// before "Ethernet10" and "Ethernet1/2" before "Ethernet1/10"; the other bytes compare
// as unsigned chars. Names equal under that rule but spelled differently ("Ethernet01"
// and "Ethernet1") fall back to byte order, so the order is total and agrees with ==.
class IntfId {
 public:
  IntfId() = default;  // the empty interface identifier
  explicit IntfId(Kel::String name) : name_(std::move(name)) {}
  // Parses the text form: the name as a quoted string, e.g. 'Ethernet1'.
  IntfId(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one string from the attribute log.
  IntfId(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  Kel::String const& stringValue() const noexcept { return name_; }
  bool empty() const noexcept { return name_.empty(); }
  bool operator!() const noexcept { return name_.empty(); }
  // The framework's string hash of the name: stable across processes.
  std::size_t hash() const noexcept { return name_.hash(); }

  friend bool operator==(IntfId const& a, IntfId const& b) noexcept { return a.name_ == b.name_; }
  friend std::strong_ordering operator<=>(IntfId const& a, IntfId const& b) noexcept;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  Kel::String const& kelText() const noexcept { return name_; }
  Kel::String const& kelLog() const noexcept { return name_; }

 private:
  Kel::String name_;
};

}  // namespace Platform
