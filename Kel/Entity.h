#pragma once
// Kel::Entity: the base of every mutable, observable framework object. It carries the
// entity's name, a non-owning link to its parent, and the list of observers
// (Entity::Notifiee) that mutators notify after a real change. Delivery is off until
// the creator (a factory or an owning collection) turns it on, and an entity without
// observers pays one predictable branch per change.
#include <any>
#include <cstddef>
#include <typeinfo>
#include <vector>

#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "Kel/Type.h"

namespace Kel {

// Per key type: its identity and how to copy it out of a type-erased reference.
struct AttrKeyType {
  std::type_info const& type;
  std::any (*copy)(void const*);
};

template <class K>
std::any attrKeyCopy(void const* p) {
  return std::any(*static_cast<K const*>(p));
}

template <class K>
inline constexpr AttrKeyType attrKeyTypeOf{typeid(K), &attrKeyCopy<K>};

// The key of the collection member a notification is about, passed by reference
// without copying. Empty for scalar attributes. Valid only during the notification.
class AttrKey {
 public:
  constexpr AttrKey() noexcept = default;
  template <class K>
  explicit constexpr AttrKey(K const& key) noexcept : key_(&key), type_(&attrKeyTypeOf<K>) {}

  bool empty() const noexcept { return key_ == nullptr; }
  explicit operator bool() const noexcept { return key_ != nullptr; }
  std::type_info const* type() const noexcept { return type_ ? &type_->type : nullptr; }
  void const* data() const noexcept { return key_; }

  // The key when it has type K, else null.
  template <class K>
  K const* as() const noexcept {
    if (!type_) return nullptr;
    if (type_ != &attrKeyTypeOf<K> && type_->type != typeid(K)) return nullptr;
    return static_cast<K const*>(key_);
  }
  // A copy that outlives the notification (empty std::any for no key).
  std::any copy() const { return type_ ? type_->copy(key_) : std::any(); }

 private:
  void const* key_ = nullptr;
  AttrKeyType const* type_ = nullptr;
};

class Entity : public PtrInterface {
 public:
  KEL_PTR_TYPEDEFS(Entity);

  // Holds a counted entity alive for a scope (an observer may drop its last reference
  // meanwhile); an entity nobody counts (on the stack, a member) is left alone.
  class KeepAlive {
   public:
    explicit KeepAlive(Entity const* e) noexcept : e_(e->references() != 0 ? e : nullptr) {
      if (e_) e_->newRef();
    }
    ~KeepAlive() {
      if (e_) e_->deleteRef();  // may destroy the entity: nothing touches it after this
    }
    KeepAlive(KeepAlive const&) = delete;
    KeepAlive& operator=(KeepAlive const&) = delete;

   private:
    Entity const* e_;
  };
  class Notifiee;
  // Attribute-log stream adapter base; defined with the attribute log.
  class KelNboAttrLogSa;

  explicit Entity(Name name = Name());
  // An entity named after its key, formatted only when someone asks: a neighbour table
  // fills faster than anyone reads names. kelLazyName() makes it.
  struct LazyName {};
  explicit Entity(LazyName) noexcept : nameLazy_(true) {}
  ~Entity() override;
  Entity(Entity const&) = delete;
  Entity& operator=(Entity const&) = delete;

  Name const& name() const noexcept {
    if (nameLazy_) [[unlikely]]
      nameNow();
    return name_;
  }
  // Non-owning: the owner keeps its children alive, not the other way round.
  Entity* parent() const noexcept { return parent_; }
  void parentIs(Entity* parent) noexcept { parent_ = parent; }
  // Names from the root down, separated by '/'.
  String fullName() const;

  // The type descriptor of the most derived type, when it has one.
  virtual KelType const* kelType() const noexcept { return nullptr; }

  bool deliversNotifications() const noexcept { return delivers_; }
  void deliversNotificationsIs(bool on) noexcept {
    delivers_ = on;
    updateActive();
  }
  std::size_t notifieeCount() const noexcept { return observers_ ? observers_->live : 0; }
  // Whether a change now reaches an observer: a mutator copies a key for it only then.
  bool notifying() const noexcept { return active_; }

  // Tells the observers that attribute `attr` changed (for a collection: the member
  // under `key`). Mutators call these after storing a changed value.
  void notify(AttributeId attr) const {
    if (active_) [[unlikely]]
      deliver(attr, AttrKey());
  }
  void notify(AttributeId attr, AttrKey const& key) const {
    if (active_) [[unlikely]]
      deliver(attr, key);
  }
  template <class K>
  void notify(AttributeId attr, K const& key) const {
    if (active_) [[unlikely]]
      deliver(attr, AttrKey(key));
  }

 protected:
  // The name of an entity made with LazyName.
  virtual Name kelLazyName() const { return Name(); }

 private:
  friend class Notifiee;
  void nameNow() const noexcept;
  void deliver(AttributeId attr, AttrKey const& key) const;
  void attach(Notifiee* n) const;
  void detach(Notifiee* n) const noexcept;
  void updateActive() const noexcept { active_ = delivers_ && notifieeCount() != 0; }

  // Kept apart, made on the first attach: most entities are never observed directly.
  // A slot is nulled when its notifiee leaves during a delivery, and the list is
  // compacted when the outermost delivery ends.
  struct Observers {
    std::vector<Notifiee*> list;
    std::size_t live = 0;
    unsigned deliveryDepth = 0;
    bool compactPending = false;
  };

  // The flags first: they fill what the reference count leaves of its word.
  bool delivers_ = false;
  mutable bool active_ = false;
  mutable bool nameLazy_ = false;
  mutable Name name_;
  Entity* parent_ = nullptr;
  mutable Observers* observers_ = nullptr;
};

// A part of an entity that most entities never use, allocated when one of its attributes
// first leaves its default: a rarely used group costs a pointer, not its size.
template <class T>
class Part {
 public:
  Part() noexcept = default;
  Part(Part const&) = delete;
  Part& operator=(Part const&) = delete;
  ~Part() { delete p_; }
  T const* get() const noexcept { return p_; }
  T& make() {
    if (!p_) p_ = new T();
    return *p_;
  }

 private:
  T* p_ = nullptr;
};

// An observer of one entity at a time. It detaches itself when destroyed, and is
// detached (notifier() becomes null) when the entity goes first.
class Entity::Notifiee {
 public:
  Notifiee() noexcept = default;
  explicit Notifiee(Entity const* notifier) { notifierIs(notifier); }
  Notifiee(Notifiee const&) = delete;
  Notifiee& operator=(Notifiee const&) = delete;
  virtual ~Notifiee();

  Entity const* notifier() const noexcept { return notifier_; }
  // Moves the registration to `notifier`; null only unregisters.
  void notifierIs(Entity const* notifier);

  // `key` is empty for scalar attributes and refers to the member's key otherwise.
  virtual void onAttribute(AttributeId attr, AttrKey const& key) = 0;

 private:
  friend class Entity;
  Entity const* notifier_ = nullptr;
};

}  // namespace Kel
