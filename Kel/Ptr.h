#pragma once
// Kel::Ptr<T>: intrusive reference-counted pointer. The count lives in the pointee
// (Kel::PtrInterface), so a raw pointer can be turned back into an owning Ptr at
// any time without a separate control block. The count is atomic only when the
// framework is configured with KEL_THREAD_SAFE_PTR (recorded in Kel/KelConfig.h);
// otherwise copying a Ptr is a plain increment.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "Kel/KelConfig.h"

#if KEL_THREAD_SAFE_PTR
#include <atomic>
#endif

#include "Kel/String.h"

namespace Kel {

class PtrInterface {
 public:
  PtrInterface() noexcept = default;
  // A copy is a new object: it starts without references of its own.
  PtrInterface(PtrInterface const&) noexcept {}
  PtrInterface& operator=(PtrInterface const&) noexcept { return *this; }
  virtual ~PtrInterface() = default;

  std::uint32_t references() const noexcept {
#if KEL_THREAD_SAFE_PTR
    return refs_.load(std::memory_order_relaxed);
#else
    return refs_;
#endif
  }

  void newRef() const noexcept {
#if KEL_THREAD_SAFE_PTR
    refs_.fetch_add(1, std::memory_order_relaxed);
#else
    ++refs_;
#endif
  }

  // Drops one reference; the object deletes itself when the last one goes.
  void deleteRef() const noexcept {
#if KEL_THREAD_SAFE_PTR
    // acq_rel: the deleting thread must see every write made through other references.
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
#else
    if (--refs_ == 0) delete this;
#endif
  }

 private:
#if KEL_THREAD_SAFE_PTR
  mutable std::atomic<std::uint32_t> refs_{0};
#else
  mutable std::uint32_t refs_ = 0;
#endif
};

template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  Ptr(T* p) noexcept : p_(p) {
    if (p_) p_->newRef();
  }
  Ptr(Ptr const& o) noexcept : p_(o.p_) {
    if (p_) p_->newRef();
  }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ptr(Ptr<U> const& o) noexcept : Ptr(o.get()) {}
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->deleteRef();
  }

  Ptr& operator=(Ptr const& o) noexcept {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(T* p) noexcept {
    Ptr(p).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  void reset(T* p = nullptr) noexcept { Ptr(p).swap(*this); }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
  // Hands the reference over to the caller, who must later call deleteRef().
  [[nodiscard]] T* release() noexcept { return std::exchange(p_, nullptr); }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  bool operator!() const noexcept { return p_ == nullptr; }

  std::size_t hash() const noexcept {
    return hashMix(0, static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(p_)));
  }

  template <class U>
  friend class Ptr;

 private:
  T* p_ = nullptr;
};

template <class T, class U>
bool operator==(Ptr<T> const& a, Ptr<U> const& b) noexcept {
  return a.get() == b.get();
}
template <class T, class U>
std::strong_ordering operator<=>(Ptr<T> const& a, Ptr<U> const& b) noexcept {
  return std::compare_three_way()(static_cast<void const*>(a.get()), static_cast<void const*>(b.get()));
}
template <class T, class U>
bool operator==(Ptr<T> const& a, U* b) noexcept {
  return a.get() == b;
}
template <class T>
bool operator==(Ptr<T> const& a, std::nullptr_t) noexcept {
  return !a;
}

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}
template <class T, class U>
Ptr<T> ptrStaticCast(Ptr<U> const& p) noexcept {
  return Ptr<T>(static_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrDynamicCast(Ptr<U> const& p) noexcept {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}
template <class T, class U>
Ptr<T> ptrConstCast(Ptr<U> const& p) noexcept {
  return Ptr<T>(const_cast<T*>(p.get()));
}

}  // namespace Kel

// Declares T::Ptr and T::PtrConst inside class T. Every class that derives from a
// class carrying them should repeat the macro, or it inherits its base's Ptr.
#define KEL_PTR_TYPEDEFS(T)       \
  using Ptr = ::Kel::Ptr<T>;      \
  using PtrConst = ::Kel::Ptr<T const>

template <class T>
struct std::hash<Kel::Ptr<T>> {
  std::size_t operator()(Kel::Ptr<T> const& p) const noexcept { return p.hash(); }
};
