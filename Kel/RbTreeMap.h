#pragma once
// Kel::RbTreeMap: the framework's ordered map, walked in ascending key order.
//
//   RbTreeMap<Key, Value, KeyFunktor>  the key lives inside the value (KeyFunktor()(value))
//   RbTreeMap<Key, Value>              the key is given beside the value
//
// The same insert-or-replace, lookup, deletion and version-checked iteration as
// HashMap2018. Writers that change the map while walking it compare version() and
// resume with upperBound(lastKey). An empty map is two words and allocates nothing: an
// entity may hold many collections that mostly stay empty.
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/HashMap2018.h"

namespace Kel {

template <class Key, class Value, class KeyFunktor = void>
class RbTreeMap {
  using Tree = std::map<Key, Value>;

 public:
  static constexpr bool internalKey = !std::is_void_v<KeyFunktor>;
  using KeyType = Key;
  using ValueType = Value;

  template <bool Const>
  class IteratorBase {
    using Map = std::conditional_t<Const, RbTreeMap const, RbTreeMap>;
    using TreeIt = std::conditional_t<Const, typename Tree::const_iterator, typename Tree::iterator>;
    using Ref = std::conditional_t<Const, Value const&, Value&>;

   public:
    IteratorBase() noexcept = default;
    template <bool C>
      requires(Const && !C)
    IteratorBase(IteratorBase<C> const& o) noexcept : rbTreeMap_(o.rbTreeMap_), it_(o.it_), version_(o.version_) {}

    // A default-made iterator is on nothing; anything else asks of it is refused.
    explicit operator bool() const {
      if (!rbTreeMap_) return false;
      check();
      return it_ != rbTreeMap_->tree().end();
    }
    bool operator==(std::default_sentinel_t) const { return !static_cast<bool>(*this); }
    IteratorBase& operator++() {
      check();
      ++it_;
      return *this;
    }
    Key const& key() const {
      check();
      return it_->first;
    }
    Ref operator*() const {
      check();
      return it_->second;
    }
    auto operator->() const { return &**this; }

    // Deletes the member under the iterator and moves on to the next key.
    void del()
      requires(!Const)
    {
      check();
      it_ = rbTreeMap_->tree_->erase(it_);
      version_ = ++rbTreeMap_->version_;
    }
    void valueIs(Value _value)
      requires(!Const)
    {
      check();
      if constexpr (internalKey) KEL_ASSERT(it_->first == KeyFunktor()( _value ));
      it_->second = std::move(_value);
      version_ = ++rbTreeMap_->version_;
    }

   private:
    friend class RbTreeMap;
    template <bool>
    friend class IteratorBase;
    IteratorBase(Map* m, TreeIt it) noexcept : rbTreeMap_(m), it_(it), version_(m->version_) {}
    void check() const {
      KEL_ASSERT(rbTreeMap_ != nullptr);
      KEL_ASSERT(version_ == rbTreeMap_->version());
    }

    Map* rbTreeMap_ = nullptr;
    TreeIt it_{};
    std::uint64_t version_ = 0;
  };
  using Iterator = IteratorBase<false>;
  using IteratorConst = IteratorBase<true>;

  RbTreeMap() noexcept = default;
  RbTreeMap(RbTreeMap const& o) : tree_(o.empty() ? nullptr : new Tree(*o.tree_)) {}
  RbTreeMap(RbTreeMap&& o) noexcept : tree_(std::exchange(o.tree_, nullptr)) { ++o.version_; }
  RbTreeMap& operator=(RbTreeMap const& o) {
    if (this != &o) {
      Tree* copy = o.empty() ? nullptr : new Tree(*o.tree_);
      delete std::exchange(tree_, copy);
      ++version_;
    }
    return *this;
  }
  RbTreeMap& operator=(RbTreeMap&& o) noexcept {
    if (this != &o) {
      delete std::exchange(tree_, std::exchange(o.tree_, nullptr));
      ++version_;
      ++o.version_;
    }
    return *this;
  }
  ~RbTreeMap() { delete tree_; }

  std::size_t size() const noexcept { return tree_ ? tree_->size() : 0; }
  bool empty() const noexcept { return !tree_ || tree_->empty(); }
  std::uint64_t version() const noexcept { return version_; }

  Value* find(Key const& k) {
    if (!tree_) return nullptr;
    auto it = tree_->find(k);
    return it == tree_->end() ? nullptr : &it->second;
  }
  Value const* find(Key const& k) const {
    if (!tree_) return nullptr;
    auto it = tree_->find(k);
    return it == tree_->end() ? nullptr : &it->second;
  }
  bool contains(Key const& k) const { return find(k) != nullptr; }

  CollChange insertOrReplace(Value v)
    requires internalKey
  {
    decltype(auto) k = KeyFunktor()(v);
    return store(k, std::move(v));
  }
  CollChange insertOrReplace(Key const& k, Value v)
    requires(!internalKey)
  {
    return store(k, std::move(v));
  }

  bool del(Key const& k) {
    if (!tree_) return false;
    auto it = tree_->find(k);
    if (it == tree_->end()) return false;
    tree_->erase(it);
    ++version_;
    return true;
  }
  std::optional<Value> take(Key const& k) {
    if (!tree_) return std::nullopt;
    auto it = tree_->find(k);
    if (it == tree_->end()) return std::nullopt;
    std::optional<Value> v(std::move(it->second));
    tree_->erase(it);
    ++version_;
    return v;
  }
  void clear() noexcept {
    if (empty()) return;
    delete std::exchange(tree_, nullptr);
    ++version_;
  }

  // A snapshot of the keys in ascending order.
  std::vector<Key> keys() const {
    std::vector<Key> out;
    out.reserve(size());
    for (auto const& kv : tree()) out.push_back(kv.first);
    return out;
  }

  Iterator begin() noexcept { return Iterator(this, tree().begin()); }
  IteratorConst begin() const noexcept { return IteratorConst(this, tree().begin()); }
  std::default_sentinel_t end() const noexcept { return {}; }
  Iterator findIter(Key const& k) { return Iterator(this, tree().find(k)); }
  IteratorConst findIter(Key const& k) const { return IteratorConst(this, tree().find(k)); }
  // The first member whose key is not below / is above `k`.
  Iterator lowerBound(Key const& k) { return Iterator(this, tree().lower_bound(k)); }
  IteratorConst lowerBound(Key const& k) const { return IteratorConst(this, tree().lower_bound(k)); }
  Iterator upperBound(Key const& k) { return Iterator(this, tree().upper_bound(k)); }
  IteratorConst upperBound(Key const& k) const { return IteratorConst(this, tree().upper_bound(k)); }

  friend bool operator==(RbTreeMap const& a, RbTreeMap const& b) { return a.tree() == b.tree(); }

 private:
  // The tree, or for a map that has none a shared empty one that nothing changes.
  Tree& tree() const noexcept {
    static Tree none;
    return tree_ ? *tree_ : none;
  }

  template <class K>
  CollChange store(K const& k, Value&& v) {
    if (!tree_) tree_ = new Tree;
    auto it = tree_->lower_bound(k);
    if (it != tree_->end() && !(k < it->first)) {
      if (it->second == v) return CollChange::unchanged;
      it->second = std::move(v);
      ++version_;
      return CollChange::replaced;
    }
    tree_->emplace_hint(it, Key(k), std::move(v));
    ++version_;
    return CollChange::inserted;
  }

  Tree* tree_ = nullptr;
  std::uint64_t version_ = 0;
};

}  // namespace Kel
