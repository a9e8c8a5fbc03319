#include "tools/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "Kavra/File/DatabaseFile.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Store.h"
#include "Program.h"
#include "Qel/Document.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"

namespace Tools {
namespace {

using kavratest::kHistoryPath;
using kavratest::kRedundancyPath;
using Qel::Document;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using toolstest::Outcome;
using Words = std::vector<std::string>;

double now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(sinceEpoch).count();
}

// Runs the program itself on a database of the test's own.
class CommandLineTest : public testing::Test {
 protected:
  Outcome kavra(const Words& words, const std::string& input = {}) const {
    Words arguments{KAVRA_PROGRAM, "--db", directory_.url()};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return toolstest::run(arguments, input);
  }
  bool isThere() const { return std::filesystem::exists(directory_.file()); }
  // Runs a command that is to succeed, and returns what it prints. It says when it makes the
  // database.
  std::string done(const Words& words, const std::string& input = {}) const {
    const bool wasThere = isThere();
    const Outcome outcome = kavra(words, input);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const bool isMade = !wasThere && isThere();
    EXPECT_EQ(outcome.err, isMade ? "kavra: created " + directory_.url() + "\n" : "");
    return outcome.out;
  }
  // Runs a command that is to fail, and returns its one line without "kavra: ".
  std::string refused(const Words& words, const std::string& input = {}) const {
    const std::string before = directory_.read();
    const Outcome outcome = kavra(words, input);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, AllOf(StartsWith("kavra: "), EndsWith("\n")));
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_EQ(directory_.read(), before);
    return outcome.err.substr(7, outcome.err.size() - 8);
  }
  Document documentAt(const std::string& path) const {
    const Document whole = Kavra::Json::read(directory_.read());
    const Document* found = whole.member(path);
    return found == nullptr ? Document() : *found;
  }
  // The causes of a reload of cell 2, as "description@time".
  Words causesOf(const std::string& reload) const {
    Words causes;
    const Document history = documentAt(kHistoryPath);
    const Document* found = history.member("rebootHistory");
    if (found != nullptr) found = found->member(reload);
    if (found == nullptr) return causes;
    for (const Document& cause : *found->member("causeQ")->as<Document::List>()) {
      causes.push_back(cause.member("description")->as<Qel::String>()->stdString() + "@" +
                       Kavra::Json::write(*cause.member("time"), Kavra::Json::Form::line));
    }
    return causes;
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(CommandLineTest, PutsGetsListsAndDeletesDocuments) {
  const std::string json =
      R"({"type": "Redundancy::RedundancyStatus", "protocol": 3, "switchoverCapable": true})";
  EXPECT_EQ(done({"put", "cell/1/redundancy/status"}, json), "");
  EXPECT_EQ(done({"put", "cell/2/redundancy/status"}, json), "");
  EXPECT_EQ(done({"ls"}), "cell/1/redundancy/status\ncell/2/redundancy/status\n");
  EXPECT_EQ(done({"ls", "cell/2"}), "cell/2/redundancy/status\n");
  EXPECT_EQ(done({"ls", "nothing"}), "");
  EXPECT_EQ(done({"get", "cell/1/redundancy/status"}),
            "{\n  \"type\": \"Redundancy::RedundancyStatus\",\n  \"protocol\": 3,\n"
            "  \"switchoverCapable\": true\n}\n");
  EXPECT_EQ(done({"del", "cell/1/redundancy/status"}), "");
  EXPECT_EQ(done({"ls"}), "cell/2/redundancy/status\n");
}

TEST_F(CommandLineTest, PutsADocumentFromAFileWithItsMembersInTheUsualOrder) {
  const std::string source = (directory_.path() / "document").string();
  directory_.write(source, R"({"switchoverCapable": false, "protocol": 0,
                               "type": "Redundancy::RedundancyStatus"})");
  done({"put", kRedundancyPath, source});
  EXPECT_THAT(done({"get", kRedundancyPath}), StartsWith("{\n  \"type\": \"Redundancy"));
}

TEST_F(CommandLineTest, PutsWhatItGot) {
  done({"record-reset", "--cell", "2", "--cause", "\xff\xfe", "--cause", "", "--time", "-1.5"});
  const std::string printed = done({"get", kHistoryPath});
  done({"put", "elsewhere"}, printed);
  EXPECT_EQ(documentAt("elsewhere"), documentAt(kHistoryPath));
}

TEST_F(CommandLineTest, RefusesDocumentsThatAreNoneOrDoNotFit) {
  EXPECT_THAT(refused({"put", "a"}, "{\"type\":"),
              AllOf(StartsWith("standard input: parse error at line 1, column 9")));
  EXPECT_THAT(refused({"put", "a"}, ""), StartsWith("standard input: parse error at line 1"));
  EXPECT_EQ(refused({"put", "a"}, "{}"), "a: /: member 'type' is missing");
  EXPECT_THAT(refused({"put", "a"}, R"({"type": "Nonsense"})"),
              AllOf(StartsWith("a: /type: unknown type 'Nonsense'; known are: "),
                    HasSubstr(kavratest::kHistoryType), HasSubstr(kavratest::kRedundancyType)));
  EXPECT_EQ(refused({"put", "a"}, R"({"type": "Redundancy::RedundancyStatus", "protocol": -1,
                                      "switchoverCapable": true})"),
            "a: /protocol: outside the range 0 to 4294967295");
  EXPECT_EQ(refused({"put", "a", "/no/such/file"}, ""), "/no/such/file: No such file or directory");
  EXPECT_EQ(refused({"put", "a", "/"}, ""), "/: Is a directory");
}

TEST_F(CommandLineTest, RefusesADocumentOfAnotherTypeThanThePathIsFor) {
  const std::string status =
      R"({"type": "Redundancy::RedundancyStatus", "protocol": 3, "switchoverCapable": true})";
  const std::string history = R"({"type": "System::ResetCauseHistory", "rebootHistory": {}})";
  done({"put", kHistoryPath}, history);
  done({"put", kRedundancyPath}, status);
  EXPECT_EQ(refused({"put", kHistoryPath}, status),
            std::string(kHistoryPath) +
                ": the path is for System::ResetCauseHistory, the document is of type "
                "Redundancy::RedundancyStatus");
  EXPECT_EQ(refused({"put", "--force", kRedundancyPath}, history),
            std::string(kRedundancyPath) +
                ": the path is for Redundancy::RedundancyStatus, the document is of type "
                "System::ResetCauseHistory");
  for (const char* path : {"cell/02/sys/reset/history", "cell/x/sys/reset/history", "cell/2",
                           "cell/2/sys/reset/history/old", "peer/cell/2/sys/reset/history"}) {
    done({"put", path}, status);
  }
}

TEST_F(CommandLineTest, RefusesPathsThatAreNoneOrNotPublished) {
  EXPECT_THAT(refused({"get", "/a"}), StartsWith("'/a' is not a path"));
  EXPECT_THAT(refused({"put", "a//b"}, "{}"), StartsWith("'a//b' is not a path"));
  EXPECT_THAT(refused({"del", ""}), StartsWith("'' is not a path"));
  EXPECT_EQ(refused({"get", "a"}), "nothing is published under a");
  EXPECT_EQ(refused({"del", "a"}), "nothing is published under a");
}

TEST_F(CommandLineTest, SuggestsWhatMayHaveBeenMeant) {
  done({"set-redundancy", "--cell", "2", "--protocol", "3"});
  for (const char* command : {"get", "del"}) {
    EXPECT_EQ(refused({command, "cell/1/redundancy/status"}),
              "nothing is published under cell/1/redundancy/status; did you mean "
              "cell/2/redundancy/status?");
  }
  EXPECT_EQ(refused({"stauts"}), "there is no command 'stauts'; did you mean status?");
  const Outcome listing = kavra({"ls", "cell/3"});
  EXPECT_EQ(listing.status, 0);
  EXPECT_EQ(listing.out, "");
  EXPECT_EQ(listing.err, "kavra: nothing is published under cell/3; did you mean cell/2?\n");
}

TEST_F(CommandLineTest, PrintsNoCharacterThatATerminalObeys) {
  const std::string path = "odd/\xc2\x9b\xe2\x80\xae";
  const std::string json =
      "{\"type\": \"System::ResetCauseHistory\", \"rebootHistory\": {\"0\": {\"causeQ\": "
      "[{\"description\": \"a\x7f \xc2\x80 \xc2\x9f \xe2\x80\xae\\u001b \xc3\x9f\", \"time\": "
      "1}]}}}";
  done({"put", path}, json);
  const std::string got = done({"get", path});
  EXPECT_THAT(got, HasSubstr("\"a\\u007f \\u0080 \\u009f \\u202e\\u001b \xc3\x9f\""));
  EXPECT_EQ(Kavra::Json::read(got), documentAt(path)) << "it is the same";
  EXPECT_EQ(done({"ls"}), "odd/\\xc2\\x9b\\xe2\\x80\\xae\n");
  EXPECT_THAT(done({"ls", "--long"}), EndsWith("odd/\\xc2\\x9b\\xe2\\x80\\xae\n"));
  // A document of a type that nobody knows is told of under its path.
  directory_.write("{\"" + path + "\": {\"type\": \"a\x7f\"}}");
  EXPECT_THAT(done({"status"}), AllOf(HasSubstr("odd/\\u009b\\u202e"), Not(HasSubstr("\x7f"))));
}

TEST_F(CommandLineTest, SaysThatItMadeTheDatabaseAndOnlyThen) {
  const std::string line = "kavra: created " + directory_.url() + "\n";
  EXPECT_EQ(kavra({"ls"}).err, "");
  EXPECT_EQ(kavra({"set-redundancy", "--cell", "2", "--protocol", "3"}).err, line);
  EXPECT_EQ(kavra({"set-redundancy", "--cell", "2", "--protocol", "4"}).err, "");
}

TEST_F(CommandLineTest, ListsWhenTheFileWasWrittenAndHowLongAgo) {
  done({"set-redundancy", "--cell", "2", "--protocol", "3"});
  const auto written = std::chrono::file_clock::now() - std::chrono::minutes(5);
  std::filesystem::last_write_time(directory_.file(), written);
  EXPECT_THAT(done({"ls", "--long", "--utc"}),
              testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z   5 min  "
                                    "cell/2/redundancy/status\n"));
  EXPECT_THAT(done({"ls", "-l"}),
              testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}[+-][0-9]{2}:[0-9]{2}   "
                                    "5 min  cell/2/redundancy/status\n"));
}

TEST_F(CommandLineTest, RecordsAReloadWithItsCausesInOrder) {
  done({"record-reset", "--cell", "2", "--cause", "Power loss", "--time", "1700000000.9", "--cause",
        "Watchdog", "--time", "-5"});
  EXPECT_EQ(causesOf("0"), (Words{"Power loss@1700000000.9", "Watchdog@-5.0"}));
}

TEST_F(CommandLineTest, GivesCausesWithoutATimeThePresentOne) {
  const double before = now();
  done({"record-reset", "--cell", "2", "--cause", "a", "--cause", "b", "--time", "1"});
  const Words causes = causesOf("0");
  ASSERT_EQ(causes.size(), 2U);
  EXPECT_EQ(causes[0], "a@1.0");
  const double time = std::stod(causes[1].substr(2));
  EXPECT_GE(time, before);
  EXPECT_LE(time, now());
}

TEST_F(CommandLineTest, MovesOlderReloadsUpAndKeepsTen) {
  for (int i = 0; i < 12; ++i) {
    done({"record-reset", "--cell", "2", "--cause", std::to_string(i), "--time", "1"});
  }
  EXPECT_EQ(causesOf("0"), Words{"11@1.0"});
  EXPECT_EQ(causesOf("1"), Words{"10@1.0"});
  EXPECT_EQ(causesOf("9"), Words{"2@1.0"});
  EXPECT_THAT(causesOf("10"), IsEmpty());
}

TEST_F(CommandLineTest, AddsACauseToTheLatestReload) {
  done({"record-reset", "--cell", "2", "--cause", "old", "--time", "1"});
  done({"record-reset", "--cell", "2", "--cause", "a", "--time", "2"});
  done({"add-cause", "--cell", "2", "--cause", "b", "--time", "3.25"});
  EXPECT_EQ(causesOf("0"), (Words{"a@2.0", "b@3.25"}));
  EXPECT_EQ(causesOf("1"), Words{"old@1.0"});
}

TEST_F(CommandLineTest, AddsNoCauseWithoutAReload) {
  EXPECT_EQ(refused({"add-cause", "--cell", "2", "--cause", "b"}),
            "no reload 0 is recorded that a cause could be added to");
  EXPECT_FALSE(isThere());
}

TEST_F(CommandLineTest, TakesTimesAsPeopleWriteThem) {
  done({"record-reset", "--cell", "2", "--cause", "a", "--time", "2026-11-21T16:00:00Z", "--cause",
        "b", "--time", "2026-11-21T16:00:00.5-01:00"});
  done({"add-cause", "--cell", "2", "--cause", "c", "--time", "2026-11-21T16:00:01Z"});
  EXPECT_EQ(causesOf("0"), (Words{"a@1795276800.0", "b@1795280400.5", "c@1795276801.0"}));
}

TEST_F(CommandLineTest, TakesAnyTextAsACause) {
  const Words texts{"", "[]", "{}", "[a,b]", "--time", "-x", "%%", "a,b", "\xff\n\x01", "ä"};
  for (const std::string& text : texts) {
    done({"record-reset", "--cell", "2", "--cause", text, "--time", "1"});
    EXPECT_EQ(causesOf("0"), Words{text + "@1.0"});
  }
}

TEST_F(CommandLineTest, TakesCausesUpToTheLimitOfTheirType) {
  const auto record = [this](std::size_t bytes) {
    return kavra({"record-reset", "--cell", "2", "--cause", std::string(bytes, 'x')}).status;
  };
  EXPECT_EQ(record(1024), 0);
  EXPECT_EQ(record(1025), 1);
  EXPECT_EQ(refused({"record-reset", "--cell", "2", "--cause", std::string(1025, 'x')}),
            std::string(kHistoryPath) +
                ": /rebootHistory/0/causeQ/0/description: text of 1025 bytes is longer than 1024");
}

TEST_F(CommandLineTest, RefusesTimesThatAreNone) {
  for (const char* time : {"", "x", "1x", "nan", "inf", "-inf", "1e999", "0x10", " 1", "+1"}) {
    EXPECT_THAT(refused({"record-reset", "--cell", "2", "--cause", "a", "--time", time}),
                AllOf(StartsWith("--time: '" + std::string(time) + "'"),
                      EndsWith("is neither a number of seconds since 1970 nor a time like "
                               "2026-11-21T16:00:00Z")));
  }
  EXPECT_THAT(refused({"record-reset", "--cell", "2", "--cause", "a", "--time", "1e16"}),
              EndsWith("/rebootHistory/0/causeQ/0/time: outside the range of times"));
}

TEST_F(CommandLineTest, RefusesMoreTimesThanCauses) {
  EXPECT_EQ(refused({"record-reset", "--cell", "2", "--cause", "a", "--time", "1", "--time", "2"}),
            "more times than causes: 2 for 1");
}

TEST_F(CommandLineTest, RefusesCellsThatAreNoNumber) {
  for (const char* cell : {"", "x", "-1", "1.5", "4294967296"}) {
    EXPECT_EQ(refused({"set-redundancy", "--cell", cell, "--protocol", "1"}),
              "--cell: '" + std::string(cell) + "' is not a number from 0 to 4294967295");
  }
}

TEST_F(CommandLineTest, SetsTheRedundancyStatusAndKeepsWhatIsNotGiven) {
  done({"set-redundancy", "--cell", "2", "--protocol", "3"});
  EXPECT_EQ(documentAt(kRedundancyPath),
            Kavra::Json::read(R"({"type": "Redundancy::RedundancyStatus", "protocol": 3,
                              "switchoverCapable": false})"));
  done({"set-redundancy", "--cell", "2", "--switchover-capable", "true"});
  EXPECT_EQ(documentAt(kRedundancyPath),
            Kavra::Json::read(R"({"type": "Redundancy::RedundancyStatus", "protocol": 3,
                              "switchoverCapable": true})"));
  done({"set-redundancy", "--cell", "2", "--protocol", "0"});
  EXPECT_EQ(documentAt(kRedundancyPath),
            Kavra::Json::read(R"({"type": "Redundancy::RedundancyStatus", "protocol": 0,
                              "switchoverCapable": true})"));
}

TEST_F(CommandLineTest, RefusesARedundancyStatusThatIsNone) {
  EXPECT_EQ(refused({"set-redundancy", "--cell", "2", "--protocol", "many"}),
            "--protocol: 'many' is not a number from 0 to 4294967295");
  EXPECT_EQ(refused({"set-redundancy", "--cell", "2", "--switchover-capable", "yes"}),
            "--switchover-capable: 'yes' is not true or false");
}

TEST_F(CommandLineTest, DoesNotEditADocumentThatDoesNotFit) {
  directory_.write(std::string("{\"") + kHistoryPath +
                   R"(": {"type": "System::ResetCauseHistory", "rebootHistory": 5}, ")" +
                   kRedundancyPath +
                   R"(": {"type": "System::ResetCauseHistory", "rebootHistory": {}}})");
  EXPECT_EQ(refused({"add-cause", "--cell", "2", "--cause", "a"}),
            std::string(kHistoryPath) + ": the published document does not fit: " +
                kavratest::kMisfitProblem + "; kavra del takes it away, kavra put replaces it");
  EXPECT_EQ(refused({"set-redundancy", "--cell", "2", "--protocol", "1"}),
            std::string(kRedundancyPath) +
                ": the published document is of type System::ResetCauseHistory"
                "; kavra del takes it away, kavra put replaces it");
}

TEST_F(CommandLineTest, TellsHowTheDatabaseStands) {
  directory_.write(R"({"a": {"type": 5}})");
  const Document status = Kavra::Json::read(done({"status"}));
  EXPECT_EQ(*status.member("url"), Document(Qel::String(directory_.url())));
  EXPECT_EQ(*status.member("reachable"), Document(true));
  EXPECT_TRUE(status.member("problem")->isNull());
  EXPECT_TRUE(status.member("epoch")->isNull());
  EXPECT_NE(status.member("age")->as<double>(), nullptr);
  EXPECT_EQ(Kavra::Json::write(*status.member("quarantined"), Kavra::Json::Form::line),
            R"([{"path": "a", "why": "/type: expected a text but found an integer"}])");
}

TEST_F(CommandLineTest, TellsHowThePeersDatabaseStandsAsWell) {
  directory_.write("{}");
  const kavratest::DatabaseDirectory other;
  other.write("nonsense");
  const Outcome outcome = kavra({"status", "--peer-db", other.url()});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("kavra: " + other.url() + ": parse error"));
  const Document status = Kavra::Json::read(outcome.out);
  EXPECT_EQ(*status.member("reachable"), Document(true));
  const Document& peer = *status.member("peer");
  EXPECT_EQ(*peer.member("url"), Document(Qel::String(other.url())));
  EXPECT_EQ(*peer.member("reachable"), Document(false));
  EXPECT_EQ(Kavra::Json::read(done({"status"})).member("peer"), nullptr);
  EXPECT_EQ(refused({"status", "--peer-db-auth", "x"}), "--peer-db-auth requires --peer-db");
  EXPECT_EQ(refused({"ls", "--peer-db", other.url()}),
            "The following argument was not expected: --peer-db");
}

TEST_F(CommandLineTest, CallsTheStatusOfAServerThatIsNotThereNoSuccess) {
  const std::string url = "redis+unix:" + directory_.file();
  const Outcome outcome = toolstest::run({KAVRA_PROGRAM, "--db", url, "status"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "kavra: " + url + ": cannot connect: No such file or directory\n");
  EXPECT_EQ(*Kavra::Json::read(outcome.out).member("reachable"), Document(false));
  EXPECT_EQ(kavra({"status", "--peer-db", url}).status, 1);
  EXPECT_EQ(kavra({"status", "--peer-db", directory_.url()}).status, 0);
}

TEST_F(CommandLineTest, TellsThatTheFileDoesNotParse) {
  directory_.write("nonsense");
  const Outcome outcome = kavra({"status"});
  EXPECT_EQ(outcome.status, 1);
  const Document status = Kavra::Json::read(outcome.out);
  EXPECT_EQ(*status.member("reachable"), Document(false));
  EXPECT_THAT(status.member("problem")->as<Qel::String>()->stdString(),
              StartsWith(directory_.url() + ": parse error at line 1, column"));
}

TEST_F(CommandLineTest, NeverReplacesAFileThatDoesNotParse) {
  directory_.write("{\"a\": ");
  for (const Words& command : {Words{"ls"}, Words{"get", "a"}, Words{"del", "a"},
                               Words{"record-reset", "--cell", "2", "--cause", "x"},
                               Words{"set-redundancy", "--cell", "2", "--protocol", "1"}}) {
    EXPECT_THAT(refused(command), HasSubstr("parse error at line 1, column 7")) << command.front();
  }
}

TEST_F(CommandLineTest, RefusesASecondWriter) {
  const Kavra::FileDescriptor lock = Kavra::File::DatabaseFile(directory_.file()).lock();
  EXPECT_EQ(refused({"record-reset", "--cell", "2", "--cause", "x"}),
            directory_.url() + ": is locked by another writer");
}

TEST_F(CommandLineTest, RefusesAddressesThatLeadNowhere) {
  const auto refusedAt = [this](const std::string& url) { return refused({"ls", "--db", url}); };
  EXPECT_THAT(toolstest::run({KAVRA_PROGRAM, "--db", "nonsense", "ls"}).err,
              StartsWith("kavra: 'nonsense' is not the address of a state database"));
  EXPECT_EQ(toolstest::run({KAVRA_PROGRAM, "--db", "file:/no/such/place/x", "ls"}).err,
            "kavra: file:/no/such/place/x: directory /no/such/place does not exist\n");
  EXPECT_EQ(toolstest::run({KAVRA_PROGRAM, "--db", "file:/", "ls"}).status, 1);
  EXPECT_THAT(refusedAt("file:x"), HasSubstr("--db"));
}

TEST_F(CommandLineTest, RefusesEmptyNamesOfFiles) {
  EXPECT_EQ(refused({"put", "a", ""}), "file: the value is empty");
  EXPECT_EQ(refused({"serve", ""}), "file: the value is empty");
  EXPECT_EQ(refused({"ls", "--db-auth", ""}), "--db-auth: the value is empty");
}

TEST_F(CommandLineTest, RefusesWhatIsNoCommand) {
  EXPECT_THAT(refused({}), HasSubstr("subcommand is required"));
  EXPECT_EQ(refused({"frobnicate"}), "there is no command 'frobnicate'");
  EXPECT_THAT(refused({"ls", "a", "b"}), HasSubstr("not expected: b"));
  EXPECT_THAT(refused({"get"}), HasSubstr("path is required"));
  EXPECT_THAT(refused({"record-reset", "--cell", "2"}), HasSubstr("--cause is required"));
  EXPECT_THAT(refused({"record-reset", "--cause", "x"}), HasSubstr("--cell is required"));
  EXPECT_THAT(refused({"ls", "--nonsense"}), HasSubstr("--nonsense"));
}

TEST_F(CommandLineTest, KeepsItsErrorOnOneLine) {
  EXPECT_THAT(refused({"get", "a\nb"}), HasSubstr("is not a path"));
  EXPECT_THAT(refused({"a\nb"}), Not(HasSubstr("\n")));
  EXPECT_THAT(refused({"put", "a", "no\nfile"}), StartsWith("no\\nfile: "));
}

TEST_F(CommandLineTest, ExplainsItself) {
  const Outcome outcome = kavra({"--help"});
  EXPECT_EQ(outcome.status, 0);
  for (const char* word :
       {"ls", "get", "put", "del", "watch", "record-reset", "add-cause", "set-redundancy", "status",
        "serve", "show", "check", "--db", "--db-auth"}) {
    EXPECT_THAT(outcome.out, HasSubstr(word));
  }
}

TEST_F(CommandLineTest, SaysWhatItCanDoWhereNothingIsAsked) {
  const Outcome outcome = toolstest::run({KAVRA_PROGRAM});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, kavra({"--help"}).out);
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(CommandLineTest, DescribesEveryOption) {
  for (const char* command : {"", "ls", "get", "put", "del", "watch", "record-reset", "add-cause",
                              "set-redundancy", "status", "serve", "show", "check"}) {
    std::istringstream help(kavra(*command == 0 ? Words{"--help"} : Words{command, "--help"}).out);
    int options = 0;
    for (std::string line; std::getline(help, line);) {
      if (!line.starts_with("  ")) continue;
      ++options;
      // A long name has its description on a line of its own.
      if (line.size() < 31 || line[29] != ' ') std::getline(help, line);
      EXPECT_GT(line.size(), 35U) << command << ": " << line;
      EXPECT_NE(line[30], ' ') << command << ": " << line;
    }
    EXPECT_GT(options, 1) << command;
  }
}

TEST_F(CommandLineTest, TellsItsVersion) {
  const Outcome outcome = toolstest::run({KAVRA_PROGRAM, "--version"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, testing::MatchesRegex("kavra [0-9.]+\n"));
}

TEST_F(CommandLineTest, FindsTheDatabaseThatTheEnvironmentNamesUnlessAnOptionDoes) {
  done({"set-redundancy", "--cell", "2", "--protocol", "3"});
  const auto listing = [](const std::string& url, const std::string& options) {
    return toolstest::run({"/bin/sh", "-c", "KAVRA_DB=" + url + " " + KAVRA_PROGRAM + options});
  };
  EXPECT_EQ(listing(directory_.url(), " ls").out, "cell/2/redundancy/status\n");
  EXPECT_EQ(listing("nonsense", " --db " + directory_.url() + " ls").out,
            "cell/2/redundancy/status\n");
  EXPECT_THAT(listing("nonsense", " ls").err,
              StartsWith("kavra: 'nonsense' is not the address of a state database"));
}

TEST_F(CommandLineTest, FailsWhenItsOutputGoesNowhere) {
  done({"set-redundancy", "--cell", "2", "--protocol", "3"});
  const std::string command =
      std::string(KAVRA_PROGRAM) + " --db " + directory_.url() + " ls > /dev/full";
  const Outcome outcome = toolstest::run({"/bin/sh", "-c", command});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "kavra: standard output takes no more\n");
}

TEST_F(CommandLineTest, TakesTenThousandCausesInOneReload) {
  Words command{"record-reset", "--cell", "2"};
  for (int i = 0; i < 10000; ++i) {
    command.emplace_back("--cause");
    command.push_back("cause " + std::to_string(i));
  }
  const auto start = std::chrono::steady_clock::now();
  done(command);
  EXPECT_EQ(causesOf("0").size(), 10000U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
}  // namespace Tools
