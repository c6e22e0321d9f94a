#include "Platform/VrfName.h"

#include <ostream>

namespace Platform {

namespace {

Kel::String checked(Kel::String v) {
  if (v.size() > VrfName::maxLength)
    Kel::throwRangeException("VrfName::value::bytes > VrfName::maxLength not allowed");
  return v;
}

}  // namespace

VrfName::VrfName(Kel::String value) : value_(checked(std::move(value))) {}

VrfName::VrfName(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : value_(checked(Kel::deserializeAttr<Kel::String>(pos, end, "value"))) {}

VrfName::VrfName(Kel::NboAttrLog::In* in, Kel::StreamBogon) : value_(checked(in->nextString())) {}

}  // namespace Platform
