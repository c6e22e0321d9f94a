#pragma once
// Included once by a benchmark program: replaces the global allocation functions so that
// every heap allocation of the program is counted, with its size, for the benchmarks to
// report per operation.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace BenchAlloc {

inline std::atomic<std::uint64_t> allocations{0};
inline std::atomic<std::uint64_t> allocatedBytes{0};

inline void* allocate(std::size_t n) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  allocatedBytes.fetch_add(n, std::memory_order_relaxed);
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
inline void* allocateAligned(std::size_t n, std::align_val_t a) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  allocatedBytes.fetch_add(n, std::memory_order_relaxed);
  auto const align = static_cast<std::size_t>(a);
  if (void* p = std::aligned_alloc(align, (n + align - 1) / align * align)) return p;
  throw std::bad_alloc();
}

}  // namespace BenchAlloc

void* operator new(std::size_t n) { return BenchAlloc::allocate(n); }
void* operator new[](std::size_t n) { return BenchAlloc::allocate(n); }
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
  try {
    return BenchAlloc::allocate(n);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t n, std::nothrow_t const& t) noexcept { return operator new(n, t); }
void* operator new(std::size_t n, std::align_val_t a) { return BenchAlloc::allocateAligned(n, a); }
void* operator new[](std::size_t n, std::align_val_t a) { return BenchAlloc::allocateAligned(n, a); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
