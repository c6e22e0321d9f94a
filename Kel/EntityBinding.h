#pragma once
// What the generic interface and the show tools see of an entity, written once: an
// attribute's value as text and the attribute operations, over a table of the entity's
// attributes (X::KelAttrs, defined with the generated bindings). Included by the generated
// binding sources only.
#include <algorithm>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Type.h"
#include "Kel/ValueBinding.h"

namespace Kel::Et {

template <class G>
struct Result;
template <class C, class R>
struct Result<R (C::*)() const noexcept> {
  using Type = std::remove_cvref_t<R>;
};
template <class C, class R>
struct Result<R (C::*)() const> {
  using Type = std::remove_cvref_t<R>;
};
template <class R>
struct Result<R (*)() noexcept> {
  using Type = std::remove_cvref_t<R>;
};

template <auto Get, class X>
decltype(auto) call(X const& x) {
  if constexpr (std::is_member_function_pointer_v<decltype(Get)>)
    return (x.*Get)();
  else
    return Get();  // a constant
}

// What an attribute without text or operations does.
struct Attr {
  template <class X>
  static void text(String&, X const&) {}
  template <class X>
  static int op(void*, X*, unsigned, void const*) {
    return GenericIf::attrOpUnsupported;
  }
  template <class X>
  static GenericIf::Iterator* iterator(X*) {
    return nullptr;
  }
};

// A value: its getter and, when the generic interface may set it, its setter.
template <AttributeId Id, auto Get, auto Set = nullptr>
struct Value : Attr {
  static constexpr AttributeId id = Id;
  using T = typename Result<decltype(Get)>::Type;
  template <class X>
  static void text(String& out, X const& x) {
    Vb::appendOne(out, call<Get>(x));
  }
  template <class X>
  static int op(void* result, X* o, unsigned op, void const* argument) {
    if (op == GenericIf::attrGet) {
      *static_cast<T*>(result) = call<Get>(*o);
      return GenericIf::attrOpDone;
    }
    if constexpr (!std::is_null_pointer_v<decltype(Set)>) {
      if (op == GenericIf::attrSet) {
        (o->*Set)(*static_cast<T const*>(argument));
        return GenericIf::attrOpDone;
      }
    }
    return GenericIf::attrOpUnsupported;
  }
};

// One entity, a child or a reference (M), or none: shown by its key (KeyGet).
template <AttributeId Id, auto M, auto Set, auto KeyGet>
struct One : Attr {
  static constexpr AttributeId id = Id;
  template <class X>
  static void text(String& out, X const& x) {
    auto const& e = x.*M;
    if (!e)
      out += "None";
    else
      Vb::appendOne(out, ((*e).*KeyGet)());
  }
  template <class X>
  static int op(void* result, X* o, unsigned op, void const* argument) {
    using P = std::remove_cvref_t<decltype(o->*M)>;
    if (op == GenericIf::attrGet) {
      *static_cast<P*>(result) = o->*M;
      return GenericIf::attrOpDone;
    }
    if constexpr (!std::is_null_pointer_v<decltype(Set)>) {
      if (op == GenericIf::attrSet) {
        (o->*Set)(*static_cast<P const*>(argument));
        return GenericIf::attrOpDone;
      }
    }
    return GenericIf::attrOpUnsupported;
  }
};

enum class Show { keys, values, pairs };

// A collection (M) that deletes through Del: shown as its elements (or, for entities and
// references, their keys) in ascending text order; walked by the generic iterator.
template <AttributeId Id, auto M, auto Del, Show S>
struct Many : Attr {
  static constexpr AttributeId id = Id;
  template <class X>
  static void text(String& out, X const& x) {
    std::vector<String> items;
    for (auto it = (x.*M).begin(); it; ++it) {
      String one;
      if constexpr (S != Show::values) Vb::appendOne(one, it.key());
      if constexpr (S == Show::pairs) one += ": ";
      if constexpr (S != Show::keys) Vb::appendOne(one, *it);
      items.push_back(std::move(one));
    }
    std::sort(items.begin(), items.end());
    out += "{";
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (i) out += ", ";
      out += items[i];
    }
    out += "}";
  }
  template <class X>
  static GenericIf::Iterator* iterator(X* o) {
    return GenericIfImpl::collIterator(o->*M, [o](auto const& k) { (o->*Del)(k); });
  }
};

// An action: neither text nor operations.
template <AttributeId Id>
struct Action : Attr {
  static constexpr AttributeId id = Id;
};

template <class... A>
struct List {};

template <class L>
struct Walk;
template <class... A>
struct Walk<List<A...>> {
  template <class F>
  static bool first(AttributeId id, F&& f) {
    return ((id == A::id && (f(static_cast<A*>(nullptr)), true)) || ...);
  }
};

template <class D, class X>
String text(X const& x, AttributeId id) {
  String out;
  Walk<typename D::List>::first(id, [&](auto* a) { std::remove_pointer_t<decltype(a)>::text(out, x); });
  return out;
}

template <class D, class X>
int attributeOp(void* result, void* object, KelAttr const* attr, unsigned op, void const*, void const* argument) {
  if (!attr) return GenericIf::attrOpUnsupported;
  int r = GenericIf::attrOpNoSuchAttribute;
  auto* o = static_cast<X*>(object);
  Walk<typename D::List>::first(
      attr->id, [&](auto* a) { r = std::remove_pointer_t<decltype(a)>::op(result, o, op, argument); });
  return r;
}

template <class D, class X>
GenericIf::Iterator* iterator(void* object, KelAttr const* attr) {
  GenericIf::Iterator* r = nullptr;
  auto* o = static_cast<X*>(object);
  Walk<typename D::List>::first(attr ? attr->id : 0,
                                [&](auto* a) { r = std::remove_pointer_t<decltype(a)>::iterator(o); });
  return r;
}

}  // namespace Kel::Et
