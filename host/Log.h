#pragma once

#include <syslog.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Qel/Trace.h"
#include "host/LogWriter.h"
#include "host/Repetitions.h"

namespace Host {

// The log of the process: "norvek-snmpd: TEXT", a line each, whatever the text holds, with the
// level in front ("<3>") where the journal reads it. Severities are those of syslog(3).
//
// A line never waits for its reader: one that cannot be written at once is left out and counted.
// The same event is told once a second; what is held back meanwhile is counted, too. Counts are
// told with the next line, or by tellWhatIsDue().
class Log {
 public:
  using Now = std::function<Repetitions::Time()>;

  // `journalStream` is the value of JOURNAL_STREAM, or "": the device and inode of the journal.
  Log(int fd, std::string_view journalStream, Now now = std::chrono::steady_clock::now);
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // Takes lines in the place of the descriptor, without a name in front; must not wait.
  using Sink = std::function<void(int severity, std::string_view text)>;
  // An empty one gives the lines to the descriptor again.
  void sinkIs(Sink sink) { sink_ = std::move(sink); }

  // Lines with the same `event` are the same event.
  void line(int severity, std::string_view text, std::string_view event);
  void line(int severity, std::string_view text) { line(severity, text, text); }
  // A line that was asked for: it may repeat.
  void detail(int severity, std::string_view text);

  // Tells what was left out, as far as it may be told by now and the reader takes it.
  void tellWhatIsDue();
  // The same for all that was held back, as before the process ends.
  void tellAll();
  // Whether something was left out that has not been told.
  bool hasMoreToTell() const noexcept { return leftOut_ > 0 || repetitions_.holdsBack(); }
  // `wakeUp` is called whenever there is more to tell than before.
  void wakeUpIs(std::function<void()> wakeUp) { wakeUp_ = std::move(wakeUp); }

 private:
  void tell(const std::vector<Repetitions::Line>& lines);
  void put(int severity, std::string_view text);
  bool tellLeftOut();
  std::string formatted(int severity, std::string_view text) const;
  void wakeUp();

  LogWriter writer_;
  const bool isJournal_;
  const Now now_;
  Repetitions repetitions_;
  std::size_t leftOut_ = 0;
  std::function<void()> wakeUp_;
  Sink sink_;
};

// The log on standard error.
Log& processLog();

// Logs a line there.
void logLine(std::string_view text, int severity = LOG_INFO);

// Logs a trace record there, "FACILITY LEVEL: TEXT". Beyond level 0 it was asked for.
void logTrace(const Qel::TraceRecord& record);

}  // namespace Host
