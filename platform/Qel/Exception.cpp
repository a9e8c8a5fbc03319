#include "Qel/Exception.h"

#include "Qel/Trace.h"

namespace Qel {

namespace {

int expectedRangeExceptions = 0;

TraceHandle& traceHandle() {
  static TraceHandle handle("Qel");
  return handle;
}

void report(const char* type, const String& text) {
  if (auto trace = TraceHelper::createIfEnabled(traceHandle(), 1, __FILE__, __LINE__, __func__)) {
    *trace << "raised " << type << ": " << text;
  }
}

}  // namespace

Exception::Exception(const String& text) : std::runtime_error(text.stdString()) {}
Exception::~Exception() = default;
RangeException::~RangeException() = default;
NameInUseException::~NameInUseException() = default;
ParseException::~ParseException() = default;
TypeException::~TypeException() = default;
UnhashableException::~UnhashableException() = default;
OperationNotSupportedException::~OperationNotSupportedException() = default;

void throwRangeException(const String& text) {
  if (expectedRangeExceptions == 0) report("RangeException", text);
  throw RangeException(text);
}

void throwNameInUseException(const String& text) {
  report("NameInUseException", text);
  throw NameInUseException(text);
}

void throwParseException(const String& text) { throw ParseException(text); }

void throwTypeException(const String& text) { throw TypeException(text); }

void throwOperationNotSupportedException(const String& text) {
  throw OperationNotSupportedException(text);
}

RangeExceptionExpectation::RangeExceptionExpectation() noexcept { ++expectedRangeExceptions; }

RangeExceptionExpectation::~RangeExceptionExpectation() { --expectedRangeExceptions; }

}  // namespace Qel
