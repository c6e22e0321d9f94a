#pragma once
// Kel::HashMap<Key, T>: an instantiating entity collection. It owns its members (a
// Ptr each), creates them on behalf of the owning entity, makes the owner their parent
// and turns on their notifications; removing a member clears its parent link.
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/HashMap2018.h"
#include "Kel/Ptr.h"

namespace Kel {

template <class Key, class T>
class HashMap {
  static_assert(std::is_base_of_v<Entity, T>, "members of an entity collection are entities");
  using Map = HashMap2018<Key, Ptr<T>>;

 public:
  template <bool Const>
  class IteratorBase {
    using Inner = std::conditional_t<Const, typename Map::IteratorConst, typename Map::Iterator>;

   public:
    IteratorBase() noexcept = default;
    explicit operator bool() const { return static_cast<bool>(it_); }
    bool operator==(std::default_sentinel_t) const { return !it_; }
    IteratorBase& operator++() {
      ++it_;
      return *this;
    }
    Key const& key() const { return it_.key(); }
    Ptr<T> const& ptr() const { return *it_; }
    T& operator*() const { return **it_; }
    T* operator->() const { return it_->get(); }
    // Removes the member under the iterator (clearing its parent) and moves on.
    void del()
      requires(!Const)
    {
      (*it_)->parentIs(nullptr);
      it_.del();
    }

   private:
    friend class HashMap;
    explicit IteratorBase(Inner it) noexcept : it_(it) {}
    Inner it_;
  };
  using Iterator = IteratorBase<false>;
  using IteratorConst = IteratorBase<true>;

  HashMap() = default;
  HashMap(HashMap const&) = delete;
  HashMap& operator=(HashMap const&) = delete;
  ~HashMap() { clear(); }

  std::size_t size() const noexcept { return map_.size(); }
  bool empty() const noexcept { return map_.empty(); }
  std::uint64_t version() const noexcept { return map_.version(); }

  // The member under `k`, or null.
  T* find(Key const& k) const {
    Ptr<T> const* p = map_.find(k);
    return p ? p->get() : nullptr;
  }
  // The member's Ptr inside the collection, or null: no reference count touched.
  Ptr<T> const* findPtr(Key const& k) const { return map_.find(k); }
  Ptr<T> get(Key const& k) const {
    Ptr<T> const* p = map_.find(k);
    return p ? *p : Ptr<T>();
  }
  bool contains(Key const& k) const { return map_.contains(k); }
  Iterator findIter(Key const& k) { return Iterator(map_.findIter(k)); }
  IteratorConst findIter(Key const& k) const { return IteratorConst(map_.findIter(k)); }

  // The member under `k`, created as T(args...) when absent: {member, created}.
  // An existing member is returned as it is; the caller checks its identity.
  template <class... Args>
  std::pair<T*, bool> instantiate(Entity* owner, Key const& k, Args&&... args) {
    if (T* e = find(k)) return {e, false};
    Ptr<T> e(new T(std::forward<Args>(args)...));
    adopt(owner, *e);
    T* raw = e.get();
    map_.insertOrReplace(k, std::move(e));
    return {raw, true};
  }
  // Enters an entity made elsewhere (e.g. by a replay); false, and nothing done,
  // when the key is taken.
  bool insert(Entity* owner, Key const& k, Ptr<T> e) {
    KEL_ASSERT(e);  // a null member would be dereferenced by every walk
    if (map_.contains(k)) return false;
    adopt(owner, *e);
    map_.insertOrReplace(k, std::move(e));
    return true;
  }

  // Removes the member under `k` and hands it back (null when there was none).
  Ptr<T> del(Key const& k) {
    auto v = map_.take(k);
    if (!v) return Ptr<T>();
    (*v)->parentIs(nullptr);
    return std::move(*v);
  }
  void clear() noexcept {
    for (auto it = map_.begin(); it; ++it) (*it)->parentIs(nullptr);
    map_.clear();
  }

  // A snapshot of the keys, for walks that delete through the owner's single delete.
  std::vector<Key> keys() const { return map_.keys(); }

  Iterator begin() { return Iterator(map_.begin()); }
  IteratorConst begin() const { return IteratorConst(map_.begin()); }
  std::default_sentinel_t end() const noexcept { return {}; }

 private:
  static void adopt(Entity* owner, T& e) {
    e.parentIs(owner);
    e.deliversNotificationsIs(true);
  }
  Map map_;
};

}  // namespace Kel
