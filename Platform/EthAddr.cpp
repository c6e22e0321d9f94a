#include "Platform/EthAddr.h"

#include <ostream>

namespace Platform {

namespace {

[[noreturn]] void throwMalformed(std::string_view text) {
  Kel::String m("EthAddr: malformed address ");
  m += Kel::valueToStrep(Kel::String(text));
  m += " (expected six hex bytes such as 00:1c:73:aa:bb:cc or 001c.73aa.bbcc)";
  throw Kel::ParseException(m);
}

// Reads `digits` hex digits at text[i] into value.
bool readHex(std::string_view text, std::size_t i, std::size_t digits, std::uint64_t& value) {
  if (i + digits > text.size()) return false;
  for (std::size_t k = 0; k < digits; ++k) {
    int const d = Kel::hexDigitValue(text[i + k]);
    if (d < 0) return false;
    value = (value << 4) | static_cast<std::uint64_t>(d);
  }
  return true;
}

}  // namespace

EthAddr::EthAddr(std::uint64_t value) : value_(value) {
  if (value > maxValue) Kel::throwRangeException("EthAddr::value > 0xffffffffffff not allowed");
}

EthAddr EthAddr::fromText(std::string_view text) {
  std::uint64_t v = 0;
  if (text.size() == 17) {  // xx:xx:xx:xx:xx:xx or xx-xx-xx-xx-xx-xx
    char const sep = text[2];
    if (sep != ':' && sep != '-') throwMalformed(text);
    for (std::size_t b = 0; b < 6; ++b) {
      if (!readHex(text, b * 3, 2, v)) throwMalformed(text);
      if (b < 5 && text[b * 3 + 2] != sep) throwMalformed(text);
    }
  } else if (text.size() == 14) {  // xxxx.xxxx.xxxx
    for (std::size_t g = 0; g < 3; ++g) {
      if (!readHex(text, g * 5, 4, v)) throwMalformed(text);
      if (g < 2 && text[g * 5 + 4] != '.') throwMalformed(text);
    }
  } else {
    throwMalformed(text);
  }
  return EthAddr(v);
}

EthAddr::EthAddr(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : value_(fromText(Kel::deserializeAttr<Kel::String>(pos, end, "value").view()).value_) {}

EthAddr::EthAddr(Kel::NboAttrLog::In* in, Kel::StreamBogon) : EthAddr(in->nextU64()) {}

EthAddr::Bytes EthAddr::bytes() const noexcept {
  Bytes b{};
  for (std::size_t i = 0; i < b.size(); ++i)
    b[i] = static_cast<std::uint8_t>(value_ >> (8 * (b.size() - 1 - i)));
  return b;
}

Kel::String EthAddr::stringValue() const {
  static constexpr char hex[] = "0123456789abcdef";
  char text[17];
  Bytes const b = bytes();
  for (std::size_t i = 0; i < b.size(); ++i) {
    text[i * 3] = hex[b[i] >> 4];
    text[i * 3 + 1] = hex[b[i] & 0xf];
    if (i < 5) text[i * 3 + 2] = ':';
  }
  return Kel::String(text, sizeof text);
}

}  // namespace Platform
