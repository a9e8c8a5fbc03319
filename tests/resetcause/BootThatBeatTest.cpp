// Power is lost before anything of a boot is on the disk but its beat, and nobody judged it. It is
// the boot before all the same, and nothing of an earlier one is told of it.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "resetcause/Machine.h"

namespace ResetCause {
namespace {

using resetcausetest::kBefore;
using resetcausetest::kBeforeStart;
using resetcausetest::kDown;
using resetcausetest::kHour;
using resetcausetest::kPanic;
using resetcausetest::kThis;
using resetcausetest::kThisStart;
using resetcausetest::Machine;
using What = WtmpRecord::What;

// Boots after those of the machine.
const std::string kFourth(32, '4');
const std::string kFifth(32, '5');

class BootThatBeatTest : public testing::Test {
 protected:
  void beats(const std::string& boot, double time) {
    machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                   fmt::format(R"({{"boot": "{}", "time": {:.3f}}})", boot, time));
  }
  void isRebooted(const std::string& boot, double seconds) {
    machine.says(boot, seconds, "System is rebooting.", resetcausetest::byLoginManager("reboot"));
    machine.says(boot, seconds + 3, "Journal stopped", resetcausetest::ofJournalsEnd());
  }
  // A dump that nobody moved.
  void isLeftBehind(double second, unsigned number, const std::string& text) {
    const auto id = (static_cast<std::uint64_t>(second) << 32U) + number;
    machine.writes(fmt::format("/sys/fs/pstore/dmesg-erst-{}", id), text);
  }
  std::string bootBefore() { return machine.judged().boots.previousId; }
  std::optional<double> startBefore() { return machine.judged().boots.previousStart; }

  Machine machine;
};

TEST_F(BootThatBeatTest, IsNotTheLastOnceMoreBehindABootThatDidNot) {
  machine.judgedAndKept();
  machine.loses(kThis);
  beats(kThis, kThisStart + 50);
  machine.reloads(kFourth, kThisStart + kHour);
  EXPECT_EQ(machine.judgedAndKept(), "11");
  // It is over before its first beat.
  machine.reloads(kFifth, kThisStart + kHour + 20);
  EXPECT_EQ(bootBefore(), kFourth);
}

TEST_F(BootThatBeatTest, FollowsOneThatNobodyJudgedEither) {
  machine.settle();
  machine.reloads(kFourth, kThisStart + kHour);
  beats(kFifth, kThisStart + 900);
  EXPECT_EQ(bootBefore(), kFifth);
  // By the clock it is of an earlier one, or of one yet to come.
  beats(kFifth, kThisStart - 900);
  EXPECT_EQ(bootBefore(), kThis);
  beats(kFifth, kThisStart + 2 * kHour);
  EXPECT_EQ(bootBefore(), kThis);
}

TEST_F(BootThatBeatTest, FollowsTheOneThatWasJudgedWhateverTheClock) {
  machine.judgedAndKept();
  machine.loses(kThis);
  beats(kFourth, kThisStart + 2 * kHour);
  machine.reloads(kFifth, kThisStart + kHour);
  EXPECT_EQ(bootBefore(), kFourth);
}

TEST_F(BootThatBeatTest, IsNotBeforeTheLastOfAnotherMachinesDiskWhereItCameBehind) {
  std::filesystem::remove_all(machine.folder() + "/proc");
  isRebooted(kBefore, kDown);
  beats(kFourth, kThisStart + 900);
  EXPECT_EQ(bootBefore(), kBefore);
  EXPECT_EQ(machine.rules(), "6");
}

TEST_F(BootThatBeatTest, DidNotStartWhenTheOneThatWasJudgedDid) {
  machine.judgedAndKept();
  machine.dumped(kThisStart + 900, kPanic, kThisStart + 1000);
  beats(kFourth, kThisStart + 1050);
  machine.wtmpIs({{What::boot, kThisStart + 5}, {What::boot, kThisStart + kHour + 5}});
  machine.reloads(kFifth, kThisStart + kHour);
  EXPECT_EQ(machine.rules(), "11");
  EXPECT_EQ(startBefore(), std::nullopt);
  // Nor does it where the journal has lost that one,
  machine.loses(kThis);
  EXPECT_EQ(startBefore(), std::nullopt);
  // nor when another did that the journal knows.
  machine.wtmpIs({{What::boot, kBeforeStart + 5}, {What::boot, kThisStart + kHour + 5}});
  EXPECT_EQ(startBefore(), std::nullopt);
}

TEST_F(BootThatBeatTest, HasItsOwnStartHoweverSoonItCame) {
  machine.judgedAndKept();
  beats(kFourth, kThisStart + 600);
  machine.wtmpIs({{What::boot, kThisStart + 5},
                  {What::boot, kThisStart + 65},
                  {What::boot, kThisStart + kHour + 5}});
  machine.reloads(kFifth, kThisStart + kHour);
  EXPECT_EQ(startBefore(), kThisStart + 65);
  // It panicked behind its last beat, after an oops before it that numbers both.
  isLeftBehind(kThisStart + 300, 1, "Oops#1 Part1\n<1>[  240.0] BUG: unable to handle\n");
  isLeftBehind(kThisStart + 300, 2, "Panic#2 Part1\n<0>[  550.0] Kernel panic - not syncing: x\n");
  EXPECT_EQ(machine.rules(), "1");
}

TEST_F(BootThatBeatTest, MayPanicInTheSecondOfItsLastBeat) {
  machine.judgedAndKept();
  beats(kFourth, kThisStart + 600.3);
  machine.wtmpIs({{What::boot, kThisStart + 5}, {What::boot, kThisStart + kHour + 5}});
  machine.reloads(kFifth, kThisStart + kHour);
  isLeftBehind(kThisStart + 600, 1, kPanic);
  EXPECT_EQ(machine.rules(), "1");
}

TEST_F(BootThatBeatTest, EndedByNoRegisterWithTheTimeOfAnotherReload) {
  machine.judgedAndKept();
  beats(kFourth, kThisStart + kHour + 50);
  machine.wtmpIs({{What::boot, kThisStart + 5}, {What::boot, kThisStart + 2 * kHour + 5}});
  machine.reloads(kFifth, kThisStart + 2 * kHour);
  const auto registers = [&](double time) {
    machine.writes("/run/norvek/reset-register.json",
                   fmt::format(R"({{"cause": "Line card pulled", "time": {:.0f}}})", time));
    return machine.rules();
  };
  EXPECT_EQ(registers(kBeforeStart - kHour), "11");
  EXPECT_EQ(registers(kThisStart + kHour + 60), "2m");
}

TEST_F(BootThatBeatTest, EndedByNoShutdownOfOneWhoseClockWasAhead) {
  machine.judgedAndKept();
  const double set = kThisStart - 24 * kHour;
  beats(kFourth, set + 30);
  machine.wtmpIs(
      {{What::boot, kThisStart + 5}, {What::shutdown, kThisStart + 5000}, {What::boot, set + 105}});
  machine.reloads(kFifth, set + 100);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(BootThatBeatTest, EndedByNoLaterShutdownWhereEachBootStartsIn1970) {
  machine.losesAll();
  machine.reloads(kFourth, 10);
  machine.judgedAndKept();
  machine.losesAll();
  beats(kFifth, 40);
  machine.wtmpIs({{What::boot, 15}, {What::shutdown, 9000}, {What::boot, 15}});
  machine.reloads(std::string(32, '6'), 10);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(BootThatBeatTest, MayShutDownByAClockThatWasSetALittleSince) {
  machine.keepsNoJournal();
  machine.losesAll();
  beats(kBefore, kBeforeStart + kDown + 1.5);
  machine.wtmpHas(kDown);
  EXPECT_EQ(resetcausetest::rulesOf(judge(machine.root(), *machine.clock_).verdict), "9");
}

}  // namespace
}  // namespace ResetCause
