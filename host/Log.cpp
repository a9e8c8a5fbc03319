#include "host/Log.h"

#include <fmt/format.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "Qel/Escape.h"
#include "Qel/Journal.h"

namespace Host {

Log::Log(int fd, std::string_view journalStream, Now now)
    : writer_(fd), isJournal_(Qel::isJournal(fd, journalStream)), now_(std::move(now)) {}

void Log::line(int severity, std::string_view text, std::string_view event) {
  const auto now = now_();
  tell(repetitions_.due(now));
  if (repetitions_.admits(event, {severity, std::string(text)}, now)) return put(severity, text);
  wakeUp();
}

void Log::detail(int severity, std::string_view text) { put(severity, text); }

void Log::tellWhatIsDue() {
  tell(repetitions_.due(now_()));
  if (writer_.finish()) tellLeftOut();
}

void Log::tellAll() {
  tell(repetitions_.all());
  if (writer_.finish()) tellLeftOut();
}

void Log::tell(const std::vector<Repetitions::Line>& lines) {
  for (const auto& [severity, text] : lines) put(severity, text);
}

void Log::put(int severity, std::string_view text) {
  if (sink_) return sink_(severity, text);
  if (tellLeftOut() && writer_.write(formatted(severity, text))) return;
  ++leftOut_;
  wakeUp();
}

bool Log::tellLeftOut() {
  if (leftOut_ == 0) return true;
  const auto text = fmt::format("lines left out because nobody read them: {}", leftOut_);
  if (!writer_.write(formatted(LOG_WARNING, text))) return false;
  leftOut_ = 0;
  return true;
}

std::string Log::formatted(int severity, std::string_view text) const {
  const auto level = isJournal_ ? fmt::format("<{}>", severity) : std::string();
  return level + "norvek-snmpd: " + Qel::printableLine(text) + "\n";
}

void Log::wakeUp() {
  if (wakeUp_) wakeUp_();
}

Log& processLog() {
  // Leaked, so that what is destroyed at the very end may log.
  static auto* const log = new Log(STDERR_FILENO, Qel::journalStreamOfEnvironment());
  return *log;
}

void logLine(std::string_view text, int severity) { processLog().line(severity, text); }

void logTrace(const Qel::TraceRecord& record) {
  const auto text =
      fmt::format("{} {}: {}", record.facility.view(), record.level, record.text.view());
  const int severity = Qel::severityOf(record.level);
  if (record.level > 0) return processLog().detail(severity, text);
  processLog().line(severity, text);
}

}  // namespace Host
