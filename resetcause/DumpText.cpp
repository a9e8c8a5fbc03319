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

// What begins a dump, "Panic#1 Part1": why it was stored, its number since the kernel's start, and
// which part of it this is. The first is the end of the log.
struct Head {
  std::string_view reason = {};
  unsigned number = 0;
  unsigned part = 0;

  bool isOlderThan(const Head& other) const noexcept {
    return number != other.number ? number < other.number : part > other.part;
  }
};

unsigned numberBehind(std::string_view begin, std::string_view text) {
  if (!text.starts_with(begin)) return 0;
  text.remove_prefix(begin.size());
  const std::size_t end = text.find_first_not_of("0123456789");
  return Qel::numberOf<unsigned>(text.substr(0, end)).value_or(0);
}

std::optional<Head> headOf(std::string_view line) {
  constexpr std::array<std::string_view, 4> kReasons{"Panic", "Emergency", "Shutdown", "Oops"};
  const std::string_view reason = line.substr(0, line.find('#'));
  if (std::ranges::find(kReasons, reason) == kReasons.end()) return std::nullopt;
  const std::string_view rest = line.substr(reason.size());
  const Head head{reason, numberBehind("#", rest),
                  numberBehind(" Part", rest.substr(std::min(rest.find(' '), rest.size())))};
  return head.number != 0 ? std::optional(head) : std::nullopt;
}

// "<4>[   12.345678][    T1] text", with or without what is before the text.
struct LogLine {
  std::optional<double> stamp = {};  // seconds since the kernel's start
  std::string_view message;
};

// In a dump that is damaged anything may stand there.
std::optional<double> stampOf(std::string_view text) {
  constexpr double kMost = 1e10;
  const auto seconds = Qel::numberOf<double>(trimmed(text));
  return seconds && *seconds >= 0 && *seconds <= kMost ? seconds : std::nullopt;
}

LogLine lineOf(std::string_view line) {
  LogLine read;
  if (line.starts_with('<')) line.remove_prefix(std::min(line.find('>'), line.size() - 1) + 1);
  while (line.starts_with('[')) {
    const std::size_t end = std::min(line.find(']'), line.size() - 1);
    if (!read.stamp) read.stamp = stampOf(line.substr(1, end - 1));
    line.remove_prefix(end + 1);
  }
  read.message = trimmed(line);
  return read;
}

bool holds(std::string_view line, std::string_view part) {
  return line.find(part) != std::string_view::npos;
}

bool tellsHeat(std::string_view message) {
  return holds(message, "critical temperature reached") || holds(message, "emperature too high");
}

// How the machine went down, by a line that the kernel ends its log with; empty for any other line.
std::string_view wayIn(std::string_view message) {
  constexpr std::array<std::array<std::string_view, 2>, 3> kEnds{
      {{"Restarting system", "reboot"}, {"Power down", "power-off"}, {"System halted", "halt"}}};
  constexpr std::string_view kPrefix = "reboot: ";
  if (message.starts_with("sysrq: Resetting")) return "reboot";
  const bool hasPrefix = message.starts_with(kPrefix);
  if (hasPrefix) message.remove_prefix(kPrefix.size());
  for (const auto& [line, way] : kEnds) {
    if (hasPrefix ? message.starts_with(line) : message == line) return way;
  }
  return {};
}

// What the lines of a dump say together.
class DumpReader {
 public:
  void read(std::string_view line) {
    if (const auto head = headOf(line)) return begin(*head);
    const LogLine read = lineOf(line);
    if (read.stamp && head_.number != 0) {
      const auto [end, isFirst] = ends_.try_emplace(head_.number, *read.stamp);
      if (!isFirst) end->second = std::max(end->second, *read.stamp);
    }
    // What a device or a program calls itself stands behind the name of a driver.
    const std::string_view message = read.message;
    if (message.starts_with(kPanic)) note(panic_, read);
    if (message.starts_with(kSoftdog)) watchdog_ = true;
    if (tellsHeat(message)) note(heat_, read);
    if (!wayIn(message).empty()) note(end_, read);
  }

  DumpText result() const {
    if (panicked_ != 0) {
      const std::string_view text = panic_ ? panic_->line.message.substr(kPanic.size()) : "";
      return {DumpText::Why::panic,
              text.empty() ? "no text" : std::string(text.substr(0, kMostOctets)),
              {},
              behind(panicked_)};
    }
    if (restarted_.number == 0) return {};
    const double time = behind(restarted_.number);
    if (watchdog_) return {DumpText::Why::watchdog, std::string(kSoftdog), {}, time};
    const std::string_view end = messageNearEnd(end_);
    // Heat explains a restart, not the other way round.
    const std::string_view heat = messageNearEnd(heat_);
    const std::string_view text = (heat.empty() ? end : heat).substr(0, kMostOctets);
    // An emergency is a restart, and need not say so.
    const std::string_view way =
        end.empty() && restarted_.reason == "Emergency" ? "reboot" : wayIn(end);
    return {DumpText::Why::restart, std::string(text), std::string(way), time};
  }

 private:
  static constexpr std::string_view kPanic = "Kernel panic - not syncing: ";
  static constexpr std::string_view kSoftdog = "softdog: Initiating system reboot";
  static constexpr std::size_t kMostOctets = 400;
  // A log goes back to what has long been over. In seconds.
  static constexpr double kNearEnd = 600;

  // A line that tells something, and where it stands.
  struct Noted {
    Head head;
    LogLine line;
  };

  void begin(const Head& head) {
    head_ = head;
    if (head.reason == "Panic") panicked_ = head.number;
    const bool isRestart = head.reason == "Emergency" || head.reason == "Shutdown";
    if (isRestart && head.number >= restarted_.number) restarted_ = head;
  }
  // Keeps the last one.
  void note(std::optional<Noted>& noted, const LogLine& line) const {
    if (!noted || !head_.isOlderThan(noted->head)) noted = Noted{head_, line};
  }
  // Of a line without a stamp nothing tells that it is older.
  std::string_view messageNearEnd(const std::optional<Noted>& noted) const {
    if (!noted) return {};
    const auto& stamp = noted->line.stamp;
    const bool isNear = !stamp || ends_.empty() || ends_.rbegin()->second - *stamp <= kNearEnd;
    return isNear ? noted->line.message : std::string_view();
  }
  double behind(unsigned number) const {
    const auto end = ends_.find(number);
    return end == ends_.end() ? 0 : std::max(0.0, end->second - ends_.begin()->second);
  }

  Head head_;              // of the dump that is read
  unsigned panicked_ = 0;  // the number of such a dump
  Head restarted_;         // likewise
  bool watchdog_ = false;
  std::optional<Noted> panic_;
  std::optional<Noted> heat_;
  std::optional<Noted> end_;
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
