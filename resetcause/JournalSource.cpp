#include "resetcause/JournalSource.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>

namespace ResetCause {

namespace {

// Messages that systemd numbers (systemd.journal-fields(7), MESSAGE_ID).
constexpr char kShutdownRecord[] = "MESSAGE_ID=98268866d1d54a499c4e98921d93bc40";
constexpr char kUnitStarted[] = "MESSAGE_ID=39f53479d3a045ac8e11786248231fbf";
constexpr char kPowerKey[] = "MESSAGE_ID=b72ea4a2881545a0b50e200e55b9b071";
constexpr char kJournalStopped[] = "d93fb3c9c24d451a97cea615ce59c00b";
constexpr char kUnitFailed[] = "d9b373ed55a64feb8242e02dbe79a49c";

constexpr std::size_t kMostInitLines = 3000;
// In seconds.
constexpr double kKeyBeforePowerOff = 60;
constexpr double kFailedBeforeEnd = 10;
constexpr double kSignalBeforeReboot = 10;
// The reboot target itself gives up after half an hour.
constexpr double kRecordBeforeEnd = 35 * 60;
constexpr double kRehearsalBehindRecord = 1;

// "System is rebooting (TEXT)." has a text, "System is rebooting." has none.
std::string textInBrackets(std::string_view message) {
  const std::size_t begin = message.find(" (");
  if (begin == std::string_view::npos || !message.ends_with(").")) return {};
  return std::string(message.substr(begin + 2, message.size() - begin - 4));
}

// The end of one boot, in its journal.
class EndOfBoot {
 public:
  EndOfBoot(const Journal& journal, const std::string& boot, Findings& findings)
      : journal_(journal), boot_(boot), findings_(findings) {}

  void readAll() {
    journal_.look(boot_, {}, Journal::Way::backward, [&](const Journal::Entry& last) {
      end_ = last.monotonic();
      if (last.field("MESSAGE_ID") == kJournalStopped && last.isTrusted()) {
        findings_.add(evidence(Kind::journalStopped, last));
      }
      return false;
    });
    readRecords();
    const Journal::Matches targets{kUnitStarted, "UNIT=reboot.target", "UNIT=poweroff.target",
                                   "UNIT=halt.target", "UNIT=kexec.target"};
    lookAtRoots(targets, [&](const Journal::Entry& entry) {
      Evidence one = evidence(Kind::target, entry);
      const std::string unit = entry.field("UNIT");
      one.way = unit == "poweroff.target" ? "power-off" : unit.substr(0, unit.find('.'));
      findings_.add(std::move(one));
      return false;
    });
    for (Evidence& one : readInitLines(initLines(), place())) findings_.add(std::move(one));
  }

 private:
  std::string place() const { return journal_.place() + ", boot " + boot_; }
  Evidence evidence(Kind kind, const Journal::Entry& entry) const {
    return {kind, "journal", place(), entry.message(), entry.time()};
  }
  // The last one first; nobody else can have others looked at.
  void lookAtRoots(Journal::Matches matches, const Journal::See& see) const {
    matches.emplace_back("_UID=0");
    journal_.look(boot_, matches, Journal::Way::backward, see);
  }
  // The login manager's record, and the key that was pressed before it.
  void readRecords() {
    std::optional<double> recorded;
    const auto rehearsed = rehearsals();
    lookAtRoots({kShutdownRecord}, [&](const Journal::Entry& entry) {
      const double time = entry.monotonic();
      if (end_ - time > kRecordBeforeEnd) return false;
      const auto isBehind = [time](double line) {
        return line >= time && line <= time + kRehearsalBehindRecord;
      };
      if (std::ranges::any_of(rehearsed, isBehind)) return true;
      Evidence one = evidence(Kind::logind, entry);
      one.text = textInBrackets(one.text);
      one.way = entry.field("SHUTDOWN");
      recorded = time;
      findings_.add(std::move(one));
      return false;
    });
    if (!recorded) return;
    lookAtRoots({kPowerKey}, [&](const Journal::Entry& entry) {
      const double before = *recorded - entry.monotonic();
      if (before < 0) return true;
      if (before <= kKeyBeforePowerOff) findings_.add(evidence(Kind::powerKey, entry));
      return false;
    });
  }
  // `shutdown -k` leaves a record like any other, and this behind it.
  std::vector<double> rehearsals() const {
    std::vector<double> times;
    lookAtRoots({"MESSAGE=Running in dry run, suppressing action."},
                [&](const Journal::Entry& line) {
                  times.push_back(line.monotonic());
                  return end_ - times.back() <= kRecordBeforeEnd;
                });
    return times;
  }
  std::vector<InitLine> initLines() const {
    std::vector<InitLine> lines;
    journal_.look(boot_, {"_PID=1"}, Journal::Way::backward, [&](const Journal::Entry& entry) {
      InitLine line{entry.time(), entry.monotonic(), entry.message()};
      if (entry.field("MESSAGE_ID") == kUnitFailed) line.failedUnit = entry.field("UNIT");
      lines.push_back(std::move(line));
      return lines.size() < kMostInitLines;
    });
    std::ranges::reverse(lines);
    return lines;
  }

  const Journal& journal_;
  const std::string boot_;
  Findings& findings_;
  double end_ = 0;  // of its last entry, in seconds since the start of its kernel
};

bool stopsSomething(std::string_view message) {
  constexpr std::array<std::string_view, 6> kBegins{
      "Stopping ", "Stopped ", "Removed slice ", "Shutting down.", "Unmounting ", "Closed "};
  return std::ranges::any_of(kBegins,
                             [&](std::string_view begin) { return message.starts_with(begin); });
}

bool startsSomething(std::string_view message) {
  return message.starts_with("Starting ") || message.starts_with("Started ");
}

bool endsMachine(std::string_view message) {
  constexpr std::array<std::string_view, 4> kNames{"eboot", "ower", "alt", "kexec"};
  return std::ranges::any_of(
      kNames, [&](std::string_view name) { return message.find(name) != std::string_view::npos; });
}

using InitLines = std::vector<InitLine>;

// Ctrl-Alt-Del is a signal to init, which then starts the reboot target.
std::optional<InitLine> signalIn(const InitLines& lines) {
  std::optional<InitLine> signal;
  std::optional<InitLine> obeyed;
  for (const InitLine& line : lines) {
    if (line.message == "Received SIGINT.") signal = line;
    const bool isReboot = line.message.starts_with("Activating special unit reboot.target") ||
                          line.message.starts_with("Activating special unit ctrl-alt-del.target");
    if (signal && isReboot && line.monotonic - signal->monotonic <= kSignalBeforeReboot) {
      obeyed = signal;
    }
  }
  return obeyed;
}

// Where the end begins: from there on nothing is started any more but what ends the machine.
InitLines::const_iterator beginOfEnd(const InitLines& lines) {
  auto begin = lines.end();
  for (auto line = lines.end(); line != lines.begin();) {
    --line;
    if (startsSomething(line->message) && !endsMachine(line->message)) break;
    if (stopsSomething(line->message)) begin = line;
  }
  return begin;
}

// The failure just before init began to stop everything; those after it are of the end itself.
std::optional<InitLine> failureBefore(const InitLines& lines, InitLines::const_iterator end) {
  if (end == lines.end()) return std::nullopt;
  for (auto line = end; line != lines.begin();) {
    --line;
    if (end->monotonic - line->monotonic > kFailedBeforeEnd) break;
    if (!line->failedUnit.empty()) return *line;
  }
  return std::nullopt;
}

}  // namespace

std::vector<Evidence> readInitLines(const InitLines& lines, const std::string& place) {
  std::vector<Evidence> found;
  if (const auto signal = signalIn(lines)) {
    found.push_back({Kind::ctrlAltDel, "journal", place, signal->message, signal->time});
  }
  if (const auto failure = failureBefore(lines, beginOfEnd(lines))) {
    found.push_back({Kind::failedUnit, "journal", place, failure->failedUnit, failure->time});
  }
  if (!lines.empty() && lines.back().message.ends_with("Freezing execution.")) {
    const InitLine& last = lines.back();
    found.push_back({Kind::initCrashed, "journal", place, last.message, last.time});
  }
  return found;
}

void JournalSource::look(const Boots& boots, Findings& findings) const {
  findings.attempt(name(), journal_.place(),
                   [&] { EndOfBoot(journal_, boots.previousId, findings).readAll(); });
}

}  // namespace ResetCause
