// What reads foreign octets and texts: dumps, wtmp, replies of a controller, a maker's register.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>
#include <utmpx.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "resetcause/Bmc.h"
#include "resetcause/Child.h"
#include "resetcause/DumpText.h"
#include "resetcause/JournalSource.h"
#include "resetcause/KernelSource.h"
#include "resetcause/MakerSource.h"
#include "resetcause/PstoreSource.h"
#include "resetcause/Wtmp.h"
#include "support/ProblemOf.h"

namespace ResetCause {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Why = DumpText::Why;

TEST(DumpTextTest, APanicSaysMoreThanTheRestartBehindIt) {
  const DumpText dump = readDump(
      "Emergency#2 Part1\n<6>[ 2.0] reboot: Restarting system\n"
      "Panic#1 Part1\n<0>[ 1.0] Kernel panic - not syncing: Fatal exception\n");
  EXPECT_EQ(dump, (DumpText{Why::panic, "Fatal exception"}));
}

TEST(DumpTextTest, AnOopsThatWasSurvivedIsNoReload) {
  EXPECT_EQ(readDump("Oops#1 Part1\n<1>[ 1.0] BUG: unable to handle page fault\n"), DumpText());
}

TEST(DumpTextTest, APanicWithoutItsTextIsStillOne) {
  EXPECT_EQ(readDump("Panic#1 Part2\n<4>[ 1.0] CPU: 0\n"), (DumpText{Why::panic, "no text"}));
}

TEST(DumpTextTest, OnlyTheKernelsOwnLineIsAPanicsText) {
  const auto text = [](const std::string& lines) {
    return readDump("Panic#1 Part1\n" + lines + "\n").text;
  };
  EXPECT_EQ(text("<0>[    1.0][    T1] Kernel panic - not syncing: Fatal exception"),
            "Fatal exception");
  EXPECT_EQ(text("<0>[ 1.0] Kernel panic - not syncing: Fatal exception\n"
                 "<0>[ 1.1] ---[ end Kernel panic - not syncing: Fatal exception ]---"),
            "Fatal exception");
  EXPECT_EQ(text("<6>[ 1.0] usb 1-1: Product: Kernel panic - not syncing: lies"), "no text");
  EXPECT_EQ(readDump("Emergency#1 Part1\n<6>[ 1.0] usb 1-1: Product: softdog: Initiating system "
                     "reboot\n")
                .why,
            Why::restart);
}

TEST(DumpTextTest, OfTwoPanicTextsTheNewestIsTold) {
  const std::string first = "Panic#2 Part1\n<0>[ 9.0] Kernel panic - not syncing: newer\n";
  const std::string second = "Panic#2 Part2\n<0>[ 8.0] Kernel panic - not syncing: older\n";
  const std::string oops = "Oops#1 Part1\n<0>[ 7.0] Kernel panic - not syncing: oldest\n";
  EXPECT_EQ(readDump(first + second + oops).text, "newer");
  EXPECT_EQ(readDump(oops + second + first).text, "newer");
}

TEST(DumpTextTest, WhatIsNoTimeSinceTheStartIsNoStamp) {
  for (const std::string stamp : {"nan", "inf", "-1e9", "1e300"}) {
    const std::string damaged = "<6>[ " + stamp + "] x\n";
    EXPECT_EQ(readDump("Shutdown#1 Part1\n" + damaged + "<0>[ 9.0] reboot: Power down\n").way,
              "power-off")
        << stamp;
    EXPECT_EQ(readDump("Oops#1 Part1\n" + damaged + "<1>[ 5.0] BUG\nPanic#2 Part1\n" + damaged +
                       "<0>[ 9.0] Kernel panic - not syncing: x\n")
                  .behind,
              4.0)
        << stamp;
  }
}

TEST(DumpTextTest, ItsLastLineTellsHowTheMachineWentDown) {
  const auto wayOf = [](const std::string& lines) { return readDump("Shutdown#2 " + lines).way; };
  EXPECT_EQ(wayOf("Part1\n<0>[ 9.0] reboot: Power down\n"), "power-off");
  EXPECT_EQ(wayOf("Part1\n<0>[ 9.0] Power down\n"), "power-off");
  EXPECT_EQ(wayOf("Part1\nSystem halted\n"), "halt");
  EXPECT_EQ(wayOf("Part1\nreboot: Restarting system with command 'bootloader'"), "reboot");
  EXPECT_EQ(wayOf("Part1\nreboot: Power off not available: System halted instead\n"
                  "reboot: System halted\n"),
            "halt");
  EXPECT_EQ(wayOf("Part1\nreboot: Power down\nreboot: Restarting system\n"), "reboot");
  // The first part is the newest, wherever it lies.
  EXPECT_EQ(wayOf("Part1\nreboot: Power down\nShutdown#2 Part2\nreboot: System halted\n"),
            "power-off");
  EXPECT_EQ(wayOf("Part2\nreboot: System halted\nShutdown#2 Part1\nreboot: Power down\n"),
            "power-off");
  EXPECT_EQ(wayOf("Part1\nreboot: Power down\nOops#1 Part1\nreboot: System halted\n"), "power-off");
}

TEST(DumpTextTest, OnlyTheKernelsOwnLineTellsHowItWentDown) {
  for (const char* line : {"usb 1-1: Product: reboot: Power down", "Power down the ports",
                           "pci 0000:01:00.0: Power down", "reboot: scheduled"}) {
    const DumpText dump = readDump("Shutdown#1 Part1\n<6>[ 1.0] " + std::string(line) + "\n");
    EXPECT_EQ(dump, (DumpText{Why::restart, ""})) << line;
  }
}

TEST(DumpTextTest, AnEmergencyIsARestart) {
  EXPECT_EQ(readDump("Emergency#1 Part1\n"), (DumpText{Why::restart, "", "reboot"}));
  EXPECT_EQ(readDump("Emergency#2 Part1\n[ 9.0] reboot: Power down\n[ 50.0] sysrq: Resetting\n"),
            (DumpText{Why::restart, "sysrq: Resetting", "reboot"}));
}

TEST(DumpTextTest, OfTwoRestartsTheLaterOneCountsWhereverItLies) {
  const std::string hung = "Shutdown#1 Part1\n[ 9.0] late\n";
  const std::string forced = "Emergency#2 Part1\n[ 50.0] later\n";
  const DumpText dump{Why::restart, "", "reboot", 41};
  EXPECT_EQ(readDump(hung + forced), dump);
  EXPECT_EQ(readDump(forced + hung), dump);
}

TEST(DumpTextTest, OnlyWhatIsNearTheEndOfTheLogTellsWhy) {
  const auto textOf = [](const std::string& stamp, const std::string& line) {
    return readDump("Emergency#1 Part2\n" + stamp + line +
                    "\nEmergency#1 Part1\n<6>[ 9000.0] sysrq: SysRq\n<6>[ 8000.0] late\n")
        .text;
  };
  const std::string heat = "thermal: critical temperature reached, shutting down";
  EXPECT_EQ(textOf("<0>[ 8400.0] ", heat), heat);
  EXPECT_EQ(textOf("<0>[ 8399.9] ", heat), "");
  EXPECT_EQ(textOf("", heat), heat);
  EXPECT_EQ(textOf("<0>[ 8399.9] ", "reboot: Power down"), "");
}

TEST(DumpTextTest, HeatExplainsARestartNotTheOtherWayRound) {
  EXPECT_EQ(readDump("Shutdown#1 Part1\n[ 5.0] reboot: HARDWARE PROTECTION shutdown (Temperature "
                     "too high)\n[ 6.0] reboot: Power down\n"),
            (DumpText{Why::restart, "reboot: HARDWARE PROTECTION shutdown (Temperature too high)",
                      "power-off"}));
}

TEST(DumpTextTest, APanicLongAfterAnOopsTellsHowLong) {
  const DumpText dump = readDump(
      "Panic#2 Part1\n<0>[ 9000.5] Kernel panic - not syncing: Fatal exception\n"
      "Oops#1 Part1\n<1>[ 1000.5] BUG: unable to handle page fault\n"
      "Panic#2 Part2\n<4>[ 8999.5] CPU: 0\n");
  EXPECT_EQ(dump.behind, 8000);
  EXPECT_EQ(readDump("Panic#1 Part1\n<0>[ 9000.5] Kernel panic - not syncing: x\n").behind, 0);
}

TEST(DumpTextTest, TextsOfOthersAreNoDumps) {
  for (const char* text : {"", "\n", "<", "[", "<>[]", "Panic", "Panic#", "Panicked#1\n"}) {
    EXPECT_EQ(readDump(text), DumpText()) << text;
  }
}

TEST(DumpNameTest, HasTheSecondOfTheCrash) {
  EXPECT_EQ(timeOfDump("dmesg-erst-7301444403200000001"), 1700000000);
  EXPECT_EQ(timeOfDump("dmesg-efi-170000000001001"), 1700000000);
  EXPECT_EQ(timeOfDump("dmesg-efi_pstore-170000000001001"), 1700000000);
  // Of the year 2040.
  EXPECT_EQ(timeOfDump("dmesg-erst-9260432719093956609"), 2208988800);
  EXPECT_EQ(timeOfDump("dmesg-erst-7301444403200000001.enc.z"), 1700000000);
  for (const char* name : {"dmesg-erst-", "dmesg-erst-x", "dmesg-efi-99999999999999999999999",
                           "console-ramoops-0", "dmesg.txt"}) {
    EXPECT_EQ(timeOfDump(name), std::nullopt) << name;
  }
}

std::string record(short type, const char* user, std::int32_t time) {
  utmpx one{};
  one.ut_type = type;
  std::strncpy(one.ut_user, user, sizeof one.ut_user);
  one.ut_tv.tv_sec = time;
  return {reinterpret_cast<const char*>(&one), sizeof one};
}

TEST(WtmpTest, TellsStartsAndShutdownsInTheirOrder) {
  using What = WtmpRecord::What;
  const std::string octets = record(BOOT_TIME, "reboot", 100) + record(RUN_LVL, "runlevel", 101) +
                             record(USER_PROCESS, "shutdown", 102) +
                             record(RUN_LVL, "shutdown", 103) + std::string(384, '\0');
  EXPECT_THAT(readWtmp(octets),
              ElementsAre(WtmpRecord{What::boot, 100}, WtmpRecord{What::shutdown, 103}));
  EXPECT_THAT(readWtmp(octets + "half a record"), testing::SizeIs(2));
}

TEST(WtmpTest, IsSplitAtThisBootWhetherItsRecordIsThereOrNot) {
  using What = WtmpRecord::What;
  const std::vector<WtmpRecord> before{{What::boot, 100}, {What::shutdown, 190}};
  std::vector<WtmpRecord> after = before;
  after.push_back({What::boot, 201});
  for (const auto& records : {before, after}) {
    const WtmpBefore split = beforeBoot(records, 200, 99);
    EXPECT_EQ(split.start, 100);
    EXPECT_EQ(split.shutdown, 190);
  }
  // The boot before has not shut down, and this one has no record yet.
  EXPECT_EQ(beforeBoot({{What::shutdown, 90}, {What::boot, 100}}, 200, 99).shutdown, std::nullopt);
  EXPECT_EQ(beforeBoot({}, 200, 99).start, std::nullopt);
}

// A controller that replies as it was told to.
class TestBmc : public Bmc {
 public:
  std::string reply(std::uint8_t function, std::uint8_t command, std::string_view data) override {
    if (function == 0x0a && command == 0x40) {
      return {'\x51', static_cast<char>(log.size()), '\0', '\0', '\0'};
    }
    if (function == 0x0a) {
      const unsigned id = static_cast<unsigned char>(data[2]);
      const auto found = id == 0xff && !log.empty() ? std::prev(log.end()) : log.find(id);
      if (found == log.end()) throw SourceException("there is no such record");
      if (++asked > patience) throw SourceException("it takes too long");
      return found->second;
    }
    if (command == 0x07 && refusal != 0) throw RefusalException(refusal);
    return command == 0x07 ? restartCause : chassisStatus;
  }

  std::map<unsigned, std::string> log;
  std::uint8_t refusal = 0;  // of the restart cause; 0 for none
  std::string restartCause = std::string("\x00\x00", 2);
  std::string chassisStatus = std::string("\x21\x00\x00", 3);
  int asked = 0;
  int patience = 10000;
};

// The octets of a reply: the next record's id, then the record.
std::string selReply(std::uint8_t id, std::uint16_t next, std::uint32_t time, std::uint8_t sensor,
                     std::uint8_t event, std::uint8_t type = 0x6f) {
  std::string reply(18, '\0');
  const auto put = [&](std::size_t at, std::uint32_t value) {
    reply[at] = static_cast<char>(value & 0xffU);
  };
  put(0, next);
  put(1, next >> 8U);
  put(2, id);
  put(4, 2);
  for (std::size_t i = 0; i < 4; ++i) put(5 + i, time >> (8 * i));
  put(12, sensor);
  put(14, type);
  put(15, event);
  return reply;
}

const Boots kBoots{.id = "c",
                   .start = 1700002000,
                   .previousId = "b",
                   .previousStart = 1700001000,
                   .lastSign = 1700001500};

Findings asked(TestBmc& bmc, Findings::Marks known = {}) {
  Findings findings(std::move(known));
  askBmc(bmc, "bmc0", kBoots, findings);
  return findings;
}

TEST(BmcTest, AWatchdogsRecordOfThisReloadIsEvidence) {
  TestBmc bmc;
  bmc.log[0] = selReply(1, 2, 1700000500, 0x23, 0x01);
  bmc.log[2] = selReply(2, 3, 1700001600, 0x23, 0xc1);
  bmc.log[3] = selReply(3, 4, 1700001601, 0x23, 0x00);
  bmc.log[4] = selReply(4, 0xffff, 1700001602, 0x08, 0x01);
  const Findings findings = asked(bmc);
  ASSERT_THAT(findings.evidence(), testing::SizeIs(1));
  EXPECT_EQ(findings.evidence()[0].kind, Kind::bmcWatchdog);
  EXPECT_EQ(findings.evidence()[0].time, 1700001600);
  EXPECT_THAT(findings.problems(), IsEmpty());
}

TEST(BmcTest, TheLogIsReadFromTheLastRecordThatWasSeen) {
  TestBmc bmc;
  bmc.log[0] = bmc.log[1] = selReply(1, 2, 1700001550, 0x23, 0x01);
  bmc.log[2] = selReply(2, 0xffff, 1700001560, 0x08, 0x00);
  const Findings first = asked(bmc);
  EXPECT_THAT(first.seen(), testing::Contains("sel 2 1700001560"));
  bmc.asked = 0;
  const Findings again = asked(bmc, first.seen());
  EXPECT_THAT(again.evidence(), IsEmpty());
  EXPECT_EQ(bmc.asked, 1);
  EXPECT_THAT(again.seen(), testing::Contains("sel 2 1700001560"));
}

std::vector<std::string> placesIn(const Findings& findings) {
  std::vector<std::string> places;
  for (const Evidence& one : findings.evidence()) places.push_back(one.place);
  return places;
}

TEST(BmcTest, OnlyWhatIsBehindTheLastRecordThatWasSeenIsNew) {
  TestBmc bmc;
  bmc.log[0] = bmc.log[1] = selReply(1, 2, 1700001550, 0x23, 0x01);
  bmc.log[2] = selReply(2, 3, 1700001560, 0x08, 0x00);
  bmc.log[3] = selReply(3, 4, 77, 0x23, 0x01);
  bmc.log[4] = selReply(4, 0xffff, 1700001600, 0x08, 0x00);
  EXPECT_THAT(placesIn(asked(bmc, {"sel 2 1700001560", judgedMark("b")})),
              ElementsAre(HasSubstr("record 3")));
}

TEST(BmcTest, WhereTheLastRecordThatWasSeenIsGoneTimesDecide) {
  TestBmc bmc;
  bmc.log[0] = bmc.log[1] = selReply(1, 2, 1600000000, 0x23, 0x01);
  bmc.log[2] = selReply(2, 3, 77, 0x23, 0x01);
  bmc.log[3] = selReply(3, 0xffff, 1700001600, 0x23, 0x01);
  EXPECT_THAT(placesIn(asked(bmc, {"sel 7 1650000000", judgedMark("b")})),
              ElementsAre(HasSubstr("record 3")));
}

TEST(BmcTest, ALogThatWasClearedIsReadFromItsBegin) {
  TestBmc bmc;
  bmc.log[0] = bmc.log[1] = selReply(1, 7, 1700001600, 0x23, 0x02);
  bmc.log[7] = selReply(7, 8, 1700001650, 0x08, 0x00);
  bmc.log[8] = selReply(8, 0xffff, 1700001700, 0x08, 0x00);
  // The last record that was seen is gone; another one may have its number now.
  for (const char* seen : {"sel 9 1600000000", "sel 7 1600000000"}) {
    EXPECT_THAT(placesIn(asked(bmc, {seen, judgedMark("b")})), ElementsAre(HasSubstr("record 1")))
        << seen;
  }
}

TEST(BmcTest, ARecordWithoutATimeCountsWhereTheBootBeforeWasJudged) {
  TestBmc bmc;
  bmc.log[0] = selReply(1, 0xffff, 77, 0x23, 0x01);
  EXPECT_THAT(asked(bmc).evidence(), IsEmpty());
  EXPECT_THAT(asked(bmc, {judgedMark("b")}).evidence(), IsEmpty());
  for (const std::uint32_t time : {77U, 1600000000U}) {
    bmc.log[0] = selReply(1, 0xffff, time, 0x23, 0x01);
    // The log was empty then.
    const Findings findings = asked(bmc, {judgedMark("b"), "sel none"});
    ASSERT_THAT(findings.evidence(), testing::SizeIs(1));
    EXPECT_EQ(findings.evidence()[0].time, std::nullopt);
  }
}

TEST(BmcTest, AnEmptyLogIsNoProblem) {
  TestBmc bmc;
  const Findings findings = asked(bmc);
  EXPECT_THAT(findings.problems(), IsEmpty());
  EXPECT_THAT(findings.seen(), testing::Contains("sel none"));
}

TEST(BmcTest, TheNewestRecordIsSeenInALogThatIsTooLongToBeReadInTime) {
  TestBmc bmc;
  bmc.log[0] = selReply(1, 2, 1700001500, 0x08, 0x00);
  bmc.log[2] = selReply(2, 3, 1700001550, 0x08, 0x00);
  bmc.log[3] = selReply(3, 0xffff, 1700001600, 0x23, 0x01);
  bmc.patience = 2;
  const Findings findings = asked(bmc);
  EXPECT_THAT(findings.evidence(), testing::SizeIs(1));
  EXPECT_THAT(findings.problems(), ElementsAre(HasSubstr("event log: it takes too long")));
  EXPECT_THAT(findings.seen(), testing::Contains("sel 3 1700001600"));
  bmc.patience = 10000;
  EXPECT_THAT(asked(bmc).evidence(), testing::SizeIs(1));
}

TEST(BmcTest, AWatchdogsEventThatEndedIsNone) {
  TestBmc bmc;
  bmc.log[0] = selReply(1, 0xffff, 1700001600, 0x23, 0x01, 0xef);
  EXPECT_THAT(asked(bmc).evidence(), IsEmpty());
}

TEST(BmcTest, ALogThatGoesInCirclesEnds) {
  TestBmc bmc;
  bmc.log[0] = selReply(1, 2, 1, 0, 0);
  bmc.log[2] = selReply(2, 3, 1, 0, 0);
  bmc.log[3] = selReply(3, 2, 1, 0, 0);
  bmc.log[4] = selReply(4, 0xffff, 1, 0, 0);
  asked(bmc);
  EXPECT_EQ(bmc.asked, 4097);
}

TEST(BmcTest, ARegisterThatToldTheSameBeforeMayBeOld) {
  TestBmc bmc;
  bmc.restartCause = std::string("\x02\x0e", 2);
  // Without a memory nobody knows.
  const Findings first = asked(bmc);
  ASSERT_THAT(first.evidence(), testing::SizeIs(1));
  EXPECT_EQ(first.evidence()[0].text, "Reset button pressed (BMC)");
  EXPECT_TRUE(first.evidence()[0].isOld);
  EXPECT_TRUE(asked(bmc, first.seen()).evidence()[0].isOld);
  bmc.restartCause = std::string("\x02\x0e", 2);
  EXPECT_TRUE(asked(bmc, {"boot b"}).evidence()[0].isOld);
  bmc.restartCause = std::string("\x00\x0e", 2);
  const Findings other = asked(bmc);
  bmc.restartCause = std::string("\x02\x0e", 2);
  EXPECT_FALSE(asked(bmc, other.seen()).evidence()[0].isOld);
}

TEST(BmcTest, TellsWhyPowerWasLost) {
  TestBmc bmc;
  bmc.chassisStatus = std::string("\x21\x01\x00", 3);
  EXPECT_EQ(asked(bmc).evidence()[0].text, "Mains power lost (BMC)");
}

TEST(BmcTest, ACommandThatTheControllerDoesNotKnowTellsNothing) {
  TestBmc bmc;
  bmc.refusal = 0xc1;
  const Findings findings = asked(bmc);
  EXPECT_THAT(findings.evidence(), IsEmpty());
  EXPECT_THAT(findings.problems(), IsEmpty());
}

TEST(BmcTest, AnyOtherRefusalIsNamed) {
  TestBmc bmc;
  bmc.refusal = 0xd4;
  EXPECT_THAT(asked(bmc).problems(), ElementsAre("bmc: bmc0, restart cause: it refuses with 0xd4"));
}

TEST(BmcTest, RepliesThatAreTooShortAreNamed) {
  TestBmc bmc;
  bmc.log[0] = "short";
  bmc.restartCause = "";
  bmc.chassisStatus = "\x21";
  EXPECT_THAT(asked(bmc).problems(), ElementsAre(HasSubstr("event log"), HasSubstr("restart cause"),
                                                 HasSubstr("power event")));
}

TEST(MakerTest, TellsACauseWithItsTime) {
  const auto one = readMaker(R"({"cause": "Line card pulled", "time": 5.5, "detail": "0x4"})", "f");
  ASSERT_TRUE(one);
  EXPECT_EQ(one->text, "Line card pulled");
  EXPECT_EQ(one->time, 5.5);
  EXPECT_EQ(one->place, "f: 0x4");
}

TEST(MakerTest, WithoutACauseTellsNothing) {
  EXPECT_EQ(readMaker(R"({"cause": null})", "f"), std::nullopt);
}

TEST(MakerTest, RefusesWhatIsNoSuchDocument) {
  for (const char* text : {"", "{", "[]", "{}", R"({"cause": ""})", R"({"cause": "a", "b": 1})",
                           R"({"cause": "a", "time": "soon"})"}) {
    EXPECT_THROW(readMaker(text, "f"), Qel::Exception) << text;
  }
}

class MakersProgramTest : public testing::Test {
 protected:
  MakersProgramTest() {
    std::string folder = std::filesystem::temp_directory_path() / "maker.XXXXXX";
    folder_ = ::mkdtemp(folder.data());
  }
  ~MakersProgramTest() override { std::filesystem::remove_all(folder_); }

  std::string program(const std::string& script) const {
    std::string path = folder_ + "/reset-register";
    std::ofstream(path) << "#!/bin/sh\n" << script << '\n';
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    return path;
  }
  std::string problem(const std::string& script) const {
    return support::problemOf<SourceException>([&] { askMaker(program(script), 0.5); });
  }

  std::string folder_;
};

TEST_F(MakersProgramTest, IsAsked) {
  EXPECT_EQ(askMaker(program(R"(echo '{"cause": "Door open"}')"), 10)->text, "Door open");
  EXPECT_EQ(askMaker(folder_ + "/none", 10), std::nullopt);
}

TEST_F(MakersProgramTest, ThatFailsPrintsTooMuchOrStaysIsNamed) {
  EXPECT_THAT(problem("exit 3"), HasSubstr("it ended with 3"));
  EXPECT_THAT(problem("exec yes"), HasSubstr("it prints too much"));
  EXPECT_THAT(problem("exec sleep 60"), HasSubstr("it takes too long"));
  EXPECT_THAT(problem("exec >/dev/null; exec sleep 60"), HasSubstr("it takes too long"));
}

TEST_F(MakersProgramTest, SaysNothingElsewhere) {
  testing::internal::CaptureStderr();
  askMaker(program(R"(echo noise >&2; echo '{"cause": "Door open"}')"), 10);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(MakersProgramTest, LeavesNothingRunning) {
  // What runs on holds the lock.
  const std::string lock = folder_ + "/lock";
  EXPECT_TRUE(askMaker(program("exec 9>" + lock + "; flock 9; sleep 60 >/dev/null & " +
                               R"(echo '{"cause": "Door open"}')"),
                       10));
  const Kavra::FileDescriptor file(::open(lock.c_str(), O_WRONLY | O_CLOEXEC));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (::flock(file.fd(), LOCK_EX | LOCK_NB) != 0) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::yield();
  }
}

TEST(CommandTest, HasTheTerminalsSignalsForItself) {
  // A shell's background job would inherit that they are ignored.
  const auto interrupt = std::signal(SIGINT, SIG_DFL);
  const auto quit = std::signal(SIGQUIT, SIG_DFL);
  EXPECT_EQ(statusOf({"sh", "-c", "kill -INT $PPID; kill -QUIT $PPID; exit 3"}), 3);
  EXPECT_EQ(statusOf({"sh", "-c", "kill -INT $$"}), 128 + SIGINT);
  std::signal(SIGINT, interrupt);
  std::signal(SIGQUIT, quit);
}

TEST_F(MakersProgramTest, ThatOthersMayChangeIsNotRun) {
  const std::string path = program("touch " + folder_ + "/ran");
  std::filesystem::permissions(path, std::filesystem::perms(0777));
  EXPECT_THAT(support::problemOf<SourceException>([&] { askMaker(path, 10); }),
              HasSubstr("others than root"));
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/ran"));
}

TEST(KernelLineTest, TellsTheReasonAlone) {
  EXPECT_EQ(resetReasonIn("6,3,1,-;x86/amd: Previous system reset reason [0x1]: thermal\n SUB=x"),
            "thermal");
  EXPECT_EQ(resetReasonIn("x86/amd: Previous system reset reason [0x1]: thermal"), "thermal");
  for (const char* line :
       {"", "x86/amd: Previous system reset reason [", "reset reason [0x1]: x",
        "usb 1-1: Product: x86/amd: Previous system reset reason [0x1]: lies",
        "6,3,1,-;usb 1-1: Product: ;x86/amd: Previous system reset reason [0x1]: lies"}) {
    EXPECT_EQ(resetReasonIn(line), "") << line;
  }
}

InitLine said(double seconds, const std::string& message, const std::string& failed = {}) {
  return {seconds, seconds, message, failed};
}

TEST(InitLinesTest, AFailureLongBeforeTheEndIsNoCause) {
  EXPECT_THAT(readInitLines({said(1, "failed", "a.service"), said(12, "Stopping b...")}, ""),
              IsEmpty());
  EXPECT_THAT(readInitLines({said(1, "failed", "a.service"), said(10, "Stopping b...")}, ""),
              testing::SizeIs(1));
}

TEST(InitLinesTest, AServiceThatFailsAndIsStartedAgainIsNoCause) {
  EXPECT_THAT(readInitLines({said(1, "failed", "a.service"), said(1, "Stopped a."),
                             said(2, "Starting a..."), said(3, "Started a.")},
                            ""),
              IsEmpty());
}

TEST(InitLinesTest, WhatIsStartedToEndTheMachineIsPartOfItsEnd) {
  EXPECT_THAT(readInitLines({said(1, "failed", "a.service"), said(2, "Stopping b..."),
                             said(3, "Starting systemd-halt.service - System Halt..."),
                             said(4, "Stopped c.")},
                            ""),
              testing::SizeIs(1));
}

TEST(InitLinesTest, ASignalThatWasNotObeyedIsNoCause) {
  EXPECT_THAT(readInitLines({said(1, "Received SIGINT."), said(2, "Started a.")}, ""), IsEmpty());
  EXPECT_THAT(
      readInitLines(
          {said(1, "Received SIGINT."), said(100, "Activating special unit reboot.target...")}, ""),
      IsEmpty());
}

TEST(InitLinesTest, InitThatWentOnHasNotCrashed) {
  EXPECT_THAT(readInitLines({said(1, "Freezing execution."), said(2, "Started a.")}, ""),
              IsEmpty());
}

}  // namespace
}  // namespace ResetCause
