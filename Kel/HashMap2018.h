#pragma once
// Kel::HashMap2018: the framework's open-addressing hash map.
//
//   HashMap2018<Key, Value, KeyFunktor>  the key lives inside the value; KeyFunktor()(value)
//                                        returns it (node HashMap2018NodeInternalKey)
//   HashMap2018<Key, Value>              the key is stored beside the value
//                                        (node HashMap2018NodeExternKey)
//   HashMap2018<Key, void> = HSet<Key>   keys only
//   HashMap2018<Key, Value, F, true>     keeps its first member inside the map object
//
// Layout: Robin Hood linear probing without wrap-around. Members of one probe run are
// kept sorted by home slot, so a lookup stops at the first slot whose member is closer
// to its home than the probe, insertion shifts the rest of the run one place forward,
// and deletion shifts the following members back one place each. A few spare slots
// past the last home slot absorb runs that would otherwise wrap.
//
// An empty map allocates nothing and a small one little (a single home slot at first, for
// the many collections that hold a single member): an entity may hold many
// collections that mostly stay empty. The map itself is two words: the block and a version.
//
// A map made with OneInPlace (the fourth argument) is one node bigger and keeps a single
// member in that room, so a collection that rarely holds more than one never allocates.
// A second member moves both to a block, and the map stays with its block until clear():
// a map that once held two may again, and going back and forth would cost an allocation
// each time. A member kept in place moves with the map: pointers from find() to it do not
// survive a move or swap of the map.
//
// Iterators remember the map's version and refuse to be used once the map changed
// other than through them. A map's version only grows, and an assignment, move or
// swap moves both maps past both old versions, so no state is ever seen twice.
// Insertions may move members: pointers from find() are valid until the next
// insertion or deletion. Growth allocates before it moves anything, so a failed
// allocation leaves the map as it was (members must move without throwing).
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/Hash.h"

namespace Kel {

// What an insert-or-replace did.
enum class CollChange : std::uint8_t { unchanged, replaced, inserted };
constexpr bool changed(CollChange c) noexcept { return c != CollChange::unchanged; }

// Defined only by tests that need to damage a table on purpose.
struct HashMap2018TestAccess;

namespace Detail {
// A table's block: its counts, then its slots, in one allocation, so that a map that
// was never filled is a null pointer and a version.
template <class Slot>
class SlotBlock {
 public:
  struct Counts {
    std::size_t total;   // home slots plus spare slots; one more, always empty, follows
    std::uint32_t shift;  // 32 - log2(home slots)
    std::uint32_t size;
  };
  static_assert(alignof(Slot) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "slots must fit operator new's alignment");

  SlotBlock() noexcept = default;
  // total + 1 empty slots; counts with no member. Array new, so that tests can make it fail.
  SlotBlock(std::size_t total, std::uint32_t shift)
      : p_(static_cast<unsigned char*>(::operator new[](offset + (total + 1) * sizeof(Slot)))) {
    ::new (static_cast<void*>(p_)) Counts{total, shift, 0};
    for (std::size_t i = 0; i <= total; ++i) ::new (static_cast<void*>(p_ + offset + i * sizeof(Slot))) Slot();
  }
  SlotBlock(SlotBlock&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  SlotBlock& operator=(SlotBlock&& o) noexcept {
    SlotBlock(std::move(o)).swap(*this);
    return *this;
  }
  // Slots and counts are trivially destructible; the map destroys the nodes.
  ~SlotBlock() {
    if (p_) ::operator delete[](p_);
  }
  void reset() noexcept { SlotBlock().swap(*this); }
  void swap(SlotBlock& o) noexcept { std::swap(p_, o.p_); }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  Counts& counts() const noexcept { return *std::launder(reinterpret_cast<Counts*>(p_)); }
  Slot& operator[](std::size_t i) const noexcept {
    return *std::launder(reinterpret_cast<Slot*>(p_ + offset + i * sizeof(Slot)));
  }

 private:
  static constexpr std::size_t offset = (sizeof(Counts) + alignof(Slot) - 1) / alignof(Slot) * alignof(Slot);
  unsigned char* p_ = nullptr;
};

struct NoValue {
  friend bool operator==(NoValue, NoValue) noexcept { return true; }
};

// A map's version; a map that keeps a member in place says here whether one is there, so
// that the flag takes no word of its own (2^63 changes outlast any map).
template <bool OneInPlace>
struct MapState {
  std::uint64_t version = 0;
  void versionIs(std::uint64_t v) noexcept { version = v; }
};
template <>
struct MapState<true> {
  std::uint64_t version : 63 = 0;
  std::uint64_t one : 1 = 0;
  // Masked, so that -Wconversion sees the value fit.
  void versionIs(std::uint64_t v) noexcept { version = v & (~std::uint64_t{0} >> 1); }
};
}  // namespace Detail

template <class Key, class Value, class KeyFunktor>
class HashMap2018NodeInternalKey {
 public:
  explicit HashMap2018NodeInternalKey(Value&& v) : value_(std::move(v)) {}
  decltype(auto) fwkKey() const { return KeyFunktor()(value_); }
  Value const& value() const noexcept { return value_; }
  Value& value() noexcept { return value_; }
  // Replacing must not move the member to another key: its slot was chosen by it.
  void valueIs(Value _value) {
    KEL_ASSERT(fwkKey() == KeyFunktor()( _value ));
    value_ = std::move(_value);
  }

 private:
  Value value_;
};

template <class Key, class Value>
class HashMap2018NodeExternKey {
 public:
  HashMap2018NodeExternKey(Key const& k, Value&& v) : key_(k), value_(std::move(v)) {}
  Key const& fwkKey() const noexcept { return key_; }
  Value const& value() const noexcept { return value_; }
  Value& value() noexcept { return value_; }
  void valueIs(Value v) { value_ = std::move(v); }

 private:
  Key key_;
  Value value_;
};

template <class Key>
class HashMap2018NodeExternKey<Key, void> {
 public:
  explicit HashMap2018NodeExternKey(Key const& k) : key_(k) {}
  Key const& fwkKey() const noexcept { return key_; }

 private:
  Key key_;
};

template <class Key, class Value, class KeyFunktor = void, bool OneInPlace = false>
class HashMap2018 {
 public:
  static constexpr bool internalKey = !std::is_void_v<KeyFunktor>;
  static constexpr bool isSet = std::is_void_v<Value>;
  static constexpr bool oneInPlace = OneInPlace;
  static_assert(!(internalKey && isSet), "a key set has no value to take the key from");

  using KeyType = Key;
  // The value type, or an empty stand-in for key sets (so signatures stay well-formed).
  using ValueType = std::conditional_t<isSet, Detail::NoValue, Value>;
  using Node = std::conditional_t<internalKey, HashMap2018NodeInternalKey<Key, Value, KeyFunktor>,
                                  HashMap2018NodeExternKey<Key, Value>>;

  template <bool Const>
  class IteratorBase {
    using Map = std::conditional_t<Const, HashMap2018 const, HashMap2018>;
    using Ref = std::conditional_t<isSet, Key const&, std::conditional_t<Const, ValueType const&, ValueType&>>;

   public:
    IteratorBase() noexcept = default;
    template <bool C>
      requires(Const && !C)
    IteratorBase(IteratorBase<C> const& o) noexcept
        : hashMap_(o.hashMap_), index_(o.index_), version_(o.version_) {}

    // True while the iterator is on a member. A default-made iterator is on nothing.
    explicit operator bool() const {
      if (!hashMap_) return false;
      check();
      return index_ < hashMap_->total();
    }
    bool operator==(std::default_sentinel_t) const { return !static_cast<bool>(*this); }

    IteratorBase& operator++() {
      check();
      index_ = hashMap_->nextOccupied(index_ + 1);
      return *this;
    }
    decltype(auto) key() const {
      checkOn();
      return node().fwkKey();
    }
    Ref operator*() const {
      checkOn();
      if constexpr (isSet)
        return node().fwkKey();
      else
        return node().value();
    }
    auto operator->() const { return &**this; }

    // Deletes the member under the iterator and moves on to the next one; the
    // iterator stays usable.
    void del()
      requires(!Const)
    {
      checkOn();
      hashMap_->eraseAt(index_);
      index_ = hashMap_->nextOccupied(index_);
      version_ = hashMap_->version();
    }
    // Replaces the value under the iterator; the key must stay the same.
    void valueIs(ValueType v)
      requires(!Const && !isSet)
    {
      checkOn();
      node().valueIs(std::move(v));
      version_ = hashMap_->bump();
    }

   private:
    friend class HashMap2018;
    template <bool>
    friend class IteratorBase;
    IteratorBase(Map* m, std::size_t i) noexcept : hashMap_(m), index_(i), version_(m->version()) {}
    void check() const {
      KEL_ASSERT(hashMap_ != nullptr);
      KEL_ASSERT(version_ == hashMap_->version());
    }
    // Reads and writes need a member under the iterator: at the end there is none.
    void checkOn() const {
      check();
      KEL_ASSERT(index_ < hashMap_->total());
    }
    auto& node() const { return hashMap_->nodeAt(index_); }

    Map* hashMap_ = nullptr;
    std::size_t index_ = 0;
    std::uint64_t version_ = 0;
  };
  using Iterator = IteratorBase<false>;
  using IteratorConst = IteratorBase<true>;

  HashMap2018() noexcept = default;
  HashMap2018(HashMap2018 const& o) { copyFrom(o); }
  HashMap2018(HashMap2018&& o) noexcept { swap(o); }
  HashMap2018& operator=(HashMap2018 const& o) {
    if (this != &o) {
      HashMap2018 tmp(o);
      swap(tmp);
    }
    return *this;
  }
  HashMap2018& operator=(HashMap2018&& o) noexcept {
    if (this != &o) {
      HashMap2018 tmp(std::move(o));
      swap(tmp);
    }
    return *this;
  }
  ~HashMap2018() { destroyAll(); }

  std::size_t size() const noexcept { return slots_ ? slots_.counts().size : (hasOne() ? 1 : 0); }
  bool empty() const noexcept { return size() == 0; }
  // Grows with every insertion, replacement, deletion, rehash, assignment and swap.
  std::uint64_t version() const noexcept { return state_.version; }

  // The value under `k`, or null.
  ValueType* find(Key const& k)
    requires(!isSet)
  {
    std::size_t i = findKey(k);
    return i == npos ? nullptr : &nodeAt(i).value();
  }
  ValueType const* find(Key const& k) const
    requires(!isSet)
  {
    std::size_t i = findKey(k);
    return i == npos ? nullptr : &nodeAt(i).value();
  }
  bool contains(Key const& k) const { return findKey(k) != npos; }
  // An iterator on the member under `k`, or at the end.
  Iterator findIter(Key const& k) {
    std::size_t i = findKey(k);
    return Iterator(this, i == npos ? total() : i);
  }
  IteratorConst findIter(Key const& k) const {
    std::size_t i = findKey(k);
    return IteratorConst(this, i == npos ? total() : i);
  }

  // Stores `v` under its own key. An equal value already there changes nothing.
  CollChange insertOrReplace(ValueType v)
    requires internalKey
  {
    return put(std::move(v)).first;
  }
  // insertOrReplace with one hash for the look-up and the store, saying where the value
  // now is (valid until the next insertion or deletion). A value passed in moves once.
  std::pair<CollChange, ValueType const*> put(ValueType const& v)
    requires internalKey
  {
    return put(ValueType(v));
  }
  std::pair<CollChange, ValueType const*> put(ValueType&& v)
    requires internalKey
  {
    std::uint32_t h;
    std::size_t i;
    {
      decltype(auto) k = KeyFunktor()(v);
      h = hashFor(k);
      i = findIndex(k, h);
    }
    if (i != npos) {
      Node& n = nodeAt(i);
      if (n.value() == v) return {CollChange::unchanged, &n.value()};
      n.valueIs(std::move(v));
      bump();
      return {CollChange::replaced, &n.value()};
    }
    i = placeNode(h, [&] { return Node(std::move(v)); });
    bump();
    return {CollChange::inserted, &nodeAt(i).value()};
  }
  // Stores `v` under `k`. An equal value already there changes nothing.
  CollChange insertOrReplace(Key const& k, ValueType v)
    requires(!internalKey && !isSet)
  {
    std::uint32_t h = hashFor(k);
    return store(findIndex(k, h), h, std::move(v), [&] { return Node(k, std::move(v)); });
  }
  // Adds `k` to a key set; false when it was there already.
  bool insert(Key const& k)
    requires isSet
  {
    std::uint32_t h = hashFor(k);
    if (findIndex(k, h) != npos) return false;
    placeNode(h, [&] { return Node(k); });
    bump();
    return true;
  }

  // Removes the member under `k`; false when there was none.
  bool del(Key const& k) {
    std::size_t i = findKey(k);
    if (i == npos) return false;
    eraseAt(i);
    return true;
  }
  // Removes the member under `k` and hands its value back.
  std::optional<ValueType> take(Key const& k)
    requires(!isSet)
  {
    std::size_t i = findKey(k);
    if (i == npos) return std::nullopt;
    std::optional<ValueType> v(std::move(nodeAt(i).value()));
    eraseAt(i);
    return v;
  }
  void clear() noexcept {
    if (!slots_ && !hasOne()) return;
    destroyAll();
    slots_.reset();
    bump();
  }
  // Makes room for n members without further growth.
  void reserve(std::size_t n) {
    // Home slots are picked by the top bits of a 32-bit hash.
    if (n > maxLoad(std::size_t{1} << 32)) throwRangeException("HashMap2018::reserve: too many members");
    std::size_t cap = capacity() ? capacity() : minCapacity;
    while (n > maxLoad(cap)) cap *= 2;
    if (cap != capacity()) rehash(cap);
  }

  // A snapshot of the keys, for walks that delete through the owner's single delete.
  std::vector<Key> keys() const {
    std::vector<Key> out;
    out.reserve(size());
    for (std::size_t i = 0, n = total(); i < n; ++i)
      if (occupied(i)) out.push_back(nodeAt(i).fwkKey());
    return out;
  }

  Iterator begin() noexcept { return Iterator(this, nextOccupied(0)); }
  IteratorConst begin() const noexcept { return IteratorConst(this, nextOccupied(0)); }
  std::default_sentinel_t end() const noexcept { return {}; }

  void swap(HashMap2018& o) noexcept {
    slots_.swap(o.slots_);
    if constexpr (oneInPlace) swapOne(o);
    // Iterators of either map must not pass for iterators of the other's old state.
    std::uint64_t const v = (version() > o.version() ? version() : o.version()) + 1;
    state_.versionIs(v);
    o.state_.versionIs(v);
  }

  // Same keys with equal values, whatever the order.
  friend bool operator==(HashMap2018 const& a, HashMap2018 const& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0, total = a.total(); i < total; ++i) {
      if (!a.occupied(i)) continue;
      Node const& n = a.nodeAt(i);
      std::size_t j = b.findIndex(n.fwkKey(), a.hashAt(i));
      if (j == npos) return false;
      if constexpr (!isSet)
        if (!(b.nodeAt(j).value() == n.value())) return false;
    }
    return true;
  }

 private:
  friend struct HashMap2018TestAccess;
  static constexpr std::size_t npos = ~std::size_t{0};
  static constexpr std::size_t minCapacity = 1;
  static constexpr std::size_t maxMinTail = 16;  // spare slots: as many as home slots, up to this, at least

  // Home slots, a power of two (none before the first insertion). Without a block, a map
  // that keeps a member in place has one slot, 0, the place.
  std::size_t capacity() const noexcept {
    return slots_ ? std::size_t{1} << (32 - slots_.counts().shift) : std::size_t{oneInPlace};
  }
  std::size_t total() const noexcept { return slots_ ? slots_.counts().total : std::size_t{oneInPlace}; }
  std::size_t tail() const noexcept { return total() - capacity(); }

  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t dist = 0;  // 1 + distance from the home slot; 0: empty
    alignas(Node) unsigned char storage[sizeof(Node)];  // left unwritten until a node goes in
    Slot() noexcept {}
    Node& node() noexcept { return *std::launder(reinterpret_cast<Node*>(storage)); }
    Node const& node() const noexcept { return *std::launder(reinterpret_cast<Node const*>(storage)); }
  };

  static std::size_t maxLoad(std::size_t cap) noexcept { return cap - cap / 8; }

  // The room of the member kept in place; nothing for other maps.
  struct Place {
    static_assert(std::is_nothrow_move_constructible_v<Node>, "a member kept in place moves with its map");
    alignas(Node) unsigned char storage[sizeof(Node)];
    Place() noexcept {}
  };
  struct NoPlace {};

  std::uint64_t bump() noexcept { return ++state_.version; }
  // Whether a member sits in place (never while there is a block).
  bool hasOne() const noexcept {
    if constexpr (oneInPlace)
      return state_.one;
    else
      return false;
  }
  Node& oneNode() noexcept { return *std::launder(reinterpret_cast<Node*>(place_.storage)); }
  Node const& oneNode() const noexcept { return *std::launder(reinterpret_cast<Node const*>(place_.storage)); }
  // Slot i, below total(), in the block or in place.
  bool occupied(std::size_t i) const noexcept {
    if constexpr (oneInPlace)
      if (!slots_) return state_.one;
    return slots_[i].dist != 0;
  }
  Node& nodeAt(std::size_t i) noexcept {
    if constexpr (oneInPlace)
      if (!slots_) return oneNode();
    return slots_[i].node();
  }
  Node const& nodeAt(std::size_t i) const noexcept {
    if constexpr (oneInPlace)
      if (!slots_) return oneNode();
    return slots_[i].node();
  }
  std::uint32_t hashAt(std::size_t i) const {
    if constexpr (oneInPlace)
      if (!slots_) return hash32(oneNode().fwkKey());
    return slots_[i].hash;
  }
  // The hash a store needs: none when the member will go in place.
  std::uint32_t hashFor(Key const& k) const {
    if constexpr (oneInPlace)
      if (!slots_ && !state_.one) return 0;
    return hash32(k);
  }

  // The top bits of a Fibonacci product pick the home slot, so weak key hashes
  // (small integers) still spread over the table.
  static std::uint32_t hash32(Key const& k) noexcept {
    return static_cast<std::uint32_t>((static_cast<std::uint64_t>(hashOf(k)) * 0x9e3779b97f4a7c15ull) >> 32);
  }
  // 64 bits wide: a single home slot shifts by all 32.
  std::size_t home(std::uint32_t h) const noexcept { return static_cast<std::size_t>(std::uint64_t{h} >> slots_.counts().shift); }

  // An empty map answers without hashing: adapters probe their (mostly empty) dirty sets
  // on every record.
  std::size_t findKey(Key const& k) const {
    if constexpr (oneInPlace)
      if (!slots_) return findIndex(k, 0);
    return size() == 0 ? npos : findIndex(k, hash32(k));
  }
  // h is not read for a member in place: it has no hash stored to compare.
  std::size_t findIndex(Key const& k, std::uint32_t h) const {
    if constexpr (oneInPlace)
      if (!slots_) return state_.one && oneNode().fwkKey() == k ? 0 : npos;
    if (size() == 0) return npos;
    std::size_t i = home(h);
    // The slot after the last one is always empty, so the probe ends inside the table.
    for (std::uint32_t d = 1;; ++i, ++d) {
      Slot const& s = slots_[i];
      if (s.dist < d) return npos;
      if (s.hash == h && s.node().fwkKey() == k) return i;
    }
  }

  template <class MakeNode>
  CollChange store(std::size_t i, std::uint32_t h, ValueType&& v, MakeNode&& makeNode) {
    if (i != npos) {
      Node& n = nodeAt(i);
      if (n.value() == v) return CollChange::unchanged;
      n.valueIs(std::move(v));
      bump();
      return CollChange::replaced;
    }
    placeNode(h, makeNode);
    bump();
    return CollChange::inserted;
  }

  std::size_t nextOccupied(std::size_t i) const noexcept {
    std::size_t const n = total();
    while (i < n && !occupied(i)) ++i;
    return i < n ? i : n;
  }

  void moveSlot(Slot& from, Slot& to, std::uint32_t dist) noexcept {
    ::new (static_cast<void*>(to.storage)) Node(std::move(from.node()));
    from.node().~Node();
    to.hash = from.hash;
    to.dist = dist;
    from.dist = 0;
  }

  // Empties the slot where a member with hash h belongs by shifting the rest of its
  // run one place on, and returns it; npos, changing nothing, when the run would pass
  // the last spare slot.
  std::size_t openSlot(std::uint32_t h) noexcept {
    std::size_t i = home(h);
    for (std::uint32_t d = 1; slots_[i].dist >= d; ++d) ++i;
    std::size_t const n = total();
    std::size_t e = i;
    while (e < n && slots_[e].dist != 0) ++e;
    if (e >= n) return npos;
    for (std::size_t j = e; j > i; --j) moveSlot(slots_[j - 1], slots_[j], slots_[j - 1].dist + 1);
    return i;
  }
  std::uint32_t distOf(std::size_t i, std::uint32_t h) const noexcept {
    return static_cast<std::uint32_t>(i - home(h) + 1);
  }

  // Puts a node known to be absent at its place in its probe run, made there by
  // makeNode(); returns the slot.
  template <class MakeNode>
  std::size_t placeNode(std::uint32_t h, MakeNode&& makeNode) {
    if constexpr (oneInPlace) {
      if (!slots_) {
        if (!state_.one) {
          // A throw leaves the place empty.
          ::new (static_cast<void*>(place_.storage)) Node(makeNode());
          state_.one = 1;
          return 0;
        }
        // The second member: the block a plain map would grow to for it.
        rehash(2 * minCapacity);
      }
    }
    if (!slots_) {
      // The first member: one home slot, no spare (a second member grows the table first).
      slots_ = SlotBlock(minCapacity, 32);
      bump();
    } else if (size() + 1 > maxLoad(capacity())) {
      rehash(capacity() * 2);
    }
    std::size_t i;
    while ((i = openSlot(h)) == npos) extendTail();
    try {
      ::new (static_cast<void*>(slots_[i].storage)) Node(makeNode());
    } catch (...) {
      // A copy that throws (out of memory) must not leave a hole in the run: lookups
      // stop at an empty slot.
      closeGap(i);
      throw;
    }
    slots_[i].hash = h;
    slots_[i].dist = distOf(i, h);
    ++slots_.counts().size;
    return i;
  }

  void eraseAt(std::size_t i) noexcept {
    if constexpr (oneInPlace) {
      if (!slots_) {
        oneNode().~Node();
        state_.one = 0;
        bump();
        return;
      }
    }
    slots_[i].node().~Node();
    slots_[i].dist = 0;
    closeGap(i);
    --slots_.counts().size;
    bump();
  }

  // Moves the members after the empty slot i back one place each, as far as they are
  // away from their home slots.
  void closeGap(std::size_t i) noexcept {
    std::size_t gap = i;
    for (std::size_t j = i + 1; slots_[j].dist > 1; ++j) {
      std::size_t target = home(slots_[j].hash);
      if (target < gap) target = gap;
      std::size_t slotsToShift = j - target;
      KEL_ASSERT(slotsToShift == 1);
      moveSlot(slots_[j], slots_[gap], slots_[j].dist - 1);
      gap = j;
    }
  }

  // Grows the spare slots past the last home slot; members keep their places.
  void extendTail() {
    std::size_t const cap = capacity(), newTail = tail() ? tail() * 2 : 1;
    SlotBlock slots(cap + newTail, slots_.counts().shift);
    for (std::size_t i = 0, n = total(); i < n; ++i)
      if (slots_[i].dist) moveSlot(slots_[i], slots[i], slots_[i].dist);
    slots.counts().size = slots_.counts().size;
    slots_ = std::move(slots);
  }

  // Moves the members into a table of cap home slots. Everything that can throw
  // happens before the first member moves.
  void rehash(std::size_t cap) {
    std::uint32_t const shift = 32 - static_cast<std::uint32_t>(std::countr_zero(cap));
    std::size_t const minTail = cap < maxMinTail ? cap : maxMinTail;
    if constexpr (oneInPlace) {
      if (!slots_) {
        // At most one member: it goes to its home slot of the empty block.
        std::uint32_t const h = state_.one ? hash32(oneNode().fwkKey()) : 0;
        slots_ = SlotBlock(cap + minTail, shift);
        if (state_.one) {
          Slot& s = slots_[home(h)];
          ::new (static_cast<void*>(s.storage)) Node(std::move(oneNode()));
          oneNode().~Node();
          state_.one = 0;
          s.hash = h;
          s.dist = 1;
          slots_.counts().size = 1;
        }
        bump();
        return;
      }
    }
    std::size_t tail = slots_ && this->tail() > minTail ? this->tail() : minTail;
    SlotBlock slots(cap + tail, shift);
    // Runs sorted by home slot end where the counts per home slot say: the table needs
    // spare slots up to there, and must not extend them halfway through the moves.
    for (std::size_t i = 0, n = total(); i < n; ++i)
      if (slots_[i].dist) ++slots[std::uint64_t{slots_[i].hash} >> shift].hash;
    std::size_t end = 0;  // one past the last slot the members will fill
    for (std::size_t i = 0; i < cap; ++i)
      if (slots[i].hash) {
        end = (end > i ? end : i) + slots[i].hash;
        slots[i].hash = 0;
      }
    if (end > cap + tail) {
      while (end > cap + tail) tail *= 2;
      slots = SlotBlock(cap + tail, shift);
    }

    std::size_t const oldTotal = total();
    slots.counts().size = static_cast<std::uint32_t>(size());
    SlotBlock old = std::exchange(slots_, std::move(slots));
    for (std::size_t i = 0; i < oldTotal; ++i) {
      if (!old[i].dist) continue;
      std::size_t j = openSlot(old[i].hash);
      KEL_ASSERT(j != npos);
      moveSlot(old[i], slots_[j], distOf(j, old[i].hash));
    }
    bump();
  }

  // Moves the member in place, if any, to the other map's empty place.
  void moveOne(HashMap2018& to) noexcept {
    if (!state_.one) return;
    ::new (static_cast<void*>(to.place_.storage)) Node(std::move(oneNode()));
    oneNode().~Node();
    state_.one = 0;
    to.state_.one = 1;
  }
  // Swaps the members in place (the blocks were swapped already), by way of a third map.
  void swapOne(HashMap2018& o) noexcept {
    HashMap2018 between;
    moveOne(between);
    o.moveOne(*this);
    between.moveOne(o);
  }

  void copyFrom(HashMap2018 const& o) {
    if constexpr (oneInPlace) {
      if (!o.slots_) {
        if (o.state_.one) {
          ::new (static_cast<void*>(place_.storage)) Node(o.oneNode());
          state_.one = 1;
        }
        return;
      }
    }
    if (!o.slots_) return;
    slots_ = SlotBlock(o.total(), o.slots_.counts().shift);
    try {
      for (std::size_t i = 0, n = total(); i < n; ++i) {
        if (!o.slots_[i].dist) continue;
        ::new (static_cast<void*>(slots_[i].storage)) Node(o.slots_[i].node());
        slots_[i].hash = o.slots_[i].hash;
        slots_[i].dist = o.slots_[i].dist;
        ++slots_.counts().size;
      }
    } catch (...) {
      // A throwing copy ends the constructor before ~HashMap2018 could run: destroy
      // the nodes copied so far here, or they leak.
      destroyAll();
      throw;
    }
  }

  void destroyAll() noexcept {
    if constexpr (oneInPlace) {
      if (!slots_) {
        if (state_.one) oneNode().~Node();
        state_.one = 0;
        return;
      }
    }
    for (std::size_t i = 0, n = total(); i < n; ++i)
      if (slots_[i].dist) {
        slots_[i].node().~Node();
        slots_[i].dist = 0;
      }
  }

  using SlotBlock = Detail::SlotBlock<Slot>;
  SlotBlock slots_;
  Detail::MapState<oneInPlace> state_;
  [[no_unique_address]] std::conditional_t<oneInPlace, Place, NoPlace> place_;
};

static_assert(sizeof(HashMap2018<int, int>) == 2 * sizeof(void*), "a plain map is two words");

}  // namespace Kel
