// What earlier reloads left lies about for days, and clocks stand anywhere. None of it is told
// again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "resetcause/Machine.h"

namespace ResetCause {
namespace {

using resetcausetest::kBefore;
using resetcausetest::kBeforeStart;
using resetcausetest::kDown;
using resetcausetest::kDownTime;
using resetcausetest::kHour;
using resetcausetest::kOlder;
using resetcausetest::kOlderStart;
using resetcausetest::kPanic;
using resetcausetest::kThis;
using resetcausetest::kThisStart;
using resetcausetest::Machine;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class StaleEvidenceTest : public testing::Test {
 protected:
  Machine machine;
};

TEST_F(StaleEvidenceTest, ADumpOfAnEarlierReloadIsNoCause) {
  machine.dumped(kOlderStart + 9000, kPanic, kBeforeStart + 5);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, ADumpWhoseFolderWasMadeInThisBootIsOne) {
  // The clock of the hardware was wrong, that of the system was set by the network.
  machine.dumped(12345, kPanic, kThisStart + 5);
  EXPECT_EQ(machine.rules(), "1");
}

TEST_F(StaleEvidenceTest, ADumpThatWasJudgedIsNotJudgedAgain) {
  machine.dumped(kDownTime, kPanic);
  EXPECT_EQ(machine.judgedAndKept(), "1");
  machine.reloads(std::string(32, '4'), kThisStart + kHour);
  EXPECT_EQ(machine.judgedAndKept(), "11");
}

TEST_F(StaleEvidenceTest, ADumpThatWasJudgedIsNoCauseWhenTheClockGoesBack) {
  machine.dumped(kDownTime, kPanic);
  EXPECT_EQ(machine.judgedAndKept(), "1");
  // The next boot starts before that crash, and thinks that it lies ahead.
  machine.reloads(std::string(32, '4'), kDownTime - kHour);
  EXPECT_EQ(machine.judgedAndKept(), "11");
  machine.reloads(std::string(32, '5'), kThisStart + kHour);
  EXPECT_EQ(machine.judgedAndKept(), "11");
}

TEST_F(StaleEvidenceTest, ADumpThatIsMovedAfterItWasJudgedIsNoNewOne) {
  const std::string name = "dmesg-erst-" + std::to_string((std::uint64_t{1700015000} << 32U) + 1);
  machine.writes("/sys/fs/pstore/" + name, kPanic);
  EXPECT_EQ(machine.judgedAndKept(), "1");
  machine.dumped(1700015000, kPanic, kThisStart + 70);
  machine.reloads(std::string(32, '4'), kThisStart + kHour);
  EXPECT_EQ(machine.judgedAndKept(), "11");
}

TEST_F(StaleEvidenceTest, ANewDumpOfAClockThatIsWrongIsTold) {
  EXPECT_EQ(machine.judgedAndKept(), "11");
  machine.reloads(std::string(32, '4'), kThisStart + kHour);
  machine.dumped(12345, kPanic, kThisStart - kHour);
  EXPECT_EQ(machine.judgedAndKept(), "1");
}

TEST_F(StaleEvidenceTest, APanicAfterAnOopsHasItsOwnTime) {
  // The firmware's store numbers all of a boot from the second of the first.
  machine.dumped(kDownTime - 4000, "Oops#1 Part1\n<1>[ 1000.0] BUG: unable to handle\n");
  const auto id = static_cast<std::uint64_t>(kDownTime - 4000) << 32U;
  machine.writes(
      "/var/lib/systemd/pstore/" + std::to_string(id) + "/dmesg-erst-" + std::to_string(id + 2),
      "Panic#2 Part1\n<0>[ 5000.0] Kernel panic - not syncing: x\n");
  EXPECT_EQ(machine.judged().verdict.cause.time, kDownTime);
}

TEST_F(StaleEvidenceTest, NoDumpIsOfATimeAfterTheStart) {
  machine.dumped(kDownTime,
                 "Oops#1 Part1\n<1>[ 10.0] BUG: unable to handle\n"
                 "Panic#2 Part1\n<0>[ 99999999.0] Kernel panic - not syncing: x\n");
  EXPECT_EQ(machine.judged().verdict.cause.time, kDownTime);
}

TEST_F(StaleEvidenceTest, AnOopsThatTheMachineOutlivedIsNoCause) {
  machine.dumped(kDownTime - 60, "Oops#1 Part1\n<1>[ 4940.0] BUG: unable to handle\n");
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, ADumpOfSeveralPartsIsNamedByItsFirst) {
  machine.dumped(kDownTime, kPanic);
  const auto id = static_cast<std::uint64_t>(kDownTime) << 32U;
  const std::string folder = "/var/lib/systemd/pstore/" + std::to_string(id) + "/dmesg-erst-";
  machine.writes(folder + std::to_string(id + 2), "Panic#1 Part2\n<4>[ 1.0] before it\n");
  EXPECT_EQ(machine.judged().verdict.cause.evidence.front().place,
            machine.folder() + folder + std::to_string(id + 1));
}

TEST_F(StaleEvidenceTest, AJoinedDumpHasTheTimeOfItsFolder) {
  const auto id = static_cast<std::uint64_t>(kDownTime) << 32U;
  machine.writes("/var/lib/systemd/pstore/" + std::to_string(id + 1) + "/dmesg.txt", kPanic);
  EXPECT_EQ(machine.judged().verdict.cause.time, kDownTime);
  std::filesystem::remove_all(machine.folder() + "/var/lib/systemd/pstore");
  machine.writes("/var/lib/systemd/pstore/1700015000/dmesg.txt", kPanic);
  EXPECT_EQ(machine.judged().verdict.cause.time, kDownTime);
  std::filesystem::remove_all(machine.folder() + "/var/lib/systemd/pstore");
  machine.writes("/var/lib/systemd/pstore/some/dmesg.txt", kPanic);
  machine.changed("/var/lib/systemd/pstore/some", kThisStart + 5);
  EXPECT_EQ(machine.rules(), "1");
  EXPECT_EQ(machine.judged().verdict.cause.time, std::nullopt);
}

TEST_F(StaleEvidenceTest, AnEarlierBootsRecordsAreNoCause) {
  machine.says(kOlder, 9001, "System is rebooting.", resetcausetest::byLoginManager("reboot"));
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, AnEarlierBootsRequestIsNoCause) {
  machine.writes(
      "/var/lib/norvek-reset-cause/requests/" + kOlder + ".json",
      R"({"boot": ")" + kOlder + R"(", "user": "a", "reason": "b", "time": 1700009000})");
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, ARequestUnderTheNameOfAnotherBootIsPassedOver) {
  machine.writes(
      "/var/lib/norvek-reset-cause/requests/" + kBefore + ".json",
      R"({"boot": ")" + kOlder + R"(", "user": "a", "reason": "b", "time": 1700009000})");
  EXPECT_EQ(machine.rules(), "11");
  EXPECT_THAT(machine.judged().problems, ElementsAre(HasSubstr("another boot")));
}

TEST_F(StaleEvidenceTest, AnEarlierShutdownInWtmpIsNoCause) {
  machine.wtmpHas({});
  EXPECT_EQ(machine.rules(), "11");
  machine.wtmpHas(kDown);
  EXPECT_EQ(machine.rules(), "9");
}

TEST_F(StaleEvidenceTest, AShutdownInWtmpIsNoneOfABootWhoseStartWasLostThere) {
  // The boot before was too short for its own record: wtmp ends with the one before that.
  machine.startsAt(kBefore, kOlderStart + 100);
  machine.wtmpHas(9000);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, AShutdownInWtmpMomentsBeforeTheBootBeforeIsNoneOfIt) {
  machine.settle();
  machine.reloads(std::string(32, '4'), kThisStart + 60);
  // Power was lost before the start of the boot before was on the disk there.
  machine.startsAt(kThis, kThisStart + 60);
  machine.wtmpHas(kThisStart - 1 - kBeforeStart);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, AShutdownInWtmpThatWasJudgedIsNotJudgedAgain) {
  machine.wtmpHas(kDown);
  EXPECT_EQ(machine.judgedAndKept(), "9");
  // The clock goes back, and wtmp loses the starts of both boots.
  machine.reloads(std::string(32, '4'), kDownTime - 100);
  EXPECT_EQ(machine.judgedAndKept(), "11");
  machine.reloads(std::string(32, '5'), kDownTime + kHour);
  machine.startsAt(kThis, kDownTime + kHour);
  machine.wtmpHas(kDown);
  EXPECT_EQ(machine.judgedAndKept(), "11");
}

TEST_F(StaleEvidenceTest, AShutdownInWtmpCountsWhereNoClockWasSet) {
  const std::string before(32, '4');
  machine.reloads(before, 10);
  machine.says(before, kDown, "an hour like any other");
  machine.reloads(std::string(32, '5'), 20);
  machine.startsAt(kBefore, 10);
  machine.startsAt(kThis, 20);
  machine.wtmpHas(kDown);
  EXPECT_EQ(machine.rules(), "9");
  machine.startsAt(kBefore, kOlderStart);
  machine.wtmpHas(kDown);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, ABootThatLeftNothingInTheJournalIsStillTheOneBefore) {
  machine.loginManagerSays(kDown, "reboot", "System is rebooting.");
  machine.journalStops(kDown + 3);
  EXPECT_EQ(machine.judgedAndKept(), "6");
  // Power is lost before anything of it is on the disk but what was judged.
  machine.reloads(std::string(32, '4'), kThisStart + kHour);
  machine.loses(kThis);
  EXPECT_EQ(machine.rules(), "11");
  EXPECT_EQ(machine.judged().boots.previousId, kThis);
  EXPECT_EQ(machine.judged().verdict.cause.since, kThisStart);
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": ")" + kThis + R"(", "time": 1700020030})");
  EXPECT_EQ(machine.rules(), "11");
  EXPECT_EQ(machine.judged().verdict.cause.since, 1700020030);
}

TEST_F(StaleEvidenceTest, ABootThatLeftNothingButABeatIsTheOneBefore) {
  machine.judgedAndKept();
  const std::string brief(32, '4');
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": ")" + brief + R"(", "time": 1700030000})");
  machine.reloads(std::string(32, '5'), kThisStart + 4 * kHour);
  Boots boots = machine.judged().boots;
  EXPECT_EQ(boots.previousId, brief);
  EXPECT_EQ(boots.previousStart, std::nullopt);
  EXPECT_EQ(boots.lastSign, 1700030000);
  EXPECT_FALSE(boots.hasJournal);
  // wtmp knows when it began.
  machine.startsAt(kBefore, 1700029000);
  machine.startsAt(kThis, kThisStart + 4 * kHour);
  machine.wtmpHas({});
  EXPECT_EQ(machine.judged().boots.previousStart, 1700029005);
}

TEST_F(StaleEvidenceTest, TheBootThatRunsIsKnownLaterThoughItsJournalIsNotOnTheDiskYet) {
  machine.keepsNoJournal();
  EXPECT_THAT(judge(machine.root(), *machine.clock_).seen, Contains(bootMark(kThis)));
}

TEST_F(StaleEvidenceTest, AShutdownInWtmpIsNoneOfABootThatLivedOn) {
  machine.keepsNoJournal();
  machine.startsAt(kBefore, kOlderStart + 100);
  machine.wtmpHas(kDown);
  const auto beats = [&](double time) {
    machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                   R"({"boot": ")" + kBefore + R"(", "time": )" + std::to_string(time) + "}");
    return resetcausetest::rulesOf(judge(machine.root(), *machine.clock_).verdict);
  };
  EXPECT_EQ(beats(kOlderStart + 100 + kDown), "9");
  // It started a minute after it, which wtmp has lost: whoever beats is stopped before.
  EXPECT_EQ(beats(kOlderStart + 100 + kDown + 90), "11");
  EXPECT_EQ(beats(kOlderStart + 100 + kDown + 2 * kHour), "11");
}

TEST_F(StaleEvidenceTest, WithoutAJournalARestartMayHaveBeenInOrder) {
  machine.dumped(kDownTime, "Shutdown#1 Part1\n<6>[ 5000.1] reboot: Restarting system\n");
  EXPECT_EQ(machine.judged().verdict.cause.confidence, Confidence::certain);
  machine.keepsNoJournal();
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": ")" + kBefore + R"(", "time": 1700014990})");
  const auto judged = [&] { return judge(machine.root(), *machine.clock_).verdict.cause; };
  EXPECT_EQ(judged().text, "Immediate restart without shutdown");
  EXPECT_EQ(judged().confidence, Confidence::possible);
  EXPECT_THAT(judged().elseBe, HasSubstr("no journal"));
  machine.wtmpHas(kDown);
  EXPECT_EQ(judged().rule, "9");
}

TEST_F(StaleEvidenceTest, AMakersTimeOfAnotherReloadIsNamedAndPassedOver) {
  const auto registers = [&](double time) {
    machine.writes("/run/norvek/reset-register.json",
                   R"({"cause": "Line card pulled", "time": )" + std::to_string(time) + "}");
    return machine.rules();
  };
  EXPECT_EQ(registers(kThisStart + 100), "2m");
  EXPECT_EQ(registers(kBeforeStart - 100), "2m");
  EXPECT_THAT(machine.judged().problems, testing::IsEmpty());
  EXPECT_EQ(registers(kOlderStart), "11");
  EXPECT_THAT(machine.judged().problems, ElementsAre(HasSubstr("of another reload")));
}

TEST_F(StaleEvidenceTest, AWatchdogBeforeAStartThroughKexecIsNoCause) {
  machine.hasWatchdog("watchdog0", 0x20);
  EXPECT_EQ(machine.judgedAndKept(), "2");
  machine.says(kThis, 900, "System is rebooting with kexec.",
               resetcausetest::byLoginManager("kexec"));
  machine.says(kThis, 901, "Journal stopped", resetcausetest::ofJournalsEnd());
  machine.reloads(std::string(32, '4'), kThisStart + kHour);
  EXPECT_EQ(machine.judgedAndKept(), "6");
}

TEST_F(StaleEvidenceTest, WhatWasSaidStaysSaidInTheSameBoot) {
  machine.dumped(kDownTime, kPanic);
  const Judgement first = machine.judged();
  keep(machine.root(), first);
  machine.hasWatchdog("watchdog0", 0x20);
  machine.dumped(kDownTime + 1, "Emergency#1 Part1\n");
  const Judgement again = machine.judged();
  EXPECT_TRUE(again.isKept);
  EXPECT_EQ(again.verdict, first.verdict);
}

TEST_F(StaleEvidenceTest, BootsAreOrderedByTheJournalWhateverTheClock) {
  machine.startsAt(kThis, kOlderStart - kHour);
  machine.reloads(kThis, kOlderStart - kHour);
  machine.initSays(kDown, "Received SIGINT.");
  machine.initSays(kDown, "Activating special unit reboot.target...");
  const Judgement judgement = machine.judged();
  EXPECT_EQ(judgement.boots.previousId, kBefore);
  EXPECT_EQ(judgement.verdict.cause.rule, "7");
  EXPECT_THAT(notesOf(judgement.boots), ElementsAre(HasSubstr("set back")));
}

TEST_F(StaleEvidenceTest, WithoutAClockNoOldDumpIsTakenForANewOne) {
  machine.startsAt(kBefore, 10);
  machine.reloads(kBefore, 10);
  machine.dumped(kOlderStart + 9000, kPanic, kOlderStart + 9500);
  machine.reloads(kThis, 10);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(StaleEvidenceTest, AStartIn1970IsToldAsSuch) {
  machine.reloads(kThis, 10);
  EXPECT_THAT(notesOf(machine.judged().boots), Contains(HasSubstr("1970")));
}

TEST_F(StaleEvidenceTest, WithoutAnEarlierBootNothingIsKnown) {
  Machine fresh;
  fresh.keepsNoJournal();
  EXPECT_EQ(judge(fresh.root(), *fresh.clock_).verdict.cause.rule, "12");
}

TEST_F(StaleEvidenceTest, TheFirstBootOfAJournalHasNoEndBefore) {
  machine.loses(kOlder);
  machine.loses(kBefore);
  machine.says(kThis, 1, "Linux version 6.1.0", {{"_TRANSPORT", "kernel"}});
  EXPECT_EQ(machine.rules(), "12");
  EXPECT_THAT(machine.judged().problems, testing::IsEmpty());
}

TEST_F(StaleEvidenceTest, AHeartbeatTellsTheBootBeforeWhereNoJournalDoes) {
  machine.keepsNoJournal();
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": ")" + kBefore + R"(", "time": 1700015030})");
  const Judgement judgement = judge(machine.root(), *machine.clock_);
  EXPECT_EQ(judgement.verdict.cause.rule, "11");
  EXPECT_EQ(judgement.verdict.cause.since, 1700015030);
}

TEST_F(StaleEvidenceTest, AHeartbeatNarrowsTheWindow) {
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": ")" + kBefore + R"(", "time": 1700015030})");
  EXPECT_EQ(machine.judged().verdict.cause.since, 1700015030);
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": ")" + kOlder + R"(", "time": 1700015040})");
  EXPECT_EQ(machine.judged().verdict.cause.since, kDownTime - 10);
}

TEST_F(StaleEvidenceTest, AHeartbeatOfThisBootIsNoneOfTheBootBefore) {
  machine.keepsNoJournal();
  for (const char* name : {"heartbeat", "heartbeat-before"}) {
    machine.writes(std::string("/var/lib/norvek-reset-cause/") + name + ".json",
                   R"({"boot": ")" + kThis + R"(", "time": 1700020030})");
  }
  EXPECT_EQ(judge(machine.root(), *machine.clock_).verdict.cause.rule, "12");
}

TEST_F(StaleEvidenceTest, AStartJustBefore1970IsToldAsIts) {
  machine.startsAt(kThis, -0.5);
  machine.reloads(kThis, -0.5);
  EXPECT_EQ(machine.judged().boots.start, 0);
}

TEST_F(StaleEvidenceTest, WhatIsExplainedOfAnotherMachinesDiskIsWhatWasJudged) {
  machine.dumped(kDownTime, kPanic);
  std::filesystem::remove_all(machine.folder() + "/proc");
  const auto lines = [&] {
    machine.settle();
    std::vector<std::string> all;
    for (const Explanation& line : explain(machine.root(), *machine.clock_)) {
      if (line.matched) all.push_back(line.rule);
    }
    return all;
  };
  EXPECT_THAT(lines(), ElementsAre("1"));
  EXPECT_EQ(machine.judgedAndKept(), "1");
  EXPECT_THAT(lines(), ElementsAre("0", "1"));
}

TEST_F(StaleEvidenceTest, TheDiskOfAnotherMachineIsJudgedByItsLastBoot) {
  std::filesystem::remove_all(machine.folder() + "/proc");
  machine.loginManagerSays(kDown, "reboot", "System is rebooting.");
  const Judgement judgement = machine.judged();
  EXPECT_EQ(judgement.boots.id, kThis);
  EXPECT_EQ(judgement.verdict.cause.rule, "6+");
  keep(machine.root(), judgement);
  machine.hasWatchdog("watchdog0", 0x20);
  EXPECT_EQ(machine.rules(), "6+");
}

}  // namespace
}  // namespace ResetCause
