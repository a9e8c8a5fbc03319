#include "tools/Watch.h"

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
using testing::StartsWith;
using toolstest::Program;

std::string document(int protocol) {
  return R"({"type": "Redundancy::RedundancyStatus", "protocol": )" + std::to_string(protocol) +
         R"(, "switchoverCapable": true})";
}
std::string line(const std::string& path, const std::string& document) {
  return R"({"path": ")" + path + R"(", "document": )" + document + "}";
}

class WatchTest : public testing::Test {
 protected:
  // A watching program that has shown the document that stands at "first".
  std::unique_ptr<Program> watching(const std::string& prefix = "") {
    put("first", document(0));
    auto program = std::make_unique<Program>(
        std::vector<std::string>{KAVRA_PROGRAM, "--db", directory_.url(), "watch", prefix});
    if (prefix.empty()) {
      EXPECT_EQ(program->readLine(), line("first", document(0)));
    }
    return program;
  }
  void put(const std::string& path, const std::string& json) const {
    EXPECT_EQ(toolstest::run({KAVRA_PROGRAM, "--db", directory_.url(), "put", path}, json).status,
              0);
  }
  void del(const std::string& path) const {
    EXPECT_EQ(toolstest::run({KAVRA_PROGRAM, "--db", directory_.url(), "del", path}).status, 0);
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(WatchTest, PrintsALineForEachChange) {
  const auto program = watching();
  put("a", document(1));
  EXPECT_EQ(program->readLine(), line("a", document(1)));
  put("a", document(2));
  EXPECT_EQ(program->readLine(), line("a", document(2)));
  del("a");
  EXPECT_EQ(program->readLine(), line("a", "null"));
}

TEST_F(WatchTest, PrintsNoCharacterThatATerminalObeys) {
  const auto program = watching();
  put("a\xc2\x9b", document(1));
  EXPECT_EQ(program->readLine(), line("a\\u009b", document(1)));
}

TEST_F(WatchTest, PrintsOnlyWhatBeginsWithThePrefix) {
  put("cell/1/x", document(1));
  const auto program = watching("cell/2");
  put("cell/2/x", document(2));
  EXPECT_EQ(program->readLine(), line("cell/2/x", document(2)));
  put("cell/1/x", document(3));
  put("cell/2/y", document(4));
  EXPECT_EQ(program->readLine(), line("cell/2/y", document(4)));
}

TEST_F(WatchTest, PrintsNothingForWhatDoesNotFitButSaysSo) {
  const auto program = watching();
  directory_.replace(R"({"first": {"type": "Redundancy::RedundancyStatus", "protocol": 5}})");
  directory_.replace(R"({"first": )" + document(0) + R"(, "second": )" + document(9) + "}");
  EXPECT_EQ(program->readLine(), line("second", document(9)));
  program->signal(SIGTERM);
  const auto outcome = program->finish();
  EXPECT_THAT(outcome.out, IsEmpty());
}

TEST_F(WatchTest, GoesOnWhenTheFileIsGone) {
  const auto program = watching();
  directory_.remove();
  put("second", document(1));
  EXPECT_EQ(program->readLine(), line("first", "null"));
  EXPECT_EQ(program->readLine(), line("second", document(1)));
}

TEST_F(WatchTest, EndsWellOnInterruptAndTermination) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto program = watching();
    program->signal(signal);
    const auto outcome = program->finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, IsEmpty());
  }
}

TEST_F(WatchTest, FailsWhenTheDatabaseCannotBeFollowed) {
  const auto outcome = toolstest::run({KAVRA_PROGRAM, "--db", "file:/no/such/place/x", "watch"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("kavra: file:/no/such/place/x: directory"));
}

}  // namespace
}  // namespace Tools
