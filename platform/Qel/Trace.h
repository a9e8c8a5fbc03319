#pragma once

#include <functional>
#include <optional>
#include <sstream>
#include <utility>

#include "Qel/String.h"

namespace Qel {

// One emitted trace line. `file`, `position` and `function` are where the statement stands: a
// source or model file, a line or model position, the function's name.
struct TraceRecord {
  String facility;
  int level;
  String file;
  int position;
  String function;
  String text;
};

// Takes every emitted record. An empty function restores the default: one line to standard error,
// "FACILITY LEVEL: TEXT", control characters escaped, and the severity in front where the journal
// reads it.
void traceSinkIs(std::function<void(const TraceRecord&)> sink);

// Enables levels 0 to `level` of a facility; -1 silences it. Holds for the handles that exist and
// for those created later. Every facility starts at 0 (errors).
void traceLevelIs(const String& facility, int level);

// A module's access to the trace of one facility. Levels: 0 errors, 1 decisions, 2 routine flow,
// 8 entries and per-row lines. Lives as long as its module; must outlive its TraceHelpers.
class TraceHandle {
 public:
  explicit TraceHandle(const String& facility);
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;
  ~TraceHandle();

  const String& facility() const noexcept { return facility_; }
  bool isEnabled(int level) const noexcept { return level <= level_; }
  // The highest level that is on, now and later, for who asks often; lives as long as the handle.
  const int& level() const noexcept { return level_; }

 private:
  friend void traceLevelIs(const String& facility, int level);

  const String facility_;
  int level_;
};

// A trace line being written. A level that is off costs a test, and no text:
//   if (auto trace = TraceHelper::createIfEnabled(handle, 8, file, line, function))
//     *trace << "key : " << key;
// The record goes to the sink when the helper is destroyed.
class TraceHelper {
 public:
  TraceHelper(const TraceHandle& handle, int level, const char* file, int position,
              const char* function);
  TraceHelper(const TraceHelper&) = delete;
  TraceHelper& operator=(const TraceHelper&) = delete;
  ~TraceHelper();

  static std::optional<TraceHelper> createIfEnabled(const TraceHandle& handle, int level,
                                                    const char* file, int position,
                                                    const char* function) {
    return handle.isEnabled(level)
               ? std::optional<TraceHelper>(std::in_place, handle, level, file, position, function)
               : std::optional<TraceHelper>();
  }

  template <class T>
  std::ostream& operator<<(const T& value) {
    return stream_ << value;
  }

 private:
  const TraceHandle& handle_;
  const int level_;
  const char* const file_;
  const int position_;
  const char* const function_;
  std::ostringstream stream_;
};

}  // namespace Qel
