#pragma once
// Kel::NotificationRecorder: an observer that keeps every notification it hears, with
// a copy of the key, so that tests can count and inspect what a mutator announced.
#include <any>
#include <cstddef>
#include <vector>

#include "Kel/Entity.h"

namespace Kel {

class NotificationRecorder : public Entity::Notifiee {
 public:
  struct Record {
    AttributeId attr;
    std::any key;  // empty for scalar attributes

    bool hasKey() const noexcept { return key.has_value(); }
    template <class K>
    K const* keyAs() const noexcept {
      return std::any_cast<K>(&key);
    }
  };

  NotificationRecorder() noexcept = default;
  explicit NotificationRecorder(Entity const* notifier) : Notifiee(notifier) {}

  void onAttribute(AttributeId attr, AttrKey const& key) override { records_.push_back({attr, key.copy()}); }

  std::vector<Record> const& records() const noexcept { return records_; }
  std::size_t size() const noexcept { return records_.size(); }
  bool empty() const noexcept { return records_.empty(); }
  void clear() noexcept { records_.clear(); }

  std::size_t count(AttributeId attr) const noexcept {
    std::size_t n = 0;
    for (auto const& r : records_) n += r.attr == attr;
    return n;
  }
  // Notifications of `attr` whose key has type K and equals `key`.
  template <class K>
  std::size_t count(AttributeId attr, K const& key) const {
    std::size_t n = 0;
    for (auto const& r : records_)
      if (r.attr == attr)
        if (K const* k = r.template keyAs<K>(); k && *k == key) ++n;
    return n;
  }
  // The keys of type K notified for `attr`, in order of notification.
  template <class K>
  std::vector<K> keys(AttributeId attr) const {
    std::vector<K> out;
    for (auto const& r : records_)
      if (r.attr == attr)
        if (K const* k = r.template keyAs<K>()) out.push_back(*k);
    return out;
  }

 private:
  std::vector<Record> records_;
};

}  // namespace Kel
