// Every command does the same to a database on a file and to one on a Redis server.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Kavra/Json/Text.h"
#include "Kavra/Redis/Command.h"
#include "Program.h"
#include "Qel/Document.h"
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

constexpr char kGoodStatus[] =
    R"({"type": "Redundancy::RedundancyStatus", "protocol": 1, "switchoverCapable": true})";

// On a database where something stands at "cell/1/x", whatever it is.
void expectReplacedAndTakenBack(const std::string& url, const std::function<void()>& damage) {
  const auto kavra = [&url](Words words, const std::string& input = {}) {
    words.insert(words.begin(), {KAVRA_PROGRAM, "--db", url});
    return toolstest::run(words, input);
  };
  damage();
  EXPECT_EQ(kavra({"put", "cell/1/x"}, kGoodStatus).err, "");
  EXPECT_EQ(kavra({"get", "cell/1/x"}).out.find("unreadable"), std::string::npos);
  EXPECT_EQ(kavra({"del", "cell/1/x"}).err, "");
  damage();
  EXPECT_EQ(kavra({"del", "cell/1/x"}).err, "");
  EXPECT_EQ(kavra({"del", "cell/1/x"}).err, "kavra: nothing is published under cell/1/x\n");
  EXPECT_EQ(kavra({"ls", "cell/1"}).out, "");
}

TEST(BothStoresTest, ReplaceAndTakeBackWhateverStandsOnAServer) {
  const kavratest::ServerProcess server;
  const std::string key = "kavra:e:cell/1/x";
  const std::vector<std::vector<Kavra::Redis::Command>> damages = {
      {{"SET", key, "x"}},
      {{"LPUSH", key, "x"}},
      {{"SADD", key, "x"}},
      {{"ZADD", key, "1", "x"}},
      {{"XADD", key, "*", "a", "b"}},
      {{"HSET", key, "n", "1"}},
      {{"HSET", key, "_v", "1", "_t", "Nonsense"}},
      // Larger than any reply that is read.
      {{"SET", key, "x"}, {"SETRANGE", key, "200000000", "x"}},
      {{"HSET", key, "_v", "1", "big", std::string(110000000, 'x')}},
  };
  for (const auto& damage : damages) {
    SCOPED_TRACE(damage.back()[0] + " " + damage.back()[2]);
    expectReplacedAndTakenBack(server.url(), [&] {
      server.command({"DEL", key});
      for (const auto& command : damage) ASSERT_FALSE(server.command(command).isError());
    });
  }
}

TEST(BothStoresTest, ReplaceAndTakeBackWhateverStandsInAFile) {
  const kavratest::DatabaseDirectory directory;
  const std::string other = R"("other": [1, {"type":"Nonsense","type":"Nonsense"}])";
  std::string numbers = "[1";
  for (int i = 0; i < 1000000; ++i) numbers += ",1";
  for (const std::string& damage :
       {std::string("null"), std::string("123456789012345678901"), std::string(R"({"a":1,"a":1})"),
        std::string(R"({"type": "Nonsense"})"), std::string(R"({"base64": "x"})"),
        std::string(R"({"type": "System::ResetCauseHistory", "rebootHistory": 5})"),
        std::string(40, '[') + std::string(40, ']'), numbers + "]"}) {
    SCOPED_TRACE(damage.substr(0, 60));
    expectReplacedAndTakenBack(directory.url(), [&] {
      directory.write("{" + other + R"(, "cell/1/x": )" + damage + "}");
    });
    EXPECT_EQ(directory.read(), "{\n  " + other + "\n}\n");
  }
}

// On a database where a history and a status of cell 1 stand that cannot be read.
void expectEditsToSayWhy(const std::string& url) {
  const auto kavra = [&url](Words words) {
    words.insert(words.begin(), {KAVRA_PROGRAM, "--db", url});
    return toolstest::run(words);
  };
  const std::string history = "cell/1/sys/reset/history";
  const std::string status = "cell/1/redundancy/status";
  const std::pair<std::string, Words> edits[] = {
      {history, {"add-cause", "--cell", "1", "--cause", "a"}},
      {history, {"record-reset", "--cell", "1", "--cause", "a"}},
      {status, {"set-redundancy", "--cell", "1", "--protocol", "1"}},
  };
  for (const auto& [path, words] : edits) {
    const Outcome got = kavra({"get", path});
    const Qel::Document document = Kavra::Json::read(got.out);
    const Qel::Document* why = document.member("unreadable");
    ASSERT_NE(why, nullptr) << got.out << got.err;
    const Outcome outcome = kavra(words);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "kavra: " + path + ": what is published there cannot be read: " +
                               why->as<Qel::String>()->stdString() +
                               "; kavra del takes it away, kavra put replaces it\n");
  }
}

TEST(BothStoresTest, SayWhyWhatCannotBeReadCannotBeEdited) {
  const kavratest::DatabaseDirectory directory;
  directory.write(R"({"cell/1/sys/reset/history": {"type": 1, "type": 2},
                      "cell/1/redundancy/status": {"base64": "x"}})");
  expectEditsToSayWhy(directory.url());
  const kavratest::ServerProcess server;
  const std::string keys = "kavra:e:cell/1/";
  server.command({"SET", keys + "sys/reset/history", "x"});
  server.command({"HSET", keys + "redundancy/status", "_v", "1", "protocol", "many"});
  expectEditsToSayWhy(server.url());
}

TEST(BothStoresTest, TakeBackWhatStandsInAFileUnderNoPath) {
  const kavratest::DatabaseDirectory directory;
  for (const std::string path : {"/cell", "a//b", ""}) {
    directory.write("{\"" + path + "\": 5}");
    EXPECT_EQ(toolstest::run({KAVRA_PROGRAM, "--db", directory.url(), "del", path}).err, "");
    EXPECT_EQ(directory.read(), "{}\n");
  }
}

TEST(BothStoresTest, LoseNothingOfAFileThatIsNoJson) {
  const kavratest::DatabaseDirectory directory;
  const std::string torn = R"({"a": {"type": "Nonsense"}, "b": )";
  for (const char* command : {"del", "put"}) {
    directory.write(torn);
    const Outcome outcome =
        toolstest::run({KAVRA_PROGRAM, "--db", directory.url(), command, "a"}, kGoodStatus);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("line 1, column 34"), std::string::npos) << outcome.err;
    EXPECT_EQ(directory.read(), torn);
  }
}

TEST(BothStoresTest, RefuseAtTheDoorWhatIsOverALimit) {
  const kavratest::DatabaseDirectory directory;
  const kavratest::ServerProcess server;
  std::string numbers = "[1";
  for (int i = 0; i < 400000; ++i) numbers += ",1";
  for (const std::string& url : {directory.url(), server.url()}) {
    const auto problem = [&url](Words words, const std::string& input = {}) {
      words.insert(words.begin(), {KAVRA_PROGRAM, "--db", url});
      return toolstest::run(words, input).err;
    };
    const std::string tooLong =
        "/rebootHistory/0/causeQ/0/description: text of 1025 bytes is "
        "longer than 1024\n";
    EXPECT_EQ(problem({"record-reset", "--cell", "1", "--cause", std::string(1025, 'x')}),
              "kavra: cell/1/sys/reset/history: " + tooLong);
    EXPECT_EQ(problem({"put", "a"}, R"({"type": "System::ResetCauseHistory", "rebootHistory":)"
                                    R"( {"0": {"causeQ": [{"time": 1, "description": ")" +
                                        std::string(1025, 'x') + R"("}]}}})"),
              "kavra: a: " + tooLong);
    EXPECT_EQ(problem({"put", "a"}, numbers + "]"),
              "kavra: standard input: /380000: the document has more than 380000 values\n");
    EXPECT_EQ(problem({"ls"}), "");
  }
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
