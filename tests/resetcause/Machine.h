#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "resetcause/Judgement.h"
#include "resetcause/Wtmp.h"
#include "support/ManualClock.h"

namespace resetcausetest {

// The boots of the machine, and when their kernels started unless the test says otherwise.
inline const std::string kOlder(32, '1');
inline const std::string kBefore(32, '2');
inline const std::string kThis(32, '3');
constexpr double kOlderStart = 1700000000;
constexpr double kBeforeStart = 1700010000;
constexpr double kThisStart = 1700020000;
// When the boot before this one went down, in seconds after its start.
constexpr double kDown = 5000;
constexpr double kDownTime = kBeforeStart + kDown;
constexpr double kHour = 3600;

// A dump of it.
constexpr char kPanic[] = "Panic#1 Part1\n<0>[ 1.1] Kernel panic - not syncing: sysrq\n";

// The disk of a machine in a folder of its own, made of what a test says happened.
class Machine {
 public:
  using Fields = std::map<std::string, std::string>;

  // It has run for two boots, and is in its third. Nothing tells of their ends.
  Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine();

  const std::string& folder() const { return folder_; }
  // Below the folder; makes the folders that it lies in.
  void writes(const std::string& path, const std::string& text) const;
  // When the file or folder was changed last.
  void changed(const std::string& path, double time) const;
  std::string read(const std::string& path) const;

  // The clock of a boot stands elsewhere from its start on.
  void startsAt(const std::string& boot, double time) { starts_[boot] = time; }
  // An entry of the journal, so many seconds after the start of the boot.
  void says(const std::string& boot, double seconds, const std::string& message,
            const Fields& fields = {});
  // Init says it.
  void initSays(double seconds, const std::string& message, const Fields& fields = {});
  // What an orderly end leaves, each so many seconds after the start of the boot before.
  void loginManagerSays(double seconds, const std::string& way, const std::string& message);
  void reaches(double seconds, const std::string& target);
  void journalStops(double seconds);
  // wtmp of the two boots and this one, with the shutdown of the one before.
  void wtmpHas(const std::optional<double>& shutdown);
  // wtmp of whatever boots.
  void wtmpIs(const std::vector<ResetCause::WtmpRecord>& records) const;

  // A dump, and the folder in which systemd-pstore put it, made at a time.
  void dumped(double second, const std::string& text, double made = kThisStart + 5);
  void hasWatchdog(const std::string& name, unsigned status) const;

  // What it said so far is nowhere to be read.
  void keepsNoJournal();
  // Its entries are gone from the journal; those of all boots are.
  void loses(const std::string& boot);
  void losesAll();
  // The machine goes on, and down again: what is this boot is the one before now.
  void reloads(const std::string& boot, double start);

  // What is on the disk at this moment is judged.
  ResetCause::Root root() const { return ResetCause::Root(folder_); }
  ResetCause::Judgement judged();
  // The rules of its causes in order, and its first cause's text.
  std::string rules();
  // The same, and the verdict is kept, as at each boot.
  std::string judgedAndKept();
  std::string cause() { return judged().verdict.cause.text; }
  // The journal as text, for those who want it damaged.
  std::string journalFile() const;
  // Writes the journal; judged() does it, too.
  void settle();

  const Qel::Ptr<support::ManualClock> clock_;

 private:
  std::string folder_;
  std::map<std::string, double> starts_;
  std::vector<std::string> entries_;  // in the order in which they were written
  std::size_t settled_ = 0;
};

// What entries of the journal carry, beside a message, by who wrote them: init, with what is its
// own of the entry; init of a target that it reached, and of a unit that failed; the login manager
// of a way down, and of the power key; the journal of its end.
Machine::Fields byInit(Machine::Fields fields = {});
Machine::Fields ofTarget(const std::string& target);
Machine::Fields ofFailedUnit(const std::string& unit);
Machine::Fields byLoginManager(const std::string& way);
Machine::Fields ofPowerKey();
Machine::Fields ofJournalsEnd();

// The rules of the causes in order.
std::string rulesOf(const ResetCause::Verdict& verdict);

}  // namespace resetcausetest
