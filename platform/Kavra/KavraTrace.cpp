#include "Kavra/KavraTrace.h"

#include <fmt/format.h>

#include <exception>

#include "Qel/Trace.h"

namespace Kavra {

namespace {

Qel::TraceHandle& traceHandle() {
  static Qel::TraceHandle handle("Kavra");
  return handle;
}

}  // namespace

void trace(int level, std::string_view text, const char* file, int line, const char* function) {
  if (auto helper = Qel::TraceHelper::createIfEnabled(traceHandle(), level, file, line, function)) {
    *helper << text;
  }
}

void traceRefused(const Qel::String& path, const Qel::String& why) {
  trace(0, fmt::format("{}: refused: {}", path.view(), why.view()));
}

void traceNoLongerRefused(const Qel::String& path, bool isPublished) {
  trace(0, fmt::format("{}: no longer refused{}", path.view(),
                       isPublished ? "" : ": nothing is published there"));
}

void traceFailure(const Qel::String& path, const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& error) {
    trace(0, fmt::format("{}: a handler failed: {}", path.view(), error.what()));
  } catch (...) {
    trace(0, fmt::format("{}: a handler failed", path.view()));
  }
}

}  // namespace Kavra
