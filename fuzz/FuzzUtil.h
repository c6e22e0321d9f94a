#pragma once
// What the fuzz targets share: a failed check aborts, which libFuzzer reports with the
// input, and inputs are read from buffers of their exact size, so that a read one byte too
// far is reported.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Fuzz {

inline void check(bool ok) {
  if (!ok) std::abort();
}

// A buffer of `size` bytes: the first `given` of data, zeros after them.
inline std::unique_ptr<char[]> exactCopy(void const* data, std::size_t size, std::size_t given) {
  std::unique_ptr<char[]> b(new char[size ? size : 1]);
  if (given) std::memcpy(b.get(), data, given);
  if (size > given) std::memset(b.get() + given, 0, size - given);
  return b;
}
inline std::unique_ptr<char[]> exactCopy(void const* data, std::size_t size) { return exactCopy(data, size, size); }

}  // namespace Fuzz
