#include "resetcause/DumpText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

#include "resetcause/Root.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostPanicOctets = 400;

// "<4>[   12.345678] text", with or without either.
std::string_view messageOf(std::string_view line) {
  if (line.starts_with('<')) line.remove_prefix(std::min(line.find('>'), line.size() - 1) + 1);
  if (line.starts_with('[')) line.remove_prefix(std::min(line.find(']'), line.size() - 1) + 1);
  return trimmed(line);
}

bool isHead(std::string_view line, std::string_view reason) {
  return line.size() > reason.size() + 1 && line.starts_with(reason) &&
         line[reason.size()] == '#' &&
         std::isdigit(static_cast<unsigned char>(line[reason.size() + 1])) != 0;
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
    if (isHead(line, "Panic")) panicked_ = true;
    if (isHead(line, "Emergency") || isHead(line, "Shutdown")) restarted_ = true;
    const std::string_view message = messageOf(line);
    constexpr std::string_view kPanic = "Kernel panic - not syncing: ";
    if (const std::size_t at = message.find(kPanic); at != std::string_view::npos) {
      panic_ = message.substr(at + kPanic.size(), kMostPanicOctets);
    }
    if (holds(message, "softdog: Initiating system reboot")) watchdog_ = true;
    // Heat explains a restart, not the other way round.
    if (tellsWhy(message) && !holds(restart_, "emperature")) {
      restart_ = message.substr(0, kMostPanicOctets);
    }
  }

  DumpText result() const {
    if (panicked_) return {DumpText::Why::panic, panic_.empty() ? "no text" : panic_};
    if (!restarted_) return {};
    if (watchdog_) return {DumpText::Why::watchdog, "softdog: Initiating system reboot"};
    return {DumpText::Why::restart, restart_};
  }

 private:
  bool panicked_ = false;
  bool restarted_ = false;
  bool watchdog_ = false;
  std::string panic_;
  std::string restart_;
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
