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

// What the schema says of one attribute of an entity or one field of a value; kelgen
// writes one per member, tools and tests read them to walk a type without its header.
struct KelAttr {
  enum class Kind : std::uint8_t { value, constant, from, view, computed, action, hashmap, ordered, entities, refs, child, ref };
  enum Flag : std::uint16_t {
    counter = 1 << 0,      // also xInc(delta), modulo 2^32
    key = 1 << 1,          // the attribute its parent's collection files the entity under
    ctor = 1 << 2,         // a constructor argument, never changed afterwards
    initial = 1 << 3,      // a ctor argument ignored when the member exists already
    checked = 1 << 4,      // the setter refuses a value outside the limit
    logUnchecked = 1 << 5, // the attribute-log reader takes the field without its limit
    defaultUnchecked = 1 << 6,
    hasMin = 1 << 7,       // `min` is a bound
    hasMax = 1 << 8,       // `max` is a bound
    limitOnBytes = 1 << 9, // the limit bounds the length in bytes
    constElement = 1 << 10,  // refs<const E>, ref<const E>
    routine = 1 << 11,     // changes as a matter of course (a counter's kin): may reach readers late
  };
  const char* name;
  AttributeId id;
  bool readOnly = false;  // get only through the generic interface
  // As the schema spells it: a primitive ("u32", "bool", "String", "Seconds"...) or a
  // qualified name ("Lldp::Msap", "Platform::IntfId"); of a collection, its element's.
  const char* type = nullptr;
  Kind kind = Kind::value;
  std::uint16_t flags = 0;
  std::int64_t min = 0, max = 0;    // the limit, where hasMin / hasMax say so
  const char* keyType = nullptr;    // a collection's key
  const char* keyField = nullptr;   // the element's field a collection of values is keyed by

  bool has(Flag f) const noexcept { return (flags & f) != 0; }
  bool isCollection() const noexcept { return kind >= Kind::hashmap; }
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
