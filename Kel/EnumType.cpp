#include "Kel/EnumType.h"

#include <charconv>
#include <ostream>

namespace Kel {

EnumType::EnumType(const char* qualifiedName, std::initializer_list<Enumerator> enumerators)
    : KelType(qualifiedName, Kind::Enumeration), enumerators_(enumerators) {
  names_.reserve(enumerators_.size());
  for (std::size_t i = 0; i < enumerators_.size(); ++i) {
    Enumerator const& e = enumerators_[i];
    KEL_ASSERT(e.name != nullptr);
    std::string_view n(e.name);
    for (std::size_t j = 0; j < i; ++j) {
      KEL_ASSERT(enumerators_[j].value != e.value);
      KEL_ASSERT(names_[j] != n);
    }
    names_.push_back(n);
    if (e.value != enumerators_[0].value + i) consecutive_ = false;
  }
}

std::ptrdiff_t EnumType::indexOf(std::uint32_t value) const noexcept {
  if (enumerators_.empty()) return -1;
  if (consecutive_) {
    std::uint32_t i = value - enumerators_[0].value;  // wraps for values below the first
    return i < enumerators_.size() ? static_cast<std::ptrdiff_t>(i) : -1;
  }
  for (std::size_t i = 0; i < enumerators_.size(); ++i)
    if (enumerators_[i].value == value) return static_cast<std::ptrdiff_t>(i);
  return -1;
}

bool EnumType::hasValue(std::uint32_t value) const noexcept { return indexOf(value) >= 0; }

void EnumType::appendName(String& out, std::uint32_t value) const {
  std::ptrdiff_t i = indexOf(value);
  if (i >= 0) {
    out += names_[static_cast<std::size_t>(i)];
    return;
  }
  char buf[16];
  auto r = std::to_chars(buf, buf + sizeof buf, value);
  out += "<undefined ";
  out += std::string_view(buf, static_cast<std::size_t>(r.ptr - buf));
  out += '>';
}

String EnumType::name(std::uint32_t value) const {
  String s;
  appendName(s, value);
  return s;
}

void EnumType::throwNoEnumerator(std::string_view name) const {
  String msg(this->KelType::name());
  msg += ": no enumerator named '";
  // Bound the echo of a name that may be arbitrary text.
  constexpr std::size_t kMax = 64;
  msg += name.substr(0, kMax);
  if (name.size() > kMax) msg += "...";
  msg += '\'';
  throw RangeException(std::move(msg));
}

std::uint32_t EnumType::value(std::string_view name) const {
  for (std::size_t i = 0; i < names_.size(); ++i)
    if (names_[i] == name) return enumerators_[i].value;
  throwNoEnumerator(name);
}

std::uint32_t EnumType::parse(StrepIt& pos, StrepIt const& end) const {
  StrepIt p = pos;
  while (p != end && ((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
                      *p == '_'))
    ++p;
  if (p == pos) {
    String msg(this->KelType::name());
    msg += ": expected an enumerator name but found ";
    appendExcerpt(msg, pos, end);
    throw RangeException(std::move(msg));
  }
  std::uint32_t v = value(std::string_view(pos, static_cast<std::size_t>(p - pos)));
  pos = p;
  return v;
}

void EnumType::write(std::ostream& os, std::uint32_t value) const {
  std::ptrdiff_t i = indexOf(value);
  if (i >= 0) {
    std::string_view n = names_[static_cast<std::size_t>(i)];
    os.write(n.data(), static_cast<std::streamsize>(n.size()));
  } else {
    os << name(value);
  }
}

}  // namespace Kel
