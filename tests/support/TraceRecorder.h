#pragma once

#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Qel/Trace.h"

namespace support {

// Takes every trace record of the process while it lives, in order, and lets tests note their own
// events among them, so that one log shows what came before what. One at a time.
class TraceRecorder {
 public:
  // Facilities with the level up to which each is enabled; the others stay at errors.
  TraceRecorder(std::initializer_list<std::pair<const char*, int>> levels = {});
  TraceRecorder(const TraceRecorder&) = delete;
  TraceRecorder& operator=(const TraceRecorder&) = delete;
  // Gives the sink and the levels of errors back.
  ~TraceRecorder();

  void levelIs(const std::string& facility, int level);

  // Puts a line of the test's own into the log.
  void note(std::string line);

  const std::vector<Qel::TraceRecord>& records() const noexcept { return records_; }
  // Every record as "FACILITY LEVEL: TEXT", and every note as it is.
  const std::vector<std::string>& lines() const noexcept { return lines_; }
  // The bare text of every record.
  std::vector<std::string> texts() const;
  // The lines up to now; the log is empty afterwards.
  std::vector<std::string> takeLines();
  void clear();

 private:
  std::set<std::string> facilities_;
  std::vector<Qel::TraceRecord> records_;
  std::vector<std::string> lines_;
};

}  // namespace support
