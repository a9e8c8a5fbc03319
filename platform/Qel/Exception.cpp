#include "Qel/Exception.h"

#include "Qel/Format.h"
#include "Qel/Strep.h"
#include "Qel/Trace.h"

namespace Qel {

namespace {

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
  if (!RangeExceptionExpectation::isAnyAlive()) report("RangeException", text);
  throw RangeException(text);
}

void throwNameInUseException(const String& text) {
  report("NameInUseException", text);
  throw NameInUseException(text);
}

void throwReinstantiationException(std::string_view attribute, const void* wanted,
                                   const void* present, std::string_view type) {
  throwNameInUseException(
      format("Reinstantiating the pointer interface where constructor parameter attribute %s has a "
             "different value of %s than the current value of %s not allowed",
             attribute, valueToStrepOfRawPtr(wanted, type), valueToStrepOfRawPtr(present, type)));
}

void throwParseException(const String& text) { throw ParseException(text); }

void throwTypeException(const String& text) { throw TypeException(text); }

void throwOperationNotSupportedException(const String& text) {
  throw OperationNotSupportedException(text);
}

int RangeExceptionExpectation::living_ = 0;

}  // namespace Qel
