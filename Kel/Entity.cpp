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
  if (!observers_) return;
  for (Notifiee* n : observers_->list)
    if (n) n->notifier_ = nullptr;
  delete observers_;
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
  // Active means observed: the observers exist, and outlive the delivery (only the
  // entity's destructor frees them, and the reference above holds that off).
  Observers& o = *observers_;
  struct Depth {
    Observers& o;
    explicit Depth(Observers& observers) : o(observers) { ++o.deliveryDepth; }
    ~Depth() {
      if (--o.deliveryDepth == 0 && o.compactPending) {
        std::erase(o.list, nullptr);
        o.compactPending = false;
      }
    }
  } depth(o);
  // Observers that register during the delivery hear from the next change on.
  for (std::size_t i = 0, n = o.list.size(); i < n; ++i) {
    if (!active_) break;
    if (Notifiee* nf = o.list[i]) nf->onAttribute(attr, key);
  }
}

void Entity::attach(Notifiee* n) const {
  if (!observers_) observers_ = new Observers;
  observers_->list.push_back(n);
  ++observers_->live;
  updateActive();
}

void Entity::detach(Notifiee* n) const noexcept {
  if (!observers_) return;
  Observers& o = *observers_;
  auto it = std::find(o.list.begin(), o.list.end(), n);
  if (it == o.list.end()) return;
  if (o.deliveryDepth != 0) {
    *it = nullptr;
    o.compactPending = true;
  } else {
    o.list.erase(it);
  }
  --o.live;
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
