#include "host/PluginHost.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Qel/ActivityManager.h"
#include "Qel/Trace.h"
#include "Qel/TypeNode.h"
#include "Snmp/MibContext.h"
#include "Snmp/SnmpUtil.h"
#include "host/ActivityPump.h"
#include "host/Errors.h"
#include "host/NetSnmp.h"
#include "host/NetSnmpEventLoop.h"
#include "host/SnmpAgent.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int kCycles = 50;

std::vector<std::string> registeredTypes() {
  std::vector<std::string> names;
  for (const auto* type : Qel::typeNodes()) names.push_back(type->name().stdString());
  return names;
}

bool isLoaded() {
  void* const handle = ::dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

// What net-snmp asks for the table's objects, by the name of its registration; "" for nobody.
std::string tableServer() {
  constexpr std::array<oid, 11> kTable{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1};
  const netsnmp_subtree* subtree = netsnmp_subtree_find(kTable.data(), kTable.size(), nullptr, "");
  return subtree != nullptr && subtree->reginfo != nullptr ? subtree->reginfo->handlerName : "";
}

// A process with the real plug-in and a state database of its own. net-snmp starts once a process:
// each test runs in a child and tells its parent, by its exit status, whether it failed.
class Process {
 public:
  explicit Process(const std::string& file = "PluginHostTest.json")
      : options_(readOptions({"--db", "file:" + file})), pump_(loop_), database_(options_, loop_) {
    settle();
  }

  StateDatabase& database() { return database_; }
  std::unique_ptr<PluginHost> newPlugins(const std::vector<std::string>& contexts) {
    return std::make_unique<PluginHost>(std::vector<std::string>{PLUGIN_FILE}, database_,
                                        "supervisor", contexts);
  }
  // What the event loop has put off happens.
  static void settle() {
    while (Qel::activityManager()->run() > 0) {
    }
  }

 private:
  const Options options_;
  const SnmpAgent agent_{options_, "test"};
  NetSnmpEventLoop loop_;
  const ActivityPump pump_;
  StateDatabase database_;
};

class PluginHostTest : public testing::Test {
 protected:
  PluginHostTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

[[noreturn]] void end() { std::exit(testing::Test::HasFailure() ? 1 : 0); }

// A pair under hot standby: the plug-in shows rows of both and mounts the peer's history.
void writePair(const std::string& file) {
  std::ofstream(file) << R"({
    "cell/1/sys/reset/history": {"type": "System::ResetCauseHistory", "rebootHistory":
        {"0": {"causeQ": [{"description": "own", "time": 1}]}}},
    "cell/2/sys/reset/history": {"type": "System::ResetCauseHistory", "rebootHistory":
        {"0": {"causeQ": [{"description": "peer", "time": 2}]}}},
    "cell/1/redundancy/status": {"type": "Redundancy::RedundancyStatus", "protocol": 3,
        "switchoverCapable": true}})";
}

void loadAndUnload(Process& process) {
  for (int cycle = 0; cycle < kCycles; ++cycle) {
    const auto plugins = process.newPlugins({"", "blue"});
    // The others go while their mount is under way.
    if (cycle % 2 == 0) Process::settle();
    EXPECT_THAT(Snmp::mibContexts(), ElementsAre(Snmp::MibContext{"", "NorvekGeneralMIB"},
                                                 Snmp::MibContext{"blue", "NorvekGeneralMIB"}));
    EXPECT_TRUE(isLoaded());
    EXPECT_THAT(tableServer(), StartsWith("norvekReloadCauseTable"));
  }
}

[[noreturn]] void loadAndUnloadAPair() {
  constexpr char kFile[] = "PluginHostTest.pair.json";
  writePair(kFile);
  int mounted = 0;
  Qel::traceLevelIs("MiscSnmp", 1);
  Qel::traceSinkIs([&mounted](const Qel::TraceRecord& record) {
    if (record.function == "handleComplete") ++mounted;
  });
  {
    Process process(kFile);
    const auto typesBefore = registeredTypes();
    const auto objectsBefore = Qel::PtrInterface::liveObjects();
    EXPECT_EQ(tableServer(), "");
    loadAndUnload(process);
    Process::settle();
    EXPECT_THAT(Snmp::mibContexts(), IsEmpty());
    EXPECT_EQ(registeredTypes(), typesBefore);
    EXPECT_EQ(Qel::PtrInterface::liveObjects(), objectsBefore);
    EXPECT_FALSE(isLoaded());
    EXPECT_EQ(tableServer(), "");
  }
  EXPECT_EQ(mounted, kCycles / 2);
  std::remove(kFile);
  end();
}

TEST_F(PluginHostTest, LeavesNothingAfterFiftyLoadsAndUnloads) {
  EXPECT_EXIT(loadAndUnloadAPair(), testing::ExitedWithCode(0), "^$");
}

std::string firstCauseOf(const StateTree& tree, U32 unit) {
  const auto reload = tree.reloadOf(unit);
  return reload ? reload->causeQ().first()->value().description().stdString() : "none";
}

[[noreturn]] void followTheTable() {
  constexpr char kFile[] = "PluginHostTest.table.json";
  writePair(kFile);
  {
    Process process(kFile);
    const auto plugins = process.newPlugins({""});
    Process::settle();
    const StateTree& tree = plugins->tree();
    EXPECT_EQ(firstCauseOf(tree, 0), "own");
    EXPECT_EQ(firstCauseOf(tree, 1), "own");
    EXPECT_EQ(firstCauseOf(tree, 2), "peer");
    EXPECT_EQ(firstCauseOf(tree, 3), "none");

    int changes = 0;
    auto following = tree.follow([&changes] { ++changes; });
    EXPECT_EQ(changes, 0);
    process.database().resetHistory()->rebootHistory(0)->causeQIs({{"again", 3}});
    EXPECT_EQ(changes, 4);  // a row goes and comes, of two units
    EXPECT_EQ(firstCauseOf(tree, 0), "again");

    following = nullptr;
    process.database().resetHistory()->rebootHistory(0)->causeQIs({});
    EXPECT_EQ(changes, 4);
    EXPECT_EQ(firstCauseOf(tree, 0), "none");
  }
  std::remove(kFile);
  end();
}

TEST_F(PluginHostTest, FollowsTheTable) {
  EXPECT_EXIT(followTheTable(), testing::ExitedWithCode(0), "^$");
}

[[noreturn]] void lookUpTheModel() {
  {
    Process process;
    EXPECT_FALSE(SnmpUtil::getEntityRelative("snmp/misc/generalMib"));
    const auto plugins = process.newPlugins({""});
    const auto model = SnmpUtil::getEntityRelative("snmp/misc/generalMib");
    EXPECT_TRUE(model);
    EXPECT_EQ(model ? model->fwkType() : nullptr, Qel::typeNode("MiscSnmp::GeneralMib"));
  }
  EXPECT_FALSE(SnmpUtil::getEntityRelative("snmp/misc/generalMib"));
  end();
}

TEST_F(PluginHostTest, ShowsTheModelWhereModulesLookForIt) {
  EXPECT_EXIT(lookUpTheModel(), testing::ExitedWithCode(0), "^$");
}

[[noreturn]] void loadSomethingElse(const std::string& file) {
  {
    Process process;
    try {
      const PluginHost plugins({file}, process.database(), "supervisor", {""});
    } catch (const StartError& error) {
      std::cerr << error.what() << std::endl;
    }
  }
  end();
}

TEST_F(PluginHostTest, NamesAFileThatIsNoLibrary) {
  EXPECT_EXIT(loadSomethingElse("/nonexistent.so"), testing::ExitedWithCode(0),
              "^cannot load the plug-in: /nonexistent.so: [^\n]*\n$");
}

TEST_F(PluginHostTest, RefusesALibraryThatBringsNoModel) {
  EXPECT_EXIT(loadSomethingElse("libm.so.6"), testing::ExitedWithCode(0),
              "^no plug-in brings the type MiscSnmp::GeneralMib\n$");
}

}  // namespace
}  // namespace Host
