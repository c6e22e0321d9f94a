#pragma once
// The framework's exceptions and its fatal assertion.
#include <exception>

#include "Kel/String.h"

namespace Kel {

class Exception : public std::exception {
 public:
  explicit Exception(String message) : message_(std::move(message)) {}
  const char* what() const noexcept override { return message_.c_str(); }
  String const& message() const noexcept { return message_; }

 private:
  String message_;
};

// A value broke a declared limit; what() is exactly the limit's message.
class RangeException : public Exception {
 public:
  using Exception::Exception;
};

// Malformed text form: names what was expected and where.
class ParseException : public Exception {
 public:
  using Exception::Exception;
};

// A truncated or corrupt attribute-log stream.
class AttrLogException : public Exception {
 public:
  using Exception::Exception;
};

[[noreturn]] void throwRangeException(String const& message);

// Prints "Assertion failed: <expression text> (file:line)" to stderr and aborts.
[[noreturn]] void assertFailed(const char* expressionText, const char* file, int line) noexcept;

}  // namespace Kel

// Fatal assertion, always on: a broken invariant is a programming error.
#define KEL_ASSERT(expr) \
  (static_cast<bool>(expr) ? static_cast<void>(0) : ::Kel::assertFailed(#expr, __FILE__, __LINE__))
