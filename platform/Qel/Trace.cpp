#include "Qel/Trace.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "Qel/Escape.h"
#include "Qel/Journal.h"

namespace Qel {

namespace {

// Function-local, so that handles of any translation unit may register during static
// initialisation; leaked, so that they may leave during static destruction.
struct TraceState {
  std::function<void(const TraceRecord&)> sink;
  std::map<String, int> levels;
  std::set<TraceHandle*> handles;
};

TraceState& state() {
  static auto* const instance = new TraceState;
  return *instance;
}

void writeToStandardError(const TraceRecord& record) {
  const bool isToJournal = isJournal(STDERR_FILENO, journalStreamOfEnvironment());
  const std::string line =
      fmt::format("{}{} {}: {}\n", isToJournal ? fmt::format("<{}>", severityOf(record.level)) : "",
                  record.facility.view(), record.level, printableLine(record.text.view()));
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

void traceSinkIs(std::function<void(const TraceRecord&)> sink) { state().sink = std::move(sink); }

void traceLevelIs(const String& facility, int level) {
  state().levels[facility] = level;
  for (TraceHandle* handle : state().handles) {
    if (handle->facility() == facility) handle->level_ = level;
  }
}

TraceHandle::TraceHandle(const String& facility) : facility_(facility), level_(0) {
  const auto level = state().levels.find(facility);
  if (level != state().levels.end()) level_ = level->second;
  state().handles.insert(this);
}

TraceHandle::~TraceHandle() { state().handles.erase(this); }

TraceHelper::TraceHelper(const TraceHandle& handle, int level, const char* file, int position,
                         const char* function)
    : handle_(handle), level_(level), file_(file), position_(position), function_(function) {}

TraceHelper::~TraceHelper() {
  try {
    const TraceRecord record{handle_.facility(), level_,    file_,
                             position_,          function_, String(stream_.str())};
    if (state().sink) {
      state().sink(record);
    } else {
      writeToStandardError(record);
    }
  } catch (...) {
    // A trace that cannot be written is lost; what it reports goes on.
    std::fputs("trace record lost\n", stderr);
  }
}

}  // namespace Qel
