#include "tools/Serve.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "Program.h"
#include "platform/Kavra/DatabaseDirectory.h"

namespace Tools {
namespace {

using testing::IsEmpty;
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
  Outcome refused(const std::string& name) const {
    return toolstest::run({KAVRA_PROGRAM, "--db", published_.url(), "serve", name});
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

TEST_F(ServeTest, NeedsAFileThatItCanRead) {
  const Outcome absent = refused("/no/such/file");
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err, "kavra: /no/such/file: No such file or directory\n");
  const Outcome directory = refused("/");
  EXPECT_EQ(directory.status, 1);
  EXPECT_EQ(directory.err, "kavra: /: not a file\n");
}

}  // namespace
}  // namespace Tools
