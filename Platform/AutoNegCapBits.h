#pragma once
// AutoNegCapBits: the auto-negotiation capabilities of a port, one bit per capability,
// bit 0 the least significant; 23 bits (0 to 0x7fffff).
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Value.h"

namespace Platform {

class AutoNegCapBits {
 public:
  static constexpr std::uint32_t maxValue = 0x7fffff;
  static constexpr unsigned numBits = 23;

  // Positions of the capabilities IEEE 802.3 auto-negotiation advertises, named as in
  // the IANA MAU MIB; positions 16 to 22 are not named here.
  enum Bit : unsigned {
    bOther = 0,
    b10baseT = 1,
    b10baseTFD = 2,
    b100baseT4 = 3,
    b100baseTX = 4,
    b100baseTXFD = 5,
    b100baseT2 = 6,
    b100baseT2FD = 7,
    bFdxPause = 8,
    bFdxAPause = 9,
    bFdxSPause = 10,
    bFdxBPause = 11,
    b1000baseX = 12,
    b1000baseXFD = 13,
    b1000baseT = 14,
    b1000baseTFD = 15,
  };

  constexpr AutoNegCapBits() noexcept = default;  // no capability
  // Above 0x7fffff: RangeException "AutoNegCapBits::value > 0x7fffff not allowed".
  explicit AutoNegCapBits(std::uint64_t value);
  // Parses the text form: the whole set as a decimal number.
  AutoNegCapBits(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one u32 from the attribute log (range-checked as above).
  AutoNegCapBits(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  constexpr std::uint32_t value() const noexcept { return value_; }
  // One bit by position; a position above 22 raises RangeException
  // "AutoNegCapBits::bit > 22 not allowed".
  bool bit(unsigned index) const;
  void bitIs(unsigned index, bool on);
  constexpr bool operator!() const noexcept { return value_ == 0; }
  std::size_t hash() const noexcept { return Kel::hashMix(0, value_); }

  friend constexpr bool operator==(AutoNegCapBits const&, AutoNegCapBits const&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(AutoNegCapBits const&,
                                                    AutoNegCapBits const&) noexcept = default;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  std::uint32_t kelText() const noexcept { return value_; }
  unsigned int kelLog() const noexcept { return value_; }

 private:
  std::uint32_t value_ = 0;
};

}  // namespace Platform
