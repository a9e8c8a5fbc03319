#include "tools/Show.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "Kavra/Json/Text.h"
#include "Program.h"
#include "Qel/Document.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "support/ManualClock.h"
#include "support/ProblemOf.h"
#include "tools/Errors.h"

namespace Tools {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using toolstest::Outcome;

constexpr char kGood[] =
    R"({"type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": [{"description":)"
    R"( "Power loss", "time": 1700000000}]}}})";

// Runs the program itself on a database of the test's own.
class ShowTest : public testing::Test {
 protected:
  Outcome kavra(std::vector<std::string> words) const {
    words.insert(words.begin(), {KAVRA_PROGRAM, "--db", directory_.url()});
    return toolstest::run(words);
  }
  void historiesAre(const std::string& documents) const { directory_.write(documents); }
  void refuses(const std::vector<std::string>& words, const std::string& problem) const {
    expectRefusal(kavra(words), problem);
  }
  // Of an agent rather than of the database.
  static void refusesToAsk(std::vector<std::string> words, const std::string& problem) {
    words.insert(words.begin(), {KAVRA_PROGRAM, "show", "--snmp"});
    expectRefusal(toolstest::run(words), problem);
  }
  static void expectRefusal(const Outcome& outcome, const std::string& problem) {
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "kavra: " + problem + "\n");
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(ShowTest, ShowsEveryCellInTheOrderOfTheirNumbers) {
  historiesAre(std::string(R"({"cell/10/sys/reset/history": )") + kGood +
               R"(, "cell/2/sys/reset/history": )" + kGood + R"(, "elsewhere": )" + kGood + "}");
  const Outcome outcome = kavra({"show", "--utc"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, StartsWith("Supervisor 2\n\n"));
  EXPECT_THAT(outcome.out, HasSubstr("ago  Power loss\n                 2023-11-14T22:13:20Z\n\n"
                                     "Cell 10\n"));
}

TEST_F(ShowTest, ShowsOneCell) {
  historiesAre(std::string(R"({"cell/1/sys/reset/history": )") + kGood +
               R"(, "cell/2/sys/reset/history": )" + kGood + "}");
  EXPECT_THAT(kavra({"show", "--cell", "2"}).out, StartsWith("Supervisor 2\n"));
  refuses({"show", "--cell", "3"},
          "nothing is published under cell/3/sys/reset/history; did you mean "
          "cell/1/sys/reset/history?");
}

TEST_F(ShowTest, ShowsThatNothingIsRecorded) {
  const Outcome outcome = kavra({"show"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "No reload is recorded in " + directory_.url() + "\n");
}

TEST_F(ShowTest, ShowsWhatItCanReadBesideWhatItCannot) {
  historiesAre(std::string(R"({"cell/1/sys/reset/history": {"type": "System::ResetCauseHistory"},
                               "cell/2/sys/reset/history": )") +
               kGood + "}");
  const Outcome outcome = kavra({"show"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, StartsWith("Supervisor 2\n"));
  EXPECT_EQ(outcome.err,
            "kavra: cell/1/sys/reset/history: the published document does not fit: "
            "/: member 'rebootHistory' is missing\n");
}

TEST_F(ShowTest, ColoursAPipeOnlyWhereItIsAskedTo) {
  historiesAre(std::string(R"({"cell/1/sys/reset/history": )") + kGood + "}");
  EXPECT_THAT(kavra({"show"}).out, Not(HasSubstr("\033")));
  EXPECT_THAT(kavra({"show", "--color", "auto"}).out, Not(HasSubstr("\033")));
  EXPECT_THAT(kavra({"show", "--color", "never"}).out, Not(HasSubstr("\033")));
  EXPECT_THAT(kavra({"show", "--color", "always"}).out, StartsWith("\033[1mSupervisor 1\033[0m\n"));
}

TEST_F(ShowTest, RefusesOptionsThatSayNothing) {
  refuses({"show", "--color", "sometimes"}, "--color: 'sometimes' is not auto, always or never");
  refuses({"show", "-v", "3"}, "-v requires --snmp");
  refusesToAsk({""}, "--snmp: the value is empty");
  refusesToAsk({"localhost", "-v", "4"}, "-v: '4' is not 1, 2c or 3");
  refusesToAsk({"localhost", "-t", "0"},
               "-t: '0' is not a number of seconds up to "
               "3600");
  refusesToAsk({"localhost", "-r", "-1"}, "-r: '-1' is not a number up to 100");
  refusesToAsk({"localhost", "-v3", "-u", "me", "-l", "secret"},
               "-l: 'secret' is not noAuthNoPriv, authNoPriv or authPriv");
  refusesToAsk({"localhost", "-v3", "-u", "me", "-a", "ROT13"},
               "-a: 'ROT13' is not a protocol that net-snmp knows");
  refusesToAsk({"localhost", "-v2c", "-u", "me"},
               "localhost: users, levels, protocols and contexts are for version 3: -v 3");
}

TEST_F(ShowTest, ShowsEvidenceOnRequest) {
  historiesAre(R"({"cell/1/sys/reset/history": {"type": "System::ResetCauseHistory", )"
               R"("rebootHistory": {"0": {"causeQ": [{"description": "Power loss", "time": 17, )"
               R"("detail": "boot: 3\nwhen: 1970-01-01T00:00:17Z\nhow sure: likely\nrule: 10\n)"
               R"(bmc: /dev/ipmi0\n"}]}}}})");
  EXPECT_THAT(kavra({"show"}).out,
              testing::AllOf(HasSubstr("Sure    likely\n"), Not(HasSubstr("ipmi0"))));
  EXPECT_THAT(kavra({"show", "--evidence"}).out, HasSubstr("Found   bmc: /dev/ipmi0\n"));
  refusesToAsk({"localhost", "--evidence"},
               "--evidence: an agent shows no evidence; ask its database");
}

TEST_F(ShowTest, ShowsADatabaseOrAnAgentButNotBoth) {
  refuses({"show", "--snmp", "localhost"}, "--db excludes --snmp");
  refusesToAsk({"localhost", "--db-auth", "file"}, "--db-auth excludes --snmp");
  // The environment's is a default like any other.
  expectRefusal(toolstest::run(
                    {"/bin/sh", "-c", "KAVRA_DB=file:x exec " KAVRA_PROGRAM " show --snmp h -v 4"}),
                "-v: '4' is not 1, 2c or 3");
}

TEST_F(ShowTest, TakesNoSecretFromTheCommandLine) {
  for (const char* option : {"-c", "-A", "-X"}) {
    refusesToAsk({"localhost", option, "secret"},
                 std::string(option) +
                     ": a secret is not for the command line, where everybody sees it: see "
                     "defCommunity, defAuthPassphrase and defPrivPassphrase in snmp.conf(5)");
  }
}

TEST(ShowJsonTest, SpellsControlCharactersThatATerminalObeys) {
  const std::string hostile = "\033[2J \x7f \xc2\x80 \xc2\x9f \u202e \xc2\xa0 \xc3\x9f";
  const Report report{"h", {{1, false, {{0, {{hostile, {}, {}, {}}}}}}}, {}};
  std::ostringstream out;
  show(report, {}, support::ManualClock(5.0), out);
  EXPECT_THAT(out.str(), HasSubstr(R"("\u001b[2J \u007f \u0080 \u009f \u202e )"
                                   "\xc2\xa0 \xc3\x9f\""));
  // It reads back as it was.
  const Qel::Document document = Kavra::Json::read(out.str());
  EXPECT_EQ(document, documentOf(report, 5.0));
}

TEST(ShowJsonTest, RaisesWhatCouldNotBeReadAfterTheRest) {
  std::ostringstream out;
  const Report report{"h", {}, {"a: broken", "b: broken"}};
  const support::ManualClock clock;
  EXPECT_EQ(support::problemOf<CommandError>([&] { show(report, ReportStyle{}, clock, out); }),
            "a: broken; b: broken");
  EXPECT_EQ(out.str(), "No reload is recorded in h\n");
}

}  // namespace
}  // namespace Tools
