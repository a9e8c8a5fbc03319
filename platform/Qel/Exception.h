#pragma once

#include <stdexcept>
#include <string_view>

#include "Qel/String.h"

namespace Qel {

// Base of every error that the framework raises. text() is what() as a String.
class Exception : public std::runtime_error {
 public:
  explicit Exception(const String& text);
  ~Exception() override;
  String text() const { return String(what()); }
};

// A value outside what its type or its use allows.
class RangeException : public Exception {
 public:
  using Exception::Exception;
  ~RangeException() override;
};
// A key or name that is taken by another object.
class NameInUseException : public Exception {
 public:
  using Exception::Exception;
  ~NameInUseException() override;
};
// Text that is not the text form of what was asked for.
class ParseException : public Exception {
 public:
  using Exception::Exception;
  ~ParseException() override;
};
// A generic value of another type than the one asked for.
class TypeException : public Exception {
 public:
  using Exception::Exception;
  ~TypeException() override;
};
// A hash asked of a type that has none.
class UnhashableException : public Exception {
 public:
  using Exception::Exception;
  ~UnhashableException() override;
};
// An operation that the addressed attribute or type does not offer.
class OperationNotSupportedException : public Exception {
 public:
  using Exception::Exception;
  ~OperationNotSupportedException() override;
};

// Each raises the error of its name with `text`. The first two report it to the "Qel" trace
// facility at level 1, range errors only where nobody expects one.
[[noreturn]] void throwRangeException(const String& text);
[[noreturn]] void throwNameInUseException(const String& text);
[[noreturn]] void throwParseException(const String& text);
[[noreturn]] void throwTypeException(const String& text);
[[noreturn]] void throwOperationNotSupportedException(const String& text);

// Raises NameInUseException for a key that has an object made with `present`, not with `wanted`,
// for its constructor parameter `attribute`; both point at a `type`, or are null.
[[noreturn]] void throwReinstantiationException(std::string_view attribute, const void* wanted,
                                                const void* present, std::string_view type);

// While one lives, a range error is an expected answer rather than a fault, and is not reported.
class RangeExceptionExpectation {
 public:
  RangeExceptionExpectation() noexcept { ++living_; }
  RangeExceptionExpectation(const RangeExceptionExpectation&) = delete;
  RangeExceptionExpectation& operator=(const RangeExceptionExpectation&) = delete;
  ~RangeExceptionExpectation() { --living_; }

  static bool isAnyAlive() noexcept { return living_ > 0; }

 private:
  static int living_;
};

}  // namespace Qel
