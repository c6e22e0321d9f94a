#include "Platform/AutoNegCapBits.h"

#include <ostream>

namespace Platform {

namespace {

std::uint32_t checked(std::uint64_t v) {
  if (v > AutoNegCapBits::maxValue)
    Kel::throwRangeException("AutoNegCapBits::value > 0x7fffff not allowed");
  return static_cast<std::uint32_t>(v);
}

void checkIndex(unsigned index) {
  if (index >= AutoNegCapBits::numBits) Kel::throwRangeException("AutoNegCapBits::bit > 22 not allowed");
}

}  // namespace

AutoNegCapBits::AutoNegCapBits(std::uint64_t value) : value_(checked(value)) {}

AutoNegCapBits::AutoNegCapBits(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : value_(checked(Kel::deserializeAttr<unsigned long long>(pos, end, "value"))) {}

AutoNegCapBits::AutoNegCapBits(Kel::NboAttrLog::In* in, Kel::StreamBogon)
    : value_(checked(in->nextU32())) {}

bool AutoNegCapBits::bit(unsigned index) const {
  checkIndex(index);
  return (value_ >> index) & 1u;
}

void AutoNegCapBits::bitIs(unsigned index, bool on) {
  checkIndex(index);
  if (on) {
    value_ |= 1u << index;
  } else {
    value_ &= ~(1u << index);
  }
}

}  // namespace Platform
