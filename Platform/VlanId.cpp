#include "Platform/VlanId.h"

#include <ostream>

namespace Platform {

namespace {

std::uint16_t checkedVlanId(std::int64_t v) {
  if (v < VlanId::min || v > VlanId::max)
    Kel::throwRangeException("VlanId::value < 1 or > 4094 not allowed");
  return static_cast<std::uint16_t>(v);
}

std::uint16_t checkedVlanIdOrNone(std::int64_t v) {
  // A negative number is no VLAN either; the one message covers both ends.
  if (v < 0 || v > VlanIdOrNone::max)
    Kel::throwRangeException("VlanIdOrNone::value > 4094 not allowed");
  return static_cast<std::uint16_t>(v);
}

// Parsed wider than 16 bits so that 65536 gets the type's own message.
std::int64_t parseNumber(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end) {
  return Kel::deserializeAttr<long long>(pos, end, "value");
}

}  // namespace

VlanId::VlanId(std::int64_t value) : value_(checkedVlanId(value)) {}
VlanId::VlanId(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : value_(checkedVlanId(parseNumber(pos, end))) {}
VlanId::VlanId(Kel::NboAttrLog::In* in, Kel::StreamBogon) : value_(checkedVlanId(in->nextU16())) {}

VlanIdOrNone::VlanIdOrNone(std::int64_t value) : value_(checkedVlanIdOrNone(value)) {}
VlanIdOrNone::VlanIdOrNone(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : value_(checkedVlanIdOrNone(parseNumber(pos, end))) {}
VlanIdOrNone::VlanIdOrNone(Kel::NboAttrLog::In* in, Kel::StreamBogon)
    : value_(checkedVlanIdOrNone(in->nextU16())) {}

}  // namespace Platform
