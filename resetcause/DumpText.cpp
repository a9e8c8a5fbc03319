#include "resetcause/DumpText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <optional>

#include "Qel/Number.h"
#include "resetcause/Root.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostPanicOctets = 400;

// What begins a dump, "Panic#1 Part1": why it was stored, and its number since the kernel's start.
struct Head {
  std::string_view reason;
  unsigned number;
};

std::optional<Head> headOf(std::string_view line) {
  constexpr std::array<std::string_view, 4> kReasons{"Panic", "Emergency", "Shutdown", "Oops"};
  const std::string_view reason = line.substr(0, line.find('#'));
  if (std::ranges::find(kReasons, reason) == kReasons.end()) return std::nullopt;
  const std::string_view rest = line.substr(std::min(reason.size() + 1, line.size()));
  const auto number = Qel::numberOf<unsigned>(rest.substr(0, rest.find_first_not_of("0123456789")));
  return number ? std::optional(Head{reason, *number}) : std::nullopt;
}

// "<4>[   12.345678][    T1] text", with or without what is before the text.
struct LogLine {
  std::optional<double> stamp = {};  // seconds since the kernel's start
  std::string_view message;
};

LogLine lineOf(std::string_view line) {
  LogLine read;
  if (line.starts_with('<')) line.remove_prefix(std::min(line.find('>'), line.size() - 1) + 1);
  while (line.starts_with('[')) {
    const std::size_t end = std::min(line.find(']'), line.size() - 1);
    if (!read.stamp) read.stamp = Qel::numberOf<double>(trimmed(line.substr(1, end - 1)));
    line.remove_prefix(end + 1);
  }
  read.message = trimmed(line);
  return read;
}

bool holds(std::string_view line, std::string_view part) {
  return line.find(part) != std::string_view::npos;
}

// Lines of the log that tell why the kernel was to restart.
bool tellsWhy(std::string_view message) {
  constexpr std::array<std::string_view, 5> kTelling{
      "sysrq: Resetting", "reboot: Restarting system", "reboot: Power down",
      "critical temperature reached", "emperature too high"};
  return std::ranges::any_of(kTelling, [&](std::string_view part) { return holds(message, part); });
}

// What the lines of a dump say together.
class DumpReader {
 public:
  void read(std::string_view line) {
    if (const auto head = headOf(line)) return begin(*head);
    const LogLine read = lineOf(line);
    if (read.stamp && number_ != 0) {
      const auto [end, isFirst] = ends_.try_emplace(number_, *read.stamp);
      if (!isFirst) end->second = std::max(end->second, *read.stamp);
    }
    // What a device or a program calls itself stands behind the name of a driver.
    const std::string_view message = read.message;
    constexpr std::string_view kPanic = "Kernel panic - not syncing: ";
    if (message.starts_with(kPanic)) panic_ = message.substr(kPanic.size(), kMostPanicOctets);
    if (message.starts_with(kSoftdog)) watchdog_ = true;
    // Heat explains a restart, not the other way round.
    if (tellsWhy(message) && !holds(restart_, "emperature")) {
      restart_ = message.substr(0, kMostPanicOctets);
    }
  }

  DumpText result() const {
    if (panicked_ != 0) {
      return {DumpText::Why::panic, panic_.empty() ? "no text" : panic_, behind(panicked_)};
    }
    if (restarted_ == 0) return {};
    if (watchdog_) return {DumpText::Why::watchdog, std::string(kSoftdog), behind(restarted_)};
    return {DumpText::Why::restart, restart_, behind(restarted_)};
  }

 private:
  static constexpr std::string_view kSoftdog = "softdog: Initiating system reboot";

  void begin(const Head& head) {
    number_ = head.number;
    if (head.reason == "Panic") panicked_ = head.number;
    if (head.reason == "Emergency" || head.reason == "Shutdown") restarted_ = head.number;
  }
  double behind(unsigned number) const {
    const auto end = ends_.find(number);
    return end == ends_.end() ? 0 : std::max(0.0, end->second - ends_.begin()->second);
  }

  unsigned number_ = 0;     // of the dump that is read
  unsigned panicked_ = 0;   // the number of such a dump
  unsigned restarted_ = 0;  // likewise
  bool watchdog_ = false;
  std::string panic_;
  std::string restart_;
  std::map<unsigned, double> ends_;  // of each dump, the stamp of its last line
};

}  // namespace

DumpText readDump(std::string_view text) {
  DumpReader reader;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    reader.read(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return reader.result();
}

}  // namespace ResetCause
