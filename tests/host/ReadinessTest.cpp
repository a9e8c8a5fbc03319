#include "host/Readiness.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>

#include "host/ActivityPump.h"
#include "host/PluginHost.h"
#include "host/SnmpAgent.h"

namespace Host {
namespace {

// net-snmp starts once a process: each test runs in a child, whose exit status tells.
class ReadinessTest : public testing::Test {
 protected:
  ReadinessTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

[[noreturn]] void waitForTheFile(const std::string& content,
                                 const testing::Matcher<std::vector<std::string>>& missing,
                                 U32 rows, const std::string& file) {
  std::ofstream(file) << content;
  {
    const Options options = readOptions({"--db", "file:" + file});
    const SnmpAgent agent(options, "test");
    NetSnmpEventLoop loop;
    const ActivityPump pump(loop);
    const StateDatabase database(options, loop);
    const PluginHost plugins({PLUGIN_FILE}, database, "supervisor", {""});
    EXPECT_THAT(waitForDatabases(database, loop, 0.05), missing);
    EXPECT_TRUE(loop.isRunning());
    // At once, without another round of the loop.
    EXPECT_EQ(plugins.tree().rowsOf(2), rows);
  }
  std::remove(file.c_str());
  std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST_F(ReadinessTest, ComesWhenThePeersRowsAreInTheTable) {
  EXPECT_EXIT(waitForTheFile(R"({
    "cell/2/sys/reset/history": {"type": "System::ResetCauseHistory", "rebootHistory":
        {"0": {"causeQ": [{"description": "peer", "time": 2}]}}},
    "cell/1/redundancy/status": {"type": "Redundancy::RedundancyStatus", "protocol": 3,
        "switchoverCapable": true}})",
                             IsEmpty(), 1, "ReadinessTest.pair.json"),
              testing::ExitedWithCode(0), "^$");
}

TEST_F(ReadinessTest, NamesWhatCouldNotBeRead) {
  EXPECT_EXIT(
      waitForTheFile("{",
                     ElementsAre(StartsWith("file:ReadinessTest.bad.json: parse error at line 1")),
                     0, "ReadinessTest.bad.json"),
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Host
