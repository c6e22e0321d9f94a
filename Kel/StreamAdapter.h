#pragma once
// The attribute-log stream adapter of every entity type, written once. kelgen describes
// an entity's streamed attributes as a table, one row per attribute in declaration order:
// a value row carries the attribute's storage (or getter) and setter, with functions that
// write and read a value of its type; a row of another kind (a reference, a child, a
// collection of values, of references or of owned entities) names a slot, the state that
// kind keeps per adapter, and the slot does the work. Adapter walks the table at run time,
// so the code per entity type is the table alone. Included by the generated binding
// sources only, so files that use the model do not pay for it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

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
  using Class = C;
};
template <class C, class R>
struct Member<R (C::*)() const noexcept> {
  using Type = std::remove_cvref_t<R>;
  using Class = C;
};
template <class C, class R>
struct Member<R (C::*)() const> {
  using Type = std::remove_cvref_t<R>;
  using Class = C;
};
template <auto M>
using MemberType = typename Member<decltype(M)>::Type;
template <auto M>
using MemberClass = typename Member<decltype(M)>::Class;

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

// ---- the table

// The state and the work of an attribute that is not a plain value. One per adapter, in
// storage the adapter allocates once for all its slots.
struct Slot {
  virtual ~Slot() = default;
  virtual void onAttribute(Base& sa, Entity* x, AttrKey const& key) = 0;
  virtual void markAll() noexcept {}
  virtual bool flowOut(Base& sa, Entity* x) = 0;
  // A record of attribute id (or of its negation, a collection's deletion).
  virtual void read(Base& sa, Entity* x, AttributeId id, In* in) = 0;
  virtual void transaction(Base&, Entity*, bool) {}
  virtual void referenceStreamed(AttributeId, Entity*) {}
  virtual void dropChildren(Base&) {}
};

// Member pointers of any entity class, their types erased; each row's functions restore them.
using AnyData = int Entity::*;
using Kel::AnyFn;

struct Row {
  AttributeId id = 0;
  // A value: writes the attribute of x to o; reads one from in and stores it.
  void (*write)(Row const& r, Out& o, Entity const* x) = nullptr;
  void (*read)(Row const& r, Base& sa, Entity* x, In* in) = nullptr;
  AnyData data = nullptr;  // its storage, or
  AnyFn get;               // its getter (an attribute kept in a part)
  AnyFn set;
  // Writing the value may be refused half-way (a value holding a collection): the record
  // is taken back.
  bool guarded = false;
  // Another kind: its slot, made in the storage at `at`.
  Slot* (*make)(void* at) = nullptr;
  std::size_t size = 0;
  std::size_t slot = 0, offset = 0;  // where, set by the table
};

// The rows of an entity type, with an index by attribute id.
class Table {
 public:
  Table(std::initializer_list<Row> rows);
  std::vector<Row> const& rows() const noexcept { return rows_; }
  Row const* find(AttributeId id) const noexcept {
    AttributeId const k = id - lo_;
    return k < index_.size() && index_[k] ? &rows_[index_[k] - 1] : nullptr;
  }
  std::size_t slots() const noexcept { return slots_; }
  std::size_t slotBytes() const noexcept { return slotBytes_; }

 private:
  std::vector<Row> rows_;
  AttributeId lo_ = 0;
  std::vector<std::uint16_t> index_;  // by id - lo_: row + 1, 0 for none
  std::size_t slots_ = 0, slotBytes_ = 0;
};

// A value row: T the stored type, A the setter's parameter.
template <class T>
void writeData(Row const& r, Out& o, Entity const* x) {
  LogIo<T>::write(o, x->*reinterpret_cast<T Entity::*>(r.data));
}
template <class T, class R>
void writeGot(Row const& r, Out& o, Entity const* x) {
  LogIo<T>::write(o, (x->*r.get.as<R (Entity::*)() const>())());
}
template <class T, class A>
void readSet(Row const& r, Base& sa, Entity* x, In* in) {
  T v = LogIo<T>::read(in);
  sa.recordEnds(in);
  (x->*r.set.as<void (Entity::*)(A)>())(std::move(v));
}

template <class C, class T, class S, class A>
Row value(AttributeId id, T C::*m, void (S::*set)(A), bool guarded = false) {
  Row r;
  r.id = id;
  r.write = &writeData<T>;
  r.read = &readSet<T, A>;
  r.data = reinterpret_cast<AnyData>(static_cast<T Entity::*>(m));
  r.set = AnyFn::of(static_cast<void (Entity::*)(A)>(set));
  r.guarded = guarded;
  return r;
}
template <class C, class R, class S, class A>
Row value(AttributeId id, R (C::*get)() const noexcept, void (S::*set)(A), bool guarded = false) {
  using T = std::remove_cvref_t<R>;
  using G = R (Entity::*)() const;
  Row r;
  r.id = id;
  r.write = &writeGot<T, R>;
  r.read = &readSet<T, A>;
  r.get = AnyFn::of(static_cast<G>(static_cast<R (Entity::*)() const noexcept>(get)));
  r.set = AnyFn::of(static_cast<void (Entity::*)(A)>(set));
  r.guarded = guarded;
  return r;
}

// A row of slot kind S.
template <class S>
Row slot() {
  static_assert(alignof(S) <= alignof(std::max_align_t));
  Row r;
  r.id = S::id;
  r.make = [](void* at) -> Slot* { return new (at) S(); };
  r.size = sizeof(S);
  return r;
}

// ---- slots

// One reference (to X) or none: the stream's id of the target, 0 for none or for one not
// in the stream yet (sent again when it enters).
template <AttributeId Id, auto M, auto Set, class X>
struct Ref : Slot {
  static constexpr AttributeId id = Id;
  using E = MemberClass<M>;

  bool flowOut(Base& sa, Entity* e) override {
    Out* o = sa.singletonSerializeCheck(Id);
    if (!o) return false;
    auto const* target = (static_cast<E*>(e)->*M).get();
    std::uint32_t const tid = sa.log()->idOf(target);
    if (target && !tid) sa.log()->pendingReferenceIs(target, sa.entityId(), Id);
    *o << static_cast<unsigned int>(tid);
    sa.endRecord();
    return true;
  }
  void onAttribute(Base& sa, Entity* x, AttrKey const&) override { flowOut(sa, x); }
  void read(Base& sa, Entity* e, AttributeId id, In* in) override {
    if (id != Id) return sa.doBaseKelNboAttrLogSaMsg(id, in);
    auto* target = dynamic_cast<X*>(sa.log()->entityOf(in->nextU32()));
    sa.recordEnds(in);
    (static_cast<E*>(e)->*Set)(MemberType<M>(target));
  }
};

// One owned child entity or none: whether there is one, then its id and constructor
// parameters.
template <AttributeId Id, auto M, auto Set, auto Del, class C>
struct Child : Slot {
  static constexpr AttributeId id = Id;
  using E = MemberClass<M>;
  Ptr<Base> child_;

  bool flowOut(Base& sa, Entity* x) override {
    Out* o = sa.singletonSerializeCheck(Id);
    if (!o) return false;
    auto const& e = static_cast<E*>(x)->*M;
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
  void onAttribute(Base& sa, Entity* x, AttrKey const&) override { flowOut(sa, x); }
  void read(Base& sa, Entity* e, AttributeId id, In* in) override {
    if (id != Id) return sa.doBaseKelNboAttrLogSaMsg(id, in);
    auto* x = static_cast<E*>(e);
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
  }
  void dropChildren(Base& sa) override {
    if (child_) sa.log()->adapterDel(child_->entityId());
    child_ = nullptr;
  }
};

// What every collection shares, written once per key type: a record per element under its
// key (a deletion under the negated id); throttled, the keys of changed elements are
// remembered and sent later with their latest values; a complete resend is bracketed by a
// transaction and, throttled half-way, resumes from a bookmark. Each kind of collection
// supplies sing (one element), readOne, del and the walk over its keys.
template <class K, bool Ordered>
struct Coll : Slot {
  using Set = std::conditional_t<Ordered, RbTreeMap<K, bool>, HSet<K>>;
  AttributeId const id_;
  Set dirty_;  // held back while throttled
  Set stale_;  // reading: not named yet by a complete resend
  bool txn_ = false;      // a complete resend is due
  bool txnOpen_ = false;  // ... and has begun
  NboAttrLog::FlowOutBookmark<K> bookmark_;

  explicit Coll(AttributeId id) noexcept : id_(id) {}

  virtual bool sing(Base& sa, Entity* x, K const& k) = 0;
  virtual void readOne(Base& sa, Entity* x, In* in) = 0;
  virtual void del(Base& sa, Entity* x, K const& k) = 0;
  // Calls f(ctx, key) for every element, in the collection's order.
  virtual void walk(Entity* x, void (*f)(void* ctx, K const& k), void* ctx) = 0;

  static void insert(Set& s, K const& k) {
    if constexpr (Ordered)
      s.insertOrReplace(k, true);
    else
      s.insert(k);
  }
  // The element's record, or null when throttled and then the key is dirty.
  Out* check(Base& sa, K const& k, bool deleted) {
    Base::CollContext ctx{id_, deleted};
    Out* o = sa.collSerializeCheck(ctx);
    if (!o) insert(dirty_, k);
    return o;
  }

  void onAttribute(Base& sa, Entity* x, AttrKey const& key) override {
    if (auto const* k = key.template as<K>()) sing(sa, x, *k);
  }
  void markAll() noexcept override {
    txn_ = true;
    txnOpen_ = false;
    bookmark_.clear();
  }
  bool flowOut(Base& sa, Entity* x) override {
    if (txn_ && !txnOpen_) {
      sa.writeTransaction(id_, true);
      txnOpen_ = true;
      // Sends every element; from the first one the stream refuses, bookmarks the rest.
      struct Walk {
        Coll* c;
        Base& sa;
        Entity* x;
        bool stopped = false;
      } w{this, sa, x};
      walk(x, [](void* ctx, K const& k) {
        auto& w = *static_cast<Walk*>(ctx);
        if (!w.stopped && w.c->sing(w.sa, w.x, k)) return;
        w.stopped = true;
        w.c->bookmark_.keys.push_back(k);
      }, &w);
      if (w.stopped) return false;
    }
    if (txn_) {
      while (auto const* k = NboAttrLog::kelFlowOutBookmarkDeq(bookmark_)) {
        if (!sing(sa, x, *k)) {
          bookmark_.putBack();
          return false;
        }
      }
      bookmark_.clear();
      sa.writeTransaction(id_, false);
      txn_ = txnOpen_ = false;
    }
    if (!dirty_.empty()) {
      for (auto const& k : dirty_.keys())
        if (!sing(sa, x, k)) return false;
    }
    return true;
  }
  void read(Base& sa, Entity* x, AttributeId id, In* in) override {
    if (id == id_) return readOne(sa, x, in);
    K k = LogIo<K>::read(in);
    sa.recordEnds(in);
    del(sa, x, k);
  }
  void transaction(Base& sa, Entity* x, bool begin) override {
    if (begin) {
      stale_.clear();
      walk(x, [](void* ctx, K const& k) { insert(*static_cast<Set*>(ctx), k); }, &stale_);
    } else {
      for (auto const& k : stale_.keys()) del(sa, x, k);
      stale_.clear();
    }
  }
};

// The walk over the keys of collection M of x.
template <auto M, class K>
void walkKeys(Entity* x, void (*f)(void*, K const&), void* ctx) {
  for (auto it = (static_cast<MemberClass<M>*>(x)->*M).begin(); it; ++it) f(ctx, it.key());
}

// Values (records) under a key: Beside, the key precedes the value in the record; else
// the key is a field of the value (KeyF) and a deletion carries the key alone.
template <AttributeId Id, auto M, auto Set, auto Del, bool Ordered, class K, class KeyF>
struct Values final : Coll<K, Ordered> {
  static constexpr AttributeId id = Id;
  static constexpr bool beside = std::is_void_v<KeyF>;
  using E = MemberClass<M>;
  Values() noexcept : Coll<K, Ordered>(Id) {}

  void walk(Entity* x, void (*f)(void*, K const&), void* ctx) override { walkKeys<M>(x, f, ctx); }
  bool sing(Base& sa, Entity* e, K const& k) override {
    auto const* v = (static_cast<E*>(e)->*M).find(k);
    Out* o = this->check(sa, k, v == nullptr);
    if (!o) return false;
    if (beside || !v) LogIo<K>::write(*o, k);
    if (v) *o << *v;
    sa.endRecord();
    this->dirty_.del(k);
    return true;
  }
  void readOne(Base& sa, Entity* e, In* in) override {
    auto* x = static_cast<E*>(e);
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
  void del(Base&, Entity* x, K const& k) override { (static_cast<E*>(x)->*Del)(k); }
};

// References (P, to X) to entities held elsewhere, under a key KeyF takes from the
// target: the target's stream id, or the key alone for a deletion.
template <AttributeId Id, auto M, auto Set, auto Del, class X, class P, class K, class KeyF>
struct Refs final : Coll<K, false> {
  static constexpr AttributeId id = Id;
  using E = MemberClass<M>;
  Refs() noexcept : Coll<K, false>(Id) {}

  void walk(Entity* x, void (*f)(void*, K const&), void* ctx) override { walkKeys<M>(x, f, ctx); }
  bool sing(Base& sa, Entity* x, K const& k) override {
    auto const* p = (static_cast<E*>(x)->*M).find(k);
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
  void readOne(Base& sa, Entity* x, In* in) override {
    auto* target = dynamic_cast<X*>(sa.log()->entityOf(in->nextU32()));
    sa.recordEnds(in);
    if (target) {
      this->stale_.del(KeyF()(P(target)));
      (static_cast<E*>(x)->*Set)(P(target));
    }
  }
  void del(Base&, Entity* x, K const& k) override { (static_cast<E*>(x)->*Del)(k); }
  void referenceStreamed(AttributeId attr, Entity* target) override {
    if (attr == Id) this->insert(this->dirty_, KeyF()(P(static_cast<X*>(target))));
  }
};

// Owned entities under their key, written once per key type: a member's stream id and
// constructor parameters; its own adapter streams the rest.
template <class K>
struct Owned : Coll<K, false> {
  HashMap2018<K, Ptr<Base>> children_;
  explicit Owned(AttributeId id) noexcept : Coll<K, false>(id) {}

  // The member under k, or null.
  virtual Entity* member(Entity* x, K const& k) = 0;
  virtual void writeCtor(Out& o, Entity const* member) = 0;
  // Reads a member's constructor parameters and makes it, once its id is known free.
  virtual Ptr<Entity> make(Base& sa, Entity* x, In* in, std::uint32_t childId) = 0;
  virtual K keyOf(Entity const* member) = 0;
  virtual void erase(Entity* x, K const& k) = 0;

  bool sing(Base& sa, Entity* x, K const& k) override {
    Entity* const e = member(x, k);
    auto* known = children_.find(k);
    if (known && (!e || (*known)->entity() != e)) {
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
    auto child = sa.log()->adapterIs(Ptr<Entity>(e));
    *o << static_cast<unsigned int>(child->entityId());
    writeCtor(*o, e);
    sa.endRecord();
    children_.insertOrReplace(k, child);
    this->dirty_.del(k);
    child->resync();
    return true;
  }
  void readOne(Base& sa, Entity* x, In* in) override {
    std::uint32_t const childId = in->nextU32();
    Ptr<Entity> child = make(sa, x, in, childId);
    K k = keyOf(child.get());
    this->stale_.del(k);
    auto* known = children_.find(k);
    if (known && (*known)->entityId() == childId) return;
    if (known) sa.log()->adapterDel((*known)->entityId());
    children_.insertOrReplace(k, sa.log()->adapterIs(child, childId));
  }
  void del(Base& sa, Entity* x, K const& k) override {
    if (auto child = children_.take(k)) sa.log()->adapterDel((*child)->entityId());
    erase(x, k);
  }
  void dropChildren(Base& sa) override {
    for (auto it = children_.begin(); it; ++it) sa.log()->adapterDel((*it)->entityId());
    children_.clear();
  }
};

// Owned entities M under their key (KeyGetter, the KeyIndex-th constructor parameter C).
template <AttributeId Id, auto M, auto Set, auto Del, class C, auto KeyGetter, std::size_t KeyIndex>
struct Entities final : Owned<MemberType<KeyGetter>> {
  static constexpr AttributeId id = Id;
  using K = MemberType<KeyGetter>;
  using E = MemberClass<M>;
  using X = MemberClass<KeyGetter>;
  Entities() noexcept : Owned<K>(Id) {}

  void walk(Entity* x, void (*f)(void*, K const&), void* ctx) override { walkKeys<M>(x, f, ctx); }
  Entity* member(Entity* x, K const& k) override {
    auto const* p = (static_cast<E*>(x)->*M).findPtr(k);
    return p ? const_cast<X*>(p->get()) : nullptr;
  }
  void writeCtor(Out& o, Entity const* m) override { C::write(o, static_cast<X const*>(m)); }
  Ptr<Entity> make(Base& sa, Entity* e, In* in, std::uint32_t childId) override {
    auto* x = static_cast<E*>(e);
    auto args = C::read(in);
    sa.recordEnds(in);
    auto const* p = (x->*M).findPtr(std::get<KeyIndex>(args));
    sa.log()->childIdCheck(childId, p ? p->get() : nullptr);
    return std::apply([x](auto&... a) { return (x->*Set)(std::move(a)...); }, args);
  }
  K keyOf(Entity const* m) override { return (static_cast<X const*>(m)->*KeyGetter)(); }
  void erase(Entity* x, K const& k) override { (static_cast<E*>(x)->*Del)(k); }
};

// ---- the adapter: walks its entity type's table

class Adapter : public Base {
 public:
  Adapter(Ptr<Entity> e, NboAttrLog::Stream* log, std::uint32_t id, bool writing, Table const& table);
  ~Adapter() override;

  void onAttribute(AttributeId id, AttrKey const& key) override;
  void markAllDirty() override;
  bool flowOut() override;
  void doHandleAttrDeserialization(AttributeId id, bool, std::uint32_t, In* in) override;
  void doHandleAttrTransaction(AttributeId id, bool begin) override;
  void referenceStreamed(AttributeId attr, Entity* target) override;
  void dropChildren() override;

 private:
  Slot* slot(Row const& r) const noexcept { return slots_[r.slot]; }
  bool writeValue(Row const& r);

  Table const& table_;
  Entity* x_;
  Slot** slots_ = nullptr;  // the slots' addresses, then the slots, in one block
};

}  // namespace Kel::Sa
