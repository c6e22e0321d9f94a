#pragma once
// EthAddr: a 48-bit Ethernet (IEEE 802 MAC) address.
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string_view>

#include "Kel/NboAttrLog.h"
#include "Kel/Strep.h"
#include "Kel/String.h"
#include "Platform/Value.h"

namespace Platform {

class EthAddr {
 public:
  static constexpr std::uint64_t maxValue = 0xffffffffffffull;
  using Bytes = std::array<std::uint8_t, 6>;

  constexpr EthAddr() noexcept = default;  // 00:00:00:00:00:00
  // The address as a number, first byte most significant. Above 48 bits:
  // RangeException "EthAddr::value > 0xffffffffffff not allowed".
  explicit EthAddr(std::uint64_t value);
  explicit constexpr EthAddr(Bytes const& bytes) noexcept : value_(0) {
    for (std::uint8_t b : bytes) value_ = (value_ << 8) | b;
  }
  // Parses "00:1c:73:aa:bb:cc" (also '-' separated) or "001c.73aa.bbcc", hex digits in
  // either case; anything else raises ParseException.
  static EthAddr fromText(std::string_view text);
  // Parses the text form: the address text as a quoted string, e.g. '00:1c:73:aa:bb:cc'.
  EthAddr(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one u64 from the attribute log (range-checked as above).
  EthAddr(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  constexpr std::uint64_t value() const noexcept { return value_; }
  Bytes bytes() const noexcept;
  // Group bit of the first byte.
  constexpr bool isMulticast() const noexcept { return (value_ >> 40) & 1; }
  constexpr bool isBroadcast() const noexcept { return value_ == maxValue; }
  constexpr bool operator!() const noexcept { return value_ == 0; }
  // "00:1c:73:aa:bb:cc", lower-case hex.
  Kel::String stringValue() const;
  std::size_t hash() const noexcept { return Kel::hashMix(0, static_cast<std::size_t>(value_)); }

  friend constexpr bool operator==(EthAddr const&, EthAddr const&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(EthAddr const&, EthAddr const&) noexcept = default;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  Kel::String kelText() const { return stringValue(); }
  unsigned long long kelLog() const noexcept { return value_; }

 private:
  std::uint64_t value_ = 0;
};

}  // namespace Platform
