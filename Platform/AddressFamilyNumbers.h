#pragma once
// AddressFamilyNumbers: an IANA address family number, signed 32-bit. Any number is
// kept (peers may send families this code has no name for); the common ones are named.
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

class AddressFamilyNumbers {
 public:
  // The IANA registry's numbers, named as in its SNMP MIB module.
  enum Value : std::int32_t {
    other = 0,
    ipV4 = 1,
    ipV6 = 2,
    nsap = 3,
    hdlc = 4,
    bbn1822 = 5,
    ieee802 = 6,  // 48-bit MAC addresses
    e163 = 7,
    e164 = 8,
    f69 = 9,
    x121 = 10,
    ipx = 11,
    appleTalk = 12,
    decnetIV = 13,
    banyanVines = 14,
    e164withNsap = 15,
    dns = 16,
    distinguishedName = 17,
    asNumber = 18,
    xtpOverIpv4 = 19,
    xtpOverIpv6 = 20,
    xtpNativeModeXTP = 21,
    fibreChannelWWPN = 22,
    fibreChannelWWNN = 23,
    gwid = 24,
    afi = 25,
  };

  constexpr AddressFamilyNumbers() noexcept = default;  // other (0)
  constexpr AddressFamilyNumbers(Value v) noexcept : value_(v) {}
  explicit constexpr AddressFamilyNumbers(std::int32_t v) noexcept : value_(v) {}
  // Parses the text form: a name of the list above, or a signed decimal number.
  AddressFamilyNumbers(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end);
  // Reads one s32 from the attribute log.
  AddressFamilyNumbers(Kel::NboAttrLog::In* in, Kel::StreamBogon);

  constexpr std::int32_t value() const noexcept { return value_; }
  // The name of a named number, else empty.
  std::string_view name() const noexcept;
  std::size_t hash() const noexcept {
    return Kel::hashMix(0, static_cast<std::size_t>(static_cast<std::uint32_t>(value_)));
  }

  // Ordered as signed numbers.
  friend constexpr bool operator==(AddressFamilyNumbers const&, AddressFamilyNumbers const&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(AddressFamilyNumbers const&,
                                                    AddressFamilyNumbers const&) noexcept = default;

  // Text form, stream and attribute-log output, std::hash: Platform/Value.h.
  using KelPlatformValue = void;
  // The name, or the signed decimal number; also the text form, unquoted.
  Kel::String kelText() const;
  Kel::String kelStrep() const { return kelText(); }
  int kelLog() const noexcept { return value_; }

 private:
  std::int32_t value_ = 0;
};

}  // namespace Platform
