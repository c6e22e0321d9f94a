#pragma once
// What the generic interface and the show tools see of an entity, written once: an
// attribute's value as text and the attribute operations, over a table of the entity's
// attributes (X::KelAttrs, defined with the generated bindings). The list becomes a
// table of rows once per entity type; a value's row calls functions per value type with
// its getter and setter, so the walk and the code per attribute are not repeated per
// entity. Included by the generated binding sources only.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Type.h"
#include "Kel/ValueBinding.h"

namespace Kel::Et {

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
  static constexpr auto get = Get;
  static constexpr auto set = Set;
  static constexpr bool valueRow = true;
  using T = typename Vb::Getter<decltype(Get)>::Type;
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

// ---- the table

// One attribute: its text and operations, on the entity as a Kel::Entity.
struct Row {
  AttributeId id = 0;
  void (*text)(Row const& r, String& out, Entity const* x) = nullptr;
  int (*op)(Row const& r, void* result, Entity* x, unsigned op, void const* argument) = nullptr;
  GenericIf::Iterator* (*iterator)(Entity* x) = nullptr;
  AnyFn get, set;  // a value's getter and setter, their types restored by text and op
};

class Table {
 public:
  Table(std::initializer_list<Row> rows);
  Row const* find(AttributeId id) const noexcept {
    AttributeId const k = id - lo_;
    return k < index_.size() && index_[k] ? &rows_[index_[k] - 1] : nullptr;
  }

 private:
  std::vector<Row> rows_;
  AttributeId lo_ = 0;
  std::vector<std::uint16_t> index_;  // by id - lo_: row + 1, 0 for none
};

String text(Table const& t, Entity const* x, AttributeId id);
int attributeOp(Table const& t, void* result, Entity* x, KelAttr const* attr, unsigned op, void const* argument);
GenericIf::Iterator* iterator(Table const& t, Entity* x, KelAttr const* attr);

// A value read through its getter (R (Entity::*)() const) and set through its setter
// (void (Entity::*)(A), A void for none).
template <class T, class R>
void valueText(Row const& r, String& out, Entity const* x) {
  Vb::appendOne(out, (x->*r.get.as<R (Entity::*)() const>())());
}
template <class T, class R, class A>
int valueOp(Row const& r, void* result, Entity* x, unsigned op, void const* argument) {
  if (op == GenericIf::attrGet) {
    *static_cast<T*>(result) = (x->*r.get.as<R (Entity::*)() const>())();
    return GenericIf::attrOpDone;
  }
  if constexpr (!std::is_void_v<A>) {
    if (op == GenericIf::attrSet) {
      (x->*r.set.as<void (Entity::*)(A)>())(*static_cast<T const*>(argument));
      return GenericIf::attrOpDone;
    }
  }
  return GenericIf::attrOpUnsupported;
}

template <class C, class R>
Row valueRow(AttributeId id, R (C::*get)() const) {
  Row r;
  r.id = id;
  r.text = &valueText<std::remove_cvref_t<R>, R>;
  r.op = &valueOp<std::remove_cvref_t<R>, R, void>;
  r.get = AnyFn::of(static_cast<R (Entity::*)() const>(get));
  return r;
}
template <class C, class R, class S, class A>
Row valueRow(AttributeId id, R (C::*get)() const, void (S::*set)(A)) {
  Row r = valueRow(id, get);
  r.op = &valueOp<std::remove_cvref_t<R>, R, A>;
  r.set = AnyFn::of(static_cast<void (Entity::*)(A)>(set));
  return r;
}

template <class M>
struct Access;
template <class C, class R>
struct Access<R (C::*)() const noexcept> {
  using Class = C;
  using Get = R (C::*)() const;
};
template <class C, class R>
struct Access<R (C::*)() const> {
  using Class = C;
  using Get = R (C::*)() const;
};
template <class R>
struct Access<R (*)() noexcept> {
  using Class = void;
};

// Any attribute kind by its own functions: text and op on X (the entity's class).
template <class A, class X>
Row kindRow() {
  Row r;
  r.id = A::id;
  r.text = [](Row const&, String& out, Entity const* x) { A::text(out, *static_cast<X const*>(x)); };
  r.op = [](Row const&, void* result, Entity* x, unsigned op, void const* argument) {
    return A::op(result, static_cast<X*>(x), op, argument);
  };
  r.iterator = [](Entity* x) { return A::template iterator<X>(static_cast<X*>(x)); };
  return r;
}

template <class A, class X>
Row rowOf() {
  if constexpr (requires { A::valueRow; }) {
    using G = Access<std::remove_const_t<decltype(A::get)>>;
    if constexpr (!std::is_void_v<typename G::Class>) {
      if constexpr (std::is_null_pointer_v<decltype(A::set)>)
        return valueRow(A::id, static_cast<typename G::Get>(A::get));
      else
        return valueRow(A::id, static_cast<typename G::Get>(A::get), A::set);
    } else {
      return kindRow<A, X>();
    }
  } else {
    return kindRow<A, X>();
  }
}

template <class... A>
struct List {};

template <class X, class... A>
Table const& tableOf(List<A...>*) {
  static Table const t{rowOf<A, X>()...};
  return t;
}
template <class D, class X>
Table const& table() {
  return tableOf<X>(static_cast<typename D::List*>(nullptr));
}

template <class D, class X>
String text(X const& x, AttributeId id) {
  return text(table<D, X>(), &x, id);
}

template <class D, class X>
int attributeOp(void* result, void* object, KelAttr const* attr, unsigned op, void const*, void const* argument) {
  return attributeOp(table<D, X>(), result, static_cast<X*>(object), attr, op, argument);
}

template <class D, class X>
GenericIf::Iterator* iterator(void* object, KelAttr const* attr) {
  return iterator(table<D, X>(), static_cast<X*>(object), attr);
}

}  // namespace Kel::Et
