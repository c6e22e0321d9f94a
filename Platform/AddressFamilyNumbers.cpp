#include "Platform/AddressFamilyNumbers.h"

#include <array>
#include <ostream>

namespace Platform {

namespace {

// Indexed by number: the named numbers are 0..25 without gaps.
constexpr std::array<std::string_view, 26> names = {
    "other",      "ipV4",         "ipV6",           "nsap",        "hdlc",
    "bbn1822",    "ieee802",      "e163",           "e164",        "f69",
    "x121",       "ipx",          "appleTalk",      "decnetIV",    "banyanVines",
    "e164withNsap", "dns",        "distinguishedName", "asNumber", "xtpOverIpv4",
    "xtpOverIpv6", "xtpNativeModeXTP", "fibreChannelWWPN", "fibreChannelWWNN", "gwid",
    "afi",
};
static_assert(names.size() == AddressFamilyNumbers::afi + 1);

bool isNameByte(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::int32_t parse(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end) {
  bool const startsName = pos != end && isNameByte(*pos) && !(*pos >= '0' && *pos <= '9');
  if (!startsName) return Kel::deserializeAttr<std::int32_t>(pos, end, "value");
  Kel::String::IteratorConst stop = pos;
  while (stop != end && isNameByte(*stop)) ++stop;
  std::string_view const word(pos, static_cast<std::size_t>(stop - pos));
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == word) {
      pos = stop;
      return static_cast<std::int32_t>(i);
    }
  }
  Kel::String m("AddressFamilyNumbers: unknown name ");
  m += Kel::valueToStrep(Kel::String(word));
  throw Kel::ParseException(m);
}

}  // namespace

AddressFamilyNumbers::AddressFamilyNumbers(Kel::String::IteratorConst& pos,
                                           Kel::String::IteratorConst const& end)
    : value_(parse(pos, end)) {}

AddressFamilyNumbers::AddressFamilyNumbers(Kel::NboAttrLog::In* in, Kel::StreamBogon)
    : value_(in->nextS32()) {}

std::string_view AddressFamilyNumbers::name() const noexcept {
  if (value_ < 0 || static_cast<std::size_t>(value_) >= names.size()) return {};
  return names[static_cast<std::size_t>(value_)];
}

Kel::String AddressFamilyNumbers::kelText() const {
  std::string_view const n = name();
  return n.empty() ? Kel::valueToStrep(static_cast<long long>(value_)) : Kel::String(n);
}

}  // namespace Platform
