#include "resetcause/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Kavra/Json/Text.h"
#include "Kavra/StoreUrl.h"
#include "Qel/Failure.h"
#include "resetcause/Heartbeat.h"
#include "resetcause/Machine.h"
#include "resetcause/Record.h"
#include "resetcause/Request.h"
#include "support/ManualClock.h"

namespace ResetCause {
namespace {

using resetcausetest::kBefore;
using resetcausetest::kDown;
using resetcausetest::kThis;
using resetcausetest::kThisStart;
using resetcausetest::Machine;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

class ResetCauseCommandTest : public testing::Test {
 protected:
  Outcome run(std::vector<std::string> words) {
    machine.settle();
    if (std::ranges::find(words, "--root") == words.end()) {
      words.insert(words.begin(), {"--root", machine.folder()});
    }
    words.insert(words.begin(), "norvek-reset-cause");
    std::vector<const char*> argv;
    argv.reserve(words.size());
    for (const std::string& word : words) argv.push_back(word.c_str());
    std::ostringstream out;
    std::ostringstream err;
    const int status = runCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
  }
  std::string db() const { return "file:" + machine.folder() + "/kavra.json"; }
  Outcome record() { return run({"record", "--db", db(), "--cell", "1"}); }
  std::string history() {
    const auto documents = Kavra::StoreUrl(db()).store(machine.clock_)->documents("cell/1/");
    const auto found = documents.find("cell/1/sys/reset/history");
    return found == documents.end() ? ""
                                    : Kavra::Json::write(found->second, Kavra::Json::Form::line);
  }
  std::vector<std::string> descriptions() {
    std::vector<std::string> all;
    const std::string text = history();
    const std::string name = R"("description": ")";
    for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
      const std::size_t begin = at + name.size();
      all.push_back(text.substr(begin, text.find('"', begin) - begin));
    }
    return all;
  }
  std::string requestFile() const {
    return machine.folder() + "/var/lib/norvek-reset-cause/requests/" + kThis + ".json";
  }

  Machine machine;
};

TEST_F(ResetCauseCommandTest, FindTellsTheCauseAndWhatForIt) {
  machine.loginManagerSays(kDown, "reboot", "System is rebooting (fans).");
  machine.journalStops(kDown + 1);
  const Outcome found = run({"find"});
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.out,
            "Reload requested: fans\n  when: 2023-11-15T02:23:20Z\n"
            "  how sure: certain\n  rule: 6\n  shutdown record: " +
                machine.folder() + "/var/log/journal, boot " + kBefore +
                ": fans (2023-11-15T02:23:20Z)\n");
}

TEST_F(ResetCauseCommandTest, FindTellsAWindowAndWhatElseItCouldHaveBeen) {
  EXPECT_THAT(run({"find"}).out,
              AllOf(StartsWith("Power lost, hard reset or forced restart\n"),
                    HasSubstr("when: between 2023-11-15T02:23:10Z and 2023-11-15T03:46:40Z"),
                    HasSubstr("how sure: possible"), HasSubstr("but: loss of power")));
}

TEST_F(ResetCauseCommandTest, FindTellsNoWindowThatEndsBeforeItBegins) {
  machine.startsAt(kThis, 100);
  machine.reloads(kThis, 100);
  EXPECT_THAT(run({"find"}).out,
              AllOf(HasSubstr("  when: after 2023-11-15T02:23:10Z, by the clock then\n"),
                    HasSubstr("\nnote: the clock was set back")));
}

TEST_F(ResetCauseCommandTest, FindTellsWhatARegisterToldBefore) {
  machine.hasWatchdog("watchdog0", 0x01);
  record();
  machine.reloads(std::string(32, '4'), kThisStart + 9000);
  EXPECT_THAT(run({"find"}).out, AllOf(HasSubstr("how sure: possible\n"),
                                       HasSubstr("(watchdog), as after an earlier reload\n")));
}

TEST_F(ResetCauseCommandTest, FindChangesNothing) {
  run({"find"});
  run({"find", "--json"});
  run({"explain"});
  EXPECT_FALSE(std::filesystem::exists(machine.folder() + "/var/lib/norvek-reset-cause"));
}

TEST_F(ResetCauseCommandTest, FindTellsTheSameAsJson) {
  machine.hasWatchdog("watchdog0", 0x20);
  const Qel::Document found = Kavra::Json::read(run({"find", "--json"}).out);
  const Judgement judgement = judgementOf(found);
  EXPECT_EQ(judgement.verdict, machine.judged().verdict);
  EXPECT_EQ(judgement.boots.previousId, kBefore);
}

TEST_F(ResetCauseCommandTest, ExplainGoesThroughTheRules) {
  EXPECT_THAT(run({"explain"}).out,
              AllOf(StartsWith(" 0  judged already             -        not yet\n"),
                    HasSubstr("\n 1  a panic                    -        not found: panic dump\n"),
                    HasSubstr("\n11  nothing was found          matched  nothing tells\n")));
  record();
  EXPECT_THAT(run({"explain"}).out, StartsWith(" 0  judged already             matched"));
}

TEST_F(ResetCauseCommandTest, RecordTellsTheDatabaseAllCausesInOrder) {
  machine.hasWatchdog("watchdog0", 0x20);
  machine.loginManagerSays(kDown, "reboot", "System is rebooting (fans).");
  machine.journalStops(kDown + 1);
  const Outcome recorded = record();
  EXPECT_EQ(recorded.status, 0) << recorded.err;
  EXPECT_EQ(recorded.out, "cell 1: Watchdog expired; the reload that was requested hung\n");
  EXPECT_THAT(descriptions(),
              testing::ElementsAre("Watchdog expired; the reload that was requested hung",
                                   "Reload requested: fans"));
  EXPECT_THAT(history(), AllOf(HasSubstr(R"("time": 1700015000)"),
                               HasSubstr(R"("recommendedAction": "Look at the end)"),
                               HasSubstr("rule: 2"), HasSubstr("bootstatus")));
}

TEST_F(ResetCauseCommandTest, RecordRunAgainSaysTheSameAndRecordsNothing) {
  const Outcome first = record();
  machine.hasWatchdog("watchdog0", 0x20);
  const std::string before = history();
  const Outcome again = record();
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, first.out);
  EXPECT_EQ(history(), before);
}

TEST_F(ResetCauseCommandTest, RecordIsKnownAgainInTheDatabaseWhenTheMemoryIsLost) {
  record();
  std::filesystem::remove_all(machine.folder() + "/var/lib/norvek-reset-cause");
  record();
  EXPECT_THAT(descriptions(), testing::SizeIs(1));
}

TEST_F(ResetCauseCommandTest, RecordKeepsTheHistoryOverReloads) {
  record();
  machine.reloads(std::string(32, '4'), kThisStart + 9000);
  machine.hasWatchdog("watchdog0", 0x20);
  record();
  EXPECT_THAT(descriptions(),
              testing::ElementsAre("Watchdog expired", "Power lost, hard reset or forced restart"));
}

TEST_F(ResetCauseCommandTest, RecordThatMeetsNoDatabaseTellsItAndSaysTheSameLater) {
  machine.hasWatchdog("watchdog0", 0x20);
  const Outcome failed =
      run({"record", "--db", "redis+unix:" + machine.folder() + "/none", "--cell", "1"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_THAT(failed.err, AllOf(StartsWith("norvek-reset-cause: "), testing::EndsWith("\n")));
  // Judged anew it would be told otherwise.
  machine.hasWatchdog("watchdog0", 0);
  EXPECT_EQ(record().out, "cell 1: Watchdog expired\n");
  EXPECT_THAT(descriptions(), testing::ElementsAre("Watchdog expired"));
}

TEST_F(ResetCauseCommandTest, RecordThatCannotKeepItTellsTheDatabaseAllTheSame) {
  machine.hasWatchdog("watchdog0", 0x20);
  machine.writes("/var/lib/norvek-reset-cause", "no folder");
  for (int i = 0; i < 2; ++i) {
    const Outcome recorded = record();
    EXPECT_EQ(recorded.status, 1);
    EXPECT_EQ(recorded.out, "cell 1: Watchdog expired\n");
    EXPECT_THAT(recorded.err, AllOf(HasSubstr("recorded, but not kept: "), HasSubstr("/var/lib/")));
    EXPECT_THAT(descriptions(), testing::ElementsAre("Watchdog expired"));
  }
}

TEST_F(ResetCauseCommandTest, RecordLeavesAloneWhatIsNoHistory) {
  machine.writes("/kavra.json", R"({"cell/1/sys/reset/history": {"type": "nothing"}})");
  EXPECT_EQ(record().status, 1);
  EXPECT_THAT(machine.read("/kavra.json"), HasSubstr("nothing"));
}

TEST_F(ResetCauseCommandTest, RequestIsToldByTheNextBoot) {
  EXPECT_EQ(run({"request", "--reason", "new kernel", "--", "true"}).status, 0);
  machine.reloads(std::string(32, '4'), kThisStart + 9000);
  machine.says(
      kThis, 100, "System is rebooting.",
      {{"MESSAGE_ID", "98268866d1d54a499c4e98921d93bc40"}, {"SHUTDOWN", "reboot"}, {"_UID", "0"}});
  EXPECT_THAT(run({"find"}).out,
              StartsWith("Reload requested by " + loginUser() + ": new kernel, but reset"));
}

TEST_F(ResetCauseCommandTest, RequestIsTakenBackWhereTheCommandFails) {
  const Outcome failed = run({"request", "--reason", "new kernel", "--", "sh", "-c", "exit 3"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.err, "norvek-reset-cause: sh ended with 3: the request is taken back\n");
  EXPECT_FALSE(std::filesystem::exists(requestFile()));
  EXPECT_EQ(run({"request", "--reason", "x", "--", "/no/such/command"}).status, 1);
  EXPECT_FALSE(std::filesystem::exists(requestFile()));
}

TEST_F(ResetCauseCommandTest, RequestForAnotherMachineRestartsNotThisOne) {
  // Should it try, this is what it finds.
  const std::string systemctl = "/bin/systemctl";
  machine.writes(systemctl, "#!/bin/sh\n");
  std::filesystem::permissions(machine.folder() + systemctl, std::filesystem::perms(0755));
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", (machine.folder() + "/bin:" + path).c_str(), 1);
  const Outcome refused = run({"request", "--reason", "x"});
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("name the COMMAND"));
  EXPECT_FALSE(std::filesystem::exists(requestFile()));
}

TEST_F(ResetCauseCommandTest, RequestIsThereBeforeTheCommandRuns) {
  EXPECT_EQ(run({"request", "--reason", "x", "--", "test", "-s", requestFile()}).status, 0);
}

TEST_F(ResetCauseCommandTest, RequestsOfOlderBootsAreForgotten) {
  const std::string folder = "/var/lib/norvek-reset-cause/requests/";
  // What a request left that was torn off, and what nobody can take away.
  machine.writes(folder + std::string(32, '1') + ".json.Xy12aB", "{");
  machine.writes(folder + std::string(32, '0') + ".json/x", "");
  machine.writes(folder + std::string(32, '1') + ".json", "{}");
  machine.writes(folder + kBefore + ".json", "{}");
  machine.writes(folder + kThis + ".json", "{}");
  record();
  EXPECT_FALSE(std::filesystem::exists(machine.folder() + folder + std::string(32, '1') + ".json"));
  EXPECT_FALSE(
      std::filesystem::exists(machine.folder() + folder + std::string(32, '1') + ".json.Xy12aB"));
  EXPECT_TRUE(std::filesystem::exists(machine.folder() + folder + kBefore + ".json"));
  EXPECT_TRUE(std::filesystem::exists(requestFile()));
}

TEST_F(ResetCauseCommandTest, ARequestInAFileOfAUsersOwnIsToldUnderThatName) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can act as another user";
  const std::string path = "/var/lib/norvek-reset-cause/requests/" + kBefore + ".json";
  machine.writes(path, R"({"boot": ")" + kBefore +
                           R"(", "user": "root", "reason": "lies", "time": 1700014999})");
  ASSERT_EQ(::chown((machine.folder() + path).c_str(), 4242, 4242), 0);
  EXPECT_THAT(run({"find"}).out, StartsWith("Reload requested by user 4242: lies"));
  machine.writes("/etc/passwd", "root:x:0:0:::\nmallory:x:4242:4242:::\n");
  EXPECT_THAT(run({"find"}).out, StartsWith("Reload requested by mallory: lies"));
}

TEST_F(ResetCauseCommandTest, AnEmptyOrLongReasonIsRefused) {
  for (const std::string& reason : {std::string(" "), std::string(513, 'x')}) {
    const Outcome refused = run({"request", "--reason", reason, "--", "true"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.err, HasSubstr("1 to 512 octets"));
  }
  EXPECT_EQ(run({"request", "--reason", std::string(512, 'x'), "--", "true"}).status, 0);
}

TEST_F(ResetCauseCommandTest, HeartbeatNarrowsTheWindowOfTheNextBoot) {
  EXPECT_EQ(run({"heartbeat"}).status, 0);
  const std::string beat = machine.read("/var/lib/norvek-reset-cause/heartbeat.json");
  EXPECT_EQ(beat.size(), 96);
  EXPECT_EQ(run({"heartbeat"}).status, 0);
  EXPECT_EQ(Heartbeat(machine.root()).lastBefore(std::string(32, '4'))->boot, kThis);
}

TEST_F(ResetCauseCommandTest, AWrongCallIsToldInOneLine) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{},
                                             {"guess"},
                                             {"find", "--xml"},
                                             {"record", "--db", "file:x"},
                                             {"record", "--db", "file:x", "--cell", "0"},
                                             {"heartbeat", "--every", "-1"},
                                             {"request"}}) {
    const Outcome wrong = run(words);
    EXPECT_EQ(wrong.status, 2) << wrong.err;
    EXPECT_THAT(wrong.err, StartsWith("norvek-reset-cause: "));
    EXPECT_EQ(wrong.err.find('\n'), wrong.err.size() - 1);
  }
}

TEST_F(ResetCauseCommandTest, ARootThatIsNoFolderIsAWrongOne) {
  machine.writes("/file", "");
  std::filesystem::create_symlink("loop", machine.folder() + "/loop");
  for (const char* name : {"/file", "/none", "/loop"}) {
    const Outcome wrong = run({"find", "--root", machine.folder() + name});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.err, HasSubstr(name));
    EXPECT_EQ(wrong.out, "");
  }
  EXPECT_EQ(run({"find", "--root", ""}).status, 2);
}

TEST_F(ResetCauseCommandTest, AHeartbeatThatCannotBeWrittenTellsItOnceAndIsWrittenLater) {
  machine.settle();
  machine.writes("/var/lib/norvek-reset-cause", "no folder");
  const std::string said = machine.folder() + "/said";
  const std::string command = std::string(RESET_CAUSE_PROGRAM) + " --root " + machine.folder() +
                              " heartbeat --every 1 2>" + said + " & echo $! >" + said + ".pid";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const auto waitFor = [](const auto& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition() && std::chrono::steady_clock::now() < deadline) ::poll(nullptr, 0, 5);
    return condition();
  };
  EXPECT_TRUE(waitFor([&] { return machine.read("/said").ends_with('\n'); }));
  std::filesystem::remove(machine.folder() + "/var/lib/norvek-reset-cause");
  EXPECT_TRUE(waitFor([&] {
    return std::filesystem::exists(machine.folder() + "/var/lib/norvek-reset-cause/heartbeat.json");
  }));
  ::kill(std::stoi(machine.read("/said.pid")), SIGKILL);
  const std::string text = machine.read("/said");
  EXPECT_THAT(text, AllOf(StartsWith("norvek-reset-cause: "), HasSubstr("Not a directory")));
  EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST(HeartbeatTest, TheFirstOfABootPutsThatOfTheBootBeforeAside) {
  const Machine machine;
  const Heartbeat heart(machine.root());
  const support::ManualClock clock(1700015000.25);
  const support::ManualClock later(1700020001);
  heart.beat(kBefore, clock);
  EXPECT_EQ(heart.lastBefore(kThis)->time, 1700015000.25);
  heart.beat(kThis, later);
  heart.beat(kThis, later);
  EXPECT_EQ(heart.lastBefore(kThis)->boot, kBefore);
  EXPECT_EQ(heart.lastBefore(kThis)->time, 1700015000.25);
}

// While it lives, no file takes an octet.
class FullDisk {
 public:
  FullDisk() : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit none{0, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }

 private:
  const sighandler_t handler_;
  rlimit before_{};
};

bool beatsOnAFullDisk(const Heartbeat& heart, const std::string& boot) {
  const FullDisk full;
  return !Qel::failureOf([&] { heart.beat(boot, support::ManualClock(1700015000)); });
}

TEST(HeartbeatTest, TheFirstThatTheDiskDoesNotTakeHidesNoneOfTheBootBefore) {
  const Machine machine;
  const Heartbeat heart(machine.root());
  const support::ManualClock clock(1700015000);
  heart.beat(kBefore, clock);
  EXPECT_FALSE(beatsOnAFullDisk(heart, kThis));
  ASSERT_TRUE(heart.lastBefore(kThis));
  EXPECT_EQ(heart.lastBefore(kThis)->boot, kBefore);
  heart.beat(kThis, clock);
  EXPECT_EQ(heart.lastBefore(kThis)->boot, kBefore);
}

TEST(HeartbeatTest, ALaterOneThatTheDiskDoesNotTakeLeavesTheEarlier) {
  const Machine machine;
  const Heartbeat heart(machine.root());
  heart.beat(kBefore, support::ManualClock(1700015000));
  EXPECT_FALSE(beatsOnAFullDisk(heart, kBefore));
  ASSERT_TRUE(heart.lastBefore(kThis));
}

TEST(HeartbeatTest, OneThatCannotBePutAsideStaysWhereTheDiskTakesNoOther) {
  const Machine machine;
  const Heartbeat heart(machine.root());
  heart.beat(kBefore, support::ManualClock(1700015000));
  machine.writes("/var/lib/norvek-reset-cause/heartbeat-before.json/in-its-place", "");
  EXPECT_FALSE(beatsOnAFullDisk(heart, kThis));
  ASSERT_TRUE(heart.lastBefore(kThis));
}

TEST(HeartbeatTest, ATornOneIsWrittenOverAndWhatIsOlderForgotten) {
  const Machine machine;
  const Heartbeat heart(machine.root());
  const support::ManualClock clock(1700015000);
  heart.beat(std::string(32, '1'), clock);
  heart.beat(kBefore, clock);
  machine.writes("/var/lib/norvek-reset-cause/heartbeat.json", R"({"boot": "22)");
  heart.beat(kThis, clock);
  EXPECT_FALSE(heart.lastBefore(kThis));
}

TEST(DescriptionTest, IsCutToWhatTheTableAnswersAtACharacter) {
  Cause cause;
  cause.text = std::string(1023, 'x') + "\xc3\xa9\xc3\xa9";
  EXPECT_EQ(descriptionOf(cause), std::string(1023, 'x'));
  cause.text = "a\nb\xff";
  EXPECT_EQ(descriptionOf(cause), "a\\nb\\xff");
}

}  // namespace
}  // namespace ResetCause
