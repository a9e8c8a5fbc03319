// Sources that are damaged, huge, hostile or of another kind are named, and the rest is judged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "resetcause/Journal.h"
#include "resetcause/Machine.h"
#include "resetcause/Report.h"

namespace ResetCause {
namespace {

using resetcausetest::kBefore;
using resetcausetest::kDown;
using resetcausetest::kDownTime;
using resetcausetest::kOlderStart;
using resetcausetest::kThisStart;
using resetcausetest::Machine;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class HostileSourcesTest : public testing::Test {
 protected:
  // Whatever else is wrong, the watchdog has been seen.
  HostileSourcesTest() { machine.hasWatchdog("watchdog0", 0x20); }

  std::vector<std::string> problems() {
    const Judgement judgement = machine.judged();
    EXPECT_EQ(judgement.verdict.cause.text, "Watchdog expired");
    return judgement.problems;
  }
  void cutTo(const std::string& path, std::uintmax_t size) {
    std::filesystem::resize_file(machine.folder() + path, size);
  }

  Machine machine;
};

TEST_F(HostileSourcesTest, AJournalThatIsNoneIsNamed) {
  machine.settle();
  machine.writes(machine.journalFile(), "no journal");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("system.journal: ")));
}

TEST_F(HostileSourcesTest, ADamagedJournalBesideAGoodOneIsNamedAndPassedOver) {
  machine.settle();
  const std::string bad = machine.journalFile() + "~";
  machine.writes(bad, machine.read(machine.journalFile()).substr(0, 300));
  const Judgement judgement = machine.judged();
  EXPECT_THAT(judgement.problems, ElementsAre(HasSubstr(bad)));
  EXPECT_EQ(judgement.boots.previousId, kBefore);
}

TEST_F(HostileSourcesTest, AJournalDamagedInTheMiddleIsReadAsFarAsItGoes) {
  machine.settle();
  std::string octets = machine.read(machine.journalFile());
  for (std::size_t at = 4096; at < octets.size(); at += 997) octets[at] = '\x5a';
  machine.writes(machine.journalFile(), octets);
  problems();
}

TEST_F(HostileSourcesTest, AJournalCutShortIsNamed) {
  machine.settle();
  cutTo(machine.journalFile(), 100000);
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("system.journal: ")));
}

TEST_F(HostileSourcesTest, AJournalThatIsCutWhileItIsReadIsReadAsFarAsItGoes) {
  machine.settle();
  Findings findings;
  const Journal journal(machine.root(), findings);
  ASSERT_TRUE(journal.isOpen());
  cutTo(machine.journalFile(), 4096);
  EXPECT_TRUE(journal.isWhole());
  findings.attempt("journal", "", [&] { journal.boots(findings); });
  EXPECT_FALSE(journal.isWhole());
}

TEST_F(HostileSourcesTest, APipeOrAFolderInThePlaceOfAJournalIsNamed) {
  machine.settle();
  const std::string folder = machine.folder() + "/var/log/journal/" + std::string(32, 'c');
  std::filesystem::create_directory(folder + "/system@1.journal");
  ASSERT_EQ(::mkfifo((folder + "/system@2.journal").c_str(), 0600), 0);
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("system@1"), HasSubstr("system@2")));
  EXPECT_EQ(machine.judged().boots.previousId, kBefore);
}

TEST_F(HostileSourcesTest, AMachineWithoutAnIdHasAJournalAllTheSame) {
  for (const char* id : {"", "uninitialized\n"}) {
    machine.writes("/etc/machine-id", id);
    EXPECT_EQ(machine.judged().boots.previousId, kBefore) << id;
  }
}

TEST_F(HostileSourcesTest, AnotherMachinesJournalIsNotLookedAt) {
  machine.settle();
  const std::string other = "/var/log/journal/" + std::string(32, 'd') + "/system.journal";
  machine.writes(other, "no journal");
  EXPECT_THAT(problems(), ElementsAre());
}

TEST_F(HostileSourcesTest, AUsersEntryInTheJournalIsNoRecord) {
  machine.says(kBefore, kDown, "System is rebooting (lies).",
               {{"MESSAGE_ID", "98268866d1d54a499c4e98921d93bc40"},
                {"SHUTDOWN", "reboot"},
                {"_UID", "1000"}});
  machine.says(kBefore, kDown + 1, "Journal stopped",
               {{"MESSAGE_ID", "d93fb3c9c24d451a97cea615ce59c00b"}, {"_UID", "1000"}});
  EXPECT_THAT(problems(), ElementsAre());
  EXPECT_EQ(machine.rules(), "2");
}

TEST_F(HostileSourcesTest, APieceOfARecordAtTheEndOfWtmpIsPassedOver) {
  machine.wtmpHas(kDown);
  cutTo("/var/log/wtmp", 384 * 7 - 100);
  EXPECT_EQ(machine.rules(), "2 9");
}

TEST_F(HostileSourcesTest, ZeroedRecordsInWtmpArePassedOver) {
  constexpr std::size_t kThree = std::size_t{384} * 3;
  machine.wtmpHas(kDown);
  const std::string records = machine.read("/var/log/wtmp");
  machine.writes("/var/log/wtmp",
                 records.substr(0, kThree) + std::string(kThree, '\0') + records.substr(kThree));
  EXPECT_EQ(machine.rules(), "2 9");
}

TEST_F(HostileSourcesTest, AHugeWtmpIsReadFromItsEnd) {
  machine.wtmpHas(kDown);
  const std::string records = machine.read("/var/log/wtmp");
  cutTo("/var/log/wtmp", std::uintmax_t{384} * 60000);
  machine.writes("/tail", machine.read("/var/log/wtmp") + records);
  std::filesystem::rename(machine.folder() + "/tail", machine.folder() + "/var/log/wtmp");
  EXPECT_EQ(machine.rules(), "2 9");
}

TEST_F(HostileSourcesTest, WhatIsNoWtmpIsNamed) {
  machine.settle();
  const std::string path = machine.folder() + "/var/log/wtmp";
  std::filesystem::create_symlink("wtmp", path);
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("symbolic links")));
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("wtmp: it is no file")));
}

TEST_F(HostileSourcesTest, ABootWithoutAnIdIsNamed) {
  machine.writes("/proc/sys/kernel/random/boot_id", "none\n");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("it is no id of a boot")));
}

TEST_F(HostileSourcesTest, APipeInThePlaceOfAFileIsNotWaitedFor) {
  const std::string path = "/run/norvek/reset-register.json";
  machine.writes(path, "");
  std::filesystem::remove(machine.folder() + path);
  ASSERT_EQ(::mkfifo((machine.folder() + path).c_str(), 0600), 0);
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("it is no file")));
}

TEST_F(HostileSourcesTest, ALinkInThePlaceOfAFileIsNotFollowed) {
  machine.writes("/secret", R"({"cause": "a secret"})");
  machine.writes("/run/norvek/other", "");
  std::filesystem::create_symlink(machine.folder() + "/secret",
                                  machine.folder() + "/run/norvek/reset-register.json");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("reset-register.json")));
}

TEST_F(HostileSourcesTest, AHugeDumpIsNamed) {
  machine.dumped(kDownTime, std::string(2000000, 'x'));
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("it is too long")));
}

// A machine that crashed every minute, for days.
class ManyDumpsTest : public HostileSourcesTest {
 protected:
  ManyDumpsTest() { machine.hasWatchdog("watchdog0", 0); }

  std::string fileOf(double second) const {
    const auto id = (static_cast<std::uint64_t>(second) << 32U) + 1;
    return "/sys/fs/pstore/dmesg-erst-" + std::to_string(id);
  }
  // So many, a minute apart, the last of them in the boot before the last.
  void dumps(int count) {
    machine.writes(fileOf(kOlderStart), kPanic);
    for (int i = 1; i < count; ++i) {
      std::filesystem::create_hard_link(machine.folder() + fileOf(kOlderStart),
                                        machine.folder() + fileOf(kOlderStart - 60.0 * i));
    }
  }
  static constexpr char kPanic[] = "Panic#1 Part1\nKernel panic - not syncing: again\n";
};

TEST_F(ManyDumpsTest, TheNewestAreLookedAt) {
  dumps(12000);
  machine.writes(fileOf(kDownTime), kPanic);
  const Judgement judgement = machine.judged();
  EXPECT_EQ(judgement.verdict.cause.text, "Kernel panic: again");
  EXPECT_THAT(judgement.problems, ElementsAre(HasSubstr("the older ones are left out")));
}

TEST_F(ManyDumpsTest, WhatWasLeftOutOnceIsNotTakenForNewLater) {
  dumps(2100);
  keep(machine.root(), machine.judged());
  for (int i = 0; i < 200; ++i) {
    std::filesystem::remove(machine.folder() + fileOf(kOlderStart - 60.0 * i));
  }
  machine.reloads(std::string(32, '4'), kThisStart + 3600);
  EXPECT_EQ(machine.rules(), "11");
}

TEST_F(ManyDumpsTest, OneOfManyPartsIsReadAsFarAsThereIsRoom) {
  const auto id = static_cast<std::uint64_t>(kDownTime) << 32U;
  const std::string folder = "/var/lib/systemd/pstore/" + std::to_string(id) + "/dmesg-erst-";
  for (std::uint64_t part = 0; part < 9; ++part) {
    machine.writes(folder + std::to_string(id + part), kPanic + std::string(1000000, 'x'));
  }
  const Judgement judgement = machine.judged();
  EXPECT_EQ(judgement.verdict.cause.text, "Kernel panic: again");
  EXPECT_THAT(judgement.problems, ElementsAre(HasSubstr("the rest of the dump is left out")));
}

TEST_F(HostileSourcesTest, ACompressedDumpIsNamedAndNotRead) {
  machine.writes("/sys/fs/pstore/dmesg-erst-7301508827709440001.enc.z",
                 "Panic#1 Part1\nKernel panic - not syncing: lies\n");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("compressed")));
}

TEST_F(HostileSourcesTest, ADumpOfAnyOctetsIsShownAsText) {
  machine.hasWatchdog("watchdog0", 0);
  machine.dumped(kDownTime,
                 std::string("Panic#1 Part1\nKernel panic - not syncing: \x1b[2J\xff\0end", 47));
  std::ostringstream out;
  print(machine.judged(), out);
  EXPECT_THAT(out.str(), HasSubstr("Kernel panic: \\x1b[2J\\xff"));
  EXPECT_THAT(out.str(), Not(HasSubstr("\x1b")));
}

TEST_F(HostileSourcesTest, AStatusOfAWatchdogThatIsNoneIsNamed) {
  machine.writes("/sys/class/watchdog/watchdog1/bootstatus", "4294967295\n");
  machine.writes("/sys/class/watchdog/watchdog2/bootstatus", "soon\n");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("watchdog1"), HasSubstr("watchdog2")));
}

TEST_F(HostileSourcesTest, ADamagedRegisterOfTheMakerIsNamedWithThePlace) {
  machine.writes("/run/norvek/reset-register.json", R"({"cause": 7})");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("/cause")));
}

TEST_F(HostileSourcesTest, ARegisterOfTheMakerThatAllMayWriteIsNotBelieved) {
  const std::string path = "/run/norvek/reset-register.json";
  machine.writes(path, R"({"cause": "lies"})");
  std::filesystem::permissions(machine.folder() + path, std::filesystem::perms(0666));
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("others than root")));
  std::filesystem::permissions(machine.folder() + path, std::filesystem::perms(0644));
  if (::geteuid() != 0) return;
  ASSERT_EQ(::chown((machine.folder() + path).c_str(), 4242, 4242), 0);
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("others than root")));
}

TEST_F(HostileSourcesTest, TheLogOfTheRunningKernelIsNoneOfAnotherMachinesDisk) {
  machine.keepsNoJournal();
  machine.writes("/dev/kmsg", "6,1,1,-;x86/amd: Previous system reset reason [0x1]: another\n");
  EXPECT_EQ(judge(machine.root(), *machine.clock_).verdict.beside.size(), 0);
}

TEST_F(HostileSourcesTest, TheControllerOfTheRunningMachineIsNoneOfAnotherMachinesDisk) {
  machine.writes("/dev/kmsg", "");
  const std::string device = machine.folder() + "/dev/ipmi0";
  if (::mknod(device.c_str(), S_IFCHR | 0600, ::makedev(1, 3)) != 0) {
    GTEST_SKIP() << "only root can make devices";
  }
  EXPECT_THAT(problems(), ElementsAre());
}

TEST_F(HostileSourcesTest, AFileInThePlaceOfTheControllersDeviceIsNamed) {
  machine.writes("/dev/ipmi0", "");
  EXPECT_THAT(problems(), testing::Each(HasSubstr("/dev/ipmi0")));
  EXPECT_THAT(problems(), Not(testing::IsEmpty()));
}

TEST_F(HostileSourcesTest, ADamagedMemoryIsNamedAndJudgedAnew) {
  machine.writes("/var/lib/norvek-reset-cause/judged.json", R"({"boots": {"id": ")");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("judged.json")));
}

TEST_F(HostileSourcesTest, AMemoryOfImpossibleTimesIsNamedAndJudgedAnew) {
  keep(machine.root(), machine.judged());
  const std::string path = "/var/lib/norvek-reset-cause/judged.json";
  std::string text = machine.read(path);
  const std::string start = "\"start\": 1700020000.0";
  ASSERT_NE(text.find(start), std::string::npos);
  machine.writes(path, text.replace(text.find(start), start.size(), "\"start\": 1e300"));
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("judged.json: /boots/start")));
}

TEST_F(HostileSourcesTest, AHeartbeatAtAnImpossibleTimeIsNamed) {
  for (const char* time : {"1e300", "-1"}) {
    machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                   R"({"boot": ")" + kBefore + R"(", "time": )" + time + "}");
    EXPECT_THAT(problems(), ElementsAre(HasSubstr("heartbeat")));
  }
}

TEST_F(HostileSourcesTest, AHeartbeatOfNoBootLeadsToNoOtherFile) {
  machine.keepsNoJournal();
  machine.writes("/var/lib/norvek-reset-cause/requests/x", "");
  machine.writes(
      "/secret.json",
      R"({"boot": "../../../../secret", "user": "a", "reason": "b", "time": 1700009000})");
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json",
                 R"({"boot": "../../../../secret", "time": 1700009000})");
  EXPECT_THAT(judge(machine.root(), *machine.clock_).problems, ElementsAre(HasSubstr("heartbeat")));
}

TEST_F(HostileSourcesTest, ATornHeartbeatIsNamed) {
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json", R"({"boot": "22)");
  EXPECT_THAT(problems(), ElementsAre(HasSubstr("heartbeat")));
}

}  // namespace
}  // namespace ResetCause
