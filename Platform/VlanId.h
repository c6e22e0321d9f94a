#pragma once
// VlanId (1 to 4094) and VlanIdOrNone (0 to 4094, 0 meaning no VLAN). 0 and 4095 are
// reserved by IEEE 802.1Q and never name a VLAN.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Value.h"

namespace Platform {

class VlanId {
 public:
  static constexpr std::uint16_t min = 1;
  static constexpr std::uint16_t max = 4094;

  constexpr VlanId() noexcept = default;  // VLAN 1, the default VLAN
  // Outside 1..4094: RangeException "VlanId::value < 1 or > 4094 not allowed". Takes a
  // wide signed argument so that no caller's value is silently narrowed into range.
  explicit VlanId(std::int64_t value);
  // Parses the text form: the number in decimal.
  VlanId(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one u16 from the attribute log (range-checked as above).
  VlanId(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  constexpr std::uint16_t value() const noexcept { return value_; }
  std::size_t hash() const noexcept { return Kel::hashMix(0, value_); }

  friend constexpr bool operator==(VlanId const&, VlanId const&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(VlanId const&, VlanId const&) noexcept = default;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  std::uint16_t kelText() const noexcept { return value_; }
  unsigned short kelLog() const noexcept { return value_; }

 private:
  std::uint16_t value_ = 1;
};

class VlanIdOrNone {
 public:
  static constexpr std::uint16_t none = 0;
  static constexpr std::uint16_t max = 4094;

  constexpr VlanIdOrNone() noexcept = default;  // none
  // Above 4094 (or negative): RangeException "VlanIdOrNone::value > 4094 not allowed".
  explicit VlanIdOrNone(std::int64_t value);
  constexpr VlanIdOrNone(VlanId v) noexcept : value_(v.value()) {}
  VlanIdOrNone(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one u16 from the attribute log (range-checked as above).
  VlanIdOrNone(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  constexpr std::uint16_t value() const noexcept { return value_; }
  constexpr bool isNone() const noexcept { return value_ == none; }
  constexpr bool operator!() const noexcept { return value_ == none; }
  std::size_t hash() const noexcept { return Kel::hashMix(0, value_); }

  friend constexpr bool operator==(VlanIdOrNone const&, VlanIdOrNone const&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(VlanIdOrNone const&,
                                                    VlanIdOrNone const&) noexcept = default;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  std::uint16_t kelText() const noexcept { return value_; }
  unsigned short kelLog() const noexcept { return value_; }

 private:
  std::uint16_t value_ = none;
};

}  // namespace Platform
