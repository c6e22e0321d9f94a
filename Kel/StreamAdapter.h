#pragma once
// The attribute-log stream adapter of every entity type, written once. kelgen describes
// an entity's streamed attributes as a list of handlers, one per attribute and of its
// kind (a value, a reference, a child, a collection of values, of references or of owned
// entities), and Adapter<E, Handlers...> walks that list in declaration order. Included
// by the generated binding sources only, so files that use the model do not pay for it.
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Kel/AttrLogStream.h"
#include "Kel/HSet.h"
#include "Kel/HashMap2018.h"
#include "Kel/RbTreeMap.h"
#include "Kel/ValueBinding.h"

namespace Kel::Sa {

using Base = Entity::KelNboAttrLogSa;
using NboAttrLog::In;
using NboAttrLog::Out;

using NboAttrLog::LogIo;

// ---- what a member pointer points at

template <class M>
struct Member;
template <class C, class T>
struct Member<T C::*> {
  using Type = T;
};
template <class C, class R>
struct Member<R (C::*)() const noexcept> {
  using Type = std::remove_cvref_t<R>;
};
template <class C, class R>
struct Member<R (C::*)() const> {
  using Type = std::remove_cvref_t<R>;
};
template <auto M>
using MemberType = typename Member<decltype(M)>::Type;

// The value behind M: a data member, or a getter (an attribute kept in a Part).
template <auto M, class E>
decltype(auto) valueOf(E* x) {
  if constexpr (std::is_member_object_pointer_v<decltype(M)>)
    return (x->*M);
  else
    return (x->*M)();
}

// An entity's constructor parameters, by their getters: what a record that makes the
// entity carries after its id.
template <auto... Getters>
struct Ctor {
  template <class X>
  static void write([[maybe_unused]] Out& o, [[maybe_unused]] X const* e) {
    (LogIo<MemberType<Getters>>::write(o, (e->*Getters)()), ...);
  }
  // Braced: read in order.
  static std::tuple<MemberType<Getters>...> read([[maybe_unused]] In* in) { return {LogIo<MemberType<Getters>>::read(in)...}; }
};

// ---- handlers: one per streamed attribute

// What a handler that has nothing to do for an event does.
struct Handler {
  void markAll() noexcept {}
  template <class E>
  void transaction(Base&, E*, AttributeId, bool) noexcept {}
  void referenceStreamed(AttributeId, Entity*) noexcept {}
  void dropChildren(Base&) noexcept {}
};

// A value attribute: M is its storage (or its getter), Set its setter. Guarded: writing its value
// may be refused half-way (a value holding a collection), and the record is taken back.
template <AttributeId Id, auto M, auto Set, bool Guarded = false>
struct Value : Handler {
  static constexpr AttributeId id = Id;
  using T = MemberType<M>;

  template <class E>
  bool flowOut(Base& sa, E* x) {
    Out* o = sa.singletonSerializeCheck(Id);
    if (!o) return false;
    if constexpr (Guarded) {
      try {
        LogIo<T>::write(*o, valueOf<M>(x));
      } catch (...) {
        sa.abandonRecord();  // refused: the stream stays whole
        throw;
      }
    } else {
      LogIo<T>::write(*o, valueOf<M>(x));
    }
    sa.endRecord();
    return true;
  }
  template <class E>
  void onAttribute(Base& sa, E* x, AttrKey const&) {
    flowOut(sa, x);
  }
  template <class E>
  bool read(Base& sa, E* x, AttributeId id, In* in) {
    if (id != Id) return false;
    auto v = LogIo<T>::read(in);
    sa.recordEnds(in);
    (x->*Set)(std::move(v));
    return true;
  }
};

// One reference (to X) or none: the stream's id of the target, 0 for none or for one not
// in the stream yet (sent again when it enters).
template <AttributeId Id, auto M, auto Set, class X>
struct Ref : Handler {
  static constexpr AttributeId id = Id;

  template <class E>
  bool flowOut(Base& sa, E* x) {
    Out* o = sa.singletonSerializeCheck(Id);
    if (!o) return false;
    auto const* target = (x->*M).get();
    std::uint32_t const tid = sa.log()->idOf(target);
    if (target && !tid) sa.log()->pendingReferenceIs(target, sa.entityId(), Id);
    *o << static_cast<unsigned int>(tid);
    sa.endRecord();
    return true;
  }
  template <class E>
  void onAttribute(Base& sa, E* x, AttrKey const&) {
    flowOut(sa, x);
  }
  template <class E>
  bool read(Base& sa, E* x, AttributeId id, In* in) {
    if (id != Id) return false;
    auto* target = dynamic_cast<X*>(sa.log()->entityOf(in->nextU32()));
    sa.recordEnds(in);
    (x->*Set)(MemberType<M>(target));
    return true;
  }
};

// One owned child entity or none: whether there is one, then its id and constructor
// parameters.
template <AttributeId Id, auto M, auto Set, auto Del, class C>
struct Child : Handler {
  static constexpr AttributeId id = Id;
  Ptr<Base> child_;

  template <class E>
  bool flowOut(Base& sa, E* x) {
    Out* o = sa.singletonSerializeCheck(Id);
    if (!o) return false;
    auto const& e = x->*M;
    if (child_ && (!e || child_->entity() != e.get())) {
      sa.log()->adapterDel(child_->entityId());
      child_ = nullptr;
    }
    bool const fresh = e && !child_;
    if (fresh) child_ = sa.log()->adapterIs(e);
    *o << static_cast<bool>(e);
    if (e) {
      *o << static_cast<unsigned int>(child_->entityId());
      C::write(*o, e.get());
    }
    sa.endRecord();
    if (fresh) child_->resync();
    return true;
  }
  template <class E>
  void onAttribute(Base& sa, E* x, AttrKey const&) {
    flowOut(sa, x);
  }
  template <class E>
  bool read(Base& sa, E* x, AttributeId id, In* in) {
    if (id != Id) return false;
    if (in->nextbool()) {
      std::uint32_t const childId = in->nextU32();
      auto args = C::read(in);
      sa.recordEnds(in);
      sa.log()->childIdCheck(childId, child_ ? child_->entity() : nullptr);
      auto child = std::apply([x](auto&... a) { return (x->*Set)(std::move(a)...); }, args);
      if (!child_ || child_->entityId() != childId) {
        if (child_) sa.log()->adapterDel(child_->entityId());
        child_ = sa.log()->adapterIs(child, childId);
      }
    } else {
      sa.recordEnds(in);
      if (child_) sa.log()->adapterDel(child_->entityId());
      child_ = nullptr;
      (x->*Del)();
    }
    return true;
  }
  void dropChildren(Base& sa) {
    if (child_) sa.log()->adapterDel(child_->entityId());
    child_ = nullptr;
  }
};

// What every collection shares: a record per element under its key (a deletion under the
// negated id); throttled, the keys of changed elements are remembered and sent later with
// their latest values; a complete resend is bracketed by a transaction and, throttled
// half-way, resumes from a bookmark. D supplies sing (one element), readOne and del.
template <class D, AttributeId Id, auto M, class K, bool Ordered>
struct Coll : Handler {
  static constexpr AttributeId id = Id;
  using Set = std::conditional_t<Ordered, RbTreeMap<K, bool>, HSet<K>>;
  Set dirty_;  // held back while throttled
  Set stale_;  // reading: not named yet by a complete resend
  bool txn_ = false;      // a complete resend is due
  bool txnOpen_ = false;  // ... and has begun
  NboAttrLog::FlowOutBookmark<K> bookmark_;

  static void insert(Set& s, K const& k) {
    if constexpr (Ordered)
      s.insertOrReplace(k, true);
    else
      s.insert(k);
  }
  D& self() noexcept { return static_cast<D&>(*this); }
  // The element's record, or null when throttled and then the key is dirty.
  Out* check(Base& sa, K const& k, bool deleted) {
    Base::CollContext ctx{Id, deleted};
    Out* o = sa.collSerializeCheck(ctx);
    if (!o) insert(dirty_, k);
    return o;
  }

  template <class E>
  void onAttribute(Base& sa, E* x, AttrKey const& key) {
    if (auto const* k = key.template as<K>()) self().sing(sa, x, *k);
  }
  void markAll() noexcept {
    txn_ = true;
    txnOpen_ = false;
    bookmark_.clear();
  }
  template <class E>
  bool flowOut(Base& sa, E* x) {
    if (txn_ && !txnOpen_) {
      sa.writeTransaction(Id, true);
      txnOpen_ = true;
      for (auto it = (x->*M).begin(); it; ++it) {
        if (!self().sing(sa, x, it.key())) {
          for (; it; ++it) bookmark_.keys.push_back(it.key());
          return false;
        }
      }
    }
    if (txn_) {
      while (auto const* k = NboAttrLog::kelFlowOutBookmarkDeq(bookmark_)) {
        if (!self().sing(sa, x, *k)) {
          bookmark_.putBack();
          return false;
        }
      }
      bookmark_.clear();
      sa.writeTransaction(Id, false);
      txn_ = txnOpen_ = false;
    }
    if (!dirty_.empty()) {
      for (auto const& k : dirty_.keys())
        if (!self().sing(sa, x, k)) return false;
    }
    return true;
  }
  template <class E>
  bool read(Base& sa, E* x, AttributeId id, In* in) {
    if (id == Id) {
      self().readOne(sa, x, in);
      return true;
    }
    if (id != static_cast<AttributeId>(0u - Id)) return false;
    K k = LogIo<K>::read(in);
    sa.recordEnds(in);
    self().del(sa, x, k);
    return true;
  }
  template <class E>
  void transaction(Base& sa, E* x, AttributeId id, bool begin) {
    if (id != Id) return;
    if (begin) {
      stale_.clear();
      for (auto it = (x->*M).begin(); it; ++it) insert(stale_, it.key());
    } else {
      for (auto const& k : stale_.keys()) self().del(sa, x, k);
      stale_.clear();
    }
  }
};

// Values (records) under a key: Beside, the key precedes the value in the record; else
// the key is a field of the value (KeyF) and a deletion carries the key alone.
template <AttributeId Id, auto M, auto Set, auto Del, bool Ordered, class K, class KeyF>
struct Values : Coll<Values<Id, M, Set, Del, Ordered, K, KeyF>, Id, M, K, Ordered> {
  static constexpr bool beside = std::is_void_v<KeyF>;

  template <class E>
  bool sing(Base& sa, E* x, K const& k) {
    auto const* v = (x->*M).find(k);
    Out* o = this->check(sa, k, v == nullptr);
    if (!o) return false;
    if (beside || !v) LogIo<K>::write(*o, k);
    if (v) *o << *v;
    sa.endRecord();
    this->dirty_.del(k);
    return true;
  }
  template <class E>
  void readOne(Base& sa, E* x, In* in) {
    using V = std::remove_cvref_t<decltype(*(x->*M).find(std::declval<K const&>()))>;
    if constexpr (beside) {
      K k = LogIo<K>::read(in);
      V v(in, StreamBogon{});
      sa.recordEnds(in);
      (x->*Set)(k, std::move(v));
      this->stale_.del(k);
    } else {
      V v(in, StreamBogon{});
      sa.recordEnds(in);
      this->stale_.del(KeyF()(v));
      (x->*Set)(std::move(v));
    }
  }
  template <class E>
  void del(Base&, E* x, K const& k) {
    (x->*Del)(k);
  }
};

// References (P, to X) to entities held elsewhere, under a key KeyF takes from the
// target: the target's stream id, or the key alone for a deletion.
template <AttributeId Id, auto M, auto Set, auto Del, class X, class P, class K, class KeyF>
struct Refs : Coll<Refs<Id, M, Set, Del, X, P, K, KeyF>, Id, M, K, false> {
  template <class E>
  bool sing(Base& sa, E* x, K const& k) {
    auto const* p = (x->*M).find(k);
    P const e = p ? *p : P();
    Out* o = this->check(sa, k, !e);
    if (!o) return false;
    if (e) {
      std::uint32_t const tid = sa.log()->idOf(e.get());
      if (!tid) sa.log()->pendingReferenceIs(e.get(), sa.entityId(), Id);
      *o << static_cast<unsigned int>(tid);
    } else {
      LogIo<K>::write(*o, k);
    }
    sa.endRecord();
    this->dirty_.del(k);
    return true;
  }
  template <class E>
  void readOne(Base& sa, E* x, In* in) {
    auto* target = dynamic_cast<X*>(sa.log()->entityOf(in->nextU32()));
    sa.recordEnds(in);
    if (target) {
      this->stale_.del(KeyF()(P(target)));
      (x->*Set)(P(target));
    }
  }
  template <class E>
  void del(Base&, E* x, K const& k) {
    (x->*Del)(k);
  }
  void referenceStreamed(AttributeId attr, Entity* target) {
    if (attr == Id) this->insert(this->dirty_, KeyF()(P(static_cast<X*>(target))));
  }
};

// Owned entities under their key (KeyGetter, the KeyIndex-th constructor parameter): a
// member's stream id and constructor parameters; its own adapter streams the rest.
template <AttributeId Id, auto M, auto Set, auto Del, class C, auto KeyGetter, std::size_t KeyIndex>
struct Entities : Coll<Entities<Id, M, Set, Del, C, KeyGetter, KeyIndex>, Id, M, MemberType<KeyGetter>, false> {
  using K = MemberType<KeyGetter>;
  HashMap2018<K, Ptr<Base>> children_;

  template <class E>
  bool sing(Base& sa, E* x, K const& k) {
    auto const* p = (x->*M).findPtr(k);
    using P = std::remove_cvref_t<decltype(*p)>;
    P const e = p ? *p : P();
    auto* known = children_.find(k);
    if (known && (!e || (*known)->entity() != e.get())) {
      // Gone, or another member under the same key: the reader drops the old one first.
      Out* o = this->check(sa, k, true);
      if (!o) return false;
      LogIo<K>::write(*o, k);
      sa.endRecord();
      sa.log()->adapterDel((*known)->entityId());
      children_.del(k);
      known = nullptr;
    }
    if (!e || known) {
      this->dirty_.del(k);
      return true;
    }
    Out* o = this->check(sa, k, false);
    if (!o) return false;
    auto child = sa.log()->adapterIs(e);
    *o << static_cast<unsigned int>(child->entityId());
    C::write(*o, e.get());
    sa.endRecord();
    children_.insertOrReplace(k, child);
    this->dirty_.del(k);
    child->resync();
    return true;
  }
  template <class E>
  void readOne(Base& sa, E* x, In* in) {
    std::uint32_t const childId = in->nextU32();
    auto args = C::read(in);
    sa.recordEnds(in);
    auto const* p = (x->*M).findPtr(std::get<KeyIndex>(args));
    sa.log()->childIdCheck(childId, p ? p->get() : nullptr);
    auto child = std::apply([x](auto&... a) { return (x->*Set)(std::move(a)...); }, args);
    K k = (child.get()->*KeyGetter)();
    this->stale_.del(k);
    auto* known = children_.find(k);
    if (known && (*known)->entityId() == childId) return;
    if (known) sa.log()->adapterDel((*known)->entityId());
    children_.insertOrReplace(k, sa.log()->adapterIs(child, childId));
  }
  template <class E>
  void del(Base& sa, E* x, K const& k) {
    if (auto child = children_.take(k)) sa.log()->adapterDel((*child)->entityId());
    (x->*Del)(k);
  }
  void dropChildren(Base& sa) {
    for (auto it = children_.begin(); it; ++it) sa.log()->adapterDel((*it)->entityId());
    children_.clear();
  }
};

// ---- the adapter

template <class E, class... H>
class Adapter : public Base {
 public:
  Adapter(Ptr<E> e, NboAttrLog::Stream* log, std::uint32_t id, bool writing)
      : Base(e, log, id, writing), x_(e.get()) {}

  void onAttribute(AttributeId id, AttrKey const& key) override {
    std::apply([&](auto&... h) { (void)((id == h.id && (h.onAttribute(*this, x_, key), true)) || ...); }, h_);
  }
  void markAllDirty() override {
    std::apply([&](auto&... h) { ((markDirty(h.id), h.markAll()), ...); }, h_);
  }
  bool flowOut() override {
    return std::apply(
        [&](auto&... h) { return ((!isDirty(h.id) || (h.flowOut(*this, x_) && (clearDirty(h.id), true))) && ...); },
        h_);
  }
  void doHandleAttrDeserialization(AttributeId id, bool, std::uint32_t, In* in) override {
    if (!std::apply([&](auto&... h) { return (h.read(*this, x_, id, in) || ...); }, h_))
      doBaseKelNboAttrLogSaMsg(id, in);
  }
  void doHandleAttrTransaction(AttributeId id, bool begin) override {
    std::apply([&](auto&... h) { (h.transaction(*this, x_, id, begin), ...); }, h_);
  }
  void referenceStreamed(AttributeId attr, Entity* target) override {
    std::apply([&](auto&... h) { (h.referenceStreamed(attr, target), ...); }, h_);
    Base::referenceStreamed(attr, target);
  }
  void dropChildren() override {
    std::apply([&](auto&... h) { (h.dropChildren(*this), ...); }, h_);
  }

 private:
  E* x_;
  std::tuple<H...> h_;
};

}  // namespace Kel::Sa
