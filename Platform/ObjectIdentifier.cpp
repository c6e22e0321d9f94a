#include "Platform/ObjectIdentifier.h"

#include <ostream>

namespace Platform {

namespace {

void checkCount(std::size_t n) {
  if (n > ObjectIdentifier::maxSubIds)
    Kel::throwRangeException("ObjectIdentifier::value::subIds > 128 not allowed");
}

std::vector<std::uint32_t> checked(std::vector<std::uint32_t> v) {
  checkCount(v.size());
  return v;
}

[[noreturn]] void throwMalformed(std::string_view text, const char* what) {
  Kel::String m("ObjectIdentifier: malformed text ");
  m += Kel::valueToStrep(Kel::String(text));
  m += ": ";
  m += what;
  throw Kel::ParseException(m);
}

}  // namespace

ObjectIdentifier::ObjectIdentifier(std::initializer_list<std::uint32_t> subIds)
    : subIds_(checked(std::vector<std::uint32_t>(subIds))) {}

ObjectIdentifier::ObjectIdentifier(std::vector<std::uint32_t> subIds)
    : subIds_(checked(std::move(subIds))) {}

ObjectIdentifier ObjectIdentifier::fromText(std::string_view text) {
  std::vector<std::uint32_t> ids;
  if (text.empty()) return ObjectIdentifier();
  std::size_t i = 0;
  for (;;) {
    if (i == text.size() || text[i] < '0' || text[i] > '9')
      throwMalformed(text, "expected decimal sub-identifiers separated by single dots");
    std::uint64_t v = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
      v = v * 10 + static_cast<std::uint64_t>(text[i] - '0');
      if (v > 0xffffffffull) throwMalformed(text, "sub-identifier above 4294967295");
    }
    ids.push_back(static_cast<std::uint32_t>(v));
    checkCount(ids.size());  // stop early: a huge text must not build a huge vector
    if (i == text.size()) break;
    if (text[i] != '.') throwMalformed(text, "expected decimal sub-identifiers separated by single dots");
    ++i;
  }
  return ObjectIdentifier(std::move(ids));
}

ObjectIdentifier::ObjectIdentifier(Kel::String::IteratorConst& pos, Kel::String::IteratorConst const& end)
    : ObjectIdentifier(fromText(Kel::deserializeAttr<Kel::String>(pos, end, "value").view())) {}

ObjectIdentifier::ObjectIdentifier(Kel::NboAttrLog::In* in, Kel::StreamBogon)
    : ObjectIdentifier(fromText(in->nextString().view())) {}

Kel::String ObjectIdentifier::stringValue() const {
  Kel::String s;
  for (std::size_t i = 0; i < subIds_.size(); ++i) {
    if (i) s += '.';
    Kel::appendStrep(s, static_cast<unsigned long long>(subIds_[i]));
  }
  return s;
}

std::size_t ObjectIdentifier::hash() const noexcept {
  std::size_t h = 0;
  for (std::uint32_t id : subIds_) h = Kel::hashMix(h, id);
  return h;
}

}  // namespace Platform
