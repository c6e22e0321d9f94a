#include "Kel/Entity.h"

#include <algorithm>

namespace Kel {

Entity::Entity(Name name) : name_(std::move(name)) {}

// Formatting an integer key stays within the string's own buffer: nothing to throw.
void Entity::nameNow() const noexcept {
  name_ = kelLazyName();
  nameLazy_ = false;
}

Entity::~Entity() {
  for (Notifiee* n : notifiees_)
    if (n) n->notifier_ = nullptr;
}

String Entity::fullName() const {
  String result = parent_ ? parent_->fullName() : String();
  result += '/';
  result += name();
  return result;
}

void Entity::deliver(AttributeId attr, AttrKey const& key) const {
  // An observer may drop the last reference to the entity (a neighbour removed when it
  // expires), so delivery holds one of its own until it is done. An entity nobody
  // counts (on the stack, a member, or already being destroyed) is left alone.
  // The outermost delivery compacts the list, also when an observer throws.
  KeepAlive const keep(this);
  struct Depth {
    Entity const* e;
    explicit Depth(Entity const* entity) : e(entity) { ++e->deliveryDepth_; }
    ~Depth() {
      if (--e->deliveryDepth_ == 0 && e->compactPending_) {
        std::erase(e->notifiees_, nullptr);
        e->compactPending_ = false;
      }
    }
  } depth(this);
  // Observers that register during the delivery hear from the next change on.
  for (std::size_t i = 0, n = notifiees_.size(); i < n; ++i) {
    if (!active_) break;
    if (Notifiee* nf = notifiees_[i]) nf->onAttribute(attr, key);
  }
}

void Entity::attach(Notifiee* n) const {
  notifiees_.push_back(n);
  ++liveNotifiees_;
  updateActive();
}

void Entity::detach(Notifiee* n) const noexcept {
  auto it = std::find(notifiees_.begin(), notifiees_.end(), n);
  if (it == notifiees_.end()) return;
  if (deliveryDepth_ != 0) {
    *it = nullptr;
    compactPending_ = true;
  } else {
    notifiees_.erase(it);
  }
  --liveNotifiees_;
  updateActive();
}

Entity::Notifiee::~Notifiee() {
  if (notifier_) notifier_->detach(this);
}

void Entity::Notifiee::notifierIs(Entity const* notifier) {
  if (notifier == notifier_) return;
  if (notifier_) notifier_->detach(this);
  notifier_ = nullptr;
  if (notifier) {
    notifier->attach(this);
    notifier_ = notifier;
  }
}

}  // namespace Kel
