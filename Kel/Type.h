#pragma once
// Type descriptors: every registered type has one KelType; its attributes are KelAttrs.
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "Kel/String.h"

namespace Kel {

using AttributeId = std::uint32_t;

class KelType;
namespace NboAttrLog {
struct EntityStreaming;
}
namespace GenericIf {
struct TypeOps;
}

struct KelAttr {
  const char* name;
  AttributeId id;
  bool readOnly = false;  // get only through the generic interface
};

class KelType {
 public:
  enum class Kind { Enumeration, Value, Entity };

  KelType(const char* qualifiedName, Kind kind, KelType const* base = nullptr,
          std::initializer_list<KelAttr> attrs = {}, NboAttrLog::EntityStreaming const* streaming = nullptr,
          GenericIf::TypeOps const* ops = nullptr)
      : name_(qualifiedName), kind_(kind), base_(base), attrs_(attrs), streaming_(streaming), ops_(ops) {}
  KelType(const char* qualifiedName, Kind kind, KelType const* base, std::vector<KelAttr> attrs)
      : name_(qualifiedName), kind_(kind), base_(base), attrs_(std::move(attrs)) {}
  virtual ~KelType() = default;
  KelType(KelType const&) = delete;
  KelType& operator=(KelType const&) = delete;

  const char* name() const noexcept { return name_; }
  Kind kind() const noexcept { return kind_; }
  // Entities are polymorphic, values and enumerations are not.
  bool isPolymorphic() const noexcept { return kind_ == Kind::Entity; }
  KelType const* base() const noexcept { return base_; }
  // True when this type is `other` or derives from it.
  bool isDerived(KelType const* other) const noexcept {
    for (KelType const* t = this; t; t = t->base_)
      if (t == other) return true;
    return false;
  }
  std::vector<KelAttr> const& attrs() const noexcept { return attrs_; }
  // How the attribute log makes and streams entities of this type (entities only).
  NboAttrLog::EntityStreaming const* streaming() const noexcept { return streaming_; }
  // The generic (reflective) operations on objects of this type.
  GenericIf::TypeOps const* ops() const noexcept { return ops_; }
  KelAttr const* attr(AttributeId id) const noexcept {
    for (auto const& a : attrs_)
      if (a.id == id) return &a;
    return base_ ? base_->attr(id) : nullptr;
  }
  KelAttr const* attr(std::string_view name) const noexcept {
    for (auto const& a : attrs_)
      if (name == a.name) return &a;
    return base_ ? base_->attr(name) : nullptr;
  }

 private:
  const char* name_;
  Kind kind_;
  KelType const* base_;
  std::vector<KelAttr> attrs_;
  NboAttrLog::EntityStreaming const* streaming_ = nullptr;
  GenericIf::TypeOps const* ops_ = nullptr;
};

}  // namespace Kel
