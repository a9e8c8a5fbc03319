#include "resetcause/Life.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>

#include "resetcause/Heartbeat.h"
#include "resetcause/Request.h"
#include "resetcause/Wtmp.h"

namespace resetcausetest {

using ResetCause::Heartbeat;
using ResetCause::Requests;
using ResetCause::WtmpRecord;
using testing::Contains;
using testing::DoubleNear;
using testing::Ge;

namespace {

// In seconds.
constexpr double kDay = 24 * kHour;
constexpr double kBeatPeriod = 30;
constexpr double kFirstBeat = 12;
constexpr double kSync = 300;  // of the journal
// Of what is told: an end in order takes three, and a dump's id has whole ones.
constexpr double kTimeError = 4;
constexpr double kUnset = 10;  // what a clock stands at that nobody set

constexpr double kSome = 0.05;

std::string textOf(const ResetCause::Boots& boots) {
  return fmt::format("boot {} from {:.0f} after {} from {:.0f} to {:.0f}{}", boots.id, boots.start,
                     boots.previousId, boots.previousStart.value_or(0), boots.lastSign.value_or(0),
                     boots.hasJournal ? "" : ", of which there is no journal");
}

}  // namespace

Life::Life(unsigned seed) : dice_(seed) {
  machine_.hasWatchdog("watchdog0", 0);
  wtmp_ = {{WtmpRecord::What::boot, kThisStart + 5}};
  machine_.says(boot_, 1, "Linux version 6.1.0", {{"_TRANSPORT", "kernel"}});
  told_.first = {"11"};
  ends_ = {kDownTime};
  isJudged();
  wasJudged_ = true;
  runs();
}

double Life::between(double least, double most) {
  constexpr unsigned kSteps = 1U << 24U;
  return least + (most - least) * dice_.below(kSteps) / kSteps;
}

std::string Life::tag() const { return fmt::format("reload-{};", reload_); }

void Life::says(double seconds, const std::string& message, const Machine::Fields& fields) {
  if (seconds > written_) return;
  machine_.says(boot_, seconds, message, fields);
}

void Life::initSays(double seconds, const std::string& message) {
  says(seconds, message, byInit());
}

void Life::loginManagerSays(double seconds, const std::string& way, const std::string& message) {
  says(seconds, message, byLoginManager(way));
}

void Life::unitFails(double seconds) {
  const std::string unit = tag() + ".service";
  says(seconds, unit + ": Failed with result 'exit-code'.", ofFailedUnit(unit));
}

void Life::powerKeyIsPressed(double seconds) {
  says(seconds, "Power key pressed short.", ofPowerKey());
}

void Life::isRequested(double seconds) {
  Requests(machine_.root()).add({boot_, "alice", tag(), start_ + seconds});
}

void Life::requestIsTakenBack() { Requests(machine_.root()).remove(boot_); }

void Life::dumps(double seconds, const std::string& text) {
  const auto second = static_cast<std::uint64_t>(start_ + seconds);
  // Without a clock two may be of the same second.
  const std::uint64_t id = (second << 32U) + static_cast<unsigned>(reload_);
  machine_.writes(fmt::format("/sys/fs/pstore/dmesg-erst-{}", id), text);
}

void Life::isToReboot() {
  loginManagerSays(down_, "reboot", fmt::format("System is rebooting ({}).", tag()));
}

void Life::endsInOrder(const std::string& target) {
  initSays(down_ + 1, "Stopping user@1000.service...");
  says(down_ + 2, "Reached target " + target, ofTarget(target));
  says(down_ + 3, "Journal stopped", ofJournalsEnd());
  wtmp_.push_back({WtmpRecord::What::shutdown, start_ + down_ + 2});
}

void Life::panics() {
  dumps(down_,
        fmt::format("Panic#1 Part1\n<0>[{:12.6f}] Kernel panic - not syncing: {}\n", down_, tag()));
}

void Life::losesTheLast() {
  constexpr double kSoon = 60;
  written_ = down_ - between(0, kSync);
  if (down_ < kSoon && isLikely(0.5)) {
    written_ = 0;
    machine_.loses(boot_);
    leavesJournal_ = false;
  }
  const int lost = (down_ < kSoon && isLikely(0.5) ? 1 : 0) + (isLikely(2 * kSome) ? 1 : 0);
  for (int i = 0; i < lost && !wtmp_.empty(); ++i) wtmp_.pop_back();
}

void Life::reloads(const std::function<void()>& goesDown, const Told& told) {
  ++reload_;
  goesDown();
  beats();
  expects(told);
  startsAgain();
  runs();
}

void Life::runs() {
  down_ = isLikely(0.3) ? between(12, 120) : between(120, 2 * kDay);
  written_ = down_ + kHour;
  leavesJournal_ = true;
}

void Life::beats() {
  leavesBeat_ = down_ > kFirstBeat + kBeatPeriod;
  if (!leavesBeat_) return;
  machine_.clock_->nowIs(start_ + down_ - between(0, kBeatPeriod));
  Heartbeat(machine_.root()).beat(boot_, *machine_.clock_);
  if (!isLikely(kSome)) return;
  machine_.writes("/var/lib/norvek-reset-cause/heartbeat.json", std::string(96, '\0'));
  leavesBeat_ = false;
}

void Life::expects(const Told& told) {
  // What came before a boot that was not judged is told as well, where nothing of that boot is
  // left.
  if (leavesJournal_ || leavesBeat_) forgets();
  if (leavesJournal_ || leavesBeat_ || wasJudged_) last_ = boot_;
  told_.beside.insert(told_.first.begin(), told_.first.end());
  if (!told_.first.empty()) told_.beside.insert(told.first.begin(), told.first.end());
  told_.first.insert(told.first.begin(), told.first.end());
  told_.beside.insert(told.beside.begin(), told.beside.end());
  tags_.insert(tag());
  ends_.push_back(start_ + down_);
  // Nothing tells whether the register was set before that boot.
  if (isKexec_ && !wasJudged_) {
    told_.beside.insert(told.first.begin(), told.first.end());
    told_.first.insert("2");
  }
  losesSomething();
}

void Life::losesSomething() {
  if (isLikely(kSome)) wtmp_.clear();
  if (!wasJudged_ || !isLikely(kSome)) return;
  // Then wtmp tells, a dump of an end in order or a register that a start through kexec left, or
  // nothing.
  machine_.losesAll();
  told_.first.insert({"2", "3", "9", "11"});
  told_.beside.insert("9");
}

void Life::forgets() {
  told_ = {};
  tags_.clear();
  ends_.clear();
}

void Life::setsClock() {
  hasSetClock_ = isLikely(2 * kSome);
  const std::array<double, 5> stands{0, 0, -kHour, kDay, kUnset - now_};
  const std::size_t stand = below(stands.size());
  if (hasSetClock_) isUnset_ = stand + 1 == stands.size();
  if (hasSetClock_ || isUnset_) ahead_ = isUnset_ ? stands.back() : stands.at(stand);
}

void Life::startsAgain() {
  now_ += down_ + between(10, 200);
  setsClock();
  boot_ = fmt::format("{:032x}", 100 + reload_);
  start_ = clock();
  machine_.reloads(boot_, start_);
  if (!isKexec_) machine_.hasWatchdog("watchdog0", watchdog_);
  if (!isKexec_) watchdog_ = 0;
  isKexec_ = false;
  wtmp_.push_back({WtmpRecord::What::boot, start_ + 5});
  machine_.wtmpIs(wtmp_);
  const bool moves = !isLikely(kSome);
  if (moves) movesDumps();
  // Where the clock does not tell which dump is whose, there is but the memory.
  wasJudged_ = isUnset_ || hasSetClock_ || !moves || !isLikely(kSome);
  if (wasJudged_) isJudged();
}

void Life::movesDumps() const {
  const std::string from = machine_.folder() + "/sys/fs/pstore";
  if (!std::filesystem::exists(from)) return;
  for (const auto& file : std::filesystem::directory_iterator(from)) {
    const std::string name = file.path().filename();
    const std::string folder = "/var/lib/systemd/pstore/" + name.substr(name.rfind('-') + 1);
    machine_.writes(folder + "/" + name, machine_.read("/sys/fs/pstore/" + name));
    machine_.changed(folder, clock() + 4);
    std::filesystem::remove(file.path());
  }
}

void Life::isJudged() {
  const ResetCause::Judgement judgement = machine_.judged();
  const ResetCause::Verdict& verdict = judgement.verdict;
  SCOPED_TRACE(textOf(judgement.boots));
  EXPECT_EQ(judgement.boots.previousId, last_);
  EXPECT_THAT(told_.first, Contains(verdict.cause.rule)) << verdict.cause.text;
  comparesTexts(verdict.cause);
  comparesTimes(verdict.cause);
  for (const ResetCause::Cause& one : verdict.beside) {
    EXPECT_THAT(told_.beside, Contains(one.rule)) << one.text;
    comparesTexts(one);
  }
  keep(machine_.root(), judgement);
  Requests(machine_.root()).keepOnly(judgement.boots.id, judgement.boots.previousId);
  forgets();
}

void Life::comparesTexts(const ResetCause::Cause& cause) const {
  std::vector<std::string> texts{cause.text};
  for (const ResetCause::Evidence& one : cause.evidence) texts.push_back(one.text);
  for (const std::string& text : texts) {
    const std::size_t begin = text.find("reload-");
    if (begin == std::string::npos) continue;
    EXPECT_THAT(tags_, Contains(text.substr(begin, text.find(';', begin) + 1 - begin)));
  }
}

void Life::comparesTimes(const ResetCause::Cause& cause) const {
  if (cause.time) {
    EXPECT_THAT(ends_, Contains(DoubleNear(*cause.time, kTimeError)));
  }
  if (cause.since) {
    EXPECT_THAT(ends_, Contains(Ge(*cause.since - kTimeError)));
  }
}

}  // namespace resetcausetest
