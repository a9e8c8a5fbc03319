#include "tools/Serve.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Program.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Redis/ServerProcess.h"

namespace Tools {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using toolstest::Outcome;
using toolstest::Program;

std::string document(int protocol) {
  return R"({"type": "Redundancy::RedundancyStatus", "protocol": )" + std::to_string(protocol) +
         R"(, "switchoverCapable": true})";
}
std::string file(const std::string& path, int protocol) {
  return "{\"" + path + "\": " + document(protocol) + "}";
}
std::string line(const std::string& path, const std::string& document) {
  return R"({"path": ")" + path + R"(", "document": )" + document + "}";
}

// A publisher from one file into the database of another, watched there.
class ServeTest : public testing::Test {
 protected:
  std::unique_ptr<Program> serving() const {
    return std::make_unique<Program>(
        std::vector<std::string>{KAVRA_PROGRAM, "--db", published_.url(), "serve", source_.file()});
  }
  std::unique_ptr<Program> watching() const {
    return std::make_unique<Program>(
        std::vector<std::string>{KAVRA_PROGRAM, "--db", published_.url(), "watch"});
  }
  std::string problemOfServing(const std::vector<std::string>& options) const {
    std::vector<std::string> words{KAVRA_PROGRAM, "--db", published_.url(), "serve"};
    words.insert(words.end(), options.begin(), options.end());
    const Outcome outcome = toolstest::run(words);
    EXPECT_EQ(outcome.status, 1);
    return outcome.err;
  }

  const kavratest::DatabaseDirectory source_;
  const kavratest::DatabaseDirectory published_;
};

TEST_F(ServeTest, PublishesTheFileAndFollowsIt) {
  source_.replace(file("a", 1));
  const auto watcher = watching();
  const auto server = serving();
  EXPECT_EQ(watcher->readLine(), line("a", document(1)));
  source_.replace(file("a", 2));
  EXPECT_EQ(watcher->readLine(), line("a", document(2)));
  source_.replace("{}");
  EXPECT_EQ(watcher->readLine(), line("a", "null"));
}

TEST_F(ServeTest, EndsWellOnASignalAndLeavesWhatItPublished) {
  published_.write("{}");
  const auto watcher = watching();
  int protocol = 0;
  for (const int signal : {SIGINT, SIGTERM}) {
    source_.replace(file("a", ++protocol));
    const auto server = serving();
    EXPECT_EQ(watcher->readLine(), line("a", document(protocol)));
    server->signal(signal);
    const Outcome outcome = server->finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_EQ(watching()->readLine(), line("a", document(protocol)));
  }
}

TEST_F(ServeTest, SaysThatItMadeTheDatabase) {
  source_.replace(file("a", 1));
  const auto server = serving();
  EXPECT_EQ(watching()->readLine(), line("a", document(1)));
  server->signal(SIGTERM);
  EXPECT_THAT(server->finish().err, EndsWith("the database was not there; it is created\n"));
}

TEST_F(ServeTest, WaitsForAFileThatIsNotThereYetAndSaysSoOnce) {
  published_.write("{}");
  const auto watcher = watching();
  const auto server = serving();
  EXPECT_EQ(server->readErrorLine(),
            "kavra: " + source_.file() + " is not there yet: waiting for it");
  source_.replace(file("a", 1));
  EXPECT_EQ(watcher->readLine(), line("a", document(1)));
  server->signal(SIGTERM);
  const Outcome outcome = server->finish();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(ServeTest, NeedsAFileThatThereCanBe) {
  EXPECT_EQ(problemOfServing({"/no/such/file"}),
            "kavra: file:/no/such/file: directory /no/such does not exist\n");
  EXPECT_EQ(problemOfServing({"/"}), "kavra: file:/: is a directory\n");
}

TEST_F(ServeTest, NeedsAnotherFileThanTheDatabase) {
  const std::string link = (source_.path() / "link").string();
  std::filesystem::create_symlink(published_.file(), link);
  const std::string same = (published_.path() / "." / "kavra.json").string();
  for (const bool exists : {true, false}) {
    published_.write("{}");
    if (!exists) published_.remove();
    for (const std::string& name : {published_.file(), same, link}) {
      if (!exists && name == link) continue;
      EXPECT_EQ(problemOfServing({name}), "kavra: " + name + " is the database " +
                                              published_.url() + " itself: serve another file\n");
    }
  }
}

TEST_F(ServeTest, SaysThatClaimsExistOnServersOnly) {
  const auto helpOf = [](const std::string& command) {
    return toolstest::run({KAVRA_PROGRAM, command, "--help"}).out;
  };
  const auto count = [](const std::string& text, const std::string& what) {
    int times = 0;
    for (auto at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++times;
    return times;
  };
  EXPECT_EQ(count(helpOf("serve"), "on a server"), 2);
  for (const char* command : {"put", "del", "record-reset", "add-cause", "set-redundancy"}) {
    EXPECT_EQ(count(helpOf(command), "on a server"), 1) << command;
  }
}

TEST_F(ServeTest, NeedsAPlaceToOwn) {
  EXPECT_EQ(problemOfServing({"--cell", "x", source_.file()}),
            "kavra: --cell: 'x' is not a number from 0 to 4294967295\n");
  EXPECT_THAT(problemOfServing({"--prefix", "/", source_.file()}), HasSubstr("'' is not a path"));
  EXPECT_THAT(problemOfServing({"--prefix", "a", "--cell", "1", source_.file()}),
              HasSubstr("--cell excludes --prefix"));
}

// A publisher into a server, and those who edit there.
class OwningTest : public testing::Test {
 protected:
  Outcome kavra(const std::vector<std::string>& words, const std::string& input = {}) const {
    std::vector<std::string> all{KAVRA_PROGRAM, "--db", server_.url()};
    all.insert(all.end(), words.begin(), words.end());
    return toolstest::run(all, input);
  }
  std::unique_ptr<Program> serving(const std::vector<std::string>& options) const {
    std::vector<std::string> words{KAVRA_PROGRAM, "--db", server_.url(), "serve", source_.file()};
    words.insert(words.end(), options.begin(), options.end());
    return std::make_unique<Program>(words);
  }
  // Whether this is there within ten seconds, from now on.
  std::unique_ptr<Program> watching(const std::string& path) const {
    return std::make_unique<Program>(
        std::vector<std::string>{KAVRA_PROGRAM, "--db", server_.url(), "watch", path});
  }
  static std::string hostName() {
    char name[256] = {};
    ::gethostname(name, sizeof name - 1);
    return name;
  }

  const kavratest::DatabaseDirectory source_;
  const kavratest::ServerProcess server_;
};

TEST_F(OwningTest, RefusesEveryEditOfWhatIsServedUnlessForced) {
  const std::string path = "cell/1/redundancy/status";
  source_.write(file(path, 3));
  const auto watcher = watching(path);
  const auto server = serving({"--cell", "1"});
  EXPECT_EQ(watcher->readLine(), line(path, document(3)));
  const std::string whose = " belongs to the publisher of " +
                            std::filesystem::canonical(source_.file()).string() + " on " +
                            hostName() + "; --force edits it all the same\n";
  const std::vector<std::vector<std::string>> edits = {
      {"record-reset", "--cell", "1", "--cause", "x"},
      {"put", "cell/1/sys/reset/history"},
      {"set-redundancy", "--cell", "1", "--protocol", "5"},
      {"del", path}};
  for (const auto& edit : edits) {
    const Outcome outcome = kavra(edit, R"({"type": "System::ResetCauseHistory",
                                            "rebootHistory": {"0": {"causeQ": []}}})");
    EXPECT_EQ(outcome.status, 1) << edit[0];
    EXPECT_THAT(outcome.err, EndsWith(whose)) << edit[0];
    EXPECT_THAT(outcome.err, StartsWith("kavra: cell/1/")) << edit[0];
  }
  EXPECT_EQ(kavra({"ls"}).out, path + "\n");
  EXPECT_EQ(kavra({"record-reset", "--cell", "2", "--cause", "x"}).status, 0);
  EXPECT_EQ(kavra({"set-redundancy", "--cell", "1", "--protocol", "5", "--force"}).err, "");
  EXPECT_EQ(watcher->readLine(), line(path, document(5)));
  // It is the publisher's all the same.
  EXPECT_EQ(watcher->readLine(), line(path, document(3)));
  server->signal(SIGTERM);
  EXPECT_EQ(server->finish().status, 0);
  EXPECT_EQ(kavra({"set-redundancy", "--cell", "1", "--protocol", "5"}).err, "");
}

TEST_F(OwningTest, ForcesEachEdit) {
  source_.write(file("cell/1/redundancy/status", 3));
  const auto watcher = watching("cell/1/redundancy/status");
  const auto server = serving({"--prefix", "cell/1"});
  EXPECT_EQ(watcher->readLine(), line("cell/1/redundancy/status", document(3)));
  const std::vector<std::vector<std::string>> edits = {
      {"record-reset", "--cell", "1", "--cause", "x", "--force"},
      {"put", "cell/1/a", "--force"},
      {"set-redundancy", "--cell", "1", "--protocol", "5", "--force"},
      {"del", "cell/1/redundancy/status", "--force"}};
  for (const auto& edit : edits) EXPECT_EQ(kavra(edit, document(1)).err, "") << edit[0];
}

TEST_F(OwningTest, TakesAwayWhatTheFileLostWhileNobodyServedIt) {
  for (const char* path : {"cell/1/old", "cell/2/old"}) kavra({"put", path}, document(1));
  const auto watcher = watching("cell/1/old");
  EXPECT_EQ(watcher->readLine(), line("cell/1/old", document(1)));
  source_.write(file("cell/1/new", 2));
  const auto server = serving({"--cell", "1"});
  EXPECT_EQ(watcher->readLine(), line("cell/1/old", "null"));
  EXPECT_EQ(kavra({"ls"}).out, "cell/1/new\ncell/2/old\n");
}

}  // namespace
}  // namespace Tools
