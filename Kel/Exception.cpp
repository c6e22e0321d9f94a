#include "Kel/Exception.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

void throwRangeException(String const& message) { throw RangeException(message); }

void assertFailed(const char* expressionText, const char* file, int line) noexcept {
  std::fprintf(stderr, "Assertion failed: %s (%s:%d)\n", expressionText, file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel
