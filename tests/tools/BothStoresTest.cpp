// Every command does the same to a database on a file and to one on a Redis server.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Program.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Redis/ServerProcess.h"

namespace Tools {
namespace {

using toolstest::Outcome;
using Words = std::vector<std::string>;

constexpr char kHistory[] =
    R"({"type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": [
    {"description": "one", "time": 1700000000.9, "detail": "more"},
    {"description": {"base64": "/wAK"}, "time": 5.5, "recommendedAction": "none"}]},
    "3": {"causeQ": []}}})";

// The same could be said in other words.
constexpr char kLooseHistory[] =
    R"({"rebootHistory": {"10": {"causeQ": [{"time": 1e2, "description": "old", "detail": ""}]},
    "2": {"causeQ": [{"time": 1700000000, "description": "one"}]}},
    "type": "System::ResetCauseHistory"})";

// A command and what it reads from standard input.
struct Step {
  Words words;
  std::string input = {};
};

const std::vector<Step> kSteps = {
    {{"ls"}},
    {{"get", "cell/1/sys/reset/history"}},
    {{"del", "cell/1/sys/reset/history"}},
    {{"add-cause", "--cell", "1", "--cause", "too early"}},
    {{"record-reset", "--cell", "1", "--cause", "one", "--time", "1700000000.9"}},
    {{"record-reset", "--cell", "1", "--cause", "two", "--time", "-1", "--cause", "", "--time",
      "0"}},
    {{"add-cause", "--cell", "1", "--cause", "\xff\n", "--time", "4294967295.5"}},
    {{"get", "cell/1/sys/reset/history"}},
    {{"set-redundancy", "--cell", "1", "--protocol", "3"}},
    {{"set-redundancy", "--cell", "1", "--switchover-capable", "true"}},
    {{"get", "cell/1/redundancy/status"}},
    {{"put", "cell/2/sys/reset/history"}, kHistory},
    {{"get", "cell/2/sys/reset/history"}},
    {{"put", "elsewhere"}, kHistory},
    {{"get", "elsewhere"}},
    {{"ls"}},
    {{"ls", "cell/2"}},
    {{"put", "cell/3/sys/reset/history"}, kLooseHistory},
    {{"get", "cell/3/sys/reset/history"}},
    {{"put", "elsewhere"}, "{"},
    {{"put", "elsewhere"}, R"({"type": "Nonsense"})"},
    {{"put", "elsewhere"}, R"({"type": "System::ResetCauseHistory", "rebootHistory": 5})"},
    {{"put", "/elsewhere"}, kHistory},
    {{"get", "no//path"}},
    {{"record-reset", "--cell", "x", "--cause", "one"}},
    {{"record-reset", "--cell", "1", "--cause", "one", "--time", "nan"}},
    {{"del", "elsewhere"}},
    {{"del", "elsewhere"}},
    {{"get", "cell/2/sys/rest/history"}},
    {{"ls", "cell/4"}},
    {{"ls"}},
};

TEST(BothStoresTest, GiveTheSameAnswersToTheSameCommands) {
  const kavratest::DatabaseDirectory directory;
  // A server is there before anything is published; a file is made.
  directory.write("{}");
  const kavratest::ServerProcess server;
  const auto run = [](const std::string& url, const Step& step) {
    Words words{KAVRA_PROGRAM, "--db", url};
    words.insert(words.end(), step.words.begin(), step.words.end());
    return toolstest::run(words, step.input);
  };
  int good = 0;
  for (const Step& step : kSteps) {
    SCOPED_TRACE(testing::PrintToString(step.words));
    const Outcome onFile = run(directory.url(), step);
    const Outcome onRedis = run(server.url(), step);
    EXPECT_EQ(onRedis.status, onFile.status);
    EXPECT_EQ(onRedis.out, onFile.out);
    EXPECT_EQ(onRedis.err, onFile.err);
    if (onFile.status == 0) ++good;
  }
  EXPECT_EQ(good, 19);
}

TEST(BothStoresTest, GiveTheirUserFromAFile) {
  const kavratest::ServerProcess server{{"--user", "tester", "on", ">right", "~kavra:*", "+@all"}};
  const std::string auth = (server.directory().path() / "auth").string();
  server.directory().write(auth, "tester\nright\n");
  std::filesystem::permissions(auth, std::filesystem::perms::owner_read);
  const Words set{"--db-auth", auth, "set-redundancy", "--cell", "1", "--protocol", "1"};
  Words words{KAVRA_PROGRAM, "--db", server.url()};
  words.insert(words.end(), set.begin(), set.end());
  EXPECT_EQ(toolstest::run(words).err, "");
  server.directory().write(auth + "2", "tester\nwrong\n");
  std::filesystem::permissions(auth + "2", std::filesystem::perms::owner_read);
  words[4] = auth + "2";
  const Outcome refused = toolstest::run(words);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "kavra: " + server.url() +
                             ": WRONGPASS invalid username-password pair or user is disabled.\n");
}

}  // namespace
}  // namespace Tools
